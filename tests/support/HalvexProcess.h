#pragma once

// The built halvex, run as a process by the host's tests.

#include "support/TestEnvironment.h"

#include <filesystem>
#include <string>

#ifdef HVX_HALVEX_PATH

namespace nrq::test {

inline const std::string halvexPath = HVX_HALVEX_PATH;

struct Outcome {
    int code = -1;
    std::string output; // stdout and stderr together
};

inline std::string Quote(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

// `arguments` as a shell would split them.
inline Outcome Halvex(const std::string& arguments) {
    Outcome run;
    run.code = RunCommand(Quote(halvexPath) + " " + arguments, run.output);
    return run;
}

} // namespace nrq::test

#endif
