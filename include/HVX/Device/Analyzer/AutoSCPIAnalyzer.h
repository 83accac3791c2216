#pragma once

#include "HVX/Device/Analyzer.h"
#include "HVX/ESC/SCPI/State.h"
#include "HVX/ESC/Store.h"
#include "HVX/Visa/VisaConnection.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// The user's choices for one run on an SCPI analyzer: which instrument, and a
// value per setting. The range lives in the map under "Frequency Start" and
// "Frequency Stop"; the base's range fields are not used.
class AutoSCPIAnalyzerParameters : public AnalyzerParameters {
public:
    AutoSCPIAnalyzerParameters* Clone() const override { return new AutoSCPIAnalyzerParameters(*this); }
    const std::string& GetSerialType() const override;
    // The base fields are not written.
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using AnalyzerParameters::DeserializeBinary;

    void SetMinFrequency(Frequency f) override;
    void SetMaxFrequency(Frequency f) override;
    // 0 Hz unless the map holds a Frequency.
    Frequency GetMinFrequency() const override;
    // 1 GHz unless the map holds a Frequency.
    Frequency GetMaxFrequency() const override;

    std::string manufacturer;
    std::string serial;
    SCPIVariableMap variableMap;
};

// Any SCPI spectrum analyzer reached through VISA whose feature set is in the store.
class AutoSCPIAnalyzer : public Analyzer {
public:
    explicit AutoSCPIAnalyzer(std::string_view resource);
    ~AutoSCPIAnalyzer() override;

    // False also when the instrument has no stored feature set.
    bool Connect() override;
    void Disconnect() override;
    bool IsConnected() override;
    bool Ping() override;

    void InitAnalyzer() override;
    void ResetAnalyzer() override;
    FrequencyStartStop GetFrequencyRange() const override;
    std::vector<DecibelMilliwatts> GetMeasurement() override;
    void SetAnalyzerParameters(const AnalyzerParameters* parameters) override;

    // Owned by the caller; null when the store has no set for this instrument.
    AutoSCPIAnalyzerParameters* GenerateParams() const;

    const SCPISpecAnState& GetState() const { return state; }
    const std::shared_ptr<ESCMapStoreEntry>& GetEntry() const { return entry; }

protected:
    void QueryInfo() override;

private:
    VisaConnection connection;
    std::shared_ptr<ESCMapStoreEntry> entry;
    SCPISpecAnState state;
};

} // namespace nrq
