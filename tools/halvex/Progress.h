#pragma once

#include <cstdint>
#include <string>

namespace halvex {

// "0:07", "12:03", "1:02:03".
std::string FormatDuration(double seconds);

// "512 bytes", "2.4 kB", "48.2 MB", "4.29 GB": decimal units.
std::string FormatBytes(uint64_t bytes);

// One line of progress: "[#####-----]  12/30 points  40.1 points/s  0:01 left".
// Without a bar (barWidth 0) the fields are separated by commas, for logs.
std::string FormatProgress(int64_t done, int64_t total, double elapsedSeconds, int barWidth);

} // namespace halvex
