#pragma once

#include "HVX/App/Data/ScanData.h"

#include <atomic>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// One whole sweep per scan position. Entries are written in order of arrival
// at the write index, so a repeating scan writes over the entries of its last
// pass. CSV shows only each sweep's strongest point; the binary body keeps all.
class CombinedScanData : public IScanData {
public:
    CombinedScanData() = default;
    // Both take the shared lock of the source; the copy has a lock of its own.
    CombinedScanData(const CombinedScanData& other);
    CombinedScanData& operator=(const CombinedScanData& other);
    ~CombinedScanData() override = default;

    CombinedScanData* Clone() const override { return new CombinedScanData(*this); }
    const std::string& GetSerialType() const override;
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using IScanData::DeserializeBinary;

    // The bounds move before the lock is taken, so readers may see them
    // include a position whose entry is not there yet. This form moves the
    // sweep's values into place.
    void AddMeasurement(FullScanMeasurement&& measurement, RepeatingBehavior behavior) override;
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) override;
    // Overwrite only: Combine raises std::runtime_error after the bounds have
    // moved. The write index goes up by one however many are added, so callers
    // of this form set the index themselves.
    void AddMeasurements(const FullScanMeasurement* first, size_t count, RepeatingBehavior behavior) override;
    // Adds the correction at each entry's frequencies and position. Applying
    // twice adds twice.
    bool ApplyCompensation(const Compensation& compensation) override;
    // Entries beyond the next pass's end stay in place.
    void ResetWriteIndex() override { writeIndex = 0; }
    bool IsEmpty() const override { return measurements.empty(); }
    std::string SerializeToCSV() const override;

    int GetWriteIndex() const { return writeIndex; }
    // Corrects entries `first` to `first + count - 1`, so that a running scan
    // can correct only its new entries; places outside the entries are left
    // out. Like ApplyCompensation, IsEmpty and ResetWriteIndex it takes no
    // lock: for moments when no scan writes.
    void PartialApplyCompensation(const Compensation& compensation, int first, int count);
    // False, with both arguments untouched, while there are no entries. Like
    // IsEmpty it doesn't take the data lock: for moments when no scan writes.
    bool GetBounds(Vector<Length, 3>& min, Vector<Length, 3>& max) const;

    // Readers of the entries hold the shared lock of GetMutex().
    std::shared_mutex& GetMutex() const { return mutex; }
    const std::vector<FullScanMeasurement>& GetMeasurements() const { return measurements; }

protected:
    void AdjustBounds(Vector<Length, 3> position);

private:
    CombinedScanData(const CombinedScanData& other, const std::shared_lock<std::shared_mutex>& sourceLock);
    template <class Measurement>
    void Add(Measurement&& measurement, RepeatingBehavior behavior);

    std::vector<FullScanMeasurement> measurements;
    mutable std::shared_mutex mutex;
    Vector<Length, 3> boundsMin{Length(std::numeric_limits<float>::max()), Length(std::numeric_limits<float>::max()),
                                Length(std::numeric_limits<float>::max())};
    // The smallest positive float, not the most negative one.
    Vector<Length, 3> boundsMax{Length(std::numeric_limits<float>::min()), Length(std::numeric_limits<float>::min()),
                                Length(std::numeric_limits<float>::min())};
    // Atomic because ResetWriteIndex and GetWriteIndex take no lock.
    std::atomic<int32_t> writeIndex = 0;
    // The bounds move outside the data lock, so they have a small lock of their own.
    mutable std::mutex boundsMutex;
};

} // namespace nrq
