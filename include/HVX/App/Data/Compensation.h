#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "HVX/Base/Quantities.h"
#include "HVX/Base/Range.h"
#include "HVX/Base/Vector.h"

namespace nrq {

// Kept for a later cache of looked-up values; today only `range` is filled
// and nothing reads the rest.
struct CompensationCache {
    Range<Frequency> range;
    uint64_t reserved0 = 0;
    uint64_t reserved1 = 0;
    uint64_t gap = 0;
    std::vector<float> values;
};

// A decoded correction file: per frequency a grid of dB values by scanner
// cell. Lookups interpolate linearly between neighbouring frequencies and hold
// the first and the last value outside the table; an empty table answers 0.
class Compensation {
public:
    // Raises std::runtime_error, with a message meant for the user, on data
    // that isn't a correction file or is damaged or cut short.
    static Compensation Decode(std::string_view file);

    Compensation(Compensation&& other) noexcept;
    Compensation& operator=(Compensation&& other) noexcept;
    Compensation(const Compensation&) = delete;
    Compensation& operator=(const Compensation&) = delete;
    ~Compensation();

    // The first place of the grid.
    float GetValue(Frequency f) const;
    // Cells are clamped to 0..columns and 0..rows, the counts themselves:
    // a cell just past a row reads the next row's first place. A place past
    // the whole table reads the table's last value.
    float GetValue(Frequency f, int cellX, int cellY) const;
    // Cells of 7.5 mm, cell (0, 0) starting at the origin; z is not used.
    float GetValue(Frequency f, Vector<Length, 3> position) const;

    CompensationCache MakeCachedValues(Range<Frequency> range) const;

private:
    Compensation() = default;

    float Lookup(Frequency f, int64_t place) const;
    void Release() noexcept;

    void* buffer = nullptr;
    const double* frequencies = nullptr;
    const float* values = nullptr;
    int32_t frequencyCount = 0;
    int32_t columns = 0;
    int32_t rows = 0;
    int32_t gridSize = 1;
};

} // namespace nrq
