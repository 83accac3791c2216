// The host's one command line and its one way of reporting, through halvex as a process.
#include "support/HalvexProcess.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#ifdef HVX_HALVEX_PATH

namespace nrq {
namespace {

using test::Halvex;
using test::Outcome;
using test::Quote;

const std::string& halvex = test::halvexPath;

// Standard output alone; stderr goes to its own file.
Outcome HalvexStdout(const std::string& arguments, std::string& errors) {
    const auto dir = test::MakeTempDir("halvex-stderr");
    Outcome run;
    run.code = test::RunCommand("( " + Quote(halvex) + " " + arguments + " 2>" + Quote(dir / "err") + " )", run.output);
    errors = test::ReadFileBytes(dir / "err");
    return run;
}

std::string Usage(const std::string& message, const std::string& command) {
    return "halvex: " + message + "\nTry 'halvex " + command + " --help'.\n";
}

TEST(HalvexCommandLine, UnknownOptionsAreNamedWithTheNearestOne) {
    EXPECT_EQ(Halvex("scan --levl 2").output, Usage("unknown option --levl (did you mean --level?)", "scan"));
    EXPECT_EQ(Halvex("scan --sweep=3").output, Usage("unknown option --sweep (did you mean --sweep-ms?)", "scan"));
    EXPECT_EQ(Halvex("info --zzzzzzzz x").output, Usage("unknown option --zzzzzzzz", "info"));
    const Outcome command = Halvex("scna");
    EXPECT_EQ(command.code, 2);
    EXPECT_EQ(command.output, "halvex: unknown command 'scna' (did you mean 'scan'?)\nTry 'halvex --help'.\n");
}

TEST(HalvexCommandLine, NumbersAreCheckedWhole) {
    const struct {
        const char* arguments;
        const char* message;
        const char* command;
    } cases[] = {
        {"demo --points 2x", "--points takes a whole number from 1 to 1000000, not '2x'", "demo"},
        {"demo --points abc", "--points takes a whole number from 1 to 1000000, not 'abc'", "demo"},
        {"scan --sweep-ms 1e9", "--sweep-ms takes a whole number from 0 to 60000, not '1e9'", "scan"},
        {"scan --level ' 3'", "--level takes a whole number from 1 to 8, not ' 3'", "scan"},
        {"scan --level 0x3", "--level takes a whole number from 1 to 8, not '0x3'", "scan"},
        {"scan --repeat 99999999999999999999", "--repeat takes a whole number from 1 to 1000, not '99999999999999999999'",
         "scan"},
        {"gerber x.gbr --stats --scale 0", "--scale takes a number greater than zero, not '0'", "gerber"},
    };
    for (const auto& c : cases) {
        const Outcome run = Halvex(c.arguments);
        EXPECT_EQ(run.code, 2) << c.arguments;
        EXPECT_EQ(run.output, Usage(c.message, c.command)) << c.arguments;
    }
    // Leading zeros are decimal, not octal.
    const auto dir = test::MakeTempDir("halvex-zeros");
    const Outcome zeros = Halvex("scan --level 03 --cells 0,0:0,0 --sweep-ms 0 --out " + Quote(dir / "z.hvxscan"));
    EXPECT_EQ(zeros.code, 0) << zeros.output;
    EXPECT_NE(zeros.output.find("scan: 16 points"), std::string::npos) << zeros.output;
}

TEST(HalvexCommandLine, FlagsTakeNoValueButFalse) {
    const auto dir = test::MakeTempDir("halvex-flags");
    const Outcome quiet = Halvex("scan --quiet --cells 0,0:0,0 --sweep-ms 0 --out " + Quote(dir / "a.hvxscan"));
    EXPECT_EQ(quiet.code, 0);
    EXPECT_EQ(quiet.output, "");
    const Outcome loud = Halvex("scan --quiet=false --cells 0,0:0,0 --sweep-ms 0 --out " + Quote(dir / "b.hvxscan"));
    EXPECT_EQ(loud.code, 0);
    EXPECT_NE(loud.output.find("done: 1 of 1 points"), std::string::npos) << loud.output;
    EXPECT_EQ(Halvex("scan --quiet yes").output, Usage("unexpected argument 'yes'", "scan"));
}

TEST(HalvexCommandLine, DoubleDashEndsTheOptions) {
    EXPECT_EQ(Halvex("scan -- --quiet").output, Usage("unexpected argument '--quiet'", "scan"));
    // Behind "--" an S1 script may begin with a minus.
    const Outcome s1 = Halvex("s1 -- '-5'");
    EXPECT_EQ(s1.code, 0) << s1.output;
    EXPECT_EQ(s1.output, "-5\n");
}

TEST(HalvexCommandLine, UnexpectedArgumentsAndMissingValues) {
    EXPECT_EQ(Halvex("scan stray").output, Usage("unexpected argument 'stray'", "scan"));
    EXPECT_EQ(Halvex("info a b").output, Usage("unexpected argument 'b'", "info"));
    EXPECT_EQ(Halvex("scan --out").output, Usage("--out needs a value", "scan"));
    EXPECT_EQ(Halvex("export x.hvxscan").output, Usage("--csv is required", "export"));
    EXPECT_EQ(Halvex("info").output, Usage("FILE is required", "info"));
}

TEST(HalvexCommandLine, VersionAndHelpCommand) {
    const Outcome version = Halvex("--version");
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.output, "halvex " HALVEX_TEST_VERSION "\n");
    const Outcome help = Halvex("help scan");
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.output, Halvex("scan --help").output);
    EXPECT_EQ(Halvex("help").output, Halvex("--help").output);
    EXPECT_EQ(Halvex("help nothing").output, "halvex: unknown command 'nothing'\nTry 'halvex --help'.\n");
    const Outcome bare = Halvex("");
    EXPECT_EQ(bare.code, 2);
    EXPECT_EQ(bare.output.rfind("usage: halvex COMMAND [OPTIONS]\n", 0), 0u) << bare.output;
}

TEST(HalvexCommandLine, EveryHelpSaysWhatForOptionsAnExampleAndTheExitStatuses) {
    for (const std::string command : {"demo", "export", "features", "gerber", "info", "s1", "scan", "store"}) {
        const Outcome help = Halvex(command + " --help");
        EXPECT_EQ(help.code, 0) << command;
        EXPECT_EQ(help.output.rfind("usage: halvex " + command + " ", 0), 0u) << help.output;
        EXPECT_NE(help.output.find("\nhalvex " + command + ": "), std::string::npos) << help.output;
        EXPECT_NE(help.output.find("\nOptions:\n"), std::string::npos) << help.output;
        EXPECT_NE(help.output.find("\nExample"), std::string::npos) << help.output;
        EXPECT_NE(help.output.find("\nExit status: 0 done, 1 "), std::string::npos) << help.output;
    }
    const std::string scan = Halvex("scan --help").output;
    for (const char* topic : {"spectral keeps", "spatial keeps", "combined\nkeeps", "--level N:1-8", "(default 20)",
                              "milliseconds", "100 MHz to 200 MHz", "--interleaved", "\"CORRECTION\"", "v1 USB"})
        EXPECT_NE(scan.find(topic), std::string::npos) << topic << "\n" << scan;
    EXPECT_NE(Halvex("s1 --help").output.find("S1 is the small language"), std::string::npos);
    const std::string gerber = Halvex("gerber --help").output;
    EXPECT_NE(gerber.find("The import draws"), std::string::npos) << gerber;
    EXPECT_NE(gerber.find("It refuses"), std::string::npos) << gerber;
}

TEST(HalvexCommandLine, DashIsStandardInputAndOutput) {
    const auto dir = test::MakeTempDir("halvex-dash");
    std::string errors;
    // The scan file to standard output, its progress to stderr, and info from standard input.
    Outcome piped;
    piped.code = test::RunCommand("'" + halvex + "' scan --cells 0,0:1,0 --sweep-ms 0 --out - 2>" +
                                      Quote(dir / "progress") + " | '" + halvex + "' info -",
                                  piped.output);
    EXPECT_EQ(piped.code, 0) << piped.output;
    EXPECT_EQ(piped.output.rfind("file: -\nsize: ", 0), 0u) << piped.output;
    EXPECT_NE(piped.output.find("outcome: finished, 2 of 2 points\n"), std::string::npos) << piped.output;
    EXPECT_NE(test::ReadFileBytes(dir / "progress").find("wrote standard output\n"), std::string::npos);

    ASSERT_EQ(Halvex("scan --cells 0,0:1,0 --sweep-ms 0 --quiet --out " + Quote(dir / "a.hvxscan") + " --csv " +
                     Quote(dir / "a.csv"))
                  .code,
              0);
    const Outcome csv = HalvexStdout("export - --csv - < " + Quote(dir / "a.hvxscan"), errors);
    EXPECT_EQ(csv.code, 0) << errors;
    EXPECT_EQ(csv.output, test::ReadFileBytes(dir / "a.csv"));
    // Standard input that is not a scan file, and one that goes on past the records.
    EXPECT_EQ(Halvex("info - < /dev/null").output, "halvex: standard input: the file is truncated: its header takes 16 "
                                                   "bytes, it has 0\n");
    Outcome longer;
    longer.code = test::RunCommand("cat " + Quote(dir / "a.hvxscan") + " " + Quote(dir / "a.csv") + " | '" + halvex +
                                       "' info -",
                                   longer.output);
    EXPECT_EQ(longer.code, 1);
    EXPECT_EQ(longer.output, "halvex: standard input: more bytes follow the records, where the file should end\n");
}

TEST(HalvexMessages, MissingFilesInTheSameWordsEverywhere) {
    const auto dir = test::MakeTempDir("halvex-missing");
    const std::string none = (dir / "none").string();
    const std::string expected = "halvex: cannot read " + none + ": No such file or directory\n";
    for (const std::string& arguments :
         {"info " + none, "export " + none + " --csv " + (dir / "x.csv").string(), "gerber " + none + " --stats",
          "s1 --file " + none, "scan --sweep-ms 0 --correction " + none + " --out " + (dir / "x.hvxscan").string()}) {
        const Outcome run = Halvex(arguments);
        EXPECT_EQ(run.code, 1) << arguments;
        EXPECT_EQ(run.output, expected) << arguments;
    }
    const std::string folder = dir.string();
    for (const std::string& arguments : {"info " + folder, "gerber " + folder + " --stats", "s1 --file " + folder}) {
        const Outcome run = Halvex(arguments);
        EXPECT_EQ(run.code, 1) << arguments;
        EXPECT_EQ(run.output, "halvex: cannot read " + folder + ": Is a directory\n") << arguments;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "x.hvxscan"));
}

TEST(HalvexMessages, InfoOfAHugeFileThatIsNoScanAnswersAtOnce) {
    const auto dir = test::MakeTempDir("halvex-huge");
    const auto zeros = dir / "zeros.bin";
    test::WriteFileBytes(zeros, "");
    // Three gigabytes of zeros, sparse: nothing is stored, and info must not read them.
    std::filesystem::resize_file(zeros, 3'000'000'000ULL);
    const Outcome run = Halvex("info " + Quote(zeros));
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.output, "halvex: " + zeros.string() + ": not a halvex scan file\n");
    // A scan header that announces more than the file holds.
    std::string header("HVXSCAN\x1a\x06\0\0\0\xff\xff\xff\x7f", 16);
    test::WriteFileBytes(dir / "short.hvxscan", header + "abc");
    EXPECT_EQ(Halvex("info " + Quote(dir / "short.hvxscan")).output,
              "halvex: " + (dir / "short.hvxscan").string() +
                  ": the file is truncated: the header announces 2147483647 bytes of records, 3 are there\n");
}

TEST(HalvexGerberInput, FilesThatDrawNothingAreReported) {
    const auto dir = test::MakeTempDir("halvex-gerber-nothing");
    test::WriteFileBytes(dir / "empty.gbr", "");
    test::WriteFileBytes(dir / "text.gbr", "Dear reader, this is a letter.\n");
    test::WriteFileBytes(dir / "moves.gbr", "%MOMM*%\n%FSLAX24Y24*%\nX0Y0D02*\nM02*\n");
    const struct {
        std::string file;
        std::string reason;
    } cases[] = {
        {"empty.gbr", "the file is empty"},
        {"text.gbr", "it draws nothing (no aperture selected, no plotting mode set, or not a Gerber file)"},
        {"moves.gbr", "it draws nothing (no aperture selected, no plotting mode set, or not a Gerber file)"},
    };
    for (const auto& c : cases) {
        const Outcome run = Halvex("gerber " + Quote(dir / c.file) + " --png " + Quote(dir / "out.png"));
        EXPECT_EQ(run.code, 1) << c.file;
        EXPECT_EQ(run.output, "halvex: " + (dir / c.file).string() + ": " + c.reason + "\n") << c.file;
        EXPECT_FALSE(std::filesystem::exists(dir / "out.png"));
    }
}

TEST(HalvexGerberInput, SkippedSyntaxIsCountedOnlyWhenVerbose) {
    const auto dir = test::MakeTempDir("halvex-gerber-verbose");
    // A disc, with an obsolete code the parser skips.
    test::WriteFileBytes(dir / "disc.gbr", "G04 a disc*\n%MOMM*%\n%FSLAX24Y24*%\nG70*\n%ADD10C,1*%\nD10*\nX0Y0D03*\nM02*\n");
    std::string errors;
    const Outcome quiet = HalvexStdout("gerber " + Quote(dir / "disc.gbr") + " --stats", errors);
    ASSERT_EQ(quiet.code, 0) << errors;
    EXPECT_EQ(errors, "");
    const Outcome verbose = HalvexStdout("gerber " + Quote(dir / "disc.gbr") + " --stats --verbose", errors);
    ASSERT_EQ(verbose.code, 0) << errors;
    EXPECT_EQ(verbose.output, quiet.output);
    if (errors.empty())
        GTEST_SKIP() << "this parser skips nothing in the file";
    EXPECT_NE(errors.find("halvex: " + (dir / "disc.gbr").string() + ": the parser skipped "), std::string::npos)
        << errors;
}

TEST(HalvexS1File, OneLineWithOrWithoutItsEnding) {
    const auto dir = test::MakeTempDir("halvex-s1-file");
    for (const char* ending : {"", "\n", "\r\n"}) {
        test::WriteFileBytes(dir / "one.s1", std::string("5") + ending);
        const Outcome run = Halvex("s1 --file " + Quote(dir / "one.s1"));
        EXPECT_EQ(run.code, 0) << run.output;
        EXPECT_EQ(run.output, "5\n");
    }
    test::WriteFileBytes(dir / "two.s1", "5\n6\n");
    const Outcome two = Halvex("s1 --file " + Quote(dir / "two.s1"));
    EXPECT_EQ(two.code, 1);
    EXPECT_EQ(two.output, "halvex: " + (dir / "two.s1").string() + ": an S1 script is one line; this file has 2 lines\n");
    const Outcome piped = Halvex("s1 --file - < " + Quote(dir / "one.s1"));
    EXPECT_EQ(piped.output, "5\n");
}

} // namespace
} // namespace nrq

#endif
