#include "HVX/Filesystem/File.h"

#include "HVX/Base/Error.h"

#include <fmt/format.h>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nrq {
namespace {

int OpenFlags(FileMode mode) {
    switch (mode) {
    case FileMode::Read: return O_RDONLY | O_CLOEXEC;
    case FileMode::Write: return O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    case FileMode::WriteNew: return O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    default: return -1;
    }
}

Error ReadFailure(int code, std::string_view path,
                  std::source_location loc = std::source_location::current()) {
    return Error(fmt::format("Failed to read file: {}\nFILE: {}", HVXGetSystemErrorMessage(code), path), loc);
}

Error WriteFailure(int code, std::string_view path,
                   std::source_location loc = std::source_location::current()) {
    return Error(fmt::format("Failed to write file: {}\nFILE: {}", HVXGetSystemErrorMessage(code), path), loc);
}

} // namespace

void File::Open(FileMode newMode) {
    const std::string invalidModeText = fmt::format("invalid file mode ({})", static_cast<int>(newMode));
    Assert(newMode != FileMode::None, invalidModeText);
    Close();
    const int flags = OpenFlags(newMode);
    const int fd = flags == -1 ? -1 : ::open(path.c_str(), flags, 0644);
    if (fd < 0) {
        error = HVXGetSystemErrorMessage(errno);
        throw Error(fmt::format("Failed to open file with path: \"{}\"", path));
    }
    handle = fd;
    mode = newMode;
}

void File::Close() {
    if (handle != invalidHandle) {
        ::close(static_cast<int>(handle));
        handle = invalidHandle;
    }
    mode = FileMode::None;
}

bool File::IsOpen() const { return handle != invalidHandle; }

size_t File::GetSize() const {
    struct stat info {};
    const int result = IsOpen() ? ::fstat(static_cast<int>(handle), &info) : ::stat(path.c_str(), &info);
    if (result != 0)
        throw ReadFailure(errno, path);
    return static_cast<size_t>(info.st_size);
}

size_t File::GetPosition() const {
    const off_t position = ::lseek(static_cast<int>(handle), 0, SEEK_CUR);
    if (position < 0)
        throw ReadFailure(errno, path);
    return static_cast<size_t>(position);
}

void File::SetPosition(size_t position) {
    if (::lseek(static_cast<int>(handle), static_cast<off_t>(position), SEEK_SET) < 0)
        throw WriteFailure(errno, path);
}

size_t File::Read(void* buffer, size_t size) {
    if (size == 0)
        size = GetSize() - GetPosition();
    auto* bytes = static_cast<char*>(buffer);
    size_t total = 0;
    while (total < size) {
        const ssize_t got = ::read(static_cast<int>(handle), bytes + total, size - total);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            error = HVXGetSystemErrorMessage(errno);
            throw ReadFailure(errno, path);
        }
        if (got == 0)
            break;
        total += static_cast<size_t>(got);
    }
    return total;
}

void File::Write(const void* buffer, size_t size) {
    const auto* bytes = static_cast<const char*>(buffer);
    size_t total = 0;
    while (total < size) {
        const ssize_t put = ::write(static_cast<int>(handle), bytes + total, size - total);
        if (put < 0) {
            if (errno == EINTR)
                continue;
            error = HVXGetSystemErrorMessage(errno);
            throw WriteFailure(errno, path);
        }
        total += static_cast<size_t>(put);
    }
}

std::string File::GetWorkingDirectory() {
    std::string buffer(PATH_MAX, '\0');
    if (!::getcwd(buffer.data(), buffer.size()))
        throw Error::SystemCode(errno);
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    return buffer;
}

void File::SetWorkingDirectory(std::string_view path) {
    if (::chdir(std::string(path).c_str()) != 0)
        throw Error::SystemCode(errno);
}

} // namespace nrq
