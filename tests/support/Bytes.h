#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

namespace nrq::test {

// Expected bytes written by hand: Bytes({0x01, 0x02}) or with helpers for fields.
inline std::string Bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values)
        out += static_cast<char>(static_cast<uint8_t>(v));
    return out;
}

inline std::string U32(uint32_t v) {
    return Bytes({int(v & 0xFF), int((v >> 8) & 0xFF), int((v >> 16) & 0xFF), int(v >> 24)});
}

inline std::string Record(const std::string& text) { return U32(static_cast<uint32_t>(text.size())) + text; }

} // namespace nrq::test
