#include "Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace halvex {

std::string FormatDuration(double seconds) {
    const auto whole = static_cast<int64_t>(std::max(0.0, std::round(seconds)));
    const int64_t hours = whole / 3600;
    const int64_t minutes = whole / 60 % 60;
    const int64_t rest = whole % 60;
    if (hours > 0)
        return fmt::format("{}:{:02}:{:02}", hours, minutes, rest);
    return fmt::format("{}:{:02}", minutes, rest);
}

std::string FormatBytes(uint64_t bytes) {
    if (bytes < 1000)
        return fmt::format("{} bytes", bytes);
    static constexpr const char* units[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    value /= 1000.0;
    while (value >= 1000.0 && unit + 1 < std::size(units)) {
        value /= 1000.0;
        ++unit;
    }
    return fmt::format("{:.3g} {}", value, units[unit]);
}

std::string FormatProgress(int64_t done, int64_t total, double elapsedSeconds, int barWidth) {
    const double rate = elapsedSeconds > 0.0 ? static_cast<double>(done) / elapsedSeconds : 0.0;
    const std::string rateText = done > 0 ? fmt::format("{:.1f} points/s", rate) : "-- points/s";
    const std::string leftText =
        done > 0 && rate > 0.0 ? FormatDuration(static_cast<double>(std::max<int64_t>(total - done, 0)) / rate) + " left"
                               : "--:-- left";
    if (barWidth <= 0)
        return fmt::format("{}/{} points, {}, {}", done, total, rateText, leftText);
    const double fraction = total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0) : 0.0;
    const int filled = static_cast<int>(fraction * barWidth);
    return fmt::format("[{}{}] {:>3}%  {}/{} points  {}  {}", std::string(filled, '#'),
                       std::string(barWidth - filled, '-'), static_cast<int>(fraction * 100.0), done, total, rateText,
                       leftText);
}

} // namespace halvex
