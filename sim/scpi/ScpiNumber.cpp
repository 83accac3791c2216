#include "hvxsim/ScpiNumber.h"

#include "hvxsim/ScpiHeader.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace hvxsim {

namespace {

struct Suffix {
    const char* text;
    double factor;
};

constexpr Suffix kFrequencySuffixes[] = {{"HZ", 1.0}, {"KHZ", 1e3}, {"MHZ", 1e6}, {"MAHZ", 1e6}, {"GHZ", 1e9}};
constexpr Suffix kTimeSuffixes[] = {{"S", 1.0}, {"MS", 1e-3}, {"US", 1e-6}, {"NS", 1e-9}};
constexpr Suffix kAmplitudeSuffixes[] = {{"DBM", 1.0}};
constexpr Suffix kAttenuationSuffixes[] = {{"DB", 1.0}};

template <size_t N>
std::optional<double> FindFactor(const Suffix (&suffixes)[N], const std::string& suffix) {
    for (const Suffix& candidate : suffixes)
        if (suffix == candidate.text)
            return candidate.factor;
    return std::nullopt;
}

std::optional<double> SuffixFactor(ScpiUnitKind kind, const std::string& suffix) {
    if (suffix.empty())
        return 1.0;
    switch (kind) {
    case ScpiUnitKind::Frequency: return FindFactor(kFrequencySuffixes, suffix);
    case ScpiUnitKind::Time: return FindFactor(kTimeSuffixes, suffix);
    case ScpiUnitKind::Amplitude: return FindFactor(kAmplitudeSuffixes, suffix);
    case ScpiUnitKind::Attenuation: return FindFactor(kAttenuationSuffixes, suffix);
    case ScpiUnitKind::None: break;
    }
    return std::nullopt;
}

// The longest prefix that is a decimal number in SCPI's <NRf> form.
size_t NumberLength(std::string_view text) {
    size_t i = 0;
    const auto digitsFrom = [&](size_t at) {
        size_t end = at;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])))
            ++end;
        return end;
    };
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    size_t end = digitsFrom(i);
    bool digits = end > i;
    i = end;
    if (i < text.size() && text[i] == '.') {
        end = digitsFrom(i + 1);
        digits = digits || end > i + 1;
        i = end;
    }
    if (!digits)
        return 0;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        size_t exp = i + 1;
        if (exp < text.size() && (text[exp] == '+' || text[exp] == '-'))
            ++exp;
        end = digitsFrom(exp);
        if (end > exp)
            i = end;
    }
    return i;
}

} // namespace

ScpiNumber ParseScpiNumber(std::string_view text, ScpiUnitKind kind) {
    const std::string trimmed = Trim(text);
    const size_t length = NumberLength(trimmed);
    if (length == 0)
        return {};
    const std::string number = trimmed.substr(0, length);
    const double value = std::strtod(number.c_str(), nullptr);
    if (!std::isfinite(value))
        return {};
    const std::string suffix = ToUpper(Trim(std::string_view(trimmed).substr(length)));
    const std::optional<double> factor = SuffixFactor(kind, suffix);
    if (!factor)
        return ScpiNumber{ScpiNumberStatus::BadSuffix, 0.0};
    return ScpiNumber{ScpiNumberStatus::Ok, value * *factor};
}

std::optional<bool> ParseScpiBoolean(std::string_view text) {
    const std::string upper = ToUpper(Trim(text));
    if (upper == "ON" || upper == "1")
        return true;
    if (upper == "OFF" || upper == "0")
        return false;
    return std::nullopt;
}

std::string FormatScpiNumber(double value, ScpiNumberStyle style) {
    char buffer[64];
    if (style == ScpiNumberStyle::Scientific) {
        std::snprintf(buffer, sizeof buffer, "%+.9E", value);
        return buffer;
    }
    if (value == std::floor(value) && std::fabs(value) < 1e15) {
        std::snprintf(buffer, sizeof buffer, "%.0f", value);
        return buffer;
    }
    std::snprintf(buffer, sizeof buffer, "%.12g", value);
    return buffer;
}

} // namespace hvxsim
