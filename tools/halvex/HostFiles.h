#pragma once

#include <string>

namespace halvex {

// The whole file; raises std::runtime_error "cannot read PATH: REASON".
std::string ReadWholeFile(const std::string& path);

// Writes next to the target and renames, so a reader never sees half a file.
// Raises std::runtime_error "cannot write PATH: REASON".
void WriteWholeFile(const std::string& path, const std::string& bytes);

} // namespace halvex
