#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace hvxsim {

// Standard SCPI error codes the simulated instruments raise.
enum class ScpiErrorCode : int32_t {
    NoError = 0,
    CommandError = -100,
    SyntaxError = -102,
    DataTypeError = -104,
    ParameterNotAllowed = -108,
    MissingParameter = -109,
    UndefinedHeader = -113,
    InvalidSuffix = -131,
    ExecutionError = -200,
    SettingsConflict = -221,
    DataOutOfRange = -222,
    TooMuchData = -223,
    IllegalParameterValue = -224,
    QueueOverflow = -350,
    InputBufferOverrun = -363,
    QueryInterrupted = -410,
};

// The standard text of a code, e.g. "Undefined header".
const char* ScpiErrorText(ScpiErrorCode code);

struct ScpiErrorEntry {
    int32_t code = 0;
    std::string text;
};

// The instrument's error/event queue: first in, first out; when full, the
// newest entry is replaced by "Queue overflow" as SCPI instruments do.
class ScpiErrorQueue {
public:
    static constexpr size_t kCapacity = 20;

    void Push(ScpiErrorCode code);
    // The oldest entry, or 0,"No error" when empty.
    ScpiErrorEntry Pop();
    void Clear() { entries_.clear(); }
    size_t Size() const { return entries_.size(); }

    // The form of a SYST:ERR? reply: -113,"Undefined header".
    static std::string Format(const ScpiErrorEntry& entry);

private:
    std::deque<ScpiErrorEntry> entries_;
};

} // namespace hvxsim
