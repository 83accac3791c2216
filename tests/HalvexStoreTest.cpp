// halvex store as a process, over a store folder that the library itself wrote.
#include "support/HalvexProcess.h"
#include "support/TestEnvironment.h"

#include "HVX/ESC/Features.h"
#include "HVX/ESC/Store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#ifdef HVX_HALVEX_PATH

namespace nrq {
namespace {

using test::Halvex;
using test::Outcome;
using test::Quote;

ESCFeatureSet SmallSet() {
    ESCFeatureSet set;
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    ESCFeature center;
    center.label = "Frequency Center";
    center.command = "\"FREQ:CENT \" FrequencyCenter";
    center.type = ESCFeatureType::FrequencyCenter;
    center.values = {Frequency(1e9)};
    center.modes = 1;
    ESCFeature sweep;
    sweep.label = "Sweep";
    sweep.command = "\"INIT:IMM\"";
    sweep.type = ESCFeatureType::SweepInit;
    sweep.modes = 1;
    set.features = {center, sweep};
    set.blockFormat = {SCPIDataBlockType::LengthPrefixedBinary, SCPIValueFormat::NativeFloat32, -1};
    return set;
}

// A folder with the sets "ALPHA-XY12" and "ZULU-9", written by the library.
std::filesystem::path StoreWithTwoSets() {
    const auto dir = test::MakeTempDir("halvex-store");
    ESCMapStore& store = ESCMapStore::GetInstance();
    store.SetDirectory(dir.string(), true);
    store.AddEntry("Alpha Beta", "Xy12-34", "", SmallSet());
    ESCFeatureSet other = SmallSet();
    other.features.pop_back();
    store.AddEntry("Zulu", "9", "", other);
    // Points the process's store elsewhere; the files stay.
    store.SetDirectory(test::MakeTempDir("halvex-store-elsewhere").string(), true);
    return dir;
}

std::string StoreOption(const std::filesystem::path& dir) { return " --store " + Quote(dir); }

TEST(HalvexStore, ListsOneLinePerSetByName) {
    const auto dir = StoreWithTwoSets();
    const Outcome list = Halvex("store list" + StoreOption(dir));
    EXPECT_EQ(list.code, 0);
    EXPECT_EQ(list.output, "ALPHA-XY12: Alpha Beta, serial Xy12-34, 2 features\n"
                           "ZULU-9: Zulu, serial 9, 1 feature\n");
}

TEST(HalvexStore, AnEmptyStoreSaysSoAndNamesItsFolder) {
    const auto dir = test::MakeTempDir("halvex-store-empty") / "sets";
    const Outcome list = Halvex("store list" + StoreOption(dir));
    EXPECT_EQ(list.code, 0);
    EXPECT_EQ(list.output, "no feature sets in " + dir.string() + "\n");
    EXPECT_TRUE(std::filesystem::is_directory(dir));
}

TEST(HalvexStore, ShowPrintsTheSetAsItsFileHoldsIt) {
    const auto dir = StoreWithTwoSets();
    const std::string file = test::ReadFileBytes(dir / "ALPHA-XY12.json");
    for (const std::string name : {"ALPHA-XY12", "alpha-xy12", "'Alpha Beta' Xy12-34"}) {
        const Outcome show = Halvex("store show " + name + StoreOption(dir));
        EXPECT_EQ(show.code, 0) << name;
        EXPECT_EQ(show.output, file + "\n") << name;
    }
}

TEST(HalvexStore, RemoveDeletesTheFileAndSaysWhat) {
    const auto dir = StoreWithTwoSets();
    const Outcome removed = Halvex("store remove zulu-9" + StoreOption(dir));
    EXPECT_EQ(removed.code, 0);
    EXPECT_EQ(removed.output, "removed ZULU-9 (Zulu, serial 9) from " + dir.string() + "\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "ZULU-9.json"));
    EXPECT_TRUE(std::filesystem::exists(dir / "ALPHA-XY12.json"));
    EXPECT_EQ(Halvex("store list" + StoreOption(dir)).output, "ALPHA-XY12: Alpha Beta, serial Xy12-34, 2 features\n");
}

TEST(HalvexStore, AnUnknownSetIsOneLineThatNamesTheFolder) {
    const auto dir = StoreWithTwoSets();
    const Outcome byName = Halvex("store show NOPE" + StoreOption(dir));
    EXPECT_EQ(byName.code, 1);
    EXPECT_EQ(byName.output, "halvex: no feature set named 'NOPE' in " + dir.string() + "\n");
    const Outcome byKey = Halvex("store remove Zulu 10" + StoreOption(dir));
    EXPECT_EQ(byKey.code, 1);
    EXPECT_EQ(byKey.output, "halvex: no feature set for manufacturer 'Zulu', serial '10' in " + dir.string() + "\n");
    EXPECT_TRUE(std::filesystem::exists(dir / "ZULU-9.json"));
}

TEST(HalvexStore, WrongCommandLinesAreRefusedBeforeTheStoreIsTouched) {
    const auto dir = test::MakeTempDir("halvex-store-untouched") / "sets";
    const Outcome bad = Halvex("store frob" + StoreOption(dir));
    EXPECT_EQ(bad.code, 2);
    EXPECT_EQ(bad.output, "halvex: ACTION: takes list, show, remove or add, not 'frob'\nTry 'halvex store --help'.\n");
    const Outcome nameless = Halvex("store show" + StoreOption(dir));
    EXPECT_EQ(nameless.code, 2);
    EXPECT_EQ(nameless.output, "halvex: store show needs NAME, or MANUFACTURER SERIAL\nTry 'halvex store --help'.\n");
    const Outcome listWithName = Halvex("store list X" + StoreOption(dir));
    EXPECT_EQ(listWithName.code, 2);
    EXPECT_EQ(listWithName.output, "halvex: store list takes no name, not 'X'\nTry 'halvex store --help'.\n");
    EXPECT_FALSE(std::filesystem::exists(dir));
}

TEST(HalvexStore, AFolderThatIsAFileIsNamed) {
    const auto dir = test::MakeTempDir("halvex-store-file");
    test::WriteFileBytes(dir / "sets", "not a folder");
    const Outcome list = Halvex("store list" + StoreOption(dir / "sets"));
    EXPECT_EQ(list.code, 1);
    EXPECT_EQ(list.output.rfind("halvex: cannot write " + (dir / "sets").string() + ": ", 0), 0u) << list.output;
}

TEST(HalvexStore, ADamagedFileCostsOnlyItsOwnSet) {
    const auto dir = StoreWithTwoSets();
    test::WriteFileBytes(dir / "BROKEN.json", "{\"version\": 1, \"manufacturer\": 7}");
    const Outcome list = Halvex("store list" + StoreOption(dir));
    EXPECT_EQ(list.code, 0);
    EXPECT_EQ(list.output, "ALPHA-XY12: Alpha Beta, serial Xy12-34, 2 features\n"
                           "ZULU-9: Zulu, serial 9, 1 feature\n");
}

TEST(HalvexStore, AddTakesWhatShowPrintsIntoAnotherStore) {
    const auto from = StoreWithTwoSets();
    const auto to = test::MakeTempDir("halvex-store-to");
    const auto file = test::MakeTempDir("halvex-store-file") / "set.json";
    test::WriteFileBytes(file, Halvex("store show ALPHA-XY12" + StoreOption(from)).output);
    const Outcome added = Halvex("store add " + Quote(file) + StoreOption(to));
    EXPECT_EQ(added.code, 0) << added.output;
    EXPECT_EQ(added.output, "added ALPHA-XY12 (Alpha Beta, serial Xy12-34) in " + to.string() + "\n");
    EXPECT_EQ(test::ReadFileBytes(to / "ALPHA-XY12.json"), test::ReadFileBytes(from / "ALPHA-XY12.json"));
    const Outcome again = Halvex("store add " + Quote(file) + StoreOption(to));
    EXPECT_EQ(again.output, "replaced ALPHA-XY12 (Alpha Beta, serial Xy12-34) in " + to.string() + "\n");
}

TEST(HalvexStore, AddRefusesAFileThatIsNoFeatureSet) {
    const auto store = test::MakeTempDir("halvex-store-refusing");
    const auto dir = test::MakeTempDir("halvex-store-bad");
    test::WriteFileBytes(dir / "types.json", "{\"version\": 1, \"manufacturer\": 7, \"serial_id\": \"1\"}");
    const Outcome types = Halvex("store add " + Quote(dir / "types.json") + StoreOption(store));
    EXPECT_EQ(types.code, 1);
    EXPECT_EQ(types.output.rfind("halvex: " + (dir / "types.json").string() + " is not a feature-set file: ", 0), 0u)
        << types.output;
    EXPECT_NE(types.output.find("type must be string, but is number"), std::string::npos) << types.output;
    test::WriteFileBytes(dir / "text.json", "not json");
    const Outcome text = Halvex("store add " + Quote(dir / "text.json") + StoreOption(store));
    EXPECT_EQ(text.code, 1);
    EXPECT_EQ(text.output.rfind("halvex: " + (dir / "text.json").string() + " is not a feature-set file: ", 0), 0u)
        << text.output;
    const Outcome missing = Halvex("store add " + Quote(dir / "none.json") + StoreOption(store));
    EXPECT_EQ(missing.output, "halvex: cannot read " + (dir / "none.json").string() + ": No such file or directory\n");
    EXPECT_TRUE(std::filesystem::is_empty(store));
}

} // namespace
} // namespace nrq

#endif
