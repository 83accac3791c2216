// halvex scan, info and export run as processes, one run of them stopped by SIGINT.
#include "halvex/Progress.h"
#include "support/ChildProcess.h"
#include "support/HalvexProcess.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#ifdef HVX_HALVEX_PATH

namespace nrq {
namespace {

using test::Halvex;
using test::Outcome;
using test::Quote;

const std::string& halvex = test::halvexPath;

size_t Lines(const std::string& text) {
    size_t lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}

// halvex itself as a child process.
struct Child : test::ChildProcess {
    explicit Child(std::vector<std::string> arguments, const std::vector<std::string>& environment = {})
        : ChildProcess(WithProgram(std::move(arguments)), environment) {}
    static std::vector<std::string> WithProgram(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), halvex);
        return arguments;
    }
};

TEST(HalvexScan, ScanOfARectangleThenInfoAndExport) {
    const auto dir = test::MakeTempDir("halvex-scan");
    const Outcome scan = Halvex("scan --cells 2,1:0,0 --sweep-ms 0 --out " + Quote(dir / "a.hvxscan") + " --csv " +
                            Quote(dir / "a.csv"));
    ASSERT_EQ(scan.code, 0) << scan.output;
    EXPECT_NE(scan.output.find("scan: 6 points (3 x 2 cells from column 0, row 0, board v2, level 1), spectral data"),
              std::string::npos)
        << scan.output;
    EXPECT_NE(scan.output.find("done: 6 of 6 points in "), std::string::npos) << scan.output;

    const Outcome info = Halvex("info " + Quote(dir / "a.hvxscan"));
    ASSERT_EQ(info.code, 0) << info.output;
    for (const char* line : {"format version: 6\n", "outcome: finished, 6 of 6 points\n",
                             "analyzer parameters: NullAP, the simulated analyzer, 100MHz to 200MHz, 600 points a "
                             "sweep, RBW 100kHz\n",
                             "scanner parameters: TV2SP, the network board's grid\n", "interleaved: no\n",
                             "cells: 6 of 42 x 29, columns 0 to 2, rows 0 to 1\n", "scan data: SpectralSD\n",
                             "state: Complete\n", "scanner: Nerquil Labs, NullScanner 0, serial nullsc0\n",
                             "analyzer: Nerquil Labs, NullAnalyzer 0, serial nullan0\n",
                             "spectrum: 600 points, 100MHz to 200MHz\n", "strongest 5: "})
        EXPECT_NE(info.output.find(line), std::string::npos) << line << info.output;

    const std::string csv = test::ReadFileBytes(dir / "a.csv");
    EXPECT_EQ(csv.rfind("Frequency (MHz),Amplitude (dBm)\n100,", 0), 0u) << csv.substr(0, 80);
    EXPECT_EQ(Lines(csv), 601u);
    const Outcome exported = Halvex("export " + Quote(dir / "a.hvxscan") + " --csv " + Quote(dir / "b.csv"));
    ASSERT_EQ(exported.code, 0) << exported.output;
    EXPECT_EQ(test::ReadFileBytes(dir / "b.csv"), csv);
}

TEST(HalvexScan, SpatialAndCombinedShapes) {
    const auto dir = test::MakeTempDir("halvex-shapes");
    const Outcome spatial = Halvex("scan --shape spatial --board v1 --cells 5,5:6,5 --repeat 2 --sweep-ms 0 --quiet --out " +
                               Quote(dir / "s.hvxscan") + " --csv " + Quote(dir / "s.csv"));
    ASSERT_EQ(spatial.code, 0) << spatial.output;
    EXPECT_EQ(spatial.output, "");
    const Outcome info = Halvex("info " + Quote(dir / "s.hvxscan"));
    EXPECT_NE(info.output.find("scanner parameters: TV1SP, the USB board's grid\n"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("scan data: SpatialSD\n"), std::string::npos) << info.output;
    // Two passes over the same two cells write over the first pass's entries.
    EXPECT_NE(info.output.find("positions: 2\n"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("area: x 41.25 mm to 48.75 mm, y 41.25 mm to 41.25 mm\n"), std::string::npos)
        << info.output;

    const Outcome combined = Halvex("scan --shape combined --cells 0,0:0,0 --level 2 --sweep-ms 0 --out " +
                                Quote(dir / "c.hvxscan"));
    ASSERT_EQ(combined.code, 0) << combined.output;
    const Outcome combinedInfo = Halvex("info " + Quote(dir / "c.hvxscan"));
    EXPECT_NE(combinedInfo.output.find("positions: 4, 2400 values in all\n"), std::string::npos) << combinedInfo.output;
    // A quarter and three quarters of 7.5 mm; 1.875 mm as a float lies just below, so it rounds down.
    EXPECT_NE(combinedInfo.output.find("area: x 1.87 mm to 5.62 mm, y 1.87 mm to 5.62 mm\n"), std::string::npos)
        << combinedInfo.output;
}

// Each stop signal ends the scan after the sweep in hand, writes both files
// and records the stop in the scan file.
void StopsTheScanAndWritesTheFiles(int signal, const std::string& name) {
    const auto dir = test::MakeTempDir("halvex-stop");
    const std::string out = (dir / "i.hvxscan").string();
    const std::string csv = (dir / "i.csv").string();
    // 1218 points of 20 ms: far longer than the wait for the first line.
    Child child({"scan", "--cells", "all", "--sweep-ms", "20", "--out", out, "--csv", csv});
    ASSERT_TRUE(child.spawned);
    ASSERT_TRUE(child.ReadUntil("scanning:")) << child.output;
    ASSERT_EQ(::kill(child.pid, signal), 0);
    const int code = child.Finish();
    EXPECT_EQ(code, 130) << child.output;
    EXPECT_NE(child.output.find(name + ": stopping after the sweep in hand...\n"), std::string::npos) << child.output;
    EXPECT_NE(child.output.find("stopped: "), std::string::npos) << child.output;
    EXPECT_NE(child.output.find(" of 1218 points in "), std::string::npos) << child.output;
    EXPECT_NE(child.output.find("wrote " + out + "\n"), std::string::npos) << child.output;
    EXPECT_NE(child.output.find("wrote " + csv + "\n"), std::string::npos) << child.output;

    const Outcome info = Halvex("info '" + out + "'");
    ASSERT_EQ(info.code, 0) << info.output;
    EXPECT_NE(info.output.find("scan data: SpectralSD\n"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("outcome: stopped after "), std::string::npos) << info.output;
    EXPECT_NE(info.output.find(" of 1218 points\n"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("cells: 1218 of 42 x 29, columns 0 to 41, rows 0 to 28\n"), std::string::npos)
        << info.output;
    // Stop leaves Complete with data in hand and Empty without.
    const bool complete = info.output.find("state: Complete\n") != std::string::npos;
    const bool empty = info.output.find("state: Empty\n") != std::string::npos;
    EXPECT_TRUE(complete || empty) << info.output;
    const std::string text = test::ReadFileBytes(csv);
    EXPECT_EQ(text.rfind("Frequency (MHz),Amplitude (dBm)\n", 0), 0u);
    EXPECT_EQ(Lines(text), complete ? 601u : 1u);
}

TEST(HalvexScan, SigintStopsTheScanAndTheFilesAreWritten) { StopsTheScanAndWritesTheFiles(SIGINT, "SIGINT"); }

TEST(HalvexScan, SigtermStopsTheScanAsCtrlCDoes) { StopsTheScanAndWritesTheFiles(SIGTERM, "SIGTERM"); }

TEST(HalvexScan, SighupStopsTheScanAsCtrlCDoes) { StopsTheScanAndWritesTheFiles(SIGHUP, "SIGHUP"); }

TEST(HalvexScan, ASecondSignalLeavesAtOnceWithoutFiles) {
    const auto dir = test::MakeTempDir("halvex-second-signal");
    const std::string out = (dir / "s.hvxscan").string();
    // A sweep of a minute: the first signal waits for it, the second does not.
    Child child({"scan", "--cells", "0,0:0,1", "--sweep-ms", "60000", "--out", out});
    ASSERT_TRUE(child.spawned);
    ASSERT_TRUE(child.ReadUntil("scanning:")) << child.output;
    // Both signals are pending before the scan can end: the second one wins however fast the first is served.
    ASSERT_EQ(::kill(child.pid, SIGTERM), 0);
    ASSERT_EQ(::kill(child.pid, SIGINT), 0);
    EXPECT_EQ(child.Finish(), 1) << child.output;
    EXPECT_NE(child.output.find(" again: leaving at once; " + out + " is not written\n"), std::string::npos)
        << child.output;
    EXPECT_FALSE(std::filesystem::exists(out));
}

// One frequency and no grid: +1000 dB everywhere, far above any noise of the simulator.
std::string PlusThousandCorrection() {
    std::string correction = "CORRECTION";
    correction += std::string(4, '\0');
    correction += std::string("\0\0\0\0", 4) + std::string("\0\0\0\0", 4) + std::string("\x01\0\0\0", 4);
    correction += std::string("\0\0\0\0\xa3\xe1\xa1\x41", 8); // 150e6 as a 64-bit float
    correction += std::string("\0\0\x7a\x44", 4);                 // 1000 as a 32-bit float
    return correction;
}

TEST(HalvexScan, BadCorrectionFileCostsNoScan) {
    const auto dir = test::MakeTempDir("halvex-bad-correction");
    test::WriteFileBytes(dir / "bad.cor", "NOT A CORRECTION FILE");
    const Outcome bad = Halvex("scan --sweep-ms 0 --correction " + Quote(dir / "bad.cor") + " --out " +
                               Quote(dir / "d.hvxscan"));
    EXPECT_EQ(bad.code, 1);
    EXPECT_EQ(bad.output, "halvex: " + (dir / "bad.cor").string() + ": The given data is not a correction file\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "d.hvxscan"));
}

TEST(HalvexScan, CorrectionFileIsAddedToTheData) {
    const auto dir = test::MakeTempDir("halvex-correction");
    test::WriteFileBytes(dir / "plus1000.cor", PlusThousandCorrection());
    const Outcome scan = Halvex("scan --cells 0,0:1,1 --sweep-ms 0 --correction " + Quote(dir / "plus1000.cor") +
                                " --out " + Quote(dir / "c.hvxscan") + " --csv " + Quote(dir / "c.csv"));
    ASSERT_EQ(scan.code, 0) << scan.output;
    if (scan.output.find("note: spectral data takes no correction\n") != std::string::npos)
        GTEST_SKIP() << "this library's spectral data does not apply corrections yet";
    const std::string csv = test::ReadFileBytes(dir / "c.csv");
    ASSERT_EQ(Lines(csv), 601u);
    size_t line = csv.find('\n') + 1;
    while (line < csv.size()) {
        const size_t comma = csv.find(',', line);
        const size_t end = csv.find('\n', line);
        ASSERT_GT(std::stod(csv.substr(comma + 1, end - comma - 1)), 500.0) << csv.substr(line, end - line);
        line = end + 1;
    }
}

TEST(HalvexScan, WrongCommandLinesExitWithTwo) {
    for (const char* arguments : {"scan --level 0", "scan --cells 1,2:3", "scan --cells 42,0:0,0", "scan --shape round",
                                  "scan --board v1 --level 2", "scan --cells random --level 2", "scan --bogus 1",
                                  "scan --repeat 2", "scan --cells random --repeat 3", "info", "export x.hvxscan"}) {
        const Outcome run = Halvex(arguments);
        EXPECT_EQ(run.code, 2) << arguments << "\n" << run.output;
        EXPECT_EQ(run.output.rfind("halvex: ", 0), 0u) << arguments << "\n" << run.output;
    }
    const Outcome level = Halvex("scan --level 9");
    EXPECT_EQ(level.output, "halvex: --level takes a whole number from 1 to 8, not '9'\nTry 'halvex scan --help'.\n");
}

TEST(HalvexScan, DamagedFilesGiveOneLineAndExitOne) {
    const auto dir = test::MakeTempDir("halvex-damaged");
    ASSERT_EQ(Halvex("scan --cells 0,0:1,0 --sweep-ms 0 --quiet --out " + Quote(dir / "good.hvxscan")).code, 0);
    const std::string good = test::ReadFileBytes(dir / "good.hvxscan");
    ASSERT_GT(good.size(), 100u);

    test::WriteFileBytes(dir / "cut.hvxscan", good.substr(0, 100));
    const Outcome cut = Halvex("info " + Quote(dir / "cut.hvxscan"));
    EXPECT_EQ(cut.code, 1);
    EXPECT_EQ(cut.output, "halvex: " + (dir / "cut.hvxscan").string() + ": the file is truncated: the header announces " +
                              std::to_string(good.size() - 16) + " bytes of records, 84 are there\n");

    test::WriteFileBytes(dir / "text.hvxscan", "just some text\n");
    const Outcome text = Halvex("export " + Quote(dir / "text.hvxscan") + " --csv " + Quote(dir / "x.csv"));
    EXPECT_EQ(text.code, 1);
    EXPECT_EQ(text.output, "halvex: " + (dir / "text.hvxscan").string() + ": not a halvex scan file\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "x.csv"));

    std::string damaged = good;
    damaged[16 + 4] = 'X'; // the analyzer record's type becomes "XullAP", still unknown: readable
    damaged[16] = '\x7f';  // and now its length runs past the records
    test::WriteFileBytes(dir / "bad.hvxscan", damaged);
    const Outcome bad = Halvex("info " + Quote(dir / "bad.hvxscan"));
    EXPECT_EQ(bad.code, 1);
    EXPECT_EQ(Lines(bad.output), 1u) << bad.output;
    EXPECT_EQ(bad.output.find(": ("), std::string::npos) << bad.output;
    EXPECT_EQ(bad.output.rfind("halvex: " + (dir / "bad.hvxscan").string() + ": ", 0), 0u) << bad.output;

    // The length announced is checked against the file's size first.
    test::WriteFileBytes(dir / "long.hvxscan", good + "trailing");
    const Outcome trailing = Halvex("info " + Quote(dir / "long.hvxscan"));
    EXPECT_EQ(trailing.output,
              "halvex: " + (dir / "long.hvxscan").string() + ": 8 bytes follow the records, where the file should end\n");

    const Outcome missing = Halvex("info " + Quote(dir / "none.hvxscan"));
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.output,
              "halvex: cannot read " + (dir / "none.hvxscan").string() + ": No such file or directory\n");
}

// Runs a shell script in a private mount namespace, for read-only and full file systems.
bool MountNamespacesWork() {
    std::string output;
    return test::RunCommand("unshare -m true", output) == 0;
}

// halvex in a private mount namespace, once `mount` (a shell command on "$0",
// the folder) has run; `arguments` quote with double quotes.
Outcome HalvexAfterMount(const std::string& mount, const std::filesystem::path& folder, const std::string& arguments) {
    Outcome run;
    run.code = test::RunCommand("unshare -m sh -c '" + mount + " && exec \"$1\" " + arguments + "' " + Quote(folder) +
                                    " " + Quote(halvex),
                                run.output);
    return run;
}

TEST(HalvexScanOutputs, AreCheckedBeforeTheFirstSweep) {
    const auto dir = test::MakeTempDir("halvex-outputs");
    test::WriteFileBytes(dir / "file.txt", "x");
    const std::string missing = (dir / "none").string();
    struct Case {
        std::string arguments;
        std::string message;
    };
    const Case cases[] = {
        {"--out " + missing + "/x.hvxscan", "--out: the folder " + missing + " does not exist"},
        {"--out " + dir.string(), "--out: " + dir.string() + " is a folder; give a file name"},
        {"--out " + (dir / "a.hvxscan").string() + " --csv " + (dir / "file.txt/x.csv").string(),
         "--csv: " + (dir / "file.txt").string() + " is not a folder"},
        {"--out " + (dir / "a.hvxscan").string() + " --csv " + (dir / "." / "a.hvxscan").string(),
         "--out and --csv name the same file " + (dir / "." / "a.hvxscan").string()},
        {"--out - --csv -", "--out and --csv name the same file standard output"},
        {"--out " + (dir / "b.hvxscan").string() + " --correction " + (dir / "b.hvxscan").string(),
         "--out: " + (dir / "b.hvxscan").string() + " is the input file itself"},
    };
    for (const Case& c : cases) {
        const Outcome run = Halvex("scan --sweep-ms 0 " + c.arguments);
        EXPECT_EQ(run.code, 2) << c.arguments;
        EXPECT_EQ(run.output, "halvex: " + c.message + "\nTry 'halvex scan --help'.\n") << c.arguments;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "a.hvxscan"));
    EXPECT_FALSE(std::filesystem::exists(dir / "b.hvxscan"));
}

TEST(HalvexScanOutputs, AReadOnlyPlaceIsRefusedAtOnce) {
    if (!MountNamespacesWork())
        GTEST_SKIP() << "no private mount namespace here (unshare -m)";
    const auto dir = test::MakeTempDir("halvex-read-only");
    const std::string folder = dir.string();
    const std::string out = (dir / "x.hvxscan").string();
    const Outcome run = HalvexAfterMount("mount --bind \"$0\" \"$0\" && mount -o remount,ro,bind \"$0\"", folder,
                                         "scan --sweep-ms 0 --out \"" + out + "\"");
    EXPECT_EQ(run.code, 2) << run.output;
    EXPECT_EQ(run.output, "halvex: --out: cannot write " + out + ": Read-only file system\nTry 'halvex scan --help'.\n");
}

TEST(HalvexScanOutputs, NoRoomOnTheDiskIsRefusedAtOnce) {
    if (!MountNamespacesWork())
        GTEST_SKIP() << "no private mount namespace here (unshare -m)";
    const auto dir = test::MakeTempDir("halvex-no-room");
    const std::string out = (dir / "x.hvxscan").string();
    const Outcome run = HalvexAfterMount("mount -t tmpfs -o size=16k tmpfs \"$0\"", dir,
                                         "scan --shape combined --cells 0,0:9,0 --sweep-ms 0 --out \"" + out + "\"");
    EXPECT_EQ(run.code, 2) << run.output;
    EXPECT_NE(run.output.find("halvex: --out: " + dir.string() + " has room for 16.4 kB, and " + out +
                              " needs about "),
              std::string::npos)
        << run.output;
    EXPECT_EQ(run.output.find("scanning:"), std::string::npos) << run.output;
}

TEST(HalvexScanOutputs, ExportOntoItsOwnInputIsRefused) {
    const auto dir = test::MakeTempDir("halvex-export-self");
    ASSERT_EQ(Halvex("scan --cells 0,0:0,0 --sweep-ms 0 --quiet --out " + Quote(dir / "s.hvxscan")).code, 0);
    const std::string before = test::ReadFileBytes(dir / "s.hvxscan");
    const Outcome run = Halvex("export " + Quote(dir / "s.hvxscan") + " --csv " + Quote(dir / "s.hvxscan"));
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.output, "halvex: --csv: " + (dir / "s.hvxscan").string() +
                              " is the input file itself\nTry 'halvex export --help'.\n");
    EXPECT_EQ(test::ReadFileBytes(dir / "s.hvxscan"), before);
}

// The one file in `folder` whose name starts with "halvex-rescue-" and ends in `suffix`.
std::filesystem::path RescueFile(const std::filesystem::path& folder, const std::string& suffix) {
    std::filesystem::path found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("halvex-rescue-", 0) == 0 && name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
            found = entry.path();
    }
    return found;
}

void ExpectRescued(const test::ChildProcess& child, const std::string& out, const std::string& reason,
                   const std::filesystem::path& rescueFolder) {
    const std::filesystem::path scanRescue = RescueFile(rescueFolder, "-x.hvxscan");
    const std::filesystem::path csvRescue = RescueFile(rescueFolder, "-x.csv");
    ASSERT_FALSE(scanRescue.empty()) << child.output;
    ASSERT_FALSE(csvRescue.empty()) << child.output;
    EXPECT_NE(child.output.find("halvex: cannot write " + out + ": " + reason + "; the scan file was saved as " +
                                scanRescue.string() + " instead\n"),
              std::string::npos)
        << child.output;
    EXPECT_NE(child.output.find("; the CSV file was saved as " + csvRescue.string() + " instead\n"), std::string::npos)
        << child.output;
    const Outcome info = Halvex("info " + Quote(scanRescue));
    EXPECT_EQ(info.code, 0) << info.output;
    EXPECT_NE(info.output.find("outcome: stopped after "), std::string::npos) << info.output;
    EXPECT_EQ(test::ReadFileBytes(csvRescue).rfind("Frequency (MHz),Amplitude (dBm)\n", 0), 0u);
}

TEST(HalvexScanRescue, AFolderRemovedDuringTheScanLosesNothing) {
    const auto dir = test::MakeTempDir("halvex-vanished");
    const auto target = dir / "target";
    const auto rescue = dir / "rescue";
    std::filesystem::create_directories(target);
    std::filesystem::create_directories(rescue);
    const std::string out = (target / "x.hvxscan").string();
    Child child({"scan", "--cells", "all", "--sweep-ms", "20", "--out", out, "--csv", (target / "x.csv").string()},
                {"TMPDIR=" + rescue.string()});
    ASSERT_TRUE(child.spawned);
    ASSERT_TRUE(child.ReadUntil("scanning:")) << child.output;
    std::filesystem::remove_all(target);
    ASSERT_EQ(::kill(child.pid, SIGINT), 0);
    EXPECT_EQ(child.Finish(), 1) << child.output;
    ExpectRescued(child, out, "No such file or directory", rescue);
}

TEST(HalvexScanRescue, AFullDiskAtTheEndLosesNothing) {
    if (!MountNamespacesWork())
        GTEST_SKIP() << "no private mount namespace here (unshare -m)";
    const auto dir = test::MakeTempDir("halvex-full");
    const auto target = dir / "small";
    const auto rescue = dir / "rescue";
    std::filesystem::create_directories(target);
    std::filesystem::create_directories(rescue);
    const std::string out = (target / "x.hvxscan").string();
    test::ChildProcess child({"unshare", "-m", "sh", "-c",
                 "mount -t tmpfs -o size=1m tmpfs \"$0\" && exec \"$1\" scan --cells all --sweep-ms 20 --out \"$2\" "
                 "--csv \"$3\"",
                 target.string(), halvex, out, (target / "x.csv").string()},
                {"TMPDIR=" + rescue.string()});
    ASSERT_TRUE(child.spawned);
    ASSERT_TRUE(child.ReadUntil("scanning:")) << child.output;
    // The small file system is seen through the scanning process's own root.
    const std::filesystem::path filler =
        std::filesystem::path("/proc") / std::to_string(child.pid) / "root" / target.relative_path() / "filler";
    {
        std::FILE* file = std::fopen(filler.c_str(), "wb");
        ASSERT_NE(file, nullptr) << filler;
        const std::string block(4096, 'f');
        while (std::fwrite(block.data(), 1, block.size(), file) == block.size() && std::fflush(file) == 0) {
        }
        std::fclose(file);
    }
    ASSERT_EQ(::kill(child.pid, SIGINT), 0);
    EXPECT_EQ(child.Finish(), 1) << child.output;
    ExpectRescued(child, out, "No space left on device", rescue);
}

TEST(HalvexScanPlan, TheEstimateComesBeforeTheFirstSweep) {
    const auto dir = test::MakeTempDir("halvex-estimate");
    const Outcome run = Halvex("scan --shape combined --cells 0,0:3,0 --sweep-ms 250 --out " + Quote(dir / "x.hvxscan") +
                               " --csv " + Quote(dir / "x.csv"));
    ASSERT_EQ(run.code, 0) << run.output;
    // Four sweeps of 250 ms: one second; the scan file's size as it came out.
    const std::string file = halvex::FormatBytes(std::filesystem::file_size(dir / "x.hvxscan"));
    const std::string line = "estimate: about 0:01, a scan file of about " + file + " and a CSV file of about ";
    const size_t at = run.output.find(line);
    EXPECT_NE(at, std::string::npos) << line << "\n" << run.output;
    EXPECT_LT(at, run.output.find("scanning:")) << run.output;
    EXPECT_NE(run.output.find(" of memory\n", at), std::string::npos) << run.output;
}

TEST(HalvexScanPlan, AScanLargerThanTheFormatIsRefusedWithItsFigures) {
    const auto dir = test::MakeTempDir("halvex-too-large");
    const Outcome run = Halvex("scan --shape combined --level 8 --out " + Quote(dir / "x.hvxscan"));
    EXPECT_EQ(run.code, 2) << run.output;
    EXPECT_NE(run.output.find("halvex: the scan cannot be kept: 19955712 points of combined data make a scan file of "
                              "about "),
              std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find(" GB, and a scan file holds at most 4.29 GB; choose fewer cells, a lower level, or "
                              "spatial data\n"),
              std::string::npos)
        << run.output;
    EXPECT_EQ(run.output.find("scanning:"), std::string::npos) << run.output;
    EXPECT_FALSE(std::filesystem::exists(dir / "x.hvxscan"));
}

TEST(HalvexScanPlan, AScanLargerThanTheMemoryIsRefusedWithItsFigures) {
    const auto dir = test::MakeTempDir("halvex-memory");
    // 311808 points of combined data: about 760 MB of file and twice that in memory, within a 1 GB address space.
    Outcome run;
    run.code = test::RunCommand("sh -c 'ulimit -v 1000000 && exec \"$0\" scan --shape combined --level 5 --out \"$1\"' " +
                                    Quote(halvex) + " " + Quote(dir / "x.hvxscan"),
                                run.output);
    EXPECT_EQ(run.code, 2) << run.output;
    EXPECT_NE(run.output.find("halvex: the scan cannot be kept: 311808 points of combined data need about "),
              std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find(" of memory, and "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find(" are available; choose fewer cells"), std::string::npos) << run.output;
}

TEST(HalvexScanPlan, RepeatOnABoardThatDoesNotRepeatIsRefusedAtTheStart) {
    const Outcome v2 = Halvex("scan --repeat 3 --sweep-ms 0");
    EXPECT_EQ(v2.code, 2);
    EXPECT_EQ(v2.output, "halvex: --repeat 3 needs --board v1: the v2 board does not start a pass over, so passes "
                         "after the first would bring nothing\nTry 'halvex scan --help'.\n");
    const Outcome random = Halvex("scan --cells random --repeat 2 --sweep-ms 0");
    EXPECT_EQ(random.code, 2);
    EXPECT_NE(random.output.find("the random pass does not start a pass over"), std::string::npos) << random.output;
}

TEST(HalvexScanLog, AFolderThatCannotBeCreatedIsAWarning) {
    const auto dir = test::MakeTempDir("halvex-log-folder");
    test::WriteFileBytes(dir / "file", "not a folder");
    const auto temporary = dir / "tmp";
    std::filesystem::create_directories(temporary);
    const std::string wanted = (dir / "file" / "data" / "Nerquil Labs" / "Halvex2").string();
    Outcome run;
    run.code = test::RunCommand("XDG_DATA_HOME=" + Quote(dir / "file" / "data") + " TMPDIR=" + Quote(temporary) + " " +
                                    Quote(halvex) + " scan --cells 0,0:0,0 --sweep-ms 0 --quiet --out " +
                                    Quote(dir / "x.hvxscan"),
                                run.output);
    EXPECT_EQ(run.code, 0) << run.output;
    const std::string head = "halvex: warning: cannot create the log folder " + wanted + ": Not a directory; the log goes to ";
    ASSERT_EQ(run.output.rfind(head, 0), 0u) << run.output;
    const std::string log = run.output.substr(head.size(), run.output.size() - head.size() - 1);
    EXPECT_EQ(log.rfind((temporary / "halvex-data-").string(), 0), 0u) << log;
    EXPECT_NE(test::ReadFileBytes(log).find("Log start\n"), std::string::npos) << log;
    EXPECT_TRUE(std::filesystem::exists(dir / "x.hvxscan"));
}

} // namespace
} // namespace nrq

#endif
