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

Arguments::Arguments(const std::vector<std::string>& args, const std::vector<std::string>& switches) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.rfind("--", 0) != 0 || arg == "--") {
            positionals.push_back(arg);
            continue;
        }
        std::string name = arg.substr(2);
        if (const size_t eq = name.find('='); eq != std::string::npos) {
            options.emplace(name.substr(0, eq), name.substr(eq + 1));
        } else if (std::find(switches.begin(), switches.end(), name) != switches.end()) {
            options.emplace(name, "");
        } else if (i + 1 < args.size()) {
            options.emplace(name, args[++i]);
        } else {
            throw UsageError{"option --" + name + " needs a value"};
        }
    }
}

bool Arguments::Has(std::string_view name) const { return options.find(name) != options.end(); }

std::string Arguments::Get(std::string_view name, std::string_view fallback) const {
    auto range = options.equal_range(name);
    if (range.first == range.second)
        return std::string(fallback);
    return std::prev(range.second)->second;
}

std::vector<std::string> Arguments::GetAll(std::string_view name) const {
    std::vector<std::string> values;
    auto range = options.equal_range(name);
    for (auto it = range.first; it != range.second; ++it)
        values.push_back(it->second);
    return values;
}

std::vector<std::string> Arguments::Unknown(const std::vector<std::string>& known) const {
    std::vector<std::string> unknown;
    for (const auto& [name, value] : options)
        if (std::find(known.begin(), known.end(), name) == known.end())
            unknown.push_back(name);
    return unknown;
}

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

} // namespace halvex
