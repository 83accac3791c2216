#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace halvex {

// Exit codes of the host, the same for every command.
constexpr int exitOk = 0;
constexpr int exitFailure = 1;  // the work failed: bad file, device, library error
constexpr int exitUsage = 2;    // the command line was wrong, or asks for what cannot succeed
constexpr int exitInterrupted = 130; // stopped by a signal, with every file written

// Raised for a wrong command line or a request refused before any work;
// the host prints it with a pointer to the command's help and exits with exitUsage.
struct UsageError {
    std::string message;
};

// What a command does once its command line is parsed; returns the exit code.
using CommandRun = std::function<int()>;

struct Command {
    std::string name;
    std::string summary;
    // Adds the command's options to its CLI11 subcommand (whose description
    // and footer it sets too) and returns what runs it. The options are bound
    // to storage that the returned function owns.
    CommandRun (*setup)(CLI::App& command);
};

// Each command file registers itself with a static CommandRegistration.
struct CommandRegistration {
    explicit CommandRegistration(Command command);
};

// The registered commands, by name.
const std::vector<Command>& Commands();

// Prints "halvex: MESSAGE" as one line on stderr.
void PrintError(std::string_view message);

// The common tail of every command's help: the exit statuses.
std::string ExitStatusText(std::string_view failureMeaning);

} // namespace halvex
