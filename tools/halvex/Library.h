#pragma once

// The library's start and stop for the commands that need it. The host stops
// it after the failure line is written, so that the log keeps the full text.

#include <string>

namespace halvex {

// HVXInit(false) once. A data folder that cannot be created is a warning: the
// log then goes to a temporary folder, which the warning names.
void StartLibrary();

// HVXTerminate, when StartLibrary ran.
void StopLibrary();

bool LibraryRuns();

// The data folder the library will use, as it is chosen from the environment.
std::string ExpectedDataFolder();

} // namespace halvex
