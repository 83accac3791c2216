#include "Options.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace halvex {
namespace {

bool IsWholeNumberText(const std::string& text) {
    const size_t digits = text.starts_with('-') ? 1 : 0;
    return text.size() > digits &&
           std::all_of(text.begin() + static_cast<std::ptrdiff_t>(digits), text.end(),
                       [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
}

size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

} // namespace

CLI::Validator Whole(long long low, long long high) {
    return CLI::Validator(
        [low, high](std::string& text) -> std::string {
            errno = 0;
            const long long value = IsWholeNumberText(text) ? std::strtoll(text.c_str(), nullptr, 10) : 0;
            if (!IsWholeNumberText(text) || errno == ERANGE || value < low || value > high)
                return fmt::format("takes a whole number from {} to {}, not '{}'", low, high, text);
            // Leading zeros would read as octal further on.
            text = std::to_string(value);
            return {};
        },
        fmt::format("{}-{}", low, high));
}

CLI::Validator PositiveNumber() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            char* end = nullptr;
            const double value = std::strtod(text.c_str(), &end);
            if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value) || value <= 0)
                return fmt::format("takes a number greater than zero, not '{}'", text);
            return {};
        },
        "NUMBER>0");
}

CLI::Validator OneOf(std::vector<std::string> words) {
    std::string shown = fmt::format("{}", fmt::join(words, "|"));
    return CLI::Validator(
        [words](std::string& text) -> std::string {
            if (std::find(words.begin(), words.end(), text) != words.end())
                return {};
            std::string list;
            for (size_t i = 0; i < words.size(); ++i)
                list += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
            return fmt::format("takes {}, not '{}'", list, text);
        },
        shown);
}

std::string NearestName(const std::vector<std::string>& names, std::string_view word) {
    std::string best;
    size_t bestDistance = 3; // further than two edits is no suggestion
    for (const std::string& name : names) {
        const size_t distance = name.starts_with(word) && word.size() >= 3 ? 1 : EditDistance(word, name);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = name;
        }
    }
    return best;
}

std::string NearestOption(const CLI::App& command, std::string_view unknown) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    const std::string_view word = unknown.substr(0, unknown.find('='));
    return NearestName(names, word);
}

} // namespace halvex
