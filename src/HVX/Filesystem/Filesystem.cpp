#include "HVX/Filesystem/Filesystem.h"

#include "HVX/Filesystem/File.h"
#include "KnownFolders.h"

#include <fmt/format.h>

#include <algorithm>

namespace nrq::fs {
namespace {

std::string ProductFolder(std::string base, std::string_view product) {
    std::replace(base.begin(), base.end(), '\\', '/');
    return fmt::format("{}/Nerquil Labs/{}", base, product);
}

std::string PlainFolder(std::string base) {
    std::replace(base.begin(), base.end(), '\\', '/');
    return base;
}

} // namespace

std::string Read(std::string_view path) {
    File file(path, FileMode::Read);
    const size_t size = file.GetSize();
    std::string data = file.Read(size);
    file.Close();
    return data;
}

void Write(std::string_view path, std::string_view data) { File::Write(path, data); }

const std::string_view GetHVX1DataDirectory() {
    static const std::string folder = ProductFolder(KnownFolder(KnownFolderId::RoamingData), "Halvex");
    return folder;
}

const std::string_view GetUserSaveDataDirectory() {
    static const std::string folder = ProductFolder(KnownFolder(KnownFolderId::RoamingData), "Halvex2");
    return folder;
}

const std::string_view GetSaveDataDirectory() {
    static const std::string folder = ProductFolder(KnownFolder(KnownFolderId::ProgramData), "Halvex2");
    return folder;
}

const std::string_view GetFontDirectory() {
    static const std::string folder = PlainFolder(KnownFolder(KnownFolderId::Fonts));
    return folder;
}

} // namespace nrq::fs
