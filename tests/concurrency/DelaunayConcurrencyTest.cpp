#include "HVX/Math/Delaunay.h"

#include "HVX/Math/Delaunay/Delaunator.h"
#include "HVX/Math/Delaunay/InsertionOrder.h"
#include "HVX/Math/Delaunay/TwoHalves.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

namespace nrq {
namespace {

std::vector<float> Uniform(size_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> coordinate(0.0f, 1000.0f);
    std::vector<float> xy(2 * n);
    for (float& value : xy)
        value = coordinate(random);
    return xy;
}

// The sweep reads each place as soon as the helper thread publishes it.
TEST(DelaunayConcurrency, PlacesAreReadWhileTheHelperSortsTheRest) {
    const std::vector<float> xy = Uniform(4 * delaunator::itemsWorthAThread, 1);
    const uint32_t seeds[3] = {0, 1, 2};
    const delaunator::InsertionOrder order(xy.data(), xy.size() / 2, xy.size() / 2, 500, 500, 256, seeds);
    uint32_t places[3] = {};
    order.SeedPlaces(places);
    std::vector<uint32_t> numbers;
    float previous = -1;
    uint32_t available = 0;
    for (uint32_t place = 0; place < order.Count(); ++place) {
        if (place == available)
            available = order.AvailableBeyond(place);
        const float dx = order.Points()[2 * place] - 500;
        const float dy = order.Points()[2 * place + 1] - 500;
        const float distance = dx * dx + dy * dy;
        ASSERT_GE(distance, previous) << place;
        previous = distance;
        numbers.push_back(order.PointNumbers()[place]);
    }
    std::sort(numbers.begin(), numbers.end());
    for (uint32_t k = 0; k < numbers.size(); ++k)
        ASSERT_EQ(numbers[k], k);
}

// Triangulations on several threads at once, each with its own helpers,
// give what one alone gives.
TEST(DelaunayConcurrency, ParallelTriangulationsAgreeWithASingleOne) {
    std::vector<float> xy = Uniform(3 * delaunator::itemsWorthAThread, 2);
    const std::vector<uint32_t> expected = DelaunayTriangulation2D(xy);
    ASSERT_FALSE(expected.empty());
    constexpr int threads = 3;
    std::vector<int> same(threads, 0);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            std::vector<float> mine = xy;
            same[static_cast<size_t>(t)] = DelaunayTriangulation2D(mine) == expected;
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    for (int t = 0; t < threads; ++t)
        EXPECT_EQ(same[static_cast<size_t>(t)], 1) << "thread " << t;
}

} // namespace
} // namespace nrq
