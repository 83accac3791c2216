#if defined(HVX_SCPI_SIM_AVAILABLE)

#include "support/LoopbackClient.h"

#include "hvxsim/ScpiSimulator.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using hvxsim::ByteOrder;
using hvxsim::ScpiSimulator;
using hvxsim::ScpiSimulatorOptions;
using nrq::test::LoopbackClient;

ScpiSimulatorOptions Dialect(const std::string& name, uint64_t seed = 1) {
    ScpiSimulatorOptions options;
    options.dialect = name;
    options.seed = seed;
    options.identifyDelay = std::chrono::milliseconds(0);
    return options;
}

// The values of a float32 block in the given byte order.
std::vector<float> DecodeFloat32(const std::string& bytes, ByteOrder order) {
    std::vector<float> values(bytes.size() / 4);
    for (size_t i = 0; i < values.size(); ++i) {
        uint32_t word = 0;
        for (int b = 0; b < 4; ++b) {
            const uint32_t byte = static_cast<unsigned char>(bytes[i * 4 + static_cast<size_t>(b)]);
            word |= order == ByteOrder::LittleEndian ? byte << (8 * b) : byte << (8 * (3 - b));
        }
        values[i] = std::bit_cast<float>(word);
    }
    return values;
}

std::vector<uint32_t> Bits(const std::vector<float>& values) {
    std::vector<uint32_t> bits;
    for (float value : values)
        bits.push_back(std::bit_cast<uint32_t>(value));
    return bits;
}

// Sends a command that has no reply and makes sure it was taken, by a query behind it.
void Command(LoopbackClient& client, const std::string& command) {
    client.Send(command + "\n");
    ASSERT_EQ(client.Query("*OPC?"), "1\n") << command;
}

std::string NextError(LoopbackClient& client) { return client.Query("SYST:ERR?"); }

TEST(ScpiSimulatorTest, ListensOnAnEphemeralLoopbackPort) {
    ScpiSimulator sim(Dialect("default"));
    EXPECT_NE(sim.Port(), 0);
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("*IDN?"), "Halvex Simulation,SIM-SA3000,SIM000001,1.0.0\n");
    EXPECT_EQ(sim.ConnectionCount(), 1u);
}

TEST(ScpiSimulatorTest, UnknownDialectIsRefused) {
    EXPECT_THROW(ScpiSimulator(Dialect("zulu")), std::invalid_argument);
}

TEST(ScpiSimulatorTest, EmptyErrorQueueAnswersNoError) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, ErrorQueueIsFirstInFirstOut) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("XQXQXQ\nSWE:POIN 5\n");
    EXPECT_EQ(NextError(client), "-113,\"Undefined header\"\n");
    EXPECT_EQ(NextError(client), "-222,\"Data out of range\"\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

struct ErrorCase {
    const char* command;
    const char* error;
};

class ScpiErrorCodeTest : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(ScpiErrorCodeTest, RaisesTheStandardCodeAndText) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send(std::string(GetParam().command) + "\n");
    EXPECT_EQ(NextError(client), std::string(GetParam().error) + "\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

INSTANTIATE_TEST_SUITE_P(Codes, ScpiErrorCodeTest, ::testing::Values(
    ErrorCase{"AAAAAAA", "-113,\"Undefined header\""},
    ErrorCase{"FREQU:CENT 1e6", "-113,\"Undefined header\""},
    ErrorCase{"*RST?", "-113,\"Undefined header\""},
    ErrorCase{"INIT?", "-113,\"Undefined header\""},
    ErrorCase{"TRAC:DATA TRACE1", "-113,\"Undefined header\""},
    ErrorCase{"FREQ::CENT 1", "-102,\"Syntax error\""},
    ErrorCase{"*I-D?", "-102,\"Syntax error\""},
    ErrorCase{"FREQ:CENT abc", "-104,\"Data type error\""},
    ErrorCase{"*RST 1", "-108,\"Parameter not allowed\""},
    ErrorCase{"SYST:ERR? 1", "-108,\"Parameter not allowed\""},
    ErrorCase{"FREQ:CENT 1,2", "-108,\"Parameter not allowed\""},
    ErrorCase{"FREQ:CENT", "-109,\"Missing parameter\""},
    ErrorCase{"TRAC:DATA?", "-109,\"Missing parameter\""},
    ErrorCase{"FREQ:CENT 1 XHZ", "-131,\"Invalid suffix\""},
    ErrorCase{"SWE:POIN 2000000", "-222,\"Data out of range\""},
    ErrorCase{"FREQ:CENT 4 GHz", "-222,\"Data out of range\""},
    ErrorCase{"POW:RF:ATT 80", "-222,\"Data out of range\""},
    ErrorCase{"INST SAN", "-224,\"Illegal parameter value\""},
    ErrorCase{"INIT:CONT MAYBE", "-224,\"Illegal parameter value\""},
    ErrorCase{"TRAC:DATA? TRACE9", "-224,\"Illegal parameter value\""},
    ErrorCase{"FORM:DATA REAL,64", "-224,\"Illegal parameter value\""},
    ErrorCase{"UNIT:POW WATT", "-224,\"Illegal parameter value\""},
    ErrorCase{"FORM:BORD BACKWARDS", "-224,\"Illegal parameter value\""}));

TEST(ScpiSimulatorTest, QueryInterruptedWhenACommandArrivesBeforeTheReplyWasRead) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("*IDN?\n*IDN?\n");
    // The first reply is gone; the second stands.
    EXPECT_EQ(client.ReadLine(), "Halvex Simulation,SIM-SA3000,SIM000001,1.0.0\n");
    EXPECT_EQ(NextError(client), "-410,\"Query INTERRUPTED\"\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, ACommandWithoutReplyAlsoInterruptsAnUnreadQuery) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("FREQ:CENT?\n*CLS\n");
    EXPECT_EQ(client.Query("*OPC?"), "1\n");
    // *CLS ran after the interruption was queued, so the queue is empty.
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
    client.Send("FREQ:CENT?\nINIT\n");
    EXPECT_EQ(NextError(client), "-410,\"Query INTERRUPTED\"\n");
}

TEST(ScpiSimulatorTest, ErrorQueueOverflowReplacesTheNewestEntry) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    std::string burst;
    for (int i = 0; i < 25; ++i)
        burst += "XQXQXQ\n";
    client.Send(burst);
    for (int i = 0; i < 19; ++i)
        ASSERT_EQ(NextError(client), "-113,\"Undefined header\"\n") << i;
    EXPECT_EQ(NextError(client), "-350,\"Queue overflow\"\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, InputBufferOverrunDropsAnOverlongMessage) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send(std::string((1 << 20) + 16, 'A'));
    client.Send("\n");
    EXPECT_EQ(NextError(client), "-363,\"Input buffer overrun\"\n");
}

TEST(ScpiSimulatorTest, CommandErrorEndsTheRestOfTheMessage) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    // An execution error does not stop the units behind it, a command error does.
    Command(client, "SWE:POIN 5;SWE:POIN 201;XQXQ;SWE:POIN 301");
    EXPECT_EQ(client.Query("SWE:POIN?"), "201\n");
    EXPECT_EQ(NextError(client), "-222,\"Data out of range\"\n");
    EXPECT_EQ(NextError(client), "-113,\"Undefined header\"\n");
}

TEST(ScpiSimulatorTest, ClearStatusEmptiesTheQueue) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("XQXQXQ\nXQXQXQ\n*CLS\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
    EXPECT_EQ(sim.ErrorQueueSize(), 0u);
}

TEST(ScpiSimulatorTest, ResetRestoresTheDefaultsButKeepsTheQueue) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "SWE:POIN 201;:FREQ:CENT 100 MHz;:INIT:CONT 0;:XQXQ");
    EXPECT_EQ(sim.Settings().points, 201);
    EXPECT_FALSE(sim.Settings().continuousSweep);
    Command(client, "*RST; *WAI");
    EXPECT_EQ(client.Query("SWE:POIN?;:INIT:CONT?;:FREQ:STAR?;STOP?"), "1001;1;0;3000000000\n");
    EXPECT_EQ(NextError(client), "-113,\"Undefined header\"\n");
}

TEST(ScpiSimulatorTest, OperationCompleteAndWait) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("*WAI;*OPC?"), "1\n");
    Command(client, "*OPC");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, HeadersTakeShortAndLongFormsInAnyCase) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "SENSe:FREQuency:STARt 1000000");
    EXPECT_EQ(client.Query("SENS:FREQ:STAR?"), "1000000\n");
    Command(client, "sense:frequency:stop 5e6");
    EXPECT_EQ(client.Query("freq:stop?"), "5000000\n");
    Command(client, ":FREQ:STAR 2 MHz");
    EXPECT_EQ(client.Query(":sens1:freq:start?"), "2000000\n");
    EXPECT_EQ(client.Query("BWID?"), "1000000\n");
    EXPECT_EQ(client.Query("BAND:RES?"), "1000000\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, NumbersTakeExponentsAndUnitSuffixes) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    for (const char* value : {"700000000", "7E8", "7.0e+08", "700 MHz", "700MHZ", "0.7GHz", "700000 kHz"}) {
        Command(client, "FREQ:CENT 1 GHz");
        Command(client, std::string("FREQ:CENT ") + value);
        EXPECT_EQ(client.Query("FREQ:CENT?"), "700000000\n") << value;
    }
    Command(client, "DISP:WIND:TRAC:Y:RLEV -30 dBm");
    EXPECT_EQ(client.Query("DISP:TRAC:Y:SCAL:RLEV?"), "-30\n");
    Command(client, "SWE:TIME 20 ms");
    EXPECT_EQ(client.Query("SWE:TIME?"), "0.02\n");
    Command(client, "SWE:POIN MAX");
    EXPECT_EQ(client.Query("SWE:POIN?"), "100001\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, CompoundMessagesContinueThePathOfTheHeaderBefore) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "SENS:FREQ:STAR 1 MHz;STOP 3 MHz");
    EXPECT_EQ(client.Query("FREQ:CENT?;SPAN?"), "2000000;2000000\n");
    EXPECT_EQ(client.Query("*IDN?;*OPC?"), "Halvex Simulation,SIM-SA3000,SIM000001,1.0.0;1\n");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, CenterAndSpanKeepEachOtherWithinTheRange) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "FREQ:CENT 700 MHz;SPAN 100 MHz");
    EXPECT_EQ(client.Query("FREQ:STAR?;STOP?"), "650000000;750000000\n");
    Command(client, "FREQ:CENT 10 MHz");
    EXPECT_EQ(client.Query("FREQ:STAR?;STOP?"), "0;20000000\n");
    Command(client, "FREQ:STOP 5 MHz");
    EXPECT_EQ(client.Query("FREQ:STAR?;STOP?"), "0;5000000\n");
    Command(client, "FREQ:STAR 8 MHz");
    EXPECT_EQ(client.Query("FREQ:STAR?;STOP?"), "8000000;8000000\n");
}

TEST(ScpiSimulatorTest, ModeSwitchingTakesTheNameBareOrQuoted) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("INST?"), "SA\n");
    Command(client, "INST SA");
    Command(client, "INST \"SA\"");
    Command(client, "INST:SEL sa");
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
    for (const char* wrong : {"INST SAN", "INST SPA", "INST GPSA"}) {
        Command(client, wrong);
        EXPECT_EQ(NextError(client), "-224,\"Illegal parameter value\"\n") << wrong;
    }
}

// One row of the candidate commands a discovery tries, and what a dialect says to it.
struct DialectCase {
    const char* dialect;
    const char* command;
    int32_t code;
};

// Reads one reply: a line, or a block with the dialect's tail.
void SkipReply(LoopbackClient& client, const hvxsim::ScpiDialect& dialect) {
    const std::string first = client.ReadExactly(1);
    if (first != "#") {
        client.ReadLine();
        return;
    }
    const std::string digits = client.ReadExactly(1);
    const std::string length = client.ReadExactly(static_cast<size_t>(digits.at(0) - '0'));
    client.ReadExactly(std::stoul(length));
    client.ReadExactly(hvxsim::BlockTailBytes(dialect.tail).size());
}

class ScpiDialectCommandTest : public ::testing::TestWithParam<DialectCase> {};

TEST_P(ScpiDialectCommandTest, AcceptsOrRefusesAsItsFamilyDoes) {
    ScpiSimulator sim(Dialect(GetParam().dialect));
    LoopbackClient client(sim.Port());
    const std::string command = GetParam().command;
    client.Send(command + "\n");
    // A reply must be read before the next query, or that query interrupts it.
    if (command.find('?') != std::string::npos && GetParam().code == 0)
        SkipReply(client, sim.Dialect());
    const std::string error = NextError(client);
    EXPECT_EQ(std::stoi(error), GetParam().code) << GetParam().dialect << ": " << GetParam().command << " -> " << error;
}

INSTANTIATE_TEST_SUITE_P(Candidates, ScpiDialectCommandTest, ::testing::Values(
    DialectCase{"default", "SYST:AUD:VOL 0", -113}, DialectCase{"charlie", "SYST:AUD:VOL 0", 0},
    DialectCase{"alpha", "INST SAN", 0}, DialectCase{"alpha", "INST SA", -224},
    DialectCase{"bravo", "INST SA", 0}, DialectCase{"charlie", "INST SPA", 0},
    DialectCase{"echo", "INST GPSA", 0}, DialectCase{"delta", "INST SA", -113}, DialectCase{"delta", "INST?", -113},
    DialectCase{"default", "INIT:CONT 0", 0}, DialectCase{"delta", "INIT1:CONT 0", 0},
    DialectCase{"default", "INIT0:CONT 0", -113},
    DialectCase{"alpha", "TRAC? trace1", 0}, DialectCase{"alpha", "TRAC:DATA? 1", -224},
    DialectCase{"bravo", "TRAC:DATA? trace1", 0}, DialectCase{"charlie", "TRAC? trace1", -113},
    DialectCase{"charlie", "TRAC:DATA? trace1", -224}, DialectCase{"charlie", "TRAC:DATA? 1", 0},
    DialectCase{"charlie", "TRAC:DATA?", -109}, DialectCase{"delta", "TRAC:DATA?", 0},
    DialectCase{"delta", "TRAC:DATA? 1", -108},
    DialectCase{"default", "POW:RF:ATT 30", 0}, DialectCase{"alpha", "POW:RF:ATT 30", -113},
    DialectCase{"alpha", "INP:ATT 70", 0}, DialectCase{"delta", "INP:ATT 60", -222},
    DialectCase{"charlie", "POW:RF:ATT 30", 0}, DialectCase{"charlie", "INP:ATT 30", -113},
    DialectCase{"bravo", "POW:GAIN 1", 0}, DialectCase{"charlie", "POW:GAIN 1", -113},
    DialectCase{"delta", "INP:GAIN:LNA:STAT 1", 0}, DialectCase{"alpha", "INP:GAIN:VAL 1", 0},
    DialectCase{"charlie", "SENS:POW:RF:GAIN:STAT 1", 0}, DialectCase{"bravo", "SENS:POW:RF:GAIN:STAT 1", 0},
    DialectCase{"default", "SWE:POIN 1001", 0}, DialectCase{"delta", "SWE:POIN 1001", -113},
    DialectCase{"delta", "DISP:POIN 1001", 0},
    DialectCase{"default", "UNIT:POW DBM", 0}, DialectCase{"delta", "UNIT:POW DBM", -113},
    DialectCase{"delta", "AMPL:UNIT DBM", 0},
    DialectCase{"default", "FORMAT:DATA REAL,32", 0}, DialectCase{"default", "FORMAT:DATA REAL, 32", 0},
    DialectCase{"charlie", "FORMAT:DATA REAL,32", -108}, DialectCase{"charlie", "FORMAT:DATA REAL", 0},
    DialectCase{"bravo", "FORMAT:BORD NORM", 0}, DialectCase{"charlie", "FORMAT:BORD SWAP", -113},
    DialectCase{"default", "DISP:ENAB 0", 0}, DialectCase{"alpha", "DISP:ENAB 0", -113},
    DialectCase{"default", "SWE:TIME:AUTO 1", 0}, DialectCase{"default", "SWE:POIN:AUTO 1", -113},
    DialectCase{"default", "BAND:VID:AUTO 1", 0}, DialectCase{"echo", "XQXQXQ", 0},
    DialectCase{"echo", "POW:GAIN 1", 0}));

struct DialectQuery {
    const char* dialect;
    const char* query;
    const char* reply;
};

class ScpiDialectQueryTest : public ::testing::TestWithParam<DialectQuery> {};

TEST_P(ScpiDialectQueryTest, AnswersInItsOwnWords) {
    ScpiSimulator sim(Dialect(GetParam().dialect));
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query(GetParam().query), std::string(GetParam().reply) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Replies, ScpiDialectQueryTest, ::testing::Values(
    DialectQuery{"alpha", "*IDN?", "Alpha Messtechnik,ASA-3,101874,2.30"},
    DialectQuery{"bravo", "*IDN?", "Bravo Technologies,BX9020,MY55010412,A.24.05"},
    DialectQuery{"charlie", "*IDN?", "Charlie Electronics,CSA815,CSA8150A0042,3.1.4"},
    DialectQuery{"delta", "*IDN?", "Delta Field Instruments,DH-30,D30-00417,0.9.7"},
    DialectQuery{"echo", "*IDN?", "Echo Systems,EZ-SA1,E1000207,1.02"},
    DialectQuery{"alpha", "INST?", "SAN"}, DialectQuery{"bravo", "INST?", "SA"},
    DialectQuery{"charlie", "INST?", "SPA"}, DialectQuery{"echo", "INST?", "GPSA"},
    DialectQuery{"default", "SWE:POIN?", "1001"}, DialectQuery{"charlie", "SWE:POIN?", "751"},
    DialectQuery{"delta", "DISP:POIN?", "401"}, DialectQuery{"bravo", "SWE:POIN?", "1001"},
    DialectQuery{"bravo", "FREQ:CENT 700 MHz;CENT?", "+7.000000000E+08"},
    DialectQuery{"alpha", "INP:ATT 13;ATT?", "15"}, DialectQuery{"bravo", "POW:ATT 13;ATT?", "+1.400000000E+01"},
    DialectQuery{"charlie", "POW:RF:ATT 13;ATT?", "13"}, DialectQuery{"default", "POW:ATT 13;ATT?", "10"},
    DialectQuery{"alpha", "FORM?", "ASC,8"}, DialectQuery{"charlie", "FORM?", "REAL"},
    DialectQuery{"default", "FORM?", "REAL,32"}, DialectQuery{"default", "FORM:BORD?", "SWAP"},
    DialectQuery{"alpha", "FORM:BORD?", "NORM"}, DialectQuery{"bravo", "FORM:BORD?", "SWAP"},
    DialectQuery{"bravo", "FORM:BORD NORM;BORD?", "NORM"}));

// Reads a definite-length block reply: "#", digit count, length, data, tail.
struct Block {
    std::string prefix;
    std::string data;
    std::string tail;
};

Block ReadBlock(LoopbackClient& client, size_t tailSize) {
    Block block;
    block.prefix = client.ReadExactly(2);
    const size_t digits = static_cast<size_t>(block.prefix.at(1) - '0');
    const std::string length = client.ReadExactly(digits);
    block.prefix += length;
    block.data = client.ReadExactly(std::stoul(length));
    block.tail = client.ReadExactly(tailSize);
    return block;
}

TEST(ScpiSimulatorTest, TraceIsADefiniteLengthBlockOfTheRecordedValues) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("INIT\n*WAI\nTRAC:DATA? TRACE1\n");
    const Block block = ReadBlock(client, 1);
    EXPECT_EQ(block.prefix, "#44004");
    EXPECT_EQ(block.tail, "\n");
    const std::vector<float> recorded = sim.LastTrace();
    ASSERT_EQ(recorded.size(), 1001u);
    EXPECT_EQ(Bits(DecodeFloat32(block.data, ByteOrder::LittleEndian)), Bits(recorded));
    EXPECT_EQ(sim.LastTraceReply(), block.prefix + block.data + block.tail);
    EXPECT_EQ(sim.SweepCount(), 1u);
    EXPECT_EQ(sim.TriggerCount(), 1u);
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

TEST(ScpiSimulatorTest, BlockHeaderDigitsFollowTheLength) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "SWE:POIN 101");
    client.Send("TRAC? TRACE1\n");
    EXPECT_EQ(ReadBlock(client, 1).prefix, "#3404");
    Command(client, "SWE:POIN 100001");
    client.Send("TRAC? 1\n");
    const Block block = ReadBlock(client, 1);
    EXPECT_EQ(block.prefix, "#6400004");
    EXPECT_EQ(block.data.size(), 400004u);
}

TEST(ScpiSimulatorTest, TraceSpansTheFrequenciesSet) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "FREQ:STAR 1 MHz;STOP 3 MHz;:SWE:POIN 101");
    client.Send("TRAC:DATA? TRACE1\n");
    ReadBlock(client, 1);
    const std::vector<double> frequencies = sim.LastTraceFrequencies();
    ASSERT_EQ(frequencies.size(), 101u);
    EXPECT_EQ(frequencies.front(), 1e6);
    EXPECT_EQ(frequencies.back(), 3e6);
    EXPECT_EQ(frequencies[50], 2e6);
}

TEST(ScpiSimulatorTest, TraceShowsTheCarriersAboveTheNoiseFloor) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    Command(client, "FREQ:CENT 700 MHz;SPAN 10 MHz;:SWE:POIN 101;:BAND 100 kHz");
    client.Send("TRAC:DATA? TRACE1\n");
    ReadBlock(client, 1);
    const std::vector<float> trace = sim.LastTrace();
    EXPECT_GT(trace[50], -40.0f);  // the carrier at 700 MHz, -35 dBm
    EXPECT_LT(trace[0], -80.0f);   // the floor, -90 dBm at 100 kHz RBW and 10 dB attenuation
}

TEST(ScpiSimulatorTest, TraceIsDeterministicForASeed) {
    ScpiSimulator first(Dialect("default", 42));
    ScpiSimulator second(Dialect("default", 42));
    ScpiSimulator other(Dialect("default", 43));
    std::vector<std::vector<float>> traces;
    for (ScpiSimulator* sim : {&first, &second, &other}) {
        LoopbackClient client(sim->Port());
        client.Send("TRAC:DATA? TRACE1\n");
        ReadBlock(client, 1);
        traces.push_back(sim->LastTrace());
    }
    EXPECT_EQ(Bits(traces[0]), Bits(traces[1]));
    EXPECT_NE(Bits(traces[0]), Bits(traces[2]));

    hvxsim::TraceConditions conditions;
    conditions.startHz = 0.0;
    conditions.stopHz = 3e9;
    conditions.rbwHz = 1e6;
    conditions.points = 1001;
    conditions.attenuationDb = 10.0;
    EXPECT_EQ(Bits(hvxsim::SynthesizeTrace(conditions, 42, 0)), Bits(traces[0]));
}

TEST(ScpiSimulatorTest, SuccessiveSweepsDifferInTheirNoise) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("TRAC:DATA? TRACE1\n");
    ReadBlock(client, 1);
    const std::vector<float> first = sim.LastTrace();
    client.Send("TRAC:DATA? TRACE1\n");
    ReadBlock(client, 1);
    EXPECT_NE(Bits(first), Bits(sim.LastTrace()));
    EXPECT_EQ(sim.SweepCount(), 2u);
}

TEST(ScpiSimulatorTest, TraceSourceSuppliesTheValues) {
    ScpiSimulator sim(Dialect("default"));
    sim.SetTraceSource([](const std::vector<double>& frequencies) {
        std::vector<float> values;
        for (double f : frequencies)
            values.push_back(static_cast<float>(-100.0 + f / 1e6));
        return values;
    });
    LoopbackClient client(sim.Port());
    Command(client, "FREQ:STAR 10 MHz;STOP 20 MHz;:SWE:POIN 101");
    client.Send("TRAC:DATA? TRACE1\n");
    const Block block = ReadBlock(client, 1);
    const std::vector<float> values = DecodeFloat32(block.data, ByteOrder::LittleEndian);
    ASSERT_EQ(values.size(), 101u);
    EXPECT_EQ(values.front(), -90.0f);
    EXPECT_EQ(values.back(), -80.0f);
    EXPECT_EQ(Bits(values), Bits(sim.LastTrace()));
    sim.SetTraceSource(nullptr);
    client.Send("TRAC:DATA? TRACE1\n");
    ReadBlock(client, 1);
    // Back to the noise floor: -80 dBm at 1 MHz RBW and 10 dB attenuation.
    EXPECT_GT(sim.LastTrace().front(), -85.0f);
    EXPECT_LT(sim.LastTrace().front(), -75.0f);
}

TEST(ScpiSimulatorTest, PowerUnitShiftsTheTrace) {
    ScpiSimulator sim(Dialect("default"));
    sim.SetTraceSource([](const std::vector<double>& frequencies) { return std::vector<float>(frequencies.size(), -50.0f); });
    LoopbackClient client(sim.Port());
    Command(client, "UNIT:POW DBUV;:SWE:POIN 101");
    EXPECT_EQ(client.Query("UNIT:POW?"), "DBUV\n");
    client.Send("TRAC:DATA? TRACE1\n");
    const Block block = ReadBlock(client, 1);
    EXPECT_EQ(DecodeFloat32(block.data, ByteOrder::LittleEndian).front(), 57.0f);
}

struct ByteOrderCase {
    const char* dialect;
    const char* command; // empty: as after *RST
    const char* fetch;
    ByteOrder order;
};

class ScpiByteOrderTest : public ::testing::TestWithParam<ByteOrderCase> {};

TEST_P(ScpiByteOrderTest, DeliversTheOrderItWasToldOrItsOwn) {
    const ByteOrderCase& c = GetParam();
    ScpiSimulator sim(Dialect(c.dialect));
    LoopbackClient client(sim.Port());
    Command(client, "FORM REAL,32");
    if (*c.command)
        Command(client, c.command);
    client.Send(std::string(c.fetch) + "\n");
    const Block block = ReadBlock(client, 1);
    EXPECT_EQ(Bits(DecodeFloat32(block.data, c.order)), Bits(sim.LastTrace()));
    EXPECT_EQ(NextError(client), "0,\"No error\"\n");
}

INSTANTIATE_TEST_SUITE_P(Orders, ScpiByteOrderTest, ::testing::Values(
    ByteOrderCase{"default", "", "TRAC:DATA? TRACE1", ByteOrder::LittleEndian},
    ByteOrderCase{"default", "FORM:BORD NORM", "TRAC:DATA? TRACE1", ByteOrder::BigEndian},
    ByteOrderCase{"default", "FORM:BORD SWAP", "TRAC:DATA? TRACE1", ByteOrder::LittleEndian},
    ByteOrderCase{"alpha", "", "TRAC:DATA? TRACE1", ByteOrder::BigEndian},
    ByteOrderCase{"alpha", "FORMAT:BORD NORM", "TRAC:DATA? TRACE1", ByteOrder::BigEndian},
    ByteOrderCase{"alpha", "FORM:BORD SWAP", "TRAC:DATA? TRACE1", ByteOrder::LittleEndian},
    ByteOrderCase{"bravo", "", "TRAC:DATA? TRACE1", ByteOrder::BigEndian},
    ByteOrderCase{"bravo", "FORMAT:BORD NORM", "TRAC:DATA? TRACE1", ByteOrder::LittleEndian},
    ByteOrderCase{"bravo", "FORMAT:BORD SWAP", "TRAC:DATA? TRACE1", ByteOrder::BigEndian},
    ByteOrderCase{"echo", "", "TRAC:DATA? TRACE1", ByteOrder::LittleEndian}));

TEST(ScpiSimulatorTest, TailsDifferByDialect) {
    {
        ScpiSimulator sim(Dialect("charlie"));
        LoopbackClient client(sim.Port());
        client.Send("TRAC:DATA? 1\n");
        const Block block = ReadBlock(client, 2);
        EXPECT_EQ(block.prefix, "#43004");
        EXPECT_EQ(block.tail, std::string(2, '\0'));
        EXPECT_EQ(client.Query("*OPC?"), "1\n");
    }
    {
        ScpiSimulator sim(Dialect("delta"));
        LoopbackClient client(sim.Port());
        client.Send("TRAC:DATA?\n");
        const Block block = ReadBlock(client, 0);
        EXPECT_EQ(block.prefix, "#41604");
        EXPECT_EQ(sim.LastTraceReply(), block.prefix + block.data);
        EXPECT_EQ(client.Query("*OPC?"), "1\n");
    }
}

TEST(ScpiSimulatorTest, AsciiTraceAfterResetOnAlpha) {
    ScpiSimulator sim(Dialect("alpha"));
    LoopbackClient client(sim.Port());
    Command(client, "SWE:POIN 101");
    const std::string reply = client.Query("TRAC? TRACE1");
    std::string expected;
    char value[32];
    for (float v : sim.LastTrace()) {
        std::snprintf(value, sizeof value, "%.2f", static_cast<double>(v));
        expected += (expected.empty() ? "" : ",") + std::string(value);
    }
    EXPECT_EQ(reply, expected + "\n");
    Command(client, "FORM:DATA REAL,32");
    client.Send("TRAC? TRACE1\n");
    EXPECT_EQ(ReadBlock(client, 1).prefix, "#3404");
}

TEST(ScpiSimulatorTest, FaultDropsTheLinkAfterSweeps) {
    ScpiSimulator sim(Dialect("default"));
    sim.DropLinkAfterSweeps(1);
    LoopbackClient client(sim.Port());
    client.Send("TRAC:DATA? TRACE1\n");
    EXPECT_EQ(ReadBlock(client, 1).prefix, "#44004");
    client.Send("TRAC:DATA? TRACE1\n");
    EXPECT_EQ(client.ReadUntilClosed(), "");
    EXPECT_EQ(sim.SweepCount(), 1u);
    // The instrument stays on: the next client is served.
    LoopbackClient next(sim.Port());
    EXPECT_EQ(next.Query("*OPC?"), "1\n");
    EXPECT_EQ(sim.ConnectionCount(), 2u);
}

TEST(ScpiSimulatorTest, FaultDropsTheLinkMidBlock) {
    ScpiSimulator sim(Dialect("default"));
    sim.DropLinkMidBlock(10);
    LoopbackClient client(sim.Port());
    client.Send("TRAC:DATA? TRACE1\n");
    const std::string bytes = client.ReadUntilClosed();
    EXPECT_EQ(bytes.size(), 10u);
    EXPECT_EQ(bytes, sim.LastTraceReply().substr(0, 10));
}

TEST(ScpiSimulatorTest, FaultSendsABlockShorterThanAnnounced) {
    ScpiSimulator sim(Dialect("default"));
    sim.SendShortBlock(8);
    LoopbackClient client(sim.Port());
    client.Send("TRAC:DATA? TRACE1\n");
    const std::string bytes = client.ReadExactly(6 + 3996 + 1);
    EXPECT_EQ(bytes.substr(0, 6), "#44004");
    EXPECT_EQ(bytes.back(), '\n');
    EXPECT_EQ(bytes, sim.LastTraceReply());
    EXPECT_EQ(client.Query("*OPC?"), "1\n");
    // One block only.
    client.Send("TRAC:DATA? TRACE1\n");
    EXPECT_EQ(ReadBlock(client, 1).data.size(), 4004u);
}

TEST(ScpiSimulatorTest, FaultSendsAMalformedBlockPrefix) {
    ScpiSimulator sim(Dialect("default"));
    sim.SendMalformedBlockPrefix("#X");
    LoopbackClient client(sim.Port());
    Command(client, "SWE:POIN 101");
    client.Send("TRAC:DATA? TRACE1\n");
    const std::string bytes = client.ReadExactly(2 + 404 + 1);
    EXPECT_EQ(bytes.substr(0, 2), "#X");
    EXPECT_EQ(bytes.substr(2, 404), hvxsim::EncodeFloat32(sim.LastTrace(), ByteOrder::LittleEndian));
    EXPECT_EQ(client.Query("*OPC?"), "1\n");
}

TEST(ScpiSimulatorTest, FaultAnswersIdentityWithTooFewFields) {
    ScpiSimulator sim(Dialect("default"));
    sim.AnswerIdentityWithTooFewFields(true);
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("*IDN?"), "Halvex Simulation,SIM-SA3000\n");
    EXPECT_EQ(client.Query("*IDN?"), "Halvex Simulation,SIM-SA3000\n");
    sim.ClearFaults();
    EXPECT_EQ(client.Query("*IDN?"), "Halvex Simulation,SIM-SA3000,SIM000001,1.0.0\n");
}

TEST(ScpiSimulatorTest, SlowIdentityStillAnswers) {
    ScpiSimulatorOptions options = Dialect("delta");
    options.identifyDelay = std::chrono::milliseconds(30);
    ScpiSimulator sim(options);
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("*IDN?"), "Delta Field Instruments,DH-30,D30-00417,0.9.7\n");
}

TEST(ScpiSimulatorTest, StopInterruptsASlowIdentity) {
    ScpiSimulatorOptions options = Dialect("delta");
    options.identifyDelay = std::chrono::hours(1);
    ScpiSimulator sim(options);
    LoopbackClient client(sim.Port());
    client.Send("*IDN?\n");
    client.Send("*OPC?\n");
    sim.Stop();
    EXPECT_EQ(client.ReadUntilClosed(), "");
    sim.Stop();
}

TEST(ScpiSimulatorTest, SecondClientWaitsUntilTheFirstHasGone) {
    ScpiSimulator sim(Dialect("default"));
    auto first = std::make_unique<LoopbackClient>(sim.Port());
    EXPECT_EQ(first->Query("*OPC?"), "1\n");
    LoopbackClient second(sim.Port());
    second.Send("*IDN?\n");
    EXPECT_EQ(first->Query("SWE:POIN?"), "1001\n");
    first.reset();
    EXPECT_EQ(second.ReadLine(), "Halvex Simulation,SIM-SA3000,SIM000001,1.0.0\n");
    EXPECT_EQ(sim.ConnectionCount(), 2u);
}

TEST(ScpiSimulatorTest, SettingsSurviveAReconnect) {
    ScpiSimulator sim(Dialect("default"));
    {
        LoopbackClient client(sim.Port());
        Command(client, "SWE:POIN 501");
    }
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("SWE:POIN?"), "501\n");
}

TEST(ScpiSimulatorTest, RecordsEveryMessageReceived) {
    ScpiSimulator sim(Dialect("default"));
    LoopbackClient client(sim.Port());
    client.Send("  *CLS  \r\n\nINIT;*WAI\n");
    EXPECT_EQ(client.Query("*OPC?"), "1\n");
    EXPECT_EQ(sim.ReceivedMessages(), (std::vector<std::string>{"*CLS", "INIT;*WAI", "*OPC?"}));
}

TEST(ScpiSimulatorTest, SettingsMirrorTheCommands) {
    ScpiSimulator sim(Dialect("bravo"));
    LoopbackClient client(sim.Port());
    Command(client, "INST BASIC;:POW:ATT 20;:POW:GAIN ON;:BAND 30 kHz;:BAND:VID:AUTO 1;:DISP:ENAB OFF;:FORM:BORD NORM");
    const hvxsim::ScpiInstrumentSettings settings = sim.Settings();
    EXPECT_EQ(settings.mode, "BASIC");
    EXPECT_EQ(settings.attenuationDb, 20.0);
    EXPECT_FALSE(settings.attenuationAuto);
    EXPECT_TRUE(settings.preamp);
    EXPECT_EQ(settings.rbwHz, 30e3);
    EXPECT_FALSE(settings.rbwAuto);
    EXPECT_TRUE(settings.vbwAuto);
    EXPECT_FALSE(settings.displayEnabled);
    EXPECT_EQ(settings.byteOrder, ByteOrder::LittleEndian);
}

TEST(ScpiSimulatorTest, AdjustedDialectChangesOneInstrument) {
    ScpiSimulatorOptions options = Dialect("bravo");
    options.adjustDialect = [](hvxsim::ScpiDialect& dialect) {
        dialect.points = 501;
        dialect.serial = "MY00000501";
        dialect.tail = hvxsim::BlockTail::TwoSpareBytes;
    };
    ScpiSimulator sim(options);
    LoopbackClient client(sim.Port());
    EXPECT_EQ(client.Query("*IDN?"), "Bravo Technologies,BX9020,MY00000501,A.24.05\n");
    EXPECT_EQ(client.Query("SWE:POIN?"), "501\n");
    client.Send("TRAC:DATA? TRACE1\n");
    EXPECT_EQ(ReadBlock(client, 2).tail, std::string(2, '\0'));
    EXPECT_EQ(hvxsim::FindScpiDialect("bravo")->points, 1001);
}

TEST(ScpiSimulatorTest, DialectTableHasTheFamilies) {
    std::vector<std::string> names;
    for (const hvxsim::ScpiDialect& dialect : hvxsim::ScpiDialects())
        names.push_back(dialect.name);
    EXPECT_EQ(names, (std::vector<std::string>{"default", "alpha", "bravo", "charlie", "delta", "echo"}));
    EXPECT_EQ(hvxsim::FindScpiDialect("zulu"), nullptr);
}

TEST(ScpiSimulatorTest, HeaderPatternsReadTheManualsNotation) {
    const hvxsim::ScpiHeaderPattern pattern("DISPlay[:WINDow#]:TRACe#:Y[:SCALe]:RLEVel");
    using Tokens = std::vector<std::string>;
    EXPECT_TRUE(pattern.Matches(Tokens{"DISP", "WIND", "TRAC", "Y", "RLEV"}));
    EXPECT_TRUE(pattern.Matches(Tokens{"DISPLAY", "WINDOW2", "TRACE1", "Y", "SCALE", "RLEVEL"}));
    EXPECT_TRUE(pattern.Matches(Tokens{"DISP", "TRAC", "Y", "RLEV"}));
    EXPECT_FALSE(pattern.Matches(Tokens{"DISP", "WIN", "TRAC", "Y", "RLEV"}));
    EXPECT_FALSE(pattern.Matches(Tokens{"DISP", "WIND0", "TRAC", "Y", "RLEV"}));
    EXPECT_FALSE(pattern.Matches(Tokens{"DISP", "TRAC", "Y"}));
    EXPECT_TRUE(hvxsim::ScpiHeaderPattern("BANDwidth|BWIDth:VIDeo").Matches(Tokens{"BWID", "VID"}));
}

} // namespace

#endif
