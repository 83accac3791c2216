#pragma once

#include "HVX/App/Data/ScanData.h"

#include <atomic>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// One spectrum that keeps, for each frequency, the maximum over all positions.
class SpectralScanData : public IScanData {
public:
    SpectralScanData() = default;
    // Both take the shared lock of the source; the copy has a lock of its own.
    SpectralScanData(const SpectralScanData& other);
    SpectralScanData& operator=(const SpectralScanData& other);
    ~SpectralScanData() override = default;

    SpectralScanData* Clone() const override { return new SpectralScanData(*this); }
    const std::string& GetSerialType() const override;
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using IScanData::DeserializeBinary;

    // Raises Error when the sweep's start, step or count differ from the
    // spectrum's, unless the spectrum is empty or a restart is pending with
    // Overwrite, in which case it takes the sweep's shape first.
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) override;
    using IScanData::AddMeasurement;
    // Adds the correction at each frequency, at the zero position. Takes no
    // lock, like IsEmpty and ResetWriteIndex: for moments when no scan writes.
    bool ApplyCompensation(const Compensation& compensation) override;
    // Only marks a restart: the next Overwrite starts a new spectrum.
    void ResetWriteIndex() override { restartPending = true; }
    bool IsEmpty() const override { return values.empty(); }
    std::string SerializeToCSV() const override;

    // Readers of the spectrum hold the shared lock of GetMutex() while they
    // use the getters below; writers hold it exclusively.
    std::shared_mutex& GetMutex() const { return mutex; }
    Frequency GetStartFrequency() const { return startFrequency; }
    Frequency GetStepFrequency() const { return stepFrequency; }
    uint64_t GetCount() const { return count; }
    const std::vector<DecibelMilliwatts>& GetValues() const { return values; }
    bool IsRestartPending() const { return restartPending; }

private:
    SpectralScanData(const SpectralScanData& other, const std::shared_lock<std::shared_mutex>& sourceLock);

    Frequency startFrequency;
    Frequency stepFrequency;
    uint64_t count = 0;
    std::vector<DecibelMilliwatts> values;
    mutable std::shared_mutex mutex;
    // Atomic because ResetWriteIndex sets it without the lock.
    std::atomic<bool> restartPending = false;
};

} // namespace nrq
