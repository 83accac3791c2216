#include "HVX/ESC/Store.h"

#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Base/StringUtil.h"
#include "HVX/ESC/FeaturesJson.h"
#include "HVX/Filesystem/Filesystem.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <mutex>

namespace nrq {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view noDirectoryMessage = "Failed to use SCPI feature map: no directory set";
constexpr std::string_view fileExtension = ".json";
constexpr size_t initialBuckets = 16;
constexpr int fileIndent = 2;

bool IsAsciiLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string_view FirstLettersAndDigits(std::string_view text) {
    const auto first = std::find_if(text.begin(), text.end(), IsAsciiLetterOrDigit);
    const auto end = std::find_if_not(first, text.end(), IsAsciiLetterOrDigit);
    return {first, end};
}

// Two instruments may end on the same name; nothing guards against it.
std::string GenerateFileName(std::string_view manufacturer, std::string_view serial) {
    std::string name = fmt::format("{}-{}", FirstLettersAndDigits(manufacturer), FirstLettersAndDigits(serial));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
    return name;
}

bool IsFeatureSetFileName(std::string_view name) {
    return name.size() >= fileExtension.size() && name.ends_with(fileExtension);
}

std::string EntryFileText(const ESCMapStoreKey& key, const ESCMapStoreEntry& entry) {
    Json file = Json::object();
    file["version"] = 1;
    file["manufacturer"] = key.manufacturer;
    file["serial_id"] = key.serial;
    to_json(file["feature_set"], entry.featureSet);
    return file.dump(fileIndent);
}

} // namespace

size_t ESCMapStoreKeyHash::operator()(const ESCMapStoreKey& key) const {
    return string_hash{}(key.serial) ^ string_hash{}(key.manufacturer);
}

ESCMapStore& ESCMapStore::GetInstance() {
    static ESCMapStore store;
    return store;
}

ESCMapStore::ESCMapStore() : entries(initialBuckets) {}

void ESCMapStore::SetDirectory(std::string_view path, bool noLoad) {
    try {
        fs::MakeDirectory(path);
    } catch (const std::exception& error) {
        Log::Error(fmt::format("Failed to create directory for feature sets: {}", error.what()));
        return;
    }
    std::unique_lock guard(lock);
    entries.clear();
    directory = path;
    Log::Output(fmt::format("Set SCPI feature set storage location to {}", directory));
    warned = false;
    if (!noLoad)
        LoadDirectory();
}

const std::string& ESCMapStore::GetDirectory() const {
    return directory;
}

void ESCMapStore::Reload() {
    // A copy: SetDirectory assigns the member from its argument.
    std::string current;
    {
        std::shared_lock guard(lock);
        current = directory;
    }
    SetDirectory(current, false);
}

void ESCMapStore::AddEntry(std::string_view manufacturer, std::string_view serial, std::string_view fileName,
                           const ESCFeatureSet& featureSet) {
    std::unique_lock guard(lock);
    AssertDirectory();
    auto entry = std::make_shared<ESCMapStoreEntry>(
        ESCMapStoreEntry{fileName.empty() ? GenerateFileName(manufacturer, serial) : std::string(fileName),
                         featureSet});
    ESCMapStoreKey key{std::string(manufacturer), std::string(serial)};
    if (const auto it = entries.find(key); it != entries.end()) {
        DeleteEntryFile(*it->second);
        it->second = entry;
    } else {
        entries.emplace(key, entry);
    }
    WriteEntryFile(key, *entry);
}

void ESCMapStore::RemoveEntry(std::string_view manufacturer, std::string_view serial) {
    std::unique_lock guard(lock);
    AssertDirectory();
    const auto it = entries.find(ESCMapStoreKey{std::string(manufacturer), std::string(serial)});
    if (it == entries.end())
        return;
    DeleteEntryFile(*it->second);
    entries.erase(it);
}

void ESCMapStore::ClearEntries() {
    std::unique_lock guard(lock);
    AssertDirectory();
    for (const auto& [key, entry] : entries)
        DeleteEntryFile(*entry);
    entries.clear();
}

std::shared_ptr<ESCMapStoreEntry> ESCMapStore::FindEntry(const ESCMapStoreKey& key) const {
    std::shared_lock guard(lock);
    const auto it = entries.find(key);
    return it == entries.end() ? nullptr : it->second;
}

std::shared_ptr<ESCMapStoreEntry> ESCMapStore::FindEntry(std::string_view manufacturer,
                                                         std::string_view serial) const {
    return FindEntry(ESCMapStoreKey{std::string(manufacturer), std::string(serial)});
}

std::vector<ESCMapStoreKey> ESCMapStore::GetEntryKeys() const {
    std::shared_lock guard(lock);
    std::vector<ESCMapStoreKey> keys;
    keys.reserve(entries.size());
    for (const auto& [key, entry] : entries)
        keys.push_back(key);
    return keys;
}

// Called with the write lock held.
void ESCMapStore::AssertDirectory() {
    if (!directory.empty())
        return;
    if (!warned) {
        Log::Error(noDirectoryMessage);
        warned = true;
    }
    throw Error(noDirectoryMessage);
}

void ESCMapStore::WriteEntryFile(const ESCMapStoreKey& key, const ESCMapStoreEntry& entry) {
    const std::string path = EntryPath(entry);
    try {
        fs::Write(path, EntryFileText(key, entry));
    } catch (const std::exception& error) {
        Log::Error(fmt::format("Failed to write feature set file {}: {}", path, error.what()));
    }
}

void ESCMapStore::WriteEntryFile(std::string_view manufacturer, std::string_view serial) {
    ESCMapStoreKey key{std::string(manufacturer), std::string(serial)};
    if (const auto it = entries.find(key); it != entries.end())
        WriteEntryFile(key, *it->second);
}

void ESCMapStore::DeleteEntryFile(const ESCMapStoreEntry& entry) {
    const std::string path = EntryPath(entry);
    try {
        fs::Delete(path);
    } catch (const std::exception& error) {
        Log::Error(fmt::format("Failed to delete feature set file {}: {}", path, error.what()));
    }
}

void ESCMapStore::DeleteEntryFile(std::string_view manufacturer, std::string_view serial) {
    const auto it = entries.find(ESCMapStoreKey{std::string(manufacturer), std::string(serial)});
    if (it != entries.end())
        DeleteEntryFile(*it->second);
}

// Called with the write lock held. A corrupt file costs its own entry only.
void ESCMapStore::LoadDirectory() {
    std::vector<std::string> items;
    try {
        items = fs::GetDirectoryItems(directory);
    } catch (const std::exception& error) {
        Log::Error(fmt::format("Failed to load feature set from {}: {}", directory, error.what()));
        return;
    }
    for (const std::string& item : items) {
        if (!IsFeatureSetFileName(item))
            continue;
        const std::string path = fmt::format("{}/{}", directory, item);
        try {
            const Json file = Json::parse(fs::Read(path));
            ESCMapStoreKey key{file.at("manufacturer").get<std::string>(), file.at("serial_id").get<std::string>()};
            auto entry = std::make_shared<ESCMapStoreEntry>();
            entry->fileName = item.substr(0, item.size() - fileExtension.size());
            from_json(file.at("feature_set"), entry->featureSet);
            entries.try_emplace(std::move(key), std::move(entry));
        } catch (const std::exception& error) {
            Log::Error(fmt::format("Failed to load feature set from {}: {}", path, error.what()));
        }
    }
}

std::string ESCMapStore::EntryPath(const ESCMapStoreEntry& entry) const {
    return fmt::format("{}/{}.json", directory, entry.fileName);
}

} // namespace nrq
