#include "HostFiles.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <unistd.h>

namespace halvex {

std::string ReadWholeFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    std::string bytes;
    char buffer[65536];
    size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof(buffer), file)) > 0)
        bytes.append(buffer, got);
    const bool failed = std::ferror(file) != 0;
    const int error = errno;
    std::fclose(file);
    if (failed)
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, std::strerror(error)));
    return bytes;
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
    const std::string temporary = fmt::format("{}.part{}", path, ::getpid());
    std::FILE* file = std::fopen(temporary.c_str(), "wb");
    if (!file)
        throw std::runtime_error(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const int writeError = errno;
    const bool closed = std::fclose(file) == 0;
    const int closeError = errno;
    if (!written || !closed) {
        std::remove(temporary.c_str());
        throw std::runtime_error(
            fmt::format("cannot write {}: {}", path, std::strerror(!written ? writeError : closeError)));
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(temporary.c_str());
        throw std::runtime_error(fmt::format("cannot write {}: {}", path, std::strerror(error)));
    }
}

} // namespace halvex
