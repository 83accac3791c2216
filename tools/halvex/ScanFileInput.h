#pragma once

#include "ScanFile.h"

#include <string>

namespace halvex {

// Reads a scan file ("-": standard input) for info and export. The header is
// checked before the body is read, so a file that is not a scan file, or whose
// announced length does not match its size, is refused without being loaded.
// Errors name the file.
ScanFileContents LoadScanFile(const std::string& path, size_t* bytesRead = nullptr);

} // namespace halvex
