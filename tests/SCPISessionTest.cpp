// The SCPI session over a scripted instrument: the error queue, the identity,
// checked and unchecked writes and queries, and the mode switch, with the
// exact bytes sent and the exact log lines.
#include "HVX/Base/Log.h"
#include "HVX/ESC/Interpreter.h"
#include "HVX/ESC/SCPI/Session.h"
#include "HVX/Filesystem/Filesystem.h"
#include "support/ScriptedIO.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace nrq {
namespace {

using namespace std::chrono_literals;
using Writes = std::vector<std::string>;

const std::string noError = "0,\"No error\"\n";
const std::string lostConnection =
    "We have lost connection, the device is no longer responding OR the device is still waiting for a sweep to "
    "finish (try increasing timeout duration).";
const std::string incorrectCommand = "Possibly an incorrect command. Try generating the feature set again.";

// A link whose every write fails, as a dropped socket does.
class BrokenIO : public test::ScriptedIO {
public:
    size_t Write(const void*, size_t) override { throw std::runtime_error("link down"); }
};

class SCPISessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::MakeDirectory(fs::GetUserSaveDataDirectory());
        Log::Init();
        state.io = &io;
        state.featureSet = &set;
        state.waitTime = 0ns;
    }

    // The log lines after "Log start", without time stamps.
    static std::string LogLines() {
        const std::string log = test::LogWithoutTimeStamps();
        const std::string start = "[T] Log start\n";
        return log.starts_with(start) ? log.substr(start.size()) : log;
    }

    static ESCFeature ModeFeature(std::string command, std::string query, int32_t modes = 1) {
        ESCFeature feature;
        feature.label = "Mode";
        feature.command = std::move(command);
        feature.commandQuery = std::move(query);
        feature.type = ESCFeatureType::Mode;
        feature.modes = modes;
        return feature;
    }

    test::ScriptedIO io;
    ESCFeatureSet set;
    SCPISpecAnState state;
};

TEST_F(SCPISessionTest, StateStartsWithTheDefaultWaitAndTimeout) {
    const SCPISpecAnState fresh;
    EXPECT_EQ(fresh.waitTime, 20ms);
    EXPECT_EQ(fresh.queryTimeout, 20s);
    EXPECT_NE(fresh.interpreter, nullptr);
    EXPECT_TRUE(fresh.errors.empty());
}

TEST_F(SCPISessionTest, GetErrorReadsCodeAndTrimmedMessage) {
    io.Queue("-113,\t\"Undefined header\" \r\n");
    SCPIError error;
    ASSERT_TRUE(SCPIGetError(state, error));
    EXPECT_EQ(error.code, -113);
    EXPECT_EQ(error.message, "\"Undefined header\"");
    EXPECT_EQ(io.writes, Writes({"SYST:ERR?\n"}));
    ASSERT_EQ(io.reads.size(), 1u);
    EXPECT_EQ(io.reads[0].size, 1024u);
    EXPECT_EQ(io.reads[0].timeout, 2s);
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, GetErrorCodeIsTheLeadingNumberLikeAtoi) {
    io.Queue(" +7abc,x\n");
    SCPIError error;
    ASSERT_TRUE(SCPIGetError(state, error));
    EXPECT_EQ(error.code, 7);
    EXPECT_EQ(error.message, "x");
}

TEST_F(SCPISessionTest, GetErrorWithoutReplyFailsQuietly) {
    SCPIError error;
    EXPECT_FALSE(SCPIGetError(state, error));
    EXPECT_EQ(io.writes, Writes({"SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, GetErrorTakesAFullBufferAsGarbageAndClearsStatus) {
    io.Queue(std::string(1500, ','));
    SCPIError error;
    EXPECT_FALSE(SCPIGetError(state, error));
    EXPECT_EQ(io.writes, Writes({"SYST:ERR?\n", "*CLS\n"}));
}

TEST_F(SCPISessionTest, GetErrorJustBelowAFullBufferIsAReply) {
    io.Queue("5," + std::string(1021, 'm'));
    SCPIError error;
    ASSERT_TRUE(SCPIGetError(state, error));
    EXPECT_EQ(error.code, 5);
    EXPECT_EQ(error.message, std::string(1021, 'm'));
    EXPECT_EQ(io.writes, Writes({"SYST:ERR?\n"}));
}

TEST_F(SCPISessionTest, GetErrorWithoutCommaLogsTheReply) {
    io.Queue("garbage\n");
    SCPIError error;
    EXPECT_FALSE(SCPIGetError(state, error));
    EXPECT_EQ(LogLines(), "[T] Error: A command response to SYST:ERR? did not contain a comma sep [garbage\n]\n");
}

TEST_F(SCPISessionTest, GetIdentitySplitsFourTrimmedFields) {
    io.Queue("Halvex Instruments, SA-1000 ,SN1234,\t1.2.3\r\n");
    SCPIIdentity identity;
    ASSERT_TRUE(SCPIGetIdentity(state, identity));
    EXPECT_EQ(identity.manufacturer, "Halvex Instruments");
    EXPECT_EQ(identity.model, "SA-1000");
    EXPECT_EQ(identity.serial, "SN1234");
    EXPECT_EQ(identity.firmware, "1.2.3");
    EXPECT_EQ(io.writes, Writes({"*IDN?\n"}));
    ASSERT_EQ(io.reads.size(), 1u);
    EXPECT_EQ(io.reads[0].size, 256u);
    EXPECT_EQ(io.reads[0].timeout, 2s);
}

TEST_F(SCPISessionTest, GetIdentityKeepsLaterCommasInTheFirmware) {
    io.Queue("A,B,C,D,E\n");
    SCPIIdentity identity;
    ASSERT_TRUE(SCPIGetIdentity(state, identity));
    EXPECT_EQ(identity.firmware, "D,E");
}

TEST_F(SCPISessionTest, GetIdentityWithTooFewCommasLogsTheReply) {
    io.Queue("Halvex,SA-1000,SN1\n");
    SCPIIdentity identity;
    EXPECT_FALSE(SCPIGetIdentity(state, identity));
    EXPECT_EQ(LogLines(), "[T] Error: A command response to *IDN? did not contain enough comma sep (expected 3) "
                          "[Halvex,SA-1000,SN1\n]\n");
}

TEST_F(SCPISessionTest, GetIdentityTakesAFullBufferAsGarbageAndClearsStatus) {
    io.Queue(std::string(256, ','));
    SCPIIdentity identity;
    EXPECT_FALSE(SCPIGetIdentity(state, identity));
    EXPECT_EQ(io.writes, Writes({"*IDN?\n", "*CLS\n"}));
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, GetIdentityWithoutReplyFails) {
    SCPIIdentity identity;
    EXPECT_FALSE(SCPIGetIdentity(state, identity));
    EXPECT_EQ(io.writes, Writes({"*IDN?\n"}));
}

TEST_F(SCPISessionTest, PingIdentityIgnoresTheContent) {
    io.Queue("no commas at all");
    EXPECT_TRUE(SCPIPingIdentity(state));
    EXPECT_EQ(io.writes, Writes({"*IDN?\n"}));
    ASSERT_EQ(io.reads.size(), 1u);
    EXPECT_EQ(io.reads[0].size, 1024u);
    EXPECT_EQ(io.reads[0].timeout, 2s);
}

TEST_F(SCPISessionTest, PingIdentityFailsWithoutReply) {
    EXPECT_FALSE(SCPIPingIdentity(state));
}

TEST_F(SCPISessionTest, PingIdentityTakesAFullBufferAsGarbage) {
    io.Queue(std::string(1024, 'x'));
    EXPECT_FALSE(SCPIPingIdentity(state));
    EXPECT_EQ(io.writes, Writes({"*IDN?\n", "*CLS\n"}));
}

TEST_F(SCPISessionTest, DrainErrorsKeepsEveryEntryOfAThreeEntryQueue) {
    io.Queue("-100,\"Command error\"\n");
    io.Queue("-113,\"Undefined header\"\n");
    io.Queue("-222,\"Data out of range\"\n");
    io.Queue(noError);
    EXPECT_TRUE(SCPIDrainErrors(state));
    ASSERT_EQ(state.errors.size(), 3u);
    EXPECT_EQ(state.errors[0].code, -100);
    EXPECT_EQ(state.errors[0].message, "\"Command error\"");
    EXPECT_EQ(state.errors[1].code, -113);
    EXPECT_EQ(state.errors[2].code, -222);
    EXPECT_EQ(state.errors[2].message, "\"Data out of range\"");
    EXPECT_EQ(io.writes, Writes(4, "SYST:ERR?\n"));
}

TEST_F(SCPISessionTest, DrainErrorsFailsWhenAReadFails) {
    io.Queue("-100,\"Command error\"\n");
    EXPECT_FALSE(SCPIDrainErrors(state));
    EXPECT_EQ(state.errors.size(), 1u);
}

TEST_F(SCPISessionTest, CheckedWriteClearsSendsAndDrains) {
    state.interpreter->SetVariable("FrequencyCenter", Frequency(700e6));
    io.Queue(noError);
    EXPECT_TRUE(SCPIRunWrite(state, "FREQ:CENT {FrequencyCenter}", false));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "FREQ:CENT 7e+08\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, UncheckedWriteOnlySends) {
    EXPECT_TRUE(SCPIRunWrite(state, "INIT:CONT 0", true));
    EXPECT_EQ(io.writes, Writes({"INIT:CONT 0\n"}));
}

TEST_F(SCPISessionTest, DiscardedScriptSendsNothingButACheckedWriteStillDrains) {
    io.Queue(noError);
    EXPECT_TRUE(SCPIRunWrite(state, "FREQ:CENT {FrequencyCenter}", false));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "SYST:ERR?\n"}));
}

TEST_F(SCPISessionTest, CheckedWriteFailsWhenTheQueueCannotBeRead) {
    EXPECT_FALSE(SCPIRunWrite(state, "INIT", false));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "INIT\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, CheckedWriteKeepsTheDeviceErrors) {
    io.Queue("-113,\"Undefined header\"\n");
    io.Queue(noError);
    EXPECT_TRUE(SCPIRunWrite(state, "AAAAAAA", false));
    ASSERT_EQ(state.errors.size(), 1u);
    EXPECT_EQ(state.errors[0].code, -113);
}

TEST_F(SCPISessionTest, WriteOverABrokenLinkLogsTheCommandAndItsOutput) {
    BrokenIO broken;
    state.io = &broken;
    state.waitTime = 20ms;
    state.interpreter->SetVariable("FrequencyCenter", Frequency(700e6));
    EXPECT_FALSE(SCPIRunWrite(state, " FREQ:CENT {FrequencyCenter} ", true));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI communication failed (write unchecked)\n"
                          "Command: FREQ:CENT {FrequencyCenter} -> FREQ:CENT 7e+08\n"
                          "Wait time between commands: 20ms\n"
                          "Error: link down\n");
}

TEST_F(SCPISessionTest, ScriptErrorShowsAsACommunicationFailure) {
    std::string scriptError;
    try {
        ESCInterpreter().Run("X {1 < \"a\"}");
    } catch (const std::exception& error) {
        scriptError = error.what();
    }
    ASSERT_NE(scriptError.find("Script Error: Cannot perform numerical comparison on 'Integer' and 'String'"),
              std::string::npos);
    EXPECT_FALSE(SCPIRunWrite(state, "X {1 < \"a\"}", false));
    EXPECT_EQ(io.writes, Writes({"*CLS\n"}));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI communication failed (write checked)\n"
                          "Command: X {1 < \"a\"} -> \n"
                          "Wait time between commands: 0ms\n"
                          "Error: " +
                              scriptError + "\n");
}

TEST_F(SCPISessionTest, CheckedQueryHandsOutTheReplyWithoutItsLineFeed) {
    io.Queue("SA\n");
    io.Queue(noError);
    std::string response;
    EXPECT_TRUE(SCPIRunQuery(state, "INST?", response, false));
    EXPECT_EQ(response, "SA");
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "INST?\n", "SYST:ERR?\n"}));
    EXPECT_EQ(io.dataReads, std::vector<std::chrono::nanoseconds>({20s}));
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, UncheckedQueryDoesNotTouchTheQueue) {
    io.Queue(" 1001\r\n");
    std::string response;
    EXPECT_TRUE(SCPIRunQuery(state, "SWE:POIN?", response, true));
    EXPECT_EQ(response, " 1001\r");
    EXPECT_EQ(io.writes, Writes({"SWE:POIN?\n"}));
}

TEST_F(SCPISessionTest, CheckedQueryFailsWhenTheQueueCannotBeRead) {
    io.Queue("SA\n");
    std::string response = "before";
    EXPECT_FALSE(SCPIRunQuery(state, "INST?", response, false));
    EXPECT_EQ(response, "before");
    EXPECT_EQ(LogLines(), "");
}

TEST_F(SCPISessionTest, QueryWithoutLineFeedLogsUnterminatedWithTheDeviceError) {
    state.queryTimeout = 1500ms;
    io.Queue(" SA");
    io.Queue("-113,\"Undefined header\"\n");
    io.Queue(noError);
    std::string response;
    EXPECT_FALSE(SCPIRunQuery(state, "INST?", response, false));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "INST?\n", "SYST:ERR?\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI blank or unterminated response\n"
                          "Command: INST? -> INST?\n"
                          "Response: SA\n"
                          "Query time out length: 1500ms\n"
                          "Device error: [-113] \"Undefined header\"\n"
                          "Summary: " +
                              incorrectCommand + "\n");
}

TEST_F(SCPISessionTest, EmptyReplyWithEmptyQueueSpeaksOfALostConnection) {
    io.Queue("");
    io.Queue(noError);
    std::string response;
    EXPECT_FALSE(SCPIRunQuery(state, "TRAC? {1}", response, true));
    EXPECT_EQ(io.writes, Writes({"TRAC? 1\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI blank or unterminated response\n"
                          "Command: TRAC? {1} -> TRAC? 1\n"
                          "Response: \n"
                          "Query time out length: 20000ms\n"
                          "Device error: (None provided)\n"
                          "Summary: " +
                              lostConnection + "\n");
}

TEST_F(SCPISessionTest, SilentDeviceSpeaksOfALostConnection) {
    std::string response;
    EXPECT_FALSE(SCPIRunQuery(state, "INST?", response, true));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI blank or unterminated response\n"
                          "Command: INST? -> INST?\n"
                          "Response: \n"
                          "Query time out length: 20000ms\n"
                          "Device error: (None provided)\n"
                          "Summary: " +
                              lostConnection + "\n");
}

TEST_F(SCPISessionTest, SeveralNewDeviceErrorsShowTheLastAndTheCountOfOthers) {
    state.errors.push_back({"\"Older\"", -1});
    io.Queue("");
    io.Queue("-100,\"A\"\n");
    io.Queue("-200,\"B\"\n");
    io.Queue("-300,\"C\"\n");
    io.Queue(noError);
    std::string response;
    EXPECT_FALSE(SCPIRunQuery(state, "INST?", response, true));
    EXPECT_EQ(state.errors.size(), 4u);
    EXPECT_EQ(LogLines(), "[T] Error: SCPI blank or unterminated response\n"
                          "Command: INST? -> INST?\n"
                          "Response: \n"
                          "Query time out length: 20000ms\n"
                          "Device error: [-300] \"C\" (+2 more)\n"
                          "Summary: " +
                              incorrectCommand + "\n");
}

TEST_F(SCPISessionTest, QueryOverABrokenLinkLogsWithTheBlankBeforeTheBracket) {
    BrokenIO broken;
    state.io = &broken;
    std::string response;
    EXPECT_FALSE(SCPIRunQuery(state, "INST?", response, false));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI communication failed (write&read checked )\n"
                          "Command: INST? -> \n"
                          "Response: \n"
                          "Wait time between commands: 0ms\n"
                          "Error: link down\n");
}

TEST_F(SCPISessionTest, UncheckedQueryOverABrokenLinkSaysUnchecked) {
    BrokenIO broken;
    state.io = &broken;
    std::string response;
    EXPECT_FALSE(SCPIRunQuery(state, "INST?", response, true));
    EXPECT_EQ(LogLines(), "[T] Error: SCPI communication failed (write&read unchecked )\n"
                          "Command: INST? -> INST?\n"
                          "Response: \n"
                          "Wait time between commands: 0ms\n"
                          "Error: link down\n");
}

TEST_F(SCPISessionTest, SwitchModeWithoutModeNamesSendsNothing) {
    set.features.push_back(ModeFeature("INST SA", "INST?"));
    EXPECT_TRUE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    EXPECT_TRUE(io.writes.empty());
    EXPECT_EQ(LogLines(), "[T] Switching to spectrum analyzer mode\n"
                          "[T] Feature set has no modes, skipping mode setting.\n");
}

TEST_F(SCPISessionTest, SwitchModeWithANameButNoFeaturesSkips) {
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    EXPECT_TRUE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    EXPECT_TRUE(io.writes.empty());
    EXPECT_EQ(LogLines(),
              "[T] Switching to spectrum analyzer mode\n"
              "[T] Warning: UNEXPECTED: A mode name (SA) exists but no mode query feature.\n"
              "[T] Error: UNEXPECTED: A mode name (SA) exists but we have no mode set feature, skipping mode "
              "setting.\n");
}

TEST_F(SCPISessionTest, SwitchModeStopsWhenTheDeviceIsInTheMode) {
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    set.features.push_back(ModeFeature("INST SA", "INST?"));
    io.Queue("SA\n");
    io.Queue(noError);
    EXPECT_TRUE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "INST?\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "[T] Switching to spectrum analyzer mode\n"
                          "[T] Device confirmed to be in spectrum analyzer mode\n");
}

TEST_F(SCPISessionTest, SwitchModeChangesAndConfirmsTheMode) {
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    set.features.push_back(ModeFeature("", "INST?"));
    set.features.push_back(ModeFeature("INST GPSA", "", 2));
    set.features.push_back(ModeFeature("INST SA", ""));
    for (const char* reply : {"SAN\n", noError.c_str(), noError.c_str(), "SA\n", noError.c_str()})
        io.Queue(reply);
    EXPECT_TRUE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "INST?\n", "SYST:ERR?\n", "*CLS\n", "INST SA\n", "SYST:ERR?\n",
                                 "*CLS\n", "INST?\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "[T] Switching to spectrum analyzer mode\n"
                          "[T] Current device mode is SAN, changing to SA...\n"
                          "[T] Device confirmed to now be in spectrum analyzer (SA) mode\n");
}

TEST_F(SCPISessionTest, SwitchModeFailsWhenTheDeviceReportsAnotherMode) {
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    set.features.push_back(ModeFeature("INST SA", "INST?"));
    for (const char* reply : {"SAN\n", noError.c_str(), noError.c_str(), "SAN\n", noError.c_str()})
        io.Queue(reply);
    EXPECT_FALSE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    EXPECT_EQ(LogLines(), "[T] Switching to spectrum analyzer mode\n"
                          "[T] Current device mode is SAN, changing to SA...\n"
                          "[T] Error: The device mode reported SAN mode, expected SA.\n");
}

TEST_F(SCPISessionTest, SwitchModeFailsWhenTheSetterFails) {
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    set.features.push_back(ModeFeature("INST SA", ""));
    EXPECT_FALSE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    EXPECT_EQ(io.writes, Writes({"*CLS\n", "INST SA\n", "SYST:ERR?\n"}));
    EXPECT_EQ(LogLines(), "[T] Switching to spectrum analyzer mode\n"
                          "[T] Warning: UNEXPECTED: A mode name (SA) exists but no mode query feature.\n"
                          "[T] Error: SCPI device failed to switch mode\n");
}

TEST_F(SCPISessionTest, SwitchModeGoesOnWhenTheModeCannotBeReadAndCannotBeVerified) {
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    set.features.push_back(ModeFeature("INST SA", "INST?"));
    for (const char* reply : {"", noError.c_str(), noError.c_str(), "", noError.c_str()})
        io.Queue(reply);
    EXPECT_TRUE(SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer));
    const std::string blank = "[T] Error: SCPI blank or unterminated response\n"
                              "Command: INST? -> INST?\n"
                              "Response: \n"
                              "Query time out length: 20000ms\n"
                              "Device error: (None provided)\n"
                              "Summary: " +
                              lostConnection + "\n";
    EXPECT_EQ(LogLines(), "[T] Switching to spectrum analyzer mode\n" + blank +
                              "[T] Warning: Failed to get device's current mode\n" + blank +
                              "[T] Warning: Could not verify if the mode change was successful.\n");
}

} // namespace
} // namespace nrq
