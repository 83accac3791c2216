#include "HVX/Base/Error.h"
#include "HVX/ESC/FeaturesJson.h"

#include <gtest/gtest.h>

#include <limits>
#include <regex>
#include <string>

namespace nrq {
namespace {

using Json = nlohmann::ordered_json;
using Type = ESCFeatureType;
using Behavior = ESCFeatureSetBehavior;
using Default = ESCFeatureDefault;

std::string Compact(const ESCVariant& value) {
    Json json;
    to_json(json, value);
    return json.dump();
}

std::string Compact(const ESCFeature& feature) {
    Json json;
    to_json(json, feature);
    return json.dump();
}

ESCVariant ValueFrom(std::string_view text) {
    ESCVariant value = int64_t{99};
    from_json(Json::parse(text), value);
    return value;
}

ESCFeature FeatureFrom(std::string_view text) {
    ESCFeature feature;
    from_json(Json::parse(text), feature);
    return feature;
}

ESCFeatureSet SetFrom(std::string_view text) {
    ESCFeatureSet set;
    from_json(Json::parse(text), set);
    return set;
}

// The what() of an exception from reading; Error's line number is dropped.
std::string ReadError(std::string_view text) {
    try {
        SetFrom(text);
    } catch (const Error& error) {
        return std::regex_replace(error.what(), std::regex(R"(^\(\d+\) )"), "");
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

std::string FeatureReadError(std::string_view feature) {
    return ReadError(std::string(R"({"features": [)") + std::string(feature) + "]}");
}

ESCFeatureSet SampleSet() {
    ESCFeatureSet set;
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "Spectrum Analyzer";
    set.blockFormat = {SCPIDataBlockType::LengthPrefixedBinary, SCPIValueFormat::SwappedFloat32, -1};

    ESCFeature sweeping;
    sweeping.label = "Continuous Sweeping";
    sweeping.command = "INIT:CONT";
    sweeping.type = Type::SweepContinuous;
    sweeping.setBehavior = Behavior::Boolean;
    sweeping.defaultIndex = Default(0);
    sweeping.resetIndex = Default(1);
    sweeping.modes = 1;
    set.features.push_back(sweeping);

    ESCFeature level;
    level.label = "Reference Level";
    level.command = "RLEV {Setup_ReferenceLevel}";
    level.commandQuery = "RLEV?";
    level.commandAuto = "RLEV:AUTO {Setup_ReferenceLevel_Auto}";
    level.commandAutoQuery = "RLEV:AUTO?";
    level.variableName = "Setup_ReferenceLevel";
    level.variableAutoName = "Setup_ReferenceLevel_Auto";
    level.type = Type::Setup;
    level.setBehavior = Behavior::ProvidedOnly;
    level.unset = ESCFeatureUnsetRule::Warn;
    level.defaultIndex = Default::Auto;
    level.resetIndex = Default::Unset;
    level.values = {DecibelMilliwatts(-30.0f), 0.5,           int64_t{7},         Frequency(1e8),
                    ESCString(std::string_view("a\"b")),         ESCFeatureAuto{}, ESCFeatureUnset{}, Nil{}};
    level.modes = 0;
    set.features.push_back(level);
    return set;
}

TEST(ESCFeatureSetJson, ValuesAsJson) {
    EXPECT_EQ(Compact(Nil{}), "null");
    EXPECT_EQ(Compact(int64_t{-5}), R"({"type":"integer","value":-5})");
    EXPECT_EQ(Compact(2.5), R"({"type":"float","value":2.5})");
    EXPECT_EQ(Compact(DecibelMilliwatts(-30.0f)), R"({"type":"amplitude","value":-30.0})");
    EXPECT_EQ(Compact(Frequency(700e6)), R"({"type":"frequency","value":700000000.0})");
    EXPECT_EQ(Compact(ESCString(std::string_view("FREQ"))), R"({"type":"string","value":"FREQ"})");
    EXPECT_EQ(Compact(ESCFeatureAuto{}), R"({"type":"automatic"})");
    EXPECT_EQ(Compact(ESCFeatureUnset{}), R"({"type":"unset"})");
}

TEST(ESCFeatureSetJson, ValuesFromJson) {
    EXPECT_EQ(ValueFrom("null"), ESCVariant(Nil{}));
    EXPECT_EQ(ValueFrom(R"({"type":"integer","value":-5})"), ESCVariant(int64_t{-5}));
    EXPECT_EQ(ValueFrom(R"({"type":"float","value":2})"), ESCVariant(2.0));
    EXPECT_EQ(ValueFrom(R"({"type":"amplitude","value":-30.5})"), ESCVariant(DecibelMilliwatts(-30.5f)));
    EXPECT_EQ(ValueFrom(R"({"type":"frequency","value":1e6})"), ESCVariant(Frequency(1e6)));
    EXPECT_EQ(ValueFrom(R"({"type":"string","value":"x y"})"), ESCVariant(ESCString(std::string_view("x y"))));
    EXPECT_EQ(ValueFrom(R"({"type":"automatic"})"), ESCVariant(ESCFeatureAuto{}));
    EXPECT_EQ(ValueFrom(R"({"type":"unset","value":3})"), ESCVariant(ESCFeatureUnset{}));
}

TEST(ESCFeatureSetJson, AnUnknownValueTypeRaises) {
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "complex", "value": 1}]})"),
              "unknown variant type \"complex\"");
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "Integer", "value": 1}]})"),
              "unknown variant type \"Integer\"");
}

TEST(ESCFeatureSetJson, MalformedValuesRaiseTypeErrors) {
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "integer", "value": "1"}]})"),
              "[json.exception.type_error.302] type must be number, but is string");
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "string", "value": 1}]})"),
              "[json.exception.type_error.302] type must be string, but is number");
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": 4}]})"),
              "[json.exception.type_error.302] type must be string, but is number");
    EXPECT_EQ(FeatureReadError(R"({"values": [{"value": 4}]})"),
              "[json.exception.out_of_range.403] key 'type' not found");
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "float"}]})"),
              "[json.exception.out_of_range.403] key 'value' not found");
    EXPECT_EQ(FeatureReadError(R"({"values": [5]})"), "[json.exception.type_error.302] type must be object, but is number");
    EXPECT_EQ(FeatureReadError(R"({"values": {"type": "unset"}})"),
              "[json.exception.type_error.302] type must be array, but is object");
}

TEST(ESCFeatureSetJson, NumbersBeyondTheirFieldRaise) {
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "integer", "value": 9223372036854775808}]})"),
              "number 9223372036854775808 is out of range");
    EXPECT_EQ(FeatureReadError(R"({"values": [{"type": "integer", "value": 1e300}]})"),
              "number 1e+300 is out of range");
    EXPECT_EQ(ReadError(R"({"block_format": {"additional_characters": 2147483648}})"),
              "number 2147483648 is out of range");
    EXPECT_EQ(ValueFrom(R"({"type":"integer","value":-9223372036854775808})"),
              ESCVariant(std::numeric_limits<int64_t>::min()));
    EXPECT_EQ(ValueFrom(R"({"type":"amplitude","value":1e300})"),
              ESCVariant(DecibelMilliwatts(std::numeric_limits<float>::infinity())));
}

TEST(ESCFeatureSetJson, FeatureWritesOnlyKeysWithContent) {
    EXPECT_EQ(Compact(ESCFeature{}), "{}");
    ESCFeature feature;
    feature.label = "Single Sweep";
    feature.command = "INIT";
    feature.type = Type::SweepInit;
    feature.modes = -1;
    EXPECT_EQ(Compact(feature), R"({"label":"Single Sweep","command":"INIT","type":"sweep_init","modes":"all"})");
}

TEST(ESCFeatureSetJson, EnumerationWords) {
    const std::vector<std::pair<Type, std::string>> types = {
        {Type::DiscoveryOnly, "discovery_only"}, {Type::Setup, "setup"},
        {Type::Mode, "mode"},                    {Type::SweepPoints, "sweep_points"},
        {Type::FrequencyCenter, "frequency_center"}, {Type::FrequencySpan, "frequency_span"},
        {Type::ByteOrder, "byte_order"},         {Type::PowerUnit, "power_unit"},
        {Type::SweepContinuous, "sweep_continuous"}, {Type::SweepInit, "sweep_init"},
        {Type::FetchData, "fetch_data"}};
    for (const auto& [type, word] : types) {
        ESCFeature feature;
        feature.type = type;
        EXPECT_EQ(Compact(feature), R"({"type":")" + word + R"("})");
        EXPECT_EQ(FeatureFrom(R"({"type":")" + word + R"("})").type, type);
    }
    const std::vector<std::pair<Behavior, std::string>> behaviors = {
        {Behavior::Normal, "normal"}, {Behavior::ProvidedOnly, "provided_only"},
        {Behavior::ReadOnly, "read_only"}, {Behavior::Boolean, "boolean"}};
    for (const auto& [behavior, word] : behaviors) {
        ESCFeature feature;
        feature.setBehavior = behavior;
        EXPECT_EQ(Compact(feature), R"({"set_behavior":")" + word + R"("})");
        EXPECT_EQ(FeatureFrom(R"({"set_behavior":")" + word + R"("})").setBehavior, behavior);
    }
    const std::vector<std::pair<ESCFeatureUnsetRule, std::string>> rules = {
        {ESCFeatureUnsetRule::Allow, "allow"}, {ESCFeatureUnsetRule::Disallow, "disallow"},
        {ESCFeatureUnsetRule::Warn, "warn"}};
    for (const auto& [rule, word] : rules) {
        ESCFeature feature;
        feature.unset = rule;
        EXPECT_EQ(Compact(feature), R"({"unset":")" + word + R"("})");
        EXPECT_EQ(FeatureFrom(R"({"unset":")" + word + R"("})").unset, rule);
    }
}

TEST(ESCFeatureSetJson, AnUnknownWordLeavesTheDefault) {
    const ESCFeature feature =
        FeatureFrom(R"({"type":"Setup","set_behavior":"bool","unset":"","default_index":"none","modes":"some"})");
    EXPECT_EQ(feature, ESCFeature{});
    const ESCFeatureSet set =
        SetFrom(R"({"mode_names":{"spa":"x"},"block_format":{"type":"hex","value_format":"float16"}})");
    EXPECT_EQ(set, ESCFeatureSet{});
}

TEST(ESCFeatureSetJson, DefaultIndicesAreReadOnlyAsWords) {
    ESCFeature feature;
    feature.defaultIndex = Default(2);
    feature.resetIndex = Default(0);
    EXPECT_EQ(Compact(feature), R"({"default_index":2,"reset_index":0})");
    const ESCFeature numeric = FeatureFrom(R"({"default_index":2,"reset_index":0})");
    EXPECT_EQ(numeric.defaultIndex, Default::None);
    EXPECT_EQ(numeric.resetIndex, Default::None);

    feature.defaultIndex = Default::Unset;
    feature.resetIndex = Default::Auto;
    EXPECT_EQ(Compact(feature), R"({"default_index":"unset","reset_index":"auto"})");
    const ESCFeature words = FeatureFrom(R"({"default_index":"unset","reset_index":"auto"})");
    EXPECT_EQ(words.defaultIndex, Default::Unset);
    EXPECT_EQ(words.resetIndex, Default::Auto);
}

TEST(ESCFeatureSetJson, AModesMaskWithoutBitZeroWritesNoKeyAndReadsBackAsZero) {
    ESCFeature feature;
    feature.label = "x";
    feature.modes = 2;
    EXPECT_EQ(Compact(feature), R"({"label":"x"})");
    feature.modes = 0x7ffffffe;
    EXPECT_EQ(Compact(feature), R"({"label":"x"})");
    EXPECT_EQ(FeatureFrom(R"({"label":"x"})").modes, 0);
}

TEST(ESCFeatureSetJson, ModesAreAllOrAListOfWords) {
    ESCFeature feature;
    feature.modes = 1;
    EXPECT_EQ(Compact(feature), R"({"modes":"all"})");
    EXPECT_EQ(FeatureFrom(R"({"modes":"all"})").modes, -1);
    EXPECT_EQ(FeatureFrom(R"({"modes":["sa"]})").modes, 1);
    EXPECT_EQ(FeatureFrom(R"({"modes":["xx","sa"]})").modes, 1);
    EXPECT_EQ(FeatureFrom(R"({"modes":[]})").modes, 0);
    EXPECT_EQ(FeatureReadError(R"({"modes":5})"), "[json.exception.type_error.302] type must be array, but is number");
    EXPECT_EQ(FeatureReadError(R"({"modes":[1]})"),
              "[json.exception.type_error.302] type must be string, but is number");
}

TEST(ESCFeatureSetJson, BlockFormat) {
    const std::vector<std::pair<SCPIDataBlockFormat, std::string>> cases = {
        {{}, R"({"type":"unknown","additional_characters":-1})"},
        {{SCPIDataBlockType::LengthPrefixedBinary, SCPIValueFormat::NativeFloat32, -1},
         R"({"type":"length_prefixed_binary","additional_characters":-1,"value_format":"native_float32"})"},
        {{SCPIDataBlockType::UnprefixedBinary, SCPIValueFormat::SwappedFloat32, 2},
         R"({"type":"unprefixed_binary","additional_characters":2,"value_format":"swapped_float32"})"},
        {{SCPIDataBlockType::Ascii, SCPIValueFormat::NativeFloat64, 0},
         R"({"type":"ascii","additional_characters":0,"value_format":"native_float64"})"},
        {{SCPIDataBlockType::Ascii, SCPIValueFormat::SwappedFloat64, 0},
         R"({"type":"ascii","additional_characters":0,"value_format":"swapped_float64"})"},
    };
    for (const auto& [format, text] : cases) {
        Json json;
        to_json(json, format);
        EXPECT_EQ(json.dump(), text);
        SCPIDataBlockFormat back;
        from_json(Json::parse(text), back);
        EXPECT_EQ(back, format) << text;
    }
}

// Worked out by hand from the feature-set form: keys in field order, words
// for enumerations, numbers for non-negative indices, two blanks of indent.
constexpr std::string_view sampleSetText = R"({
  "version": 1,
  "mode_names": {
    "sa": "Spectrum Analyzer"
  },
  "block_format": {
    "type": "length_prefixed_binary",
    "additional_characters": -1,
    "value_format": "swapped_float32"
  },
  "features": [
    {
      "label": "Continuous Sweeping",
      "command": "INIT:CONT",
      "type": "sweep_continuous",
      "set_behavior": "boolean",
      "default_index": 0,
      "reset_index": 1,
      "modes": "all"
    },
    {
      "label": "Reference Level",
      "command": "RLEV {Setup_ReferenceLevel}",
      "command_query": "RLEV?",
      "command_auto": "RLEV:AUTO {Setup_ReferenceLevel_Auto}",
      "command_auto_query": "RLEV:AUTO?",
      "variable_name": "Setup_ReferenceLevel",
      "variable_auto_name": "Setup_ReferenceLevel_Auto",
      "type": "setup",
      "set_behavior": "provided_only",
      "unset": "warn",
      "default_index": "auto",
      "reset_index": "unset",
      "values": [
        {
          "type": "amplitude",
          "value": -30.0
        },
        {
          "type": "float",
          "value": 0.5
        },
        {
          "type": "integer",
          "value": 7
        },
        {
          "type": "frequency",
          "value": 100000000.0
        },
        {
          "type": "string",
          "value": "a\"b"
        },
        {
          "type": "automatic"
        },
        {
          "type": "unset"
        },
        null
      ]
    }
  ]
})";

TEST(ESCFeatureSetJson, SetAsText) {
    Json json;
    to_json(json, SampleSet());
    EXPECT_EQ(json.dump(2), sampleSetText);
}

TEST(ESCFeatureSetJson, EmptySetAsText) {
    Json json;
    to_json(json, ESCFeatureSet{});
    EXPECT_EQ(json.dump(),
              R"({"version":1,"mode_names":{},"block_format":{"type":"unknown","additional_characters":-1},)"
              R"("features":[]})");
}

TEST(ESCFeatureSetJson, ASetRoundTripsExceptForNumericIndices) {
    const ESCFeatureSet original = SampleSet();
    Json json;
    to_json(json, original);
    ESCFeatureSet back;
    from_json(Json::parse(json.dump()), back);

    ESCFeatureSet expected = original;
    // Numeric indices are not read back; a mask with bit 0 comes back as all modes.
    expected.features[0].defaultIndex = Default::None;
    expected.features[0].resetIndex = Default::None;
    expected.features[0].modes = -1;
    EXPECT_EQ(back, expected);
    EXPECT_NE(back, original);
}

TEST(ESCFeatureSetJson, TheBuiltInTableRoundTripsExceptForNumericIndices) {
    ESCFeatureSet set;
    set.features = GetBuiltInFeatures();
    Json json;
    to_json(json, set);
    ESCFeatureSet back;
    from_json(Json::parse(json.dump(2)), back);
    ASSERT_EQ(back.features.size(), 36u);
    for (size_t i = 0; i < 36; ++i) {
        ESCFeature expected = set.features[i];
        if (static_cast<int32_t>(expected.defaultIndex) >= 0)
            expected.defaultIndex = Default::None;
        if (static_cast<int32_t>(expected.resetIndex) >= 0)
            expected.resetIndex = Default::None;
        expected.modes = -1;
        EXPECT_EQ(back.features[i], expected) << i;
    }
}

TEST(ESCFeatureSetJson, MissingKeysLeaveDefaults) {
    EXPECT_EQ(SetFrom("{}"), ESCFeatureSet{});
    EXPECT_EQ(SetFrom(R"({"version": 1, "features": [{}]})").features, std::vector<ESCFeature>{ESCFeature{}});
    const ESCFeatureSet partial = SetFrom(R"({"block_format": {"value_format": "native_float32"}})");
    EXPECT_EQ(partial.blockFormat.type, SCPIDataBlockType::Unknown);
    EXPECT_EQ(partial.blockFormat.valueFormat, SCPIValueFormat::NativeFloat32);
    EXPECT_EQ(partial.blockFormat.additionalCharacters, -1);
}

TEST(ESCFeatureSetJson, WrongTypesRaiseTypeErrors) {
    EXPECT_EQ(ReadError("[]"), "[json.exception.type_error.302] type must be object, but is array");
    EXPECT_EQ(ReadError("1"), "[json.exception.type_error.302] type must be object, but is number");
    EXPECT_EQ(ReadError(R"({"features": {}})"), "[json.exception.type_error.302] type must be array, but is object");
    EXPECT_EQ(ReadError(R"({"features": ["x"]})"),
              "[json.exception.type_error.302] type must be object, but is string");
    EXPECT_EQ(ReadError(R"({"mode_names": ["sa"]})"),
              "[json.exception.type_error.302] type must be object, but is array");
    EXPECT_EQ(ReadError(R"({"mode_names": {"sa": 1}})"),
              "[json.exception.type_error.302] type must be string, but is number");
    EXPECT_EQ(ReadError(R"({"block_format": null})"),
              "[json.exception.type_error.302] type must be object, but is null");
    EXPECT_EQ(ReadError(R"({"block_format": {"type": 0}})"),
              "[json.exception.type_error.302] type must be string, but is number");
    EXPECT_EQ(ReadError(R"({"block_format": {"additional_characters": "2"}})"),
              "[json.exception.type_error.302] type must be number, but is string");
    EXPECT_EQ(FeatureReadError(R"({"label": 5})"), "[json.exception.type_error.302] type must be string, but is number");
    EXPECT_EQ(FeatureReadError(R"({"command_auto_query": true})"),
              "[json.exception.type_error.302] type must be string, but is boolean");
    EXPECT_EQ(FeatureReadError(R"({"type": null})"), "[json.exception.type_error.302] type must be string, but is null");
}

TEST(ESCFeatureSetJson, NonJsonTextFailsInTheParser) {
    EXPECT_THROW(Json::parse("{\"features\": ["), Json::parse_error);
    EXPECT_THROW(Json::parse("not json"), Json::parse_error);
}

} // namespace
} // namespace nrq
