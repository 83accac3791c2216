#pragma once

#include <cstddef>
#include <system_error>
#include <thread>

namespace nrq::delaunator {

// Below this many items a thread costs more than it saves.
inline constexpr size_t itemsWorthAThread = size_t(1) << 14;

// Runs `work(part, begin, end)` over [0, count) in two halves, parts 0 and
// 1, the first on a thread of its own where one can be started and the
// count is worth it. `work` must not throw.
template <class Work>
void InTwoHalves(size_t count, const Work& work) {
    const size_t half = count / 2;
    if (count < itemsWorthAThread) {
        work(size_t(0), size_t(0), half);
        work(size_t(1), half, count);
        return;
    }
    std::jthread first;
    try {
        first = std::jthread([&] { work(size_t(0), size_t(0), half); });
    } catch (const std::system_error&) {
        work(size_t(0), size_t(0), half);
    }
    work(size_t(1), half, count);
}

} // namespace nrq::delaunator
