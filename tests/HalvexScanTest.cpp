// halvex scan, info and export run as processes, one run of them stopped by SIGINT.
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

#ifdef HVX_HALVEX_PATH

namespace nrq {
namespace {

const std::string halvex = HVX_HALVEX_PATH;

struct Outcome {
    int code = -1;
    std::string output;
};

Outcome Halvex(const std::string& arguments) {
    Outcome run;
    run.code = test::RunCommand("'" + halvex + "' " + arguments, run.output);
    return run;
}

std::string Quote(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

size_t Lines(const std::string& text) {
    size_t lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}

// A child whose stdout and stderr come through a pipe, read as they come.
class Child {
public:
    explicit Child(const std::vector<std::string>& arguments) {
        int fds[2];
        EXPECT_EQ(::pipe(fds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        posix_spawn_file_actions_addclose(&actions, fds[1]);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(halvex.c_str()));
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        spawned = posix_spawn(&pid, halvex.c_str(), &actions, nullptr, argv.data(), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        pipe = fds[0];
    }
    ~Child() {
        if (pipe >= 0)
            ::close(pipe);
        if (spawned && !reaped) {
            ::kill(pid, SIGKILL);
            int status = 0;
            ::waitpid(pid, &status, 0);
        }
    }

    // Reads until `text` has come, or the output ends; true when it came.
    bool ReadUntil(const std::string& text) {
        while (output.find(text) == std::string::npos)
            if (!ReadSome())
                return false;
        return true;
    }
    // Reads the rest and waits for the exit; the exit code, or -1.
    int Finish() {
        while (ReadSome()) {
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        reaped = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool spawned = false;
    pid_t pid = -1;
    std::string output;

private:
    bool ReadSome() {
        char buffer[4096];
        const ssize_t got = ::read(pipe, buffer, sizeof(buffer));
        if (got <= 0)
            return false;
        output.append(buffer, static_cast<size_t>(got));
        return true;
    }

    int pipe = -1;
    bool reaped = false;
};

TEST(HalvexScan, ScanOfARectangleThenInfoAndExport) {
    const auto dir = test::MakeTempDir("halvex-scan");
    const Outcome scan = Halvex("scan --cells 2,1:0,0 --sweep-ms 0 --out " + Quote(dir / "a.hvxscan") + " --csv " +
                            Quote(dir / "a.csv"));
    ASSERT_EQ(scan.code, 0) << scan.output;
    EXPECT_NE(scan.output.find("scan: 6 points (3 x 2 cells from column 0, row 0, board v2, level 1), spectral data"),
              std::string::npos)
        << scan.output;
    EXPECT_NE(scan.output.find("done: 6 points in "), std::string::npos) << scan.output;

    const Outcome info = Halvex("info " + Quote(dir / "a.hvxscan"));
    ASSERT_EQ(info.code, 0) << info.output;
    for (const char* line : {"format version: 5\n", "analyzer parameters: \"NullAP\", kept unread (8 bytes, format 5)\n",
                             "scanner parameters: TV2SP, the network board's grid\n",
                             "cells: 6 of 42 x 29, columns 0 to 2, rows 0 to 1\n", "scan data: SpectralSD\n",
                             "state: Complete\n", "scanner: Nerquil Labs, NullScanner 0, serial nullsc0\n",
                             "analyzer: Nerquil Labs, NullAnalyzer 0, serial nullan0\n",
                             "spectrum: 600 points, 100MHz to 200MHz\n"})
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

TEST(HalvexScan, SigintStopsTheScanAndTheFilesAreWritten) {
    const auto dir = test::MakeTempDir("halvex-interrupt");
    const std::string out = (dir / "i.hvxscan").string();
    const std::string csv = (dir / "i.csv").string();
    // 1218 points of 20 ms: far longer than the wait for the first line.
    Child child({"scan", "--cells", "all", "--sweep-ms", "20", "--out", out, "--csv", csv});
    ASSERT_TRUE(child.spawned);
    ASSERT_TRUE(child.ReadUntil("scanning:")) << child.output;
    ASSERT_EQ(::kill(child.pid, SIGINT), 0);
    const int code = child.Finish();
    EXPECT_EQ(code, 130) << child.output;
    EXPECT_NE(child.output.find("stopping after the sweep in hand...\n"), std::string::npos) << child.output;
    EXPECT_NE(child.output.find("interrupted: "), std::string::npos) << child.output;
    EXPECT_NE(child.output.find("wrote " + out + "\n"), std::string::npos) << child.output;

    const Outcome info = Halvex("info '" + out + "'");
    ASSERT_EQ(info.code, 0) << info.output;
    EXPECT_NE(info.output.find("scan data: SpectralSD\n"), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("cells: 1218 of 42 x 29, columns 0 to 41, rows 0 to 28\n"), std::string::npos)
        << info.output;
    // Stop leaves Complete with data in hand and Empty without.
    const bool complete = info.output.find("state: Complete\n") != std::string::npos;
    const bool empty = info.output.find("state: Empty\n") != std::string::npos;
    EXPECT_TRUE(complete || empty) << info.output;
    EXPECT_EQ(info.output.find("state: Scanning"), std::string::npos) << info.output;
    const std::string text = test::ReadFileBytes(csv);
    EXPECT_EQ(text.rfind("Frequency (MHz),Amplitude (dBm)\n", 0), 0u);
    EXPECT_EQ(Lines(text), complete ? 601u : 1u);
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
    EXPECT_EQ(bad.output, "halvex: The given data is not a correction file\n");
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
                                  "info", "export x.hvxscan"}) {
        const Outcome run = Halvex(arguments);
        EXPECT_EQ(run.code, 2) << arguments << "\n" << run.output;
        EXPECT_EQ(run.output.rfind("halvex: ", 0), 0u) << arguments << "\n" << run.output;
    }
    const Outcome level = Halvex("scan --level 9");
    EXPECT_EQ(level.output, "halvex: --level takes a whole number from 1 to 8, not '9'\nTry 'halvex scan --help'.\n");
}

TEST(HalvexScan, EverySubcommandHasHelp) {
    for (const char* command : {"scan", "info", "export"}) {
        const Outcome run = Halvex(std::string(command) + " --help");
        EXPECT_EQ(run.code, 0) << command;
        EXPECT_EQ(run.output.rfind(std::string("usage: halvex ") + command, 0), 0u) << run.output;
    }
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
    EXPECT_EQ(bad.output.rfind("halvex: " + (dir / "bad.hvxscan").string() + ": ", 0), 0u) << bad.output;

    const Outcome missing = Halvex("info " + Quote(dir / "none.hvxscan"));
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.output,
              "halvex: cannot read " + (dir / "none.hvxscan").string() + ": No such file or directory\n");
}

} // namespace
} // namespace nrq

#endif
