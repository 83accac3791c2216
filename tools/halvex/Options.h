#pragma once

// Shapes of option values shared by the commands, as CLI11 validators whose
// messages read "takes ..., not 'VALUE'" behind the option's name.

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace halvex {

// A whole decimal number from low to high: no sign games, no octal, no exponent.
CLI::Validator Whole(long long low, long long high);

// A finite number greater than zero.
CLI::Validator PositiveNumber();

// One of the given words.
CLI::Validator OneOf(std::vector<std::string> words);

// The option name of `command` nearest to `unknown`, or "" when none is near.
std::string NearestOption(const CLI::App& command, std::string_view unknown);

// The name nearest to `word` among `names`, or "" when none is near.
std::string NearestName(const std::vector<std::string>& names, std::string_view word);

} // namespace halvex
