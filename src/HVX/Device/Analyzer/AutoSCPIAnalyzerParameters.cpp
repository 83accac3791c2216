#include "HVX/Device/Analyzer/AutoSCPIAnalyzer.h"

#include <string_view>
#include <type_traits>
#include <utility>

namespace nrq {

namespace {

constexpr size_t textLimit = 1000;
constexpr std::string_view startKey = "Frequency Start";
constexpr std::string_view stopKey = "Frequency Stop";

// The payload that follows the type number: by the alternative's own width,
// strings as records without a limit, the value-less alternatives as nothing.
void AppendValuePayload(std::string& out, const ESCVariant& value) {
    std::visit(
        [&out](const auto& held) {
            using T = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<T, int64_t> || std::is_same_v<T, double>)
                AppendRaw(out, held);
            else if constexpr (std::is_same_v<T, DecibelMilliwatts>)
                AppendRaw(out, held.dBm());
            else if constexpr (std::is_same_v<T, Frequency>)
                AppendRaw(out, held.Hz());
            else if constexpr (std::is_same_v<T, ESCString>)
                AppendSerializeString(out, std::string_view(held));
        },
        value);
}

ESCVariant ReadValuePayload(std::string_view& data, uint8_t type) {
    BinaryCursor cursor(data);
    switch (static_cast<ESCVariantType>(type)) {
    case ESCVariantType::Integer:
        return cursor.Read<int64_t>();
    case ESCVariantType::Float:
        return cursor.Read<double>();
    case ESCVariantType::Amplitude:
        return DecibelMilliwatts(cursor.Read<float>());
    case ESCVariantType::Frequency:
        return Frequency(cursor.Read<double>());
    case ESCVariantType::String:
        return ESCString(ViewDeserializeString(data));
    case ESCVariantType::Automatic:
        return ESCFeatureAuto{};
    case ESCVariantType::Unset:
        return ESCFeatureUnset{};
    case ESCVariantType::Nil:
    default:
        // A number from a newer writer carries nothing we could size: it stays Nil.
        return Nil{};
    }
}

Frequency MapFrequencyOr(const SCPIVariableMap& map, std::string_view key, Frequency fallback) {
    const auto found = map.find(key);
    if (found == map.end())
        return fallback;
    if (const Frequency* frequency = std::get_if<Frequency>(&found->second.value))
        return *frequency;
    return fallback;
}

void StoreMapFrequency(SCPIVariableMap& map, std::string_view key, Frequency value) {
    const auto found = map.find(key);
    if (found != map.end()) {
        found->second.value = value;
        return;
    }
    map.emplace(std::string(key), SCPIStoredValue{value, -1});
}

} // namespace

const std::string& AutoSCPIAnalyzerParameters::GetSerialType() const {
    static const std::string name = "ESCAP";
    return name;
}

std::string AutoSCPIAnalyzerParameters::SerializeBinary() const {
    std::string out;
    AppendSerializeString(out, manufacturer, textLimit);
    AppendSerializeString(out, serial, textLimit);
    AppendRaw(out, static_cast<uint32_t>(variableMap.size()));
    for (const auto& [key, stored] : variableMap) {
        AppendSerializeString(out, key, textLimit);
        AppendRaw(out, stored.index);
        AppendRaw(out, static_cast<uint8_t>(stored.value.index()));
        AppendValuePayload(out, stored.value);
    }
    return out;
}

void AutoSCPIAnalyzerParameters::DeserializeBinary(std::string_view& data, const SerializeInfo&) {
    manufacturer = ViewDeserializeString(data);
    serial = ViewDeserializeString(data);
    const auto count = BinaryCursor(data).Read<uint32_t>();
    variableMap.clear();
    for (uint32_t i = 0; i < count; ++i) {
        std::string key = ViewDeserializeString(data);
        SCPIStoredValue stored;
        BinaryCursor cursor(data);
        stored.index = cursor.Read<int32_t>();
        const auto type = cursor.Read<uint8_t>();
        stored.value = ReadValuePayload(data, type);
        variableMap.insert_or_assign(std::move(key), std::move(stored));
    }
}

void AutoSCPIAnalyzerParameters::SetMinFrequency(Frequency f) { StoreMapFrequency(variableMap, startKey, f); }

void AutoSCPIAnalyzerParameters::SetMaxFrequency(Frequency f) { StoreMapFrequency(variableMap, stopKey, f); }

Frequency AutoSCPIAnalyzerParameters::GetMinFrequency() const {
    return MapFrequencyOr(variableMap, startKey, Frequency(0.0));
}

Frequency AutoSCPIAnalyzerParameters::GetMaxFrequency() const {
    return MapFrequencyOr(variableMap, stopKey, Frequency(1e9));
}

static SerializableTypes registerAutoSCPIAnalyzerParameters(std::make_unique<AutoSCPIAnalyzerParameters>());

} // namespace nrq
