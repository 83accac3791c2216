#include "halvex/Progress.h"

#include <gtest/gtest.h>

namespace halvex {
namespace {

TEST(HalvexProgress, Durations) {
    EXPECT_EQ(FormatDuration(0.0), "0:00");
    EXPECT_EQ(FormatDuration(7.4), "0:07");
    EXPECT_EQ(FormatDuration(723.0), "12:03");
    EXPECT_EQ(FormatDuration(3723.0), "1:02:03");
    EXPECT_EQ(FormatDuration(-5.0), "0:00");
}

TEST(HalvexProgress, PlainLine) {
    // 10 points in 5 s: 2 a second, 20 to go in 10 s.
    EXPECT_EQ(FormatProgress(10, 30, 5.0, 0), "10/30 points, 2.0 points/s, 0:10 left");
    EXPECT_EQ(FormatProgress(0, 30, 0.0, 0), "0/30 points, -- points/s, --:-- left");
}

TEST(HalvexProgress, Bar) {
    EXPECT_EQ(FormatProgress(10, 30, 5.0, 10), "[###-------]  33%  10/30 points  2.0 points/s  0:10 left");
    EXPECT_EQ(FormatProgress(30, 30, 5.0, 10), "[##########] 100%  30/30 points  6.0 points/s  0:00 left");
    EXPECT_EQ(FormatProgress(0, 0, 0.0, 4), "[----]   0%  0/0 points  -- points/s  --:-- left");
}

} // namespace
} // namespace halvex
