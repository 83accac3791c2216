#pragma once

#include "HVX/Device/Scanner.h"

#include <cstdint>
#include <memory>
#include <random>

namespace nrq {

class TavrelAdapterV1State;
class TavrelAdapterV2State;

class NullScannerParameters : public ScannerParameters {
public:
    NullScannerParameters* Clone() const override { return new NullScannerParameters(*this); }
    const std::string& GetSerialType() const override;
    std::unique_ptr<ScannerState> NewState() const override;
};

// A plain simulated pass: 999 random points on a board of 315 by 217.5 mm.
class NullScannerState : public ScannerState {
public:
    NullScannerState* Clone() const override { return new NullScannerState(*this); }
    const std::string& GetSerialType() const override;

    static constexpr int32_t pointsPerPass = 999;

    int32_t counter = 0;
    std::mt19937 generator;
    std::uniform_real_distribution<float> distribution{0.0f, 1.0f};
};

// Simulates a positioner. Its moves follow the dynamic type of its state, so it
// can imitate the other scanners of the system over their own states.
class NullScanner : public Scanner {
public:
    explicit NullScanner(int32_t id);

    bool Connect() override { return true; }
    void Disconnect() override {}
    bool IsConnected() override { return true; }

    ScanStatus NextScanPosition() override;
    Position GetScanPosition() const override { return position; }
    const ScannerState* GetState() const override { return state.get(); }
    ScannerState* GetState() override { return state.get(); }
    void SetState(const ScannerState* newState) override;

protected:
    void QueryInfo() override;

private:
    ScanStatus StepRandom(NullScannerState& random);
    ScanStatus StepTavrelV2(TavrelAdapterV2State& board);
    ScanStatus StepTavrelV1(TavrelAdapterV1State& board);

    int32_t id;
    std::unique_ptr<ScannerState> state;
    Position position;
};

} // namespace nrq
