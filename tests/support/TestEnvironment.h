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

// The real Gerber files beside the repository (../shared/gerber-samples).
// A clone on its own has none: tests that read them skip with one line.
std::filesystem::path GerberSamples();
bool HaveGerberSamples();

#define HVX_SKIP_WITHOUT_GERBER_SAMPLES()                                                                      \
    do {                                                                                                         \
        if (!::nrq::test::HaveGerberSamples())                                                                  \
            GTEST_SKIP() << "no real Gerber samples: " << ::nrq::test::GerberSamples().string() << " is absent"; \
    } while (false)

// Runs a shell command, captures stdout+stderr, returns the exit code.
int RunCommand(const std::string& command, std::string& output);

} // namespace nrq::test
