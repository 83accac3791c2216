// halvex: the command-line host of the library.
#include "Command.h"

#include <HVX/HVX.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

void PrintOverview() {
    std::printf("usage: halvex COMMAND [OPTIONS]\n\nCommands:\n");
    for (const halvex::Command& command : halvex::Commands())
        std::printf("  %-10s %s\n", command.name.c_str(), command.summary.c_str());
    std::printf("\n'halvex COMMAND --help' describes one command.\n");
}

bool WantsHelp(const std::vector<std::string>& args) {
    for (const std::string& arg : args)
        if (arg == "--help" || arg == "-h")
            return true;
    return false;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        PrintOverview();
        return args.empty() ? halvex::exitUsage : halvex::exitOk;
    }
    const std::string name = args[0];
    args.erase(args.begin());
    for (const halvex::Command& command : halvex::Commands()) {
        if (command.name != name)
            continue;
        if (WantsHelp(args)) {
            std::printf("%s", command.help.c_str());
            return halvex::exitOk;
        }
        try {
            return command.run(args);
        } catch (const halvex::UsageError& usage) {
            halvex::PrintError(usage.message);
            std::fprintf(stderr, "Try 'halvex %s --help'.\n", name.c_str());
            return halvex::exitUsage;
        } catch (const std::exception& error) {
            halvex::PrintError(error.what());
            return halvex::exitFailure;
        }
    }
    halvex::PrintError("unknown command '" + name + "'");
    std::fprintf(stderr, "Try 'halvex --help'.\n");
    return halvex::exitUsage;
}
