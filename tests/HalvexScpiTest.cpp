// halvex against halvex-sim, two processes on loopback: the stand-in VISA
// library between them, a feature set from sim/feature-sets in the store.
#if defined(HVX_SCPI_SIM_AVAILABLE) && defined(HVX_HALVEX_PATH)

#include "halvex/ScanFile.h"

#include "HVX/App/Data/CombinedScanData.h"

#include "hvxsim/ScpiTrace.h"

#include "support/ChildProcess.h"
#include "support/HalvexProcess.h"
#include "support/LoopbackClient.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <dlfcn.h>

namespace nrq {
namespace {

using test::Halvex;
using test::Outcome;
using test::Quote;

constexpr uint64_t seed = 5;
const std::string instrument = "Halvex Simulation SIM-SA3000, serial SIM000001";

// halvex-sim scpi on an ephemeral port, answering at once.
class Simulator {
public:
    explicit Simulator(const std::string& dialect = "default", const std::vector<std::string>& extra = {})
        : process(Arguments(dialect, extra)) {
        const std::string marker = ", dialect " + dialect + "\n";
        if (process.ReadUntil(marker)) {
            const size_t colon = process.output.find("127.0.0.1:");
            port = static_cast<uint16_t>(std::stoul(process.output.substr(colon + 10)));
        }
    }
    static std::vector<std::string> Arguments(const std::string& dialect, const std::vector<std::string>& extra) {
        std::vector<std::string> arguments{HVX_SIM_PATH, "scpi",   "--port", "0", "--dialect", dialect, "--seed",
                                           std::to_string(seed), "--interrupt-window-ms", "0"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return arguments;
    }
    std::string Resource() const { return "TCPIP0::127.0.0.1::" + std::to_string(port) + "::SOCKET"; }

    test::ChildProcess process;
    uint16_t port = 0;
};

std::string StandInVisa() { return "LD_LIBRARY_PATH=" + Quote(HVX_VISA_STANDIN_DIR) + " "; }

// halvex with the stand-in VISA library on its search path.
Outcome HalvexOverVisa(const std::string& arguments) {
    Outcome run;
    run.code = test::RunCommand(StandInVisa() + Quote(test::halvexPath) + " " + arguments, run.output);
    return run;
}

// A store that holds the simulator's set for a dialect, added as a user adds it.
std::filesystem::path StoreFor(const std::string& dialect) {
    const auto dir = test::MakeTempDir("halvex-scpi-store");
    const std::string file = std::string(HVX_SOURCE_DIR) + "/sim/feature-sets/" + dialect + ".json";
    const Outcome added = Halvex("store add " + Quote(file) + " --store " + Quote(dir));
    EXPECT_EQ(added.code, 0) << added.output;
    return dir;
}

std::string Usage(const std::string& message, const std::string& command) {
    return "halvex: " + message + "\nTry 'halvex " + command + " --help'.\n";
}

TEST(HalvexScpi, FeaturesListsTheStoredSettingsWithTheirChoices) {
    Simulator sim;
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto store = StoreFor("default");
    const Outcome features = HalvexOverVisa("features " + sim.Resource() + " --store " + Quote(store));
    ASSERT_EQ(features.code, 0) << features.output;
    EXPECT_EQ(features.output, instrument + ": feature set HALVEX-SIM000001 in " + store.string() + "\n" +
                                   "Frequency Start = 0Hz  (frequency)\n"
                                   "Frequency Stop = 1GHz  (frequency)\n"
                                   "Continuous Sweeping = 0  (0 or 1, or unset)\n"
                                   "Attenuation = 0  (whole number, for example 0, 10, 20, 30, or unset)\n"
                                   "Sweep Points = unset  (whole number, for example 1001, or unset)\n"
                                   "RBW = 100kHz  (frequency, for example 100kHz, or unset)\n");

    const Outcome chosen = HalvexOverVisa("features scpi:" + sim.Resource() + " --store " + Quote(store) +
                                  " --set 'RBW=1 MHz' --set 'Attenuation=20' --set 'Frequency Stop=2.5GHz'");
    ASSERT_EQ(chosen.code, 0) << chosen.output;
    for (const char* line : {"\nFrequency Stop = 2.5GHz  (", "\nAttenuation = 20  (", "\nRBW = 1MHz  ("})
        EXPECT_NE(chosen.output.find(line), std::string::npos) << line << chosen.output;
}

TEST(HalvexScpi, BadSettingsAreRefusedWithTheSettingNamed) {
    Simulator sim;
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto store = StoreFor("default");
    const std::string features = "features " + sim.Resource() + " --store " + Quote(store);
    const Outcome word = HalvexOverVisa(features + " --set Attenuation=x");
    EXPECT_EQ(word.code, 2);
    EXPECT_EQ(word.output, Usage("setting 'Attenuation' takes a whole number, not 'x'", "features"));
    const Outcome misspelt = HalvexOverVisa(features + " --set RWB=1MHz");
    EXPECT_EQ(misspelt.code, 2);
    EXPECT_EQ(misspelt.output, Usage("the analyzer has no setting 'RWB'; did you mean 'RBW'?", "features"));
    const Outcome empty = HalvexOverVisa(features + " --set 'Frequency Start=2 GHz'");
    EXPECT_EQ(empty.output,
              Usage("the range 2GHz to 1GHz is empty: Frequency Start must lie below Frequency Stop", "features"));
}

// The n-th trace of the simulator under the settings the scan sent.
std::vector<float> ExpectedTrace(uint64_t sweep, int points = 1001) {
    hvxsim::TraceConditions conditions;
    conditions.startHz = 100e6;
    conditions.stopHz = 200e6;
    conditions.rbwHz = 1e6;
    conditions.points = points;
    conditions.attenuationDb = 10;
    conditions.preamp = false;
    return hvxsim::SynthesizeTrace(conditions, seed, sweep);
}

// A combined scan of the first `cells` cells of row 0, with every setting
// that shapes the trace given, into dir/scan.hvxscan.
Outcome ScanOnSimulator(const Simulator& sim, const std::filesystem::path& store, const std::filesystem::path& dir,
                        int cells, int points = 1001) {
    return HalvexOverVisa("scan --analyzer scpi:" + sim.Resource() + " --store " + Quote(store) +
                          " --shape combined --cells 0,0:" + std::to_string(cells - 1) + ",0 --out " +
                          Quote(dir / "scan.hvxscan") +
                          " --set 'Frequency Start=100 MHz' --set 'Frequency Stop=200 MHz' --set 'RBW=1 MHz'"
                          " --set Attenuation=10 --set 'Sweep Points=" + std::to_string(points) + "'");
}

// The scan file holds the simulator's first traces, bit for bit.
void ExpectTheSimulatorsTraces(const halvex::ScanFileContents& contents, uint64_t sweeps, int points = 1001) {
    const auto* data = dynamic_cast<const CombinedScanData*>(contents.GetScanData());
    ASSERT_NE(data, nullptr);
    ASSERT_EQ(data->GetMeasurements().size(), sweeps);
    for (uint64_t sweep = 0; sweep < sweeps; ++sweep) {
        const std::vector<float> expected = ExpectedTrace(sweep, points);
        const auto& values = data->GetMeasurements()[sweep].values;
        ASSERT_EQ(values.size(), expected.size());
        EXPECT_EQ(std::memcmp(values.data(), expected.data(), expected.size() * sizeof(float)), 0) << "sweep " << sweep;
    }
}

TEST(HalvexScpi, AScanOnTheSimulatorKeepsItsTracesBitForBit) {
    Simulator sim;
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto dir = test::MakeTempDir("halvex-scpi-scan");
    const Outcome scan = ScanOnSimulator(sim, StoreFor("default"), dir, 3);
    ASSERT_EQ(scan.code, 0) << scan.output;
    EXPECT_NE(scan.output.find("scan: 3 points (3 x 1 cells from column 0, row 0, board v2, level 1), combined data, "
                               "1 pass, sweeps by " +
                               instrument + " at " + sim.Resource() + ", 100MHz to 200MHz\n"),
              std::string::npos)
        << scan.output;
    EXPECT_NE(scan.output.find("estimate: time set by the analyzer, a scan file of about "), std::string::npos);
    EXPECT_NE(scan.output.find("done: 3 of 3 points in "), std::string::npos) << scan.output;

    // The instrument says what it was set to.
    test::LoopbackClient client(sim.port);
    EXPECT_EQ(std::stod(client.Query("FREQ:STAR?")), 100e6);
    EXPECT_EQ(std::stod(client.Query("FREQ:STOP?")), 200e6);
    EXPECT_EQ(std::stod(client.Query("BAND?")), 1e6);
    EXPECT_EQ(std::stod(client.Query("POW:ATT?")), 10);
    EXPECT_EQ(std::stoi(client.Query("SWE:POIN?")), 1001);
    client.Close();

    const halvex::ScanFileContents contents = halvex::ReadScanFile(test::ReadFileBytes(dir / "scan.hvxscan"));
    ExpectTheSimulatorsTraces(contents, 3);
    ASSERT_TRUE(contents.notes.has_value());
    EXPECT_EQ(contents.notes->sweepPoints, 1001);

    const Outcome info = Halvex("info " + Quote(dir / "scan.hvxscan"));
    EXPECT_NE(info.output.find("analyzer parameters: ESCAP, an SCPI analyzer of Halvex Simulation, serial SIM000001, "
                               "100MHz to 200MHz, 1001 points a sweep\n"
                               "setting: Attenuation = 10\n"
                               "setting: Continuous Sweeping = 0\n"
                               "setting: RBW = 1MHz\n"
                               "setting: Sweep Points = 1001\n"),
              std::string::npos)
        << info.output;
    EXPECT_NE(info.output.find("analyzer: Halvex Simulation, SIM-SA3000, serial SIM000001\n"), std::string::npos);
}

TEST(HalvexScpi, TheSwappedByteOrderOfAnotherFamilyIsDecoded) {
    Simulator sim("alpha");
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto dir = test::MakeTempDir("halvex-scpi-alpha");
    const Outcome scan = ScanOnSimulator(sim, StoreFor("alpha"), dir, 1);
    ASSERT_EQ(scan.code, 0) << scan.output;
    ExpectTheSimulatorsTraces(halvex::ReadScanFile(test::ReadFileBytes(dir / "scan.hvxscan")), 1);
}

// Two spare bytes behind each block: the set's line-feed rule reads them away
// as a message that ends at its time limit, so every sweep is whole.
TEST(HalvexScpi, SpareBytesBehindTheBlockAreReadAway) {
    Simulator sim("charlie");
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto dir = test::MakeTempDir("halvex-scpi-charlie");
    const Outcome scan = ScanOnSimulator(sim, StoreFor("charlie"), dir, 3, 751);
    ASSERT_EQ(scan.code, 0) << scan.output;
    ExpectTheSimulatorsTraces(halvex::ReadScanFile(test::ReadFileBytes(dir / "scan.hvxscan")), 3, 751);
}

TEST(HalvexScpi, AnInstrumentWithoutAStoredSetIsRefusedBeforeTheScan) {
    Simulator sim;
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto store = test::MakeTempDir("halvex-scpi-empty");
    const auto dir = test::MakeTempDir("halvex-scpi-refused");
    const Outcome scan = HalvexOverVisa("scan --analyzer scpi:" + sim.Resource() + " --store " + Quote(store) +
                                " --out " + Quote(dir / "scan.hvxscan"));
    EXPECT_EQ(scan.code, 1);
    EXPECT_EQ(scan.output, "halvex: no feature set for " + instrument + " in " + store.string() +
                               " ('halvex store list' shows the stored sets)\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "scan.hvxscan"));
}

TEST(HalvexScpi, AnAddressWhereNothingAnswersIsNamed) {
    const auto store = test::MakeTempDir("halvex-scpi-nothing");
    const Outcome features = HalvexOverVisa("features TCPIP0::127.0.0.1::1::SOCKET --store " + Quote(store));
    EXPECT_EQ(features.code, 1);
    EXPECT_EQ(features.output, "halvex: cannot reach TCPIP0::127.0.0.1::1::SOCKET: no instrument answers there\n");
}

TEST(HalvexScpi, WithoutAVisaLibraryTheLineSaysSo) {
    if (void* visa = ::dlopen("libvisa.so", RTLD_NOW | RTLD_LOCAL)) {
        ::dlclose(visa);
        GTEST_SKIP() << "this machine has a VISA library of its own";
    }
    const auto store = test::MakeTempDir("halvex-scpi-novisa");
    const Outcome features = Halvex("features TCPIP0::127.0.0.1::1::SOCKET --store " + Quote(store));
    EXPECT_EQ(features.code, 1);
    EXPECT_EQ(features.output.rfind("halvex: cannot reach TCPIP0::127.0.0.1::1::SOCKET: no VISA library (libvisa.so "
                                    "or libiovisa.so) was found; ",
                                    0),
              0u)
        << features.output;
}

TEST(HalvexScpi, OptionsOfTheOtherAnalyzerAreRefusedAtOnce) {
    const auto dir = test::MakeTempDir("halvex-scpi-options");
    const std::string out = " --out " + Quote(dir / "scan.hvxscan");
    EXPECT_EQ(Halvex("scan --set RBW=1MHz" + out).output,
              Usage("--set belongs to an SCPI analyzer: give --analyzer scpi:RESOURCE", "scan"));
    EXPECT_EQ(Halvex("scan --analyzer scpi:TCPIP0::127.0.0.1::1::SOCKET --sweep-ms 5" + out).output,
              Usage("--sweep-ms belongs to the simulated analyzer; an SCPI analyzer sweeps in its own time", "scan"));
    const Outcome other = Halvex("scan --analyzer sa44b" + out);
    EXPECT_EQ(other.code, 2);
    EXPECT_EQ(other.output, Usage("--analyzer takes null or scpi:RESOURCE, not 'sa44b'", "scan"));
    EXPECT_FALSE(std::filesystem::exists(dir / "scan.hvxscan"));
}

TEST(HalvexScpi, AnInstrumentLostMidScanEndsItWithWhatWasMeasuredWritten) {
    Simulator sim("default", {"--drop-link-after", "2"});
    ASSERT_NE(sim.port, 0) << sim.process.output;
    const auto dir = test::MakeTempDir("halvex-scpi-lost");
    const Outcome scan = ScanOnSimulator(sim, StoreFor("default"), dir, 5);
    EXPECT_EQ(scan.code, 1) << scan.output;
    EXPECT_NE(scan.output.find("\nhalvex: Halvex failed to collect measurements from the analyzer.\n"),
              std::string::npos)
        << scan.output;
    const halvex::ScanFileContents contents = halvex::ReadScanFile(test::ReadFileBytes(dir / "scan.hvxscan"));
    ASSERT_TRUE(contents.notes.has_value());
    EXPECT_EQ(contents.notes->outcome, halvex::ScanOutcome::Failed);
    EXPECT_EQ(contents.notes->pointsMeasured, 2);
    EXPECT_EQ(contents.notes->pointsPlanned, 5);
    ExpectTheSimulatorsTraces(contents, 2);
}

} // namespace
} // namespace nrq

#endif
