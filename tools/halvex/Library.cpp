#include "Library.h"

#include "Command.h"

#include <HVX/HVX.h>

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <pwd.h>
#include <unistd.h>

namespace halvex {
namespace {

bool running = false;

std::string HomeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir)
        return entry->pw_dir;
    return "/";
}

// The library's folder is cached on first use, so the fall-back must be in
// place before any library call asks for it.
void MoveDataFolderToTemporaryPlace(const std::string& wanted, const std::error_code& reason) {
    std::string pattern = (std::filesystem::temp_directory_path() / "halvex-data-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) {
        PrintError(fmt::format("warning: cannot create the log folder {}: {}; no log is kept", wanted,
                               reason.message()));
        return;
    }
    ::setenv("XDG_DATA_HOME", pattern.c_str(), 1);
    PrintError(fmt::format("warning: cannot create the log folder {}: {}; the log goes to {}/log.txt", wanted,
                           reason.message(), ExpectedDataFolder()));
}

} // namespace

std::string ExpectedDataFolder() {
    // Mirrors the library's choice: an absolute XDG_DATA_HOME, else ~/.local/share.
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const std::string base = dataHome && dataHome[0] == '/' ? dataHome : HomeFolder() + "/.local/share";
    return base + "/Nerquil Labs/Halvex2";
}

void StartLibrary() {
    if (running)
        return;
    const std::string wanted = ExpectedDataFolder();
    std::error_code reason;
    std::filesystem::create_directories(wanted, reason);
    if (reason || !std::filesystem::is_directory(wanted)) {
        if (!reason)
            reason = std::make_error_code(std::errc::not_a_directory);
        MoveDataFolderToTemporaryPlace(wanted, reason);
    }
    nrq::HVXInit(false);
    running = true;
}

void StopLibrary() {
    if (!running)
        return;
    running = false;
    nrq::HVXTerminate();
}

bool LibraryRuns() { return running; }

} // namespace halvex
