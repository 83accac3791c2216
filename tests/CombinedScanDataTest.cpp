#include "HVX/App/Data/CombinedScanData.h"

#include "HVX/App/Data/Compensation.h"

#include "support/HexBytes.h"
#include "support/SerializeHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>

namespace nrq {
namespace {

using test::Hex;
using test::SameBytes;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

FullScanMeasurement Sweep(double startHz, double stepHz, std::initializer_list<float> amplitudes, Position position,
                          std::chrono::nanoseconds time) {
    FullScanMeasurement m;
    m.startFrequency = Frequency(startHz);
    m.stepFrequency = Frequency(stepHz);
    for (float a : amplitudes)
        m.values.push_back(DecibelMilliwatts(a));
    m.count = m.values.size();
    m.position = position;
    m.time = std::chrono::steady_clock::time_point(time);
    m.CalculateMaxIndex();
    return m;
}

Position At(float x, float y, float z) { return Position(Length(x), Length(y), Length(z)); }

using test::Version;

std::vector<float> Amplitudes(const FullScanMeasurement& m) {
    std::vector<float> out;
    for (DecibelMilliwatts v : m.values)
        out.push_back(v.dBm());
    return out;
}

int64_t Ticks(const FullScanMeasurement& m) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(m.time.time_since_epoch()).count();
}

const Position first = At(0.5f, 0.25f, 0.125f);
const Position second = At(0.25f, 0.75f, 2.0f);

CombinedScanData MakeTwoEntries() {
    CombinedScanData data;
    data.AddMeasurement(Sweep(100e6, 100e3, {-80.0f, -75.5f, -90.0f}, first, 1ms), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(100e6, 100e3, {-70.0f}, second, 3500us), RepeatingBehavior::Overwrite);
    data.SetState(IScanData::State::Complete);
    data.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(0x0102030405060708)));
    data.GetInfo().header[0] = 0x11;
    data.GetInfo().devices[1].serial[31] = 'z';
    return data;
}

std::string ExpectedInfo() {
    std::string info(208, '\0');
    info[0] = 0x11;
    info[207] = 'z';
    return info;
}

const std::string expectedHead = Hex("02  08 07 06 05 04 03 02 01");
const std::string expectedRest = Hex("00 00 80 3E  00 00 80 3E  00 00 00 3E" // boundsMin 0.25 0.25 0.125
                                     "00 00 00 3F  00 00 40 3F  00 00 00 40" // boundsMax 0.5 0.75 2
                                     "02 00 00 00"                           // write index
                                     "02 00 00 00"                           // entries
                                     // 100 MHz, 100 kHz, 3 points; 0.5 0.25 0.125; 1 ms; -80 -75.5 -90
                                     "00 00 00 00 84 D7 97 41  00 00 00 00 00 6A F8 40  03 00 00 00"
                                     "00 00 00 3F 00 00 80 3E 00 00 00 3E  40 42 0F 00 00 00 00 00"
                                     "03 00 00 00  00 00 A0 C2 00 00 97 C2 00 00 B4 C2"
                                     // 100 MHz, 100 kHz, 1 point; 0.25 0.75 2; 3.5 ms; -70
                                     "00 00 00 00 84 D7 97 41  00 00 00 00 00 6A F8 40  01 00 00 00"
                                     "00 00 80 3E 00 00 40 3F 00 00 00 40  E0 67 35 00 00 00 00 00"
                                     "01 00 00 00  00 00 8C C2");

TEST(CombinedScanData, IsRegisteredUnderItsName) {
    CombinedScanData data;
    EXPECT_EQ(data.GetSerialType(), "CombinedSD");
    const auto found = GetSerializableTypes().find("CombinedSD");
    ASSERT_NE(found, GetSerializableTypes().end());
    EXPECT_NE(dynamic_cast<CombinedScanData*>(found->second.get()), nullptr);
}

TEST(CombinedScanData, FreshObjectIsEmptyAtIndexZeroWithHeaderOnlyCsv) {
    CombinedScanData data;
    EXPECT_TRUE(data.IsEmpty());
    EXPECT_EQ(data.GetWriteIndex(), 0);
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Max Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n");
    data.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(0)));
    const std::string expected = Hex("00  00 00 00 00 00 00 00 00") + std::string(208, '\0') +
                                 Hex("FF FF 7F 7F  FF FF 7F 7F  FF FF 7F 7F"
                                     "00 00 80 00  00 00 80 00  00 00 80 00"
                                     "00 00 00 00  00 00 00 00");
    EXPECT_TRUE(SameBytes(expected, data.SerializeBinary()));
}

TEST(CombinedScanData, GetBoundsOfAnEmptyObjectIsFalseAndTouchesNothing) {
    CombinedScanData data;
    Position min = At(7, 7, 7);
    Position max = At(8, 8, 8);
    EXPECT_FALSE(data.GetBounds(min, max));
    EXPECT_EQ(min, At(7, 7, 7));
    EXPECT_EQ(max, At(8, 8, 8));
}

TEST(CombinedScanData, GetBoundsCoversAllPositions) {
    const CombinedScanData data = MakeTwoEntries();
    Position min, max;
    ASSERT_TRUE(data.GetBounds(min, max));
    EXPECT_EQ(min, At(0.25f, 0.25f, 0.125f));
    EXPECT_EQ(max, At(0.5f, 0.75f, 2.0f));
}

TEST(CombinedScanData, NegativeOnlyPositionsLeaveTheMaximumAtTheSmallestPositiveFloat) {
    CombinedScanData data;
    data.AddMeasurement(Sweep(0, 0, {-80.0f}, At(-1, -1, -1), 0ns), RepeatingBehavior::Overwrite);
    Position min, max;
    ASSERT_TRUE(data.GetBounds(min, max));
    EXPECT_EQ(min, At(-1, -1, -1));
    const float smallest = 1.175494351e-38f;
    EXPECT_EQ(max, At(smallest, smallest, smallest));
}

TEST(CombinedScanData, KeepsWholeSweepsInOrderOfArrival) {
    const CombinedScanData data = MakeTwoEntries();
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    EXPECT_EQ(data.GetWriteIndex(), 2);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-80.0f, -75.5f, -90.0f}));
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-70.0f}));
}

TEST(CombinedScanData, RvalueAddMovesTheSweepIntoPlace) {
    CombinedScanData data;
    FullScanMeasurement m = Sweep(1e6, 1e3, {-1.0f, -2.0f}, first, 0ns);
    const DecibelMilliwatts* buffer = m.values.data();
    data.AddMeasurement(std::move(m), RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetMeasurements()[0].values.data(), buffer);
    // An Overwrite of an existing entry moves too.
    data.ResetWriteIndex();
    FullScanMeasurement again = Sweep(1e6, 1e3, {-3.0f, -4.0f}, first, 0ns);
    const DecibelMilliwatts* secondBuffer = again.values.data();
    data.AddMeasurement(std::move(again), RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetMeasurements()[0].values.data(), secondBuffer);
}

TEST(CombinedScanData, AddTouchesLastModified) {
    CombinedScanData data;
    const auto before = std::chrono::steady_clock::now();
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    EXPECT_GE(data.GetLastModified(), before);
}

TEST(CombinedScanData, AfterResetOverwriteReplacesEntryZeroWholeAndLeavesEntryOne) {
    CombinedScanData data = MakeTwoEntries();
    data.ResetWriteIndex();
    EXPECT_FALSE(data.IsEmpty());
    const FullScanMeasurement replacement = Sweep(200e6, 1e6, {-99.0f, -98.0f}, At(1, 1, 1), 9ms);
    data.AddMeasurement(replacement, RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetWriteIndex(), 1);
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    const FullScanMeasurement& e0 = data.GetMeasurements()[0];
    EXPECT_EQ(e0.startFrequency.Hz(), 200e6);
    EXPECT_EQ(e0.stepFrequency.Hz(), 1e6);
    EXPECT_EQ(e0.count, 2u);
    EXPECT_EQ(e0.maxIndex, 1u);
    EXPECT_EQ(e0.position, At(1, 1, 1));
    EXPECT_EQ(Ticks(e0), 9000000);
    EXPECT_EQ(Amplitudes(e0), (std::vector<float>{-99.0f, -98.0f}));
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-70.0f}));
    EXPECT_EQ(data.GetMeasurements()[1].position, second);
}

TEST(CombinedScanData, CombineKeepsTheMaximumPerPlaceAndTakesPositionAndTime) {
    CombinedScanData data = MakeTwoEntries();
    data.ResetWriteIndex();
    // Two places only: the third stored one stays. Other frequencies are ignored.
    FullScanMeasurement m = Sweep(500e6, 7e6, {-85.0f, -60.0f}, At(2, 2, 2), 6ms);
    data.AddMeasurement(m, RepeatingBehavior::Combine);
    // Longer than the stored sweep: the extra place is ignored.
    data.AddMeasurement(Sweep(1e6, 1e3, {-75.0f, 0.0f}, At(3, 3, 3), 7ms), RepeatingBehavior::Combine);
    EXPECT_EQ(data.GetWriteIndex(), 2);

    const FullScanMeasurement& e0 = data.GetMeasurements()[0];
    EXPECT_EQ(Amplitudes(e0), (std::vector<float>{-80.0f, -60.0f, -90.0f}));
    EXPECT_EQ(e0.position, At(2, 2, 2));
    EXPECT_EQ(Ticks(e0), 6000000);
    EXPECT_EQ(e0.startFrequency.Hz(), 100e6);
    EXPECT_EQ(e0.stepFrequency.Hz(), 100e3);
    EXPECT_EQ(e0.count, 3u);
    // Not recomputed: still the place of -75.5.
    EXPECT_EQ(e0.maxIndex, 1u);
    EXPECT_EQ(e0.minIndex, 2u);

    const FullScanMeasurement& e1 = data.GetMeasurements()[1];
    EXPECT_EQ(Amplitudes(e1), (std::vector<float>{-70.0f}));
    EXPECT_EQ(e1.position, At(3, 3, 3));
    EXPECT_EQ(Ticks(e1), 7000000);
}

TEST(CombinedScanData, WriteBeyondTheEndIsAPlainAppendAlsoWithCombine) {
    CombinedScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f, -81.0f}, first, 1ms), RepeatingBehavior::Combine);
    data.AddMeasurement(Sweep(2e6, 1e3, {-82.0f}, second, 2ms), RepeatingBehavior::Combine);
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-80.0f, -81.0f}));
    EXPECT_EQ(data.GetMeasurements()[1].startFrequency.Hz(), 2e6);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-82.0f}));
    EXPECT_EQ(data.GetWriteIndex(), 2);
}

TEST(CombinedScanData, AnUnknownBehaviorLeavesTheEntryButMovesTheIndex) {
    CombinedScanData data = MakeTwoEntries();
    data.ResetWriteIndex();
    data.AddMeasurement(Sweep(1e6, 1e3, {0.0f}, At(3, 3, 3), 9ms), static_cast<RepeatingBehavior>(7));
    EXPECT_EQ(data.GetWriteIndex(), 1);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-80.0f, -75.5f, -90.0f}));
    EXPECT_EQ(data.GetMeasurements()[0].position, first);
    // The bounds moved all the same.
    Position min, max;
    ASSERT_TRUE(data.GetBounds(min, max));
    EXPECT_EQ(max, At(3, 3, 3));
}

TEST(CombinedScanData, AddMeasurementsWithCombineRaisesAfterTheBoundsMoved) {
    CombinedScanData data = MakeTwoEntries();
    const FullScanMeasurement several[2] = {Sweep(1e6, 1e3, {0.0f}, At(-4, 0.5f, 0.5f), 0ns),
                                            Sweep(1e6, 1e3, {0.0f}, At(0.5f, 0.5f, 9), 0ns)};
    try {
        data.AddMeasurements(several, 2, RepeatingBehavior::Combine);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(),
                     "Using \"Combine\" behavior on CombinedScanData when adding multiple measurements is not implemented.");
    }
    EXPECT_EQ(data.GetWriteIndex(), 2);
    EXPECT_EQ(data.GetMeasurements().size(), 2u);
    Position min, max;
    ASSERT_TRUE(data.GetBounds(min, max));
    EXPECT_EQ(min, At(-4, 0.25f, 0.125f));
    EXPECT_EQ(max, At(0.5f, 0.75f, 9));
}

TEST(CombinedScanData, AddMeasurementsOverwritesFromTheIndexAndStepsItByOne) {
    CombinedScanData data = MakeTwoEntries();
    data.ResetWriteIndex();
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    // From entry 1 on, three sweeps: entry 1 is replaced, two are added.
    const FullScanMeasurement several[3] = {Sweep(2e6, 1e3, {-2.0f}, first, 0ns),
                                            Sweep(3e6, 1e3, {-3.0f}, first, 0ns),
                                            Sweep(4e6, 1e3, {-4.0f}, At(5, 5, 5), 0ns)};
    data.AddMeasurements(several, 3, RepeatingBehavior::Overwrite);
    ASSERT_EQ(data.GetMeasurements().size(), 4u);
    EXPECT_EQ(data.GetMeasurements()[0].startFrequency.Hz(), 1e6);
    EXPECT_EQ(data.GetMeasurements()[1].startFrequency.Hz(), 2e6);
    EXPECT_EQ(data.GetMeasurements()[2].startFrequency.Hz(), 3e6);
    EXPECT_EQ(data.GetMeasurements()[3].startFrequency.Hz(), 4e6);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[3]), (std::vector<float>{-4.0f}));
    EXPECT_EQ(data.GetWriteIndex(), 2);
    Position min, max;
    ASSERT_TRUE(data.GetBounds(min, max));
    EXPECT_EQ(max, At(5, 5, 5));

    // Inside the existing entries nothing is resized.
    data.ResetWriteIndex();
    data.AddMeasurements(several, 1, RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetMeasurements().size(), 4u);
    EXPECT_EQ(data.GetMeasurements()[0].startFrequency.Hz(), 2e6);
    EXPECT_EQ(data.GetWriteIndex(), 1);
}

TEST(CombinedScanData, AWriteIndexFromAFileMayStandAnywhere) {
    // No entries, write index 0x7FFFFFFF.
    const std::string body = expectedHead + std::string(24, '\0') + Hex("FF FF FF 7F  00 00 00 00");
    CombinedScanData data;
    std::string_view view(body);
    data.DeserializeBinary(view, Version(4));
    EXPECT_EQ(data.GetWriteIndex(), 0x7FFFFFFF);
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetMeasurements().size(), 1u);
    EXPECT_EQ(data.GetWriteIndex(), std::numeric_limits<int32_t>::min());
    data.AddMeasurement(Sweep(1e6, 1e3, {-2.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetMeasurements().size(), 2u);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-1.0f}));
}

TEST(CombinedScanData, CsvShowsEachSweepsStrongestPoint) {
    const CombinedScanData data = MakeTwoEntries();
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Max Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n"
                                     "100.1,-75.5,500,250,125,0\n"
                                     "100,-70,250,750,2000,2\n");
}

TEST(CombinedScanData, CsvTakesTheStoredMaxIndex) {
    CombinedScanData data;
    FullScanMeasurement m = Sweep(123456789.0, 1e6, {-80.123456f, -10.0f, -20.0f}, At(0.0123456789f, 0, 0), 10ms);
    m.maxIndex = 2; // as the caller left it, whatever the values say
    data.AddMeasurement(m, RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(1e6, 0, {0.0f}, At(0, 0, 0), 8500us), RepeatingBehavior::Overwrite);
    // 123.456789 + 2 MHz; -1.5 ms is cut to -1.
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Max Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n"
                                     "125.457,-20,12.3457,0,0,0\n"
                                     "1,0,0,0,0,-1\n");
}

TEST(CombinedScanData, BinaryBodyIsLaidOutByteByByte) {
    const CombinedScanData data = MakeTwoEntries();
    const std::string body = data.SerializeBinary();
    EXPECT_EQ(body.size(), 353u);
    EXPECT_TRUE(SameBytes(expectedHead + ExpectedInfo() + expectedRest, body));
}

TEST(CombinedScanData, ReadsVersion5AndRecomputesTheIndices) {
    const std::string body = expectedHead + ExpectedInfo() + expectedRest + Hex("EE");
    CombinedScanData data;
    const auto before = std::chrono::steady_clock::now();
    std::string_view view(body);
    data.DeserializeBinary(view, Version(5));
    EXPECT_EQ(view.size(), 1u);
    EXPECT_EQ(data.GetState(), IScanData::State::Complete);
    EXPECT_EQ(data.GetCreationTime().time_since_epoch().count(), 0x0102030405060708);
    EXPECT_GE(data.GetLastModified(), before);
    EXPECT_EQ(data.GetInfo().header[0], 0x11);
    EXPECT_EQ(data.GetInfo().devices[1].serial[31], 'z');
    EXPECT_EQ(data.GetWriteIndex(), 2);
    Position min, max;
    ASSERT_TRUE(data.GetBounds(min, max));
    EXPECT_EQ(min, At(0.25f, 0.25f, 0.125f));
    EXPECT_EQ(max, At(0.5f, 0.75f, 2.0f));
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    const FullScanMeasurement& e0 = data.GetMeasurements()[0];
    EXPECT_EQ(e0.startFrequency.Hz(), 100e6);
    EXPECT_EQ(e0.stepFrequency.Hz(), 100e3);
    EXPECT_EQ(e0.count, 3u);
    EXPECT_EQ(e0.position, first);
    EXPECT_EQ(Ticks(e0), 1000000);
    EXPECT_EQ(Amplitudes(e0), (std::vector<float>{-80.0f, -75.5f, -90.0f}));
    EXPECT_EQ(e0.minIndex, 2u);
    EXPECT_EQ(e0.maxIndex, 1u);
}

TEST(CombinedScanData, ReadsVersion4WithCreationTimeAndNoInfo) {
    const std::string body = expectedHead + expectedRest;
    CombinedScanData data;
    std::memset(&data.GetInfo(), 0x5A, sizeof(ScanDataInfo));
    std::string_view view(body);
    data.DeserializeBinary(view, Version(4));
    EXPECT_TRUE(view.empty());
    // Unlike spatial data, the eight bytes are the creation time at every version.
    EXPECT_EQ(data.GetCreationTime().time_since_epoch().count(), 0x0102030405060708);
    const ScanDataInfo zero{};
    EXPECT_EQ(std::memcmp(&data.GetInfo(), &zero, sizeof zero), 0);
    EXPECT_EQ(data.GetWriteIndex(), 2);
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-70.0f}));
    EXPECT_TRUE(SameBytes(expectedHead + std::string(208, '\0') + expectedRest, data.SerializeBinary()));
}

TEST(CombinedScanData, RoundTripAtVersion5KeepsAllButLastModified) {
    CombinedScanData source = MakeTwoEntries();
    source.SetLastModified(IScanData::SteadyTime(3ns));
    source.ResetWriteIndex();
    // Combine leaves a stale max index behind; a read recomputes it.
    source.AddMeasurement(Sweep(0, 0, {-95.0f, -95.0f, -10.0f}, first, 1ms), RepeatingBehavior::Combine);
    ASSERT_EQ(source.GetMeasurements()[0].maxIndex, 1u);

    CombinedScanData copy;
    const std::string body = source.SerializeBinary();
    std::string_view view(body);
    copy.DeserializeBinary(view, Version(5));
    EXPECT_EQ(copy.GetState(), source.GetState());
    EXPECT_EQ(copy.GetCreationTime(), source.GetCreationTime());
    EXPECT_EQ(std::memcmp(&copy.GetInfo(), &source.GetInfo(), sizeof(ScanDataInfo)), 0);
    EXPECT_NE(copy.GetLastModified(), source.GetLastModified());
    EXPECT_EQ(copy.GetWriteIndex(), 1);
    EXPECT_EQ(copy.GetMeasurements()[0].maxIndex, 2u);
    EXPECT_TRUE(SameBytes(body, copy.SerializeBinary()));
}

TEST(CombinedScanData, RoundTripThroughAnObjectRecord) {
    const CombinedScanData source = MakeTwoEntries();
    std::string record;
    AppendSerializeObject(record, &source);
    const std::string expected =
        Hex("0A 00 00 00") + "CombinedSD" + Hex("61 01 00 00") + expectedHead + ExpectedInfo() + expectedRest;
    EXPECT_TRUE(SameBytes(expected, record));

    std::string_view view(record);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, Version(5)));
    EXPECT_TRUE(view.empty());
    auto* combined = dynamic_cast<CombinedScanData*>(read.get());
    ASSERT_NE(combined, nullptr);
    EXPECT_EQ(combined->GetMeasurements().size(), 2u);
    EXPECT_TRUE(SameBytes(expectedHead + ExpectedInfo() + expectedRest, combined->SerializeBinary()));
}

TEST(CombinedScanData, EveryTruncatedBodyRaises) {
    const std::string v5 = expectedHead + ExpectedInfo() + expectedRest;
    for (size_t length = 0; length < v5.size(); ++length)
        test::ExpectRaisesDeserializationError<CombinedScanData>(v5.substr(0, length), 5);
    const std::string v4 = expectedHead + expectedRest;
    for (size_t length = 0; length < v4.size(); ++length)
        test::ExpectRaisesDeserializationError<CombinedScanData>(v4.substr(0, length), 4);
}

TEST(CombinedScanData, HugeCountsRaiseInsteadOfAllocating) {
    // Four billion entries announced, none there.
    test::ExpectRaisesDeserializationError<CombinedScanData>(expectedHead + std::string(28, '\0') + Hex("FF FF FF FF"), 4);
    // One entry announcing four billion values.
    test::ExpectRaisesDeserializationError<CombinedScanData>(expectedHead + std::string(28, '\0') + Hex("01 00 00 00") +
                                         std::string(40, '\0') + Hex("FF FF FF FF 00 00 00 00"),
                                     4);
}

TEST(CombinedScanData, CopyTakesEntriesBoundsAndIndexButNotInfoOrUserData) {
    CombinedScanData source = MakeTwoEntries();
    int owner = 0;
    source.SetUserData(&owner);
    const CombinedScanData copy(source);
    std::unique_ptr<CombinedScanData> clone(source.Clone());
    for (const CombinedScanData* made : {&copy, static_cast<const CombinedScanData*>(clone.get())}) {
        EXPECT_EQ(made->GetWriteIndex(), 2);
        EXPECT_EQ(made->GetUserData(), nullptr);
        EXPECT_EQ(made->GetState(), IScanData::State::Complete);
        EXPECT_EQ(made->GetLastModified(), source.GetLastModified());
        EXPECT_EQ(made->GetMeasurements()[0].maxIndex, 1u);
        EXPECT_TRUE(SameBytes(expectedHead + std::string(208, '\0') + expectedRest, made->SerializeBinary()));
    }
    CombinedScanData target;
    target.SetUserData(&owner);
    target.GetInfo().header[0] = 0x22;
    target = source;
    EXPECT_EQ(target.GetWriteIndex(), 2);
    EXPECT_EQ(target.GetUserData(), &owner);
    std::string withTargetInfo = expectedHead + std::string(208, '\0') + expectedRest;
    withTargetInfo[9] = 0x22;
    EXPECT_TRUE(SameBytes(withTargetInfo, target.SerializeBinary()));
}

// Two columns, one row: at 100 MHz 1 dB in cell (0, 0) and 2 dB in cell (1, 0);
// at 200 MHz 3 dB and 6 dB. Cells are 7.5 mm.
Compensation GridCorrection() {
    return Compensation::Decode(Hex("43 4F 52 52 45 43 54 49 4F 4E  00 00 00 00"
                                    "02 00 00 00  01 00 00 00  02 00 00 00"
                                    "00 00 00 00 84 D7 97 41  00 00 80 3F 00 00 00 40"
                                    "00 00 00 00 84 D7 A7 41  00 00 40 40 00 00 C0 40"));
}

const Position cell00 = At(0.001f, 0.001f, 0.0f);
const Position cell10 = At(0.01f, 0.001f, 0.0f);

CombinedScanData TwoCorrectableSweeps() {
    CombinedScanData data;
    data.AddMeasurement(Sweep(100e6, 50e6, {-80.0f, -80.0f, -80.0f}, cell10, 0ns), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(100e6, 50e6, {-90.0f, -90.0f}, cell00, 0ns), RepeatingBehavior::Overwrite);
    return data;
}

TEST(CombinedScanData, CompensationAddsTheValueAtEachPointOfEachSweep) {
    CombinedScanData data = TwoCorrectableSweeps();
    EXPECT_TRUE(data.ApplyCompensation(GridCorrection()));
    // Cell (1, 0) at 100, 150 and 200 MHz: +2, +4, +6. Cell (0, 0) at 100 and 150 MHz: +1, +2.
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-78.0f, -76.0f, -74.0f}));
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-89.0f, -88.0f}));
    const std::string body = data.SerializeBinary();
    EXPECT_TRUE(SameBytes(Hex("00 00 9C C2 00 00 98 C2 00 00 94 C2"), body.substr(249 + 44, 12)));
    EXPECT_TRUE(SameBytes(Hex("00 00 B2 C2 00 00 B0 C2"), body.substr(body.size() - 8)));
}

TEST(CombinedScanData, PartialCompensationCorrectsOnlyTheGivenEntries) {
    CombinedScanData data = TwoCorrectableSweeps();
    const Compensation correction = GridCorrection();
    data.PartialApplyCompensation(correction, 1, 1);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-80.0f, -80.0f, -80.0f}));
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-89.0f, -88.0f}));
    data.PartialApplyCompensation(correction, 0, 1);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-78.0f, -76.0f, -74.0f}));
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-89.0f, -88.0f}));
    // Ranges are cut to the entries.
    data.PartialApplyCompensation(correction, -5, 6);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[0]), (std::vector<float>{-76.0f, -72.0f, -68.0f}));
    data.PartialApplyCompensation(correction, 2, 3);
    EXPECT_EQ(Amplitudes(data.GetMeasurements()[1]), (std::vector<float>{-89.0f, -88.0f}));
}

TEST(CombinedScanData, CompensationOfNoEntriesStillSucceeds) {
    CombinedScanData data;
    EXPECT_TRUE(data.ApplyCompensation(GridCorrection()));
}

} // namespace
} // namespace nrq
