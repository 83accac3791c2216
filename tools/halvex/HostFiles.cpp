#include "HostFiles.h"

#include "Command.h"
#include "Progress.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace halvex {
namespace {

namespace stdfs = std::filesystem;

std::string SystemReason(int code) { return std::strerror(code); }

bool WriteAll(std::FILE* file, std::string_view bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

void WriteToStandardOutput(std::string_view bytes) {
    if (!WriteAll(stdout, bytes) || std::fflush(stdout) != 0)
        throw FileError("-", SystemReason(errno), true);
}

// The folder a new file goes into: "." for a bare name.
stdfs::path FolderOf(const std::string& path) {
    const stdfs::path parent = stdfs::path(path).parent_path();
    return parent.empty() ? stdfs::path(".") : parent;
}

void CheckOneOutput(const Output& output) {
    const stdfs::path target(output.path);
    std::error_code error;
    if (stdfs::is_directory(target, error))
        throw UsageError{fmt::format("{}: {} is a folder; give a file name", output.option, output.path)};
    const stdfs::path folder = FolderOf(output.path);
    const stdfs::file_status status = stdfs::status(folder, error);
    if (status.type() == stdfs::file_type::not_found)
        throw UsageError{fmt::format("{}: the folder {} does not exist", output.option, folder.string())};
    if (!error && status.type() != stdfs::file_type::directory)
        throw UsageError{fmt::format("{}: {} is not a folder", output.option, folder.string())};
    // Writing a probe is the one test that sees read-only mounts and ACLs alike.
    const std::string probe = fmt::format("{}.probe{}", output.path, ::getpid());
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        throw UsageError{fmt::format("{}: cannot write {}: {}", output.option, output.path, SystemReason(errno))};
    ::close(fd);
    ::unlink(probe.c_str());
}

// Two names of one file: equal once made absolute, with links resolved.
bool SameFile(const std::string& a, const std::string& b) {
    if (a == "-" || b == "-")
        return a == b;
    std::error_code error;
    if (stdfs::equivalent(a, b, error))
        return true;
    const stdfs::path first = stdfs::weakly_canonical(stdfs::absolute(a), error);
    const stdfs::path second = stdfs::weakly_canonical(stdfs::absolute(b), error);
    return !error && first == second;
}

std::vector<stdfs::path> RescueFolders() {
    std::vector<stdfs::path> folders;
    std::error_code error;
    const stdfs::path temporary = stdfs::temp_directory_path(error);
    if (!error)
        folders.push_back(temporary);
    if (const char* home = std::getenv("HOME"); home && *home)
        folders.emplace_back(home);
    return folders;
}

std::string RescueName(const std::string& path) {
    const std::time_t now = std::time(nullptr);
    return fmt::format("halvex-rescue-{:%Y%m%d-%H%M%S}-{}-{}", fmt::localtime(now), ::getpid(),
                       stdfs::path(path).filename().string());
}

} // namespace

FileError::FileError(std::string path, std::string reason, bool writing)
    : std::runtime_error(fmt::format("cannot {} {}: {}", writing ? "write" : "read", ShownName(path, writing),
                                     reason)),
      path(std::move(path)), reason(std::move(reason)) {}

std::string ShownName(const std::string& path, bool writing) {
    if (path == "-")
        return writing ? "standard output" : "standard input";
    return path;
}

InputFile::InputFile(const std::string& path) : path(path) {
    if (path == "-") {
        file = stdin;
        return;
    }
    file = std::fopen(path.c_str(), "rb");
    if (!file)
        throw FileError(path, SystemReason(errno), false);
    struct stat info {};
    if (::fstat(::fileno(file), &info) == 0) {
        if (S_ISDIR(info.st_mode)) {
            std::fclose(file);
            file = nullptr;
            throw FileError(path, SystemReason(EISDIR), false);
        }
        if (S_ISREG(info.st_mode))
            size = static_cast<int64_t>(info.st_size);
    }
}

InputFile::~InputFile() {
    if (file && file != stdin)
        std::fclose(file);
}

std::string InputFile::Read(size_t wanted) {
    std::string bytes;
    char buffer[65536];
    while (bytes.size() < wanted) {
        const size_t got = std::fread(buffer, 1, std::min(sizeof(buffer), wanted - bytes.size()), file);
        bytes.append(buffer, got);
        if (got == 0)
            break;
    }
    if (std::ferror(file))
        throw FileError(path, SystemReason(errno), false);
    return bytes;
}

std::string ReadWholeFile(const std::string& path) {
    InputFile input(path);
    std::string bytes;
    if (input.Size() > 0)
        bytes.reserve(static_cast<size_t>(input.Size()));
    for (std::string piece = input.Read(1 << 20); !piece.empty(); piece = input.Read(1 << 20))
        bytes += piece;
    return bytes;
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
    if (path == "-") {
        WriteToStandardOutput(bytes);
        return;
    }
    const std::string temporary = fmt::format("{}.part{}", path, ::getpid());
    std::FILE* file = std::fopen(temporary.c_str(), "wb");
    if (!file)
        throw FileError(path, SystemReason(errno), true);
    const bool written = WriteAll(file, bytes) && std::fflush(file) == 0;
    const int writeError = errno;
    const bool closed = std::fclose(file) == 0;
    const int closeError = errno;
    if (!written || !closed) {
        std::remove(temporary.c_str());
        throw FileError(path, SystemReason(!written ? writeError : closeError), true);
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(temporary.c_str());
        throw FileError(path, SystemReason(error), true);
    }
}

void CheckOutputs(const std::vector<Output>& outputs, const std::vector<std::string>& inputs) {
    for (size_t i = 0; i < outputs.size(); ++i) {
        for (const std::string& input : inputs)
            if (input != "-" && SameFile(outputs[i].path, input))
                throw UsageError{fmt::format("{}: {} is the input file itself", outputs[i].option, outputs[i].path)};
        for (size_t j = 0; j < i; ++j)
            if (SameFile(outputs[i].path, outputs[j].path))
                throw UsageError{fmt::format("{} and {} name the same file {}", outputs[j].option, outputs[i].option,
                                             ShownName(outputs[i].path, true))};
        if (outputs[i].path != "-")
            CheckOneOutput(outputs[i]);
    }
}

void CheckRoom(const Output& output, uint64_t bytes) {
    if (output.path == "-")
        return;
    struct statvfs space {};
    if (::statvfs(FolderOf(output.path).c_str(), &space) != 0)
        return;
    const uint64_t free = static_cast<uint64_t>(space.f_bavail) * space.f_frsize;
    if (bytes > free)
        throw UsageError{fmt::format("{}: {} has room for {}, and {} needs about {}", output.option,
                                     FolderOf(output.path).string(), FormatBytes(free), output.path, FormatBytes(bytes))};
}

std::string WriteWithRescue(const std::string& path, std::string_view bytes, std::string_view what) {
    try {
        WriteWholeFile(path, bytes);
        return path;
    } catch (const FileError& failure) {
        for (const stdfs::path& folder : RescueFolders()) {
            const std::string rescue = (folder / RescueName(path)).string();
            try {
                WriteWholeFile(rescue, bytes);
                PrintError(fmt::format("{}; {} was saved as {} instead", failure.what(), what, rescue));
                return rescue;
            } catch (const FileError&) {
            }
        }
        PrintError(fmt::format("{}, nor into a rescue folder: {} is lost", failure.what(), what));
        return {};
    }
}

} // namespace halvex
