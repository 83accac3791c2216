#include "HVX/ESC/FeaturesJson.h"

#include "HVX/Base/Error.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>

namespace nrq {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 11> featureTypeWords = {
    "discovery_only", "setup", "mode", "sweep_points", "frequency_center", "frequency_span",
    "byte_order", "power_unit", "sweep_continuous", "sweep_init", "fetch_data"};
constexpr std::array<std::string_view, 4> setBehaviorWords = {"normal", "provided_only", "read_only", "boolean"};
constexpr std::array<std::string_view, 3> unsetRuleWords = {"allow", "disallow", "warn"};
constexpr std::array<std::string_view, 1> modeWords = {"sa"};
constexpr std::array<std::string_view, 3> blockTypeWords = {"length_prefixed_binary", "unprefixed_binary", "ascii"};
constexpr std::array<std::string_view, 4> valueFormatWords = {"native_float32", "swapped_float32",
                                                              "native_float64", "swapped_float64"};
// A block type of -1 has no word of its own; this one reads back as -1.
constexpr std::string_view unknownBlockTypeWord = "unknown";
constexpr std::string_view allModesWord = "all";
constexpr std::string_view unsetDefaultWord = "unset";
constexpr std::string_view autoDefaultWord = "auto";

// The word of an enumeration value, empty outside the table.
template <typename Enum, size_t N>
std::string_view WordOf(Enum value, const std::array<std::string_view, N>& words) {
    const auto index = static_cast<int64_t>(value);
    return index >= 0 && index < static_cast<int64_t>(N) ? words[static_cast<size_t>(index)] : std::string_view();
}

template <typename Enum, size_t N>
std::optional<Enum> EnumOf(std::string_view word, const std::array<std::string_view, N>& words) {
    for (size_t i = 0; i < N; ++i)
        if (words[i] == word)
            return static_cast<Enum>(i);
    return std::nullopt;
}

// The same wording as the library's own type errors.
[[noreturn]] void ThrowTypeError(const Json& json, std::string_view expected) {
    throw Json::type_error::create(302, fmt::format("type must be {}, but is {}", expected, json.type_name()),
                                   &json);
}

void RequireObject(const Json& json) {
    if (!json.is_object())
        ThrowTypeError(json, "object");
}

void RequireArray(const Json& json) {
    if (!json.is_array())
        ThrowTypeError(json, "array");
}

const Json* FindKey(const Json& object, std::string_view key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

// Bounded: a number outside the target's range is an error, never a wrapped value.
template <typename Integer>
Integer ReadInteger(const Json& json) {
    static_assert(std::is_signed_v<Integer>);
    constexpr auto lowest = std::numeric_limits<Integer>::min();
    constexpr auto highest = std::numeric_limits<Integer>::max();
    bool inRange = false;
    if (json.is_number_unsigned())
        inRange = json.get<uint64_t>() <= static_cast<uint64_t>(highest);
    else if (json.is_number_integer())
        inRange = json.get<int64_t>() >= lowest && json.get<int64_t>() <= highest;
    else if (json.is_number_float())
        // -lowest is 2^(bits-1), exact as a double, unlike highest.
        inRange = json.get<double>() >= static_cast<double>(lowest) &&
                  json.get<double>() < -static_cast<double>(lowest);
    else
        ThrowTypeError(json, "number");
    if (!inRange)
        throw Error(fmt::format("number {} is out of range", json.dump()));
    if (json.is_number_float())
        return static_cast<Integer>(json.get<double>());
    return json.is_number_unsigned() ? static_cast<Integer>(json.get<uint64_t>())
                                     : static_cast<Integer>(json.get<int64_t>());
}

double ReadDouble(const Json& json) {
    if (!json.is_number())
        ThrowTypeError(json, "number");
    return json.get<double>();
}

// Values beyond single precision become infinite rather than undefined.
float ReadFloat(const Json& json) {
    const double value = ReadDouble(json);
    if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max())
        return value > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

std::string ReadString(const Json& json) {
    return json.get<std::string>();
}

void ReadStringKey(const Json& object, std::string_view key, std::string& field) {
    if (const Json* value = FindKey(object, key))
        field = ReadString(*value);
}

// An unknown word leaves the field as it was.
template <typename Enum, size_t N>
void ReadWordKey(const Json& object, std::string_view key, Enum& field, const std::array<std::string_view, N>& words) {
    if (const Json* value = FindKey(object, key))
        if (const auto parsed = EnumOf<Enum>(ReadString(*value), words))
            field = *parsed;
}

void WriteStringKey(Json& object, std::string_view key, const std::string& text) {
    if (!text.empty())
        object[key] = text;
}

template <typename Enum, size_t N>
void WriteWordKey(Json& object, std::string_view key, Enum value, const std::array<std::string_view, N>& words) {
    const std::string_view word = WordOf(value, words);
    if (static_cast<int32_t>(value) != -1 && !word.empty())
        object[key] = word;
}

Json DefaultIndexJson(ESCFeatureDefault index) {
    switch (index) {
    case ESCFeatureDefault::Unset: return unsetDefaultWord;
    case ESCFeatureDefault::Auto: return autoDefaultWord;
    default: return static_cast<int32_t>(index);
    }
}

void WriteDefaultIndexKey(Json& object, std::string_view key, ESCFeatureDefault index) {
    const auto number = static_cast<int32_t>(index);
    if (number >= 0 || index == ESCFeatureDefault::Unset || index == ESCFeatureDefault::Auto)
        object[key] = DefaultIndexJson(index);
}

// Only the words are read: a numeric index stays at None.
void ReadDefaultIndexKey(const Json& object, std::string_view key, ESCFeatureDefault& field) {
    const Json* value = FindKey(object, key);
    if (!value || !value->is_string())
        return;
    const std::string word = ReadString(*value);
    if (word == unsetDefaultWord)
        field = ESCFeatureDefault::Unset;
    else if (word == autoDefaultWord)
        field = ESCFeatureDefault::Auto;
}

int32_t ReadModes(const Json& modes) {
    if (modes.is_string())
        return ReadString(modes) == allModesWord ? ESCAllDeviceModes : 0;
    RequireArray(modes);
    uint32_t mask = 0;
    for (const Json& word : modes)
        if (const auto mode = EnumOf<ESCDeviceModeIndex>(ReadString(word), modeWords))
            mask |= 1u << static_cast<uint32_t>(*mode);
    return static_cast<int32_t>(mask);
}

Json TypedValue(std::string_view type) {
    Json json = Json::object();
    json["type"] = type;
    return json;
}

template <typename Payload>
Json TypedValue(std::string_view type, const Payload& payload) {
    Json json = TypedValue(type);
    json["value"] = payload;
    return json;
}

struct ValueToJson {
    Json operator()(Nil) const { return nullptr; }
    Json operator()(int64_t value) const { return TypedValue("integer", value); }
    Json operator()(double value) const { return TypedValue("float", value); }
    Json operator()(DecibelMilliwatts value) const { return TypedValue("amplitude", value.dBm()); }
    Json operator()(Frequency value) const { return TypedValue("frequency", value.Hz()); }
    Json operator()(const ESCString& value) const { return TypedValue("string", value.str()); }
    Json operator()(ESCFeatureAuto) const { return TypedValue("automatic"); }
    Json operator()(ESCFeatureUnset) const { return TypedValue("unset"); }
};

ESCVariant ValueOfType(std::string_view type, const Json& json) {
    if (type == "integer")
        return ReadInteger<int64_t>(json.at("value"));
    if (type == "float")
        return ReadDouble(json.at("value"));
    if (type == "amplitude")
        return DecibelMilliwatts(ReadFloat(json.at("value")));
    if (type == "frequency")
        return Frequency(ReadDouble(json.at("value")));
    if (type == "string")
        return ESCString(ReadString(json.at("value")));
    if (type == "automatic")
        return ESCFeatureAuto{};
    if (type == "unset")
        return ESCFeatureUnset{};
    throw Error(fmt::format("unknown variant type \"{}\"", type));
}

} // namespace

void to_json(Json& json, const ESCVariant& value) {
    json = std::visit(ValueToJson{}, value);
}

void from_json(const Json& json, ESCVariant& value) {
    if (json.is_null()) {
        value = Nil{};
        return;
    }
    RequireObject(json);
    value = ValueOfType(ReadString(json.at("type")), json);
}

void to_json(Json& json, const SCPIDataBlockFormat& format) {
    json = Json::object();
    const std::string_view type = WordOf(format.type, blockTypeWords);
    json["type"] = type.empty() ? unknownBlockTypeWord : type;
    json["additional_characters"] = format.additionalCharacters;
    const std::string_view valueFormat = WordOf(format.valueFormat, valueFormatWords);
    if (!valueFormat.empty())
        json["value_format"] = valueFormat;
}

void from_json(const Json& json, SCPIDataBlockFormat& format) {
    RequireObject(json);
    ReadWordKey(json, "type", format.type, blockTypeWords);
    if (const Json* characters = FindKey(json, "additional_characters"))
        format.additionalCharacters = ReadInteger<int32_t>(*characters);
    ReadWordKey(json, "value_format", format.valueFormat, valueFormatWords);
}

void to_json(Json& json, const ESCFeature& feature) {
    json = Json::object();
    WriteStringKey(json, "label", feature.label);
    WriteStringKey(json, "command", feature.command);
    WriteStringKey(json, "command_query", feature.commandQuery);
    WriteStringKey(json, "command_auto", feature.commandAuto);
    WriteStringKey(json, "command_auto_query", feature.commandAutoQuery);
    WriteStringKey(json, "variable_name", feature.variableName);
    WriteStringKey(json, "variable_auto_name", feature.variableAutoName);
    WriteWordKey(json, "type", feature.type, featureTypeWords);
    WriteWordKey(json, "set_behavior", feature.setBehavior, setBehaviorWords);
    WriteWordKey(json, "unset", feature.unset, unsetRuleWords);
    WriteDefaultIndexKey(json, "default_index", feature.defaultIndex);
    WriteDefaultIndexKey(json, "reset_index", feature.resetIndex);
    if (!feature.values.empty()) {
        Json& values = json["values"] = Json::array();
        for (const ESCVariant& value : feature.values)
            to_json(values.emplace_back(), value);
    }
    // Every mask with the spectrum analyzer's bit is written as all modes.
    if (feature.modes & 1)
        json["modes"] = allModesWord;
}

void from_json(const Json& json, ESCFeature& feature) {
    RequireObject(json);
    ReadStringKey(json, "label", feature.label);
    ReadStringKey(json, "command", feature.command);
    ReadStringKey(json, "command_query", feature.commandQuery);
    ReadStringKey(json, "command_auto", feature.commandAuto);
    ReadStringKey(json, "command_auto_query", feature.commandAutoQuery);
    ReadStringKey(json, "variable_name", feature.variableName);
    ReadStringKey(json, "variable_auto_name", feature.variableAutoName);
    ReadWordKey(json, "type", feature.type, featureTypeWords);
    ReadWordKey(json, "set_behavior", feature.setBehavior, setBehaviorWords);
    ReadWordKey(json, "unset", feature.unset, unsetRuleWords);
    ReadDefaultIndexKey(json, "default_index", feature.defaultIndex);
    ReadDefaultIndexKey(json, "reset_index", feature.resetIndex);
    if (const Json* values = FindKey(json, "values")) {
        RequireArray(*values);
        feature.values.clear();
        for (const Json& value : *values)
            from_json(value, feature.values.emplace_back());
    }
    const Json* modes = FindKey(json, "modes");
    feature.modes = modes ? ReadModes(*modes) : 0;
}

void to_json(Json& json, const ESCFeatureSet& set) {
    json = Json::object();
    json["version"] = 1;
    Json& modeNames = json["mode_names"] = Json::object();
    for (const auto& [mode, name] : set.modeNames) {
        const std::string_view word = WordOf(mode, modeWords);
        if (!word.empty())
            modeNames[word] = name;
    }
    to_json(json["block_format"], set.blockFormat);
    Json& features = json["features"] = Json::array();
    for (const ESCFeature& feature : set.features)
        to_json(features.emplace_back(), feature);
}

void from_json(const Json& json, ESCFeatureSet& set) {
    RequireObject(json);
    if (const Json* modeNames = FindKey(json, "mode_names")) {
        RequireObject(*modeNames);
        set.modeNames.clear();
        for (const auto& [word, name] : modeNames->items())
            if (const auto mode = EnumOf<ESCDeviceModeIndex>(word, modeWords))
                set.modeNames[*mode] = ReadString(name);
    }
    if (const Json* blockFormat = FindKey(json, "block_format"))
        from_json(*blockFormat, set.blockFormat);
    if (const Json* features = FindKey(json, "features")) {
        RequireArray(*features);
        set.features.clear();
        for (const Json& feature : *features)
            from_json(feature, set.features.emplace_back());
    }
}

} // namespace nrq
