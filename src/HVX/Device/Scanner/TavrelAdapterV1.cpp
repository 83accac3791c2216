#include "HVX/Device/Scanner/TavrelAdapterV1.h"

#include <bit>

namespace nrq {

static_assert(TavrelAdapterV1Parameters::columns * TavrelAdapterV1Parameters::rows ==
              TavrelAdapterV1Parameters::bit_count);
static_assert(TavrelAdapterV1Parameters::byte_count == (TavrelAdapterV1Parameters::bit_count + 7) / 8);
static_assert(TavrelAdapterV1Parameters::int_count * 4 >= TavrelAdapterV1Parameters::byte_count);

const std::string& TavrelAdapterV1Parameters::GetSerialType() const {
    static const std::string name = "TV1SP";
    return name;
}

std::string TavrelAdapterV1Parameters::SerializeBinary() const {
    std::string out;
    // The words as they lie in memory, little-endian, cut after the last cell's byte.
    for (int i = 0; i < int_count; ++i)
        AppendRaw(out, bits[i]);
    out.resize(byte_count);
    return out;
}

void TavrelAdapterV1Parameters::DeserializeBinary(std::string_view& data, const SerializeInfo&) {
    std::string_view grid = BinaryCursor(data).Take(byte_count);
    uint8_t bytes[int_count * 4] = {};
    std::memcpy(bytes, grid.data(), byte_count);
    std::memcpy(bits, bytes, sizeof(bits));
}

bool TavrelAdapterV1Parameters::GetCell(int column, int row) const {
    if (column < 0 || column >= columns || row < 0 || row >= rows)
        return false;
    const int bit = row * columns + column;
    return (bits[bit / 32] >> (bit % 32)) & 1u;
}

void TavrelAdapterV1Parameters::SetCell(int column, int row, bool value) {
    const long bit = static_cast<long>(row) * columns + column;
    // Only the words themselves are guarded; within them any bit may be set.
    if (bit < 0 || bit >= int_count * 32)
        return;
    const uint32_t mask = 1u << (bit % 32);
    if (value)
        bits[bit / 32] |= mask;
    else
        bits[bit / 32] &= ~mask;
}

void TavrelAdapterV1Parameters::SetAll(bool value) {
    for (uint32_t& word : bits)
        word = 0;
    if (!value)
        return;
    for (int i = 0; i < bit_count / 32; ++i)
        bits[i] = ~0u;
    // The bits behind the last cell stay clear.
    bits[bit_count / 32] = (1u << (bit_count % 32)) - 1u;
}

int TavrelAdapterV1Parameters::CountCells() const {
    int count = 0;
    for (uint32_t word : bits)
        count += std::popcount(word);
    return count;
}

bool TavrelAdapterV1Parameters::GetBounds(Position& low, Position& high) const {
    low = Position(Length(0.0f), Length(0.0f), Length(0.0f));
    high = Position(Length(columns * cellSize), Length(rows * cellSize), Length(0.0f));
    return true;
}

std::unique_ptr<ScannerState> TavrelAdapterV1Parameters::NewState() const {
    return std::make_unique<TavrelAdapterV1State>(*this);
}

TavrelAdapterV1State::TavrelAdapterV1State(const TavrelAdapterV1Parameters& parameters)
    : parameters(parameters), totalPoints(parameters.CountCells() * (parameters.IsInterleaved() ? 2 : 1)) {}

const std::string& TavrelAdapterV1State::GetSerialType() const {
    static const std::string name = "TV1SS";
    return name;
}

bool TavrelAdapterV1State::GetProgress(float& progress) const {
    // An empty grid has nothing left to do rather than 0/0.
    progress = totalPoints > 0 ? static_cast<float>(pointsDone) / static_cast<float>(totalPoints) : 0.0f;
    return true;
}

void TavrelAdapterV1State::Reset() {
    row = 0;
    secondPass = 0;
    column = -1;
    pointsDone = 0;
}

static SerializableTypes registerTavrelAdapterV1Parameters(std::make_unique<TavrelAdapterV1Parameters>());
static SerializableTypes registerTavrelAdapterV1State(std::make_unique<TavrelAdapterV1State>());

} // namespace nrq
