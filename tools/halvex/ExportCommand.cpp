// halvex export: the CSV text of a scan file's data.
#include "Command.h"
#include "HostFiles.h"
#include "ScanFileInput.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace halvex {
namespace {

struct ExportOptions {
    std::string file;
    std::string csv;
};

int RunExport(const ExportOptions& options) {
    CheckOutputs({{"--csv", options.csv}}, {options.file});
    const ScanFileContents contents = LoadScanFile(options.file);
    const nrq::IScanData* data = contents.GetScanData();
    if (!data) {
        const auto* unknown = dynamic_cast<const nrq::IUnknownDeserialized*>(contents.scanData.get());
        throw ScanFileError(ShownName(options.file, false) + ": " +
                            (unknown ? "its scan data of type \"" + unknown->GetType() + "\" is unknown to this program"
                                     : std::string("it holds no scan data")));
    }
    WriteWholeFile(options.csv, data->SerializeToCSV());
    return exitOk;
}

CommandRun Setup(CLI::App& command) {
    auto options = std::make_shared<ExportOptions>();
    command.description(
        "Reads a scan file and writes its scan data as CSV text, in the columns of\n"
        "its shape: frequency and amplitude for spectral data, position, frequency\n"
        "and amplitude for the others. The CSV file is written whole or not at all.");
    command.add_option("FILE", options->file, "the scan file; - reads standard input")->required()->type_name("");
    command.add_option("--csv", options->csv, "the CSV file to write; - writes standard output")
        ->required()
        ->type_name("OUT");
    command.footer("Examples:\n  halvex export scan.hvxscan --csv scan.csv\n"
                   "  halvex export scan.hvxscan --csv - | head\n\n" +
                   ExitStatusText("unreadable or damaged file, or no scan data of a known shape"));
    return [options] { return RunExport(*options); };
}

const CommandRegistration registration({"export", "write the scan data of a scan file as CSV", &Setup});

} // namespace
} // namespace halvex
