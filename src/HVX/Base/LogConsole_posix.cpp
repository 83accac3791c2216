#include "LogConsole.h"

#include <unistd.h>

namespace nrq {

void LogConsole::Write(std::string_view text) const {
    if (!IsValid())
        return;
    while (!text.empty()) {
        ssize_t written = ::write(handle, text.data(), text.size());
        if (written <= 0)
            return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

// A terminal keeps no mode that the log changes on this platform.
void LogConsole::RestoreMode() const {}

} // namespace nrq
