#include "LibraryText.h"

#include <fmt/format.h>

#include <cctype>

namespace halvex {
namespace {

std::string_view Trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    return text;
}

// "(123) text" -> "text".
std::string_view WithoutLine(std::string_view message) {
    if (message.size() < 3 || message.front() != '(')
        return message;
    size_t close = 1;
    while (close < message.size() && std::isdigit(static_cast<unsigned char>(message[close])))
        ++close;
    if (close == 1 || close + 1 >= message.size() || message[close] != ')' || message[close + 1] != ' ')
        return message;
    return message.substr(close + 2);
}

// The library's file texts "WHAT: REASON\nFILE: PATH" with the path first.
std::string FileMessage(std::string_view text, std::string_view head, std::string_view verb) {
    const size_t fileAt = text.find("\nFILE: ");
    const std::string_view reason = Trim(text.substr(head.size(), fileAt - head.size()));
    const std::string_view path = text.substr(fileAt + 7);
    return fmt::format("{} {}: {}", verb, path, reason);
}

} // namespace

std::string PlainLibraryMessage(std::string_view message) {
    const std::string_view text = Trim(WithoutLine(message));
    struct FileText {
        std::string_view head;
        std::string_view verb;
    };
    static constexpr FileText fileTexts[] = {{"Failed to read file: ", "cannot read"},
                                             {"Failed to write file: ", "cannot write"},
                                             {"Failed to create save directory: ", "cannot create the folder"}};
    for (const FileText& known : fileTexts)
        if (text.starts_with(known.head) && text.find("\nFILE: ") != std::string_view::npos)
            return FileMessage(text, known.head, known.verb);
    static constexpr std::string_view openText = "Failed to open file with path: \"";
    if (text.starts_with(openText) && text.ends_with('"'))
        return fmt::format("cannot open {}", text.substr(openText.size(), text.size() - openText.size() - 1));
    std::string line(text);
    for (size_t at = line.find('\n'); at != std::string::npos; at = line.find('\n', at))
        line.replace(at, 1, ": ");
    return line;
}

} // namespace halvex
