#pragma once

// The C types and entry points of the VISA library, as the VISA standard gives
// them for 64-bit systems.

#include <cstdint>

namespace nrq::visa_c {

using ViStatus = int32_t;
using ViUInt16 = uint16_t;
using ViUInt32 = uint32_t;
using ViObject = ViUInt32;
using ViSession = ViObject;
using ViFindList = ViObject;
using ViAttr = ViUInt32;
using ViAttrState = uint64_t;
using ViAccessMode = ViUInt32;
using ViJobId = ViUInt32;
using ViChar = char;

constexpr ViStatus VI_SUCCESS = 0;
constexpr ViStatus VI_SUCCESS_TERM_CHAR = 0x3FFF0005;
constexpr ViStatus VI_SUCCESS_MAX_CNT = 0x3FFF0006;
constexpr ViStatus VI_ERROR_RSRC_NFOUND = static_cast<ViStatus>(0xBFFF0011);
constexpr ViStatus VI_ERROR_TMO = static_cast<ViStatus>(0xBFFF0015);
constexpr ViStatus VI_ERROR_ALLOC = static_cast<ViStatus>(0xBFFF003C);

constexpr ViAttr VI_ATTR_TMO_VALUE = 0x3FFF001A;
constexpr ViAttr VI_ATTR_TERMCHAR_EN = 0x3FFF0038;
constexpr ViAttr VI_ATTR_RM_SESSION = 0x3FFF00C4;

constexpr ViAccessMode VI_NULL = 0;
constexpr ViUInt16 VI_READ_BUF_DISCARD = 4;
// A description buffer of the standard's size.
constexpr unsigned VI_FIND_BUFLEN = 256;

using ViOpenDefaultRMFn = ViStatus (*)(ViSession* session);
using ViFindRsrcFn = ViStatus (*)(ViSession session, const ViChar* expression, ViFindList* list, ViUInt32* count,
                                  ViChar description[]);
using ViFindNextFn = ViStatus (*)(ViFindList list, ViChar description[]);
using ViOpenFn = ViStatus (*)(ViSession session, const ViChar* resource, ViAccessMode mode, ViUInt32 timeout,
                              ViSession* opened);
using ViCloseFn = ViStatus (*)(ViObject object);
using ViSetAttributeFn = ViStatus (*)(ViObject object, ViAttr attribute, ViAttrState value);
using ViGetAttributeFn = ViStatus (*)(ViObject object, ViAttr attribute, void* value);
using ViStatusDescFn = ViStatus (*)(ViObject object, ViStatus status, ViChar description[]);
using ViTerminateFn = ViStatus (*)(ViObject object, ViUInt16 degree, ViJobId job);
using ViReadFn = ViStatus (*)(ViSession session, unsigned char* buffer, ViUInt32 count, ViUInt32* returned);
using ViReadAsyncFn = ViStatus (*)(ViSession session, unsigned char* buffer, ViUInt32 count, ViJobId* job);
using ViWriteFn = ViStatus (*)(ViSession session, const unsigned char* buffer, ViUInt32 count, ViUInt32* returned);
using ViWriteAsyncFn = ViStatus (*)(ViSession session, const unsigned char* buffer, ViUInt32 count, ViJobId* job);
using ViClearFn = ViStatus (*)(ViSession session);
using ViFlushFn = ViStatus (*)(ViSession session, ViUInt16 mask);

} // namespace nrq::visa_c
