#pragma once

#include <cstddef>
#include <string_view>

namespace nrq::detail {

// Reverses the bytes of each 4-byte group from `source` into `destination`.
// The wide forms step 128 or 16 bytes at a time and may read and write up to
// 127 bytes past `count * 4`: both buffers must be padded for that.
using SwapFloat32Function = void (*)(void* destination, const void* source, size_t count);

void SwapFloat32Portable(void* destination, const void* source, size_t count);
void SwapFloat32Ssse3(void* destination, const void* source, size_t count);
void SwapFloat32Avx2(void* destination, const void* source, size_t count);

bool CpuHasSsse3();
bool CpuHasAvx2();

// The best form this processor runs, picked on first use and kept.
SwapFloat32Function ChosenSwapFloat32();
// "avx2", "ssse3" or "portable".
std::string_view ChosenSwapFloat32Name();

inline void SwapFloat32(void* destination, const void* source, size_t count) {
    ChosenSwapFloat32()(destination, source, count);
}

} // namespace nrq::detail
