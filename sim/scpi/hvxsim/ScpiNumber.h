#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hvxsim {

// What unit suffixes a numeric parameter may carry.
enum class ScpiUnitKind { None, Frequency, Time, Amplitude, Attenuation };

enum class ScpiNumberStatus { Ok, NotANumber, BadSuffix };

struct ScpiNumber {
    ScpiNumberStatus status = ScpiNumberStatus::NotANumber;
    double value = 0.0; // in the base unit: hertz, seconds, dBm, dB
};

// Parses "700000000", "7E8", "700 MHz", "100kHz", "-30 dBm", "2 ms".
// "MHZ" is megahertz for frequencies, as SCPI reads it.
ScpiNumber ParseScpiNumber(std::string_view text, ScpiUnitKind kind);

// ON/OFF/1/0; nothing for anything else.
std::optional<bool> ParseScpiBoolean(std::string_view text);

// How an instrument family writes numbers in its replies.
enum class ScpiNumberStyle { Plain, Scientific };

// Plain: integral values as integers ("700000000"), others shortest ("0.5").
// Scientific: "+7.000000000E+08".
std::string FormatScpiNumber(double value, ScpiNumberStyle style);

} // namespace hvxsim
