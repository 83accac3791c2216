#include "HVX/Base/Error.h"

#include "HVX/Base/Log.h"

#include <fmt/format.h>

namespace nrq {

Error::Error(std::source_location loc) : location(loc), message("unspecified error") {}

Error::Error(std::string_view text, std::source_location loc)
    : location(loc), message(fmt::format("({1}) {0}", text, loc.line())) {}

Error Error::SystemCode(std::source_location loc) {
    return Error(HVXGetSystemErrorMessage(), loc);
}

Error Error::SystemCode(int code, std::source_location loc) {
    return Error(HVXGetSystemErrorMessage(code), loc);
}

Error Error::SystemCode(int code, std::string_view text, std::source_location loc) {
    return Error(fmt::format("{}\n{}", text, HVXGetSystemErrorMessage(code)), loc);
}

const char* Error::what() const noexcept { return message.c_str(); }

void Error::LogMessage() const {}

void Assert(bool condition, std::string_view what, std::source_location where) {
    if (condition)
        return;
    Log::Error(fmt::format("Assertion failed:\nWhat: {}\nWhere: {}", what, where.function_name()));
    throw Error(what, where);
}

} // namespace nrq
