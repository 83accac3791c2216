// halvex s1: compiles and runs one S1 script, for people who write feature sets.
#include "Command.h"
#include "HostFiles.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <HVX/ESC/Compiler.h>
#include <HVX/ESC/Interpreter.h>

#include <cctype>
#include <cstdio>
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <optional>
#include <string>
#include <vector>

namespace {

const char* const description =
    "S1 is the small language in which the library describes SCPI instruments:\n"
    "each feature of an instrument (a frequency range, an attenuation, a sweep)\n"
    "holds one-line S1 scripts that turn the user's settings into SCPI command\n"
    "text. This command compiles one script, sets the given variables, runs it\n"
    "and prints the command text it produces, for people who write feature\n"
    "sets. A line that prints an unset value is dropped, so the output may be\n"
    "empty.\n"
    "\n"
    "Values are typed by their spelling:\n"
    "  5, -3          Integer\n"
    "  2.5, 1e3       Float\n"
    "  1 MHz, 2.4GHz  Frequency (Hz, kHz, MHz, GHz in any case)\n"
    "  -30 dBm        Amplitude\n"
    "  \"text\"         String (quote it for the shell: 'NAME=\"text\"')\n"
    "  auto, unset    the feature values Automatic and Unset\n"
    "  nil            Nil\n"
    "\n"
    "Syntax errors are shown as 'LINE:COLUMN: message' (both counted from 1)\n"
    "and nothing is run.";

const char* const footer =
    "Examples:\n"
    "  halvex s1 'SENS:FREQ:STAR {start}' 'start=1 MHz'\n"
    "  halvex s1 --disasm --file sweep.s1 points=1001\n"
    "\n";

std::string Trim(std::string_view text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    return std::string(text.substr(begin, end - begin));
}

std::string Lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// A number followed by a unit word, the unit compared without case.
std::optional<double> NumberWithUnit(const std::string& text, std::string_view unit) {
    if (text.size() <= unit.size() || Lower(text.substr(text.size() - unit.size())) != unit)
        return std::nullopt;
    const nrq::ESCVariant number =
        nrq::ESCFromStringConversion(nrq::ESCVariantType::Float, Trim(text.substr(0, text.size() - unit.size())));
    if (nrq::ESCIsNil(number))
        return std::nullopt;
    return std::get<double>(number);
}

std::optional<nrq::ESCVariant> ParseValue(const std::string& spelled) {
    using nrq::ESCVariantType;
    const std::string text = Trim(spelled);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        return nrq::ESCVariant(nrq::ESCString(std::string_view(text).substr(1, text.size() - 2)));
    const std::string lower = Lower(text);
    if (lower == "auto")
        return nrq::ESCVariant(nrq::ESCFeatureAuto{});
    if (lower == "unset")
        return nrq::ESCVariant(nrq::ESCFeatureUnset{});
    if (lower == "nil")
        return nrq::ESCVariant(nrq::Nil{});
    // Longer unit words first: "mhz" also ends in "hz".
    static const std::pair<std::string_view, double> units[] = {
        {"ghz", 1e9}, {"mhz", 1e6}, {"khz", 1e3}, {"hz", 1.0}};
    for (const auto& [unit, factor] : units)
        if (const auto number = NumberWithUnit(text, unit))
            return nrq::ESCVariant(nrq::Frequency(*number * factor));
    if (lower.size() > 3 && lower.ends_with("dbm")) {
        const nrq::ESCVariant amplitude =
            nrq::ESCFromStringConversion(ESCVariantType::Amplitude, Trim(text.substr(0, text.size() - 3)));
        if (!nrq::ESCIsNil(amplitude))
            return amplitude;
    }
    for (const ESCVariantType type : {ESCVariantType::Integer, ESCVariantType::Float}) {
        nrq::ESCVariant number = nrq::ESCFromStringConversion(type, text);
        if (!nrq::ESCIsNil(number))
            return number;
    }
    return std::nullopt;
}

// A script file holds one line; a final line feed (or CRLF) is no second line.
std::string ReadScriptFile(const std::string& path) {
    std::string text = halvex::ReadWholeFile(path);
    if (text.ends_with("\r\n"))
        text.resize(text.size() - 2);
    else if (text.ends_with('\n'))
        text.pop_back();
    if (text.find_first_of("\r\n") != std::string::npos) {
        const size_t lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
        throw std::runtime_error(fmt::format("{}: an S1 script is one line; this file has {} lines",
                                             halvex::ShownName(path, false), lines));
    }
    return text;
}

struct S1Options {
    bool disasm = false;
    std::string file;
    std::vector<std::string> words;
};

int RunS1(const S1Options& options) {
    std::vector<std::string> positionals = options.words;
    std::string script;
    if (!options.file.empty()) {
        script = ReadScriptFile(options.file);
    } else {
        if (positionals.empty())
            throw halvex::UsageError{"no script given"};
        script = positionals.front();
        positionals.erase(positionals.begin());
    }

    std::vector<std::pair<std::string, nrq::ESCVariant>> assignments;
    for (const std::string& assignment : positionals) {
        const size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0)
            throw halvex::UsageError{"expected NAME=VALUE, got '" + assignment + "'"};
        const std::string name = assignment.substr(0, equals);
        const auto value = ParseValue(assignment.substr(equals + 1));
        if (!value)
            throw halvex::UsageError{"cannot read the value of " + name + ": '" + assignment.substr(equals + 1) +
                                     "'"};
        assignments.emplace_back(name, *value);
    }

    const std::vector<nrq::ESCSyntaxError> errors = nrq::ESCCheckSyntax(script);
    if (!errors.empty()) {
        for (const nrq::ESCSyntaxError& error : errors)
            std::fprintf(stderr, "%zu:%zu: %s\n", error.line, error.column + 1, error.message.c_str());
        halvex::PrintError(std::to_string(errors.size()) + (errors.size() == 1 ? " syntax error" : " syntax errors"));
        return halvex::exitFailure;
    }

    const nrq::ESCByteCode byteCode = nrq::ESCCompiler().Compile(script);
    if (options.disasm) {
        const std::string listing = nrq::ESCDisassemble(byteCode);
        std::fwrite(listing.data(), 1, listing.size(), stdout);
        std::fflush(stdout);
    }

    nrq::ESCInterpreter interpreter;
    for (const auto& [name, value] : assignments)
        interpreter.SetVariable(name, value);
    interpreter.Run(byteCode);
    const std::string output = interpreter.GetOutput();
    std::fwrite(output.data(), 1, output.size(), stdout);
    return halvex::exitOk;
}

halvex::CommandRun Setup(CLI::App& command) {
    auto options = std::make_shared<S1Options>();
    command.description(description);
    command.add_option("--file", options->file, "read the one-line script from a file (- for standard input)")
        ->type_name("PATH");
    command.add_flag("--disasm", options->disasm, "print the byte code and the string pool, then run");
    command.add_option("ARGS", options->words, "the script (unless --file is given), then NAME=VALUE settings")
        ->type_name("");
    command.footer(std::string(footer) + halvex::ExitStatusText("syntax errors or an unreadable file"));
    return [options] { return RunS1(*options); };
}

halvex::CommandRegistration registration({"s1", "compile and run an S1 script (the language of feature sets)",
                                          &Setup});

} // namespace
