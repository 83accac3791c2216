// Every form of the 4-byte swap gives the same bytes, also where the data
// does not fill the last wide step, and never touches what lies past the padding.
#include "HVX/ESC/SCPI/ByteSwap.h"
#include "HVX/ESC/SCPI/State.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace nrq {
namespace {

const size_t counts[] = {0, 1, 7, 8, 9, 1000003};

struct Swapped {
    SCPIAlignedBuffer source;
    uint8_t* input = nullptr;
    std::vector<uint8_t> expected;
};

Swapped MakeInput(size_t count) {
    Swapped data;
    data.input = data.source.Reserve(count * 4);
    std::mt19937 random(static_cast<uint32_t>(count) + 17);
    for (size_t i = 0; i < count * 4; ++i)
        data.input[i] = static_cast<uint8_t>(random());
    data.expected.resize(count * 4);
    for (size_t i = 0; i < count * 4; ++i)
        data.expected[i] = data.input[(i / 4) * 4 + 3 - i % 4];
    return data;
}

void ExpectSwapsLikeByHand(detail::SwapFloat32Function swap) {
    for (size_t count : counts) {
        const Swapped data = MakeInput(count);
        SCPIAlignedBuffer target;
        uint8_t* output = target.Reserve(count * 4);
        swap(output, data.input, count);
        EXPECT_TRUE(std::equal(data.expected.begin(), data.expected.end(), output)) << count << " values";
    }
}

TEST(SCPIByteSwap, PortableReversesEachGroupOfFour) {
    ExpectSwapsLikeByHand(detail::SwapFloat32Portable);
    const uint8_t in[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint8_t out[8] = {};
    detail::SwapFloat32Portable(out, in, 2);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8), std::vector<uint8_t>({4, 3, 2, 1, 8, 7, 6, 5}));
}

TEST(SCPIByteSwap, Ssse3MatchesPortable) {
    if (!detail::CpuHasSsse3())
        GTEST_SKIP() << "this processor has no SSSE3";
    ExpectSwapsLikeByHand(detail::SwapFloat32Ssse3);
}

TEST(SCPIByteSwap, Avx2MatchesPortable) {
    if (!detail::CpuHasAvx2())
        GTEST_SKIP() << "this processor has no AVX2";
    ExpectSwapsLikeByHand(detail::SwapFloat32Avx2);
}

TEST(SCPIByteSwap, TheChosenFormIsTheWidestTheProcessorHas) {
    const std::string_view expected = detail::CpuHasAvx2() ? "avx2" : detail::CpuHasSsse3() ? "ssse3" : "portable";
    EXPECT_EQ(detail::ChosenSwapFloat32Name(), expected);
    EXPECT_EQ(detail::ChosenSwapFloat32(), detail::ChosenSwapFloat32());
    ExpectSwapsLikeByHand(detail::SwapFloat32);
}

} // namespace
} // namespace nrq
