#include "FeatureStore.h"

#include "HostFiles.h"
#include "Library.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace halvex {
namespace {

bool SameIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::toupper(x) == std::toupper(y);
           });
}

} // namespace

std::string DefaultStoreFolder() { return ExpectedDataFolder() + "/FeatureSets"; }

void AddStoreOption(CLI::App& command, std::string& folder) {
    folder = DefaultStoreFolder();
    command.add_option("--store", folder, "the folder of the stored feature sets (default: FeatureSets in the data folder)")
        ->type_name("DIR");
}

void OpenStore(const std::string& folder) {
    std::error_code reason;
    std::filesystem::create_directories(folder, reason);
    if (!reason && !std::filesystem::is_directory(folder, reason))
        reason = std::make_error_code(std::errc::not_a_directory);
    if (reason)
        throw FileError(folder, reason.message(), true);
    StartLibrary();
    nrq::ESCMapStore::GetInstance().SetDirectory(folder, false);
}

std::vector<StoreItem> StoreItems() {
    nrq::ESCMapStore& store = nrq::ESCMapStore::GetInstance();
    std::vector<StoreItem> items;
    for (nrq::ESCMapStoreKey& key : store.GetEntryKeys())
        if (auto entry = store.FindEntry(key))
            items.push_back({std::move(key), std::move(entry)});
    std::sort(items.begin(), items.end(), [](const StoreItem& a, const StoreItem& b) {
        return std::tie(a.entry->fileName, a.key.manufacturer, a.key.serial) <
               std::tie(b.entry->fileName, b.key.manufacturer, b.key.serial);
    });
    return items;
}

StoreItem FindStoreItem(const std::vector<std::string>& name, const std::string& folder) {
    if (name.size() == 2) {
        if (auto entry = nrq::ESCMapStore::GetInstance().FindEntry(name[0], name[1]))
            return {{name[0], name[1]}, std::move(entry)};
        throw std::runtime_error(
            fmt::format("no feature set for manufacturer '{}', serial '{}' in {}", name[0], name[1], folder));
    }
    for (StoreItem& item : StoreItems())
        if (SameIgnoringCase(item.entry->fileName, name.at(0)))
            return item;
    throw std::runtime_error(fmt::format("no feature set named '{}' in {}", name.at(0), folder));
}

} // namespace halvex
