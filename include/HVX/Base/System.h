#pragma once

#include "HVX/Base/StringUtil.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>

namespace nrq {

// The 52 processor flags, in the order of their table: leaf 1 ECX, leaf 1 EDX,
// leaf 7 EBX, leaf 7 ECX, leaf 0x80000001 ECX, leaf 0x80000001 EDX.
enum class X86Extension : uint8_t {
    SSE3, PCLMULQDQ, MONITOR, SSSE3, FMA, CMPXCHG16B, SSE41, SSE42, MOVBE, POPCNT, AES, XSAVE,
    OSXSAVE, AVX, F16C, RDRAND,
    MSR, CX8, SEP, CMOV, CLFSH, MMX, FXSR, SSE, SSE2,
    FSGSBASE, BMI1, HLE, AVX2, BMI2, ERMS, INVPCID, RTM, AVX512F, RDSEED, ADX, AVX512PF,
    AVX512ER, AVX512CD, SHA,
    PREFETCHWT1,
    LAHF, LZCNT, ABM, SSE4A, XOP, TBM,
    SYSCALL, MMXEXT, RDTSCP, AMD3DNOWEXT, AMD3DNOW,
    Count
};
static_assert(static_cast<int>(X86Extension::Count) == 52);

enum class ARMExtension : uint8_t { NEON, Count };

bool IsSupported(X86Extension extension);
bool IsSupported(ARMExtension extension);

// The process's private memory in bytes, or 0 when the platform can't tell.
size_t GetMemoryUsage();

// Opens the folder in the desktop's file manager; a bad path is no error.
void OpenFolder(std::string_view path);

// Declared for the application's sake; they do nothing.
void SetThreadName(std::string_view name);
void SetThreadName(std::thread& thread, std::string_view name);

enum class LaunchArgumentType : int32_t { Flag, String, Integer, Float };

// The command line is the application's business: these operations stay empty.
class LaunchArguments {
public:
    LaunchArguments();

    void AddDef(std::string_view name, LaunchArgumentType type);
    void ProcessCmdLine(std::string_view commandLine);
    size_t size() const;

private:
    std::unordered_map<std::string, LaunchArgumentType, string_hash> definitions;
    std::unordered_map<std::string, std::string, string_hash> values;
};

} // namespace nrq
