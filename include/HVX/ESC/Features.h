#pragma once

#include "HVX/ESC/Variant.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// The role a feature plays in a sweep.
enum class ESCFeatureType : int32_t {
    None = -1,
    DiscoveryOnly = 0,
    Setup = 1,
    Mode = 2,
    SweepPoints = 3,
    FrequencyCenter = 4,
    FrequencySpan = 5,
    ByteOrder = 6,
    PowerUnit = 7,
    SweepContinuous = 8,
    SweepInit = 9,
    FetchData = 10,
};

// Which values may be set. Unspecified works like Normal.
enum class ESCFeatureSetBehavior : int32_t {
    Unspecified = -1,
    Normal = 0,       // any value of the value's type; the list holds a sample
    ProvidedOnly = 1, // just the listed values
    ReadOnly = 2,     // no values, the feature only reads
    Boolean = 3,      // the shared integers 0 and 1, not the feature's own list
};

// Whether a setting may stay unset.
enum class ESCFeatureUnsetRule : int32_t {
    Unspecified = -1,
    Allow = 0,
    Disallow = 1,
    Warn = 2,
};

// An index into a feature's values, or one of the negative markers.
enum class ESCFeatureDefault : int32_t {
    Auto = -3,
    Unset = -2,
    None = -1,
};

enum class ESCDeviceModeIndex : int32_t {
    SpectrumAnalyzer = 0,
};

// Bit n of a feature's modes stands for ESCDeviceModeIndex n.
inline constexpr int32_t ESCAllDeviceModes = -1;

enum class SCPIDataBlockType : int32_t {
    Unknown = -1,
    LengthPrefixedBinary = 0,
    UnprefixedBinary = 1,
    Ascii = 2,
};

enum class SCPIValueFormat : uint8_t {
    NativeFloat32 = 0,
    SwappedFloat32 = 1,
    NativeFloat64 = 2,
    SwappedFloat64 = 3,
    Unknown = 255,
};

// How an instrument frames and codes its trace data.
struct SCPIDataBlockFormat {
    SCPIDataBlockType type = SCPIDataBlockType::Unknown;
    SCPIValueFormat valueFormat = SCPIValueFormat::Unknown;
    // Bytes that follow the block; -1 means the block ends with a line feed.
    int32_t additionalCharacters = -1;

    bool operator==(const SCPIDataBlockFormat&) const = default;
};

// One thing an SCPI instrument can do, told as S1 scripts and values.
struct ESCFeature {
    std::string label;
    std::string command;
    std::string commandQuery;
    std::string commandAuto;
    std::string commandAutoQuery;
    std::string variableName;
    std::string variableAutoName;
    ESCFeatureType type = ESCFeatureType::None;
    ESCFeatureSetBehavior setBehavior = ESCFeatureSetBehavior::Unspecified;
    ESCFeatureUnsetRule unset = ESCFeatureUnsetRule::Unspecified;
    ESCFeatureDefault defaultIndex = ESCFeatureDefault::None;
    ESCFeatureDefault resetIndex = ESCFeatureDefault::None;
    // The first value's type is the feature's type of value.
    std::vector<ESCVariant> values;
    int32_t modes = 0;

    bool operator==(const ESCFeature&) const = default;
};

// What an instrument was found to do: its own names of its modes, the
// features that work and the framing of its trace data.
struct ESCFeatureSet {
    std::map<ESCDeviceModeIndex, std::string> modeNames;
    std::vector<ESCFeature> features;
    SCPIDataBlockFormat blockFormat;

    bool operator==(const ESCFeatureSet&) const = default;
};

// The candidates that discovery tries, in order; built once.
const std::vector<ESCFeature>& GetBuiltInFeatures();

// The shared 0 and 1 for Boolean, nothing for ReadOnly, else the feature's own.
std::span<const ESCVariant> GetFeatureValues(const ESCFeature& feature);
// Of the first value; Nil when there is none.
ESCVariantType GetFeatureValueType(const ESCFeature& feature);
bool DoesFeatureHaveParameters(const ESCFeature& feature);
// Auto or Unset for those markers, the value at the index, else the first value.
ESCVariant GetFeatureDefaultValue(const ESCFeature& feature);
// The value at the default index clamped to the list, markers included.
ESCVariant GetFeatureDefaultValueSet(const ESCFeature& feature);
// -1 for every negative marker.
int32_t FeatureDefaultToIndex(ESCFeatureDefault defaultIndex);

// The fixed script variable of a type; empty for None, DiscoveryOnly and Setup.
std::string_view GetFeatureTypeVariableName(ESCFeatureType type, bool isAuto);
// The feature's own name for DiscoveryOnly and Setup, else the type's.
std::string_view GetFeatureVariableName(const ESCFeature& feature, bool isAuto);
// A name for a feature that brings none: "Setup_ReferenceLevel" and the like.
std::string GenerateVariableName(const ESCFeature& feature, bool isAuto);

// "spectrum analyzer", or "unknown".
std::string_view ESCGetModeName(ESCDeviceModeIndex index);

} // namespace nrq
