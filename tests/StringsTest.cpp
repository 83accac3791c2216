#include "HVX/Base/Error.h"
#include "HVX/Base/Strings.h"

#include <gtest/gtest.h>

namespace nrq {
namespace {

TEST(Strings, EmptyConvertsToEmpty) {
    EXPECT_EQ(WidenString(""), L"");
    EXPECT_EQ(NarrowString(std::wstring_view()), "");
}

TEST(Strings, WidenDecodesEveryLength) {
    // a, e-acute (2 bytes), euro sign (3 bytes), G clef (4 bytes)
    const std::wstring wide = WidenString("a\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e");
    ASSERT_EQ(wide.size(), 4u);
    EXPECT_EQ(wide[0], L'a');
    EXPECT_EQ(static_cast<uint32_t>(wide[1]), 0xE9u);
    EXPECT_EQ(static_cast<uint32_t>(wide[2]), 0x20ACu);
    EXPECT_EQ(static_cast<uint32_t>(wide[3]), 0x1D11Eu);
}

TEST(Strings, NarrowEncodesEveryLength) {
    const std::wstring wide{L'a', static_cast<wchar_t>(0xE9), static_cast<wchar_t>(0x20AC),
                            static_cast<wchar_t>(0x1D11E)};
    EXPECT_EQ(NarrowString(std::wstring_view(wide)), "a\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e");
}

TEST(Strings, RoundTripKeepsEmbeddedNul) {
    const std::string text("x\0y", 3);
    EXPECT_EQ(NarrowString(std::wstring_view(WidenString(text))), text);
}

TEST(Strings, NarrowOfNarrowIsItsArgument) {
    const std::string text = "same";
    EXPECT_EQ(NarrowString(std::string_view(text)).data(), text.data());
}

TEST(Strings, InvalidUtf8Raises) {
    for (const char* bad : {"\x80", "\xc3", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xff"}) {
        try {
            WidenString(bad);
            ADD_FAILURE() << "accepted an invalid sequence";
        } catch (const Error& error) {
            EXPECT_NE(std::string(error.what()).find("Invalid or incomplete multibyte or wide character"),
                      std::string::npos);
        }
    }
}

TEST(Strings, InvalidCodePointRaises) {
    const std::wstring surrogate{static_cast<wchar_t>(0xD800)};
    EXPECT_THROW(NarrowString(std::wstring_view(surrogate)), Error);
    const std::wstring tooLarge{static_cast<wchar_t>(0x110000)};
    EXPECT_THROW(NarrowString(std::wstring_view(tooLarge)), Error);
}

} // namespace
} // namespace nrq
