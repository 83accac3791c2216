// Byte-swapped float traces, decoded with the widest byte shuffle the
// processor has; every form gives the same bytes.
#include "ByteSwap.h"

#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define HVX_X86_SHUFFLES 1
#else
#define HVX_X86_SHUFFLES 0
#endif

namespace nrq::detail {

void SwapFloat32Portable(void* destination, const void* source, size_t count) {
    auto* out = static_cast<unsigned char*>(destination);
    const auto* in = static_cast<const unsigned char*>(source);
    for (size_t i = 0; i < count; ++i) {
        uint32_t word;
        std::memcpy(&word, in + i * 4, 4);
        word = __builtin_bswap32(word);
        std::memcpy(out + i * 4, &word, 4);
    }
}

#if HVX_X86_SHUFFLES

__attribute__((target("ssse3"))) void SwapFloat32Ssse3(void* destination, const void* source, size_t count) {
    const __m128i order = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
    auto* out = static_cast<unsigned char*>(destination);
    const auto* in = static_cast<const unsigned char*>(source);
    const size_t bytes = count * 4;
    for (size_t at = 0; at < bytes; at += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at), _mm_shuffle_epi8(block, order));
    }
}

__attribute__((target("avx2"))) void SwapFloat32Avx2(void* destination, const void* source, size_t count) {
    // The shuffle works within each 128-bit lane, so both lanes get the same order.
    const __m256i order = _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12, //
                                           3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
    auto* out = static_cast<unsigned char*>(destination);
    const auto* in = static_cast<const unsigned char*>(source);
    const size_t bytes = count * 4;
    // Four steps per turn keep the loads ahead of the stores.
    for (size_t at = 0; at < bytes; at += 128) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + at));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + at + 32));
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + at + 64));
        const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + at + 96));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at), _mm256_shuffle_epi8(a, order));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at + 32), _mm256_shuffle_epi8(b, order));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at + 64), _mm256_shuffle_epi8(c, order));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at + 96), _mm256_shuffle_epi8(d, order));
    }
}

bool CpuHasSsse3() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("ssse3");
}

bool CpuHasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}

#else

// Without x86 shuffles the wide forms are the portable one.
void SwapFloat32Ssse3(void* destination, const void* source, size_t count) {
    SwapFloat32Portable(destination, source, count);
}

void SwapFloat32Avx2(void* destination, const void* source, size_t count) {
    SwapFloat32Portable(destination, source, count);
}

bool CpuHasSsse3() { return false; }
bool CpuHasAvx2() { return false; }

#endif

namespace {

struct SwapChoice {
    SwapFloat32Function function;
    std::string_view name;
};

SwapChoice ChooseSwap() {
    if (CpuHasAvx2())
        return {SwapFloat32Avx2, "avx2"};
    if (CpuHasSsse3())
        return {SwapFloat32Ssse3, "ssse3"};
    return {SwapFloat32Portable, "portable"};
}

const SwapChoice& Chosen() {
    static const SwapChoice choice = ChooseSwap();
    return choice;
}

} // namespace

SwapFloat32Function ChosenSwapFloat32() { return Chosen().function; }
std::string_view ChosenSwapFloat32Name() { return Chosen().name; }

} // namespace nrq::detail
