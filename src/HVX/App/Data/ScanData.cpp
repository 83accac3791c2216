#include "HVX/App/Data/ScanData.h"

#include <algorithm>
#include <cstring>

namespace nrq {

void FullScanMeasurement::CalculateMaxIndex() {
    minIndex = 0;
    maxIndex = 0;
    for (size_t i = 1; i < values.size(); ++i) {
        if (values[i] < values[minIndex])
            minIndex = i;
        if (values[i] > values[maxIndex])
            maxIndex = i;
    }
}

namespace {

// strncpy's semantics: stops at the first NUL, zero-fills the rest, and leaves
// no terminator when the text fills the field.
template <size_t N>
void BoundedCopy(char (&target)[N], const std::string& source) {
    const size_t length = ::strnlen(source.c_str(), N);
    std::memcpy(target, source.data(), length);
    std::memset(target + length, 0, N - length);
}

} // namespace

void FillScanDataDeviceInfo(ScanDataDeviceInfo& target, const DeviceInformation& source) {
    BoundedCopy(target.manufacturer, source.manufacturer);
    BoundedCopy(target.model, source.model);
    BoundedCopy(target.serial, source.serial);
}

IScanData::IScanData()
    : creationTime(std::chrono::time_point_cast<CreationDuration>(CreationClock::now())) {}

IScanData::IScanData(const IScanData& other)
    : ISerializable(other), UserDataContainer(),
      state(other.state), lastModified(other.lastModified), creationTime(other.creationTime) {}

IScanData& IScanData::operator=(const IScanData& other) {
    state = other.state;
    lastModified = other.lastModified;
    creationTime = other.creationTime;
    return *this;
}

void IScanData::SetState(State newState) {
    if (newState == state)
        return;
    state = newState;
    lastModified = std::chrono::steady_clock::now();
}

void IScanData::AppendHeader(std::string& out) const {
    AppendRaw(out, static_cast<uint8_t>(static_cast<int32_t>(state) & 0xFF));
    AppendRaw(out, static_cast<int64_t>(creationTime.time_since_epoch().count()));
    AppendRaw(out, info);
}

void IScanData::ReadHeader(BinaryCursor& cursor, const SerializeInfo& serializeInfo) {
    state = static_cast<State>(cursor.Read<uint8_t>());
    creationTime = CreationTime(CreationDuration(cursor.Read<int64_t>()));
    if (serializeInfo.version >= firstVersionWithInfo)
        cursor.ReadInto(info);
    else
        info = ScanDataInfo{};
}

const std::string& BlankScanData::GetSerialType() const {
    static const std::string name = "SD";
    return name;
}

const std::string& UnknownScanData::GetSerialType() const {
    static const std::string name = "UnknownScanData";
    return name;
}

static SerializableTypes registerUnknownScanData(std::make_unique<UnknownScanData>());

} // namespace nrq
