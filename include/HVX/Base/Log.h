#pragma once

#include <string_view>

namespace nrq {

// The process-wide log: one file, "/log.txt" in the user's data folder,
// replaced at each start. Any thread may write; one mutex keeps lines whole.
class Log {
public:
    Log() = delete;

    static void Init();
    static void Terminate();

    static void Output(std::string_view message);
    static void RawOutput(std::string_view message);
    static void Success(std::string_view message);
    static void Summary(std::string_view message);
    static void Warn(std::string_view message);
    static void Error(std::string_view message);
    static void Fail(std::string_view message);
    static void Fatal(std::string_view message);

    // Where the file sink writes, empty when there is none.
    static std::string_view GetFilePath();
};

} // namespace nrq
