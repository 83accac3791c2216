#include "Command.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace halvex {
namespace {

std::vector<Command>& Registry() {
    static std::vector<Command> commands;
    return commands;
}

} // namespace

CommandRegistration::CommandRegistration(Command command) { Registry().push_back(std::move(command)); }

const std::vector<Command>& Commands() {
    std::vector<Command>& commands = Registry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return a.name < b.name; });
    return commands;
}

void PrintError(std::string_view message) {
    // Library messages may span lines; the host reports one line.
    std::string line(message);
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::fprintf(stderr, "halvex: %s\n", line.c_str());
}

std::string ExitStatusText(std::string_view failureMeaning) {
    return "Exit status: 0 done, 1 " + std::string(failureMeaning) +
           ",\n2 wrong command line or a request refused before any work.\n";
}

} // namespace halvex
