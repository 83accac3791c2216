#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Visa/Visa.h"
#include "HVX/Visa/VisaDetail.h"
#include "support/FakeVisa.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace nrq {
namespace {

using Visa::detail::ClassifyStatus;
using Visa::detail::StatusOutcome;
using namespace test;

const std::string FAKE_DIR = HVX_FAKE_VISA_DIR;
const std::string NOT_INSTALLED = "[T] Warning: NI-VISA is not installed on the system.\n";

std::string Attr(uint32_t attribute) { return std::to_string(attribute); }

// An Error's text without its line number.
std::string MessageOf(const Error& error) {
    const std::string what = error.what();
    const size_t close = what.find(") ");
    return what.front() == '(' && close != std::string::npos ? what.substr(close + 2) : "no line: " + what;
}

void ExpectNotPresent(const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(MessageOf(error), "VISA is not present on the system");
    }
}

void ExpectVisaError(long status, const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const VisaError& error) {
        EXPECT_EQ(error.GetStatus(), status);
        char text[64];
        std::snprintf(text, sizeof(text), "fake status 0x%08X", static_cast<unsigned>(status));
        EXPECT_STREQ(error.what(), text);
    }
}

// ---- the status rule

TEST(VisaStatusRule, SuccessAndTheTwoSuccessCodesPass) {
    EXPECT_EQ(ClassifyStatus(0), StatusOutcome::Success);
    EXPECT_EQ(ClassifyStatus(0x3FFF0005), StatusOutcome::Success);
    EXPECT_EQ(ClassifyStatus(0x3FFF0006), StatusOutcome::Success);
}

TEST(VisaStatusRule, RunningOutOfSessionsPurgesThenThrows) {
    EXPECT_EQ(ClassifyStatus(VI_ERROR_ALLOC), StatusOutcome::PurgeAndThrow);
    // The same 32 bits given unsigned.
    EXPECT_EQ(ClassifyStatus(0xBFFF003CL), StatusOutcome::PurgeAndThrow);
}

TEST(VisaStatusRule, WarningsAndErrorsThrow) {
    EXPECT_EQ(ClassifyStatus(VI_WARN_NULL_OBJECT), StatusOutcome::Throw);
    EXPECT_EQ(ClassifyStatus(0x3FFF0007), StatusOutcome::Throw);
    EXPECT_EQ(ClassifyStatus(1), StatusOutcome::Throw);
    EXPECT_EQ(ClassifyStatus(VI_ERROR_TMO), StatusOutcome::Throw);
    EXPECT_EQ(ClassifyStatus(VI_ERROR_RSRC_NFOUND), StatusOutcome::Throw);
    EXPECT_EQ(ClassifyStatus(-1), StatusOutcome::Throw);
}

TEST(VisaLoader, CandidatesAreTheInstalledNameThenTheAlternative) {
    EXPECT_EQ(Visa::detail::LibraryCandidates(), (std::vector<std::string>{"libvisa.so", "libiovisa.so"}));
}

// ---- without a VISA library

class WithoutVisa : public ::testing::Test {
protected:
    void SetUp() override {
        Visa::detail::Reset();
        Visa::detail::SetLibraryDirectory(MakeTempDir("no-visa").string());
        StartFreshLog();
    }
    void TearDown() override { Visa::detail::Reset(); }
};

TEST_F(WithoutVisa, InitIsFalseAndWarns) {
    EXPECT_FALSE(Visa::Init());
    EXPECT_FALSE(Visa::IsInitialised());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n" + NOT_INSTALLED);
}

TEST_F(WithoutVisa, SearchesComeBackEmpty) {
    Visa::Init();
    EXPECT_TRUE(Visa::FindRsrc("?*").empty());
    EXPECT_FALSE(Visa::HasRsrc("TCPIP0::127.0.0.5::INSTR"));
}

TEST_F(WithoutVisa, CallsThatNeedALibraryThrow) {
    Visa::Init();
    std::array<char, 8> buffer{};
    ExpectNotPresent([] { Visa::Open("USB0::1::INSTR"); });
    ExpectNotPresent([] { Visa::Close(1); });
    ExpectNotPresent([] { Visa::Read(1); });
    ExpectNotPresent([&] { Visa::Read(1, buffer.data(), buffer.size()); });
    ExpectNotPresent([&] { Visa::ReadExact(1, buffer.data(), buffer.size()); });
    ExpectNotPresent([] { Visa::Write(1, "*IDN?\n"); });
    ExpectNotPresent([] { Visa::Clear(1); });
    ExpectNotPresent([] { Visa::Flush(1); });
    ExpectNotPresent([] { Visa::GetTimeout(1); });
    ExpectNotPresent([] { Visa::SetTimeout(1, 100); });
    ExpectNotPresent([] { Visa::StatusDesc(1, 0); });
}

TEST_F(WithoutVisa, TerminateDoesNothing) {
    Visa::Init();
    EXPECT_NO_THROW(Visa::Terminate());
    EXPECT_FALSE(Visa::IsOpen(1));
}

TEST_F(WithoutVisa, EveryInitTriesAgain) {
    EXPECT_FALSE(Visa::Init());
    EXPECT_FALSE(Visa::Init());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n" + NOT_INSTALLED + NOT_INSTALLED);
}

// ---- choosing the library

class VisaLoading : public WithoutVisa {};

TEST_F(VisaLoading, TheFirstCandidateWins) {
    Visa::detail::SetLibraryDirectory(FAKE_DIR);
    EXPECT_TRUE(TryLoadVISAFunctions());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n[T] Loaded NI-VISA: libvisa.so\n");
}

TEST_F(VisaLoading, TheAlternativeNameLoadsWhenTheFirstIsMissing) {
    const auto dir = MakeTempDir("alternative-visa");
    std::filesystem::copy_file(FAKE_DIR + "/libvisa.so", dir / "libiovisa.so");
    Visa::detail::SetLibraryDirectory(dir.string());
    EXPECT_TRUE(Visa::Init());
    EXPECT_TRUE(Visa::IsInitialised());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n[T] Loaded NI-VISA: libiovisa.so\n");
}

TEST_F(VisaLoading, AnOverrideSelectsOneOfTheKnownNames) {
    Visa::detail::SetLibraryDirectory(FAKE_DIR);
    SetVISADLLName("libiovisa.so");
    // That one lacks viTerminate: it loads, and the loader says no without a word more.
    EXPECT_FALSE(Visa::Init());
    EXPECT_FALSE(Visa::IsInitialised());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n[T] Loaded NI-VISA: libiovisa.so\n");
}

TEST_F(VisaLoading, AnOverrideOfTheFirstNameLoadsIt) {
    Visa::detail::SetLibraryDirectory(FAKE_DIR);
    SetVISADLLName("libvisa.so");
    EXPECT_TRUE(Visa::Init());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n[T] Loaded NI-VISA: libvisa.so\n");
    Visa::Terminate();
}

TEST_F(VisaLoading, AnOverrideNamingAThirdLibraryLoadsNothingEvenIfItExists) {
    const auto dir = MakeTempDir("third-visa");
    std::filesystem::copy_file(FAKE_DIR + "/libvisa.so", dir / "libvisa.so");
    std::filesystem::copy_file(FAKE_DIR + "/libvisa.so", dir / "libthird.so");
    Visa::detail::SetLibraryDirectory(dir.string());
    SetVISADLLName("libthird.so");
    EXPECT_FALSE(Visa::Init());
    SetVISADLLName(dir.string() + "/libthird.so");
    EXPECT_FALSE(Visa::Init());
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n" + NOT_INSTALLED + NOT_INSTALLED);
}

// ---- with the stand-in library

class VisaBinding : public WithFakeVisa {};

TEST_F(VisaBinding, InitOpensAResourceManagerAndASecondInitAnother) {
    EXPECT_TRUE(Visa::Init());
    EXPECT_TRUE(Visa::Init());
    EXPECT_EQ(fake.Calls(), "viOpenDefaultRM -> 1\nviOpenDefaultRM -> 2\n");
    EXPECT_EQ(LogWithoutTimeStamps(), "[T] Log start\n[T] Loaded NI-VISA: libvisa.so\n");
}

TEST_F(VisaBinding, AFailingResourceManagerThrows) {
    fake.QueueStatus("viOpenDefaultRM", static_cast<int32_t>(VI_ERROR_IO));
    ExpectVisaError(VI_ERROR_IO, [] { Visa::Init(); });
}

TEST_F(VisaBinding, OpenUsesAShortOpenTimeoutThenSetsTimeoutAndTermination) {
    Visa::Init();
    fake.ClearCalls();
    EXPECT_EQ(Visa::Open("TCPIP0::127.0.0.5::INSTR"), 2u);
    EXPECT_EQ(fake.Calls(), "viOpen 1 TCPIP0::127.0.0.5::INSTR 0 200\n"
                            "viSetAttribute 2 " + Attr(VI_ATTR_TMO_VALUE) + " 10000\n"
                            "viSetAttribute 2 " + Attr(VI_ATTR_TERMCHAR_EN) + " 1\n");
    EXPECT_EQ(Visa::GetTimeout(2), 10000u);
    EXPECT_TRUE(Visa::IsOpen(2));
}

TEST_F(VisaBinding, OpenIgnoresTheStatusOfTheTwoAttributes) {
    Visa::Init();
    fake.QueueStatus("viSetAttribute", static_cast<int32_t>(VI_ERROR_IO));
    fake.QueueStatus("viSetAttribute", static_cast<int32_t>(VI_ERROR_IO));
    EXPECT_EQ(Visa::Open("USB0::1::INSTR"), 2u);
}

TEST_F(VisaBinding, OpenFailureThrowsTheStatusText) {
    Visa::Init();
    fake.QueueStatus("viOpen", static_cast<int32_t>(VI_ERROR_RSRC_NFOUND));
    ExpectVisaError(VI_ERROR_RSRC_NFOUND, [] { Visa::Open("USB0::1::INSTR"); });
}

TEST_F(VisaBinding, AWarningIsAnErrorToo) {
    Visa::Init();
    fake.QueueStatus("viOpen", static_cast<int32_t>(VI_WARN_NULL_OBJECT));
    ExpectVisaError(VI_WARN_NULL_OBJECT, [] { Visa::Open("USB0::1::INSTR"); });
}

TEST_F(VisaBinding, CloseForgetsTheSessionAndClosesIt) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    Visa::Close(session);
    EXPECT_FALSE(fake.IsOpen(static_cast<uint32_t>(session)));
    EXPECT_FALSE(Visa::IsOpen(session));
    // Not in the set is no error; VISA's answer still counts.
    ExpectVisaError(VI_ERROR_INV_OBJECT, [&] { Visa::Close(session); });
}

TEST_F(VisaBinding, IsOpenAsksForTheResourceManagerOfTheSession) {
    Visa::Init();
    const uint32_t dangling = fake.OpenDangling();
    EXPECT_FALSE(Visa::IsOpen(dangling)); // open, but of no resource manager of ours
    EXPECT_FALSE(Visa::IsOpen(777));
}

TEST_F(VisaBinding, FindRsrcListsEveryMatchAndClosesTheList) {
    fake.AddResource("TCPIP0::127.0.0.5::INSTR");
    fake.AddResource("USB0::0x0957::0x1796::MY1::INSTR");
    fake.AddResource("ASRL1::INSTR");
    Visa::Init();
    fake.ClearCalls();
    EXPECT_EQ(Visa::FindRsrc("?*"), (std::vector<std::string>{"TCPIP0::127.0.0.5::INSTR",
                                                              "USB0::0x0957::0x1796::MY1::INSTR", "ASRL1::INSTR"}));
    EXPECT_EQ(fake.Calls(), "viFindRsrc 1 ?*\nviFindNext 2\nviFindNext 2\nviClose 2\n");
}

TEST_F(VisaBinding, FindRsrcOfNothingIsEmptyWithoutError) {
    Visa::Init();
    EXPECT_TRUE(Visa::FindRsrc("GPIB?*").empty());
}

TEST_F(VisaBinding, FindRsrcThrowsOnAFailedSearchOrStep) {
    fake.AddResource("A");
    fake.AddResource("B");
    Visa::Init();
    fake.QueueStatus("viFindRsrc", static_cast<int32_t>(VI_ERROR_IO));
    ExpectVisaError(VI_ERROR_IO, [] { Visa::FindRsrc("?*"); });
    fake.QueueStatus("viFindNext", static_cast<int32_t>(VI_ERROR_IO));
    ExpectVisaError(VI_ERROR_IO, [] { Visa::FindRsrc("?*"); });
}

TEST_F(VisaBinding, HasRsrcSearchesForExactlyTheText) {
    fake.AddResource("TCPIP0::instrument.local::INSTR");
    Visa::Init();
    fake.ClearCalls();
    EXPECT_TRUE(Visa::HasRsrc("TCPIP0::instrument.local::INSTR"));
    EXPECT_EQ(fake.Calls(), "viFindRsrc 1 TCPIP0::instrument.local::INSTR\nviClose 2\n");
    EXPECT_FALSE(Visa::HasRsrc("TCPIP0::other::INSTR"));
    fake.QueueStatus("viFindRsrc", static_cast<int32_t>(VI_ERROR_IO));
    ExpectVisaError(VI_ERROR_IO, [] { Visa::HasRsrc("TCPIP0::instrument.local::INSTR"); });
}

TEST_F(VisaBinding, RawReadThatTimesOutReturnsWhatCame) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.QueueRead("0123456789", VI_ERROR_TMO);
    std::array<char, 100> buffer{};
    EXPECT_EQ(Visa::Read(session, buffer.data(), buffer.size()), 10u);
    EXPECT_EQ(std::string(buffer.data(), 10), "0123456789");
}

TEST_F(VisaBinding, WholeMessageReadThatTimesOutThrows) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.QueueRead("0123456789", VI_ERROR_TMO);
    ExpectVisaError(VI_ERROR_TMO, [&] { Visa::Read(session); });
}

TEST_F(VisaBinding, WholeMessageReadGoesOnWhileTheBufferFills) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    const std::string first(2048, 'a');
    fake.QueueRead(first, VI_SUCCESS_MAX_CNT);
    fake.QueueRead("tail\n", VI_SUCCESS_TERM_CHAR);
    fake.ClearCalls();
    EXPECT_EQ(Visa::Read(session), first + "tail\n");
    EXPECT_EQ(fake.CallsStartingWith("viRead").size(), 2u);
    EXPECT_EQ(fake.CallsStartingWith("viRead")[0], "viRead 2 2048 termchar 1");
}

TEST_F(VisaBinding, RawReadErrorThrows) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.QueueRead("", VI_ERROR_IO);
    std::array<char, 4> buffer{};
    ExpectVisaError(VI_ERROR_IO, [&] { Visa::Read(session, buffer.data(), buffer.size()); });
}

TEST_F(VisaBinding, ReadExactSwitchesTheTerminationOffForOneRead) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.QueueRead("abc\nabc\n", 0);
    fake.ClearCalls();
    std::array<char, 16> buffer{};
    EXPECT_EQ(Visa::ReadExact(session, buffer.data(), buffer.size()), 8u);
    EXPECT_EQ(fake.Calls(), "viSetAttribute 2 " + Attr(VI_ATTR_TERMCHAR_EN) + " 0\n"
                            "viRead 2 16 termchar 0\n"
                            "viSetAttribute 2 " + Attr(VI_ATTR_TERMCHAR_EN) + " 1\n");
    EXPECT_EQ(fake.Attribute(static_cast<uint32_t>(session), VI_ATTR_TERMCHAR_EN), 1u);
}

TEST_F(VisaBinding, ReadExactThatThrowsLeavesTheTerminationOff) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.QueueRead("", VI_ERROR_IO);
    std::array<char, 16> buffer{};
    ExpectVisaError(VI_ERROR_IO, [&] { Visa::ReadExact(session, buffer.data(), buffer.size()); });
    EXPECT_EQ(fake.Attribute(static_cast<uint32_t>(session), VI_ATTR_TERMCHAR_EN), 0u);
}

TEST_F(VisaBinding, WriteClearFlushAndTimeouts) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.ClearCalls();
    EXPECT_EQ(Visa::Write(session, "*IDN?\n"), 6u);
    Visa::Clear(session);
    Visa::Flush(session);
    Visa::SetTimeout(session, 1234);
    EXPECT_EQ(Visa::GetTimeout(session), 1234u);
    EXPECT_EQ(fake.Calls(), "viWrite 2 *IDN?\n\nviClear 2\nviFlush 2 4\n"
                            "viSetAttribute 2 " + Attr(VI_ATTR_TMO_VALUE) + " 1234\n");
    fake.QueueStatus("viWrite", static_cast<int32_t>(VI_ERROR_TMO));
    ExpectVisaError(VI_ERROR_TMO, [&] { Visa::Write(session, "x"); });
}

TEST_F(VisaBinding, StatusDescIsTheLibrarysText) {
    Visa::Init();
    EXPECT_EQ(Visa::StatusDesc(1, VI_ERROR_TMO), "fake status 0xBFFF0015");
    const VisaError error(VI_ERROR_ALLOC);
    const VisaError copy = error;
    EXPECT_STREQ(copy.what(), "fake status 0xBFFF003C");
    EXPECT_EQ(copy.GetStatus(), VI_ERROR_ALLOC);
}

TEST_F(VisaBinding, TerminateClosesEverySessionAndStaysInitialised) {
    Visa::Init();
    const unsigned long first = Visa::Open("USB0::1::INSTR");
    const unsigned long second = Visa::Open("USB0::2::INSTR");
    Visa::Terminate();
    EXPECT_FALSE(fake.IsOpen(1));
    EXPECT_FALSE(fake.IsOpen(static_cast<uint32_t>(first)));
    EXPECT_FALSE(fake.IsOpen(static_cast<uint32_t>(second)));
    EXPECT_TRUE(Visa::IsInitialised());
}

TEST_F(VisaBinding, RunningOutOfSessionsPurgesEverythingAndStillThrows) {
    Visa::Init();
    const unsigned long open = Visa::Open("USB0::1::INSTR");
    const uint32_t dangling = fake.OpenDangling();
    fake.ClearCalls();
    fake.QueueStatus("viOpen", static_cast<int32_t>(VI_ERROR_ALLOC));
    ExpectVisaError(VI_ERROR_ALLOC, [] { Visa::Open("USB0::2::INSTR"); });
    EXPECT_EQ(fake.Calls(), "viOpen 1 USB0::2::INSTR 0 200\n"
                            "viClose 1\nviClose 2\nviClose 3\n"
                            "viOpenDefaultRM -> 4\n");
    EXPECT_FALSE(fake.IsOpen(static_cast<uint32_t>(open)));
    EXPECT_FALSE(fake.IsOpen(dangling));
    EXPECT_FALSE(Visa::IsOpen(open));
    EXPECT_EQ(LogWithoutTimeStamps(),
              "[T] Log start\n[T] Loaded NI-VISA: libvisa.so\n"
              "[T] Warning: We can't obtain any VISA instruments due to allocation issues; closing existing sessions.\n"
              "[T] Warning: Closed dangling VISA session id: 3\n");
    // The new resource manager works.
    EXPECT_EQ(Visa::Open("USB0::3::INSTR"), 5u);
}

TEST_F(VisaBinding, AWholeReadThatRunsOutOfSessionsPurgesToo) {
    Visa::Init();
    const unsigned long session = Visa::Open("USB0::1::INSTR");
    fake.QueueRead("", VI_ERROR_ALLOC);
    ExpectVisaError(VI_ERROR_ALLOC, [&] { Visa::Read(session); });
    EXPECT_FALSE(Visa::IsOpen(session));
}

} // namespace
} // namespace nrq
