// One SCPI conversation: the error queue, the identity, the mode, and scripts
// run as writes or queries. Device failures become a false result and a log
// line that says what was sent and what came back.
#include "HVX/ESC/SCPI/Session.h"

#include "HVX/Base/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <exception>
#include <thread>

namespace nrq {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::nanoseconds shortReplyTimeout = 2s;
constexpr size_t errorReplyLimit = 1024;
constexpr size_t identityReplyLimit = 256;
constexpr std::string_view clearStatus = "*CLS\n";

std::string_view TrimBlanks(std::string_view text) {
    constexpr std::string_view blanks = "\t\n\r ";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    const size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

long long Milliseconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

// atoi, without its undefined behaviour for numbers beyond 32 bits.
int32_t ParseCode(std::string_view text) {
    const std::string digits(text);
    const long long value = std::strtoll(digits.c_str(), nullptr, 10);
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

// Writes the question and reads one reply of at most `limit` bytes. A reply
// that fills the whole buffer is the tail of an unfinished transfer: the
// instrument is told to forget it and the reply counts as none.
bool AskShort(SCPISpecAnState& state, std::string_view question, std::string& reply, size_t limit) {
    std::array<char, errorReplyLimit> buffer;
    state.io->WriteData(question);
    const size_t got = state.io->Read(buffer.data(), limit, shortReplyTimeout);
    if (got == 0)
        return false;
    if (got >= limit) {
        state.io->WriteData(clearStatus);
        return false;
    }
    reply.assign(buffer.data(), got);
    return true;
}

std::string DeviceErrorText(const SCPISpecAnState& state, size_t newEntries) {
    if (newEntries == 0)
        return "(None provided)";
    const SCPIError& last = state.errors.back();
    if (newEntries == 1)
        return fmt::format("[{}] {}", last.code, last.message);
    return fmt::format("[{}] {} (+{} more)", last.code, last.message, newEntries - 1);
}

std::string_view FailureSummary(size_t newEntries) {
    if (newEntries > 0)
        return "Possibly an incorrect command. Try generating the feature set again.";
    return "We have lost connection, the device is no longer responding OR the device is still waiting for a sweep "
           "to finish (try increasing timeout duration).";
}

void LogBadResponse(SCPISpecAnState& state, std::string_view script, std::string_view output,
                    std::string_view reply) {
    const size_t before = state.errors.size();
    SCPIDrainErrors(state);
    const size_t newEntries = state.errors.size() - before;
    Log::Error(fmt::format("SCPI blank or unterminated response\nCommand: {} -> {}\nResponse: {}\nQuery time out "
                           "length: {}ms\nDevice error: {}\nSummary: {}",
                           TrimBlanks(script), TrimBlanks(output), TrimBlanks(reply),
                           Milliseconds(state.queryTimeout), DeviceErrorText(state, newEntries),
                           FailureSummary(newEntries)));
}

// Runs the script and sends what it printed; a script that prints nothing
// sends nothing.
void SendScript(SCPISpecAnState& state, std::string_view script, std::string& output) {
    state.interpreter->Run(script);
    output = state.interpreter->GetOutput();
    if (!output.empty())
        state.io->WriteData(output);
}

void ClearStatusAndWait(SCPISpecAnState& state) {
    state.io->WriteData(clearStatus);
    SCPIWait(state);
}

std::string_view ModeName(const SCPISpecAnState& state, ESCDeviceModeIndex mode) {
    if (!state.featureSet)
        return {};
    const auto found = state.featureSet->modeNames.find(mode);
    return found == state.featureSet->modeNames.end() ? std::string_view() : std::string_view(found->second);
}

const ESCFeature* FindModeQuery(const ESCFeatureSet& set) {
    for (const ESCFeature& feature : set.features)
        if (feature.type == ESCFeatureType::Mode && !feature.commandQuery.empty())
            return &feature;
    return nullptr;
}

const ESCFeature* FindModeSetter(const ESCFeatureSet& set, ESCDeviceModeIndex mode) {
    const uint32_t bit = 1u << static_cast<uint32_t>(mode);
    for (const ESCFeature& feature : set.features)
        if (feature.type == ESCFeatureType::Mode && (static_cast<uint32_t>(feature.modes) & bit) &&
            !feature.command.empty())
            return &feature;
    return nullptr;
}

} // namespace

bool SCPIGetError(SCPISpecAnState& state, SCPIError& error) {
    std::string reply;
    if (!AskShort(state, "SYST:ERR?\n", reply, errorReplyLimit))
        return false;
    const size_t comma = reply.find(',');
    if (comma == std::string::npos) {
        Log::Error(fmt::format("A command response to SYST:ERR? did not contain a comma sep [{}]", reply));
        return false;
    }
    error.code = ParseCode(std::string_view(reply).substr(0, comma));
    error.message = TrimBlanks(std::string_view(reply).substr(comma + 1));
    return true;
}

bool SCPIGetIdentity(SCPISpecAnState& state, SCPIIdentity& identity) {
    std::string reply;
    if (!AskShort(state, "*IDN?\n", reply, identityReplyLimit))
        return false;
    std::array<size_t, 3> commas{};
    size_t from = 0;
    for (size_t& comma : commas) {
        comma = reply.find(',', from);
        if (comma == std::string::npos) {
            Log::Error(fmt::format(
                "A command response to *IDN? did not contain enough comma sep (expected 3) [{}]", reply));
            return false;
        }
        from = comma + 1;
    }
    const std::string_view text(reply);
    identity.manufacturer = TrimBlanks(text.substr(0, commas[0]));
    identity.model = TrimBlanks(text.substr(commas[0] + 1, commas[1] - commas[0] - 1));
    identity.serial = TrimBlanks(text.substr(commas[1] + 1, commas[2] - commas[1] - 1));
    identity.firmware = TrimBlanks(text.substr(commas[2] + 1));
    return true;
}

bool SCPIPingIdentity(SCPISpecAnState& state) {
    std::string reply;
    return AskShort(state, "*IDN?\n", reply, errorReplyLimit);
}

void SCPIWait(const SCPISpecAnState& state) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point until = Clock::now() + state.waitTime;
    for (Clock::time_point now = Clock::now(); now < until; now = Clock::now()) {
        const auto slice = std::min<std::chrono::milliseconds>(
            std::chrono::ceil<std::chrono::milliseconds>(until - now), std::chrono::hours(24));
        std::this_thread::sleep_for(slice);
    }
}

bool SCPIDrainErrors(SCPISpecAnState& state) {
    SCPIError entry;
    while (SCPIGetError(state, entry)) {
        if (entry.code == 0)
            return true;
        state.errors.push_back(entry);
    }
    return false;
}

bool SCPIRunWrite(SCPISpecAnState& state, std::string_view script, bool unchecked) {
    std::string output;
    try {
        if (!unchecked)
            ClearStatusAndWait(state);
        SendScript(state, script, output);
        SCPIWait(state);
        if (!unchecked && !SCPIDrainErrors(state))
            return false;
        return true;
    } catch (const std::exception& error) {
        Log::Error(fmt::format("SCPI communication failed (write {}checked)\nCommand: {} -> {}\nWait time between "
                               "commands: {}ms\nError: {}",
                               unchecked ? "un" : "", TrimBlanks(script), TrimBlanks(output),
                               Milliseconds(state.waitTime), error.what()));
        return false;
    }
}

bool SCPIRunQuery(SCPISpecAnState& state, std::string_view script, std::string& response, bool unchecked) {
    std::string output;
    std::string reply;
    try {
        if (!unchecked)
            ClearStatusAndWait(state);
        SendScript(state, script, output);
        reply = state.io->ReadData(state.queryTimeout);
        if (reply.empty() || reply.back() != '\n') {
            LogBadResponse(state, script, output, reply);
            return false;
        }
        if (!unchecked && !SCPIDrainErrors(state))
            return false;
        reply.pop_back();
        response = std::move(reply);
        return true;
    } catch (const std::exception& error) {
        Log::Error(fmt::format("SCPI communication failed (write&read {}checked )\nCommand: {} -> {}\nResponse: "
                               "{}\nWait time between commands: {}ms\nError: {}",
                               unchecked ? "un" : "", TrimBlanks(script), TrimBlanks(output), TrimBlanks(reply),
                               Milliseconds(state.waitTime), error.what()));
        return false;
    }
}

bool SCPISwitchMode(SCPISpecAnState& state, ESCDeviceModeIndex mode) {
    const std::string_view displayName = ESCGetModeName(mode);
    Log::Output(fmt::format("Switching to {} mode", displayName));
    const std::string_view modeName = ModeName(state, mode);
    if (modeName.empty()) {
        Log::Output("Feature set has no modes, skipping mode setting.");
        return true;
    }
    const ESCFeature* query = FindModeQuery(*state.featureSet);
    if (!query)
        Log::Warn(fmt::format("UNEXPECTED: A mode name ({}) exists but no mode query feature.", modeName));
    const ESCFeature* setter = FindModeSetter(*state.featureSet, mode);
    if (!setter) {
        Log::Error(fmt::format(
            "UNEXPECTED: A mode name ({}) exists but we have no mode set feature, skipping mode setting.", modeName));
        return true;
    }
    std::string current;
    if (query) {
        if (!SCPIRunQuery(state, query->commandQuery, current, false)) {
            Log::Warn("Failed to get device's current mode");
        } else if (current == modeName) {
            Log::Success(fmt::format("Device confirmed to be in {} mode", displayName));
            return true;
        } else {
            Log::Output(fmt::format("Current device mode is {}, changing to {}...", current, modeName));
        }
    }
    if (!SCPIRunWrite(state, setter->command, false)) {
        Log::Error("SCPI device failed to switch mode");
        return false;
    }
    if (!query)
        return true;
    if (!SCPIRunQuery(state, query->commandQuery, current, false)) {
        Log::Warn("Could not verify if the mode change was successful.");
        return true;
    }
    if (current == modeName) {
        Log::Success(fmt::format("Device confirmed to now be in {} ({}) mode", displayName, modeName));
        return true;
    }
    Log::Error(fmt::format("The device mode reported {} mode, expected {}.", current, modeName));
    return false;
}

} // namespace nrq
