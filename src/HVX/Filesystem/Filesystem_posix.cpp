#include "HVX/Filesystem/Filesystem.h"

#include "HVX/Base/Error.h"
#include "KnownFolders.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <algorithm>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nrq::fs {
namespace {

// The platform's limit for a search path, in characters.
constexpr size_t maxDirectoryPathLength = 257;

size_t CountCharacters(std::string_view utf8) {
    return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

bool IsAbsoluteSetting(const char* value) { return value && value[0] == '/'; }

std::string HomeFolder() {
    const char* home = std::getenv("HOME");
    if (IsAbsoluteSetting(home))
        return home;
    errno = 0;
    if (const passwd* entry = ::getpwuid(::getuid()); entry && IsAbsoluteSetting(entry->pw_dir))
        return entry->pw_dir;
    throw Error("Could not obtain known folder path: " + HVXGetSystemErrorMessage(errno ? errno : ENOENT));
}

std::string FirstDataDir() {
    const char* dirs = std::getenv("XDG_DATA_DIRS");
    if (dirs && *dirs) {
        std::string_view list(dirs);
        for (size_t start = 0; start <= list.size();) {
            size_t end = list.find(':', start);
            if (end == std::string_view::npos)
                end = list.size();
            std::string_view entry = list.substr(start, end - start);
            if (!entry.empty() && entry.front() == '/')
                return std::string(entry);
            start = end + 1;
        }
    }
    return "/usr/local/share";
}

Error DirectoryItemsFailure(std::string_view path, int code,
                            std::source_location loc = std::source_location::current()) {
    return Error(fmt::format("Failed to find directory items: \"{}\"\nReason: {}", path,
                             HVXGetSystemErrorMessage(code)), loc);
}

} // namespace

std::string KnownFolder(KnownFolderId id) {
    switch (id) {
    case KnownFolderId::RoamingData: {
        const char* dataHome = std::getenv("XDG_DATA_HOME");
        if (IsAbsoluteSetting(dataHome))
            return dataHome;
        return HomeFolder() + "/.local/share";
    }
    case KnownFolderId::ProgramData: return FirstDataDir();
    case KnownFolderId::Fonts: return "/usr/share/fonts";
    }
    throw Error("Could not obtain known folder path: " + HVXGetSystemErrorMessage(EINVAL));
}

void MakeDirectory(std::string_view path) {
    const std::string full(path);
    auto fail = [&](int code) {
        return Error(fmt::format("Failed to create save directory: {}\nFILE: {}",
                                 HVXGetSystemErrorMessage(code), path));
    };
    if (full.empty())
        throw fail(ENOENT);
    // Create each missing parent from the root down.
    for (size_t slash = full.find('/', 1);; slash = full.find('/', slash + 1)) {
        const std::string prefix = full.substr(0, slash);
        if (!prefix.empty() && !IsDirectory(prefix) && ::mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST)
            throw fail(errno);
        if (slash == std::string::npos)
            break;
    }
    if (!IsDirectory(full))
        throw fail(ENOTDIR);
}

void Delete(std::string_view path) {
    if (::unlink(std::string(path).c_str()) != 0)
        throw Error::SystemCode(errno);
}

bool IsDirectory(std::string_view path) {
    struct stat info {};
    return ::stat(std::string(path).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::vector<std::string> GetDirectoryItems(std::string_view path) {
    if (CountCharacters(path) > maxDirectoryPathLength)
        throw Error("Directory is too long");
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(std::string(path).c_str()), ::closedir);
    if (!dir)
        throw DirectoryItemsFailure(path, errno);
    std::vector<std::string> items;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());
        if (!entry)
            break;
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        items.emplace_back(name);
    }
    if (errno != 0)
        throw DirectoryItemsFailure(path, errno);
    return items;
}

} // namespace nrq::fs
