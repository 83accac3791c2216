#include "HVX/ESC/Features.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace nrq {
namespace {

// Held once for every boolean feature, never in the feature itself.
const std::array<ESCVariant, 2> booleanValues = {ESCVariant(int64_t{0}), ESCVariant(int64_t{1})};

struct TypeVariableNames {
    std::string_view value;
    std::string_view automatic;
};

// By ESCFeatureType, from DiscoveryOnly on.
constexpr std::array<TypeVariableNames, 11> typeVariableNames = {{
    {"", ""},
    {"", ""},
    {"", ""},
    {"SweepPoints", "SweepPoints_Auto"},
    {"FrequencyCenter", "FrequencyCenter_Auto"},
    {"FrequencySpan", "FrequencySpan_Auto"},
    {"", ""},
    {"PowerUnit", "PowerUnit_Auto"},
    {"SweepContinuous", "SweepContinuous_Auto"},
    {"", ""},
    {"", ""},
}};

bool IsAsciiLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string LettersAndDigits(std::string_view text) {
    std::string kept;
    std::copy_if(text.begin(), text.end(), std::back_inserter(kept), IsAsciiLetterOrDigit);
    return kept;
}

std::string_view VariableStem(ESCFeatureType type) {
    if (type == ESCFeatureType::DiscoveryOnly || type == ESCFeatureType::Setup)
        return "Setup_";
    return GetFeatureTypeVariableName(type, false);
}

bool HasUsableFirstValue(const ESCFeature& feature) {
    const auto values = GetFeatureValues(feature);
    return !values.empty() && !ESCIsNil(values.front());
}

} // namespace

std::span<const ESCVariant> GetFeatureValues(const ESCFeature& feature) {
    switch (feature.setBehavior) {
    case ESCFeatureSetBehavior::Boolean:
        return booleanValues;
    case ESCFeatureSetBehavior::ReadOnly:
        return {};
    default:
        return feature.values;
    }
}

ESCVariantType GetFeatureValueType(const ESCFeature& feature) {
    const auto values = GetFeatureValues(feature);
    return values.empty() ? ESCVariantType::Nil : ESCType(values.front());
}

bool DoesFeatureHaveParameters(const ESCFeature& feature) {
    return feature.type != ESCFeatureType::None && feature.setBehavior != ESCFeatureSetBehavior::ReadOnly &&
           HasUsableFirstValue(feature) && !feature.command.empty();
}

ESCVariant GetFeatureDefaultValue(const ESCFeature& feature) {
    if (!DoesFeatureHaveParameters(feature))
        return Nil{};
    if (feature.defaultIndex == ESCFeatureDefault::Auto)
        return ESCFeatureAuto{};
    if (feature.defaultIndex == ESCFeatureDefault::Unset)
        return ESCFeatureUnset{};
    const auto values = GetFeatureValues(feature);
    const int32_t index = FeatureDefaultToIndex(feature.defaultIndex);
    if (index >= 0 && static_cast<size_t>(index) < values.size())
        return values[static_cast<size_t>(index)];
    return values.front();
}

ESCVariant GetFeatureDefaultValueSet(const ESCFeature& feature) {
    if (!DoesFeatureHaveParameters(feature))
        return Nil{};
    const auto values = GetFeatureValues(feature);
    const int64_t last = static_cast<int64_t>(values.size()) - 1;
    const int64_t index = std::clamp<int64_t>(static_cast<int32_t>(feature.defaultIndex), 0, last);
    return values[static_cast<size_t>(index)];
}

int32_t FeatureDefaultToIndex(ESCFeatureDefault defaultIndex) {
    const auto index = static_cast<int32_t>(defaultIndex);
    return index < 0 ? -1 : index;
}

std::string_view GetFeatureTypeVariableName(ESCFeatureType type, bool isAuto) {
    const auto index = static_cast<int32_t>(type);
    if (index < 0 || static_cast<size_t>(index) >= typeVariableNames.size())
        return {};
    const auto& names = typeVariableNames[static_cast<size_t>(index)];
    return isAuto ? names.automatic : names.value;
}

std::string_view GetFeatureVariableName(const ESCFeature& feature, bool isAuto) {
    if (feature.type == ESCFeatureType::None)
        return {};
    if (feature.type == ESCFeatureType::DiscoveryOnly || feature.type == ESCFeatureType::Setup)
        return isAuto ? feature.variableAutoName : feature.variableName;
    return GetFeatureTypeVariableName(feature.type, isAuto);
}

std::string GenerateVariableName(const ESCFeature& feature, bool isAuto) {
    if (feature.type == ESCFeatureType::None || feature.setBehavior == ESCFeatureSetBehavior::ReadOnly ||
        !HasUsableFirstValue(feature))
        return {};
    const std::string_view stem = VariableStem(feature.type);
    if (stem.empty())
        return {};
    const std::string_view suffix = isAuto ? "_Auto" : "";
    if (stem.back() != '_')
        return fmt::format("{0}{1}", stem, suffix);
    std::string label = LettersAndDigits(feature.label);
    if (label.empty())
        label = "Unnamed";
    return fmt::format("{0}{1}{2}", stem, label, suffix);
}

std::string_view ESCGetModeName(ESCDeviceModeIndex index) {
    return index == ESCDeviceModeIndex::SpectrumAnalyzer ? "spectrum analyzer" : "unknown";
}

} // namespace nrq
