#pragma once

namespace nrq {

// A plain value type: the bounds of a range and the step through it, nothing
// checked and nothing derived. Range<Frequency> is three 64-bit fields.
template <class T>
struct Range {
    T min{};
    T max{};
    T step{};

    friend constexpr bool operator==(const Range&, const Range&) = default;
};

} // namespace nrq
