#include "hvxsim/ScpiErrorQueue.h"

namespace hvxsim {

const char* ScpiErrorText(ScpiErrorCode code) {
    switch (code) {
    case ScpiErrorCode::NoError: return "No error";
    case ScpiErrorCode::CommandError: return "Command error";
    case ScpiErrorCode::SyntaxError: return "Syntax error";
    case ScpiErrorCode::DataTypeError: return "Data type error";
    case ScpiErrorCode::ParameterNotAllowed: return "Parameter not allowed";
    case ScpiErrorCode::MissingParameter: return "Missing parameter";
    case ScpiErrorCode::UndefinedHeader: return "Undefined header";
    case ScpiErrorCode::InvalidSuffix: return "Invalid suffix";
    case ScpiErrorCode::ExecutionError: return "Execution error";
    case ScpiErrorCode::SettingsConflict: return "Settings conflict";
    case ScpiErrorCode::DataOutOfRange: return "Data out of range";
    case ScpiErrorCode::TooMuchData: return "Too much data";
    case ScpiErrorCode::IllegalParameterValue: return "Illegal parameter value";
    case ScpiErrorCode::QueueOverflow: return "Queue overflow";
    case ScpiErrorCode::InputBufferOverrun: return "Input buffer overrun";
    case ScpiErrorCode::QueryInterrupted: return "Query INTERRUPTED";
    }
    return "Unknown error";
}

void ScpiErrorQueue::Push(ScpiErrorCode code) {
    ScpiErrorEntry entry{static_cast<int32_t>(code), ScpiErrorText(code)};
    if (entries_.size() < kCapacity) {
        entries_.push_back(std::move(entry));
        return;
    }
    const auto overflow = ScpiErrorCode::QueueOverflow;
    entries_.back() = ScpiErrorEntry{static_cast<int32_t>(overflow), ScpiErrorText(overflow)};
}

ScpiErrorEntry ScpiErrorQueue::Pop() {
    if (entries_.empty())
        return ScpiErrorEntry{0, ScpiErrorText(ScpiErrorCode::NoError)};
    ScpiErrorEntry entry = std::move(entries_.front());
    entries_.pop_front();
    return entry;
}

std::string ScpiErrorQueue::Format(const ScpiErrorEntry& entry) {
    return std::to_string(entry.code) + ",\"" + entry.text + "\"";
}

} // namespace hvxsim
