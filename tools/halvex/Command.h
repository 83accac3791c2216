#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace halvex {

// Exit codes of the host.
constexpr int exitOk = 0;
constexpr int exitFailure = 1;  // the work failed: bad file, library error
constexpr int exitUsage = 2;    // the command line was wrong
constexpr int exitInterrupted = 130;

// A parsed command line: "--name value" options, "--flag" switches and positionals.
class Arguments {
public:
    // `switches` lists the options that take no value.
    Arguments(const std::vector<std::string>& args, const std::vector<std::string>& switches);

    bool Has(std::string_view name) const;
    std::string Get(std::string_view name, std::string_view fallback = "") const;
    std::vector<std::string> GetAll(std::string_view name) const;
    const std::vector<std::string>& Positionals() const { return positionals; }
    // Options given that are not in `known`; the first is reported as a usage error.
    std::vector<std::string> Unknown(const std::vector<std::string>& known) const;

private:
    std::multimap<std::string, std::string, std::less<>> options;
    std::vector<std::string> positionals;
};

// Raised by commands for a wrong command line; main prints it and exits with exitUsage.
struct UsageError {
    std::string message;
};

struct Command {
    std::string name;
    std::string summary;
    std::string help; // full text for "halvex NAME --help"
    int (*run)(const std::vector<std::string>& args);
};

// Each command file registers itself with a static CommandRegistration.
struct CommandRegistration {
    explicit CommandRegistration(Command command);
};

const std::vector<Command>& Commands();

// Prints "halvex: MESSAGE" as one line on stderr.
void PrintError(std::string_view message);

} // namespace halvex
