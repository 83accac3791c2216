#include "InsertionOrder.h"

#include "Delaunator.h"
#include "TwoHalves.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <system_error>

namespace nrq::delaunator {
namespace {

// A squared distance is never negative (nor -0), so its bit pattern sorts
// like its value. Stretches hold the keys that agree in its upper 12 bits
// (exponent and three bits of mantissa, eight stretches a binade): few
// enough to share the keys out fast, small enough to sort one quickly.
constexpr int stretchShift = 32 + 20;
constexpr size_t stretchCount = size_t(1) << 12;
constexpr int digitBits = 10;

// A sort of keys that agree in their upper 12 distance bits. Keys are
// distinct, since each holds its point's number, so any sort gives the
// same order. Large stretches by radix, in two digits of 10 bits.
void SortStretch(uint64_t* keys, uint64_t* scratch, size_t count) {
    if (count <= 64) {
        for (size_t k = 1; k < count; ++k) {
            const uint64_t key = keys[k];
            size_t j = k;
            for (; j > 0 && keys[j - 1] > key; --j)
                keys[j] = keys[j - 1];
            keys[j] = key;
        }
        return;
    }
    if (count <= 2048) {
        std::sort(keys, keys + count);
        return;
    }
    constexpr size_t buckets = size_t(1) << digitBits;
    for (int shift = 32; shift < stretchShift; shift += digitBits) {
        uint32_t offsets[buckets] = {};
        for (size_t k = 0; k < count; ++k)
            ++offsets[(keys[k] >> shift) & (buckets - 1)];
        if (std::find(std::begin(offsets), std::end(offsets), count) != std::end(offsets))
            continue;
        uint32_t offset = 0;
        for (uint32_t& bucket : offsets) {
            const uint32_t here = bucket;
            bucket = offset;
            offset += here;
        }
        for (size_t k = 0; k < count; ++k)
            scratch[offsets[(keys[k] >> shift) & (buckets - 1)]++] = keys[k];
        std::memcpy(keys, scratch, count * sizeof(uint64_t));
    }
}

} // namespace

InsertionOrder::InsertionOrder(const float* xy, size_t n, size_t finiteCount, float centreX, float centreY,
                               uint32_t hashSize, const uint32_t seedNumbers[3])
    : xy(xy), n(n), count(static_cast<uint32_t>(finiteCount)), centreX(centreX), centreY(centreY),
      hashSize(hashSize), seeds{seedNumbers[0], seedNumbers[1], seedNumbers[2]},
      // All but the stretch counts are overwritten whole, so they are not
      // zeroed first.
      keys(std::make_unique_for_overwrite<uint64_t[]>(finiteCount)),
      scratch(std::make_unique_for_overwrite<uint64_t[]>(finiteCount)),
      stretchStart(std::make_unique<uint32_t[]>(stretchCount + 1)),
      points(std::make_unique_for_overwrite<float[]>(2 * finiteCount)),
      original(std::make_unique_for_overwrite<uint32_t[]>(finiteCount)),
      hashKeys(std::make_unique_for_overwrite<uint32_t[]>(finiteCount)) {
    for (std::atomic<uint32_t>& place : seedPlace)
        place.store(InvalidIndex, std::memory_order_relaxed);
    if (finiteCount < itemsWorthAThread) {
        Work();
        return;
    }
    try {
        helper = std::thread([this] { Work(); });
    } catch (const std::system_error&) {
        Work();
    }
}

InsertionOrder::~InsertionOrder() {
    if (helper.joinable())
        helper.join();
}

uint32_t InsertionOrder::AvailableBeyond(uint32_t place) const {
    uint32_t available = ready.load(std::memory_order_acquire);
    while (available <= place) {
        ready.wait(available, std::memory_order_acquire);
        available = ready.load(std::memory_order_acquire);
    }
    return available;
}

void InsertionOrder::SeedPlaces(uint32_t places[3]) const {
    // The seeds have finite coordinates, so each gets a place.
    for (size_t j = 0; j < 3; ++j) {
        uint32_t available = 0;
        while ((places[j] = seedPlace[j].load(std::memory_order_acquire)) == InvalidIndex)
            available = AvailableBeyond(available);
    }
    AvailableBeyond(std::max({places[0], places[1], places[2]}));
}

void InsertionOrder::Work() noexcept {
    MakeKeys();
    for (size_t stretch = 0; stretch < stretchCount; ++stretch) {
        const size_t begin = stretchStart[stretch];
        const size_t end = stretchStart[stretch + 1];
        if (begin < end)
            FinishStretch(begin, end);
    }
}

// The keys of the finite points, in stretches by their upper distance bits;
// within a stretch in the order of their numbers.
void InsertionOrder::MakeKeys() noexcept {
    uint32_t* const start = stretchStart.get();
    size_t made = 0;
    for (size_t i = 0; i < n; ++i) {
        const float x = xy[2 * i];
        const float y = xy[2 * i + 1];
        if (!std::isfinite(x) || !std::isfinite(y))
            continue;
        const float dx = x - centreX;
        const float dy = y - centreY;
        const uint64_t key = static_cast<uint64_t>(std::bit_cast<uint32_t>(dx * dx + dy * dy)) << 32 | i;
        scratch[made++] = key;
        ++start[(key >> stretchShift) + 1];
    }
    for (size_t stretch = 0; stretch < stretchCount; ++stretch)
        start[stretch + 1] += start[stretch];
    // Stable, so each stretch keeps the order of the point numbers.
    for (size_t k = 0; k < made; ++k) {
        const uint64_t key = scratch[k];
        keys[start[key >> stretchShift]++] = key;
    }
    // Each stretch's start moved to its end, the next one's start.
    for (size_t stretch = stretchCount; stretch > 0; --stretch)
        start[stretch] = start[stretch - 1];
    start[0] = 0;
}

void InsertionOrder::FinishStretch(size_t begin, size_t end) noexcept {
    uint64_t* const stretch = keys.get() + begin;
    SortStretch(stretch, scratch.get() + begin, end - begin);

    // Coincident points keep the order of their numbers, so the result
    // does not depend on how the sort treats equal elements.
    const auto x = [&](uint32_t i) { return xy[2 * static_cast<size_t>(i)]; };
    const auto y = [&](uint32_t i) { return xy[2 * static_cast<size_t>(i) + 1]; };
    const auto byPosition = [&](uint64_t a, uint64_t b) {
        const auto ia = static_cast<uint32_t>(a);
        const auto ib = static_cast<uint32_t>(b);
        if (x(ia) != x(ib))
            return x(ia) < x(ib);
        return y(ia) != y(ib) ? y(ia) < y(ib) : ia < ib;
    };
    for (size_t run = begin; run < end;) {
        size_t runEnd = run + 1;
        while (runEnd < end && keys[runEnd] >> 32 == keys[run] >> 32)
            ++runEnd;
        if (runEnd - run > 1)
            std::sort(keys.get() + run, keys.get() + runEnd, byPosition);
        run = runEnd;
    }

    for (size_t place = begin; place < end; ++place) {
        const auto id = static_cast<uint32_t>(keys[place]);
        original[place] = id;
        points[2 * place] = x(id);
        points[2 * place + 1] = y(id);
        for (size_t j = 0; j < 3; ++j)
            if (id == seeds[j])
                seedPlace[j].store(static_cast<uint32_t>(place), std::memory_order_relaxed);
    }
    delaunator::HashKeys(points.get() + 2 * begin, end - begin, centreX, centreY, hashSize, hashKeys.get() + begin);
    ready.store(static_cast<uint32_t>(end), std::memory_order_release);
    ready.notify_all();
}

} // namespace nrq::delaunator
