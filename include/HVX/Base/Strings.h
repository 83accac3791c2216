#pragma once

#include <string>
#include <string_view>

namespace nrq {

// UTF-8 to the platform's wide form and back. Invalid input raises.
std::wstring WidenString(std::string_view utf8);
std::string NarrowString(std::wstring_view wide);
std::string_view NarrowString(std::string_view text);

} // namespace nrq
