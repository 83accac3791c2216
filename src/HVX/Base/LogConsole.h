#pragma once

#include <string_view>

namespace nrq {

// The console sink of the log. The library never selects a console, so the
// handle stays invalid and only the file sink writes; the code stays ready.
class LogConsole {
public:
    bool IsValid() const { return handle != invalidHandle; }
    bool AnsiEnabled() const { return ansi; }
    void Invalidate() { handle = invalidHandle; }
    void Write(std::string_view text) const;
    void RestoreMode() const;

private:
    static constexpr int invalidHandle = -1;
    int handle = invalidHandle;
    bool ansi = false;
};

} // namespace nrq
