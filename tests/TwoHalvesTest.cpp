#include "HVX/Math/Delaunay/TwoHalves.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace nrq {
namespace {

using delaunator::InTwoHalves;
using delaunator::itemsWorthAThread;

struct Call {
    int times = 0;
    size_t begin = 0;
    size_t end = 0;
};

// Each part once, part 0 the first half (the shorter one for an odd count).
void CheckHalves(size_t count) {
    std::array<Call, 2> calls;
    InTwoHalves(count, [&](size_t part, size_t begin, size_t end) {
        ASSERT_LT(part, 2u);
        calls[part] = {calls[part].times + 1, begin, end};
    });
    EXPECT_EQ(calls[0].times, 1) << count;
    EXPECT_EQ(calls[1].times, 1) << count;
    EXPECT_EQ(calls[0].begin, 0u) << count;
    EXPECT_EQ(calls[0].end, count / 2) << count;
    EXPECT_EQ(calls[1].begin, count / 2) << count;
    EXPECT_EQ(calls[1].end, count) << count;
}

TEST(TwoHalves, EachPartOnceAndTogetherTheWhole) {
    for (size_t count : {size_t(0), size_t(1), size_t(5), itemsWorthAThread - 1, itemsWorthAThread,
                         itemsWorthAThread + 1, size_t(1000001)})
        CheckHalves(count);
}

TEST(TwoHalves, BothHalvesAreDoneOnReturn) {
    std::vector<int> done(3 * itemsWorthAThread, 0);
    InTwoHalves(done.size(), [&](size_t, size_t begin, size_t end) {
        for (size_t k = begin; k < end; ++k)
            done[k] += 1;
    });
    for (size_t k = 0; k < done.size(); ++k)
        ASSERT_EQ(done[k], 1) << k;
}

} // namespace
} // namespace nrq
