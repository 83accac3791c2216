#pragma once

#include "HVX/Device/Analyzer.h"

#include <chrono>
#include <cstdint>
#include <random>

namespace nrq {

class NullAnalyzerParameters : public AnalyzerParameters {
public:
    NullAnalyzerParameters* Clone() const override { return new NullAnalyzerParameters(*this); }
    const std::string& GetSerialType() const override;
    // Only its own field is written; the base fields are not.
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using AnalyzerParameters::DeserializeBinary;

    uint64_t GetExtra() const { return extra; }
    void SetExtra(uint64_t value) { extra = value; }

private:
    uint64_t extra = 0;
};

// Simulates an analyzer: 600 points of noise around -80 dBm, always 100 to 200 MHz.
class NullAnalyzer : public Analyzer {
public:
    explicit NullAnalyzer(int32_t id);

    bool Connect() override { return true; }
    void Disconnect() override {}
    bool IsConnected() override { return true; }

    FrequencyStartStop GetFrequencyRange() const override;
    std::vector<DecibelMilliwatts> GetMeasurement() override;
    void SetAnalyzerParameters(const AnalyzerParameters* parameters) override;

    // How long a simulated sweep takes; half a second unless set.
    void SetSweepDuration(std::chrono::nanoseconds duration) { sweepDuration = duration; }
    std::chrono::nanoseconds GetSweepDuration() const { return sweepDuration; }
    const NullAnalyzerParameters& GetParameters() const { return parameters; }

    static constexpr size_t pointsPerSweep = 600;

protected:
    void QueryInfo() override;

private:
    int32_t id;
    NullAnalyzerParameters parameters;
    std::normal_distribution<float> noise{-80.0f, 15.0f};
    std::minstd_rand generator;
    std::chrono::nanoseconds sweepDuration = std::chrono::milliseconds(500);
};

} // namespace nrq
