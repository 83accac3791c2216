#include "HVX/ESC/String.h"

#include "HVX/Base/Error.h"

#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace nrq {
namespace {

constexpr std::align_val_t blockAlignment{4};

} // namespace

char ESCString::emptyText[1] = {};

ESCString::ESCString(size_t count) {
    if (count == 0)
        return;
    if (count > std::numeric_limits<uint32_t>::max())
        throw Error("String too long");
    // operator new raises std::bad_alloc on failure.
    block = static_cast<char*>(::operator new(count + CHAR_OFFSET + 1, blockAlignment));
    const uint32_t length = static_cast<uint32_t>(count);
    std::memcpy(block, &length, sizeof(length));
    block[CHAR_OFFSET + count] = '\0';
}

ESCString::ESCString(const char* text, size_t length) : ESCString(length) {
    if (length != 0)
        std::memcpy(block + CHAR_OFFSET, text, length);
}

ESCString::~ESCString() { Release(); }

void ESCString::Release() noexcept {
    if (block)
        ::operator delete(block, blockAlignment);
    block = nullptr;
}

ESCString& ESCString::operator=(const ESCString& other) {
    if (this != &other)
        *this = ESCString(other);
    return *this;
}

ESCString& ESCString::operator=(ESCString&& other) noexcept {
    if (this != &other) {
        Release();
        block = std::exchange(other.block, nullptr);
    }
    return *this;
}

size_t ESCString::size() const noexcept {
    if (!block)
        return 0;
    uint32_t length;
    std::memcpy(&length, block, sizeof(length));
    return length;
}

bool operator==(const ESCString& a, const ESCString& b) noexcept {
    const size_t length = a.size();
    return length == b.size() && std::memcmp(a.data(), b.data(), length) == 0;
}

ESCString ESCString::operator+(const ESCString& other) const {
    const size_t left = size();
    const size_t right = other.size();
    ESCString sum(left + right);
    if (left != 0)
        std::memcpy(sum.data(), data(), left);
    if (right != 0)
        std::memcpy(sum.data() + left, other.data(), right);
    return sum;
}

ESCString& ESCString::operator+=(const ESCString& other) {
    *this = *this + other;
    return *this;
}

} // namespace nrq
