#include "HVX/App/Data/SpatialScanData.h"

#include "HVX/App/Data/Compensation.h"
#include "HVX/App/Data/ScanEntries.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <mutex>
#include <sstream>

namespace nrq {
namespace {

constexpr size_t entrySize = 8 + 3 * 4 + 8 + 4;

} // namespace

SpatialScanData::SpatialScanData(const SpatialScanData& other) : SpatialScanData(other, std::shared_lock(other.mutex)) {}

// The delegating constructor above keeps the source locked for the whole copy,
// the IScanData part included.
SpatialScanData::SpatialScanData(const SpatialScanData& other, const std::shared_lock<std::shared_mutex>&)
    : IScanData(other), measurements(other.measurements), boundsMin(other.boundsMin), boundsMax(other.boundsMax),
      writeIndex(other.writeIndex.load()) {}

SpatialScanData& SpatialScanData::operator=(const SpatialScanData& other) {
    if (this == &other)
        return *this;
    std::unique_lock mine(mutex, std::defer_lock);
    std::shared_lock theirs(other.mutex, std::defer_lock);
    std::lock(mine, theirs);
    IScanData::operator=(other);
    measurements = other.measurements;
    boundsMin = other.boundsMin;
    boundsMax = other.boundsMax;
    writeIndex = other.writeIndex.load();
    return *this;
}

const std::string& SpatialScanData::GetSerialType() const {
    static const std::string name = "SpatialSD";
    return name;
}

void SpatialScanData::AdjustBounds(Vector<Length, 3> position) {
    detail::AdjustBoundsTo(boundsMin, boundsMax, position);
}

void SpatialScanData::AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) {
    std::unique_lock lock(mutex);
    AdjustBounds(measurement.position);

    const std::vector<DecibelMilliwatts>& values = measurement.values;
    size_t place = 0;
    for (size_t i = 1; i < values.size(); ++i)
        if (values[i] > values[place])
            place = i;
    // No driver delivers an empty sweep; should one come, it counts as the
    // weakest possible point rather than a read past the vector.
    const DecibelMilliwatts peak =
        values.empty() ? DecibelMilliwatts(std::numeric_limits<float>::lowest()) : values[place];

    const int32_t index = writeIndex;
    SpatialScanMeasurement* target;
    if (index >= 0 && static_cast<size_t>(index) < measurements.size()) {
        target = &measurements[static_cast<size_t>(index)];
    } else {
        target = &measurements.emplace_back();
        behavior = RepeatingBehavior::Overwrite;
    }

    // With Combine the frequency is taken even when the old amplitude stays,
    // so the two may come from different passes; saved files have it so.
    target->frequency = Frequency(static_cast<double>(place) * measurement.stepFrequency.Hz() +
                                  measurement.startFrequency.Hz());
    if (behavior == RepeatingBehavior::Combine)
        target->amplitude = peak > target->amplitude ? peak : target->amplitude;
    else
        target->amplitude = peak;
    target->position = measurement.position;
    target->time = measurement.time;

    lastModified = std::chrono::steady_clock::now();
    writeIndex = detail::NextWriteIndex(index);
}

void SpatialScanData::PartialApplyCompensation(const Compensation& compensation, int first, int count) {
    const auto [begin, end] = detail::EntryRange(measurements.size(), first, count);
    for (size_t e = begin; e < end; ++e) {
        SpatialScanMeasurement& entry = measurements[e];
        entry.amplitude = DecibelMilliwatts(entry.amplitude.dBm() + compensation.GetValue(entry.frequency, entry.position));
    }
}

bool SpatialScanData::ApplyCompensation(const Compensation& compensation) {
    PartialApplyCompensation(compensation, 0, static_cast<int>(measurements.size()));
    return true;
}

std::string SpatialScanData::SerializeToCSV() const {
    std::shared_lock lock(mutex);
    std::ostringstream out;
    out << "Frequency (MHz),Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n";
    // Times count from the first entry.
    const int64_t origin = measurements.empty() ? 0 : detail::SteadyTicks(measurements.front().time);
    for (const SpatialScanMeasurement& entry : measurements) {
        const int64_t milliseconds = detail::MillisecondsSince(origin, entry.time);
        out << entry.frequency.Hz() * 1e-6 << ',' << entry.amplitude.dBm() << ',' << entry.position.x().mm() << ','
            << entry.position.y().mm() << ',' << entry.position.z().mm() << ',' << milliseconds << '\n';
    }
    return std::move(out).str();
}

std::string SpatialScanData::SerializeBinary() const {
    std::shared_lock lock(mutex);
    std::string out;
    out.reserve(1 + 8 + sizeof(ScanDataInfo) + 2 * sizeof(Position) + 4 + measurements.size() * entrySize);
    AppendHeader(out);
    AppendRaw(out, boundsMin);
    AppendRaw(out, boundsMax);
    AppendRaw(out, static_cast<uint32_t>(measurements.size()));
    for (const SpatialScanMeasurement& entry : measurements) {
        AppendRaw(out, entry.frequency.Hz());
        AppendRaw(out, entry.position);
        AppendRaw(out, detail::SteadyTicks(entry.time));
        AppendRaw(out, entry.amplitude.dBm());
    }
    return out;
}

void SpatialScanData::DeserializeBinary(std::string_view& data, const SerializeInfo& serializeInfo) {
    std::unique_lock lock(mutex);
    BinaryCursor cursor(data);
    const auto readState = static_cast<State>(cursor.Read<uint8_t>());
    const auto ticks = cursor.Read<int64_t>();
    if (serializeInfo.version >= firstVersionWithInfo) {
        creationTime = CreationTime(CreationDuration(ticks));
        lastModified = std::chrono::steady_clock::now();
        cursor.ReadInto(info);
    } else {
        // Older files kept the modification time here; the creation time
        // stays the one of this object's construction.
        lastModified = detail::SteadyFromTicks(ticks);
        info = ScanDataInfo{};
    }
    state = readState;
    cursor.ReadInto(boundsMin);
    cursor.ReadInto(boundsMax);
    const auto n = cursor.Read<uint32_t>();

    // All entries are taken at once, so a damaged count raises before anything is allocated.
    std::string_view entries = cursor.Take(size_t{n} * entrySize);
    BinaryCursor entryCursor(entries);
    std::vector<SpatialScanMeasurement> read(n);
    for (SpatialScanMeasurement& entry : read) {
        entry.frequency = Frequency(entryCursor.Read<double>());
        entryCursor.ReadInto(entry.position);
        entry.time = detail::SteadyFromTicks(entryCursor.Read<int64_t>());
        entry.amplitude = DecibelMilliwatts(entryCursor.Read<float>());
    }
    measurements = std::move(read);
}

static SerializableTypes registerSpatialScanData(std::make_unique<SpatialScanData>());

} // namespace nrq
