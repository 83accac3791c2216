// halvex features: the settings that a scan on an SCPI analyzer takes.
#include "Command.h"
#include "FeatureStore.h"
#include "ScpiAnalyzer.h"
#include "ScpiSettings.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace halvex {
namespace {

struct FeaturesArguments {
    std::string resource;
    std::vector<std::string> settings;
    std::string folder;
};

int RunFeatures(const FeaturesArguments& given) {
    const std::string resource = ScpiResource(given.resource).empty() ? given.resource : ScpiResource(given.resource);
    OpenStore(given.folder);
    ScpiAnalyzer analyzer = ConnectScpiAnalyzer(resource, given.folder);
    ApplySettings(analyzer, given.settings);
    std::fputs(fmt::format("{}: feature set {} in {}\n{}", DescribeInstrument(analyzer.device->GetInfo()),
                           analyzer.entry->fileName, given.folder,
                           DescribeSettings(analyzer.entry->featureSet, analyzer.parameters->variableMap))
                   .c_str(),
               stdout);
    return exitOk;
}

CommandRun Setup(CLI::App& command) {
    auto given = std::make_shared<FeaturesArguments>();
    command.description(
        "Asks the SCPI analyzer at RESOURCE who it is, finds its feature set in\n"
        "the store, and prints the settings that 'halvex scan --analyzer\n"
        "scpi:RESOURCE' takes: one 'LABEL = VALUE  (CHOICES)' line each, the\n"
        "frequency range first. VALUE is what a scan would use; --set shows what\n"
        "it becomes with settings of your own. CHOICES says what a setting takes:\n"
        "a frequency (100 MHz, 2.4 GHz, 1e6), a level in dBm, a whole number, one\n"
        "of a list, and whether auto (the instrument chooses) or unset (the\n"
        "instrument keeps its own) is allowed.\n"
        "\n"
        "RESOURCE is a VISA resource, for a LAN instrument's socket\n"
        "TCPIP0::HOST::PORT::SOCKET. Without a vendor's VISA the stand-in VISA\n"
        "installed with halvex reaches such instruments (LD_LIBRARY_PATH=\n"
        "PREFIX/lib/halvex-visa).");
    command.add_option("RESOURCE", given->resource, "the analyzer's VISA resource (scpi: in front is allowed)")
        ->required()
        ->type_name("");
    command.add_option("--set", given->settings, "LABEL=VALUE, as a scan would take it; again for more")
        ->type_name("LABEL=VALUE")
        ->allow_extra_args(false);
    AddStoreOption(command, given->folder);
    command.footer("Examples:\n"
                   "  halvex features TCPIP0::analyzer.lab::5025::SOCKET\n"
                   "  halvex features TCPIP0::127.0.0.1::5025::SOCKET --set \"Frequency Start=100 MHz\"\n\n" +
                   ExitStatusText("the analyzer cannot be reached, does not say who it is, or has no stored set"));
    return [given] { return RunFeatures(*given); };
}

const CommandRegistration registration({"features", "list the settings of an SCPI analyzer's stored feature set",
                                        &Setup});

} // namespace
} // namespace halvex
