#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// 64-bit FNV-1a: the hash of every string-keyed table of the library.
struct string_hash {
    using is_transparent = void;

    static constexpr uint64_t offsetBasis = 0xcbf29ce484222325ull;
    static constexpr uint64_t prime = 0x100000001b3ull;

    constexpr size_t operator()(std::string_view text) const {
        uint64_t hash = offsetBasis;
        for (char c : text) {
            hash ^= static_cast<unsigned char>(c);
            hash *= prime;
        }
        return static_cast<size_t>(hash);
    }
    size_t operator()(const std::string& text) const { return (*this)(std::string_view(text)); }
    size_t operator()(const char* text) const { return (*this)(std::string_view(text)); }
};

// At most `significantDigits` significant digits; trailing zeros are stripped
// from every result, also from integers ("1200" with 2 digits is "12").
std::string FormatNum(float value, int significantDigits);

// Pieces between separators, as views into `text`; "" gives one empty piece.
std::vector<std::string_view> SplitString(std::string_view text, char separator);

} // namespace nrq
