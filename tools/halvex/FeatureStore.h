#pragma once

// Where the host keeps the feature sets of SCPI instruments, and finding one.

#include <HVX/ESC/Store.h>

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace halvex {

// "FeatureSets" in the data folder.
std::string DefaultStoreFolder();

// Adds --store DIR, bound to `folder`, which starts as the default.
void AddStoreOption(CLI::App& command, std::string& folder);

// Makes the folder if needed and loads the store from it; the library runs
// afterwards. Raises a FileError that names the folder when it is unusable.
void OpenStore(const std::string& folder);

struct StoreItem {
    nrq::ESCMapStoreKey key;
    std::shared_ptr<nrq::ESCMapStoreEntry> entry;
};

// Every entry, by file name.
std::vector<StoreItem> StoreItems();

// By file name (any case) for one word, by manufacturer and serial for two.
// Raises a runtime_error naming what was asked and the folder when nothing matches.
StoreItem FindStoreItem(const std::vector<std::string>& name, const std::string& folder);

} // namespace halvex
