#include "HVX/Base/System.h"

#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>

extern char** environ;

namespace nrq {

// Private memory: the clean and dirty private pages of the whole process.
size_t GetMemoryUsage() {
    std::ifstream rollup("/proc/self/smaps_rollup");
    if (!rollup)
        return 0;
    size_t kilobytes = 0;
    bool found = false;
    std::string key;
    size_t amount = 0;
    std::string unit;
    while (rollup >> key) {
        if (key == "Private_Clean:" || key == "Private_Dirty:") {
            if (rollup >> amount >> unit) {
                kilobytes += amount;
                found = true;
            }
        } else {
            rollup.ignore(1 << 16, '\n');
        }
    }
    return found ? kilobytes * 1024 : 0;
}

void OpenFolder(std::string_view path) {
    // The shell puts xdg-open in the background, so the call returns at once
    // and leaves no child behind; what xdg-open does is not our concern.
    const std::string folder(path);
    const char* argv[] = {"/bin/sh", "-c", "xdg-open \"$1\" >/dev/null 2>&1 &", "sh", folder.c_str(), nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) == 0) {
        int status = 0;
        ::waitpid(pid, &status, 0);
    }
}

} // namespace nrq
