#pragma once

// The VISA C types, status codes and attributes the stand-in library
// implements, with the numeric values of the public VISA standard, for a
// 64-bit Linux build (32-bit ViUInt32, 64-bit ViAttrState).

#include <cstdint>

extern "C" {

typedef int32_t ViInt32;
typedef uint32_t ViUInt32;
typedef uint16_t ViUInt16;
typedef uint8_t ViUInt8;
typedef uint64_t ViUInt64;
typedef char ViChar;
typedef ViUInt16 ViBoolean;
typedef ViInt32 ViStatus;
typedef ViUInt32 ViObject;
typedef ViObject ViSession;
typedef ViObject ViFindList;
typedef ViUInt32 ViAttr;
typedef ViUInt64 ViAttrState;
typedef ViUInt32 ViAccessMode;
typedef ViUInt32 ViJobId;
typedef ViUInt8* ViPBuf;
typedef const ViUInt8* ViConstBuf;
typedef const ViChar* ViConstString;
typedef const ViChar* ViConstRsrc;
typedef ViSession* ViPSession;
typedef ViFindList* ViPFindList;
typedef ViUInt32* ViPUInt32;
typedef ViJobId* ViPJobId;
typedef void* ViPAttrState;

} // extern "C"

namespace hvxvisa {

constexpr ViSession kViNull = 0;
constexpr ViBoolean kViTrue = 1;
constexpr ViBoolean kViFalse = 0;

// Completion and warning codes.
constexpr ViStatus kViSuccess = 0;
constexpr ViStatus kViSuccessTermChar = 0x3FFF0005;
constexpr ViStatus kViSuccessMaxCnt = 0x3FFF0006;
constexpr ViStatus kViWarnNullObject = 0x3FFF0082;
constexpr ViStatus kViWarnUnknownStatus = 0x3FFF0085;

// Error codes.
constexpr ViStatus ErrorCode(uint32_t value) { return static_cast<ViStatus>(value); }
constexpr ViStatus kViErrorSystemError = ErrorCode(0xBFFF0000u);
constexpr ViStatus kViErrorInvObject = ErrorCode(0xBFFF000Eu);
constexpr ViStatus kViErrorInvExpr = ErrorCode(0xBFFF0010u);
constexpr ViStatus kViErrorRsrcNfound = ErrorCode(0xBFFF0011u);
constexpr ViStatus kViErrorInvRsrcName = ErrorCode(0xBFFF0012u);
constexpr ViStatus kViErrorInvAccMode = ErrorCode(0xBFFF0013u);
constexpr ViStatus kViErrorTmo = ErrorCode(0xBFFF0015u);
constexpr ViStatus kViErrorNsupAttr = ErrorCode(0xBFFF001Du);
constexpr ViStatus kViErrorNsupAttrState = ErrorCode(0xBFFF001Eu);
constexpr ViStatus kViErrorAttrReadonly = ErrorCode(0xBFFF001Fu);
constexpr ViStatus kViErrorAlloc = ErrorCode(0xBFFF003Cu);
constexpr ViStatus kViErrorInvMask = ErrorCode(0xBFFF003Du);
constexpr ViStatus kViErrorIo = ErrorCode(0xBFFF003Eu);
constexpr ViStatus kViErrorNsupOper = ErrorCode(0xBFFF0067u);
constexpr ViStatus kViErrorUserBuf = ErrorCode(0xBFFF0071u);
constexpr ViStatus kViErrorConnLost = ErrorCode(0xBFFF00A6u);

// Attributes.
constexpr ViAttr kViAttrRsrcClass = 0xBFFF0001u;
constexpr ViAttr kViAttrRsrcName = 0xBFFF0002u;
constexpr ViAttr kViAttrSendEndEn = 0x3FFF0016u;
constexpr ViAttr kViAttrTermchar = 0x3FFF0018u;
constexpr ViAttr kViAttrTmoValue = 0x3FFF001Au;
constexpr ViAttr kViAttrSuppressEndEn = 0x3FFF0036u;
constexpr ViAttr kViAttrTermcharEn = 0x3FFF0038u;
constexpr ViAttr kViAttrIntfType = 0x3FFF0171u;
constexpr ViAttr kViAttrIntfNum = 0x3FFF0176u;
constexpr ViAttr kViAttrRmSession = 0x3FFF00C4u;
constexpr ViAttr kViAttrTcpipAddr = 0xBFFF0195u;
constexpr ViAttr kViAttrTcpipHostname = 0xBFFF0196u;
constexpr ViAttr kViAttrTcpipPort = 0x3FFF0197u;

constexpr ViUInt16 kViIntfTcpip = 6;
constexpr ViUInt32 kViTmoImmediate = 0;
constexpr ViUInt32 kViTmoInfinite = 0xFFFFFFFFu;
constexpr ViAccessMode kViAccessModes = 1 | 2 | 4; // exclusive lock, shared lock, load config

// viFlush masks.
constexpr ViUInt16 kViReadBuf = 1;
constexpr ViUInt16 kViWriteBuf = 2;
constexpr ViUInt16 kViReadBufDiscard = 4;
constexpr ViUInt16 kViWriteBufDiscard = 8;
constexpr ViUInt16 kViIoInBuf = 16;
constexpr ViUInt16 kViIoOutBuf = 32;
constexpr ViUInt16 kViIoInBufDiscard = 64;
constexpr ViUInt16 kViIoOutBufDiscard = 128;

// Size of the description buffers of viFindRsrc, viFindNext and viStatusDesc.
constexpr unsigned kViFindBufLen = 256;

// The environment the stand-in reads.
constexpr const char* kResourcesVariable = "HVX_VISA_RESOURCES";     // list for viFindRsrc, ',' or ';' between names
constexpr const char* kMaxSessionsVariable = "HVX_VISA_MAX_SESSIONS"; // open objects beyond it give VI_ERROR_ALLOC

} // namespace hvxvisa
