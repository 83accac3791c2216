#pragma once

#include "HVX/App/Data/ScanData.h"

#include <atomic>
#include <limits>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// One entry per scan position, each sweep reduced to its strongest point.
// Entries are written in order of arrival at the write index, so a repeating
// scan writes over the entries of its last pass.
class SpatialScanData : public IScanData {
public:
    SpatialScanData() = default;
    // Both take the shared lock of the source; the copy has a lock of its own.
    SpatialScanData(const SpatialScanData& other);
    SpatialScanData& operator=(const SpatialScanData& other);
    ~SpatialScanData() override = default;

    SpatialScanData* Clone() const override { return new SpatialScanData(*this); }
    const std::string& GetSerialType() const override;
    std::string SerializeBinary() const override;
    // The write index is not part of the body and stays as it was.
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using IScanData::DeserializeBinary;

    // A write past the last entry appends, and Combine counts as Overwrite there.
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) override;
    using IScanData::AddMeasurement;
    // Adds the correction at each entry's frequencies and position. Applying
    // twice adds twice.
    bool ApplyCompensation(const Compensation& compensation) override;
    // Entries beyond the next pass's end stay in place.
    void ResetWriteIndex() override { writeIndex = 0; }
    // Without a lock: for moments when no scan writes.
    bool IsEmpty() const override { return measurements.empty(); }
    std::string SerializeToCSV() const override;

    int GetWriteIndex() const { return writeIndex; }
    // Corrects entries `first` to `first + count - 1`, so that a running scan
    // can correct only its new entries; places outside the entries are left
    // out. Like ApplyCompensation, IsEmpty and ResetWriteIndex it takes no
    // lock: for moments when no scan writes.
    void PartialApplyCompensation(const Compensation& compensation, int first, int count);

    // Readers of the entries hold the shared lock of GetMutex().
    std::shared_mutex& GetMutex() const { return mutex; }
    const std::vector<SpatialScanMeasurement>& GetMeasurements() const { return measurements; }

protected:
    void AdjustBounds(Vector<Length, 3> position);

private:
    SpatialScanData(const SpatialScanData& other, const std::shared_lock<std::shared_mutex>& sourceLock);

    std::vector<SpatialScanMeasurement> measurements;
    mutable std::shared_mutex mutex;
    Vector<Length, 3> boundsMin{Length(std::numeric_limits<float>::max()), Length(std::numeric_limits<float>::max()),
                                Length(std::numeric_limits<float>::max())};
    // The smallest positive float, not the most negative one.
    Vector<Length, 3> boundsMax{Length(std::numeric_limits<float>::min()), Length(std::numeric_limits<float>::min()),
                                Length(std::numeric_limits<float>::min())};
    // Atomic because ResetWriteIndex and GetWriteIndex take no lock.
    std::atomic<int32_t> writeIndex = 0;
};

} // namespace nrq
