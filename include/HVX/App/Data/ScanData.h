#pragma once

#include "HVX/Base/Quantities.h"
#include "HVX/Base/Serialize.h"
#include "HVX/Base/UserData.h"
#include "HVX/Base/Vector.h"
#include "HVX/Device/Device.h"
#include "HVX/Device/Scanner.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nrq {

class Compensation;

// The common head of a measurement.
struct ScanMeasurement {
    Position position;
    std::chrono::steady_clock::time_point time{};
};

// One whole sweep at one position.
struct FullScanMeasurement : ScanMeasurement {
    Frequency startFrequency;
    Frequency stepFrequency;
    uint64_t count = 0;
    std::vector<DecibelMilliwatts> values;
    uint64_t minIndex = 0;
    uint64_t maxIndex = 0;

    // Fills both indices; ties go to the first place.
    void CalculateMaxIndex();
};

// The reduced form kept by spatial data: where the maximum lay, and how high.
struct SpatialScanMeasurement : ScanMeasurement {
    Frequency frequency;
    DecibelMilliwatts amplitude;
};

struct ScanDataDeviceInfo {
    char manufacturer[32];
    char model[32];
    char serial[32];
};

// Filled by the application and kept as raw bytes; the library never looks inside.
struct ScanDataInfo {
    uint8_t header[16];
    ScanDataDeviceInfo devices[2];
};
static_assert(sizeof(ScanDataDeviceInfo) == 96);
static_assert(sizeof(ScanDataInfo) == 208);

// Bounded copies: a text of 32 bytes or more has no terminator.
void FillScanDataDeviceInfo(ScanDataDeviceInfo& target, const DeviceInformation& source);

enum class RepeatingBehavior : int32_t {
    Overwrite = 0, // a second pass replaces what the first one wrote
    Combine = 1,   // a second pass keeps the larger amplitude of both
};

class IScanData : public ISerializable, public UserDataContainer {
public:
    enum class State : int32_t {
        Empty = 0,    // stopped before any data came, or none ran
        Scanning = 1, // a scan writes into it
        Complete = 2, // a scan ended, or was stopped with data in hand
    };

    // 100-nanosecond ticks from 1970.
    using CreationClock = std::chrono::system_clock;
    using CreationDuration = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
    using CreationTime = std::chrono::time_point<CreationClock, CreationDuration>;
    using SteadyTime = std::chrono::steady_clock::time_point;

    IScanData();
    // A copy takes state and times only: user data starts null and info zeroed.
    IScanData(const IScanData& other);
    // Keeps the target's user data and info.
    IScanData& operator=(const IScanData& other);
    ~IScanData() override = default;

    IScanData* Clone() const override = 0;

    virtual void AddMeasurement(FullScanMeasurement&& measurement, RepeatingBehavior behavior) {
        AddMeasurement(static_cast<const FullScanMeasurement&>(measurement), behavior);
    }
    virtual void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) {
        (void)measurement;
        (void)behavior;
    }
    virtual void AddMeasurements(const FullScanMeasurement* first, size_t count, RepeatingBehavior behavior) {
        for (size_t i = 0; i < count; ++i)
            AddMeasurement(first[i], behavior);
    }
    virtual bool ApplyCompensation(const Compensation& compensation) {
        (void)compensation;
        return false;
    }
    virtual void ResetWriteIndex() {}
    virtual bool IsEmpty() const { return true; }
    virtual std::string SerializeToCSV() const { return {}; }

    ScanDataInfo& GetInfo() { return info; }
    const ScanDataInfo& GetInfo() const { return info; }
    State GetState() const { return state; }
    // Touches lastModified only when the state changes.
    void SetState(State newState);
    CreationTime GetCreationTime() const { return creationTime; }
    void SetCreationTime(CreationTime time) { creationTime = time; }
    SteadyTime GetLastModified() const { return lastModified; }
    void SetLastModified(SteadyTime time) { lastModified = time; }

protected:
    // The head of every binary body: state (one byte), creation ticks, and from
    // format version 5 on the info block.
    void AppendHeader(std::string& out) const;
    void ReadHeader(BinaryCursor& cursor, const SerializeInfo& serializeInfo);

    static constexpr int32_t firstVersionWithInfo = 5;

    State state = State::Empty;
    SteadyTime lastModified{};
    CreationTime creationTime{};
    ScanDataInfo info{};
};

// What a scan writes to when nothing is to be kept. It never counts as empty.
class BlankScanData : public IScanData {
public:
    BlankScanData() = default;
    BlankScanData* Clone() const override { return new BlankScanData(*this); }
    const std::string& GetSerialType() const override;
    std::string SerializeBinary() const override { return {}; }
    void DeserializeBinary(std::string_view&, const SerializeInfo&) override {}
    using IScanData::DeserializeBinary;
    void AddMeasurement(FullScanMeasurement&&, RepeatingBehavior) override {}
    void AddMeasurement(const FullScanMeasurement&, RepeatingBehavior) override {}
    void AddMeasurements(const FullScanMeasurement*, size_t, RepeatingBehavior) override {}
    bool ApplyCompensation(const Compensation&) override { return false; }
    void ResetWriteIndex() override {}
    bool IsEmpty() const override { return false; }
    std::string SerializeToCSV() const override { return {}; }
};

// Scan data of a type this library does not know, kept byte for byte.
class UnknownScanData : public UnknownDeserializedAs<IScanData> {
public:
    UnknownScanData* Clone() const override { return new UnknownScanData(*this); }
    const std::string& GetSerialType() const override;
};

} // namespace nrq
