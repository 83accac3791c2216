#include "hvxsim/ScpiDialect.h"

namespace hvxsim {

namespace {

using C = ScpiCommand;
using Bindings = std::vector<ScpiCommandBinding>;

void Append(Bindings& to, const Bindings& from) {
    to.insert(to.end(), from.begin(), from.end());
}

// IEEE 488.2 common commands and the error queue: every instrument has them.
Bindings CommonCommands() {
    return {
        {"*IDN", C::Identify},
        {"*CLS", C::ClearStatus},
        {"*RST", C::Reset},
        {"*WAI", C::Wait},
        {"*OPC", C::OperationComplete},
        {"SYSTem:ERRor[:NEXT]", C::SystemError},
    };
}

Bindings FrequencyCommands() {
    return {
        {"[SENSe#:]FREQuency:STARt", C::FrequencyStart},
        {"[SENSe#:]FREQuency:STOP", C::FrequencyStop},
        {"[SENSe#:]FREQuency:CENTer", C::FrequencyCenter},
        {"[SENSe#:]FREQuency:SPAN", C::FrequencySpan},
    };
}

Bindings BandwidthCommands() {
    return {
        {"[SENSe#:]BANDwidth|BWIDth[:RESolution]", C::ResolutionBandwidth},
        {"[SENSe#:]BANDwidth|BWIDth[:RESolution]:AUTO", C::ResolutionBandwidthAuto},
        {"[SENSe#:]BANDwidth|BWIDth:VIDeo", C::VideoBandwidth},
        {"[SENSe#:]BANDwidth|BWIDth:VIDeo:AUTO", C::VideoBandwidthAuto},
    };
}

Bindings SweepCommands() {
    return {
        {"INITiate#:CONTinuous", C::InitContinuous},
        {"INITiate#[:IMMediate]", C::InitImmediate},
        {"[SENSe#:]SWEep:TIME", C::SweepTime},
        {"[SENSe#:]SWEep:TIME:AUTO", C::SweepTimeAuto},
    };
}

ScpiDialect GenericAnalyzer() {
    ScpiDialect d;
    d.name = "default";
    d.description = "generic analyzer: INST SA, SWE:POIN 1001, FORM:BORD NORM is big-endian, block ends with LF";
    d.manufacturer = "Halvex Simulation";
    d.model = "SIM-SA3000";
    d.serial = "SIM000001";
    d.firmware = "1.0.0";
    Append(d.commands, CommonCommands());
    Append(d.commands, FrequencyCommands());
    Append(d.commands, BandwidthCommands());
    Append(d.commands, SweepCommands());
    Append(d.commands, {
        {"INSTrument[:SELect]", C::Instrument},
        {"TRACe#[:DATA]", C::TraceData},
        {"[SENSe#:]POWer[:RF]:ATTenuation", C::Attenuation},
        {"[SENSe#:]POWer[:RF]:ATTenuation:AUTO", C::AttenuationAuto},
        {"[SENSe#:]POWer[:RF]:GAIN[:STATe]", C::Preamp},
        {"[SENSe#:]SWEep:POINts", C::SweepPoints},
        {"DISPlay[:WINDow#]:TRACe#:Y[:SCALe]:RLEVel", C::ReferenceLevel},
        {"UNIT:POWer", C::PowerUnit},
        {"FORMat[:DATA]", C::FormatData},
        {"FORMat:BORDer", C::FormatBorder},
        {"DISPlay:ENABle", C::DisplayEnable},
    });
    d.modeNames = {"SA"};
    d.traceParameter = {false, true, true};
    d.normalOrder = ByteOrder::BigEndian;
    return d;
}

// A bench analyzer of the European kind: "SAN" mode, ASCII traces after
// reset, big-endian REAL,32 until FORM:BORD SWAP.
ScpiDialect Alpha() {
    ScpiDialect d;
    d.name = "alpha";
    d.description = "bench analyzer: INST SAN, INP:ATT in 5 dB steps, ASCII after *RST, big-endian until FORM:BORD SWAP";
    d.manufacturer = "Alpha Messtechnik";
    d.model = "ASA-3";
    d.serial = "101874";
    d.firmware = "2.30";
    Append(d.commands, CommonCommands());
    Append(d.commands, FrequencyCommands());
    Append(d.commands, BandwidthCommands());
    Append(d.commands, SweepCommands());
    Append(d.commands, {
        {"INSTrument[:SELect]", C::Instrument},
        {"TRACe#[:DATA]", C::TraceData},
        {"INPut#:ATTenuation", C::Attenuation},
        {"INPut#:ATTenuation:AUTO", C::AttenuationAuto},
        {"INPut#:GAIN[:VALue]", C::Preamp},
        {"[SENSe#:]SWEep:POINts", C::SweepPoints},
        {"DISPlay[:WINDow#]:TRACe#:Y[:SCALe]:RLEVel", C::ReferenceLevel},
        {"UNIT#:POWer", C::PowerUnit},
        {"FORMat[:DATA]", C::FormatData},
        {"FORMat:BORDer", C::FormatBorder},
    });
    d.modeNames = {"SAN", "IQ"};
    d.traceParameter = {false, true, false};
    d.maxFrequencyHz = 7.5e9;
    d.stopHz = 7.5e9;
    d.attenuationStepDb = 5.0;
    d.maxAttenuationDb = 75.0;
    d.asciiAfterReset = true;
    d.byteOrder = ByteOrder::BigEndian;
    d.normalOrder = ByteOrder::BigEndian;
    return d;
}

// A bench analyzer of the American kind: scientific number replies, 2 dB
// attenuator, swapped data unless told FORM:BORD NORM.
ScpiDialect Bravo() {
    ScpiDialect d;
    d.name = "bravo";
    d.description = "bench analyzer: INST SA, POW:ATT in 2 dB steps, scientific replies, swapped until FORM:BORD NORM";
    d.manufacturer = "Bravo Technologies";
    d.model = "BX9020";
    d.serial = "MY55010412";
    d.firmware = "A.24.05";
    Append(d.commands, CommonCommands());
    Append(d.commands, FrequencyCommands());
    Append(d.commands, BandwidthCommands());
    Append(d.commands, SweepCommands());
    Append(d.commands, {
        {"INSTrument[:SELect]", C::Instrument},
        {"TRACe#[:DATA]", C::TraceData},
        {"[SENSe#:]POWer[:RF]:ATTenuation", C::Attenuation},
        {"[SENSe#:]POWer[:RF]:ATTenuation:AUTO", C::AttenuationAuto},
        {"[SENSe#:]POWer[:RF]:GAIN[:STATe]", C::Preamp},
        {"[SENSe#:]SWEep:POINts", C::SweepPoints},
        {"DISPlay[:WINDow#]:TRACe#:Y[:SCALe]:RLEVel", C::ReferenceLevel},
        {"UNIT:POWer", C::PowerUnit},
        {"FORMat[:TRACe][:DATA]", C::FormatData},
        {"FORMat:BORDer", C::FormatBorder},
        {"DISPlay:ENABle", C::DisplayEnable},
    });
    d.modeNames = {"SA", "BASIC", "PNOISE"};
    d.traceParameter = {false, true, false};
    d.maxFrequencyHz = 26.5e9;
    d.stopHz = 26.5e9;
    d.minPoints = 1;
    d.maxPoints = 40001;
    d.attenuationStepDb = 2.0;
    d.byteOrder = ByteOrder::BigEndian;
    d.normalOrder = ByteOrder::LittleEndian;
    d.numberStyle = ScpiNumberStyle::Scientific;
    return d;
}

// A low-cost analyzer: beeper, "SPA" mode, numbered traces, 751 points,
// FORM REAL without a width, two spare bytes behind the block.
ScpiDialect Charlie() {
    ScpiDialect d;
    d.name = "charlie";
    d.description = "low-cost analyzer: INST SPA, 751 points, TRAC:DATA? 1, FORM REAL only, two spare bytes after the block";
    d.manufacturer = "Charlie Electronics";
    d.model = "CSA815";
    d.serial = "CSA8150A0042";
    d.firmware = "3.1.4";
    Append(d.commands, CommonCommands());
    Append(d.commands, FrequencyCommands());
    Append(d.commands, BandwidthCommands());
    Append(d.commands, SweepCommands());
    Append(d.commands, {
        {"SYSTem:AUDio:VOLume", C::AudioVolume},
        {"INSTrument[:SELect]", C::Instrument},
        {"TRACe#:DATA", C::TraceData},
        {"[SENSe#:]POWer:RF:ATTenuation", C::Attenuation},
        {"[SENSe#:]POWer:RF:GAIN:STATe", C::Preamp},
        {"[SENSe#:]SWEep:POINts", C::SweepPoints},
        {"DISPlay[:WINDow#]:TRACe#:Y[:SCALe]:RLEVel", C::ReferenceLevel},
        {"UNIT:POWer", C::PowerUnit},
        {"FORMat[:DATA]", C::FormatData},
    });
    d.modeNames = {"SPA", "EMI"};
    d.traceParameter = {false, false, true};
    d.maxFrequencyHz = 1.5e9;
    d.stopHz = 1.5e9;
    d.points = 751;
    d.maxPoints = 3001;
    d.attenuationStepDb = 1.0;
    d.maxAttenuationDb = 51.0;
    d.formatTakesLength = false;
    d.tail = BlockTail::TwoSpareBytes;
    return d;
}

// A handheld analyzer: no modes, display points, LNA, AMPL:UNIT, slow to
// identify itself, nothing behind the block.
ScpiDialect Delta() {
    ScpiDialect d;
    d.name = "delta";
    d.description = "handheld analyzer: no modes, DISP:POIN 401, INP:GAIN:LNA:STAT, slow *IDN?, nothing after the block";
    d.manufacturer = "Delta Field Instruments";
    d.model = "DH-30";
    d.serial = "D30-00417";
    d.firmware = "0.9.7";
    Append(d.commands, CommonCommands());
    Append(d.commands, FrequencyCommands());
    Append(d.commands, BandwidthCommands());
    Append(d.commands, SweepCommands());
    Append(d.commands, {
        {"TRACe:DATA", C::TraceData},
        {"INPut:ATTenuation", C::Attenuation},
        {"INPut:GAIN:LNA[:STATe]", C::Preamp},
        {"DISPlay:POINts", C::SweepPoints},
        {"DISPlay[:WINDow#]:TRACe#:Y[:SCALe]:RLEVel", C::ReferenceLevel},
        {"AMPLitude:UNIT", C::PowerUnit},
        {"FORMat[:DATA]", C::FormatData},
        {"DISPlay:ENABle", C::DisplayEnable},
    });
    d.traceParameter = {true, false, false};
    d.stopHz = 3e9;
    d.points = 401;
    d.maxPoints = 1001;
    d.maxAttenuationDb = 50.0;
    d.tail = BlockTail::None;
    d.identifyDelay = std::chrono::milliseconds(250);
    return d;
}

// A bare-bones module that drops what it does not understand without a word.
ScpiDialect Echo() {
    ScpiDialect d;
    d.name = "echo";
    d.description = "analyzer module: INST GPSA, ignores unknown commands without an error";
    d.manufacturer = "Echo Systems";
    d.model = "EZ-SA1";
    d.serial = "E1000207";
    d.firmware = "1.02";
    Append(d.commands, CommonCommands());
    Append(d.commands, FrequencyCommands());
    Append(d.commands, BandwidthCommands());
    Append(d.commands, SweepCommands());
    Append(d.commands, {
        {"INSTrument[:SELect]", C::Instrument},
        {"TRACe#[:DATA]", C::TraceData},
        {"[SENSe#:]POWer[:RF]:ATTenuation", C::Attenuation},
        {"[SENSe#:]SWEep:POINts", C::SweepPoints},
        {"UNIT:POWer", C::PowerUnit},
        {"FORMat[:DATA]", C::FormatData},
    });
    d.modeNames = {"GPSA"};
    d.traceParameter = {false, true, false};
    d.maxAttenuationDb = 30.0;
    d.ignoresUnknownCommands = true;
    return d;
}

} // namespace

const std::vector<ScpiDialect>& ScpiDialects() {
    static const std::vector<ScpiDialect> dialects = {GenericAnalyzer(), Alpha(), Bravo(), Charlie(), Delta(), Echo()};
    return dialects;
}

const ScpiDialect* FindScpiDialect(std::string_view name) {
    for (const ScpiDialect& dialect : ScpiDialects())
        if (dialect.name == name)
            return &dialect;
    return nullptr;
}

} // namespace hvxsim
