#include "HVX/Base/Strings.h"

#include "HVX/Base/Error.h"

#include <cerrno>
#include <cstdint>

namespace nrq {
namespace {

constexpr bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

constexpr bool IsValidCodePoint(char32_t cp) {
    return cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
}

// Decodes one strict UTF-8 sequence at text[i]; returns its length, 0 if invalid.
size_t DecodeUtf8(std::string_view text, size_t i, char32_t& cp) {
    const auto lead = static_cast<unsigned char>(text[i]);
    size_t length;
    char32_t minimum;
    if (lead < 0x80) {
        cp = lead;
        return 1;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, cp = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, cp = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, cp = lead & 0x07, minimum = 0x10000;
    } else {
        return 0;
    }
    if (text.size() - i < length)
        return 0;
    for (size_t k = 1; k < length; ++k) {
        const auto byte = static_cast<unsigned char>(text[i + k]);
        if (!IsContinuation(byte))
            return 0;
        cp = (cp << 6) | (byte & 0x3F);
    }
    if (cp < minimum || !IsValidCodePoint(cp))
        return 0;
    return length;
}

void EncodeUtf8(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

} // namespace

std::wstring WidenString(std::string_view utf8) {
    std::wstring wide;
    if (utf8.empty())
        return wide;
    wide.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        char32_t cp = 0;
        const size_t length = DecodeUtf8(utf8, i, cp);
        if (length == 0)
            throw Error::SystemCode(EILSEQ);
        wide += static_cast<wchar_t>(cp);
        i += length;
    }
    return wide;
}

std::string NarrowString(std::wstring_view wide) {
    std::string narrow;
    if (wide.empty())
        return narrow;
    narrow.reserve(wide.size());
    for (wchar_t ch : wide) {
        const auto cp = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(ch));
        if (!IsValidCodePoint(cp))
            throw Error::SystemCode(EILSEQ);
        EncodeUtf8(cp, narrow);
    }
    return narrow;
}

std::string_view NarrowString(std::string_view text) { return text; }

} // namespace nrq
