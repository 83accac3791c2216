#pragma once

// The settings of an SCPI analyzer as a person reads and writes them on the
// command line: "LABEL=VALUE", values with their units, and the choices a
// stored feature set allows.

#include <HVX/ESC/Features.h>
#include <HVX/ESC/SCPI/State.h>

#include "SettingText.h"

#include <string>
#include <string_view>
#include <vector>

namespace halvex {

// The two keys of the range, which every SCPI analyzer takes.
inline constexpr std::string_view frequencyStartKey = "Frequency Start";
inline constexpr std::string_view frequencyStopKey = "Frequency Stop";

// What can be given for a setting: its kind, the listed values, auto and unset.
std::string ChoicesText(const nrq::ESCFeature& feature);

// The settings that a scan on this feature set takes, first feature of each label.
std::vector<const nrq::ESCFeature*> SettableFeatures(const nrq::ESCFeatureSet& set);

// "LABEL = VALUE  (CHOICES)" lines: the range first, then each setting.
std::string DescribeSettings(const nrq::ESCFeatureSet& set, const nrq::SCPIVariableMap& values);

// Reads `text` as a value for `feature`; throws UsageError naming the setting.
nrq::SCPIStoredValue ParseSettingValue(const nrq::ESCFeature& feature, std::string_view text);
// A frequency with an optional unit: "1e9", "100 kHz", "2.4GHz".
nrq::Frequency ParseFrequencyText(std::string_view label, std::string_view text);

// Applies "LABEL=VALUE" to the map; throws UsageError for an unknown label or value.
void ApplySetting(const nrq::ESCFeatureSet& set, nrq::SCPIVariableMap& values, std::string_view assignment);

} // namespace halvex
