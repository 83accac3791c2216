// The automatic SCPI analyzer against the simulated analyzer, reached through
// the stand-in VISA library over loopback, with feature sets in the store.
#include "HVX/App/Task.h"
#include "HVX/Device/Analyzer/AutoSCPIAnalyzer.h"
#include "HVX/Device/DeviceLoader.h"
#include "HVX/Device/NullAnalyzer.h"
#include "HVX/Device/NullScanner.h"
#include "HVX/ESC/SCPI/SpectrumScan.h"
#include "HVX/ESC/Store.h"
#include "HVX/Init.h"
#include "HVX/Visa/Visa.h"
#include "HVX/Visa/VisaDetail.h"

#include "support/SimFeatureSets.h"
#include "support/TestEnvironment.h"
#include "support/TestScanData.h"

#include <gtest/gtest.h>

#if defined(HVX_SCPI_SIM_AVAILABLE)
#include "hvxsim/ScpiSimulator.h"

#include <fmt/format.h>
#endif

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nrq {
namespace {

const std::string invalidParameters = "Tried to apply invalid parameters to a SCPI device";
const std::string measurementsFailed = "Halvex failed to collect measurements from the analyzer.";
const std::string missingFeatures =
    "The feature set for this analyzer does not contain the required features to run a scan:\n";

// The message of an Error without its "(line) " in front.
std::string WithoutLine(const std::string& message) {
    const size_t close = message.find(") ");
    EXPECT_EQ(message.front(), '(') << message;
    return close == std::string::npos ? message : message.substr(close + 2);
}

TEST(AutoSCPIAnalyzerUnitTest, ParametersOfAnotherAnalyzerClassAreRejected) {
    AutoSCPIAnalyzer analyzer("TCPIP0::127.0.0.1::1::SOCKET");
    const AnalyzerParameters plain;
    const NullAnalyzerParameters null;
    for (const AnalyzerParameters* parameters : {&plain, static_cast<const AnalyzerParameters*>(&null),
                                                 static_cast<const AnalyzerParameters*>(nullptr)}) {
        try {
            analyzer.SetAnalyzerParameters(parameters);
            ADD_FAILURE() << "no error";
        } catch (const Error& e) {
            EXPECT_EQ(WithoutLine(e.what()), invalidParameters);
        }
    }
}

TEST(AutoSCPIAnalyzerUnitTest, ParametersOfItsOwnClassFillTheSessionMap) {
    AutoSCPIAnalyzer analyzer("TCPIP0::127.0.0.1::1::SOCKET");
    AutoSCPIAnalyzerParameters parameters;
    parameters.SetMinFrequency(Frequency(1e6));
    parameters.variableMap["RBW"] = SCPIStoredValue{Frequency(30e3), 0};
    analyzer.SetAnalyzerParameters(&parameters);
    ASSERT_EQ(analyzer.GetState().variableMap.size(), 2u);
    EXPECT_EQ(analyzer.GetState().variableMap.at("RBW").value, ESCVariant(Frequency(30e3)));
    EXPECT_EQ(analyzer.GetState().variableMap.at("Frequency Start").index, -1);
}

TEST(AutoSCPIAnalyzerUnitTest, RangeIsZeroBeforeAnySetup) {
    const AutoSCPIAnalyzer analyzer("TCPIP0::127.0.0.1::1::SOCKET");
    const FrequencyStartStop range = analyzer.GetFrequencyRange();
    EXPECT_EQ(range.start.Hz(), 0.0);
    EXPECT_EQ(range.stop.Hz(), 0.0);
}

TEST(AutoSCPIAnalyzerUnitTest, EndCommandsAreNone) {
    AutoSCPIAnalyzer analyzer("TCPIP0::127.0.0.1::1::SOCKET");
    EXPECT_NO_THROW(analyzer.ResetAnalyzer());
}

TEST(AutoSCPIAnalyzerUnitTest, WithoutAConnectionTheSweepRaisesInsteadOfTouchingNothing) {
    AutoSCPIAnalyzer analyzer("TCPIP0::127.0.0.1::1::SOCKET");
    EXPECT_THROW(analyzer.InitAnalyzer(), Error);
    EXPECT_THROW(analyzer.GetMeasurement(), Error);
}

#if defined(HVX_SCPI_SIM_AVAILABLE)

const std::string nullScannerId = "{Nerquil Labs}{nullsc0}";

std::string Resource(const hvxsim::ScpiSimulator& simulator) {
    return fmt::format("TCPIP0::127.0.0.1::{}::SOCKET", simulator.Port());
}

std::string DeviceId(const hvxsim::ScpiSimulator& simulator) {
    return fmt::format("{{{}}}{{{}}}", simulator.Dialect().manufacturer, simulator.Dialect().serial);
}

hvxsim::ScpiSimulatorOptions Dialect(const std::string& name) {
    hvxsim::ScpiSimulatorOptions options;
    options.dialect = name;
    return options;
}

// Same bits, not merely equal floats.
std::vector<uint32_t> Bits(const std::vector<DecibelMilliwatts>& values) {
    std::vector<uint32_t> bits;
    for (DecibelMilliwatts value : values)
        bits.push_back(std::bit_cast<uint32_t>(value.dBm()));
    return bits;
}

std::vector<uint32_t> Bits(const std::vector<float>& values) {
    std::vector<uint32_t> bits;
    for (float value : values)
        bits.push_back(std::bit_cast<uint32_t>(value));
    return bits;
}

class AutoSCPIAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override {
        Visa::detail::Reset();
        Visa::detail::SetLibraryDirectory(HVX_VISA_STANDIN_DIR);
        HVXInit(false);
        ASSERT_TRUE(Visa::IsInitialised());
        ESCMapStore::GetInstance().SetDirectory(test::MakeTempDir("feature-sets").string(), true);
        DeviceLoader::Reset();
    }
    void TearDown() override {
        DeviceLoader::Reset();
        ESCMapStore::GetInstance().ClearEntries();
        HVXTerminate();
        Visa::detail::Reset();
    }

    static void StoreSet(const hvxsim::ScpiSimulator& simulator, const ESCFeatureSet& set) {
        ESCMapStore::GetInstance().AddEntry(simulator.Dialect().manufacturer, simulator.Dialect().serial, "", set);
    }

    // Filed in the registry, identified and disconnected again.
    static std::shared_ptr<AutoSCPIAnalyzer> AddAnalyzer(const hvxsim::ScpiSimulator& simulator) {
        const auto analyzer = std::make_shared<AutoSCPIAnalyzer>(Resource(simulator));
        const std::shared_ptr<Device> added = DeviceLoader::AddDevice(analyzer);
        EXPECT_EQ(added, analyzer);
        return added ? analyzer : nullptr;
    }

    // A scan over the null scanner's grid with the analyzer's own parameters for 1 to 3 MHz.
    std::unique_ptr<GenericScanTask> MakeScan(const hvxsim::ScpiSimulator& simulator,
                                              const std::shared_ptr<AutoSCPIAnalyzer>& analyzer) {
        EXPECT_NE(DeviceLoader::AddDevice(std::make_shared<NullScanner>(0)), nullptr);
        parameters.reset(analyzer->GenerateParams());
        EXPECT_NE(parameters, nullptr);
        parameters->SetMinFrequency(Frequency(1e6));
        parameters->SetMaxFrequency(Frequency(3e6));
        const std::string analyzerId = DeviceId(simulator);
        const GenericScanArguments arguments{nullScannerId, ScanMethod::Device, &scannerParameters, analyzerId,
                                             parameters.get(), RepeatingBehavior::Overwrite, true};
        return std::make_unique<GenericScanTask>(data, arguments);
    }

    // One step of the scan that must bring one sweep, equal to the simulator's last trace.
    void ExpectStepBringsTheTrace(GenericScanTask& task, const hvxsim::ScpiSimulator& simulator) {
        const size_t before = data->measurements.size();
        ASSERT_TRUE(task.Step());
        ASSERT_EQ(data->measurements.size(), before + 1);
        const FullScanMeasurement& measurement = data->measurements.back();
        const std::vector<float> trace = simulator.LastTrace();
        ASSERT_FALSE(trace.empty());
        EXPECT_EQ(Bits(measurement.values), Bits(trace)) << "sweep " << before + 1;
        EXPECT_EQ(measurement.count, trace.size());
        EXPECT_EQ(measurement.startFrequency.Hz(), 1e6);
        EXPECT_EQ(measurement.stepFrequency.Hz(), 2e6 / static_cast<double>(trace.size() - 1));
        const std::vector<double> frequencies = simulator.LastTraceFrequencies();
        EXPECT_EQ(frequencies.front(), 1e6);
        EXPECT_EQ(frequencies.back(), 3e6);
        traces.push_back(trace);
    }

    // Every sweep taken so far is still in the data, bit for bit.
    void ExpectEarlierSweepsKept() const {
        ASSERT_EQ(data->measurements.size(), traces.size());
        for (size_t i = 0; i < traces.size(); ++i)
            EXPECT_EQ(Bits(data->measurements[i].values), Bits(traces[i])) << "sweep " << i + 1;
    }

    // The error a step raises, without its line.
    std::string StepError(GenericScanTask& task) {
        try {
            task.Step();
        } catch (const Error& e) {
            return WithoutLine(e.what());
        } catch (const std::exception& e) {
            return std::string("not an Error: ") + e.what();
        }
        return "no error";
    }

    const std::shared_ptr<test::RecordingScanData> data = std::make_shared<test::RecordingScanData>();
    NullScannerParameters scannerParameters;
    std::unique_ptr<AutoSCPIAnalyzerParameters> parameters;
    std::vector<std::vector<float>> traces;
};

TEST_F(AutoSCPIAnalyzerTest, RegistryIdentifiesTheInstrumentByItsIdentity) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    EXPECT_EQ(analyzer->GetInfo().model, "SIM-SA3000");
    EXPECT_EQ(analyzer->GetInfo().manufacturer, "Halvex Simulation");
    EXPECT_EQ(analyzer->GetInfo().serial, "SIM000001");
    EXPECT_EQ(DeviceLoader::GetAnalyzer(DeviceId(simulator)), analyzer);
    // The registry disconnects after identifying, which clears the session.
    EXPECT_FALSE(analyzer->IsConnected());
    EXPECT_EQ(analyzer->GetState().interpreter, nullptr);
    EXPECT_EQ(analyzer->GetState().featureSet, nullptr);
}

TEST_F(AutoSCPIAnalyzerTest, ConnectKeepsTheStoredSetAndReconnectsClean) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    const ESCFeatureSet set = test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1));
    StoreSet(simulator, set);
    AutoSCPIAnalyzer analyzer(Resource(simulator));
    ASSERT_TRUE(analyzer.Connect());
    EXPECT_TRUE(analyzer.IsConnected());
    EXPECT_TRUE(analyzer.Connect()); // already connected
    ASSERT_NE(analyzer.GetEntry(), nullptr);
    EXPECT_EQ(analyzer.GetState().featureSet, &analyzer.GetEntry()->featureSet);
    EXPECT_EQ(analyzer.GetEntry()->featureSet, set);
    // The entry outlives its removal from the store.
    ESCMapStore::GetInstance().RemoveEntry("Halvex Simulation", "SIM000001");
    EXPECT_EQ(analyzer.GetEntry()->featureSet, set);
    analyzer.Disconnect();
    EXPECT_FALSE(analyzer.IsConnected());
    EXPECT_EQ(analyzer.GetState().interpreter, nullptr);
    EXPECT_EQ(simulator.ConnectionCount(), 1u);
}

TEST_F(AutoSCPIAnalyzerTest, ConnectWithoutAStoredSetFailsAndClosesTheLink) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    AutoSCPIAnalyzer analyzer(Resource(simulator));
    EXPECT_FALSE(analyzer.Connect());
    EXPECT_FALSE(analyzer.IsConnected());
    EXPECT_EQ(analyzer.GetEntry(), nullptr);
    EXPECT_EQ(simulator.ConnectionCount(), 1u);
    const std::vector<std::string> received = simulator.ReceivedMessages();
    ASSERT_FALSE(received.empty());
    EXPECT_EQ(received.back(), "*IDN?");
    // And so the registry files nothing.
    EXPECT_EQ(DeviceLoader::AddDevice(std::make_shared<AutoSCPIAnalyzer>(Resource(simulator))), nullptr);
    EXPECT_EQ(DeviceLoader::GetDevice(DeviceId(simulator)), nullptr);
}

TEST_F(AutoSCPIAnalyzerTest, IdentityWithTooFewFieldsFailsToConnect) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    simulator.AnswerIdentityWithTooFewFields(true);
    AutoSCPIAnalyzer analyzer(Resource(simulator));
    EXPECT_FALSE(analyzer.Connect());
    EXPECT_FALSE(analyzer.IsConnected());
    EXPECT_EQ(analyzer.GetEntry(), nullptr);
    EXPECT_NE(test::LogWithoutTimeStamps().find(
                  "A command response to *IDN? did not contain enough comma sep (expected 3) "
                  "[Halvex Simulation,SIM-SA3000"),
              std::string::npos)
        << test::LogWithoutTimeStamps();
}

TEST_F(AutoSCPIAnalyzerTest, GenerateParamsGivesTheDefaultsOfTheStoredSet) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<AutoSCPIAnalyzerParameters> generated(analyzer->GenerateParams());
    ASSERT_NE(generated, nullptr);
    EXPECT_EQ(generated->manufacturer, "Halvex Simulation");
    EXPECT_EQ(generated->serial, "SIM000001");
    const SCPIVariableMap& map = generated->variableMap;
    EXPECT_EQ(map.at("Attenuation").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Attenuation").index, -1);
    EXPECT_EQ(map.at("Continuous Sweeping").value, ESCVariant(int64_t{0}));
    EXPECT_EQ(map.at("Sweep Points").value, ESCVariant(ESCFeatureUnset{}));
    EXPECT_EQ(map.at("RBW").value, ESCVariant(Frequency(100e3)));
    EXPECT_EQ(map.count("Mode"), 0u);             // no values: nothing to choose
    EXPECT_EQ(map.count("Fetch Trace Data"), 0u);
    // No range chosen yet.
    EXPECT_EQ(generated->GetMinFrequency().Hz(), 0.0);
    EXPECT_EQ(generated->GetMaxFrequency().Hz(), 1e9);
}

TEST_F(AutoSCPIAnalyzerTest, GenerateParamsForAnInstrumentNotInTheStoreIsNull) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    ESCMapStore::GetInstance().RemoveEntry("Halvex Simulation", "SIM000001");
    EXPECT_EQ(analyzer->GenerateParams(), nullptr);
}

TEST_F(AutoSCPIAnalyzerTest, InitWithoutTheRequiredFeaturesRaisesWithTheReport) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    ESCFeatureSet set = test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1));
    std::erase_if(set.features,
                  [](const ESCFeature& feature) { return feature.type == ESCFeatureType::FrequencyCenter; });
    StoreSet(simulator, set);

    // The report the sweep code writes for this set.
    SCPISpecAnState reference;
    SCPIScanInitState(reference, nullptr, &set);
    std::string report;
    ASSERT_FALSE(SCPIScanHasRequiredFeatures(reference, report));
    ASSERT_NE(report.find("MISSING: setting frequency center (feature type \"frequency_center\")"), std::string::npos)
        << report;

    AutoSCPIAnalyzer analyzer(Resource(simulator));
    ASSERT_TRUE(analyzer.Connect());
    try {
        analyzer.InitAnalyzer();
        ADD_FAILURE() << "no error";
    } catch (const Error& e) {
        EXPECT_EQ(WithoutLine(e.what()), missingFeatures + report);
    }
    analyzer.Disconnect();
}

TEST_F(AutoSCPIAnalyzerTest, ScanOfTheDefaultDialectDeliversTheTracesBitForBit) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    EXPECT_TRUE(analyzer->IsConnected());

    const FrequencyStartStop range = analyzer->GetFrequencyRange();
    EXPECT_EQ(range.start.Hz(), 1e6);
    EXPECT_EQ(range.stop.Hz(), 3e6);
    const hvxsim::ScpiInstrumentSettings settings = simulator.Settings();
    EXPECT_EQ(settings.startHz, 1e6);
    EXPECT_EQ(settings.stopHz, 3e6);
    EXPECT_FALSE(settings.continuousSweep);
    EXPECT_EQ(settings.byteOrder, hvxsim::ByteOrder::LittleEndian);

    for (int sweep = 0; sweep < 4; ++sweep)
        ExpectStepBringsTheTrace(*task, simulator);
    EXPECT_EQ(traces.front().size(), 1001u);
    EXPECT_NE(Bits(traces[0]), Bits(traces[1])); // each sweep is a sweep of its own
    EXPECT_EQ(simulator.SweepCount(), 4u);

    task->Stop(false);
    EXPECT_TRUE(task->UnlockResources());
    EXPECT_FALSE(analyzer->IsConnected());
    ExpectEarlierSweepsKept();
}

TEST_F(AutoSCPIAnalyzerTest, SetupAndSweepGoOutAsTheStoredCommandsMake) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    const std::vector<std::string> setup = simulator.ReceivedMessages();
    const auto sent = [&setup](const std::string& message) {
        return std::find(setup.begin(), setup.end(), message) != setup.end();
    };
    for (const char* message : {"INIT:CONT 0", "FORMAT:BORD SWAP", "FREQ:CENT 2e+06", "FREQ:SPAN 2e+06",
                                "POW:RF:ATT 0", "BAND 100000", "UNIT:POW DBM", "FORMAT:DATA REAL,32", "SWE:POIN?"})
        EXPECT_TRUE(sent(message)) << message;
    // Sweep points were left unset: only their query goes out.
    EXPECT_EQ(std::count_if(setup.begin(), setup.end(),
                            [](const std::string& message) { return message.starts_with("SWE:POIN "); }),
              0);

    ExpectStepBringsTheTrace(*task, simulator);
    const std::vector<std::string> all = simulator.ReceivedMessages();
    ASSERT_EQ(all.size(), setup.size() + 3);
    EXPECT_EQ(std::vector<std::string>(all.end() - 3, all.end()),
              (std::vector<std::string>{"INIT", "*WAI", "TRAC? trace1"}));
    EXPECT_EQ(simulator.TriggerCount(), 1u);
    EXPECT_TRUE(task->UnlockResources());
}

TEST_F(AutoSCPIAnalyzerTest, MalformedBlockPrefixFailsTheSweep) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    ExpectStepBringsTheTrace(*task, simulator);
    simulator.SendMalformedBlockPrefix("#X");
    EXPECT_EQ(StepError(*task), measurementsFailed);
    ExpectEarlierSweepsKept();
    EXPECT_TRUE(task->UnlockResources());
}

// Opens QueryInfo to the test.
class InspectableAnalyzer : public AutoSCPIAnalyzer {
public:
    using AutoSCPIAnalyzer::AutoSCPIAnalyzer;
    using AutoSCPIAnalyzer::QueryInfo;
};

TEST_F(AutoSCPIAnalyzerTest, FailedIdentityQueryLeavesEmptyInformation) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    InspectableAnalyzer analyzer(Resource(simulator));
    analyzer.QueryInfo(); // before Connect: no link to ask
    EXPECT_EQ(analyzer.GetInfo().model, "");
    ASSERT_TRUE(analyzer.Connect());
    analyzer.QueryInfo();
    EXPECT_EQ(analyzer.GetInfo().model, "SIM-SA3000");
    simulator.AnswerIdentityWithTooFewFields(true);
    analyzer.QueryInfo();
    EXPECT_EQ(analyzer.GetInfo().model, "");
    EXPECT_EQ(analyzer.GetInfo().manufacturer, "");
    EXPECT_EQ(analyzer.GetInfo().serial, "");
    analyzer.Disconnect();
}

TEST_F(AutoSCPIAnalyzerTest, ReconnectStartsWithoutTheScriptVariables) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    AutoSCPIAnalyzer analyzer(Resource(simulator));
    ASSERT_TRUE(analyzer.Connect());
    AutoSCPIAnalyzerParameters parameters;
    parameters.SetMinFrequency(Frequency(1e6));
    parameters.SetMaxFrequency(Frequency(3e6));
    analyzer.SetAnalyzerParameters(&parameters);
    analyzer.InitAnalyzer();
    analyzer.GetState().interpreter->Run("{FrequencyCenter}");
    EXPECT_EQ(analyzer.GetState().interpreter->GetOutput(), "2e+06\n");

    analyzer.Disconnect();
    ASSERT_TRUE(analyzer.Connect());
    analyzer.GetState().interpreter->Run("{FrequencyCenter}");
    EXPECT_EQ(analyzer.GetState().interpreter->GetOutput(), "");
    analyzer.Disconnect();
}

TEST_F(AutoSCPIAnalyzerTest, SwappedByteOrderIsDecodedBitForBit) {
    hvxsim::ScpiSimulator simulator(Dialect("alpha"));
    // Values whose bytes are all different, so that any misplaced byte shows.
    simulator.SetTraceSource([](const std::vector<double>& frequencies) {
        std::vector<float> values;
        for (size_t i = 0; i < frequencies.size(); ++i)
            values.push_back(std::bit_cast<float>(uint32_t{0xC2123456u} + static_cast<uint32_t>(i) * 0x01030507u % 0x00FFFFFFu));
        return values;
    });
    StoreSet(simulator, test::SimFeatureSet("alpha", test::PrefixedBlock(SCPIValueFormat::SwappedFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    const hvxsim::ScpiInstrumentSettings settings = simulator.Settings();
    EXPECT_EQ(settings.byteOrder, hvxsim::ByteOrder::BigEndian);
    EXPECT_FALSE(settings.asciiFormat);
    EXPECT_EQ(settings.mode, "SAN");

    for (int sweep = 0; sweep < 3; ++sweep)
        ExpectStepBringsTheTrace(*task, simulator);
    // The wire held the big-endian bytes of the first value.
    const std::string reply = simulator.LastTraceReply();
    const uint32_t first = std::bit_cast<uint32_t>(traces.back().front());
    const std::string prefix = fmt::format("#{}{}", std::to_string(traces.back().size() * 4).size(), traces.back().size() * 4);
    ASSERT_GT(reply.size(), prefix.size() + 4);
    EXPECT_EQ(static_cast<uint8_t>(reply[prefix.size()]), first >> 24);
    EXPECT_EQ(static_cast<uint8_t>(reply[prefix.size() + 3]), first & 0xFF);
    EXPECT_TRUE(task->UnlockResources());
}

TEST_F(AutoSCPIAnalyzerTest, LinkDroppedBeforeATraceEndsTheScanAndKeepsEarlierSweeps) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    simulator.DropLinkAfterSweeps(3);
    for (int sweep = 0; sweep < 3; ++sweep)
        ExpectStepBringsTheTrace(*task, simulator);
    EXPECT_EQ(StepError(*task), measurementsFailed);
    ExpectEarlierSweepsKept();
    EXPECT_EQ(data->GetState(), IScanData::State::Scanning);
    EXPECT_TRUE(task->UnlockResources());
    ExpectEarlierSweepsKept();
}

TEST_F(AutoSCPIAnalyzerTest, LinkDroppedInsideABlockEndsTheScanAndKeepsEarlierSweeps) {
    hvxsim::ScpiSimulator simulator(Dialect("default"));
    StoreSet(simulator, test::SimFeatureSet("default", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, -1)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    for (int sweep = 0; sweep < 2; ++sweep)
        ExpectStepBringsTheTrace(*task, simulator);
    simulator.DropLinkMidBlock(1000);
    EXPECT_EQ(StepError(*task), measurementsFailed);
    EXPECT_EQ(simulator.SweepCount(), 3u);
    ExpectEarlierSweepsKept();
    EXPECT_TRUE(task->UnlockResources());
}

// Two spare bytes behind each block, and a set that says nothing follows: the
// first sweep is whole, the spare bytes then stand where the next block's
// prefix is looked for.
TEST_F(AutoSCPIAnalyzerTest, SpareBytesLeftBehindTheBlockSpoilTheNextSweep) {
    hvxsim::ScpiSimulator simulator(Dialect("charlie"));
    StoreSet(simulator, test::SimFeatureSet("charlie", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, 0)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    ExpectStepBringsTheTrace(*task, simulator);
    EXPECT_EQ(traces.front().size(), 751u);
    const std::string reply = simulator.LastTraceReply();
    EXPECT_EQ(reply.substr(reply.size() - 2), std::string(2, '\0'));
    EXPECT_EQ(StepError(*task), measurementsFailed);
    ExpectEarlierSweepsKept();
    EXPECT_TRUE(task->UnlockResources());
}

// A positive count of spare bytes reads on until the link gives up: here the
// instrument closes the link after a whole reply, and that ends the sweep.
TEST_F(AutoSCPIAnalyzerTest, PositiveSpareByteCountReadsUntilTheLinkFails) {
    hvxsim::ScpiSimulator simulator(Dialect("charlie"));
    StoreSet(simulator, test::SimFeatureSet("charlie", test::PrefixedBlock(SCPIValueFormat::NativeFloat32, 2)));
    const auto analyzer = AddAnalyzer(simulator);
    ASSERT_NE(analyzer, nullptr);
    const std::unique_ptr<GenericScanTask> task = MakeScan(simulator, analyzer);
    ASSERT_TRUE(task->LockResources());
    simulator.DropLinkMidBlock(size_t{1} << 20); // more than the reply: all of it goes out, then the link closes
    EXPECT_EQ(StepError(*task), measurementsFailed);
    EXPECT_EQ(simulator.SweepCount(), 1u);
    EXPECT_TRUE(data->measurements.empty());
    EXPECT_TRUE(task->UnlockResources());
}

#endif

} // namespace
} // namespace nrq
