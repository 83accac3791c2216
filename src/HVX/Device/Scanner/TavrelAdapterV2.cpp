#include "HVX/Device/Scanner/TavrelAdapterV2.h"

#include <algorithm>
#include <climits>

namespace nrq {

const std::string& TavrelAdapterV2Parameters::GetSerialType() const {
    static const std::string name = "TV2SP";
    return name;
}

std::string TavrelAdapterV2Parameters::SerializeBinary() const {
    std::string out = TavrelAdapterV1Parameters::SerializeBinary();
    AppendRaw(out, static_cast<int32_t>(level));
    return out;
}

void TavrelAdapterV2Parameters::DeserializeBinary(std::string_view& data, const SerializeInfo& info) {
    TavrelAdapterV1Parameters::DeserializeBinary(data, info);
    level = BinaryCursor(data).Read<int32_t>();
}

Length TavrelAdapterV2Parameters::GetResolution() const {
    return Length(cellSize / static_cast<float>(GetSubdivisions()));
}

int TavrelAdapterV2Parameters::GetSubdivisions() const {
    return 1 << (std::clamp(level, 1, maxLevel) - 1);
}

std::unique_ptr<ScannerState> TavrelAdapterV2Parameters::NewState() const {
    return std::make_unique<TavrelAdapterV2State>(*this);
}

namespace {

int TotalPoints(const TavrelAdapterV2Parameters& parameters) {
    const long long n = parameters.GetSubdivisions();
    const long long total = static_cast<long long>(parameters.CountCells()) * (parameters.IsInterleaved() ? 2 : 1) * n * n;
    return static_cast<int>(std::min<long long>(total, INT_MAX));
}

} // namespace

TavrelAdapterV2State::TavrelAdapterV2State(const TavrelAdapterV2Parameters& parameters)
    : parameters(parameters), totalPoints(TotalPoints(parameters)) {}

const std::string& TavrelAdapterV2State::GetSerialType() const {
    static const std::string name = "TV2SS";
    return name;
}

bool TavrelAdapterV2State::GetProgress(float& progress) const {
    // An empty grid has nothing left to do rather than 0/0.
    progress = totalPoints > 0 ? static_cast<float>(pointsDone) / static_cast<float>(totalPoints) : 0.0f;
    return true;
}

static SerializableTypes registerTavrelAdapterV2Parameters(std::make_unique<TavrelAdapterV2Parameters>());
static SerializableTypes registerTavrelAdapterV2State(std::make_unique<TavrelAdapterV2State>());

} // namespace nrq
