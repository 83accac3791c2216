#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace nrq::test {

// Bytes written by hand as hexadecimal pairs, e.g. "00 00 A0 C2"; blanks and
// line breaks between the pairs are ignored.
inline std::string Hex(std::string_view text) {
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    std::string out;
    int high = -1;
    for (char c : text) {
        const int value = nibble(c);
        if (value < 0)
            continue;
        if (high < 0) {
            high = value;
        } else {
            out.push_back(static_cast<char>(high * 16 + value));
            high = -1;
        }
    }
    EXPECT_EQ(high, -1) << "odd number of hex digits in " << text;
    return out;
}

// Compares two byte strings and names the first place where they differ.
inline ::testing::AssertionResult SameBytes(const std::string& expected, const std::string& actual) {
    const size_t common = expected.size() < actual.size() ? expected.size() : actual.size();
    for (size_t i = 0; i < common; ++i) {
        if (expected[i] != actual[i]) {
            return ::testing::AssertionFailure()
                   << "byte " << i << ": expected 0x" << std::hex
                   << static_cast<int>(static_cast<unsigned char>(expected[i])) << ", got 0x"
                   << static_cast<int>(static_cast<unsigned char>(actual[i]));
        }
    }
    if (expected.size() != actual.size())
        return ::testing::AssertionFailure()
               << "sizes differ: expected " << expected.size() << ", got " << actual.size();
    return ::testing::AssertionSuccess();
}

} // namespace nrq::test
