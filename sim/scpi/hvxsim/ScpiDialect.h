#pragma once

#include "hvxsim/ScpiNumber.h"
#include "hvxsim/ScpiTrace.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hvxsim {

// Everything a simulated analyzer can do; a dialect binds header patterns to these.
enum class ScpiCommand {
    Identify,            // *IDN?
    ClearStatus,         // *CLS
    Reset,               // *RST
    Wait,                // *WAI
    OperationComplete,   // *OPC, *OPC?
    SystemError,         // SYST:ERR?
    AudioVolume,         // beeper volume 0..100
    Instrument,          // mode by name
    InitContinuous,      // continuous sweeping on/off
    InitImmediate,       // one sweep
    TraceData,           // the trace query
    FrequencyStart,
    FrequencyStop,
    FrequencyCenter,
    FrequencySpan,
    ResolutionBandwidth,
    ResolutionBandwidthAuto,
    VideoBandwidth,
    VideoBandwidthAuto,
    Attenuation,
    AttenuationAuto,
    Preamp,
    SweepPoints,
    SweepTime,
    SweepTimeAuto,
    ReferenceLevel,
    PowerUnit,
    FormatData,
    FormatBorder,
    DisplayEnable,
};

struct ScpiCommandBinding {
    std::string pattern; // see ScpiHeaderPattern
    ScpiCommand command;
};

// Which parameters the trace query takes: none, a trace name ("TRACE1"),
// a trace number ("1").
struct TraceParameterRule {
    bool none = false;
    bool name = true;
    bool number = false;
};

// One family of instruments: its command set, ranges, defaults and habits.
struct ScpiDialect {
    std::string name;
    std::string description;

    std::string manufacturer;
    std::string model;
    std::string serial;
    std::string firmware;

    std::vector<ScpiCommandBinding> commands;
    std::vector<std::string> modeNames; // the first is the mode after *RST; empty: no modes
    TraceParameterRule traceParameter;

    double minFrequencyHz = 0.0;
    double maxFrequencyHz = 3e9;
    double startHz = 0.0;
    double stopHz = 3e9;
    double minRbwHz = 1.0;
    double maxRbwHz = 10e6;
    double rbwHz = 1e6;
    double vbwHz = 3e6;
    int points = 1001;
    int minPoints = 101;
    int maxPoints = 100001;
    double attenuationDb = 10.0;
    double maxAttenuationDb = 70.0;
    double attenuationStepDb = 10.0; // settings round to the nearest step
    double referenceLevelDbm = 0.0;
    double sweepTimeS = 0.01;

    bool asciiAfterReset = false;      // trace format after *RST: ASCII or REAL,32
    bool formatTakesLength = true;     // FORM REAL,32 accepted, else only FORM REAL
    ByteOrder byteOrder = ByteOrder::LittleEndian;
    std::optional<ByteOrder> normalOrder; // FORM:BORD NORM selects this, SWAP the other; none: no such command
    BlockTail tail = BlockTail::LineFeed;
    ScpiNumberStyle numberStyle = ScpiNumberStyle::Plain;
    std::chrono::milliseconds identifyDelay{0};
    bool ignoresUnknownCommands = false;
};

// All dialects: "default" first, then "alpha", "bravo", "charlie", "delta", "echo".
const std::vector<ScpiDialect>& ScpiDialects();

// The dialect of that name (case-sensitive), or null.
const ScpiDialect* FindScpiDialect(std::string_view name);

} // namespace hvxsim
