#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

namespace nrq::delaunator {

// The order in which the sweep inserts the points with finite coordinates:
// by squared distance to the centre, then x, then y, then point number.
// Place k of the order holds a point's number, coordinates and hash key.
//
// A helper thread works the order out while the caller goes on: the keys
// are split by the upper half of their distance into stretches, and each
// stretch is published as soon as it is sorted, so that the sweep can
// start on the nearest points while the farthest are still being sorted.
// For few points, or where no thread can be started, the work is done
// before the constructor returns.
class InsertionOrder {
public:
    InsertionOrder(const float* xy, size_t n, size_t finiteCount, float centreX, float centreY, uint32_t hashSize,
                   const uint32_t seeds[3]);
    ~InsertionOrder();
    InsertionOrder(const InsertionOrder&) = delete;
    InsertionOrder& operator=(const InsertionOrder&) = delete;

    uint32_t Count() const { return count; }
    // The number of final places, once it exceeds `place`.
    uint32_t AvailableBeyond(uint32_t place) const;
    // The places of the three seeds, once those and all before are final.
    void SeedPlaces(uint32_t places[3]) const;

    // Read only places that are final.
    const float* Points() const { return points.get(); }
    const uint32_t* PointNumbers() const { return original.get(); }
    const uint32_t* HashKeys() const { return hashKeys.get(); }

private:
    void Work() noexcept;
    void MakeKeys() noexcept;
    void FinishStretch(size_t begin, size_t end) noexcept;

    const float* xy;
    size_t n;
    uint32_t count;
    float centreX;
    float centreY;
    uint32_t hashSize;
    uint32_t seeds[3];

    std::unique_ptr<uint64_t[]> keys;    // distance bits above point number
    std::unique_ptr<uint64_t[]> scratch; // the same, while sorting
    std::unique_ptr<uint32_t[]> stretchStart;
    std::unique_ptr<float[]> points;
    std::unique_ptr<uint32_t[]> original;
    std::unique_ptr<uint32_t[]> hashKeys;

    std::atomic<uint32_t> ready{0};
    std::atomic<uint32_t> seedPlace[3];
    std::thread helper;
};

} // namespace nrq::delaunator
