// The sweep over a scripted instrument: the variable map, the report of
// required features, the commands built once, the setup, the data block and
// its decoding.
#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/ESC/SCPI/SpectrumScan.h"
#include "HVX/Filesystem/Filesystem.h"
#include "support/ScriptedIO.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace nrq {
namespace {

using namespace std::chrono_literals;
using Writes = std::vector<std::string>;

ESCFeature Feature(std::string label, ESCFeatureType type, std::string command, std::vector<ESCVariant> values = {}) {
    ESCFeature feature;
    feature.label = std::move(label);
    feature.type = type;
    feature.command = std::move(command);
    feature.values = std::move(values);
    feature.modes = 1;
    return feature;
}

ESCFeature Query(std::string label, ESCFeatureType type, std::string query) {
    ESCFeature feature = Feature(std::move(label), type, "");
    feature.commandQuery = std::move(query);
    return feature;
}

ESCFeature Attenuation() {
    ESCFeature feature = Feature("Attenuation", ESCFeatureType::Setup, "INP:ATT {Setup_Attenuation}",
                                 {int64_t{0}, int64_t{10}, int64_t{20}});
    feature.commandAuto = "INP:ATT:AUTO {Setup_Attenuation_Auto}";
    feature.variableName = "Setup_Attenuation";
    feature.variableAutoName = "Setup_Attenuation_Auto";
    feature.setBehavior = ESCFeatureSetBehavior::Normal;
    return feature;
}

// A complete instrument: every role once, a setup feature with an automatic
// form, and a center feature of another mode that the sweep must ignore.
ESCFeatureSet SweepSet() {
    ESCFeatureSet set;
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    ESCFeature otherMode = Feature("Other Center", ESCFeatureType::FrequencyCenter, "WRONG:CENT {FrequencyCenter}",
                                   {Frequency(1e6)});
    otherMode.modes = 2;
    ESCFeature continuous = Feature("Continuous Sweeping", ESCFeatureType::SweepContinuous,
                                    "INIT:CONT {SweepContinuous}");
    continuous.setBehavior = ESCFeatureSetBehavior::Boolean;
    continuous.defaultIndex = static_cast<ESCFeatureDefault>(0);
    continuous.resetIndex = static_cast<ESCFeatureDefault>(1);
    ESCFeature points = Feature("Sweep Points", ESCFeatureType::SweepPoints, "SWE:POIN {SweepPoints}", {int64_t{1001}});
    points.commandQuery = "SWE:POIN?";
    set.features = {
        Feature("Mode", ESCFeatureType::Mode, "INST SA"),
        otherMode,
        continuous,
        Feature("Data Byte Order (Device Swapped)", ESCFeatureType::ByteOrder, "FORMAT:BORD SWAP"),
        Feature("Power Unit", ESCFeatureType::PowerUnit, "UNIT:POW DBM"),
        Feature("Frequency Center", ESCFeatureType::FrequencyCenter, "FREQ:CENT {FrequencyCenter}",
                {Frequency(700e6)}),
        Feature("Frequency Span", ESCFeatureType::FrequencySpan, "FREQ:SPAN {FrequencySpan}", {Frequency(100e6)}),
        points,
        Attenuation(),
        Feature("Data Format", ESCFeatureType::Setup, "FORMAT:DATA REAL,32"),
        Feature("Single Sweep", ESCFeatureType::SweepInit, "INIT:IMM"),
        Query("Fetch Trace Data", ESCFeatureType::FetchData, "TRAC? TRACE1"),
    };
    set.blockFormat = {SCPIDataBlockType::LengthPrefixedBinary, SCPIValueFormat::SwappedFloat32, -1};
    return set;
}

std::string SwappedBytes(const std::vector<float>& values) {
    std::string bytes;
    for (float value : values) {
        const uint32_t swapped = __builtin_bswap32(std::bit_cast<uint32_t>(value));
        bytes.append(reinterpret_cast<const char*>(&swapped), 4);
    }
    return bytes;
}

std::string NativeBytes(const std::vector<float>& values) {
    return std::string(reinterpret_cast<const char*>(values.data()), values.size() * 4);
}

std::string Message(const std::exception& error) {
    return std::regex_replace(error.what(), std::regex(R"(^\(\d+\) )"), "");
}

class SCPISpectrumScanTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::MakeDirectory(fs::GetUserSaveDataDirectory());
        Log::Init();
        set = SweepSet();
        SCPIScanInitState(state, &io, &set);
        state.waitTime = 0ns;
    }

    static std::string LogLines() {
        const std::string log = test::LogWithoutTimeStamps();
        const std::string start = "[T] Log start\n";
        return log.starts_with(start) ? log.substr(start.size()) : log;
    }

    // The user's settings as the driver makes them: the defaults, then the range.
    void DefaultSettings(double startHz, double stopHz) {
        std::vector<const ESCFeature*> relevant;
        SCPIScanGetRelevantFeatureList(set.features, relevant);
        SCPIScanCreateVariableMap(relevant, state.variableMap);
        state.variableMap["Frequency Start"] = {Frequency(startHz), -1};
        state.variableMap["Frequency Stop"] = {Frequency(stopHz), -1};
    }

    std::vector<float> Decoded() {
        size_t count = 0;
        DecibelMilliwatts* values = nullptr;
        if (!SCPIScanGetMeasCount(state, count) || !SCPIScanGetMeasValues(state, values))
            return {};
        std::vector<float> out(count);
        std::memcpy(out.data(), values, count * 4);
        return out;
    }

    test::ScriptedIO io;
    ESCFeatureSet set;
    SCPISpecAnState state;
};

TEST_F(SCPISpectrumScanTest, InitStateResetsTheSession) {
    SCPISpecAnState used;
    used.errors.push_back({"old", -1});
    used.variableMap["x"] = {int64_t{1}, 0};
    used.waitTime = 5ms;
    used.queryTimeout = 1s;
    used.interpreter->SetVariable("kept", int64_t{1});
    EXPECT_TRUE(SCPIScanInitState(used, &io, &set));
    EXPECT_EQ(used.io, &io);
    EXPECT_EQ(used.featureSet, &set);
    EXPECT_TRUE(used.errors.empty());
    EXPECT_TRUE(used.variableMap.empty());
    EXPECT_EQ(used.waitTime, 20ms);
    EXPECT_EQ(used.queryTimeout, 20s);
    ASSERT_NE(used.interpreter, nullptr);
    EXPECT_TRUE(ESCIsNil(used.interpreter->GetVariable("kept")));
}

TEST_F(SCPISpectrumScanTest, ClearStateDropsPointersErrorsMapAndInterpreter) {
    state.errors.push_back({"old", -1});
    state.variableMap["x"] = {int64_t{1}, 0};
    EXPECT_TRUE(SCPIScanClearState(state));
    EXPECT_EQ(state.io, nullptr);
    EXPECT_EQ(state.featureSet, nullptr);
    EXPECT_TRUE(state.errors.empty());
    EXPECT_TRUE(state.variableMap.empty());
    EXPECT_EQ(state.interpreter, nullptr);
}

TEST_F(SCPISpectrumScanTest, RelevantFeaturesHaveTheSpectrumAnalyzerBit) {
    std::vector<ESCFeature> features = {Feature("a", ESCFeatureType::Setup, "A"), Feature("b", ESCFeatureType::Setup, "B"),
                                        Feature("c", ESCFeatureType::Setup, "C"), Feature("d", ESCFeatureType::Setup, "D")};
    features[1].modes = 0;
    features[2].modes = ESCAllDeviceModes;
    features[3].modes = 2;
    std::vector<const ESCFeature*> relevant = {&features[3]};
    EXPECT_TRUE(SCPIScanGetRelevantFeatureList(features, relevant));
    EXPECT_EQ(relevant, (std::vector<const ESCFeature*>{&features[0], &features[2]}));
}

TEST_F(SCPISpectrumScanTest, VariableMapTakesEachLabelsFirstDefault) {
    const std::vector<ESCFeature>& builtIn = GetBuiltInFeatures();
    std::vector<const ESCFeature*> relevant;
    SCPIScanGetRelevantFeatureList(builtIn, relevant);
    SCPIVariableMap map;
    EXPECT_TRUE(SCPIScanCreateVariableMap(relevant, map));
    // Rows with values and a setter: the two sweep-continuous rows share a label,
    // as do the attenuation and pre-amplifier rows; the first decides.
    EXPECT_EQ(map.size(), 12u);
    EXPECT_EQ(map.at("Continuous Sweeping").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Attenuation").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Pre-Amplifier").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Low Noise Amplifier (LNA)").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Sweep Points").value, ESCVariant(ESCFeatureUnset{}));
    EXPECT_EQ(map.at("Frequency Span").value, ESCVariant(Frequency(100e6)));
    EXPECT_EQ(map.at("Frequency Center").value, ESCVariant(Frequency(700e6)));
    EXPECT_EQ(map.at("RBW").value, ESCVariant(Frequency(100e3)));
    EXPECT_EQ(map.at("VBW").value, ESCVariant(ESCFeatureAuto{}));
    EXPECT_EQ(map.at("Reference Level").value, ESCVariant(DecibelMilliwatts(-30.0f)));
    EXPECT_EQ(map.at("Enable Display").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Sweep Time").value, ESCVariant(ESCFeatureAuto{}));
    for (const auto& [label, stored] : map)
        EXPECT_EQ(stored.index, -1) << label;
    EXPECT_FALSE(map.contains("Mode"));
    EXPECT_FALSE(map.contains("Fetch Trace Data"));
    EXPECT_FALSE(map.contains("Data Format"));
}

TEST_F(SCPISpectrumScanTest, VariableMapLeavesExistingLabelsAlone) {
    ESCFeature first = Attenuation();
    ESCFeature second = Attenuation();
    second.defaultIndex = static_cast<ESCFeatureDefault>(2);
    SCPIVariableMap map;
    map["Frequency Start"] = {Frequency(1e6), -1};
    EXPECT_TRUE(SCPIScanCreateVariableMap({&second, &first}, map));
    EXPECT_EQ(map.size(), 2u);
    EXPECT_EQ(map.at("Attenuation").value, ESCVariant(int64_t{20}));
    EXPECT_EQ(map.at("Frequency Start").value, ESCVariant(Frequency(1e6)));
}

const char* const presentReport = "REQUIRED FEATURES:\n\n"
                                  "Present: setting frequency center (feature type \"frequency_center\")\n"
                                  "Present: setting frequency span (feature type \"frequency_span\")\n"
                                  "Present: initiating single sweep (feature type \"sweep_init\")\n"
                                  "Present: fetching sweep data (feature type \"fetch_data\")\n"
                                  "RECOMMENDED FEATURES:\n\n"
                                  "Present: setting to spectrum analyzer mode (feature type \"mode\")\n"
                                  "Present: setting number of sweep points (feature type \"sweep_points\")\n"
                                  "Present: getting number of sweep points (feature type \"sweep_points\")\n"
                                  "Present: setting binary data endianness (feature type \"byte_order\")\n"
                                  "Present: setting unit of amplitude to dbm (feature type \"power_unit\")\n"
                                  "Present: enabling/disabling continuous sweeping (feature type "
                                  "\"sweep_continuous\")\n";

TEST_F(SCPISpectrumScanTest, RequiredFeaturesReportOfACompleteSet) {
    std::string report = "old text";
    EXPECT_TRUE(SCPIScanHasRequiredFeatures(state, report));
    EXPECT_EQ(report, presentReport);
}

TEST_F(SCPISpectrumScanTest, ACenterFeatureAloneReportsEverythingPresent) {
    set.features = {Feature("Frequency Center", ESCFeatureType::FrequencyCenter, "FREQ:CENT {FrequencyCenter}",
                            {Frequency(700e6)})};
    std::string report;
    EXPECT_TRUE(SCPIScanHasRequiredFeatures(state, report));
    EXPECT_EQ(report, presentReport);
}

TEST_F(SCPISpectrumScanTest, WithoutAUsableCenterEverythingIsMissing) {
    // Of another mode, and without a setter: neither counts.
    ESCFeature otherMode = Feature("C", ESCFeatureType::FrequencyCenter, "FREQ:CENT {FrequencyCenter}");
    otherMode.modes = 2;
    set.features = {otherMode, Query("C", ESCFeatureType::FrequencyCenter, "FREQ:CENT?"),
                    Feature("Frequency Span", ESCFeatureType::FrequencySpan, "FREQ:SPAN {FrequencySpan}")};
    std::string report;
    EXPECT_FALSE(SCPIScanHasRequiredFeatures(state, report));
    EXPECT_EQ(report, "REQUIRED FEATURES:\n\n"
                      "MISSING: setting frequency center (feature type \"frequency_center\")\n"
                      "MISSING: setting frequency span (feature type \"frequency_span\")\n"
                      "MISSING: initiating single sweep (feature type \"sweep_init\")\n"
                      "MISSING: fetching sweep data (feature type \"fetch_data\")\n"
                      "RECOMMENDED FEATURES:\n\n"
                      "MISSING: setting to spectrum analyzer mode (feature type \"mode\")\n"
                      "MISSING: setting number of sweep points (feature type \"sweep_points\")\n"
                      "MISSING: getting number of sweep points (feature type \"sweep_points\")\n"
                      "MISSING: setting binary data endianness (feature type \"byte_order\")\n"
                      "MISSING: setting unit of amplitude to dbm (feature type \"power_unit\")\n"
                      "MISSING: enabling/disabling continuous sweeping (feature type \"sweep_continuous\")\n");
}

TEST_F(SCPISpectrumScanTest, CommandsFromARangeOfOneToThreeMegahertz) {
    DefaultSettings(1e6, 3e6);
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_EQ(state.interpreter->GetVariable("FrequencyCenter"), ESCVariant(Frequency(2e6)));
    EXPECT_EQ(state.interpreter->GetVariable("FrequencySpan"), ESCVariant(Frequency(2e6)));
    Frequency start, stop;
    EXPECT_TRUE(SCPIScanGetFrequencyRange(state, start, stop));
    EXPECT_EQ(start, Frequency(1e6));
    EXPECT_EQ(stop, Frequency(3e6));
    EXPECT_EQ(state.setupCommands, "INIT:CONT 0\n"
                                   "FORMAT:BORD SWAP\n"
                                   "UNIT:POW DBM\n"
                                   "FREQ:CENT 2e+06\n"
                                   "FREQ:SPAN 2e+06\n"
                                   "SWE:POIN 1001\n"
                                   "INP:ATT:AUTO 0\n"
                                   "INP:ATT 0\n"
                                   "FORMAT:DATA REAL,32\n");
    EXPECT_EQ(state.pointsQuery, "SWE:POIN?\n");
    EXPECT_EQ(state.sweepCommand, "INIT:IMM\n");
    EXPECT_EQ(state.fetchCommand, "TRAC? TRACE1\n");
    EXPECT_TRUE(io.writes.empty());
    EXPECT_EQ(LogLines(), "[T] Warning: Continuous Sweeping\n"
                          "[T] Warning: Data Byte Order (Device Swapped)\n"
                          "[T] Warning: Power Unit\n"
                          "[T] Warning: Frequency Center\n"
                          "[T] Warning: Frequency Span\n"
                          "[T] Warning: Sweep Points\n"
                          "[T] Warning: Attenuation\n"
                          "[T] Warning: Data Format\n");
}

TEST_F(SCPISpectrumScanTest, ContinuousSweepingIsSwitchedOffWhateverTheUserChose) {
    DefaultSettings(1e6, 3e6);
    state.variableMap["Continuous Sweeping"] = {int64_t{1}, 1};
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_TRUE(state.setupCommands.starts_with("INIT:CONT 0\n")) << state.setupCommands;
}

TEST_F(SCPISpectrumScanTest, WithoutTheRangeTheCenterAndSpanLinesDropOut) {
    std::vector<const ESCFeature*> relevant;
    SCPIScanGetRelevantFeatureList(set.features, relevant);
    SCPIScanCreateVariableMap(relevant, state.variableMap);
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    // The center and span features get no setting of their own: their
    // defaults do not reach the variables, while the points default does.
    EXPECT_TRUE(ESCIsNil(state.interpreter->GetVariable("FrequencyCenter")));
    EXPECT_EQ(state.interpreter->GetVariable("SweepPoints"), ESCVariant(int64_t{1001}));
    EXPECT_EQ(state.setupCommands, "INIT:CONT 0\n"
                                   "FORMAT:BORD SWAP\n"
                                   "UNIT:POW DBM\n"
                                   "SWE:POIN 1001\n"
                                   "INP:ATT:AUTO 0\n"
                                   "INP:ATT 0\n"
                                   "FORMAT:DATA REAL,32\n");
    Frequency start(5.0), stop(5.0);
    SCPIScanGetFrequencyRange(state, start, stop);
    EXPECT_EQ(start, Frequency(0.0));
    EXPECT_EQ(stop, Frequency(0.0));
}

TEST_F(SCPISpectrumScanTest, CenterAndSpanVariablesSetBeforehandGiveTheRange) {
    state.interpreter->SetVariable("FrequencyCenter", Frequency(1e9));
    state.interpreter->SetVariable("FrequencySpan", Frequency(10e6));
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    Frequency start, stop;
    SCPIScanGetFrequencyRange(state, start, stop);
    EXPECT_EQ(start, Frequency(995e6));
    EXPECT_EQ(stop, Frequency(1005e6));
    EXPECT_NE(state.setupCommands.find("FREQ:CENT 1e+09\nFREQ:SPAN 1e+07\n"), std::string::npos)
        << state.setupCommands;
}

TEST_F(SCPISpectrumScanTest, MissingSetupValueFallsBackToTheDefaultWithAWarning) {
    state.variableMap["Sweep Points"] = {Nil{}, -1};
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_EQ(state.setupCommands, "INIT:CONT 0\n"
                                   "FORMAT:BORD SWAP\n"
                                   "UNIT:POW DBM\n"
                                   "SWE:POIN 1001\n"
                                   "INP:ATT:AUTO 0\n"
                                   "INP:ATT 0\n"
                                   "FORMAT:DATA REAL,32\n");
    // Only the setup feature warns; the points feature takes its default silently.
    EXPECT_TRUE(LogLines().starts_with("[T] Warning: Missing value for setting \"Attenuation\": using default "
                                       "value\n[T] Warning: Continuous Sweeping\n"))
        << LogLines();
}

TEST_F(SCPISpectrumScanTest, AutomaticValueSendsOnlyTheAutoCommand) {
    DefaultSettings(1e6, 3e6);
    state.variableMap["Attenuation"] = {ESCFeatureAuto{}, -1};
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_EQ(state.setupCommands, "INIT:CONT 0\n"
                                   "FORMAT:BORD SWAP\n"
                                   "UNIT:POW DBM\n"
                                   "FREQ:CENT 2e+06\n"
                                   "FREQ:SPAN 2e+06\n"
                                   "SWE:POIN 1001\n"
                                   "INP:ATT:AUTO 1\n"
                                   "FORMAT:DATA REAL,32\n");
}

TEST_F(SCPISpectrumScanTest, UnsetValueSendsNeitherCommand) {
    DefaultSettings(1e6, 3e6);
    state.variableMap["Attenuation"] = {ESCFeatureUnset{}, -1};
    state.variableMap["Sweep Points"] = {ESCFeatureUnset{}, -1};
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_EQ(state.setupCommands, "INIT:CONT 0\n"
                                   "FORMAT:BORD SWAP\n"
                                   "UNIT:POW DBM\n"
                                   "FREQ:CENT 2e+06\n"
                                   "FREQ:SPAN 2e+06\n"
                                   "FORMAT:DATA REAL,32\n");
}

TEST_F(SCPISpectrumScanTest, ChosenValueGoesIntoTheSetter) {
    DefaultSettings(1e6, 3e6);
    state.variableMap["Attenuation"] = {int64_t{20}, 2};
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_NE(state.setupCommands.find("INP:ATT:AUTO 0\nINP:ATT 20\n"), std::string::npos) << state.setupCommands;
}

TEST_F(SCPISpectrumScanTest, WithoutASweepInitFeatureTheSweepCommandIsEmpty) {
    std::erase_if(set.features, [](const ESCFeature& f) { return f.type == ESCFeatureType::SweepInit; });
    DefaultSettings(1e6, 3e6);
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    EXPECT_EQ(state.sweepCommand, "");
    EXPECT_EQ(state.fetchCommand, "TRAC? TRACE1\n");
    io.Queue("#14" + SwappedBytes({1.0f}) + "\n");
    EXPECT_TRUE(SCPIScanRunMeas(state));
    EXPECT_EQ(io.writes, Writes({"*WAI\nTRAC? TRACE1\n"}));
}

TEST_F(SCPISpectrumScanTest, WithoutCenterOrSpanNoCommandsAreMade) {
    set.features.erase(set.features.begin() + 6); // the span
    EXPECT_FALSE(SCPIScanCreateCommands(state));
    set = SweepSet();
    set.features.erase(set.features.begin() + 5); // the center
    EXPECT_FALSE(SCPIScanCreateCommands(state));
    EXPECT_EQ(state.setupCommands, "");
}

TEST_F(SCPISpectrumScanTest, WithoutAFeatureSetNoCommandsAreMade) {
    state.featureSet = nullptr;
    EXPECT_FALSE(SCPIScanCreateCommands(state));
    std::string report;
    EXPECT_FALSE(SCPIScanHasRequiredFeatures(state, report));
    EXPECT_TRUE(report.starts_with("REQUIRED FEATURES:\n\nMISSING: ")) << report;
}

TEST_F(SCPISpectrumScanTest, SetupSendsTheCommandsAndAsksForThePoints) {
    DefaultSettings(1e6, 3e6);
    ASSERT_TRUE(SCPIScanCreateCommands(state));
    io.Queue("1001\n");
    EXPECT_TRUE(SCPIScanRunSetup(state));
    EXPECT_EQ(io.writes, Writes({state.setupCommands, "SWE:POIN?\n"}));
    EXPECT_EQ(io.dataReads, std::vector<std::chrono::nanoseconds>({2s}));
    EXPECT_EQ(state.expectedBytes, 4004u);
    EXPECT_TRUE(SCPIScanRunEndSetup(state));
    EXPECT_EQ(io.writes.size(), 2u);
}

TEST_F(SCPISpectrumScanTest, PointsOfA64BitFormatCountEightBytes) {
    set.blockFormat.valueFormat = SCPIValueFormat::SwappedFloat64;
    state.pointsQuery = "SWE:POIN?\n";
    io.Queue("501\n");
    EXPECT_TRUE(SCPIScanRunSetup(state));
    EXPECT_EQ(state.expectedBytes, 4008u);
}

TEST_F(SCPISpectrumScanTest, SetupWithoutAPointsQueryExpectsNoBytes) {
    state.setupCommands = "FREQ:CENT 2e+06\n";
    state.expectedBytes = 99;
    EXPECT_TRUE(SCPIScanRunSetup(state));
    EXPECT_EQ(io.writes, Writes({"FREQ:CENT 2e+06\n"}));
    EXPECT_EQ(state.expectedBytes, 0u);
}

TEST_F(SCPISpectrumScanTest, BinaryFormatSizes) {
    EXPECT_EQ(GetBinaryFormatSize(SCPIValueFormat::NativeFloat32), 4u);
    EXPECT_EQ(GetBinaryFormatSize(SCPIValueFormat::SwappedFloat32), 4u);
    EXPECT_EQ(GetBinaryFormatSize(SCPIValueFormat::NativeFloat64), 8u);
    EXPECT_EQ(GetBinaryFormatSize(SCPIValueFormat::SwappedFloat64), 8u);
    EXPECT_EQ(GetBinaryFormatSize(SCPIValueFormat::Unknown), 0u);
}

class SCPIMeasurementTest : public SCPISpectrumScanTest {
protected:
    void SetUp() override {
        SCPISpectrumScanTest::SetUp();
        DefaultSettings(1e6, 3e6);
        ASSERT_TRUE(SCPIScanCreateCommands(state));
    }
};

TEST_F(SCPIMeasurementTest, SweepAndFetchGoInOneWriteAndTheBlockDecodesBitExact) {
    const std::vector<float> values = {-42.5f, 0.0f, -0.0f, 1e-38f, -1e30f, std::bit_cast<float>(0x7fc12345u),
                                       std::bit_cast<float>(0x00000001u)};
    const std::string block = SwappedBytes(values);
    io.Queue("#228" + block + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    EXPECT_EQ(io.writes, Writes({"INIT:IMM\n*WAI\nTRAC? TRACE1\n"}));
    ASSERT_EQ(io.reads.size(), 3u);
    EXPECT_EQ(io.reads[0].size, 2u);
    EXPECT_EQ(io.reads[1].size, 2u);
    EXPECT_EQ(io.reads[2].size, 28u);
    for (const auto& read : io.reads)
        EXPECT_EQ(read.timeout, 20s);
    EXPECT_EQ(io.dataReads, std::vector<std::chrono::nanoseconds>({2s}));
    EXPECT_TRUE(io.replies.empty());
    EXPECT_EQ(state.valueFormat, SCPIValueFormat::SwappedFloat32);
    const std::vector<float> decoded = Decoded();
    ASSERT_EQ(decoded.size(), values.size());
    EXPECT_EQ(std::memcmp(decoded.data(), values.data(), values.size() * 4), 0);
}

TEST_F(SCPIMeasurementTest, DecodedValuesAreAlignedAndStayUntilTheNextDecode) {
    io.Queue("#18" + SwappedBytes({1.0f, 2.0f}) + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    DecibelMilliwatts* first = nullptr;
    ASSERT_TRUE(SCPIScanGetMeasValues(state, first));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 64, 0u);
    EXPECT_EQ(first[1].dBm(), 2.0f);
    io.Queue("#14" + SwappedBytes({3.0f}) + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    DecibelMilliwatts* second = nullptr;
    ASSERT_TRUE(SCPIScanGetMeasValues(state, second));
    EXPECT_EQ(second, first); // the buffer did not need to grow
    EXPECT_EQ(second[0].dBm(), 3.0f);
}

TEST_F(SCPIMeasurementTest, FirstByteOfThePrefixIsNotLookedAt) {
    io.Queue("X14" + SwappedBytes({7.0f}) + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    EXPECT_EQ(Decoded(), std::vector<float>({7.0f}));
}

TEST_F(SCPIMeasurementTest, ZeroDigitPrefixMeansZeroBytesAndFails) {
    io.Queue("#0\n");
    EXPECT_FALSE(SCPIScanRunMeas(state));
    size_t count = 99;
    EXPECT_FALSE(SCPIScanGetMeasCount(state, count));
    EXPECT_EQ(count, 0u);
    DecibelMilliwatts* values = nullptr;
    EXPECT_FALSE(SCPIScanGetMeasValues(state, values));
    EXPECT_EQ(LogLines().find("Error"), std::string::npos);
}

TEST_F(SCPIMeasurementTest, ZeroByteCountFails) {
    io.Queue("#3000");
    EXPECT_FALSE(SCPIScanRunMeas(state));
}

TEST_F(SCPIMeasurementTest, PrefixWhoseSecondByteIsNoDigitFails) {
    for (const char* prefix : {"#A4", "#/4", "#:4"}) {
        io.replies.clear();
        io.Queue(prefix + SwappedBytes({1.0f}));
        EXPECT_FALSE(SCPIScanRunMeas(state)) << prefix;
    }
}

TEST_F(SCPIMeasurementTest, PrefixShorterThanTwoBytesFails) {
    io.Queue("#");
    EXPECT_FALSE(SCPIScanRunMeas(state));
}

TEST_F(SCPIMeasurementTest, PrefixWithFewerDigitsThanAnnouncedFails) {
    io.Queue("#312");
    EXPECT_FALSE(SCPIScanRunMeas(state));
}

TEST_F(SCPIMeasurementTest, BlockShorterThanAnnouncedFails) {
    io.Queue("#18" + SwappedBytes({1.0f}));
    EXPECT_FALSE(SCPIScanRunMeas(state));
    size_t count = 99;
    EXPECT_FALSE(SCPIScanGetMeasCount(state, count));
}

TEST_F(SCPIMeasurementTest, NativeFloat32IsCopied) {
    set.blockFormat.valueFormat = SCPIValueFormat::NativeFloat32;
    io.Queue("#18" + NativeBytes({-80.25f, 3.5f}) + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    EXPECT_EQ(Decoded(), std::vector<float>({-80.25f, 3.5f}));
}

TEST_F(SCPIMeasurementTest, NativeFloat64RaisesTheUnrecognisedError) {
    set.blockFormat.valueFormat = SCPIValueFormat::NativeFloat64;
    io.Queue("#216" + std::string(16, '\0') + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    size_t count = 0;
    EXPECT_TRUE(SCPIScanGetMeasCount(state, count));
    EXPECT_EQ(count, 2u);
    DecibelMilliwatts* values = nullptr;
    try {
        SCPIScanGetMeasValues(state, values);
        ADD_FAILURE() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(Message(error),
                  "The data format received from the device is unrecognised. (TYPE: 2). Please contact support.");
    }
}

TEST_F(SCPIMeasurementTest, SwappedFloat64RaisesTheUnrecognisedError) {
    set.blockFormat.valueFormat = SCPIValueFormat::SwappedFloat64;
    io.Queue("#18" + std::string(8, '\0') + "\n");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    DecibelMilliwatts* values = nullptr;
    try {
        SCPIScanGetMeasValues(state, values);
        ADD_FAILURE() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(Message(error),
                  "The data format received from the device is unrecognised. (TYPE: 3). Please contact support.");
    }
}

TEST_F(SCPIMeasurementTest, UnprefixedBlockTakesItsSizeFromThePointsQuery) {
    set.blockFormat = {SCPIDataBlockType::UnprefixedBinary, SCPIValueFormat::SwappedFloat32, 0};
    state.setupCommands.clear();
    io.Queue("3\n");
    ASSERT_TRUE(SCPIScanRunSetup(state));
    EXPECT_EQ(state.expectedBytes, 12u);
    io.Queue(SwappedBytes({1.0f, 2.0f, 3.0f}) + "rest");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    ASSERT_EQ(io.reads.size(), 1u);
    EXPECT_EQ(io.reads[0].size, 12u);
    // No trailer is read when none is announced.
    EXPECT_EQ(io.replies.front(), "rest");
    EXPECT_EQ(Decoded(), std::vector<float>({1.0f, 2.0f, 3.0f}));
}

TEST_F(SCPIMeasurementTest, UnprefixedBlockWithoutAPointsQueryFails) {
    set.blockFormat = {SCPIDataBlockType::UnprefixedBinary, SCPIValueFormat::SwappedFloat32, -1};
    state.expectedBytes = 0;
    io.Queue(SwappedBytes({1.0f}));
    EXPECT_FALSE(SCPIScanRunMeas(state));
    EXPECT_TRUE(io.reads.empty());
}

TEST_F(SCPIMeasurementTest, PositiveTrailerReadsUntilTheLinkThrows) {
    set.blockFormat.additionalCharacters = 2;
    io.throwWhenEmpty = true;
    io.Queue("#14" + SwappedBytes({1.0f}) + "\r\n");
    io.Queue("late bytes");
    EXPECT_THROW(SCPIScanRunMeas(state), std::runtime_error);
    ASSERT_EQ(io.reads.size(), 6u);
    for (size_t i = 3; i < io.reads.size(); ++i) {
        EXPECT_EQ(io.reads[i].size, 1024u);
        EXPECT_EQ(io.reads[i].timeout, 2s);
    }
}

TEST_F(SCPIMeasurementTest, NegativeTrailerDropsTheRestOfTheReply) {
    io.Queue("#14" + SwappedBytes({1.0f}) + "\n");
    io.Queue("next reply");
    ASSERT_TRUE(SCPIScanRunMeas(state));
    EXPECT_EQ(io.replies.front(), "next reply");
}

TEST(SCPIAlignedBuffer, ReserveAlignsAndOnlyGrows) {
    SCPIAlignedBuffer buffer;
    uint8_t* small = buffer.Reserve(10);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(small) % 64, 0u);
    const size_t grown = buffer.storage.size();
    EXPECT_GE(static_cast<size_t>(buffer.storage.data() + grown - small), 10u + 128u);
    EXPECT_EQ(buffer.Reserve(5), small);
    EXPECT_EQ(buffer.storage.size(), grown);
    uint8_t* large = buffer.Reserve(100000);
    EXPECT_EQ(large, buffer.data);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(large) % 64, 0u);
    EXPECT_GE(static_cast<size_t>(buffer.storage.data() + buffer.storage.size() - large), 100000u + 128u);
}

TEST(SCPIAlignedBuffer, ASizeThatWouldWrapIsRefused) {
    SCPIAlignedBuffer buffer;
    EXPECT_THROW(buffer.Reserve(SIZE_MAX - 10), std::length_error);
    EXPECT_EQ(buffer.data, nullptr);
}

} // namespace
} // namespace nrq
