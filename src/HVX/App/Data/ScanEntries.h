#pragma once

#include "HVX/Device/Scanner.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

// What the two shapes with one entry per position share.
namespace nrq::detail {

// Per component, the minimum moves down and the maximum up to the new
// position. The maximum starts at the smallest positive float, so a scan
// wholly in negative coordinates reports a maximum of about zero; files and
// drawing code expect exactly that.
inline void AdjustBoundsTo(Position& boundsMin, Position& boundsMax, const Position& position) {
    for (size_t i = 0; i < Position::size(); ++i) {
        if (boundsMin[i] > position[i])
            boundsMin[i] = position[i];
        if (boundsMax[i] < position[i])
            boundsMax[i] = position[i];
    }
}

// A write index read from a file may stand anywhere; past the largest one the
// step wraps instead of overflowing.
inline int32_t NextWriteIndex(int32_t index) {
    return static_cast<int32_t>(static_cast<uint32_t>(index) + 1u);
}

// Entry times are saved as nanosecond ticks of the steady clock.
inline int64_t SteadyTicks(std::chrono::steady_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

inline std::chrono::steady_clock::time_point SteadyFromTicks(int64_t ticks) {
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::nanoseconds(ticks)));
}

// Whole milliseconds from `origin` to `time`, cut towards zero. Ticks read
// from a file may be anything, so their difference wraps instead of overflowing.
inline int64_t MillisecondsSince(int64_t originTicks, std::chrono::steady_clock::time_point time) {
    const auto difference = static_cast<int64_t>(static_cast<uint64_t>(SteadyTicks(time)) -
                                                 static_cast<uint64_t>(originTicks));
    return difference / 1000000;
}

// The entries from `first` on, `count` of them, cut to those that exist.
inline std::pair<size_t, size_t> EntryRange(size_t size, int first, int count) {
    const int64_t last = static_cast<int64_t>(size);
    const int64_t begin = std::clamp<int64_t>(first, 0, last);
    const int64_t end = std::clamp<int64_t>(int64_t{first} + count, begin, last);
    return {static_cast<size_t>(begin), static_cast<size_t>(end)};
}

} // namespace nrq::detail
