#include "HVX/ESC/SCPI/State.h"

#include <cstdint>
#include <stdexcept>

namespace nrq {
namespace {

constexpr size_t alignment = 64;
// Room for the wide byte shuffles to run past the data.
constexpr size_t spareBytes = 128;

} // namespace

uint8_t* SCPIAlignedBuffer::Reserve(size_t size) {
    if (size > SIZE_MAX - spareBytes - alignment)
        throw std::length_error("aligned buffer size out of range");
    const size_t needed = size + spareBytes + alignment;
    if (storage.size() < needed)
        storage.resize(needed);
    const auto address = reinterpret_cast<uintptr_t>(storage.data());
    data = storage.data() + ((alignment - address % alignment) % alignment);
    return data;
}

} // namespace nrq
