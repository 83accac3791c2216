// A sweep over SCPI: the setup, sweep and fetch texts are made once from the
// feature set; each measurement then sends stored text and decodes the block.
#include "HVX/ESC/SCPI/SpectrumScan.h"

#include "ByteSwap.h"
#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace nrq {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::nanoseconds shortReplyTimeout = 2s;
constexpr std::string_view frequencyStartKey = "Frequency Start";
constexpr std::string_view frequencyStopKey = "Frequency Stop";
constexpr std::string_view centerVariable = "FrequencyCenter";
constexpr std::string_view spanVariable = "FrequencySpan";

bool InSpectrumAnalyzerMode(const ESCFeature& feature) {
    return (feature.modes & 1) != 0;
}

// The first feature of each role that a sweep uses.
struct SweepFeatures {
    const ESCFeature* sweepContinuous = nullptr;
    const ESCFeature* byteOrder = nullptr;
    const ESCFeature* powerUnit = nullptr;
    const ESCFeature* frequencyCenter = nullptr;
    const ESCFeature* frequencySpan = nullptr;
    const ESCFeature* sweepPoints = nullptr;
    const ESCFeature* sweepInit = nullptr;
    const ESCFeature* fetchData = nullptr;
    std::vector<const ESCFeature*> setup;
};

const ESCFeature** SlotOf(SweepFeatures& found, ESCFeatureType type) {
    switch (type) {
    case ESCFeatureType::SweepContinuous: return &found.sweepContinuous;
    case ESCFeatureType::ByteOrder: return &found.byteOrder;
    case ESCFeatureType::PowerUnit: return &found.powerUnit;
    case ESCFeatureType::FrequencyCenter: return &found.frequencyCenter;
    case ESCFeatureType::FrequencySpan: return &found.frequencySpan;
    case ESCFeatureType::SweepPoints: return &found.sweepPoints;
    case ESCFeatureType::SweepInit: return &found.sweepInit;
    case ESCFeatureType::FetchData: return &found.fetchData;
    default: return nullptr;
    }
}

SweepFeatures FindSweepFeatures(const std::vector<const ESCFeature*>& relevant) {
    SweepFeatures found;
    for (const ESCFeature* feature : relevant) {
        if (feature->type == ESCFeatureType::Setup) {
            found.setup.push_back(feature);
            continue;
        }
        const ESCFeature** slot = SlotOf(found, feature->type);
        if (slot && !*slot)
            *slot = feature;
    }
    return found;
}

void SetVariableIfNamed(ESCInterpreter& interpreter, std::string_view name, const ESCVariant& value) {
    if (!name.empty())
        interpreter.SetVariable(name, value);
}

ESCVariant AutoFlagOf(const ESCVariant& value) {
    if (std::holds_alternative<ESCFeatureAuto>(value))
        return int64_t{1};
    if (std::holds_alternative<ESCFeatureUnset>(value))
        return ESCFeatureUnset{};
    return int64_t{0};
}

void ApplySetting(SCPISpecAnState& state, const ESCFeature* feature) {
    if (!feature || !DoesFeatureHaveParameters(*feature))
        return;
    const auto stored = state.variableMap.find(feature->label);
    ESCVariant value = stored == state.variableMap.end() ? ESCVariant() : stored->second.value;
    if (ESCIsNil(value)) {
        value = GetFeatureDefaultValue(*feature);
        if (ESCIsNil(value)) {
            Log::Error(fmt::format("UNEXPECTED: Missing value and default for setting \"{}\"", feature->label));
            return;
        }
        if (feature->type == ESCFeatureType::Setup)
            Log::Warn(fmt::format("Missing value for setting \"{}\": using default value", feature->label));
    }
    SetVariableIfNamed(*state.interpreter, GetFeatureVariableName(*feature, false), value);
    SetVariableIfNamed(*state.interpreter, GetFeatureVariableName(*feature, true), AutoFlagOf(value));
}

void RunFeature(SCPISpecAnState& state, const ESCFeature* feature) {
    if (!feature)
        return;
    if (!feature->commandAuto.empty())
        state.interpreter->Run(feature->commandAuto);
    if (!feature->command.empty())
        state.interpreter->Run(feature->command);
}

// The output of one script on the session's interpreter, or empty without one.
std::string RunForText(SCPISpecAnState& state, const std::string& script) {
    if (script.empty())
        return {};
    state.interpreter->Run(script);
    return state.interpreter->GetOutput();
}

const Frequency* StoredFrequency(const SCPIVariableMap& map, std::string_view key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : std::get_if<Frequency>(&found->second.value);
}

void SetCenterAndSpanFromRange(SCPISpecAnState& state) {
    const Frequency* start = StoredFrequency(state.variableMap, frequencyStartKey);
    const Frequency* stop = StoredFrequency(state.variableMap, frequencyStopKey);
    if (!start || !stop)
        return;
    state.interpreter->SetVariable(centerVariable, (*start + *stop) * 0.5);
    state.interpreter->SetVariable(spanVariable, *stop - *start);
}

void TakeRangeFromCenterAndSpan(SCPISpecAnState& state) {
    const ESCVariant center = state.interpreter->GetVariable(centerVariable);
    const ESCVariant span = state.interpreter->GetVariable(spanVariable);
    const Frequency* centerValue = std::get_if<Frequency>(&center);
    const Frequency* spanValue = std::get_if<Frequency>(&span);
    if (!centerValue || !spanValue)
        return;
    state.frequencyStart = *centerValue - *spanValue * 0.5;
    state.frequencyStop = *centerValue + *spanValue * 0.5;
}

void RunLabelled(SCPISpecAnState& state, const ESCFeature* feature) {
    if (!feature)
        return;
    Log::Warn(feature->label);
    RunFeature(state, feature);
}

const SCPIDataBlockFormat& BlockFormat(const SCPISpecAnState& state) {
    static const SCPIDataBlockFormat none;
    return state.featureSet ? state.featureSet->blockFormat : none;
}

// "#<digits><count>": the first byte is not looked at.
bool ReadBlockLength(SCPISpecAnState& state, uint64_t& byteCount) {
    std::array<char, 2> head{};
    if (state.io->Read(head.data(), head.size(), state.queryTimeout) < head.size())
        return false;
    const int digits = head[1] - '0';
    if (digits < 0 || digits > 9)
        return false;
    std::array<char, 10> number{};
    const size_t count = static_cast<size_t>(digits);
    if (count > 0 && state.io->Read(number.data(), count, state.queryTimeout) < count)
        return false;
    number[count] = '\0';
    byteCount = std::strtoull(number.data(), nullptr, 10);
    return true;
}

// What follows the block. A positive count reads until the link throws,
// which it does at its time-out: nothing else ends that loop.
void ConsumeTrailer(SCPISpecAnState& state, int32_t additionalCharacters) {
    if (additionalCharacters < 0) {
        state.io->ReadData(shortReplyTimeout);
        return;
    }
    if (additionalCharacters == 0)
        return;
    std::array<char, 1024> discard;
    for (;;)
        state.io->Read(discard.data(), discard.size(), shortReplyTimeout);
}

} // namespace

size_t GetBinaryFormatSize(SCPIValueFormat format) {
    switch (format) {
    case SCPIValueFormat::NativeFloat32:
    case SCPIValueFormat::SwappedFloat32: return 4;
    case SCPIValueFormat::NativeFloat64:
    case SCPIValueFormat::SwappedFloat64: return 8;
    default: return 0;
    }
}

bool SCPIScanInitState(SCPISpecAnState& state, IO* io, const ESCFeatureSet* featureSet) {
    state.io = io;
    state.featureSet = featureSet;
    state.errors.clear();
    state.variableMap.clear();
    state.waitTime = SCPISpecAnState().waitTime;
    state.queryTimeout = SCPISpecAnState().queryTimeout;
    state.interpreter = std::make_unique<ESCInterpreter>();
    return true;
}

bool SCPIScanClearState(SCPISpecAnState& state) {
    state.io = nullptr;
    state.featureSet = nullptr;
    state.errors.clear();
    state.variableMap.clear();
    state.interpreter.reset();
    return true;
}

bool SCPIScanGetRelevantFeatureList(std::span<const ESCFeature> features,
                                    std::vector<const ESCFeature*>& relevant) {
    relevant.clear();
    for (const ESCFeature& feature : features)
        if (InSpectrumAnalyzerMode(feature))
            relevant.push_back(&feature);
    return true;
}

bool SCPIScanCreateVariableMap(const std::vector<const ESCFeature*>& features, SCPIVariableMap& map) {
    for (const ESCFeature* feature : features) {
        ESCVariant value = GetFeatureDefaultValue(*feature);
        if (ESCIsNil(value) || map.contains(feature->label))
            continue;
        map.emplace(feature->label, SCPIStoredValue{std::move(value), -1});
    }
    return true;
}

bool SCPIScanHasRequiredFeatures(SCPISpecAnState& state, std::string& report) {
    bool hasCenter = false;
    if (state.featureSet)
        for (const ESCFeature& feature : state.featureSet->features)
            if (InSpectrumAnalyzerMode(feature) && feature.type == ESCFeatureType::FrequencyCenter &&
                !feature.command.empty())
                hasCenter = true;
    // Every line asks the same question; the real checks are made when the commands are built.
    const std::string_view mark = hasCenter ? "Present: " : "MISSING: ";
    const auto line = [&](std::string_view text) { report += fmt::format("{}{}\n", mark, text); };
    report.clear();
    report += "REQUIRED FEATURES:\n\n";
    line("setting frequency center (feature type \"frequency_center\")");
    line("setting frequency span (feature type \"frequency_span\")");
    line("initiating single sweep (feature type \"sweep_init\")");
    line("fetching sweep data (feature type \"fetch_data\")");
    report += "RECOMMENDED FEATURES:\n\n";
    line("setting to spectrum analyzer mode (feature type \"mode\")");
    line("setting number of sweep points (feature type \"sweep_points\")");
    line("getting number of sweep points (feature type \"sweep_points\")");
    line("setting binary data endianness (feature type \"byte_order\")");
    line("setting unit of amplitude to dbm (feature type \"power_unit\")");
    line("enabling/disabling continuous sweeping (feature type \"sweep_continuous\")");
    return hasCenter;
}

bool SCPIScanCreateCommands(SCPISpecAnState& state) {
    if (!state.featureSet)
        return false;
    std::vector<const ESCFeature*> relevant;
    SCPIScanGetRelevantFeatureList(state.featureSet->features, relevant);
    const SweepFeatures found = FindSweepFeatures(relevant);
    if (!found.frequencyCenter || !found.frequencySpan)
        return false;

    ESCInterpreter& interpreter = *state.interpreter;
    if (found.sweepContinuous)
        SetVariableIfNamed(interpreter, GetFeatureVariableName(*found.sweepContinuous, false),
                           GetFeatureDefaultValue(*found.sweepContinuous));
    SetCenterAndSpanFromRange(state);
    ApplySetting(state, found.sweepPoints);
    for (const ESCFeature* feature : found.setup)
        ApplySetting(state, feature);
    TakeRangeFromCenterAndSpan(state);

    for (const ESCFeature* feature : {found.sweepContinuous, found.byteOrder, found.powerUnit,
                                      found.frequencyCenter, found.frequencySpan, found.sweepPoints})
        RunLabelled(state, feature);
    for (const ESCFeature* feature : found.setup)
        RunLabelled(state, feature);
    state.setupCommands = interpreter.GetOutput();

    state.pointsQuery = found.sweepPoints ? RunForText(state, found.sweepPoints->commandQuery) : std::string();
    state.sweepCommand = found.sweepInit ? RunForText(state, found.sweepInit->command) : std::string();
    state.fetchCommand = found.fetchData ? RunForText(state, found.fetchData->commandQuery) : std::string();
    return true;
}

bool SCPIScanRunSetup(SCPISpecAnState& state) {
    if (!state.setupCommands.empty())
        state.io->WriteData(state.setupCommands);
    if (state.pointsQuery.empty()) {
        state.expectedBytes = 0;
        return true;
    }
    state.io->WriteData(state.pointsQuery);
    std::string reply = state.io->ReadData(shortReplyTimeout);
    // The last character is the reply's terminator.
    if (!reply.empty())
        reply.back() = '\0';
    const uint64_t points = std::strtoull(reply.c_str(), nullptr, 10);
    state.expectedBytes = points * GetBinaryFormatSize(BlockFormat(state).valueFormat);
    return true;
}

bool SCPIScanRunEndSetup(SCPISpecAnState&) {
    return true;
}

bool SCPIScanRunMeas(SCPISpecAnState& state) {
    state.valueCount = 0;
    uint64_t byteCount = state.expectedBytes;
    const SCPIDataBlockFormat& format = BlockFormat(state);

    // One write, so that the fetch waits inside the instrument for the sweep to end.
    thread_local std::string request;
    request.clear();
    fmt::format_to(std::back_inserter(request), "{}*WAI\n{}", state.sweepCommand, state.fetchCommand);
    state.io->WriteData(request);

    if (format.type == SCPIDataBlockType::LengthPrefixedBinary && !ReadBlockLength(state, byteCount))
        return false;
    if (byteCount == 0)
        return false;
    uint8_t* raw = state.rawBuffer.Reserve(byteCount);
    if (state.io->Read(raw, byteCount, state.queryTimeout) < byteCount)
        return false;

    state.valueFormat = format.valueFormat;
    const size_t valueSize = GetBinaryFormatSize(format.valueFormat);
    state.valueCount = valueSize == 0 ? 0 : byteCount / valueSize;
    ConsumeTrailer(state, format.additionalCharacters);
    return true;
}

bool SCPIScanGetMeasCount(SCPISpecAnState& state, size_t& count) {
    count = state.valueCount;
    return count != 0;
}

bool SCPIScanGetMeasValues(SCPISpecAnState& state, DecibelMilliwatts*& values) {
    if (state.valueCount == 0)
        return false;
    const size_t count = state.valueCount;
    uint8_t* decoded = state.valueBuffer.Reserve(count * sizeof(float));
    switch (state.valueFormat) {
    case SCPIValueFormat::NativeFloat32:
        std::memcpy(decoded, state.rawBuffer.data, count * sizeof(float));
        break;
    case SCPIValueFormat::SwappedFloat32:
        detail::SwapFloat32(decoded, state.rawBuffer.data, count);
        break;
    default:
        throw Error(fmt::format(
            "The data format received from the device is unrecognised. (TYPE: {}). Please contact support.",
            static_cast<int>(state.valueFormat)));
    }
    values = reinterpret_cast<DecibelMilliwatts*>(decoded);
    return true;
}

bool SCPIScanGetFrequencyRange(const SCPISpecAnState& state, Frequency& start, Frequency& stop) {
    start = state.frequencyStart;
    stop = state.frequencyStop;
    return true;
}

} // namespace nrq
