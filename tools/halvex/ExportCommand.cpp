// halvex export: the CSV text of a scan file's data.
#include "Command.h"
#include "HostFiles.h"
#include "ScanFile.h"

#include <cstdio>
#include <string>

namespace halvex {
namespace {

int RunExport(const std::vector<std::string>& args) {
    const Arguments arguments(args, {});
    if (auto unknown = arguments.Unknown({"csv"}); !unknown.empty())
        throw UsageError{"unknown option --" + unknown.front()};
    if (arguments.Positionals().size() != 1)
        throw UsageError{"export takes one scan file"};
    if (!arguments.Has("csv") || arguments.Get("csv").empty())
        throw UsageError{"export needs --csv OUT"};
    const std::string& path = arguments.Positionals().front();
    const std::string out = arguments.Get("csv");

    ScanFileContents contents;
    try {
        contents = ReadScanFile(ReadWholeFile(path));
    } catch (const ScanFileError& error) {
        throw ScanFileError(path + ": " + error.what());
    }
    const nrq::IScanData* data = contents.GetScanData();
    if (!data) {
        const auto* unknown = dynamic_cast<const nrq::IUnknownDeserialized*>(contents.scanData.get());
        throw ScanFileError(path + ": " +
                            (unknown ? "its scan data of type \"" + unknown->GetType() + "\" is unknown to this program"
                                     : std::string("it holds no scan data")));
    }
    const std::string csv = data->SerializeToCSV();
    if (out == "-")
        std::fwrite(csv.data(), 1, csv.size(), stdout);
    else
        WriteWholeFile(out, csv);
    return exitOk;
}

const CommandRegistration registration({
    "export",
    "write the scan data of a scan file as CSV",
    "usage: halvex export FILE --csv OUT\n\n"
    "Reads a scan file and writes its scan data as CSV text to OUT ('-' for\n"
    "standard output), in the columns of its shape: frequency and amplitude\n"
    "for spectral data, position, frequency and amplitude for the others.\n\n"
    "Exit status: 0 done, 1 unreadable or damaged file or no scan data of a\n"
    "known shape, 2 wrong command line.\n",
    &RunExport,
});

} // namespace
} // namespace halvex
