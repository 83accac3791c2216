#include "HVX/Base/Log.h"

#include "HVX/Filesystem/File.h"
#include "HVX/Filesystem/Filesystem.h"
#include "LogConsole.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <exception>
#include <mutex>
#include <optional>
#include <string>

namespace nrq {
namespace {

struct LogStyle {
    std::string_view colour; // console opening, with the prefix inside
    std::string_view prefix; // file and plain console
};

constexpr LogStyle outputStyle{"\033[97m", ""};
constexpr LogStyle successStyle{"\033[32m", ""};
constexpr LogStyle summaryStyle{"\033[34m", ""};
constexpr LogStyle warnStyle{"\033[33mWarning: ", "Warning: "};
constexpr LogStyle errorStyle{"\033[91mError: ", "Error: "};
constexpr LogStyle failStyle{"\033[31m", ""};
constexpr LogStyle fatalStyle{"\033[41m\033[30mFATAL: ", "FATAL: "};

struct LogSinks {
    LogConsole console;
    std::optional<File> file;
    std::mutex mutex;
};

LogSinks& Sinks() {
    static LogSinks sinks;
    return sinks;
}

std::string TimeStamp() {
    return fmt::format("[{:%X}] ", fmt::localtime(std::time(nullptr)));
}

void WriteLine(const LogStyle& style, std::string_view message) {
    LogSinks& sinks = Sinks();
    std::lock_guard lock(sinks.mutex);
    const std::string stamp = TimeStamp();
    if (sinks.console.IsValid()) {
        if (sinks.console.AnsiEnabled())
            sinks.console.Write(fmt::format("\033[37m{}{}{}\033[0m\n", stamp, style.colour, message));
        else
            sinks.console.Write(fmt::format("{}{}{}\n", stamp, style.prefix, message));
    }
    // After Terminate the file stays engaged but closed: late lines go nowhere.
    if (sinks.file && sinks.file->IsOpen()) {
        sinks.file->Write(stamp);
        if (!style.prefix.empty())
            sinks.file->Write(style.prefix);
        sinks.file->Write(message);
        sinks.file->Write("\n");
    }
}

} // namespace

void Log::Init() {
    LogSinks& sinks = Sinks();
    sinks.console.Invalidate();
    const std::string path = std::string(fs::GetUserSaveDataDirectory()) + "/log.txt";
    try {
        File opened(path, FileMode::Write);
        if (sinks.file)
            *sinks.file = std::move(opened);
        else
            sinks.file.emplace(std::move(opened));
    } catch (const std::exception&) {
        // A log that can't be opened leaves the library running without one.
    }
    Summary("Log start");
}

void Log::Terminate() {
    LogSinks& sinks = Sinks();
    sinks.console.Write("\033[0m");
    sinks.console.RestoreMode();
    if (sinks.file)
        sinks.file->Close();
}

void Log::Output(std::string_view message) { WriteLine(outputStyle, message); }
void Log::Success(std::string_view message) { WriteLine(successStyle, message); }
void Log::Summary(std::string_view message) { WriteLine(summaryStyle, message); }
void Log::Warn(std::string_view message) { WriteLine(warnStyle, message); }
void Log::Error(std::string_view message) { WriteLine(errorStyle, message); }
void Log::Fail(std::string_view message) { WriteLine(failStyle, message); }
void Log::Fatal(std::string_view message) { WriteLine(fatalStyle, message); }

void Log::RawOutput(std::string_view message) {
    LogSinks& sinks = Sinks();
    std::lock_guard lock(sinks.mutex);
    if (sinks.console.IsValid())
        sinks.console.Write(message);
    if (sinks.file && sinks.file->IsOpen())
        sinks.file->Write(message);
}

std::string_view Log::GetFilePath() {
    LogSinks& sinks = Sinks();
    if (sinks.file && sinks.file->IsOpen())
        return sinks.file->GetFileName();
    return {};
}

} // namespace nrq
