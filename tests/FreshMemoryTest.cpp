#include "HVX/Math/Delaunay/FreshMemory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

namespace nrq {
namespace {

TEST(FreshMemory, KeepsTheContents) {
    // Large enough for whole pages and huge pages, and started off a page
    // boundary so that both ends are partial pages.
    std::vector<uint32_t> buffer(3 << 20);
    std::iota(buffer.begin(), buffer.end(), 7u);
    delaunator::PrepareFreshMemory(buffer.data() + 3, (buffer.size() - 5) * sizeof(uint32_t));
    for (size_t k = 0; k < buffer.size(); ++k)
        ASSERT_EQ(buffer[k], k + 7) << k;
}

TEST(FreshMemory, ReservedRoomCanBeFilledAfterwards) {
    std::vector<uint32_t> values;
    values.reserve(1 << 20);
    delaunator::PrepareFreshMemory(values.data(), values.capacity() * sizeof(uint32_t));
    for (uint32_t k = 0; k < (1u << 20); ++k)
        values.push_back(k * 3);
    EXPECT_EQ(values[12345], 12345u * 3);
    EXPECT_EQ(values.back(), ((1u << 20) - 1) * 3);
}

TEST(FreshMemory, LessThanAPageIsLeftAlone) {
    uint32_t small[5] = {1, 2, 3, 4, 5};
    delaunator::PrepareFreshMemory(small, sizeof small);
    delaunator::PrepareFreshMemory(small, 0);
    delaunator::PrepareFreshMemory(nullptr, 0);
    EXPECT_EQ(small[0] + small[4], 6u);
}

} // namespace
} // namespace nrq
