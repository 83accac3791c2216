// The "halvex s1" subcommand, run as a process.
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <string>

#ifdef HVX_HALVEX_PATH

namespace nrq {
namespace {

int Halvex(const std::string& arguments, std::string& output) {
    return test::RunCommand(std::string(HVX_HALVEX_PATH) + " s1 " + arguments, output);
}

TEST(S1Command, PrintsTheCommandText) {
    std::string output;
    EXPECT_EQ(Halvex("'FREQ:CENT {FrequencyCenter}' 'FrequencyCenter=700 MHz'", output), 0);
    EXPECT_EQ(output, "FREQ:CENT 7e+08\n");
    EXPECT_EQ(Halvex("'FORMAT:DATA REAL,32'", output), 0);
    EXPECT_EQ(output, "FORMAT:DATA REAL,32\n");
}

TEST(S1Command, ValuesAreTypedByTheirSpelling) {
    std::string output;
    EXPECT_EQ(Halvex("'{typeof(a)} {typeof(b)} {typeof(c)} {typeof(d)} {typeof(e)} {typeof(f)} {typeof(g)} {typeof(h)}'"
                     " a=5 b=2.5 'c=1 MHz' 'd=-30 dBm' 'e=\"text\"' f=auto g=unset h=2.4GHz",
                     output),
              0);
    EXPECT_EQ(output, "Integer Float Frequency Amplitude String Automatic Unset Frequency\n");
    EXPECT_EQ(Halvex("'{a} {b} {c} {d} {e} {f}' a=-5 b=2.5 'c=1 MHz' 'd=-30 dBm' 'e=\"two words\"' 'f=10 khz'",
                     output),
              0);
    EXPECT_EQ(output, "-5 2.5 1e+06 -30 two words 10000\n");
}

TEST(S1Command, UnsetValueDropsTheCommand) {
    std::string output;
    EXPECT_EQ(Halvex("'INP:ATT {Setup_Attenuation}' Setup_Attenuation=unset", output), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(Halvex("'INP:ATT {Setup_Attenuation}'", output), 0);
    EXPECT_EQ(output, "");
}

TEST(S1Command, Disassembly) {
    std::string output;
    EXPECT_EQ(Halvex("--disasm 'SPAN {span * 2}' 'span=1 MHz'", output), 0);
    EXPECT_EQ(output,
              "code:\n"
              "   0  text   #0 \"SPAN \"\n"
              "   1  get    r0, #1 span\n"
              "   2  int    r1, 2\n"
              "   3  mul    r0, r0, r1\n"
              "   4  out    r0\n"
              "   5  endl\n"
              "strings:\n"
              "   0  \"SPAN \"\n"
              "   1  \"span\"\n"
              "SPAN 2e+06\n");
}

TEST(S1Command, SyntaxErrorsShowLineAndColumn) {
    std::string output;
    EXPECT_EQ(Halvex("'A@B'", output), 1);
    EXPECT_EQ(output, "1:2: extraneous input '@' expecting {<EOF>, TEXT, BEGIN_EVAL}\nhalvex: 1 syntax error\n");

    // A script is one line: a file with a second one is refused before compiling.
    const auto dir = test::MakeTempDir("s1");
    test::WriteFileBytes(dir / "script.s1", "A\\\nB\n");
    EXPECT_EQ(Halvex("--file '" + (dir / "script.s1").string() + "'", output), 1);
    EXPECT_EQ(output, "halvex: " + (dir / "script.s1").string() + ": an S1 script is one line; this file has 2 lines\n");
}

TEST(S1Command, ScriptFromAFile) {
    std::string output;
    const auto dir = test::MakeTempDir("s1");
    test::WriteFileBytes(dir / "script.s1", "BAND {rbw}");
    EXPECT_EQ(Halvex("--file '" + (dir / "script.s1").string() + "' 'rbw=10 kHz'", output), 0);
    EXPECT_EQ(output, "BAND 10000\n");
}

TEST(S1Command, ScriptErrorsFail) {
    std::string output;
    EXPECT_EQ(Halvex("'{1 < \"a\"}'", output), 1);
    // The library's "(line)" prefix stays out of the message.
    EXPECT_EQ(output, "halvex: Script Error: Cannot perform numerical comparison on 'Integer' and 'String'\n");
    EXPECT_EQ(Halvex("'{typeof()}'", output), 1);
    EXPECT_EQ(output, "halvex: Number of args for built-in function \"typeof\": expected 1, got 0\n");
}

TEST(S1Command, UsageErrors) {
    std::string output;
    EXPECT_EQ(Halvex("", output), 2);
    EXPECT_EQ(output, "halvex: no script given\nTry 'halvex s1 --help'.\n");
    EXPECT_EQ(Halvex("'{a}' a", output), 2);
    EXPECT_EQ(output, "halvex: expected NAME=VALUE, got 'a'\nTry 'halvex s1 --help'.\n");
    EXPECT_EQ(Halvex("'{a}' a=abc", output), 2);
    EXPECT_EQ(output, "halvex: cannot read the value of a: 'abc'\nTry 'halvex s1 --help'.\n");
    EXPECT_EQ(Halvex("--fast '{a}'", output), 2);
    EXPECT_EQ(output, "halvex: unknown option --fast\nTry 'halvex s1 --help'.\n");
    EXPECT_EQ(Halvex("--file /nonexistent/script.s1", output), 1);
    EXPECT_EQ(output, "halvex: cannot read /nonexistent/script.s1: No such file or directory\n");
}

TEST(S1Command, Help) {
    std::string output;
    EXPECT_EQ(Halvex("--help", output), 0);
    EXPECT_EQ(output.rfind("usage: halvex s1 [OPTIONS] [ARGS...]\n", 0), 0u) << output;
}

} // namespace
} // namespace nrq

#endif
