#include "HVX/Filesystem/File.h"

#include "HVX/Base/Error.h"

#include <fmt/format.h>

#include <utility>

namespace nrq {

File::File() = default;

File::File(std::string_view path) : path(path) {}

File::File(std::string_view path, FileMode mode) : path(path) { Open(mode); }

// A copy names the same file but opens nothing.
File::File(const File& other) : path(other.path) {}

File::File(File&& other) noexcept
    : path(std::move(other.path)), handle(std::exchange(other.handle, invalidHandle)),
      mode(std::exchange(other.mode, FileMode::None)), error(std::move(other.error)) {}

File& File::operator=(const File& other) {
    if (this != &other) {
        Close();
        path = other.path;
        error.clear();
    }
    return *this;
}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        Close();
        path = std::move(other.path);
        handle = std::exchange(other.handle, invalidHandle);
        mode = std::exchange(other.mode, FileMode::None);
        error = std::move(other.error);
    }
    return *this;
}

File::~File() { Close(); }

std::string File::GetError() { return std::exchange(error, std::string()); }

bool File::ReachedEOF() const { return GetPosition() >= GetSize(); }

std::string File::Read(size_t size) {
    if (size == 0)
        size = GetSize() - GetPosition();
    std::string data(size, '\0');
    data.resize(Read(data.data(), size));
    return data;
}

void File::Write(std::string_view data) { Write(data.data(), data.size()); }

std::string File::Read(std::string_view path, size_t size) {
    File file(path, FileMode::Read);
    return file.Read(size);
}

void File::Write(std::string_view path, std::string_view data) {
    File file(path, FileMode::Write);
    file.Write(data);
    file.Close();
}

} // namespace nrq
