#pragma once

#include <exception>
#include <source_location>
#include <string>
#include <string_view>

namespace nrq {

// The one exception type of the library. Carries where it was raised.
class Error : public std::exception {
public:
    explicit Error(std::source_location loc = std::source_location::current());
    Error(std::string_view message, std::source_location loc = std::source_location::current());

    static Error SystemCode(std::source_location loc = std::source_location::current());
    static Error SystemCode(int code, std::source_location loc = std::source_location::current());
    static Error SystemCode(int code, std::string_view text,
                            std::source_location loc = std::source_location::current());

    // A move copies, so that a moved-from Error still tells what went wrong.
    Error(const Error&) = default;
    Error(Error&& other) noexcept(false) : Error(static_cast<const Error&>(other)) {}
    Error& operator=(const Error&) = default;
    Error& operator=(Error&& other) noexcept(false) { return *this = static_cast<const Error&>(other); }

    const char* what() const noexcept override;
    const std::source_location& GetLocation() const noexcept { return location; }

    // Declared for callers of the library's interface; it does nothing.
    void LogMessage() const;

private:
    std::source_location location;
    std::string message;
};

std::string HVXGetSystemErrorMessage(int code);
std::string HVXGetSystemErrorMessage();

// Active in every build: logs the failure and throws an Error.
void Assert(bool condition, std::string_view what,
            std::source_location where = std::source_location::current());

} // namespace nrq
