#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nrq {

// The string of the S1 language: one pointer to a block holding a 32-bit
// length, the bytes and a NUL, or null for the empty string. Being a single
// pointer keeps values small and lets vectors of strings reallocate without
// moving the characters, which the byte code's string table relies on.
class ESCString {
public:
    ESCString() noexcept = default;
    // Leaves the bytes unwritten for the caller to fill.
    explicit ESCString(size_t count);
    ESCString(const std::string& text) : ESCString(text.data(), text.size()) {}
    ESCString(const char* text, size_t length);
    ESCString(std::string_view text) : ESCString(text.data(), text.size()) {}
    ESCString(const ESCString& other) : ESCString(other.data(), other.size()) {}
    ESCString(ESCString&& other) noexcept : block(other.block) { other.block = nullptr; }
    ~ESCString();

    ESCString& operator=(const ESCString& other);
    ESCString& operator=(ESCString&& other) noexcept;

    friend bool operator==(const ESCString& a, const ESCString& b) noexcept;
    friend bool operator!=(const ESCString& a, const ESCString& b) noexcept { return !(a == b); }

    char& operator[](size_t index) { return block[CHAR_OFFSET + index]; }
    const char& operator[](size_t index) const { return block[CHAR_OFFSET + index]; }

    operator std::string_view() const noexcept { return {data(), size()}; }
    explicit operator bool() const noexcept { return block != nullptr; }

    ESCString operator+(const ESCString& other) const;
    ESCString& operator+=(const ESCString& other);

    // Never null: the empty string gives "".
    char* data() noexcept { return block ? block + CHAR_OFFSET : emptyText; }
    const char* data() const noexcept { return block ? block + CHAR_OFFSET : emptyText; }
    size_t size() const noexcept;
    std::string str() const { return std::string(data(), size()); }

private:
    static constexpr size_t CHAR_OFFSET = 4;
    static char emptyText[1];

    void Release() noexcept;

    char* block = nullptr;
};

static_assert(sizeof(ESCString) == sizeof(void*));

} // namespace nrq
