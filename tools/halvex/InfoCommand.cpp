// halvex info: what a scan file holds.
#include "Command.h"
#include "HostFiles.h"
#include "ScanFile.h"

#include <cstdio>
#include <string>

namespace halvex {
namespace {

int RunInfo(const std::vector<std::string>& args) {
    const Arguments arguments(args, {});
    if (auto unknown = arguments.Unknown({}); !unknown.empty())
        throw UsageError{"unknown option --" + unknown.front()};
    if (arguments.Positionals().size() != 1)
        throw UsageError{"info takes one scan file"};
    const std::string& path = arguments.Positionals().front();
    const std::string bytes = ReadWholeFile(path);
    ScanFileContents contents;
    try {
        contents = ReadScanFile(bytes);
    } catch (const ScanFileError& error) {
        throw ScanFileError(path + ": " + error.what());
    }
    std::printf("file: %s\nsize: %zu bytes\n%s", path.c_str(), bytes.size(), DescribeScanFile(contents).c_str());
    return exitOk;
}

const CommandRegistration registration({
    "info",
    "describe a scan file",
    "usage: halvex info FILE\n\n"
    "Reads a scan file written by 'halvex scan' and prints what it holds, one\n"
    "'name: value' line each: the format version, the analyzer and scanner\n"
    "parameters, and the scan data with its state, devices and contents.\n"
    "Types that this program does not know are named and kept unread.\n\n"
    "Exit status: 0 done, 1 unreadable, damaged or truncated file, 2 wrong\n"
    "command line.\n",
    &RunInfo,
});

} // namespace
} // namespace halvex
