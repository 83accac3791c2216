#include "ScpiSettings.h"

#include "Command.h"
#include "Options.h"

#include <HVX/ESC/SCPI/SpectrumScan.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <set>
#include <utility>

namespace halvex {
namespace {

std::string Trim(std::string_view text) {
    const auto isBlank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return std::string(text);
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

const char* KindName(nrq::ESCVariantType type) {
    switch (type) {
    case nrq::ESCVariantType::Integer:
        return "whole number";
    case nrq::ESCVariantType::Float:
        return "number";
    case nrq::ESCVariantType::Amplitude:
        return "level in dBm";
    case nrq::ESCVariantType::Frequency:
        return "frequency";
    case nrq::ESCVariantType::String:
        return "text";
    default:
        return "value";
    }
}

// The number in front and the unit behind it, blanks allowed between.
bool SplitNumber(std::string_view text, double& number, std::string& unit) {
    const std::string trimmed = Trim(text);
    const char* first = trimmed.data();
    const char* last = first + trimmed.size();
    const auto [end, error] = std::from_chars(first, last, number);
    if (error != std::errc() || !std::isfinite(number))
        return false;
    unit = Lower(Trim(std::string_view(end, static_cast<size_t>(last - end))));
    return true;
}

bool ParseWhole(std::string_view text, int64_t& number) {
    const std::string trimmed = Trim(text);
    const char* first = trimmed.data();
    const char* last = first + trimmed.size();
    if (first != last && *first == '+')
        ++first;
    const auto [end, error] = std::from_chars(first, last, number);
    return error == std::errc() && end == last && first != last;
}

[[noreturn]] void BadValue(std::string_view label, std::string_view text, const std::string& expected) {
    throw UsageError{fmt::format("setting '{}' takes {}, not '{}'", label, expected, text)};
}

nrq::ESCVariant ParseTyped(const nrq::ESCFeature& feature, std::string_view text) {
    const nrq::ESCVariantType type = nrq::GetFeatureValueType(feature);
    double number = 0;
    std::string unit;
    switch (type) {
    case nrq::ESCVariantType::Integer: {
        int64_t whole = 0;
        if (!ParseWhole(text, whole))
            BadValue(feature.label, text, "a whole number");
        return whole;
    }
    case nrq::ESCVariantType::Float:
        if (!SplitNumber(text, number, unit) || !unit.empty())
            BadValue(feature.label, text, "a number");
        return number;
    case nrq::ESCVariantType::Amplitude:
        if (!SplitNumber(text, number, unit) || (!unit.empty() && unit != "dbm"))
            BadValue(feature.label, text, "a level in dBm, such as -10 dBm");
        return nrq::DecibelMilliwatts(static_cast<float>(number));
    case nrq::ESCVariantType::Frequency:
        return ParseFrequencyText(feature.label, text);
    default:
        return nrq::ESCString(text);
    }
}

bool SameValue(const nrq::ESCVariant& a, const nrq::ESCVariant& b) {
    if (a.index() != b.index())
        return false;
    if (const auto* text = std::get_if<nrq::ESCString>(&a))
        return std::string_view(*text) == std::string_view(std::get<nrq::ESCString>(b));
    return a == b;
}

bool AllowsAuto(const nrq::ESCFeature& feature) { return !feature.commandAuto.empty(); }
bool AllowsUnset(const nrq::ESCFeature& feature) { return feature.unset != nrq::ESCFeatureUnsetRule::Disallow; }

} // namespace

std::string ChoicesText(const nrq::ESCFeature& feature) {
    std::string text;
    const auto values = nrq::GetFeatureValues(feature);
    const nrq::ESCVariantType type = nrq::GetFeatureValueType(feature);
    std::vector<std::string> listed;
    for (const nrq::ESCVariant& value : values)
        listed.push_back(ValueText(value));
    if (feature.setBehavior == nrq::ESCFeatureSetBehavior::Boolean)
        text = "0 or 1";
    else if (feature.setBehavior == nrq::ESCFeatureSetBehavior::ProvidedOnly)
        text = fmt::format("one of {}", fmt::join(listed, ", "));
    else if (listed.empty())
        text = KindName(type);
    else
        text = fmt::format("{}, for example {}", KindName(type), fmt::join(listed, ", "));
    if (AllowsAuto(feature))
        text += ", or auto";
    if (AllowsUnset(feature))
        text += ", or unset";
    return text;
}

std::vector<const nrq::ESCFeature*> SettableFeatures(const nrq::ESCFeatureSet& set) {
    std::vector<const nrq::ESCFeature*> relevant;
    nrq::SCPIScanGetRelevantFeatureList(set.features, relevant);
    std::vector<const nrq::ESCFeature*> settable;
    std::set<std::string, std::less<>> seen;
    for (const nrq::ESCFeature* feature : relevant) {
        // The range keys set center and span, always: the host gives the range.
        const bool range = feature->type == nrq::ESCFeatureType::FrequencyCenter ||
                           feature->type == nrq::ESCFeatureType::FrequencySpan;
        if (range || !nrq::DoesFeatureHaveParameters(*feature) || !seen.insert(feature->label).second)
            continue;
        settable.push_back(feature);
    }
    return settable;
}

std::string DescribeSettings(const nrq::ESCFeatureSet& set, const nrq::SCPIVariableMap& values) {
    const auto shown = [&values](std::string_view key) {
        const auto found = values.find(key);
        return found == values.end() ? std::string("-") : ValueText(found->second.value);
    };
    std::string text;
    for (const std::string_view key : {frequencyStartKey, frequencyStopKey})
        text += fmt::format("{} = {}  (frequency)\n", key, shown(key));
    for (const nrq::ESCFeature* feature : SettableFeatures(set))
        text += fmt::format("{} = {}  ({})\n", feature->label, shown(feature->label), ChoicesText(*feature));
    return text;
}

nrq::Frequency ParseFrequencyText(std::string_view label, std::string_view text) {
    static const std::pair<const char*, double> units[] = {
        {"", 1}, {"hz", 1}, {"khz", 1e3}, {"mhz", 1e6}, {"ghz", 1e9}, {"k", 1e3}, {"m", 1e6}, {"g", 1e9}};
    double number = 0;
    std::string unit;
    if (SplitNumber(text, number, unit))
        for (const auto& [name, factor] : units)
            if (unit == name && number * factor >= 0)
                return nrq::Frequency(number * factor);
    BadValue(label, text, "a frequency of 0 Hz or more, such as 100 MHz");
}

nrq::SCPIStoredValue ParseSettingValue(const nrq::ESCFeature& feature, std::string_view text) {
    const std::string word = Lower(Trim(text));
    if (word == "auto" && AllowsAuto(feature))
        return {nrq::ESCFeatureAuto{}, -1};
    if (word == "unset" && AllowsUnset(feature))
        return {nrq::ESCFeatureUnset{}, -1};
    const auto values = nrq::GetFeatureValues(feature);
    if (feature.setBehavior == nrq::ESCFeatureSetBehavior::Boolean) {
        int64_t bit = -1;
        if (word == "on" || word == "true")
            bit = 1;
        else if (word == "off" || word == "false")
            bit = 0;
        else if (!ParseWhole(word, bit) || (bit != 0 && bit != 1))
            BadValue(feature.label, text, "0 or 1");
        return {bit, static_cast<int32_t>(bit)};
    }
    if (feature.setBehavior == nrq::ESCFeatureSetBehavior::ReadOnly)
        throw UsageError{fmt::format("setting '{}' only reads and takes no value", feature.label)};
    nrq::ESCVariant value = ParseTyped(feature, text);
    for (size_t i = 0; i < values.size(); ++i)
        if (SameValue(values[i], value) || Lower(ValueText(values[i])) == word)
            return {values[i], static_cast<int32_t>(i)};
    if (feature.setBehavior == nrq::ESCFeatureSetBehavior::ProvidedOnly)
        BadValue(feature.label, text, ChoicesText(feature));
    return {std::move(value), -1};
}

void ApplySetting(const nrq::ESCFeatureSet& set, nrq::SCPIVariableMap& values, std::string_view assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string_view::npos)
        throw UsageError{fmt::format("--set takes LABEL=VALUE, not '{}'", assignment)};
    const std::string label = Trim(assignment.substr(0, equals));
    const std::string_view text = assignment.substr(equals + 1);
    if (label == frequencyStartKey || label == frequencyStopKey) {
        values[label] = {ParseFrequencyText(label, text), -1};
        return;
    }
    std::vector<std::string> labels{std::string(frequencyStartKey), std::string(frequencyStopKey)};
    for (const nrq::ESCFeature* feature : SettableFeatures(set)) {
        if (feature->label == label) {
            values[label] = ParseSettingValue(*feature, text);
            return;
        }
        labels.push_back(feature->label);
    }
    const std::string nearest = NearestName(labels, label);
    throw UsageError{fmt::format("the analyzer has no setting '{}'{}", label,
                                 nearest.empty() ? std::string() : fmt::format("; did you mean '{}'?", nearest))};
}

} // namespace halvex
