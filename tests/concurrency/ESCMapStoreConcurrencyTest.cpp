#include "HVX/ESC/Store.h"
#include "support/ESCMapStoreAccess.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace nrq {
namespace {

constexpr size_t replacements = 60;
constexpr int readers = 2;

// Set k holds k features and is filed as "set-k", so a reader can tell a torn entry.
ESCFeatureSet MakeSet(size_t k) {
    ESCFeatureSet set;
    set.features.resize(k);
    for (size_t i = 0; i < k; ++i)
        set.features[i].label = "feature " + std::to_string(i);
    return set;
}

bool IsWhole(const ESCMapStoreEntry& entry) {
    return entry.fileName == "set-" + std::to_string(entry.featureSet.features.size());
}

TEST(ESCMapStoreConcurrency, ReadersSeeWholeEntriesWhileAWriterReplacesThem) {
    auto store = ESCMapStoreTestAccess::MakeStore();
    store->SetDirectory(test::MakeTempDir("store-threads").string(), true);
    store->AddEntry("Alpha", "1", "set-0", MakeSet(0));

    std::latch start(readers + 1);
    std::atomic<bool> writing{true};
    std::atomic<int> tornEntries{0};
    std::atomic<int> missingEntries{0};
    std::vector<std::thread> threads;
    for (int r = 0; r < readers; ++r) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            do {
                const auto entry = store->FindEntry("Alpha", "1");
                if (!entry)
                    ++missingEntries;
                else if (!IsWhole(*entry))
                    ++tornEntries;
                if (store->GetEntryKeys().size() != 1)
                    ++missingEntries;
            } while (writing.load());
        });
    }
    start.arrive_and_wait();
    const auto first = store->FindEntry("Alpha", "1");
    for (size_t k = 1; k <= replacements; ++k)
        store->AddEntry("Alpha", "1", "set-" + std::to_string(k), MakeSet(k));
    writing = false;
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(tornEntries.load(), 0);
    EXPECT_EQ(missingEntries.load(), 0);
    // The first reader's entry outlived all its replacements.
    EXPECT_EQ(first->fileName, "set-0");
    EXPECT_TRUE(IsWhole(*store->FindEntry("Alpha", "1")));
    EXPECT_EQ(store->FindEntry("Alpha", "1")->featureSet.features.size(), replacements);
}

} // namespace
} // namespace nrq
