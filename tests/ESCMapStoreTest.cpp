#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/ESC/Store.h"
#include "HVX/Filesystem/Filesystem.h"
#include "support/ESCMapStoreAccess.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>

namespace nrq {
namespace {

namespace stdfs = std::filesystem;

ESCFeatureSet CenterOnlySet() {
    ESCFeatureSet set;
    set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = "SA";
    set.blockFormat = {SCPIDataBlockType::LengthPrefixedBinary, SCPIValueFormat::NativeFloat32, -1};
    ESCFeature center;
    center.label = "Frequency Center";
    center.command = "FREQ:CENT {FrequencyCenter}";
    center.type = ESCFeatureType::FrequencyCenter;
    center.values = {Frequency(700e6)};
    center.modes = 1;
    set.features.push_back(center);
    return set;
}

// Worked out by hand: the store's keys first, then the set's own form, two blanks of indent.
constexpr std::string_view centerOnlyFileText = R"({
  "version": 1,
  "manufacturer": "Nerquil Labs",
  "serial_id": "SN-1",
  "feature_set": {
    "version": 1,
    "mode_names": {
      "sa": "SA"
    },
    "block_format": {
      "type": "length_prefixed_binary",
      "additional_characters": -1,
      "value_format": "native_float32"
    },
    "features": [
      {
        "label": "Frequency Center",
        "command": "FREQ:CENT {FrequencyCenter}",
        "type": "frequency_center",
        "values": [
          {
            "type": "frequency",
            "value": 700000000.0
          }
        ],
        "modes": "all"
      }
    ]
  }
})";

std::string StoreFile(std::string_view manufacturer, std::string_view serial, std::string_view featureSet) {
    return std::string(R"({"version": 1, "manufacturer": ")") + std::string(manufacturer) + R"(", "serial_id": ")" +
           std::string(serial) + R"(", "feature_set": )" + std::string(featureSet) + "}";
}

std::vector<std::string> SortedFiles(const stdfs::path& dir) {
    std::vector<std::string> names;
    for (const auto& item : stdfs::directory_iterator(dir))
        names.push_back(item.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string WithoutLineNumber(const std::string& text) {
    return std::regex_replace(text, std::regex(R"(^\(\d+\) )"), "");
}

class ESCMapStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::MakeDirectory(fs::GetUserSaveDataDirectory());
        Log::Init();
        dir = test::MakeTempDir("store");
        directory = dir.string();
    }

    // The log lines after "Log start", without time stamps.
    static std::string LogLines() {
        const std::string log = test::LogWithoutTimeStamps();
        const std::string start = "[T] Log start\n";
        return log.starts_with(start) ? log.substr(start.size()) : log;
    }

    std::string SetLine() const { return "[T] Set SCPI feature set storage location to " + directory + "\n"; }

    std::string PathOf(std::string_view name) const { return directory + "/" + std::string(name); }

    std::unique_ptr<ESCMapStore> store = ESCMapStoreTestAccess::MakeStore();
    stdfs::path dir;
    std::string directory;
};

TEST(ESCMapStoreKey, EqualityComparesBothFields) {
    const ESCMapStoreKey key{"A", "1"};
    EXPECT_TRUE(key == (ESCMapStoreKey{"A", "1"}));
    EXPECT_TRUE(key != (ESCMapStoreKey{"A", "2"}));
    EXPECT_TRUE(key != (ESCMapStoreKey{"B", "1"}));
    EXPECT_FALSE(key != (ESCMapStoreKey{"A", "1"}));
}

TEST(ESCMapStoreKey, HashIsTheExclusiveOrOfBothFnvHashes) {
    const ESCMapStoreKeyHash hash;
    constexpr uint64_t emptyHash = 0xcbf29ce484222325ull;
    constexpr uint64_t aHash = 0xaf63dc4c8601ec8cull;
    EXPECT_EQ(hash({"", ""}), 0u);
    EXPECT_EQ(hash({"a", "a"}), 0u);
    EXPECT_EQ(hash({"a", ""}), aHash ^ emptyHash);
    EXPECT_EQ(hash({"", "a"}), aHash ^ emptyHash);
}

TEST(ESCMapStore, GetInstanceIsOneStore) {
    EXPECT_EQ(&ESCMapStore::GetInstance(), &ESCMapStore::GetInstance());
}

TEST_F(ESCMapStoreTest, StartsWithoutDirectoryOrEntries) {
    EXPECT_EQ(store->GetDirectory(), "");
    EXPECT_TRUE(store->GetEntryKeys().empty());
    EXPECT_EQ(store->FindEntry("A", "1"), nullptr);
}

TEST_F(ESCMapStoreTest, AddEntryWritesTheFile) {
    store->SetDirectory(directory, false);
    store->AddEntry("Nerquil Labs", "SN-1", "", CenterOnlySet());
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"NERQUIL-SN.json"});
    EXPECT_EQ(test::ReadFileBytes(dir / "NERQUIL-SN.json"), centerOnlyFileText);
    const auto entry = store->FindEntry("Nerquil Labs", "SN-1");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->fileName, "NERQUIL-SN");
    EXPECT_EQ(entry->featureSet, CenterOnlySet());
    EXPECT_EQ(LogLines(), SetLine());
}

TEST_F(ESCMapStoreTest, GeneratedFileNameUsesTheFirstRunOfEach) {
    store->SetDirectory(directory, true);
    store->AddEntry("Alpha Beta", "Xy12-34", "", ESCFeatureSet{});
    EXPECT_EQ(store->FindEntry("Alpha Beta", "Xy12-34")->fileName, "ALPHA-XY12");
    store->AddEntry("  ~Rohde&Schwarz", "--1234/5", "", ESCFeatureSet{});
    EXPECT_EQ(store->FindEntry("  ~Rohde&Schwarz", "--1234/5")->fileName, "ROHDE-1234");
    store->AddEntry("\xc3\xa4!", "", "", ESCFeatureSet{});
    EXPECT_EQ(store->FindEntry("\xc3\xa4!", "")->fileName, "-");
    EXPECT_EQ(SortedFiles(dir), (std::vector<std::string>{"-.json", "ALPHA-XY12.json", "ROHDE-1234.json"}));
}

TEST_F(ESCMapStoreTest, TwoInstrumentsMayShareAGeneratedFileName) {
    store->SetDirectory(directory, true);
    store->AddEntry("Alpha Labs", "1-a", "", ESCFeatureSet{});
    store->AddEntry("ALPHA", "1", "", CenterOnlySet());
    EXPECT_EQ(store->GetEntryKeys().size(), 2u);
    EXPECT_EQ(store->FindEntry("Alpha Labs", "1-a")->fileName, "ALPHA-1");
    EXPECT_EQ(store->FindEntry("ALPHA", "1")->fileName, "ALPHA-1");
    // The later one wins the file.
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"ALPHA-1.json"});
    EXPECT_NE(test::ReadFileBytes(dir / "ALPHA-1.json").find("\"serial_id\": \"1\",\n"), std::string::npos);
}

TEST_F(ESCMapStoreTest, AGivenFileNameIsTakenAsItIs) {
    store->SetDirectory(directory, true);
    store->AddEntry("Alpha", "1", "my set", ESCFeatureSet{});
    EXPECT_EQ(store->FindEntry("Alpha", "1")->fileName, "my set");
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"my set.json"});
}

TEST_F(ESCMapStoreTest, AddEntryOnAnExistingKeyDeletesTheOldFileFirst) {
    store->SetDirectory(directory, true);
    store->AddEntry("Alpha", "1", "first", ESCFeatureSet{});
    const auto reader = store->FindEntry("Alpha", "1");
    store->AddEntry("Alpha", "1", "second", CenterOnlySet());
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"second.json"});
    EXPECT_EQ(store->FindEntry("Alpha", "1")->featureSet, CenterOnlySet());
    EXPECT_EQ(store->GetEntryKeys().size(), 1u);
    // The reader's entry outlives its replacement.
    EXPECT_EQ(reader->fileName, "first");
    EXPECT_EQ(reader->featureSet, ESCFeatureSet{});
}

TEST_F(ESCMapStoreTest, AddEntryOnAnExistingKeyWithTheSameNameRewritesTheFile) {
    store->SetDirectory(directory, true);
    store->AddEntry("Nerquil Labs", "SN-1", "", ESCFeatureSet{});
    store->AddEntry("Nerquil Labs", "SN-1", "", CenterOnlySet());
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"NERQUIL-SN.json"});
    EXPECT_EQ(test::ReadFileBytes(dir / "NERQUIL-SN.json"), centerOnlyFileText);
}

TEST_F(ESCMapStoreTest, ChangesWithoutDirectoryRaiseAndLogOnce) {
    for (int i = 0; i < 2; ++i) {
        try {
            store->AddEntry("Alpha", "1", "", ESCFeatureSet{});
            ADD_FAILURE() << "no error";
        } catch (const Error& error) {
            EXPECT_EQ(WithoutLineNumber(error.what()), "Failed to use SCPI feature map: no directory set");
        }
    }
    EXPECT_THROW(store->RemoveEntry("Alpha", "1"), Error);
    EXPECT_THROW(store->ClearEntries(), Error);
    EXPECT_EQ(LogLines(), "[T] Error: Failed to use SCPI feature map: no directory set\n");
    EXPECT_TRUE(store->GetEntryKeys().empty());
}

TEST_F(ESCMapStoreTest, SetDirectoryClearsTheWarning) {
    EXPECT_THROW(store->AddEntry("Alpha", "1", "", ESCFeatureSet{}), Error);
    // A directory that can't be made leaves the store without one.
    const std::string blocked = PathOf("file");
    test::WriteFileBytes(blocked, "x");
    store->SetDirectory(blocked + "/sub", false);
    EXPECT_EQ(store->GetDirectory(), "");
    EXPECT_THROW(store->AddEntry("Alpha", "1", "", ESCFeatureSet{}), Error);
    store->SetDirectory(directory, true);
    const std::string log = LogLines();
    const std::string noDirectory = "[T] Error: Failed to use SCPI feature map: no directory set\n";
    const std::string failure = "[T] Error: Failed to create directory for feature sets: (";
    ASSERT_TRUE(log.starts_with(noDirectory + failure)) << log;
    EXPECT_NE(log.find(") Failed to create save directory: "), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with("\nFILE: " + blocked + "/sub\n" + SetLine())) << log;
}

TEST_F(ESCMapStoreTest, AFailedSetDirectoryKeepsTheStoreAsItWas) {
    store->SetDirectory(directory, true);
    store->AddEntry("Alpha", "1", "", ESCFeatureSet{});
    const std::string blocked = PathOf("ALPHA-1.json");
    store->SetDirectory(blocked, false);
    EXPECT_EQ(store->GetDirectory(), directory);
    EXPECT_NE(store->FindEntry("Alpha", "1"), nullptr);
}

TEST_F(ESCMapStoreTest, SetDirectoryLoadsEveryJsonFile) {
    test::WriteFileBytes(dir / "one.json", StoreFile("Alpha", "1", "{}"));
    test::WriteFileBytes(dir / "two.json", StoreFile("Beta", "2", R"({"mode_names": {"sa": "SAN"}})"));
    store->SetDirectory(directory, false);
    EXPECT_EQ(store->GetDirectory(), directory);
    auto keys = store->GetEntryKeys();
    std::sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) { return a.manufacturer < b.manufacturer; });
    EXPECT_EQ(keys, (std::vector<ESCMapStoreKey>{{"Alpha", "1"}, {"Beta", "2"}}));
    EXPECT_EQ(store->FindEntry(ESCMapStoreKey{"Alpha", "1"})->fileName, "one");
    EXPECT_EQ(store->FindEntry("Beta", "2")->featureSet.modeNames.at(ESCDeviceModeIndex::SpectrumAnalyzer), "SAN");
    EXPECT_EQ(LogLines(), SetLine());
}

TEST_F(ESCMapStoreTest, NoLoadForgetsEntriesAndReadsNothing) {
    test::WriteFileBytes(dir / "one.json", StoreFile("Alpha", "1", "{}"));
    store->SetDirectory(directory, false);
    ASSERT_EQ(store->GetEntryKeys().size(), 1u);
    store->SetDirectory(directory, true);
    EXPECT_TRUE(store->GetEntryKeys().empty());
    EXPECT_EQ(LogLines(), SetLine() + SetLine());
}

TEST_F(ESCMapStoreTest, FilesWithAnotherExtensionAreIgnored) {
    const std::string text = StoreFile("Alpha", "1", "{}");
    for (const char* name : {"a.txt", "b.json.bak", "json", "c.JSON", "djson"})
        test::WriteFileBytes(dir / name, text);
    store->SetDirectory(directory, false);
    EXPECT_TRUE(store->GetEntryKeys().empty());
    EXPECT_EQ(LogLines(), SetLine());
}

TEST_F(ESCMapStoreTest, AFileNamedOnlyJsonIsReadWithAnEmptyName) {
    test::WriteFileBytes(dir / ".json", StoreFile("Alpha", "1", "{}"));
    store->SetDirectory(directory, false);
    const auto entry = store->FindEntry("Alpha", "1");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->fileName, "");
}

TEST_F(ESCMapStoreTest, ReloadPicksUpAFilePlacedFromOutside) {
    store->SetDirectory(directory, false);
    store->AddEntry("Alpha", "1", "", CenterOnlySet());
    test::WriteFileBytes(dir / "outside.json", StoreFile("Gamma", "7", "{}"));
    EXPECT_EQ(store->FindEntry("Gamma", "7"), nullptr);
    store->Reload();
    ASSERT_NE(store->FindEntry("Gamma", "7"), nullptr);
    EXPECT_EQ(store->FindEntry("Gamma", "7")->fileName, "outside");
    // Read back from its own file: a mask with bit 0 comes back as every mode.
    ESCFeatureSet expected = CenterOnlySet();
    expected.features[0].modes = -1;
    EXPECT_EQ(store->FindEntry("Alpha", "1")->featureSet, expected);
    EXPECT_EQ(store->GetEntryKeys().size(), 2u);
    EXPECT_EQ(LogLines(), SetLine() + SetLine());
}

TEST_F(ESCMapStoreTest, NumericDefaultIndicesDoNotComeBackFromTheFile) {
    ESCFeatureSet set;
    ESCFeature sweeping = GetBuiltInFeatures()[7];
    sweeping.modes = -1;
    set.features.push_back(sweeping);
    store->SetDirectory(directory, false);
    store->AddEntry("Alpha", "1", "", set);
    const std::string text = test::ReadFileBytes(dir / "ALPHA-1.json");
    EXPECT_NE(text.find("\"default_index\": 0,\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\"reset_index\": 1,\n"), std::string::npos) << text;
    store->Reload();
    const auto entry = store->FindEntry("Alpha", "1");
    ASSERT_NE(entry, nullptr);
    ESCFeatureSet expected = set;
    expected.features[0].defaultIndex = ESCFeatureDefault::None;
    expected.features[0].resetIndex = ESCFeatureDefault::None;
    EXPECT_EQ(entry->featureSet, expected);
}

TEST_F(ESCMapStoreTest, ABrokenFileCostsOnlyItsOwnEntry) {
    struct Case {
        std::string text;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {"not json",
         "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error while parsing value - "
         "invalid literal; last read: 'no'"},
        {"", "[json.exception.parse_error.101] parse error at line 1, column 1: syntax error while parsing value - "
             "unexpected end of input; expected '[', '{', or a literal"},
        {R"({"version": 1, "manufacturer": "A")",
         "[json.exception.parse_error.101] parse error at line 1, column 35: syntax error while parsing object - "
         "unexpected end of input; expected '}'"},
        {R"({"version": 1, "manufacturer": "A", "feature_set": {}})",
         "[json.exception.out_of_range.403] key 'serial_id' not found"},
        {R"({"manufacturer": "A", "serial_id": "1"})", "[json.exception.out_of_range.403] key 'feature_set' not found"},
        {R"({"manufacturer": 5, "serial_id": "1", "feature_set": {}})",
         "[json.exception.type_error.302] type must be string, but is number"},
        {"[1, 2]", "[json.exception.type_error.304] cannot use at() with array"},
        {StoreFile("A", "1", R"({"features": [{"label": ["x"]}]})"),
         "[json.exception.type_error.302] type must be string, but is array"},
        {StoreFile("A", "1", R"({"features": [{"values": [{"type": "money"}]}]})"), "(?) unknown variant type \"money\""},
        {StoreFile("A", "1", R"({"block_format": {"additional_characters": 1e10}})"),
         "(?) number 10000000000.0 is out of range"},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const stdfs::path caseDir = test::MakeTempDir("broken");
        test::WriteFileBytes(caseDir / "broken.json", cases[i].text);
        test::WriteFileBytes(caseDir / "good.json", StoreFile("Good", "2", "{}"));
        Log::Init();
        store->SetDirectory(caseDir.string(), false);
        EXPECT_EQ(store->GetEntryKeys(), std::vector<ESCMapStoreKey>{(ESCMapStoreKey{"Good", "2"})});
        const std::string log = std::regex_replace(LogLines(), std::regex(R"(: \(\d+\) )"), ": (?) ");
        EXPECT_EQ(log, "[T] Set SCPI feature set storage location to " + caseDir.string() + "\n" +
                           "[T] Error: Failed to load feature set from " + caseDir.string() + "/broken.json: " +
                           cases[i].reason + "\n");
    }
}

TEST_F(ESCMapStoreTest, AKeyThatIsThereAlreadyKeepsItsFirstEntry) {
    test::WriteFileBytes(dir / "one.json", StoreFile("Alpha", "1", "{}"));
    test::WriteFileBytes(dir / "two.json", StoreFile("Alpha", "1", "{}"));
    store->SetDirectory(directory, false);
    ASSERT_EQ(store->GetEntryKeys().size(), 1u);
    const std::string name = store->FindEntry("Alpha", "1")->fileName;
    EXPECT_TRUE(name == "one" || name == "two") << name;
    EXPECT_EQ(LogLines(), SetLine());
}

TEST_F(ESCMapStoreTest, RemoveEntryDeletesTheFile) {
    store->SetDirectory(directory, false);
    store->AddEntry("Alpha", "1", "", ESCFeatureSet{});
    store->AddEntry("Beta", "2", "", ESCFeatureSet{});
    store->RemoveEntry("Alpha", "1");
    EXPECT_EQ(store->FindEntry("Alpha", "1"), nullptr);
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"BETA-2.json"});
    // An unknown key does nothing.
    store->RemoveEntry("Alpha", "1");
    store->RemoveEntry("Beta", "3");
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"BETA-2.json"});
    EXPECT_EQ(LogLines(), SetLine());
}

TEST_F(ESCMapStoreTest, ClearEntriesDeletesEveryFile) {
    test::WriteFileBytes(dir / "notes.txt", "kept");
    store->SetDirectory(directory, false);
    store->AddEntry("Alpha", "1", "", ESCFeatureSet{});
    store->AddEntry("Beta", "2", "", ESCFeatureSet{});
    store->ClearEntries();
    EXPECT_TRUE(store->GetEntryKeys().empty());
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"notes.txt"});
}

TEST_F(ESCMapStoreTest, AFileThatCannotBeDeletedIsLoggedAndIgnored) {
    store->SetDirectory(directory, false);
    store->AddEntry("Alpha", "1", "old", ESCFeatureSet{});
    stdfs::remove(dir / "old.json");
    store->AddEntry("Alpha", "1", "new", CenterOnlySet());
    EXPECT_EQ(store->FindEntry("Alpha", "1")->fileName, "new");
    EXPECT_EQ(SortedFiles(dir), std::vector<std::string>{"new.json"});
    const std::string log = LogLines();
    EXPECT_TRUE(log.starts_with(SetLine() + "[T] Error: Failed to delete feature set file " + PathOf("old.json") +
                                ": "))
        << log;
}

TEST_F(ESCMapStoreTest, AFileThatCannotBeWrittenIsLoggedAndTheEntryStays) {
    store->SetDirectory(directory, false);
    stdfs::remove_all(dir);
    store->AddEntry("Alpha", "1", "", CenterOnlySet());
    EXPECT_EQ(store->FindEntry("Alpha", "1")->featureSet, CenterOnlySet());
    const std::string log = LogLines();
    const std::string path = PathOf("ALPHA-1.json");
    EXPECT_TRUE(log.starts_with(SetLine() + "[T] Error: Failed to write feature set file " + path + ": (")) << log;
    EXPECT_TRUE(log.ends_with(") Failed to open file with path: \"" + path + "\"\n")) << log;
}

TEST_F(ESCMapStoreTest, AnUnwritableLabelIsLoggedNotRaised) {
    store->SetDirectory(directory, false);
    ESCFeatureSet set;
    set.features.emplace_back().label = "\xff";
    EXPECT_NO_THROW(store->AddEntry("Alpha", "1", "", set));
    EXPECT_NE(store->FindEntry("Alpha", "1"), nullptr);
    EXPECT_TRUE(SortedFiles(dir).empty());
    EXPECT_NE(LogLines().find("[T] Error: Failed to write feature set file " + PathOf("ALPHA-1.json") +
                              ": [json.exception.type_error.316] invalid UTF-8 byte at index 0: 0xFF\n"),
              std::string::npos)
        << LogLines();
}

} // namespace
} // namespace nrq
