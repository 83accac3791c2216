#include "HVX/ESC/String.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace nrq {
namespace {

uint32_t StoredLength(const ESCString& text) {
    uint32_t length;
    std::memcpy(&length, text.data() - 4, sizeof(length));
    return length;
}

TEST(ESCString, IsOnePointer) {
    EXPECT_EQ(sizeof(ESCString), sizeof(void*));
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<ESCString>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<ESCString>);
}

TEST(ESCString, EmptyOwnsNoBlock) {
    const ESCString none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.size(), 0u);
    EXPECT_EQ(std::string_view(none), "");
    EXPECT_STREQ(none.data(), "");
    EXPECT_FALSE(ESCString(std::string()));
    EXPECT_FALSE(ESCString(std::string_view()));
    EXPECT_FALSE(ESCString(size_t(0)));
    EXPECT_FALSE(ESCString("abc", 0));
}

TEST(ESCString, BlockHoldsLengthBytesAndNul) {
    const ESCString text(std::string("SENS:FREQ"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text.size(), 9u);
    EXPECT_EQ(StoredLength(text), 9u);
    EXPECT_EQ(text.data()[9], '\0');
    EXPECT_EQ(reinterpret_cast<uintptr_t>(text.data() - 4) % 4, 0u);
    EXPECT_EQ(text.str(), "SENS:FREQ");
}

TEST(ESCString, ByteCountLeavesTheBytesOpen) {
    ESCString text(size_t(3));
    EXPECT_EQ(text.size(), 3u);
    EXPECT_EQ(StoredLength(text), 3u);
    EXPECT_EQ(text.data()[3], '\0');
    text[0] = 'a';
    text[1] = 'b';
    text[2] = 'c';
    EXPECT_EQ(std::string_view(text), "abc");
    EXPECT_EQ(std::as_const(text)[1], 'b');
}

TEST(ESCString, KeepsEmbeddedNuls) {
    const std::string bytes("a\0b", 3);
    const ESCString text(bytes);
    EXPECT_EQ(text.size(), 3u);
    EXPECT_EQ(text.str(), bytes);
    EXPECT_NE(text, ESCString(std::string_view("a")));
}

TEST(ESCString, CopyIsDeepMoveSteals) {
    ESCString original(std::string_view("abc"));
    const ESCString copy(original);
    EXPECT_EQ(copy, original);
    EXPECT_NE(copy.data(), original.data());

    const char* block = original.data();
    ESCString moved(std::move(original));
    EXPECT_EQ(moved.data(), block);
    EXPECT_FALSE(original); // NOLINT: a moved-from string is empty

    ESCString assigned;
    assigned = copy;
    EXPECT_EQ(assigned, copy);
    EXPECT_NE(assigned.data(), copy.data());
    assigned = std::move(moved);
    EXPECT_EQ(assigned.data(), block);
    assigned = assigned;
    EXPECT_EQ(assigned.str(), "abc");
}

TEST(ESCString, EqualityComparesLengthThenBytes) {
    EXPECT_EQ(ESCString(std::string_view("abc")), ESCString(std::string("abc")));
    EXPECT_NE(ESCString(std::string_view("abc")), ESCString(std::string_view("abd")));
    EXPECT_NE(ESCString(std::string_view("abc")), ESCString(std::string_view("ab")));
    EXPECT_EQ(ESCString(), ESCString(std::string_view("")));
    EXPECT_NE(ESCString(), ESCString(std::string_view(" ")));
}

TEST(ESCString, Concatenation) {
    const ESCString a(std::string_view("FREQ"));
    const ESCString b(std::string_view(":CENT"));
    EXPECT_EQ((a + b).str(), "FREQ:CENT");
    EXPECT_EQ((a + ESCString()).str(), "FREQ");
    EXPECT_EQ((ESCString() + b).str(), ":CENT");
    EXPECT_FALSE(ESCString() + ESCString());

    ESCString sum(std::string_view("A"));
    const char* before = sum.data();
    sum += b;
    EXPECT_EQ(sum.str(), "A:CENT");
    EXPECT_NE(sum.data(), before); // a new block
    EXPECT_EQ(StoredLength(sum), 6u);
    sum += sum;
    EXPECT_EQ(sum.str(), "A:CENTA:CENT");
}

TEST(ESCString, VectorReallocationKeepsTheCharacters) {
    std::vector<ESCString> strings;
    strings.emplace_back(std::string_view("first"));
    const std::string_view view = strings[0];
    for (int i = 0; i < 100; ++i)
        strings.emplace_back(std::string(10, 'x'));
    EXPECT_EQ(view.data(), strings[0].data());
    EXPECT_EQ(view, "first");
}

} // namespace
} // namespace nrq
