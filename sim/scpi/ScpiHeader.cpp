#include "hvxsim/ScpiHeader.h"

#include <cctype>

namespace hvxsim {

std::string ToUpper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return upper;
}

std::string Trim(std::string_view text) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isSpace(text[begin]))
        ++begin;
    while (end > begin && isSpace(text[end - 1]))
        --end;
    return std::string(text.substr(begin, end - begin));
}

std::string Unquote(std::string_view text) {
    if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front())
        return std::string(text.substr(1, text.size() - 2));
    return std::string(text);
}

// Splits at a separator outside quoted strings.
static std::vector<std::string> SplitOutsideQuotes(std::string_view text, char separator) {
    std::vector<std::string> parts;
    std::string current;
    char quote = 0;
    for (char c : text) {
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == separator) {
            parts.push_back(Trim(current));
            current.clear();
            continue;
        }
        current += c;
    }
    parts.push_back(Trim(current));
    return parts;
}

std::vector<std::string> SplitProgramMessage(std::string_view line) {
    std::vector<std::string> units;
    for (std::string& unit : SplitOutsideQuotes(line, ';'))
        if (!unit.empty())
            units.push_back(std::move(unit));
    return units;
}

static bool IsHeaderChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

static bool ParseHeaderTokens(std::string_view header, ScpiUnit& unit) {
    if (!header.empty() && header.front() == ':') {
        unit.rooted = true;
        header.remove_prefix(1);
    }
    if (header.empty())
        return false;
    size_t start = 0;
    while (start <= header.size()) {
        const size_t colon = header.find(':', start);
        const size_t end = colon == std::string_view::npos ? header.size() : colon;
        const std::string_view token = header.substr(start, end - start);
        if (token.empty() || !std::isalpha(static_cast<unsigned char>(token.front())))
            return false;
        for (char c : token)
            if (!IsHeaderChar(c))
                return false;
        unit.tokens.push_back(ToUpper(token));
        if (colon == std::string_view::npos)
            break;
        start = colon + 1;
    }
    return true;
}

ScpiUnit ParseUnit(std::string_view unitText) {
    ScpiUnit unit;
    unit.text = Trim(unitText);
    std::string_view text = unit.text;
    size_t headerEnd = 0;
    while (headerEnd < text.size() && text[headerEnd] != ' ' && text[headerEnd] != '\t')
        ++headerEnd;
    std::string_view header = text.substr(0, headerEnd);
    const std::string rest = Trim(text.substr(headerEnd));
    if (!header.empty() && header.back() == '?') {
        unit.query = true;
        header.remove_suffix(1);
    }
    if (!header.empty() && header.front() == '*') {
        unit.common = true;
        const std::string_view name = header.substr(1);
        bool valid = !name.empty();
        for (char c : name)
            valid = valid && std::isalpha(static_cast<unsigned char>(c));
        unit.malformed = !valid;
        unit.tokens.push_back("*" + ToUpper(name));
    } else {
        unit.malformed = !ParseHeaderTokens(header, unit);
    }
    if (!rest.empty())
        unit.params = SplitOutsideQuotes(rest, ',');
    return unit;
}

// Splits "DISPlay[:WINDow#]:TRACe#" into "DISPlay", "[WINDow#]", "TRACe#":
// a bracketed node is optional wherever its colon stands.
static std::vector<std::string> PatternNodes(std::string_view pattern) {
    std::vector<std::string> nodes;
    std::string current;
    bool bracket = false;
    const auto flush = [&] {
        if (!current.empty() && current != "[]")
            nodes.push_back(current);
        current.clear();
    };
    for (char c : pattern) {
        if (c == '[') {
            flush();
            bracket = true;
            current = "[";
        } else if (c == ']') {
            current += ']';
            bracket = false;
            flush();
        } else if (c == ':') {
            if (!bracket)
                flush();
        } else {
            current += c;
        }
    }
    flush();
    return nodes;
}

ScpiHeaderPattern::ScpiHeaderPattern(std::string_view pattern) : text_(pattern) {
    if (!pattern.empty() && pattern.front() == '*') {
        common_ = ToUpper(pattern);
        return;
    }
    for (const std::string& nodeText : PatternNodes(pattern)) {
        std::string_view text = nodeText;
        Node node;
        if (text.front() == '[') {
            node.optional = true;
            text = text.substr(1, text.size() - 2);
        }
        if (!text.empty() && text.back() == '#') {
            node.suffix = true;
            text.remove_suffix(1);
        }
        size_t altStart = 0;
        while (altStart <= text.size()) {
            const size_t bar = text.find('|', altStart);
            const std::string_view alt =
                text.substr(altStart, bar == std::string_view::npos ? std::string_view::npos : bar - altStart);
            Mnemonic mnemonic;
            for (char c : alt)
                if (std::isupper(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c)))
                    mnemonic.shortForm += c;
            mnemonic.longForm = ToUpper(alt);
            node.alternatives.push_back(std::move(mnemonic));
            if (bar == std::string_view::npos)
                break;
            altStart = bar + 1;
        }
        nodes_.push_back(std::move(node));
    }
}

bool ScpiHeaderPattern::NodeMatches(const Node& node, std::string_view token) {
    if (node.suffix) {
        size_t digits = token.size();
        while (digits > 0 && std::isdigit(static_cast<unsigned char>(token[digits - 1])))
            --digits;
        const std::string_view suffix = token.substr(digits);
        // A suffix of 0 or with a leading zero is no valid channel number.
        if (!suffix.empty() && suffix.front() == '0')
            return false;
        token = token.substr(0, digits);
    }
    for (const Mnemonic& mnemonic : node.alternatives)
        if (token == mnemonic.shortForm || token == mnemonic.longForm)
            return true;
    return false;
}

bool ScpiHeaderPattern::MatchFrom(const std::vector<std::string>& tokens, size_t token, size_t node) const {
    if (node == nodes_.size())
        return token == tokens.size();
    if (nodes_[node].optional && MatchFrom(tokens, token, node + 1))
        return true;
    return token < tokens.size() && NodeMatches(nodes_[node], tokens[token]) && MatchFrom(tokens, token + 1, node + 1);
}

bool ScpiHeaderPattern::Matches(const std::vector<std::string>& tokens) const {
    if (IsCommon())
        return tokens.size() == 1 && tokens.front() == common_;
    return MatchFrom(tokens, 0, 0);
}

} // namespace hvxsim
