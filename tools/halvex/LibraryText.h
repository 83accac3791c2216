#pragma once

#include <string>
#include <string_view>

namespace halvex {

// A library message in the words a person reads, on one line: without the
// "(line)" prefix, and "(31) Failed to read file: R\nFILE: P" as
// "cannot read P: R".
std::string PlainLibraryMessage(std::string_view message);

} // namespace halvex
