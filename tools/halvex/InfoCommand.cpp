// halvex info: what a scan file holds.
#include "Command.h"
#include "ScanFileInput.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace halvex {
namespace {

CommandRun Setup(CLI::App& command) {
    auto file = std::make_shared<std::string>();
    command.description(
        "Reads a scan file written by 'halvex scan' and prints what it holds, one\n"
        "'name: value' line each: the format version, how the scan ended (stopped\n"
        "after N of M points), the analyzer and scanner parameters (frequency range,\n"
        "RBW, board, cells, level, interleaving), and the scan data with its state,\n"
        "devices and strongest values. Types that this program does not know are\n"
        "named and kept unread. The header is checked first: a file that is not a\n"
        "scan file is refused without being read whole.");
    command.add_option("FILE", *file, "the scan file; - reads standard input")->required()->type_name("");
    command.footer("Example:\n  halvex info scan.hvxscan\n\n" +
                   ExitStatusText("unreadable, damaged or truncated file"));
    return [file] {
        size_t size = 0;
        const ScanFileContents contents = LoadScanFile(*file, &size);
        std::printf("file: %s\nsize: %zu bytes\n%s", file->c_str(), size, DescribeScanFile(contents).c_str());
        return exitOk;
    };
}

const CommandRegistration registration({"info", "describe a scan file", &Setup});

} // namespace
} // namespace halvex
