#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Filesystem/Filesystem.h"
#include "HVX/Graphics/State.h"
#include "HVX/Init.h"
#include "HVX/Visa/VisaDetail.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace nrq {
namespace {

// Start-up looks for a VISA library; here it finds none, whatever the machine has.
void StartWithoutVisa() {
    Visa::detail::Reset();
    Visa::detail::SetLibraryDirectory(test::MakeTempDir("no-visa").string());
    HVXInit(false);
}

// What every start writes when no VISA library is present.
const std::string LOG_START = "[T] Log start\n[T] Warning: NI-VISA is not installed on the system.\n";

class LibraryFrame : public ::testing::Test {
protected:
    void SetUp() override { StartWithoutVisa(); }
    void TearDown() override {
        HVXTerminate();
        Visa::detail::Reset();
    }
};

TEST_F(LibraryFrame, InitWithoutGraphicsLeavesGraphicsUnloadedAndTerminateIsHarmless) {
    EXPECT_FALSE(Graphics::IsLoaded());
    EXPECT_NO_THROW(HVXTerminate());
    EXPECT_FALSE(Graphics::IsLoaded());
    HVXInit(false); // for TearDown
}

TEST_F(LibraryFrame, LogStartsWithLogStartInTheUserDataFolder) {
    const std::string expectedPath = std::string(fs::GetUserSaveDataDirectory()) + "/log.txt";
    EXPECT_EQ(Log::GetFilePath(), expectedPath);
    EXPECT_EQ(test::LogWithoutTimeStamps(), LOG_START);
}

TEST_F(LibraryFrame, TimeStampIsTimeOfDayInBracketsAndABlank) {
    const std::string text = test::ReadFileBytes(std::string(Log::GetFilePath()));
    EXPECT_TRUE(test::IsTimeStampAt(text, 0)) << text;
    EXPECT_EQ(text.substr(11, 10), "Log start\n");
}

TEST_F(LibraryFrame, EachOperationWritesItsPrefix) {
    Log::Output("o");
    Log::Success("s");
    Log::Summary("m");
    Log::Warn("w");
    Log::Error("e");
    Log::Fail("f");
    Log::Fatal("x");
    Log::RawOutput("raw");
    Log::RawOutput("\n");
    EXPECT_EQ(test::LogWithoutTimeStamps(),
              LOG_START +
              "[T] o\n"
              "[T] s\n"
              "[T] m\n"
              "[T] Warning: w\n"
              "[T] Error: e\n"
              "[T] f\n"
              "[T] FATAL: x\n"
              "raw\n");
}

TEST_F(LibraryFrame, EmptyWarningStillHasStampPrefixAndLineFeed) {
    Log::Warn("");
    EXPECT_EQ(test::LogWithoutTimeStamps(), LOG_START + "[T] Warning: \n");
}

TEST_F(LibraryFrame, FatalOnlyWritesItsLine) {
    Log::Fatal("still running");
    Log::Output("after");
    EXPECT_EQ(test::LogWithoutTimeStamps(), LOG_START + "[T] FATAL: still running\n[T] after\n");
}

TEST_F(LibraryFrame, SecondRunReplacesTheLogOfTheFirst) {
    Log::Output("first run");
    HVXTerminate();
    HVXInit(false);
    EXPECT_EQ(test::LogWithoutTimeStamps(), LOG_START);
}

TEST_F(LibraryFrame, TerminateClosesTheLogFile) {
    HVXTerminate();
    EXPECT_EQ(Log::GetFilePath(), "");
    HVXInit(false);
}

TEST_F(LibraryFrame, FailedAssertionIsOneRecordAndThrowsWithTheLine) {
    const auto where = std::source_location::current();
    try {
        Assert(false, "a", where);
        FAIL() << "Assert did not throw";
    } catch (const Error& error) {
        EXPECT_EQ(std::string(error.what()), "(" + std::to_string(where.line()) + ") a");
    }
    EXPECT_EQ(test::LogWithoutTimeStamps(),
              LOG_START + "[T] Error: Assertion failed:\nWhat: a\nWhere: " +
                  where.function_name() + "\n");
}

TEST_F(LibraryFrame, PassingAssertionWritesNothing) {
    EXPECT_NO_THROW(Assert(true, "never"));
    EXPECT_EQ(test::LogWithoutTimeStamps(), LOG_START);
}

TEST(ErrorTest, WithoutMessageIsUnspecifiedWithoutLine) {
    const Error error{std::source_location::current()};
    EXPECT_STREQ(error.what(), "unspecified error");
}

TEST(ErrorTest, MessageCarriesTheLineInBrackets) {
    const auto loc = std::source_location::current();
    const Error error("x", loc);
    EXPECT_EQ(std::string(error.what()), "(" + std::to_string(loc.line()) + ") x");
    EXPECT_EQ(error.GetLocation().line(), loc.line());
    EXPECT_STREQ(error.GetLocation().file_name(), loc.file_name());
}

TEST(ErrorTest, FormatPutsTheLineFirst) {
    // The default argument records the caller's line.
    const Error error("input is required"); const unsigned line = __LINE__;
    EXPECT_EQ(std::string(error.what()), "(" + std::to_string(line) + ") input is required");
}

TEST(ErrorTest, CopyAndMoveKeepMessageAndLocation) {
    const Error original("copied");
    Error copy = original;
    EXPECT_STREQ(copy.what(), original.what());
    Error moved = std::move(copy);
    EXPECT_STREQ(moved.what(), original.what());
    EXPECT_EQ(moved.GetLocation().line(), original.GetLocation().line());
}

// The copy and the move do the same thing: the source keeps its message.
TEST(ErrorTest, MoveConstructionLeavesTheSourceItsMessage) {
    Error source("kept after a move");
    const std::string before = source.what();
    const Error moved(std::move(source));
    EXPECT_EQ(std::string(moved.what()), before);
    EXPECT_EQ(std::string(source.what()), before); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(source.GetLocation().line(), moved.GetLocation().line());
}

TEST(ErrorTest, MoveAssignmentLeavesTheSourceItsMessage) {
    Error source("kept after a move assignment");
    const std::string before = source.what();
    Error target("other");
    target = std::move(source);
    EXPECT_EQ(std::string(target.what()), before);
    EXPECT_EQ(std::string(source.what()), before); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(source.GetLocation().line(), target.GetLocation().line());
}

TEST(ErrorTest, SystemCodeUsesThePlatformText) {
    const auto loc = std::source_location::current();
    const Error error = Error::SystemCode(ENOENT, loc);
    EXPECT_EQ(std::string(error.what()), "(" + std::to_string(loc.line()) + ") No such file or directory");
}

TEST(ErrorTest, SystemCodeWithTextPutsTheTextFirst) {
    const auto loc = std::source_location::current();
    const Error error = Error::SystemCode(EACCES, "opening", loc);
    EXPECT_EQ(std::string(error.what()), "(" + std::to_string(loc.line()) + ") opening\nPermission denied");
}

TEST(ErrorTest, SystemCodeTakesTheThreadsLastError) {
    errno = ENOTDIR;
    const auto loc = std::source_location::current();
    const Error error = Error::SystemCode(loc);
    EXPECT_EQ(std::string(error.what()), "(" + std::to_string(loc.line()) + ") Not a directory");
}

TEST(ErrorTest, SystemMessageOfUnknownCodeIsEmpty) {
    EXPECT_EQ(HVXGetSystemErrorMessage(987654), "");
    EXPECT_EQ(HVXGetSystemErrorMessage(EEXIST), "File exists");
}

TEST(ErrorTest, IsAStandardException) {
    try {
        throw Error("caught as std::exception");
    } catch (const std::exception& error) {
        EXPECT_NE(std::string(error.what()).find("caught as std::exception"), std::string::npos);
    }
}

// The folders are computed once per process, so this runs in a child process
// whose data folder lies below a regular file and can't be created.
TEST(LibraryFrameDeathTest, InitFailsWithTheMakeDirectoryErrorBeforeTheLogExists) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto blocker = test::MakeTempDir("blocked") / "file";
    test::WriteFileBytes(blocker, "not a folder");
    EXPECT_EXIT(
        {
            ::setenv("XDG_DATA_HOME", blocker.c_str(), 1);
            try {
                HVXInit(false);
            } catch (const Error& error) {
                const std::string what = error.what();
                const bool wording = what.find("Failed to create save directory: Not a directory\nFILE: " +
                                               blocker.string() + "/Nerquil Labs/Halvex2") != std::string::npos;
                const bool noLog = Log::GetFilePath().empty();
                std::exit(wording && noLog ? 0 : 1);
            }
            std::exit(2);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace nrq

namespace nrq {
namespace {

TEST(LogAfterTerminate, LinesAfterTerminateAreDroppedWithoutError) {
    StartWithoutVisa();
    Log::Output("kept");
    HVXTerminate();
    EXPECT_NO_THROW(Log::Warn("dropped"));
    EXPECT_NO_THROW(Log::RawOutput("dropped"));
    EXPECT_EQ(test::LogWithoutTimeStamps(), LOG_START + "[T] kept\n");
    Visa::detail::Reset();
}

} // namespace
} // namespace nrq
