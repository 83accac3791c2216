#include "HVX/App/Data/CombinedScanData.h"

#include "HVX/App/Data/Compensation.h"
#include "HVX/App/Data/ScanEntries.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace nrq {
namespace {

// start, step, count, x, y, z, time, number of values.
constexpr size_t entryHeadSize = 8 + 8 + 4 + 3 * 4 + 8 + 4;

} // namespace

CombinedScanData::CombinedScanData(const CombinedScanData& other)
    : CombinedScanData(other, std::shared_lock(other.mutex)) {}

// The delegating constructor above keeps the source locked for the whole copy,
// the IScanData part included.
CombinedScanData::CombinedScanData(const CombinedScanData& other, const std::shared_lock<std::shared_mutex>&)
    : IScanData(other), measurements(other.measurements), writeIndex(other.writeIndex.load()) {
    std::lock_guard bounds(other.boundsMutex);
    boundsMin = other.boundsMin;
    boundsMax = other.boundsMax;
}

CombinedScanData& CombinedScanData::operator=(const CombinedScanData& other) {
    if (this == &other)
        return *this;
    std::unique_lock mine(mutex, std::defer_lock);
    std::shared_lock theirs(other.mutex, std::defer_lock);
    std::lock(mine, theirs);
    IScanData::operator=(other);
    measurements = other.measurements;
    writeIndex = other.writeIndex.load();
    std::scoped_lock bounds(boundsMutex, other.boundsMutex);
    boundsMin = other.boundsMin;
    boundsMax = other.boundsMax;
    return *this;
}

const std::string& CombinedScanData::GetSerialType() const {
    static const std::string name = "CombinedSD";
    return name;
}

void CombinedScanData::AdjustBounds(Vector<Length, 3> position) {
    std::lock_guard bounds(boundsMutex);
    detail::AdjustBoundsTo(boundsMin, boundsMax, position);
}

bool CombinedScanData::GetBounds(Vector<Length, 3>& min, Vector<Length, 3>& max) const {
    if (measurements.empty())
        return false;
    std::lock_guard bounds(boundsMutex);
    min = boundsMin;
    max = boundsMax;
    return true;
}

template <class Measurement>
void CombinedScanData::Add(Measurement&& measurement, RepeatingBehavior behavior) {
    AdjustBounds(measurement.position);
    std::unique_lock lock(mutex);
    const int32_t index = writeIndex;
    if (index >= 0 && static_cast<size_t>(index) < measurements.size()) {
        FullScanMeasurement& entry = measurements[static_cast<size_t>(index)];
        if (behavior == RepeatingBehavior::Overwrite) {
            entry = std::forward<Measurement>(measurement);
        } else if (behavior == RepeatingBehavior::Combine) {
            entry.time = measurement.time;
            entry.position = measurement.position;
            // Frequencies and the min/max places stay those of the first pass.
            const size_t places = std::min(entry.values.size(), measurement.values.size());
            DecibelMilliwatts* stored = entry.values.data();
            const DecibelMilliwatts* incoming = measurement.values.data();
            for (size_t i = 0; i < places; ++i) {
                const float a = incoming[i].dBm();
                const float b = stored[i].dBm();
                stored[i] = DecibelMilliwatts(a > b ? a : b);
            }
        }
    } else {
        measurements.push_back(std::forward<Measurement>(measurement));
    }
    lastModified = std::chrono::steady_clock::now();
    writeIndex = detail::NextWriteIndex(index);
}

void CombinedScanData::AddMeasurement(FullScanMeasurement&& measurement, RepeatingBehavior behavior) {
    Add(std::move(measurement), behavior);
}

void CombinedScanData::AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) {
    Add(measurement, behavior);
}

void CombinedScanData::AddMeasurements(const FullScanMeasurement* first, size_t count, RepeatingBehavior behavior) {
    for (size_t i = 0; i < count; ++i)
        AdjustBounds(first[i].position);
    std::unique_lock lock(mutex);
    const int32_t index = writeIndex;
    if (behavior == RepeatingBehavior::Overwrite) {
        const size_t from = static_cast<size_t>(std::max(index, 0));
        if (from + count > measurements.size())
            measurements.resize(from + count);
        std::copy(first, first + count, measurements.begin() + static_cast<ptrdiff_t>(from));
    } else if (behavior == RepeatingBehavior::Combine) {
        throw std::runtime_error(
            "Using \"Combine\" behavior on CombinedScanData when adding multiple measurements is not implemented.");
    }
    lastModified = std::chrono::steady_clock::now();
    // One step, however many came: callers of the bulk form set the index themselves.
    writeIndex = detail::NextWriteIndex(index);
}

void CombinedScanData::PartialApplyCompensation(const Compensation& compensation, int first, int count) {
    const auto [begin, end] = detail::EntryRange(measurements.size(), first, count);
    for (size_t e = begin; e < end; ++e) {
        FullScanMeasurement& entry = measurements[e];
        for (size_t i = 0; i < entry.values.size(); ++i) {
            const Frequency f(static_cast<double>(i) * entry.stepFrequency.Hz() + entry.startFrequency.Hz());
            entry.values[i] = DecibelMilliwatts(entry.values[i].dBm() + compensation.GetValue(f, entry.position));
        }
    }
}

bool CombinedScanData::ApplyCompensation(const Compensation& compensation) {
    PartialApplyCompensation(compensation, 0, static_cast<int>(measurements.size()));
    return true;
}

std::string CombinedScanData::SerializeToCSV() const {
    std::shared_lock lock(mutex);
    std::ostringstream out;
    out << "Frequency (MHz),Max Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n";
    // Times count from the first entry.
    const int64_t origin = measurements.empty() ? 0 : detail::SteadyTicks(measurements.front().time);
    for (const FullScanMeasurement& entry : measurements) {
        const uint64_t k = entry.maxIndex;
        // An entry without its strongest point has no line to give.
        if (k >= entry.values.size())
            continue;
        const double frequency = (static_cast<double>(k) * entry.stepFrequency.Hz() + entry.startFrequency.Hz()) * 1e-6;
        const int64_t milliseconds = detail::MillisecondsSince(origin, entry.time);
        out << frequency << ',' << entry.values[k].dBm() << ',' << entry.position.x().mm() << ','
            << entry.position.y().mm() << ',' << entry.position.z().mm() << ',' << milliseconds << '\n';
    }
    return std::move(out).str();
}

std::string CombinedScanData::SerializeBinary() const {
    std::shared_lock lock(mutex);
    size_t size = 1 + 8 + sizeof(ScanDataInfo) + 2 * sizeof(Position) + 4 + 4;
    for (const FullScanMeasurement& entry : measurements)
        size += entryHeadSize + entry.values.size() * sizeof(DecibelMilliwatts);
    std::string out;
    out.reserve(size);
    AppendHeader(out);
    {
        std::lock_guard bounds(boundsMutex);
        AppendRaw(out, boundsMin);
        AppendRaw(out, boundsMax);
    }
    AppendRaw(out, writeIndex.load());
    AppendRaw(out, static_cast<uint32_t>(measurements.size()));
    for (const FullScanMeasurement& entry : measurements) {
        AppendRaw(out, entry.startFrequency.Hz());
        AppendRaw(out, entry.stepFrequency.Hz());
        AppendRaw(out, static_cast<uint32_t>(entry.count));
        AppendRaw(out, entry.position);
        AppendRaw(out, detail::SteadyTicks(entry.time));
        AppendRaw(out, static_cast<uint32_t>(entry.values.size()));
        out.append(reinterpret_cast<const char*>(entry.values.data()), entry.values.size() * sizeof(DecibelMilliwatts));
    }
    return out;
}

void CombinedScanData::DeserializeBinary(std::string_view& data, const SerializeInfo& info) {
    std::unique_lock lock(mutex);
    BinaryCursor cursor(data);
    ReadHeader(cursor, info);
    lastModified = std::chrono::steady_clock::now();
    const auto readMin = cursor.Read<Position>();
    const auto readMax = cursor.Read<Position>();
    {
        std::lock_guard bounds(boundsMutex);
        boundsMin = readMin;
        boundsMax = readMax;
    }
    writeIndex = cursor.Read<int32_t>();
    const auto n = cursor.Read<uint32_t>();

    std::vector<FullScanMeasurement> read;
    // Each entry takes at least its head, which bounds what a damaged count can reserve.
    read.reserve(std::min<size_t>(n, cursor.Remaining() / entryHeadSize));
    for (uint32_t e = 0; e < n; ++e) {
        FullScanMeasurement& entry = read.emplace_back();
        entry.startFrequency = Frequency(cursor.Read<double>());
        entry.stepFrequency = Frequency(cursor.Read<double>());
        entry.count = cursor.Read<uint32_t>();
        cursor.ReadInto(entry.position);
        entry.time = detail::SteadyFromTicks(cursor.Read<int64_t>());
        const auto v = cursor.Read<uint32_t>();
        const std::string_view bytes = cursor.Take(size_t{v} * sizeof(DecibelMilliwatts));
        entry.values.resize(v);
        if (v != 0)
            std::memcpy(entry.values.data(), bytes.data(), bytes.size());
        entry.CalculateMaxIndex();
    }
    measurements = std::move(read);
}

static SerializableTypes registerCombinedScanData(std::make_unique<CombinedScanData>());

} // namespace nrq
