#include "HVX/Base/System.h"

#include <array>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace nrq {
namespace {

enum class Vendor { Intel, Amd, Other };

struct FlagSource {
    unsigned leaf;
    int reg; // 0 EAX, 1 EBX, 2 ECX, 3 EDX
    int bit;
    Vendor only; // Other: any vendor
};

constexpr int ebx = 1, ecx = 2, edx = 3;
constexpr Vendor any = Vendor::Other;

constexpr std::array<FlagSource, 52> flagSources{{
    {1, ecx, 0, any}, {1, ecx, 1, any}, {1, ecx, 3, any}, {1, ecx, 9, any}, {1, ecx, 12, any},
    {1, ecx, 13, any}, {1, ecx, 19, any}, {1, ecx, 20, any}, {1, ecx, 22, any}, {1, ecx, 23, any},
    {1, ecx, 25, any}, {1, ecx, 26, any}, {1, ecx, 27, any}, {1, ecx, 28, any}, {1, ecx, 29, any},
    {1, ecx, 30, any},
    {1, edx, 5, any}, {1, edx, 8, any}, {1, edx, 11, any}, {1, edx, 15, any}, {1, edx, 19, any},
    {1, edx, 23, any}, {1, edx, 24, any}, {1, edx, 25, any}, {1, edx, 26, any},
    {7, ebx, 0, any}, {7, ebx, 3, any}, {7, ebx, 4, Vendor::Intel}, {7, ebx, 5, any},
    {7, ebx, 8, any}, {7, ebx, 9, any}, {7, ebx, 10, any}, {7, ebx, 11, Vendor::Intel},
    {7, ebx, 16, any}, {7, ebx, 18, any}, {7, ebx, 19, any}, {7, ebx, 26, any}, {7, ebx, 27, any},
    {7, ebx, 28, any}, {7, ebx, 29, any},
    {7, ecx, 0, any},
    {0x80000001, ecx, 0, any}, {0x80000001, ecx, 5, Vendor::Intel}, {0x80000001, ecx, 5, Vendor::Amd},
    {0x80000001, ecx, 6, Vendor::Amd}, {0x80000001, ecx, 11, Vendor::Amd}, {0x80000001, ecx, 21, Vendor::Amd},
    {0x80000001, edx, 11, Vendor::Intel}, {0x80000001, edx, 22, Vendor::Amd},
    {0x80000001, edx, 27, Vendor::Intel}, {0x80000001, edx, 30, Vendor::Amd},
    {0x80000001, edx, 31, Vendor::Amd},
}};

using Registers = std::array<unsigned, 4>;

#if defined(__x86_64__) || defined(__i386__)
Registers Query(unsigned leaf) {
    Registers r{};
    __cpuid_count(leaf, 0, r[0], r[1], r[2], r[3]);
    return r;
}

std::array<bool, 52> ReadFlags() {
    std::array<bool, 52> flags{};
    const Registers leaf0 = Query(0);
    const unsigned highest = leaf0[0];
    char vendorText[13] = {};
    std::memcpy(vendorText, &leaf0[1], 4);
    std::memcpy(vendorText + 4, &leaf0[3], 4);
    std::memcpy(vendorText + 8, &leaf0[2], 4);
    const Vendor vendor = std::strcmp(vendorText, "GenuineIntel") == 0   ? Vendor::Intel
                          : std::strcmp(vendorText, "AuthenticAMD") == 0 ? Vendor::Amd
                                                                          : Vendor::Other;
    const unsigned highestExtended = Query(0x80000000)[0];
    const Registers leaf1 = highest >= 1 ? Query(1) : Registers{};
    const Registers leaf7 = highest >= 7 ? Query(7) : Registers{};
    const Registers extended1 = highestExtended >= 0x80000001 ? Query(0x80000001) : Registers{};
    for (size_t i = 0; i < flagSources.size(); ++i) {
        const FlagSource& source = flagSources[i];
        if (source.only != any && source.only != vendor)
            continue;
        const Registers& regs = source.leaf == 1 ? leaf1 : source.leaf == 7 ? leaf7 : extended1;
        flags[i] = (regs[source.reg] >> source.bit) & 1u;
    }
    return flags;
}
#else
std::array<bool, 52> ReadFlags() { return {}; }
#endif

} // namespace

bool IsSupported(X86Extension extension) {
    // Filled once; concurrent first calls all write the same values.
    static const std::array<bool, 52> flags = ReadFlags();
    const auto index = static_cast<size_t>(extension);
    return index < flags.size() && flags[index];
}

bool IsSupported(ARMExtension) { return false; }

} // namespace nrq
