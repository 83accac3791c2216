#include "HVX/Base/StringUtil.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace nrq {

std::string FormatNum(float value, int significantDigits) {
    const double magnitude = std::fabs(static_cast<double>(value));
    if (magnitude < 0.0001)
        return "0";
    const int decimals = significantDigits - (static_cast<int>(std::floor(std::log10(magnitude))) + 1);
    const double scale = std::pow(10.0, decimals);
    const double rounded = std::round(static_cast<double>(value) * scale) / scale;
    std::string text = fmt::format("{:.{}f}", rounded, std::max(decimals, 0));
    while (!text.empty() && text.back() == '0')
        text.pop_back();
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return text;
}

std::vector<std::string_view> SplitString(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == separator) {
            pieces.push_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

} // namespace nrq
