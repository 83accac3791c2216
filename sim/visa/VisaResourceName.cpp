#include "hvxvisa/VisaResourceName.h"

#include <cctype>
#include <regex>

namespace hvxvisa {

namespace {

std::string Upper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return upper;
}

std::vector<std::string> SplitAtDoubleColons(std::string_view name) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = name.find("::", start);
        parts.emplace_back(name.substr(start, at == std::string_view::npos ? std::string_view::npos : at - start));
        if (at == std::string_view::npos)
            return parts;
        start = at + 2;
    }
}

bool AllDigits(std::string_view text) {
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    return true;
}

// "TCPIP0" -> board 0; the interface's name followed by an optional number.
bool InterfaceBoard(std::string_view first, std::string_view interface, unsigned& board) {
    if (!first.starts_with(interface))
        return false;
    const std::string_view digits = first.substr(interface.size());
    if (!AllDigits(digits) || digits.size() > 4)
        return false;
    board = digits.empty() ? 0 : static_cast<unsigned>(std::stoul(std::string(digits)));
    return true;
}

} // namespace

VisaResourceName ParseVisaResourceName(std::string_view name) {
    VisaResourceName result;
    const std::vector<std::string> parts = SplitAtDoubleColons(name);
    for (const std::string& part : parts)
        if (part.empty())
            return result;
    const std::string first = Upper(parts.front());
    const std::string last = Upper(parts.back());
    unsigned board = 0;
    if (InterfaceBoard(first, "TCPIP", board)) {
        if (parts.size() == 4 && last == "SOCKET") {
            if (!AllDigits(parts[2]) || parts[2].size() > 5)
                return result;
            const unsigned long port = std::stoul(parts[2]);
            if (port == 0 || port > 65535)
                return result;
            result.status = kViSuccess;
            result.board = board;
            result.host = parts[1];
            result.port = static_cast<uint16_t>(port);
            return result;
        }
        // VXI-11 and HiSLIP instruments: well-formed, but nothing here speaks them.
        if ((parts.size() == 3 || parts.size() == 4) && last == "INSTR")
            result.status = kViErrorRsrcNfound;
        return result;
    }
    for (const char* interface : {"USB", "GPIB", "ASRL", "VXI", "PXI"}) {
        if (InterfaceBoard(first, interface, board) && parts.size() >= 2 && (last == "INSTR" || last == "RAW")) {
            result.status = kViErrorRsrcNfound;
            return result;
        }
    }
    return result;
}

bool MatchesVisaExpression(std::string_view expression, std::string_view name, bool& valid) {
    // The VISA expression syntax is a regular expression where '?' stands
    // for any one character; every other regex meta character is literal.
    std::string pattern;
    for (char c : expression) {
        switch (c) {
        case '?': pattern += '.'; break;
        case '*': case '+': case '[': case ']': case '|': case '(': case ')': case '^': pattern += c; break;
        case '.': case '\\': case '{': case '}': case '$': pattern += '\\'; pattern += c; break;
        default: pattern += c; break;
        }
    }
    try {
        const std::regex regex(pattern, std::regex::ECMAScript | std::regex::icase);
        valid = true;
        return std::regex_match(name.begin(), name.end(), regex);
    } catch (const std::regex_error&) {
        valid = false;
        return false;
    }
}

std::vector<std::string> SplitResourceList(std::string_view list) {
    std::vector<std::string> names;
    size_t start = 0;
    while (start <= list.size()) {
        size_t end = list.find_first_of(",;", start);
        if (end == std::string_view::npos)
            end = list.size();
        std::string_view name = list.substr(start, end - start);
        while (!name.empty() && std::isspace(static_cast<unsigned char>(name.front())))
            name.remove_prefix(1);
        while (!name.empty() && std::isspace(static_cast<unsigned char>(name.back())))
            name.remove_suffix(1);
        if (!name.empty())
            names.emplace_back(name);
        start = end + 1;
    }
    return names;
}

} // namespace hvxvisa
