// Feature sets come from files that users copy between machines; a damaged one
// must fail with an exception, and one that reads must write out and read back
// to the same text.
#include "HVX/ESC/FeaturesJson.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace {

using Json = nlohmann::ordered_json;

// The store's files hold the set under "feature_set", beside the instrument's identity.
const Json& FeatureSetPart(const Json& json) {
    if (json.is_object() && json.contains("feature_set")) {
        json.at("manufacturer").get<std::string>();
        json.at("serial_id").get<std::string>();
        return json.at("feature_set");
    }
    return json;
}

void UseFeatures(const nrq::ESCFeatureSet& set) {
    volatile size_t sink = set.modeNames.size();
    for (const nrq::ESCFeature& feature : set.features) {
        sink = sink + nrq::GetFeatureValues(feature).size();
        sink = sink + static_cast<size_t>(nrq::GetFeatureValueType(feature));
        sink = sink + nrq::DoesFeatureHaveParameters(feature);
        sink = sink + nrq::GetFeatureDefaultValue(feature).index();
        sink = sink + nrq::GetFeatureDefaultValueSet(feature).index();
        sink = sink + static_cast<size_t>(nrq::FeatureDefaultToIndex(feature.resetIndex) + 1);
        sink = sink + nrq::GetFeatureVariableName(feature, false).size();
        sink = sink + nrq::GetFeatureVariableName(feature, true).size();
        sink = sink + nrq::GenerateVariableName(feature, false).size();
        sink = sink + nrq::GenerateVariableName(feature, true).size();
    }
}

std::string Write(const nrq::ESCFeatureSet& set) {
    Json json;
    to_json(json, set);
    return json.dump(2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    nrq::ESCFeatureSet set;
    try {
        const Json json = Json::parse(std::string_view(reinterpret_cast<const char*>(data), size));
        from_json(FeatureSetPart(json), set);
    } catch (const std::exception&) {
        return 0;
    }
    UseFeatures(set);
    std::string first;
    nrq::ESCFeatureSet again;
    try {
        first = Write(set);
        from_json(Json::parse(first), again);
    } catch (const std::exception&) {
        // Text that is not UTF-8 can't be written, and a number JSON can't
        // hold (an infinite frequency) is written as null.
        return 0;
    }
    if (Write(again) != first)
        __builtin_trap();
    return 0;
}
