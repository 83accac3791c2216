#include "hvxsim/ScpiInstrument.h"

#include <algorithm>
#include <cmath>

namespace hvxsim {

namespace {

constexpr size_t kReceivedLimit = 10000;
constexpr int kTraceCount = 6;
constexpr double kMinSweepTimeS = 1e-3;
constexpr double kMaxSweepTimeS = 1000.0;

bool IsKeyword(std::string_view upper, std::string_view shortForm, std::string_view longForm) {
    return upper == shortForm || upper == longForm;
}

// Offset from dBm of the units an analyzer can show.
std::optional<double> UnitOffsetDb(const std::string& unit) {
    if (unit == "DBM")
        return 0.0;
    if (unit == "DBMV")
        return 47.0;
    if (unit == "DBUV")
        return 107.0;
    return std::nullopt;
}

} // namespace

ScpiInstrument::ScpiInstrument(const ScpiDialect& dialect, uint64_t seed)
    : dialect_(dialect), seed_(seed), identifyDelay_(dialect.identifyDelay) {
    for (const ScpiCommandBinding& binding : dialect_.commands)
        patterns_.emplace_back(binding.pattern);
    Reset();
}

void ScpiInstrument::Reset() {
    settings_ = ScpiInstrumentSettings{};
    settings_.mode = dialect_.modeNames.empty() ? std::string() : dialect_.modeNames.front();
    settings_.startHz = dialect_.startHz;
    settings_.stopHz = dialect_.stopHz;
    settings_.rbwHz = dialect_.rbwHz;
    settings_.vbwHz = dialect_.vbwHz;
    settings_.attenuationDb = dialect_.attenuationDb;
    settings_.points = dialect_.points;
    settings_.sweepTimeS = dialect_.sweepTimeS;
    settings_.referenceLevelDbm = dialect_.referenceLevelDbm;
    settings_.asciiFormat = dialect_.asciiAfterReset;
    settings_.byteOrder = dialect_.byteOrder;
}

void ScpiInstrument::PushError(ScpiErrorCode code) {
    const int32_t value = static_cast<int32_t>(code);
    if (value <= -100 && value > -200)
        commandErrorInUnit_ = true;
    errors_.Push(code);
}

std::string ScpiInstrument::Number(double value) const {
    return FormatScpiNumber(value, dialect_.numberStyle);
}

ScpiExecution ScpiInstrument::Execute(std::string_view line) {
    if (received_.size() < kReceivedLimit)
        received_.emplace_back(Trim(line));
    Reply reply;
    std::vector<std::string> path;
    for (const std::string& text : SplitProgramMessage(line)) {
        const ScpiUnit unit = ParseUnit(text);
        commandErrorInUnit_ = false;
        const ScpiCommandBinding* binding = unit.malformed ? nullptr : Resolve(unit, path);
        if (!binding) {
            if (dialect_.ignoresUnknownCommands)
                continue;
            PushError(unit.malformed ? ScpiErrorCode::SyntaxError : ScpiErrorCode::UndefinedHeader);
            break;
        }
        Dispatch(binding->command, unit, reply);
        // A command error ends the message; the units behind it are not run.
        if (commandErrorInUnit_ || reply.closeLink)
            break;
    }
    ScpiExecution execution;
    execution.delay = reply.delay;
    execution.closeLink = reply.closeLink;
    if (!reply.parts.empty()) {
        for (size_t i = 0; i < reply.parts.size(); ++i)
            execution.reply += (i ? ";" : "") + reply.parts[i];
        const bool endsWithBlock = reply.endsWithBlock && reply.blockPart + 1 == reply.parts.size();
        execution.reply += endsWithBlock ? BlockTailBytes(dialect_.tail) : "\n";
    }
    if (reply.truncate) {
        execution.reply.resize(std::min(execution.reply.size(), reply.truncateTo));
        execution.closeLink = true;
    }
    return execution;
}

// Resolves a header; behind a ';' a header without ':' continues the path of
// the one before, as SCPI allows ("FREQ:STAR 1 MHz;STOP 2 MHz").
const ScpiCommandBinding* ScpiInstrument::Resolve(const ScpiUnit& unit, std::vector<std::string>& path) const {
    const auto find = [&](const std::vector<std::string>& tokens) -> const ScpiCommandBinding* {
        for (size_t i = 0; i < patterns_.size(); ++i)
            if (patterns_[i].Matches(tokens))
                return &dialect_.commands[i];
        return nullptr;
    };
    if (unit.common)
        return find(unit.tokens);
    const ScpiCommandBinding* binding = nullptr;
    std::vector<std::string> resolved;
    if (!unit.rooted && !path.empty()) {
        resolved = path;
        resolved.insert(resolved.end(), unit.tokens.begin(), unit.tokens.end());
        binding = find(resolved);
    }
    if (!binding) {
        resolved = unit.tokens;
        binding = find(resolved);
    }
    if (binding) {
        resolved.pop_back();
        path = std::move(resolved);
    }
    return binding;
}

bool ScpiInstrument::NoParameters(const ScpiUnit& unit) {
    if (unit.params.empty())
        return true;
    PushError(ScpiErrorCode::ParameterNotAllowed);
    return false;
}

bool ScpiInstrument::OneParameter(const ScpiUnit& unit) {
    if (unit.params.empty() || unit.params.front().empty()) {
        PushError(ScpiErrorCode::MissingParameter);
        return false;
    }
    if (unit.params.size() > 1) {
        PushError(ScpiErrorCode::ParameterNotAllowed);
        return false;
    }
    return true;
}

bool ScpiInstrument::ReadNumber(const ScpiUnit& unit, ScpiUnitKind kind, double min, double max, double& value) {
    if (!OneParameter(unit))
        return false;
    const std::string upper = ToUpper(unit.params.front());
    if (IsKeyword(upper, "MIN", "MINIMUM")) {
        value = min;
        return true;
    }
    if (IsKeyword(upper, "MAX", "MAXIMUM")) {
        value = max;
        return true;
    }
    const ScpiNumber number = ParseScpiNumber(unit.params.front(), kind);
    if (number.status == ScpiNumberStatus::NotANumber) {
        PushError(ScpiErrorCode::DataTypeError);
        return false;
    }
    if (number.status == ScpiNumberStatus::BadSuffix) {
        PushError(ScpiErrorCode::InvalidSuffix);
        return false;
    }
    if (number.value < min || number.value > max) {
        PushError(ScpiErrorCode::DataOutOfRange);
        return false;
    }
    value = number.value;
    return true;
}

bool ScpiInstrument::ReadBoolean(const ScpiUnit& unit, bool& value) {
    if (!OneParameter(unit))
        return false;
    if (const std::optional<bool> parsed = ParseScpiBoolean(unit.params.front())) {
        value = *parsed;
        return true;
    }
    // Numeric booleans: any value that rounds to non-zero is ON.
    const ScpiNumber number = ParseScpiNumber(unit.params.front(), ScpiUnitKind::None);
    if (number.status == ScpiNumberStatus::Ok) {
        value = std::lround(number.value) != 0;
        return true;
    }
    PushError(ScpiErrorCode::IllegalParameterValue);
    return false;
}

void ScpiInstrument::Query(const ScpiUnit& unit, Reply& reply, const std::string& answer) {
    if (NoParameters(unit))
        reply.parts.push_back(answer);
}

void ScpiInstrument::NumberSetting(const ScpiUnit& unit, Reply& reply, ScpiUnitKind kind, double min, double max,
                                   double& target, bool* autoFlag) {
    if (unit.query) {
        Query(unit, reply, Number(target));
        return;
    }
    double value = 0.0;
    if (!ReadNumber(unit, kind, min, max, value))
        return;
    target = value;
    if (autoFlag)
        *autoFlag = false;
}

void ScpiInstrument::BooleanSetting(const ScpiUnit& unit, Reply& reply, bool& target) {
    if (unit.query) {
        Query(unit, reply, target ? "1" : "0");
        return;
    }
    bool value = false;
    if (ReadBoolean(unit, value))
        target = value;
}

void ScpiInstrument::Dispatch(ScpiCommand command, const ScpiUnit& unit, Reply& reply) {
    using C = ScpiCommand;
    const auto setOnly = [&] {
        if (unit.query)
            PushError(ScpiErrorCode::UndefinedHeader);
        return !unit.query && NoParameters(unit);
    };
    const auto queryOnly = [&] {
        if (!unit.query)
            PushError(ScpiErrorCode::UndefinedHeader);
        return unit.query;
    };
    switch (command) {
    case C::Identify: Identify(unit, reply); return;
    case C::ClearStatus:
        if (setOnly())
            errors_.Clear();
        return;
    case C::Reset:
        if (setOnly())
            Reset();
        return;
    case C::Wait: setOnly(); return;
    case C::OperationComplete:
        if (unit.query)
            Query(unit, reply, "1");
        else
            NoParameters(unit);
        return;
    case C::SystemError:
        if (queryOnly())
            Query(unit, reply, ScpiErrorQueue::Format(errors_.Pop()));
        return;
    case C::AudioVolume: {
        double volume = settings_.audioVolume;
        NumberSetting(unit, reply, ScpiUnitKind::None, 0.0, 100.0, volume);
        settings_.audioVolume = static_cast<int>(std::lround(volume));
        return;
    }
    case C::Instrument: Instrument(unit, reply); return;
    case C::InitContinuous: BooleanSetting(unit, reply, settings_.continuousSweep); return;
    case C::InitImmediate:
        if (setOnly())
            ++triggerCount_;
        return;
    case C::TraceData: TraceData(unit, reply); return;
    case C::FrequencyStart:
    case C::FrequencyStop:
    case C::FrequencyCenter:
    case C::FrequencySpan: Frequency(command, unit, reply); return;
    case C::ResolutionBandwidth:
        NumberSetting(unit, reply, ScpiUnitKind::Frequency, dialect_.minRbwHz, dialect_.maxRbwHz, settings_.rbwHz,
                      &settings_.rbwAuto);
        return;
    case C::ResolutionBandwidthAuto: BooleanSetting(unit, reply, settings_.rbwAuto); return;
    case C::VideoBandwidth:
        NumberSetting(unit, reply, ScpiUnitKind::Frequency, dialect_.minRbwHz, dialect_.maxRbwHz, settings_.vbwHz,
                      &settings_.vbwAuto);
        return;
    case C::VideoBandwidthAuto: BooleanSetting(unit, reply, settings_.vbwAuto); return;
    case C::Attenuation: Attenuation(unit, reply); return;
    case C::AttenuationAuto: BooleanSetting(unit, reply, settings_.attenuationAuto); return;
    case C::Preamp: BooleanSetting(unit, reply, settings_.preamp); return;
    case C::SweepPoints: SweepPoints(unit, reply); return;
    case C::SweepTime: SweepTime(unit, reply); return;
    case C::SweepTimeAuto: BooleanSetting(unit, reply, settings_.sweepTimeAuto); return;
    case C::ReferenceLevel:
        NumberSetting(unit, reply, ScpiUnitKind::Amplitude, -150.0, 30.0, settings_.referenceLevelDbm);
        return;
    case C::PowerUnit: PowerUnit(unit, reply); return;
    case C::FormatData: FormatData(unit, reply); return;
    case C::FormatBorder: FormatBorder(unit, reply); return;
    case C::DisplayEnable: BooleanSetting(unit, reply, settings_.displayEnabled); return;
    }
}

void ScpiInstrument::Identify(const ScpiUnit& unit, Reply& reply) {
    if (!unit.query) {
        PushError(ScpiErrorCode::UndefinedHeader);
        return;
    }
    if (!NoParameters(unit))
        return;
    std::string answer = dialect_.manufacturer + "," + dialect_.model;
    if (!faults_.identifyWithTooFewFields)
        answer += "," + dialect_.serial + "," + dialect_.firmware;
    reply.parts.push_back(std::move(answer));
    reply.delay += identifyDelay_;
}

void ScpiInstrument::Instrument(const ScpiUnit& unit, Reply& reply) {
    if (unit.query) {
        Query(unit, reply, settings_.mode);
        return;
    }
    if (!OneParameter(unit))
        return;
    const std::string wanted = ToUpper(Unquote(unit.params.front()));
    for (const std::string& mode : dialect_.modeNames) {
        if (ToUpper(mode) == wanted) {
            settings_.mode = mode;
            return;
        }
    }
    PushError(ScpiErrorCode::IllegalParameterValue);
}

// Start/stop and center/span are one setting seen two ways; a change keeps
// the other end (start, stop) or the other half (center, span) where it can.
void ScpiInstrument::Frequency(ScpiCommand command, const ScpiUnit& unit, Reply& reply) {
    const double min = dialect_.minFrequencyHz;
    const double max = dialect_.maxFrequencyHz;
    double& start = settings_.startHz;
    double& stop = settings_.stopHz;
    if (unit.query) {
        const double value = command == ScpiCommand::FrequencyStart    ? start
                             : command == ScpiCommand::FrequencyStop   ? stop
                             : command == ScpiCommand::FrequencyCenter ? (start + stop) * 0.5
                                                                        : stop - start;
        Query(unit, reply, Number(value));
        return;
    }
    double value = 0.0;
    const double limit = command == ScpiCommand::FrequencySpan ? max - min : max;
    if (!ReadNumber(unit, ScpiUnitKind::Frequency, command == ScpiCommand::FrequencySpan ? 0.0 : min, limit, value))
        return;
    const auto setCenterSpan = [&](double center, double span) {
        const double half = std::min({span * 0.5, center - min, max - center});
        start = center - half;
        stop = center + half;
    };
    switch (command) {
    case ScpiCommand::FrequencyStart:
        start = value;
        stop = std::max(stop, start);
        break;
    case ScpiCommand::FrequencyStop:
        stop = value;
        start = std::min(start, stop);
        break;
    case ScpiCommand::FrequencyCenter: setCenterSpan(value, stop - start); break;
    default: setCenterSpan((start + stop) * 0.5, value); break;
    }
}

void ScpiInstrument::Attenuation(const ScpiUnit& unit, Reply& reply) {
    if (unit.query) {
        Query(unit, reply, Number(settings_.attenuationDb));
        return;
    }
    double value = 0.0;
    if (!ReadNumber(unit, ScpiUnitKind::Attenuation, 0.0, dialect_.maxAttenuationDb, value))
        return;
    // The attenuator has steps; a value between them goes to the nearest.
    const double step = dialect_.attenuationStepDb;
    settings_.attenuationDb = std::min(std::round(value / step) * step, dialect_.maxAttenuationDb);
    settings_.attenuationAuto = false;
}

void ScpiInstrument::SweepPoints(const ScpiUnit& unit, Reply& reply) {
    if (unit.query) {
        Query(unit, reply, std::to_string(settings_.points));
        return;
    }
    double value = 0.0;
    if (ReadNumber(unit, ScpiUnitKind::None, dialect_.minPoints, dialect_.maxPoints, value))
        settings_.points = static_cast<int>(std::lround(value));
}

void ScpiInstrument::SweepTime(const ScpiUnit& unit, Reply& reply) {
    if (unit.query) {
        Query(unit, reply, Number(settings_.sweepTimeS));
        return;
    }
    double value = 0.0;
    if (!ReadNumber(unit, ScpiUnitKind::Time, 0.0, kMaxSweepTimeS, value))
        return;
    // Faster than the hardware can go means as fast as it can go.
    settings_.sweepTimeS = std::max(value, kMinSweepTimeS);
    settings_.sweepTimeAuto = false;
}

void ScpiInstrument::PowerUnit(const ScpiUnit& unit, Reply& reply) {
    if (unit.query) {
        Query(unit, reply, settings_.powerUnit);
        return;
    }
    if (!OneParameter(unit))
        return;
    const std::string wanted = ToUpper(unit.params.front());
    if (!UnitOffsetDb(wanted)) {
        PushError(ScpiErrorCode::IllegalParameterValue);
        return;
    }
    settings_.powerUnit = wanted;
}

void ScpiInstrument::FormatData(const ScpiUnit& unit, Reply& reply) {
    if (unit.query) {
        const char* answer = settings_.asciiFormat ? (dialect_.formatTakesLength ? "ASC,8" : "ASC")
                                                   : (dialect_.formatTakesLength ? "REAL,32" : "REAL");
        Query(unit, reply, answer);
        return;
    }
    if (unit.params.empty() || unit.params.front().empty()) {
        PushError(ScpiErrorCode::MissingParameter);
        return;
    }
    if (unit.params.size() > 2 || (unit.params.size() == 2 && !dialect_.formatTakesLength)) {
        PushError(ScpiErrorCode::ParameterNotAllowed);
        return;
    }
    const std::string type = ToUpper(unit.params.front());
    const bool ascii = IsKeyword(type, "ASC", "ASCII");
    if (!ascii && type != "REAL") {
        PushError(ScpiErrorCode::IllegalParameterValue);
        return;
    }
    if (unit.params.size() == 2 && !ascii) {
        const ScpiNumber width = ParseScpiNumber(unit.params[1], ScpiUnitKind::None);
        if (width.status != ScpiNumberStatus::Ok) {
            PushError(ScpiErrorCode::DataTypeError);
            return;
        }
        if (width.value != 32.0) {
            PushError(ScpiErrorCode::IllegalParameterValue);
            return;
        }
    }
    settings_.asciiFormat = ascii;
}

void ScpiInstrument::FormatBorder(const ScpiUnit& unit, Reply& reply) {
    const ByteOrder normal = dialect_.normalOrder.value_or(ByteOrder::BigEndian);
    const ByteOrder swapped = normal == ByteOrder::BigEndian ? ByteOrder::LittleEndian : ByteOrder::BigEndian;
    if (unit.query) {
        Query(unit, reply, settings_.byteOrder == normal ? "NORM" : "SWAP");
        return;
    }
    if (!OneParameter(unit))
        return;
    const std::string wanted = ToUpper(unit.params.front());
    if (IsKeyword(wanted, "NORM", "NORMAL"))
        settings_.byteOrder = normal;
    else if (IsKeyword(wanted, "SWAP", "SWAPPED"))
        settings_.byteOrder = swapped;
    else
        PushError(ScpiErrorCode::IllegalParameterValue);
}

bool ScpiInstrument::TraceParameterValid(const ScpiUnit& unit) {
    const TraceParameterRule& rule = dialect_.traceParameter;
    if (unit.params.empty()) {
        if (rule.none)
            return true;
        PushError(ScpiErrorCode::MissingParameter);
        return false;
    }
    if (unit.params.size() > 1 || (!rule.name && !rule.number)) {
        PushError(ScpiErrorCode::ParameterNotAllowed);
        return false;
    }
    const std::string param = ToUpper(unit.params.front());
    const auto isTraceNumber = [](std::string_view digits) {
        return digits.size() == 1 && digits.front() >= '1' && digits.front() < '1' + kTraceCount;
    };
    const std::string_view name = param;
    const bool byName = rule.name && name.starts_with("TRACE") && isTraceNumber(name.substr(5));
    const bool byNumber = rule.number && isTraceNumber(name);
    if (byName || byNumber)
        return true;
    PushError(ScpiErrorCode::IllegalParameterValue);
    return false;
}

std::vector<float> ScpiInstrument::TakeSweep() {
    const std::vector<double> frequencies = TraceFrequencies(settings_.startHz, settings_.stopHz, settings_.points);
    std::vector<float> values;
    if (traceSource_) {
        values = traceSource_(frequencies);
        values.resize(frequencies.size(), -120.0f);
    } else {
        TraceConditions conditions;
        conditions.startHz = settings_.startHz;
        conditions.stopHz = settings_.stopHz;
        conditions.rbwHz = settings_.rbwHz;
        conditions.points = settings_.points;
        conditions.attenuationDb = settings_.attenuationDb;
        conditions.preamp = settings_.preamp;
        values = SynthesizeTrace(conditions, seed_, sweepCount_);
    }
    const float offset = static_cast<float>(UnitOffsetDb(settings_.powerUnit).value_or(0.0));
    if (offset != 0.0f)
        for (float& value : values)
            value += offset;
    ++sweepCount_;
    lastFrequencies_ = frequencies;
    lastTrace_ = values;
    return values;
}

std::string ScpiInstrument::BlockReply(const std::vector<float>& values) {
    std::string data = EncodeFloat32(values, settings_.byteOrder);
    std::string prefix = DefiniteLengthPrefix(data.size());
    if (faults_.malformedBlockPrefix) {
        prefix = *faults_.malformedBlockPrefix;
        faults_.malformedBlockPrefix.reset();
    }
    if (faults_.shortBlockMissingBytes > 0) {
        data.resize(data.size() - std::min(data.size(), faults_.shortBlockMissingBytes));
        faults_.shortBlockMissingBytes = 0;
    }
    lastBlock_ = prefix + data + BlockTailBytes(dialect_.tail);
    return prefix + data;
}

void ScpiInstrument::TraceData(const ScpiUnit& unit, Reply& reply) {
    if (!unit.query) {
        PushError(ScpiErrorCode::UndefinedHeader);
        return;
    }
    if (!TraceParameterValid(unit))
        return;
    if (faults_.dropLinkAfterSweeps) {
        if (*faults_.dropLinkAfterSweeps == 0) {
            faults_.dropLinkAfterSweeps.reset();
            reply.closeLink = true;
            return;
        }
        --*faults_.dropLinkAfterSweeps;
    }
    const std::vector<float> values = TakeSweep();
    if (settings_.asciiFormat) {
        reply.parts.push_back(EncodeAscii(values));
        lastBlock_ = reply.parts.back() + "\n";
        return;
    }
    size_t before = 0;
    for (const std::string& part : reply.parts)
        before += part.size() + 1;
    reply.parts.push_back(BlockReply(values));
    reply.endsWithBlock = true;
    reply.blockPart = reply.parts.size() - 1;
    if (faults_.dropLinkMidBlockAfterBytes) {
        reply.truncate = true;
        reply.truncateTo = before + *faults_.dropLinkMidBlockAfterBytes;
        faults_.dropLinkMidBlockAfterBytes.reset();
    }
}

} // namespace hvxsim
