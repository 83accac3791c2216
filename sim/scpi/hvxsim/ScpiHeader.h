#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hvxsim {

// One program message unit as received: "SENS:FREQ:STAR 1 MHz" gives the
// header tokens {"SENS","FREQ","STAR"}, no query mark, params {"1 MHz"}.
struct ScpiUnit {
    std::string text;                 // the unit as sent, trimmed
    bool common = false;              // a "*XXX" command
    bool rooted = false;              // header began with ':'
    bool query = false;               // header ended with '?'
    std::vector<std::string> tokens;  // header nodes, upper case
    std::vector<std::string> params;  // parameters split at ',' outside quotes, trimmed
    bool malformed = false;           // a header that is not SCPI syntax
};

// Splits one program message (a line without its terminator) at ';' outside
// quoted strings; empty units are dropped.
std::vector<std::string> SplitProgramMessage(std::string_view line);

// Parses one unit's header and parameters.
ScpiUnit ParseUnit(std::string_view unitText);

// A command header pattern in the manuals' notation: nodes separated by ':',
// "[Node]" optional, short form in capitals ("FREQuency" matches FREQ and
// FREQUENCY), '#' behind a node allows a numeric suffix ("TRACe#" matches
// TRAC1), '|' separates alternatives ("BANDwidth|BWIDth"). Common commands
// are written as they are, e.g. "*IDN".
class ScpiHeaderPattern {
public:
    explicit ScpiHeaderPattern(std::string_view pattern);

    bool Matches(const std::vector<std::string>& tokens) const;
    bool IsCommon() const { return !common_.empty(); }
    bool MatchesCommon(std::string_view upperHeader) const { return upperHeader == common_; }
    const std::string& Text() const { return text_; }

private:
    struct Mnemonic {
        std::string shortForm;
        std::string longForm;
    };
    struct Node {
        std::vector<Mnemonic> alternatives;
        bool optional = false;
        bool suffix = false;
    };

    bool MatchFrom(const std::vector<std::string>& tokens, size_t token, size_t node) const;
    static bool NodeMatches(const Node& node, std::string_view token);

    std::string text_;
    std::string common_;
    std::vector<Node> nodes_;
};

std::string ToUpper(std::string_view text);
std::string Trim(std::string_view text);
// Strips one pair of surrounding double or single quotes.
std::string Unquote(std::string_view text);

} // namespace hvxsim
