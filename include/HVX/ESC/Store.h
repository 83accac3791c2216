#pragma once

#include "HVX/ESC/Features.h"

#include <cstddef>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace nrq {

// Who an instrument says it is in its identification reply.
struct ESCMapStoreKey {
    std::string manufacturer;
    std::string serial;

    bool operator==(const ESCMapStoreKey&) const = default;
};

// FNV-1a of the serial, exclusive-or'ed with FNV-1a of the manufacturer.
struct ESCMapStoreKeyHash {
    size_t operator()(const ESCMapStoreKey& key) const;
};

struct ESCMapStoreEntry {
    // Without directory and extension.
    std::string fileName;
    ESCFeatureSet featureSet;
};

// The feature sets of known instruments, one JSON file each in a directory
// that the host names. File faults are logged, never raised; only a missing
// directory raises, from the operations that change the store.
class ESCMapStore {
public:
    static ESCMapStore& GetInstance();

    ESCMapStore(const ESCMapStore&) = delete;
    ESCMapStore& operator=(const ESCMapStore&) = delete;

    // Forgets all entries, then loads every "*.json" of the folder unless noLoad.
    void SetDirectory(std::string_view path, bool noLoad);
    // A reference to the member: read it while no other thread sets the directory.
    const std::string& GetDirectory() const;
    void Reload();

    // An empty fileName makes one from the manufacturer and the serial.
    void AddEntry(std::string_view manufacturer, std::string_view serial, std::string_view fileName,
                  const ESCFeatureSet& featureSet);
    void RemoveEntry(std::string_view manufacturer, std::string_view serial);
    void ClearEntries();

    // The pointer keeps an entry alive for its reader while the store replaces it.
    std::shared_ptr<ESCMapStoreEntry> FindEntry(const ESCMapStoreKey& key) const;
    std::shared_ptr<ESCMapStoreEntry> FindEntry(std::string_view manufacturer, std::string_view serial) const;
    std::vector<ESCMapStoreKey> GetEntryKeys() const;

private:
    friend class ESCMapStoreTestAccess;

    ESCMapStore();

    void AssertDirectory();
    void WriteEntryFile(const ESCMapStoreKey& key, const ESCMapStoreEntry& entry);
    void WriteEntryFile(std::string_view manufacturer, std::string_view serial);
    void DeleteEntryFile(const ESCMapStoreEntry& entry);
    void DeleteEntryFile(std::string_view manufacturer, std::string_view serial);
    void LoadDirectory();
    std::string EntryPath(const ESCMapStoreEntry& entry) const;

    std::string directory;
    std::unordered_map<ESCMapStoreKey, std::shared_ptr<ESCMapStoreEntry>, ESCMapStoreKeyHash> entries;
    mutable std::shared_mutex lock;
    bool warned = false;
};

} // namespace nrq
