#include "HVX/ESC/Features.h"
#include "HVX/ESC/Interpreter.h"

#include <gtest/gtest.h>

#include <span>
#include <tuple>
#include <vector>

namespace nrq {
namespace {

using Type = ESCFeatureType;
using Behavior = ESCFeatureSetBehavior;
using Default = ESCFeatureDefault;

ESCFeature SetupFeature(std::string_view label, std::vector<ESCVariant> values, Behavior behavior = Behavior::Normal) {
    ESCFeature feature;
    feature.label = label;
    feature.command = "CMD";
    feature.type = Type::Setup;
    feature.setBehavior = behavior;
    feature.values = std::move(values);
    return feature;
}

ESCFeature BooleanFeature(Default defaultIndex, Default resetIndex) {
    ESCFeature feature = SetupFeature("Continuous Sweeping", {}, Behavior::Boolean);
    feature.type = Type::SweepContinuous;
    feature.defaultIndex = defaultIndex;
    feature.resetIndex = resetIndex;
    return feature;
}

std::vector<ESCVariant> Values(std::span<const ESCVariant> values) {
    return {values.begin(), values.end()};
}

TEST(ESCFeature, DefaultsAreTheNoneMarkers) {
    const ESCFeature feature;
    EXPECT_EQ(feature.type, Type::None);
    EXPECT_EQ(static_cast<int32_t>(feature.type), -1);
    EXPECT_EQ(static_cast<int32_t>(feature.setBehavior), -1);
    EXPECT_EQ(static_cast<int32_t>(feature.unset), -1);
    EXPECT_EQ(static_cast<int32_t>(feature.defaultIndex), -1);
    EXPECT_EQ(static_cast<int32_t>(feature.resetIndex), -1);
    EXPECT_TRUE(feature.values.empty());
    EXPECT_EQ(feature.modes, 0);
}

TEST(ESCFeature, EnumerationNumbers) {
    EXPECT_EQ(static_cast<int32_t>(Type::DiscoveryOnly), 0);
    EXPECT_EQ(static_cast<int32_t>(Type::Setup), 1);
    EXPECT_EQ(static_cast<int32_t>(Type::Mode), 2);
    EXPECT_EQ(static_cast<int32_t>(Type::SweepPoints), 3);
    EXPECT_EQ(static_cast<int32_t>(Type::FrequencyCenter), 4);
    EXPECT_EQ(static_cast<int32_t>(Type::FrequencySpan), 5);
    EXPECT_EQ(static_cast<int32_t>(Type::ByteOrder), 6);
    EXPECT_EQ(static_cast<int32_t>(Type::PowerUnit), 7);
    EXPECT_EQ(static_cast<int32_t>(Type::SweepContinuous), 8);
    EXPECT_EQ(static_cast<int32_t>(Type::SweepInit), 9);
    EXPECT_EQ(static_cast<int32_t>(Type::FetchData), 10);
    EXPECT_EQ(static_cast<int32_t>(Behavior::Normal), 0);
    EXPECT_EQ(static_cast<int32_t>(Behavior::ProvidedOnly), 1);
    EXPECT_EQ(static_cast<int32_t>(Behavior::ReadOnly), 2);
    EXPECT_EQ(static_cast<int32_t>(Behavior::Boolean), 3);
    EXPECT_EQ(static_cast<int32_t>(ESCFeatureUnsetRule::Allow), 0);
    EXPECT_EQ(static_cast<int32_t>(ESCFeatureUnsetRule::Disallow), 1);
    EXPECT_EQ(static_cast<int32_t>(ESCFeatureUnsetRule::Warn), 2);
    EXPECT_EQ(static_cast<int32_t>(Default::Unset), -2);
    EXPECT_EQ(static_cast<int32_t>(Default::Auto), -3);
    EXPECT_EQ(static_cast<int32_t>(ESCDeviceModeIndex::SpectrumAnalyzer), 0);
    EXPECT_EQ(sizeof(ESCFeatureType), 4u);
    EXPECT_EQ(sizeof(SCPIValueFormat), 1u);
}

TEST(ESCFeature, BlockFormatStartsUnknown) {
    const SCPIDataBlockFormat format;
    EXPECT_EQ(static_cast<int32_t>(format.type), -1);
    EXPECT_EQ(static_cast<int>(format.valueFormat), 255);
    EXPECT_EQ(format.additionalCharacters, -1);
    EXPECT_EQ(static_cast<int32_t>(SCPIDataBlockType::Ascii), 2);
    EXPECT_EQ(static_cast<int>(SCPIValueFormat::SwappedFloat64), 3);
}

TEST(ESCFeature, ModeNames) {
    EXPECT_EQ(ESCGetModeName(ESCDeviceModeIndex::SpectrumAnalyzer), "spectrum analyzer");
    EXPECT_EQ(ESCGetModeName(static_cast<ESCDeviceModeIndex>(1)), "unknown");
    EXPECT_EQ(ESCGetModeName(static_cast<ESCDeviceModeIndex>(-1)), "unknown");
}

TEST(ESCFeature, ValuesOfABooleanAreTheSharedZeroAndOne) {
    const ESCFeature a = SetupFeature("A", {int64_t{1}}, Behavior::Boolean);
    const ESCFeature b = SetupFeature("B", {}, Behavior::Boolean);
    const auto valuesA = GetFeatureValues(a);
    const auto valuesB = GetFeatureValues(b);
    EXPECT_EQ(Values(valuesA), (std::vector<ESCVariant>{int64_t{0}, int64_t{1}}));
    // Held once for all features, not in the feature.
    EXPECT_EQ(valuesA.data(), valuesB.data());
    EXPECT_NE(valuesA.data(), a.values.data());
    EXPECT_EQ(GetFeatureValueType(b), ESCVariantType::Integer);
}

TEST(ESCFeature, ValuesOfAReadOnlyFeatureAreEmpty) {
    const ESCFeature feature = SetupFeature("A", {1.5}, Behavior::ReadOnly);
    EXPECT_TRUE(GetFeatureValues(feature).empty());
    EXPECT_EQ(GetFeatureValueType(feature), ESCVariantType::Nil);
    EXPECT_FALSE(DoesFeatureHaveParameters(feature));
}

TEST(ESCFeature, ValuesOfOtherBehavioursAreTheFeaturesOwn) {
    for (Behavior behavior : {Behavior::Unspecified, Behavior::Normal, Behavior::ProvidedOnly}) {
        const ESCFeature feature = SetupFeature("A", {Frequency(5.0), int64_t{2}}, behavior);
        EXPECT_EQ(GetFeatureValues(feature).data(), feature.values.data());
        EXPECT_EQ(GetFeatureValues(feature).size(), 2u);
        EXPECT_EQ(GetFeatureValueType(feature), ESCVariantType::Frequency);
    }
    EXPECT_EQ(GetFeatureValueType(SetupFeature("A", {})), ESCVariantType::Nil);
    EXPECT_EQ(GetFeatureValueType(SetupFeature("A", {ESCString(std::string_view("x"))})), ESCVariantType::String);
}

TEST(ESCFeature, AFeatureWithOnlyAQueryHasNoParameters) {
    ESCFeature feature = SetupFeature("Sweep Time", {int64_t{1}});
    EXPECT_TRUE(DoesFeatureHaveParameters(feature));
    feature.command.clear();
    feature.commandQuery = "SWE:TIME?";
    EXPECT_FALSE(DoesFeatureHaveParameters(feature));
    EXPECT_TRUE(ESCIsNil(GetFeatureDefaultValue(feature)));
    EXPECT_TRUE(ESCIsNil(GetFeatureDefaultValueSet(feature)));
}

TEST(ESCFeature, ParametersNeedATypeAndAFirstValueThatIsNotNil) {
    ESCFeature feature = SetupFeature("A", {int64_t{1}});
    feature.type = Type::None;
    EXPECT_FALSE(DoesFeatureHaveParameters(feature));
    EXPECT_FALSE(DoesFeatureHaveParameters(SetupFeature("A", {})));
    EXPECT_FALSE(DoesFeatureHaveParameters(SetupFeature("A", {Nil{}, int64_t{1}})));
    EXPECT_TRUE(DoesFeatureHaveParameters(SetupFeature("A", {int64_t{1}, Nil{}})));
    // A boolean has its shared values even with an empty list of its own.
    EXPECT_TRUE(DoesFeatureHaveParameters(SetupFeature("A", {}, Behavior::Boolean)));
}

TEST(ESCFeature, DefaultOfABooleanFeature) {
    const ESCFeature feature = BooleanFeature(Default(0), Default(1));
    EXPECT_EQ(GetFeatureDefaultValue(feature), ESCVariant(int64_t{0}));
    ESCFeature reset = feature;
    reset.defaultIndex = reset.resetIndex;
    EXPECT_EQ(GetFeatureDefaultValue(reset), ESCVariant(int64_t{1}));
}

TEST(ESCFeature, DefaultValueSetClampsWhileDefaultValueKeepsTheMarkers) {
    ESCFeature feature = SetupFeature("Sweep Points", {int64_t{1001}, int64_t{2001}});
    feature.defaultIndex = Default::Unset;
    EXPECT_EQ(GetFeatureDefaultValueSet(feature), ESCVariant(int64_t{1001}));
    EXPECT_EQ(GetFeatureDefaultValue(feature), ESCVariant(ESCFeatureUnset{}));
    feature.defaultIndex = Default::Auto;
    EXPECT_EQ(GetFeatureDefaultValueSet(feature), ESCVariant(int64_t{1001}));
    EXPECT_EQ(GetFeatureDefaultValue(feature), ESCVariant(ESCFeatureAuto{}));
    feature.defaultIndex = Default(1);
    EXPECT_EQ(GetFeatureDefaultValueSet(feature), ESCVariant(int64_t{2001}));
    EXPECT_EQ(GetFeatureDefaultValue(feature), ESCVariant(int64_t{2001}));
    // Beyond the list: the set form takes the last, the plain form the first.
    feature.defaultIndex = Default(7);
    EXPECT_EQ(GetFeatureDefaultValueSet(feature), ESCVariant(int64_t{2001}));
    EXPECT_EQ(GetFeatureDefaultValue(feature), ESCVariant(int64_t{1001}));
    feature.defaultIndex = Default::None;
    EXPECT_EQ(GetFeatureDefaultValueSet(feature), ESCVariant(int64_t{1001}));
    EXPECT_EQ(GetFeatureDefaultValue(feature), ESCVariant(int64_t{1001}));
}

TEST(ESCFeature, DefaultIndexToIndex) {
    EXPECT_EQ(FeatureDefaultToIndex(Default::None), -1);
    EXPECT_EQ(FeatureDefaultToIndex(Default::Unset), -1);
    EXPECT_EQ(FeatureDefaultToIndex(Default::Auto), -1);
    EXPECT_EQ(FeatureDefaultToIndex(Default(-9)), -1);
    EXPECT_EQ(FeatureDefaultToIndex(Default(0)), 0);
    EXPECT_EQ(FeatureDefaultToIndex(Default(5)), 5);
}

TEST(ESCFeature, TypeVariableNames) {
    const std::vector<std::tuple<Type, std::string_view, std::string_view>> rows = {
        {Type::None, "", ""},
        {Type::DiscoveryOnly, "", ""},
        {Type::Setup, "", ""},
        {Type::Mode, "", ""},
        {Type::SweepPoints, "SweepPoints", "SweepPoints_Auto"},
        {Type::FrequencyCenter, "FrequencyCenter", "FrequencyCenter_Auto"},
        {Type::FrequencySpan, "FrequencySpan", "FrequencySpan_Auto"},
        {Type::ByteOrder, "", ""},
        {Type::PowerUnit, "PowerUnit", "PowerUnit_Auto"},
        {Type::SweepContinuous, "SweepContinuous", "SweepContinuous_Auto"},
        {Type::SweepInit, "", ""},
        {Type::FetchData, "", ""},
        {Type(11), "", ""},
    };
    for (const auto& [type, name, autoName] : rows) {
        EXPECT_EQ(GetFeatureTypeVariableName(type, false), name) << static_cast<int>(type);
        EXPECT_EQ(GetFeatureTypeVariableName(type, true), autoName) << static_cast<int>(type);
    }
}

TEST(ESCFeature, VariableNameComesFromTheFeatureForDiscoveryAndSetup) {
    ESCFeature feature = SetupFeature("RBW", {Frequency(1e5)});
    feature.variableName = "Own";
    feature.variableAutoName = "Own_Auto";
    EXPECT_EQ(GetFeatureVariableName(feature, false), "Own");
    EXPECT_EQ(GetFeatureVariableName(feature, true), "Own_Auto");
    feature.type = Type::DiscoveryOnly;
    EXPECT_EQ(GetFeatureVariableName(feature, false), "Own");
    feature.type = Type::FrequencyCenter;
    EXPECT_EQ(GetFeatureVariableName(feature, false), "FrequencyCenter");
    EXPECT_EQ(GetFeatureVariableName(feature, true), "FrequencyCenter_Auto");
    feature.type = Type::Mode;
    EXPECT_EQ(GetFeatureVariableName(feature, false), "");
    feature.type = Type::None;
    EXPECT_EQ(GetFeatureVariableName(feature, false), "");
    EXPECT_EQ(GetFeatureVariableName(feature, true), "");
}

TEST(ESCFeature, GeneratedNamesOfSetupFeaturesTakeTheLabel) {
    const ESCFeature feature = SetupFeature("Reference Level", {DecibelMilliwatts(-30.0f)});
    EXPECT_EQ(GenerateVariableName(feature, false), "Setup_ReferenceLevel");
    EXPECT_EQ(GenerateVariableName(feature, true), "Setup_ReferenceLevel_Auto");
    EXPECT_EQ(GenerateVariableName(SetupFeature("Low Noise Amplifier (LNA)", {}, Behavior::Boolean), false),
              "Setup_LowNoiseAmplifierLNA");
    EXPECT_EQ(GenerateVariableName(SetupFeature("Pre-Amplifier \xc3\xa4 2", {int64_t{1}}), false), "Setup_PreAmplifier2");
    ESCFeature discovery = feature;
    discovery.type = Type::DiscoveryOnly;
    EXPECT_EQ(GenerateVariableName(discovery, false), "Setup_ReferenceLevel");
}

TEST(ESCFeature, ALabelOfOnlyPunctuationGivesUnnamed) {
    EXPECT_EQ(GenerateVariableName(SetupFeature("(-) !", {int64_t{1}}), false), "Setup_Unnamed");
    EXPECT_EQ(GenerateVariableName(SetupFeature("", {int64_t{1}}), true), "Setup_Unnamed_Auto");
}

TEST(ESCFeature, GeneratedNamesOfOtherTypesAreTheTypesName) {
    ESCFeature feature = SetupFeature("Frequency Span", {Frequency(1e8)});
    feature.type = Type::FrequencySpan;
    EXPECT_EQ(GenerateVariableName(feature, false), "FrequencySpan");
    EXPECT_EQ(GenerateVariableName(feature, true), "FrequencySpan_Auto");
    feature.type = Type::Mode;
    EXPECT_EQ(GenerateVariableName(feature, false), "");
    feature.type = Type::FetchData;
    EXPECT_EQ(GenerateVariableName(feature, true), "");
}

TEST(ESCFeature, NoGeneratedNameWithoutAUsableValue) {
    ESCFeature feature = SetupFeature("RBW", {Frequency(1e5)});
    feature.type = Type::None;
    EXPECT_EQ(GenerateVariableName(feature, false), "");
    EXPECT_EQ(GenerateVariableName(SetupFeature("RBW", {Frequency(1e5)}, Behavior::ReadOnly), false), "");
    EXPECT_EQ(GenerateVariableName(SetupFeature("RBW", {}), false), "");
    EXPECT_EQ(GenerateVariableName(SetupFeature("RBW", {Nil{}}), false), "");
    // The command plays no part here.
    ESCFeature queryOnly = SetupFeature("RBW", {Frequency(1e5)});
    queryOnly.command.clear();
    EXPECT_EQ(GenerateVariableName(queryOnly, false), "Setup_RBW");
}

// The built-in table, row for row.
struct Row {
    std::string_view label;
    std::string_view command;
    std::string_view query;
    Type type;
    Behavior behavior;
    int32_t defaultIndex;
    int32_t resetIndex;
    std::vector<ESCVariant> values;
    int32_t modes;
};

std::vector<ESCVariant> Ints(std::initializer_list<int64_t> numbers) {
    return {numbers.begin(), numbers.end()};
}

const Behavior None = Behavior::Unspecified;

const std::vector<Row>& ExpectedRows() {
    static const std::vector<Row> rows = {
        {"(invalid)", "AAAAAAA", "", Type::DiscoveryOnly, None, -1, -1, {}, -1},
        {"Mute Errors", "SYST:AUD:VOL 0", "", Type::DiscoveryOnly, None, -1, -1, {}, -1},
        {"Mode", "INST SA", "", Type::Mode, None, -1, -1, {}, 1},
        {"Mode", "INST SAN", "", Type::Mode, None, -1, -1, {}, 1},
        {"Mode", "INST \"SA\"", "", Type::Mode, None, -1, -1, {}, 1},
        {"Mode", "INST SPA", "", Type::Mode, None, -1, -1, {}, 1},
        {"Mode", "INST GPSA", "", Type::Mode, None, -1, -1, {}, 1},
        {"Continuous Sweeping", "INIT:CONT", "", Type::SweepContinuous, Behavior::Boolean, 0, 1, {}, 1},
        {"Continuous Sweeping", "INIT1:CONT", "", Type::SweepContinuous, Behavior::Boolean, 0, 1, {}, 1},
        {"Single Sweep", "INIT", "", Type::SweepInit, None, -1, -1, {}, 1},
        {"Fetch Trace Data", "", "TRAC? trace1", Type::FetchData, None, -1, -1, {}, 1},
        {"Fetch Trace Data", "", "TRAC:DATA? trace1", Type::FetchData, None, -1, -1, {}, 1},
        {"Fetch Trace Data", "", "TRAC:DATA?", Type::FetchData, None, -1, -1, {}, 1},
        {"Fetch Trace Data", "", "TRAC:DATA? 1", Type::FetchData, None, -1, -1, {}, 1},
        {"Attenuation", "POW:RF:ATT", "", Type::Setup, Behavior::Normal, -1, -1, Ints({0, 10, 20, 30}), 1},
        {"Attenuation", "INP:ATT", "", Type::Setup, Behavior::Normal, -1, -1,
         Ints({0, 10, 20, 30, 40, 50, 60, 70}), 1},
        {"Pre-Amplifier", "POW:GAIN", "", Type::Setup, Behavior::Boolean, -1, -1, Ints({1}), 1},
        {"Low Noise Amplifier (LNA)", "INP:GAIN:LNA:STAT", "", Type::Setup, Behavior::Boolean, -1, -1, Ints({1}), 1},
        {"Pre-Amplifier", "INP:GAIN:VAL", "", Type::Setup, Behavior::Boolean, -1, -1, Ints({1}), 1},
        {"Pre-Amplifier", "SENS:POW:RF:GAIN:STAT", "", Type::Setup, Behavior::Boolean, -1, -1, Ints({1}), 1},
        {"Sweep Points", "SWE:POIN", "", Type::SweepPoints, None, -2, -1, Ints({1001}), 1},
        {"Sweep Points", "DISP:POIN", "", Type::SweepPoints, None, -2, -1, Ints({1001}), 1},
        {"Frequency Span", "FREQ:SPAN", "", Type::FrequencySpan, None, -1, -1, {Frequency(100e6)}, 1},
        {"Frequency Center", "FREQ:CENT", "", Type::FrequencyCenter, None, -1, -1, {Frequency(700e6)}, 1},
        {"RBW", "BAND", "", Type::Setup, None, -1, -1, {Frequency(100e3)}, 1},
        {"VBW", "BAND:VID", "", Type::Setup, None, -3, -1, {Frequency(100e3)}, 1},
        {"Reference Level", "DISP:WIND:TRAC:Y:RLEV", "", Type::Setup, None, -1, -1,
         {DecibelMilliwatts(-30.0f), DecibelMilliwatts(10.0f)}, 1},
        {"Power Unit (dBm)", "UNIT:POW DBM", "", Type::Setup, None, -1, -1, {}, 1},
        {"Power Unit (dBm)", "AMPL:UNIT DBM", "", Type::Setup, None, -1, -1, {}, 1},
        {"Data Format", "FORMAT:DATA REAL,32", "", Type::Setup, None, -1, -1, {}, 1},
        {"Data Format", "FORMAT:DATA REAL, 32", "", Type::Setup, None, -1, -1, {}, 1},
        {"Data Format", "FORMAT:DATA REAL", "", Type::Setup, None, -1, -1, {}, 1},
        {"Data Byte Order (Device Native)", "FORMAT:BORD NORM", "", Type::ByteOrder, None, -1, -1, {}, 1},
        {"Data Byte Order (Device Swapped)", "FORMAT:BORD SWAP", "", Type::ByteOrder, None, -1, -1, {}, 1},
        {"Enable Display", "DISP:ENAB", "", Type::Setup, Behavior::Boolean, -1, 0, Ints({0}), 1},
        {"Sweep Time", "SWE:TIME", "", Type::Setup, Behavior::Normal, -3, -1, Ints({0, 1, 2, 3}), 1},
    };
    return rows;
}

TEST(ESCFeature, BuiltInTableRowForRow) {
    const auto& features = GetBuiltInFeatures();
    const auto& rows = ExpectedRows();
    ASSERT_EQ(features.size(), 36u);
    ASSERT_EQ(rows.size(), 36u);
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        const ESCFeature& feature = features[i];
        const Row& row = rows[i];
        EXPECT_EQ(feature.label, row.label);
        EXPECT_EQ(feature.command, row.command);
        EXPECT_EQ(feature.commandQuery, row.query);
        EXPECT_EQ(feature.commandAuto, "");
        EXPECT_EQ(feature.commandAutoQuery, "");
        EXPECT_EQ(feature.variableName, "");
        EXPECT_EQ(feature.variableAutoName, "");
        EXPECT_EQ(feature.type, row.type);
        EXPECT_EQ(feature.setBehavior, row.behavior);
        EXPECT_EQ(feature.unset, ESCFeatureUnsetRule::Unspecified);
        EXPECT_EQ(static_cast<int32_t>(feature.defaultIndex), row.defaultIndex);
        EXPECT_EQ(static_cast<int32_t>(feature.resetIndex), row.resetIndex);
        EXPECT_EQ(feature.values, row.values);
        EXPECT_EQ(feature.modes, row.modes);
    }
}

TEST(ESCFeature, BuiltInTableIsOneConstantVector) {
    EXPECT_EQ(&GetBuiltInFeatures(), &GetBuiltInFeatures());
    // No candidate is a power unit: the two dBm rows are setup features.
    for (const ESCFeature& feature : GetBuiltInFeatures())
        EXPECT_NE(feature.type, Type::PowerUnit) << feature.label;
}

TEST(ESCFeature, BuiltInScriptsAreTextThatPrintsItself) {
    for (const ESCFeature& feature : GetBuiltInFeatures()) {
        const std::string& script = feature.command.empty() ? feature.commandQuery : feature.command;
        ESCInterpreter interpreter;
        interpreter.Run(script);
        EXPECT_EQ(interpreter.GetOutput(), script + "\n");
    }
}

TEST(ESCFeature, BuiltInDefaults) {
    const auto& features = GetBuiltInFeatures();
    EXPECT_EQ(GetFeatureDefaultValue(features[7]), ESCVariant(int64_t{0}));
    EXPECT_EQ(GetFeatureDefaultValue(features[20]), ESCVariant(ESCFeatureUnset{}));
    EXPECT_EQ(GetFeatureDefaultValueSet(features[20]), ESCVariant(int64_t{1001}));
    EXPECT_EQ(GetFeatureDefaultValue(features[23]), ESCVariant(Frequency(700e6)));
    EXPECT_EQ(GetFeatureDefaultValue(features[25]), ESCVariant(ESCFeatureAuto{}));
    EXPECT_EQ(GetFeatureDefaultValue(features[35]), ESCVariant(ESCFeatureAuto{}));
    EXPECT_EQ(GetFeatureDefaultValue(features[34]), ESCVariant(int64_t{0}));
    // Without values or without a command: no parameters.
    EXPECT_TRUE(ESCIsNil(GetFeatureDefaultValue(features[27])));
    EXPECT_TRUE(ESCIsNil(GetFeatureDefaultValue(features[10])));
    EXPECT_EQ(GenerateVariableName(features[26], false), "Setup_ReferenceLevel");
    EXPECT_EQ(GenerateVariableName(features[20], true), "SweepPoints_Auto");
}

} // namespace
} // namespace nrq
