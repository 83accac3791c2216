#pragma once

#include "HVX/Device/Scanner/TavrelAdapterV1.h"

namespace nrq {

// The network board's cells: the grid of the USB board, and a level by which
// each cell is visited at 2^(level-1) by 2^(level-1) sub-positions.
class TavrelAdapterV2Parameters : public TavrelAdapterV1Parameters {
public:
    TavrelAdapterV2Parameters* Clone() const override { return new TavrelAdapterV2Parameters(*this); }
    const std::string& GetSerialType() const override;
    // The grid's 153 bytes, then the level: 157 bytes.
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using TavrelAdapterV1Parameters::DeserializeBinary;

    int GetLevel() const { return level; }
    void SetLevel(int value) { level = value; }
    // The distance of two sub-positions: 7.5 mm / 2^(level-1).
    Length GetResolution() const;
    // Sub-positions along each side of a cell, 2^(level-1). A level outside
    // 1 to 15, as a damaged file may hold, counts as the nearest of the two.
    int GetSubdivisions() const;

    std::unique_ptr<ScannerState> NewState() const override;

    static constexpr int maxLevel = 15;

private:
    int level = 1;
};

// Where a scan of the network board stands. Not saved: its binary form is empty.
class TavrelAdapterV2State : public ScannerState {
public:
    TavrelAdapterV2State() = default;
    explicit TavrelAdapterV2State(const TavrelAdapterV2Parameters& parameters);

    TavrelAdapterV2State* Clone() const override { return new TavrelAdapterV2State(*this); }
    const std::string& GetSerialType() const override;

    // Points done over total points. The board's stepping leaves points done
    // alone, so this stays at 0.
    bool GetProgress(float& progress) const override;
    // Keeps the counters: this board's pass does not start over.
    void Reset() override {}

    const TavrelAdapterV2Parameters& GetParameters() const { return parameters; }
    int GetTotalPoints() const { return totalPoints; }

    int row = 0;
    int column = -1; // the first step lands on column 0
    int subIndex = 0;
    bool secondPass = false;
    int pointsDone = 0;

private:
    TavrelAdapterV2Parameters parameters;
    int totalPoints = 0;
};

} // namespace nrq
