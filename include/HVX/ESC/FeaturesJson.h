#pragma once

// The JSON form of features and feature sets. Kept apart from Features.h so
// that only code that reads or writes JSON needs nlohmann/json.
#include "HVX/ESC/Features.h"

#include <nlohmann/json.hpp>

namespace nrq {

// Nil is null; every other value is an object with "type" and, for the
// alternatives with a payload, "value". An unknown "type" word raises Error.
void to_json(nlohmann::ordered_json& json, const ESCVariant& value);
void from_json(const nlohmann::ordered_json& json, ESCVariant& value);

void to_json(nlohmann::ordered_json& json, const SCPIDataBlockFormat& format);
void from_json(const nlohmann::ordered_json& json, SCPIDataBlockFormat& format);

// Writes only the keys that have content. Reading leaves missing keys at their
// defaults and takes "default_index"/"reset_index" only as the words "unset"
// and "auto": a numeric index is written but never read back.
void to_json(nlohmann::ordered_json& json, const ESCFeature& feature);
void from_json(const nlohmann::ordered_json& json, ESCFeature& feature);

void to_json(nlohmann::ordered_json& json, const ESCFeatureSet& set);
void from_json(const nlohmann::ordered_json& json, ESCFeatureSet& set);

} // namespace nrq
