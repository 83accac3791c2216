#include "HVX/Base/StringUtil.h"

#include <gtest/gtest.h>

namespace nrq {
namespace {

TEST(StringHash, EmptyStringIsTheOffsetBasis) {
    EXPECT_EQ(string_hash{}(""), 0xcbf29ce484222325ull);
}

TEST(StringHash, KnownFnv1aValues) {
    // FNV-1a 64 of "a": (0xcbf29ce484222325 ^ 0x61) * 0x100000001b3 mod 2^64.
    EXPECT_EQ(string_hash{}("a"), 0xaf63dc4c8601ec8cull);
    EXPECT_EQ(string_hash{}("foobar"), 0x85944171f73967e8ull);
}

TEST(StringHash, OverloadsAgreeAlsoOnHighBytes) {
    const std::string text = "\xff\x80z\xc3\xa9";
    const string_hash hash;
    EXPECT_EQ(hash(text), hash(text.c_str()));
    EXPECT_EQ(hash(text), hash(std::string_view(text)));
    // A high byte counts as unsigned: 0xff, not -1 sign-extended.
    EXPECT_EQ(hash(std::string("\xff")), (0xcbf29ce484222325ull ^ 0xffull) * 0x100000001b3ull);
}

TEST(FormatNum, BelowTheThresholdIsZero) {
    EXPECT_EQ(FormatNum(0.00005f, 3), "0");
    EXPECT_EQ(FormatNum(-0.00005f, 3), "0");
}

TEST(FormatNum, KeepsSignificantDigits) {
    EXPECT_EQ(FormatNum(-1234.5f, 6), "-1234.5");
    EXPECT_EQ(FormatNum(3.14159f, 3), "3.14");
    EXPECT_EQ(FormatNum(0.0012345f, 2), "0.0012");
}

TEST(FormatNum, StripsZerosAlsoFromIntegers) {
    EXPECT_EQ(FormatNum(1200.0f, 2), "12");
    EXPECT_EQ(FormatNum(100.0f, 3), "1");
    EXPECT_EQ(FormatNum(10.0f, 3), "10");
    EXPECT_EQ(FormatNum(2.5f, 4), "2.5");
}

TEST(SplitString, EmptyTextGivesOneEmptyPiece) {
    const auto pieces = SplitString("", ',');
    ASSERT_EQ(pieces.size(), 1u);
    EXPECT_EQ(pieces[0].size(), 0u);
}

TEST(SplitString, EmptyPiecesAreKept) {
    EXPECT_EQ(SplitString("a,,b", ','), (std::vector<std::string_view>{"a", "", "b"}));
    EXPECT_EQ(SplitString("a,", ','), (std::vector<std::string_view>{"a", ""}));
    EXPECT_EQ(SplitString(",", ','), (std::vector<std::string_view>{"", ""}));
}

TEST(SplitString, PiecesAreViewsIntoTheArgument) {
    const std::string text = "one;two";
    const auto pieces = SplitString(text, ';');
    ASSERT_EQ(pieces.size(), 2u);
    EXPECT_EQ(pieces[1].data(), text.data() + 4);
}

} // namespace
} // namespace nrq
