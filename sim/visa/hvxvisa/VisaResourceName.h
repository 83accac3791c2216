#pragma once

#include "hvxvisa/VisaTypes.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hvxvisa {

// A resource string taken apart. Only TCPIP sockets can be opened; other
// well-formed names (TCPIP INSTR, USB, GPIB, ASRL) exist but are not found.
struct VisaResourceName {
    ViStatus status = kViErrorInvRsrcName; // kViSuccess, kViErrorRsrcNfound or kViErrorInvRsrcName
    unsigned board = 0;
    std::string host;
    uint16_t port = 0;
};

// "TCPIP[board]::host::port::SOCKET", case-insensitive.
VisaResourceName ParseVisaResourceName(std::string_view name);

// Whether a name matches a VISA search expression ('?' one character, '*'
// and '+' repeat the one before, "[...]" a set, '|' and parentheses);
// matching ignores case. Sets `valid` false for a malformed expression.
bool MatchesVisaExpression(std::string_view expression, std::string_view name, bool& valid);

// The names of a list split at ',' or ';', blanks trimmed, empty ones dropped.
std::vector<std::string> SplitResourceList(std::string_view list);

} // namespace hvxvisa
