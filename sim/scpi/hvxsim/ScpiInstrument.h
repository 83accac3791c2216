#pragma once

#include "hvxsim/ScpiDialect.h"
#include "hvxsim/ScpiErrorQueue.h"
#include "hvxsim/ScpiHeader.h"
#include "hvxsim/ScpiTrace.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hvxsim {

// The settings of the simulated analyzer as they stand.
struct ScpiInstrumentSettings {
    std::string mode; // empty for a dialect without modes
    bool continuousSweep = true;
    double startHz = 0.0;
    double stopHz = 0.0;
    double rbwHz = 0.0;
    bool rbwAuto = true;
    double vbwHz = 0.0;
    bool vbwAuto = true;
    double attenuationDb = 0.0;
    bool attenuationAuto = true;
    bool preamp = false;
    int points = 0;
    double sweepTimeS = 0.0;
    bool sweepTimeAuto = true;
    double referenceLevelDbm = 0.0;
    std::string powerUnit = "DBM";
    bool asciiFormat = false;
    ByteOrder byteOrder = ByteOrder::LittleEndian;
    bool displayEnabled = true;
    int audioVolume = 50;
};

// Faults a test asks for; each fires on the trace or identity reply named.
struct ScpiFaults {
    std::optional<uint64_t> dropLinkAfterSweeps; // that many traces still go out, the next query closes the link
    std::optional<size_t> dropLinkMidBlockAfterBytes; // next trace reply: only that many bytes, then close
    size_t shortBlockMissingBytes = 0;                // next block: that many data bytes fewer than announced
    std::optional<std::string> malformedBlockPrefix;  // next block: this text instead of "#<n><len>"
    bool identifyWithTooFewFields = false;            // *IDN? answers "manufacturer,model" while set
};

// What one program message made the instrument do.
struct ScpiExecution {
    std::string reply;                     // complete response message, empty for no response
    std::chrono::milliseconds delay{0};    // the reply is ready only after this time
    bool closeLink = false;                // the link drops after the reply (possibly nothing) was sent
};

// The simulated analyzer without its transport: feeds on program messages,
// gives response messages. Not thread-safe; the simulator locks around it.
class ScpiInstrument {
public:
    ScpiInstrument(const ScpiDialect& dialect, uint64_t seed);

    // One program message: a line without its terminator.
    ScpiExecution Execute(std::string_view line);

    // A new message arrived while a reply was unread: the reply is gone.
    void InterruptQuery() { errors_.Push(ScpiErrorCode::QueryInterrupted); }
    void InputOverrun() { errors_.Push(ScpiErrorCode::InputBufferOverrun); }

    const ScpiDialect& Dialect() const { return dialect_; }
    const ScpiInstrumentSettings& Settings() const { return settings_; }
    ScpiFaults& Faults() { return faults_; }
    void SetTraceSource(TraceSource source) { traceSource_ = std::move(source); }
    void SetIdentifyDelay(std::chrono::milliseconds delay) { identifyDelay_ = delay; }

    const std::vector<float>& LastTrace() const { return lastTrace_; }
    const std::vector<double>& LastTraceFrequencies() const { return lastFrequencies_; }
    const std::string& LastBlock() const { return lastBlock_; }
    uint64_t SweepCount() const { return sweepCount_; }
    uint64_t TriggerCount() const { return triggerCount_; }
    size_t ErrorCount() const { return errors_.Size(); }
    const std::vector<std::string>& ReceivedMessages() const { return received_; }

private:
    struct Reply {
        std::vector<std::string> parts;
        bool endsWithBlock = false;
        size_t blockPart = 0;
        bool closeLink = false;
        bool truncate = false;
        size_t truncateTo = 0;
        std::chrono::milliseconds delay{0};
    };

    const ScpiCommandBinding* Resolve(const ScpiUnit& unit, std::vector<std::string>& path) const;
    void Dispatch(ScpiCommand command, const ScpiUnit& unit, Reply& reply);
    void Reset();
    void PushError(ScpiErrorCode code);
    std::string Number(double value) const;

    // Parameter checks: they raise the fitting error and return false.
    bool NoParameters(const ScpiUnit& unit);
    bool OneParameter(const ScpiUnit& unit);
    bool ReadNumber(const ScpiUnit& unit, ScpiUnitKind kind, double min, double max, double& value);
    bool ReadBoolean(const ScpiUnit& unit, bool& value);

    void Query(const ScpiUnit& unit, Reply& reply, const std::string& answer);
    void NumberSetting(const ScpiUnit& unit, Reply& reply, ScpiUnitKind kind, double min, double max, double& target,
                       bool* autoFlag = nullptr);
    void BooleanSetting(const ScpiUnit& unit, Reply& reply, bool& target);

    void Identify(const ScpiUnit& unit, Reply& reply);
    void Instrument(const ScpiUnit& unit, Reply& reply);
    void Frequency(ScpiCommand command, const ScpiUnit& unit, Reply& reply);
    void Attenuation(const ScpiUnit& unit, Reply& reply);
    void SweepPoints(const ScpiUnit& unit, Reply& reply);
    void SweepTime(const ScpiUnit& unit, Reply& reply);
    void PowerUnit(const ScpiUnit& unit, Reply& reply);
    void FormatData(const ScpiUnit& unit, Reply& reply);
    void FormatBorder(const ScpiUnit& unit, Reply& reply);
    void TraceData(const ScpiUnit& unit, Reply& reply);
    bool TraceParameterValid(const ScpiUnit& unit);
    std::vector<float> TakeSweep();
    std::string BlockReply(const std::vector<float>& values);

    const ScpiDialect& dialect_;
    uint64_t seed_;
    std::vector<ScpiHeaderPattern> patterns_;
    ScpiErrorQueue errors_;
    ScpiInstrumentSettings settings_;
    ScpiFaults faults_;
    TraceSource traceSource_;
    std::chrono::milliseconds identifyDelay_;
    bool commandErrorInUnit_ = false;

    std::vector<float> lastTrace_;
    std::vector<double> lastFrequencies_;
    std::string lastBlock_;
    uint64_t sweepCount_ = 0;
    uint64_t triggerCount_ = 0;
    std::vector<std::string> received_;
};

} // namespace hvxsim
