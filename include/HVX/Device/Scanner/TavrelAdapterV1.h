#pragma once

#include "HVX/Device/Scanner.h"

#include <cstdint>
#include <memory>
#include <string>

namespace nrq {

// Which cells of the Tavrel board's 42 by 29 grid of 7.5 mm probe cells are to
// be scanned. The bit of a cell is row * 42 + column, from bit 0 of the first word.
class TavrelAdapterV1Parameters : public ScannerParameters {
public:
    static constexpr int bit_count = 1218;
    static constexpr int byte_count = 153;
    static constexpr int int_count = 39;
    static constexpr int columns = 42;
    static constexpr int rows = 29;
    static constexpr float cellSize = 0.0075f; // metres

    TavrelAdapterV1Parameters* Clone() const override { return new TavrelAdapterV1Parameters(*this); }
    const std::string& GetSerialType() const override;
    // The 153 bytes of the grid; the interleaved flag is not part of it.
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using ScannerParameters::DeserializeBinary;

    // False outside the grid.
    bool GetCell(int column, int row) const;
    // Coordinates are not tested against the grid: a column past the edge
    // lands in the next row.
    void SetCell(int column, int row, bool value);
    void SetAll(bool value);
    int CountCells() const;
    bool IsInterleaved() const { return interleaved; }
    void SetInterleaved(bool value) { interleaved = value; }

    // The whole board, whatever the bits say.
    bool GetBounds(Position& low, Position& high) const override;
    std::unique_ptr<ScannerState> NewState() const override;

    const uint32_t* GetBits() const { return bits; }

protected:
    uint32_t bits[int_count] = {};
    bool interleaved = false;
};

// Where a scan of the USB board stands. Not saved: its binary form is empty.
class TavrelAdapterV1State : public ScannerState {
public:
    TavrelAdapterV1State() = default;
    explicit TavrelAdapterV1State(const TavrelAdapterV1Parameters& parameters);

    TavrelAdapterV1State* Clone() const override { return new TavrelAdapterV1State(*this); }
    const std::string& GetSerialType() const override;

    // Points done over total points.
    bool GetProgress(float& progress) const override;
    void Reset() override;

    const TavrelAdapterV1Parameters& GetParameters() const { return parameters; }
    int GetTotalPoints() const { return totalPoints; }

    int row = 0;
    int column = -1; // the first step lands on column 0
    int secondPass = 0;
    int pointsDone = 0;

private:
    TavrelAdapterV1Parameters parameters;
    int totalPoints = 0;
};

} // namespace nrq
