#include "HVX/App/Data/SpectralScanData.h"

#include "HVX/App/Data/Compensation.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <sstream>

namespace nrq {

SpectralScanData::SpectralScanData(const SpectralScanData& other) : SpectralScanData(other, std::shared_lock(other.mutex)) {}

// The delegating constructor above keeps the source locked for the whole copy,
// the IScanData part included.
SpectralScanData::SpectralScanData(const SpectralScanData& other, const std::shared_lock<std::shared_mutex>&)
    : IScanData(other), startFrequency(other.startFrequency), stepFrequency(other.stepFrequency), count(other.count),
      values(other.values), restartPending(other.restartPending.load()) {}

SpectralScanData& SpectralScanData::operator=(const SpectralScanData& other) {
    if (this == &other)
        return *this;
    std::unique_lock mine(mutex, std::defer_lock);
    std::shared_lock theirs(other.mutex, std::defer_lock);
    std::lock(mine, theirs);
    IScanData::operator=(other);
    startFrequency = other.startFrequency;
    stepFrequency = other.stepFrequency;
    count = other.count;
    values = other.values;
    restartPending = other.restartPending.load();
    return *this;
}

const std::string& SpectralScanData::GetSerialType() const {
    static const std::string name = "SpectralSD";
    return name;
}

void SpectralScanData::AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) {
    std::unique_lock lock(mutex);
    if (IsEmpty() || (restartPending && behavior == RepeatingBehavior::Overwrite)) {
        startFrequency = measurement.startFrequency;
        stepFrequency = measurement.stepFrequency;
        count = measurement.count;
        // clear() keeps the capacity, so a pass of the same shape allocates nothing.
        values.clear();
        values.resize(count, DecibelMilliwatts(std::numeric_limits<float>::lowest()));
    }
    if (startFrequency != measurement.startFrequency || stepFrequency != measurement.stepFrequency ||
        count != measurement.count)
        throw Error("attempted to add a measurement to spectral data of a different size");

    // A sweep shorter than its count leaves the tail alone instead of reading past it.
    const size_t places = std::min<size_t>(count, measurement.values.size());
    DecibelMilliwatts* stored = values.data();
    const DecibelMilliwatts* incoming = measurement.values.data();
    // Stored back unconditionally, as plain floats, so that the loop vectorises;
    // on equal values or a NaN the stored value stays.
    for (size_t i = 0; i < places; ++i) {
        const float a = incoming[i].dBm();
        const float b = stored[i].dBm();
        stored[i] = DecibelMilliwatts(a > b ? a : b);
    }

    lastModified = std::chrono::steady_clock::now();
    restartPending = false;
}

bool SpectralScanData::ApplyCompensation(const Compensation& compensation) {
    const Position origin;
    for (size_t i = 0; i < values.size(); ++i) {
        const Frequency f(static_cast<double>(i) * stepFrequency.Hz() + startFrequency.Hz());
        values[i] = DecibelMilliwatts(values[i].dBm() + compensation.GetValue(f, origin));
    }
    return true;
}

std::string SpectralScanData::SerializeToCSV() const {
    std::shared_lock lock(mutex);
    std::ostringstream out;
    out << "Frequency (MHz),Amplitude (dBm)\n";
    for (size_t i = 0; i < values.size(); ++i) {
        const double frequency = (static_cast<double>(i) * stepFrequency.Hz() + startFrequency.Hz()) * 1e-6;
        out << frequency << ',' << values[i].dBm() << '\n';
    }
    return std::move(out).str();
}

std::string SpectralScanData::SerializeBinary() const {
    std::shared_lock lock(mutex);
    std::string out;
    out.reserve(1 + 8 + sizeof(ScanDataInfo) + 8 + 8 + 4 + 4 + values.size() * sizeof(float));
    AppendHeader(out);
    AppendRaw(out, startFrequency.Hz());
    AppendRaw(out, stepFrequency.Hz());
    AppendRaw(out, static_cast<uint32_t>(count));
    AppendRaw(out, static_cast<uint32_t>(values.size()));
    out.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(DecibelMilliwatts));
    return out;
}

void SpectralScanData::DeserializeBinary(std::string_view& data, const SerializeInfo& info) {
    std::unique_lock lock(mutex);
    BinaryCursor cursor(data);
    ReadHeader(cursor, info);
    lastModified = std::chrono::steady_clock::now();
    startFrequency = Frequency(cursor.Read<double>());
    stepFrequency = Frequency(cursor.Read<double>());
    count = cursor.Read<uint32_t>();
    const auto n = cursor.Read<uint32_t>();
    // Taken before the resize, so a damaged length raises instead of allocating.
    const std::string_view bytes = cursor.Take(size_t{n} * sizeof(DecibelMilliwatts));
    values.resize(n);
    if (n != 0)
        std::memcpy(values.data(), bytes.data(), bytes.size());
}

static SerializableTypes registerSpectralScanData(std::make_unique<SpectralScanData>());

} // namespace nrq
