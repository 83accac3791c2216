// halvex: the command-line host of the library. Every command's command line
// goes through one CLI11 parser, and every outcome through one exit path.
#include "Command.h"
#include "Failure.h"
#include "Library.h"
#include "Options.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace halvex {
namespace {

constexpr const char* versionText = "halvex " HALVEX_VERSION;

std::string Overview() {
    std::string text = "usage: halvex COMMAND [OPTIONS]\n\n"
                       "The command-line host of HalvexAPI: near-field scans over simulated or real\n"
                       "instruments, their scan files, Gerber boards and S1 scripts.\n\nCommands:\n";
    for (const Command& command : Commands())
        text += fmt::format("  {:<10} {}\n", command.name, command.summary);
    text += "\n'halvex COMMAND --help' or 'halvex help COMMAND' describes one command;\n"
            "'halvex --version' prints the version.\n";
    return text;
}

std::vector<std::string> CommandNames() {
    std::vector<std::string> names{"help"};
    for (const Command& command : Commands())
        names.push_back(command.name);
    return names;
}

bool IsCommand(const std::string& word) {
    for (const std::string& name : CommandNames())
        if (name == word)
            return true;
    return false;
}

// Usage first, then what the command is for, its options and the footer.
class HostFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
        if (mode == CLI::AppFormatMode::Sub)
            return make_expanded(app);
        std::string out = make_usage(app, name) + "\n";
        const std::string summary = Summary(app->get_name());
        if (!summary.empty())
            out += "halvex " + app->get_name() + ": " + summary + ".\n\n";
        out += make_description(app);
        out += make_positionals(app);
        out += make_groups(app, mode);
        out += "\n" + make_footer(app);
        return out;
    }

private:
    static std::string Summary(const std::string& name) {
        for (const Command& command : Commands())
            if (command.name == name)
                return command.summary;
        return {};
    }
};

int Usage(const std::string& message, const std::string& command) {
    PrintError(message);
    if (command.empty())
        std::fprintf(stderr, "Try 'halvex --help'.\n");
    else
        std::fprintf(stderr, "Try 'halvex %s --help'.\n", command.c_str());
    return exitUsage;
}

// CLI11's texts in the host's words: "--level takes ...", "--out needs a value".
std::string UsageMessage(const CLI::ParseError& error) {
    std::string text = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error)) {
        // What stands behind "--" where no positional takes it.
        const size_t colon = text.find(": ");
        const std::string extras = colon == std::string::npos ? text : text.substr(colon + 2);
        return fmt::format("unexpected argument '{}'", extras.substr(0, extras.find(' ')));
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) && text.starts_with("--"))
        return text.substr(0, text.find(':')) + " needs a value";
    if (const size_t colon = text.find(": takes "); colon != std::string::npos && text.starts_with("--"))
        return text.substr(0, colon) + text.substr(colon + 1);
    return text;
}

// With extras allowed, CLI11 leaves what no option took; the host names it.
void RefuseExtras(const CLI::App& command) {
    for (const std::string& extra : command.remaining()) {
        if (extra == "--")
            continue;
        if (extra.size() > 1 && extra.front() == '-') {
            const std::string nearest = NearestOption(command, extra);
            throw UsageError{fmt::format("unknown option {}{}", extra.substr(0, extra.find('=')),
                                         nearest.empty() ? "" : fmt::format(" (did you mean {}?)", nearest))};
        }
        throw UsageError{fmt::format("unexpected argument '{}'", extra)};
    }
}

int RunCommand(const CommandRun& run, const std::string& name) {
    int code = exitFailure;
    try {
        code = run();
    } catch (const UsageError& usage) {
        code = Usage(usage.message, name);
    } catch (...) {
        PrintError(DescribeFailure(std::current_exception()));
        code = exitFailure;
    }
    try {
        StopLibrary();
    } catch (...) {
        PrintError(DescribeFailure(std::current_exception()));
        code = exitFailure;
    }
    return code;
}

int RunHost(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(Overview().c_str(), stderr);
        return exitUsage;
    }
    const std::string first = argv[1];
    if (first == "--help" || first == "-h") {
        std::fputs(Overview().c_str(), stdout);
        return exitOk;
    }
    if (first == "--version") {
        std::printf("%s\n", versionText);
        return exitOk;
    }
    if (!IsCommand(first)) {
        const std::string nearest = NearestName(CommandNames(), first);
        return Usage(fmt::format("unknown command '{}'{}", first,
                                 nearest.empty() ? "" : fmt::format(" (did you mean '{}'?)", nearest)),
                     "");
    }

    CLI::App app{"", "halvex"};
    auto formatter = std::make_shared<HostFormatter>();
    formatter->column_width(26);
    formatter->label("Usage", "usage");
    app.formatter(formatter);
    std::map<std::string, CommandRun> runs;
    std::map<std::string, CLI::App*> subcommands;
    for (const Command& command : Commands()) {
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        sub->allow_extras();
        runs[command.name] = command.setup(*sub);
        subcommands[command.name] = sub;
    }
    // "help COMMAND" is answered before parsing: COMMAND would parse as a command.
    if (first == "help") {
        if (argc > 3)
            return Usage(fmt::format("unexpected argument '{}'", argv[3]), "");
        const std::string topic = argc > 2 ? argv[2] : "";
        if (topic.empty() || topic == "help") {
            std::fputs(Overview().c_str(), stdout);
            return exitOk;
        }
        if (!subcommands.contains(topic))
            return Usage(fmt::format("unknown command '{}'", topic), "");
        std::fputs(subcommands[topic]->help("halvex").c_str(), stdout);
        return exitOk;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return exitOk;
    } catch (const CLI::CallForAllHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return exitOk;
    } catch (const CLI::ParseError& error) {
        return Usage(UsageMessage(error), first);
    }

    try {
        RefuseExtras(*subcommands[first]);
    } catch (const UsageError& usage) {
        return Usage(usage.message, first);
    }
    return RunCommand(runs[first], first);
}

} // namespace
} // namespace halvex

int main(int argc, char** argv) { return halvex::RunHost(argc, argv); }
