#include "HVX/App/Data/ScanData.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define HVX_SCAN_DATA_SSE2 1
#else
#define HVX_SCAN_DATA_SSE2 0
#endif

namespace nrq {

namespace {

// Finds the smallest and the largest value as the walk of CalculateMaxIndex
// would: a later value counts only when it is strictly better, so NaNs never
// win and of two equal zeros the first stays. The vector min and max take
// their second operand unless the first is strictly better: the same rule.
void FindExtremes(const DecibelMilliwatts* values, size_t size, float& lowest, float& highest) {
    float low = values[0].dBm();
    float high = low;
    size_t i = 0;
#if HVX_SCAN_DATA_SSE2
    // A standard-layout class of one float: its array is an array of floats.
    const float* f = reinterpret_cast<const float*>(values);
    __m128 low0 = _mm_set1_ps(low), low1 = low0, high0 = low0, high1 = low0;
    for (; i + 8 <= size; i += 8) {
        const __m128 a = _mm_loadu_ps(f + i);
        const __m128 b = _mm_loadu_ps(f + i + 4);
        low0 = _mm_min_ps(a, low0);
        low1 = _mm_min_ps(b, low1);
        high0 = _mm_max_ps(a, high0);
        high1 = _mm_max_ps(b, high1);
    }
    alignas(16) float lanes[4][4];
    _mm_store_ps(lanes[0], low0);
    _mm_store_ps(lanes[1], low1);
    _mm_store_ps(lanes[2], high0);
    _mm_store_ps(lanes[3], high1);
    for (size_t j = 0; j < 4; ++j) {
        low = lanes[0][j] < low ? lanes[0][j] : low;
        low = lanes[1][j] < low ? lanes[1][j] : low;
        high = lanes[2][j] > high ? lanes[2][j] : high;
        high = lanes[3][j] > high ? lanes[3][j] : high;
    }
#endif
    for (; i < size; ++i) {
        const float x = values[i].dBm();
        low = x < low ? x : low;
        high = x > high ? x : high;
    }
    lowest = low;
    highest = high;
}

// The first place that holds `target`, which is known to be there.
size_t FirstPlaceOf(const DecibelMilliwatts* values, size_t size, float target) {
    size_t i = 0;
#if HVX_SCAN_DATA_SSE2
    const float* f = reinterpret_cast<const float*>(values);
    const __m128 wanted = _mm_set1_ps(target);
    for (; i + 8 <= size; i += 8) {
        const __m128 a = _mm_cmpeq_ps(_mm_loadu_ps(f + i), wanted);
        const __m128 b = _mm_cmpeq_ps(_mm_loadu_ps(f + i + 4), wanted);
        if (_mm_movemask_ps(_mm_or_ps(a, b)) != 0)
            break;
    }
#endif
    for (; i < size; ++i)
        if (values[i].dBm() == target)
            return i;
    return 0;
}

} // namespace

// The walk that replaces its candidate only on a strictly better value ends on
// the first place holding the extreme value, so that is what is looked for,
// in two passes that run in vector registers. A NaN in the first place is
// never beaten and leaves both indices at 0.
void FullScanMeasurement::CalculateMaxIndex() {
    minIndex = 0;
    maxIndex = 0;
    const size_t size = values.size();
    if (size < 2 || std::isnan(values[0].dBm()))
        return;
    float lowest;
    float highest;
    FindExtremes(values.data(), size, lowest, highest);
    minIndex = FirstPlaceOf(values.data(), size, lowest);
    maxIndex = FirstPlaceOf(values.data(), size, highest);
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
