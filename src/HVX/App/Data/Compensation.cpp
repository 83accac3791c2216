#include "HVX/App/Data/Compensation.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace nrq {
namespace {

// The file is little-endian and its fields are copied as they lie.
static_assert(std::endian::native == std::endian::little);

constexpr std::string_view magic = "CORRECTION";
// Bytes 10 to 13 carry nothing the lookups need.
constexpr size_t countsOffset = 14;
constexpr size_t headerSize = 26;
constexpr uint32_t maxColumns = 200;
constexpr uint32_t maxRows = 200;
constexpr uint32_t maxFrequencyCount = 1000;
constexpr float cellLength = 0.0075f;

[[noreturn]] void ThrowCorrupted() {
    throw std::runtime_error("The correction file was corrupted.");
}

// Reads forward through untrusted bytes; running out is a damaged file.
class Reader {
public:
    Reader(std::string_view data, size_t offset) : data(data), offset(offset) {}

    void Copy(void* target, size_t size) {
        if (offset > data.size() || size > data.size() - offset)
            ThrowCorrupted();
        std::memcpy(target, data.data() + offset, size);
        offset += size;
    }

    uint32_t U32() {
        uint32_t value;
        Copy(&value, sizeof(value));
        return value;
    }

private:
    std::string_view data;
    size_t offset;
};

// Saturates before the cast: a float beyond int has no defined conversion.
int CutToCell(float cells) {
    if (std::isnan(cells))
        return 0;
    constexpr float limit = 1073741824.0f;
    if (cells > limit)
        return static_cast<int>(limit);
    if (cells < -limit)
        return -static_cast<int>(limit);
    return static_cast<int>(cells);
}

} // namespace

Compensation Compensation::Decode(std::string_view file) {
    if (file.size() < magic.size() + 1 || file.substr(0, magic.size()) != magic)
        throw std::runtime_error("The given data is not a correction file");

    Reader reader(file, countsOffset);
    const uint32_t columns = reader.U32();
    if (columns > maxColumns)
        ThrowCorrupted();
    const uint32_t rows = reader.U32();
    if (rows > maxRows)
        ThrowCorrupted();
    const uint32_t gridSize = columns * rows > 0 ? columns * rows : 1;
    const uint32_t frequencyCount = reader.U32();
    if (frequencyCount > maxFrequencyCount)
        ThrowCorrupted();

    Compensation result;
    result.columns = static_cast<int32_t>(columns);
    result.rows = static_cast<int32_t>(rows);
    result.gridSize = static_cast<int32_t>(gridSize);
    if (frequencyCount == 0)
        return result;

    const size_t recordSize = sizeof(double) + size_t{gridSize} * sizeof(float);
    // Refused before allocating, so a short file can't reserve a full table.
    if ((file.size() - headerSize) / recordSize < frequencyCount)
        ThrowCorrupted();

    const size_t valueCount = size_t{frequencyCount} * gridSize;
    void* block = std::malloc(size_t{frequencyCount} * sizeof(double) + valueCount * sizeof(float));
    if (!block)
        throw std::bad_alloc();
    result.buffer = block;
    auto* frequencies = static_cast<double*>(block);
    auto* values = reinterpret_cast<float*>(frequencies + frequencyCount);
    result.frequencies = frequencies;
    result.values = values;
    result.frequencyCount = static_cast<int32_t>(frequencyCount);

    for (uint32_t record = 0; record < frequencyCount; ++record) {
        reader.Copy(frequencies + record, sizeof(double));
        reader.Copy(values + size_t{record} * gridSize, size_t{gridSize} * sizeof(float));
    }
    return result;
}

Compensation::Compensation(Compensation&& other) noexcept
    : buffer(std::exchange(other.buffer, nullptr)),
      frequencies(std::exchange(other.frequencies, nullptr)),
      values(std::exchange(other.values, nullptr)),
      frequencyCount(std::exchange(other.frequencyCount, 0)),
      columns(std::exchange(other.columns, 0)),
      rows(std::exchange(other.rows, 0)),
      gridSize(std::exchange(other.gridSize, 1)) {}

Compensation& Compensation::operator=(Compensation&& other) noexcept {
    if (this != &other) {
        Release();
        buffer = std::exchange(other.buffer, nullptr);
        frequencies = std::exchange(other.frequencies, nullptr);
        values = std::exchange(other.values, nullptr);
        frequencyCount = std::exchange(other.frequencyCount, 0);
        columns = std::exchange(other.columns, 0);
        rows = std::exchange(other.rows, 0);
        gridSize = std::exchange(other.gridSize, 1);
    }
    return *this;
}

Compensation::~Compensation() {
    Release();
}

void Compensation::Release() noexcept {
    std::free(buffer);
    buffer = nullptr;
    frequencies = nullptr;
    values = nullptr;
    frequencyCount = 0;
}

float Compensation::Lookup(Frequency f, int64_t place) const {
    const int64_t count = frequencyCount;
    if (count == 0)
        return 0.0f;
    // A place past the grid runs into the following records; past the last
    // one the table's last value holds.
    const int64_t last = count * gridSize - 1;
    const auto at = [&](int64_t record) { return values[std::min(place + gridSize * record, last)]; };
    if (count == 1)
        return at(0);

    int64_t i = 1;
    while (i < count && !(frequencies[i] > f.Hz()))
        ++i;
    // At or above the last frequency the walk ends past the table.
    if (i > count - 1)
        i = count - 1;

    const double span = frequencies[i] - frequencies[i - 1];
    float t = span == 0.0 ? 0.0f : static_cast<float>((f.Hz() - frequencies[i - 1]) / span);
    // Written so that NaN, from NaN or infinite frequencies, also ends at 0.
    if (!(t > 0.0f))
        t = 0.0f;
    else if (t > 1.0f)
        t = 1.0f;
    return (1.0f - t) * at(i - 1) + t * at(i);
}

float Compensation::GetValue(Frequency f) const {
    return Lookup(f, 0);
}

float Compensation::GetValue(Frequency f, int cellX, int cellY) const {
    cellX = std::clamp(cellX, 0, columns);
    cellY = std::clamp(cellY, 0, rows);
    return Lookup(f, int64_t{cellY} * columns + cellX);
}

float Compensation::GetValue(Frequency f, Vector<Length, 3> position) const {
    return GetValue(f, CutToCell(position.x().m() / cellLength), CutToCell(position.y().m() / cellLength));
}

CompensationCache Compensation::MakeCachedValues(Range<Frequency> range) const {
    CompensationCache cache;
    cache.range = range;
    return cache;
}

} // namespace nrq
