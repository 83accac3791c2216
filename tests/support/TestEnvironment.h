#pragma once

#include <filesystem>
#include <string>

namespace nrq::test {

// The temporary folder that HOME and the XDG folders point at in this process.
const std::filesystem::path& TempRoot();

// A fresh, empty folder below TempRoot for one test.
std::filesystem::path MakeTempDir(const std::string& name);

std::string ReadFileBytes(const std::filesystem::path& path);
void WriteFileBytes(const std::filesystem::path& path, const std::string& bytes);

// True when text[at] starts a "[hh:mm:ss] " time stamp.
bool IsTimeStampAt(const std::string& text, size_t at);

// The log file's text with every leading "[hh:mm:ss] " time stamp replaced by "[T] ".
std::string LogWithoutTimeStamps();

// Runs a shell command, captures stdout+stderr, returns the exit code.
int RunCommand(const std::string& command, std::string& output);

} // namespace nrq::test
