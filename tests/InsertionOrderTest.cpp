#include "HVX/Math/Delaunay/InsertionOrder.h"

#include "HVX/Math/Delaunay/Delaunator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace nrq {
namespace {

using delaunator::InsertionOrder;
using delaunator::InvalidIndex;

constexpr float centreX = 3.5f;
constexpr float centreY = -1.25f;

float SquaredDistance(const std::vector<float>& xy, uint32_t i) {
    const float dx = xy[2 * i] - centreX;
    const float dy = xy[2 * i + 1] - centreY;
    return dx * dx + dy * dy;
}

// The finite points by squared distance to the centre, then x, then y, then
// number, sorted here with a plain comparison.
std::vector<uint32_t> ExpectedOrder(const std::vector<float>& xy) {
    std::vector<uint32_t> order;
    for (uint32_t i = 0; i < xy.size() / 2; ++i)
        if (std::isfinite(xy[2 * i]) && std::isfinite(xy[2 * i + 1]))
            order.push_back(i);
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        const float da = SquaredDistance(xy, a);
        const float db = SquaredDistance(xy, b);
        if (da != db)
            return da < db;
        if (xy[2 * a] != xy[2 * b])
            return xy[2 * a] < xy[2 * b];
        if (xy[2 * a + 1] != xy[2 * b + 1])
            return xy[2 * a + 1] < xy[2 * b + 1];
        return a < b;
    });
    return order;
}

size_t FiniteCount(const std::vector<float>& xy) {
    size_t count = 0;
    for (size_t i = 0; i < xy.size() / 2; ++i)
        count += std::isfinite(xy[2 * i]) && std::isfinite(xy[2 * i + 1]);
    return count;
}

// Checks every place against the expected order, reading each place only
// once it is available, as the sweep does.
void CheckOrder(const std::vector<float>& xy, const uint32_t seeds[3]) {
    const std::vector<uint32_t> expected = ExpectedOrder(xy);
    const uint32_t hashSize = 37;
    const InsertionOrder order(xy.data(), xy.size() / 2, FiniteCount(xy), centreX, centreY, hashSize, seeds);
    ASSERT_EQ(order.Count(), expected.size());

    uint32_t places[3] = {};
    order.SeedPlaces(places);
    for (size_t j = 0; j < 3; ++j) {
        ASSERT_LT(places[j], expected.size());
        EXPECT_EQ(expected[places[j]], seeds[j]) << "seed " << j;
    }

    std::vector<uint32_t> keys(expected.size());
    uint32_t available = 0;
    for (uint32_t place = 0; place < order.Count(); ++place) {
        if (place == available) {
            available = order.AvailableBeyond(place);
            ASSERT_GT(available, place);
            ASSERT_LE(available, order.Count());
        }
        const uint32_t number = order.PointNumbers()[place];
        ASSERT_EQ(number, expected[place]) << "place " << place;
        ASSERT_EQ(order.Points()[2 * place], xy[2 * number]);
        ASSERT_EQ(order.Points()[2 * place + 1], xy[2 * number + 1]);
    }
    delaunator::HashKeys(order.Points(), order.Count(), centreX, centreY, hashSize, keys.data());
    for (uint32_t place = 0; place < order.Count(); ++place)
        ASSERT_EQ(order.HashKeys()[place], keys[place]) << "place " << place;
}

std::vector<float> Uniform(size_t n, unsigned seed, float low, float high) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> coordinate(low, high);
    std::vector<float> xy(2 * n);
    for (float& value : xy)
        value = coordinate(random);
    return xy;
}

TEST(InsertionOrder, FewPointsByDistanceThenPosition) {
    // (3.5, -1.25) is the centre: distances 0, 1, 1, 1, 4 and 1 again for
    // the duplicate of point 2 at number 6.
    const std::vector<float> xy = {5.5f, -1.25f, 3.5f, -0.25f, 2.5f, -1.25f, 3.5f, -1.25f,
                                   4.5f, -1.25f, 3.5f, -2.25f, 2.5f, -1.25f};
    const uint32_t seeds[3] = {3, 1, 4};
    const InsertionOrder order(xy.data(), xy.size() / 2, xy.size() / 2, centreX, centreY, 8, seeds);
    ASSERT_EQ(order.Count(), 7u);
    ASSERT_EQ(order.AvailableBeyond(0), 7u);
    // Distance 1 in order of x, then y, then number: (2.5, -1.25) as 2 and
    // 6, (3.5, -2.25), (3.5, -0.25), (4.5, -1.25).
    const std::vector<uint32_t> numbers(order.PointNumbers(), order.PointNumbers() + 7);
    EXPECT_EQ(numbers, (std::vector<uint32_t>{3, 2, 6, 5, 1, 4, 0}));
    uint32_t places[3] = {};
    order.SeedPlaces(places);
    EXPECT_EQ(places[0], 0u);
    EXPECT_EQ(places[1], 4u);
    EXPECT_EQ(places[2], 5u);
    CheckOrder(xy, seeds);
}

TEST(InsertionOrder, NonFinitePointsTakeNoPlace) {
    std::vector<float> xy = Uniform(500, 3, -10, 10);
    xy[2 * 7] = std::numeric_limits<float>::quiet_NaN();
    xy[2 * 8 + 1] = std::numeric_limits<float>::infinity();
    xy[2 * 9] = -std::numeric_limits<float>::infinity();
    const uint32_t seeds[3] = {0, 1, 2};
    CheckOrder(xy, seeds);
}

TEST(InsertionOrder, ManyPointsOnAnotherThread) {
    // Enough for the helper thread, and for stretches sorted by radix.
    const std::vector<float> xy = Uniform(100000, 5, -1000, 1000);
    const uint32_t seeds[3] = {99999, 0, 50000};
    CheckOrder(xy, seeds);
}

TEST(InsertionOrder, OneStretchOfNearlyEqualDistances) {
    // On a thin ring, every distance agrees in its upper bits: one stretch
    // of all the points, sorted by the lower bits alone.
    std::mt19937 random(9);
    std::uniform_real_distribution<float> angle(0.0f, 6.2831853f);
    std::uniform_real_distribution<float> radius(100.0f, 100.01f);
    std::vector<float> xy;
    for (int k = 0; k < 30000; ++k) {
        const float a = angle(random);
        const float r = radius(random);
        xy.push_back(centreX + r * std::cos(a));
        xy.push_back(centreY + r * std::sin(a));
    }
    const uint32_t seeds[3] = {1, 2, 3};
    CheckOrder(xy, seeds);
}

TEST(InsertionOrder, EqualDistancesAndDuplicatesAcrossManyPoints) {
    // Whole-number offsets from the centre give many exactly equal
    // distances, and repeats give coincident points.
    std::mt19937 random(13);
    std::uniform_int_distribution<int> offset(-40, 40);
    std::vector<float> xy;
    for (int k = 0; k < 40000; ++k) {
        xy.push_back(centreX + static_cast<float>(offset(random)));
        xy.push_back(centreY + static_cast<float>(offset(random)));
    }
    const uint32_t seeds[3] = {17, 18, 19};
    CheckOrder(xy, seeds);
}

} // namespace
} // namespace nrq
