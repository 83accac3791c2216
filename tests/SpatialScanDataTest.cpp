#include "HVX/App/Data/SpatialScanData.h"

#include "HVX/App/Data/Compensation.h"

#include "support/HexBytes.h"
#include "support/SerializeHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>

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
    return m;
}

Position At(float x, float y, float z) { return Position(Length(x), Length(y), Length(z)); }

using test::Version;

const Position first = At(0.5f, 0.25f, 0.125f);
const Position second = At(0.25f, 0.75f, 2.0f);

// Two positions: the first sweep peaks at its second point (100.1 MHz, -75.5 dBm),
// the second has one point (100 MHz, -70 dBm); 2.5 ms apart.
SpatialScanData MakeTwoEntries() {
    SpatialScanData data;
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
                                     "02 00 00 00"                           // entries
                                     // 100.1 MHz; 0.5 0.25 0.125; 1 ms; -75.5
                                     "00 00 00 80 9E DD 97 41  00 00 00 3F 00 00 80 3E 00 00 00 3E"
                                     "40 42 0F 00 00 00 00 00  00 00 97 C2"
                                     // 100 MHz; 0.25 0.75 2; 3.5 ms; -70
                                     "00 00 00 00 84 D7 97 41  00 00 80 3E 00 00 40 3F 00 00 00 40"
                                     "E0 67 35 00 00 00 00 00  00 00 8C C2");

// The body's entry 0 as the test reads it back.
struct EntryView {
    double frequencyHz;
    float x, y, z;
    int64_t ticks;
    float amplitude;
};

EntryView Entry(const SpatialScanData& data, size_t index) {
    const SpatialScanMeasurement& e = data.GetMeasurements().at(index);
    return {e.frequency.Hz(), e.position.x().m(), e.position.y().m(), e.position.z().m(),
            std::chrono::duration_cast<std::chrono::nanoseconds>(e.time.time_since_epoch()).count(), e.amplitude.dBm()};
}

TEST(SpatialScanData, IsRegisteredUnderItsName) {
    SpatialScanData data;
    EXPECT_EQ(data.GetSerialType(), "SpatialSD");
    const auto found = GetSerializableTypes().find("SpatialSD");
    ASSERT_NE(found, GetSerializableTypes().end());
    EXPECT_NE(dynamic_cast<SpatialScanData*>(found->second.get()), nullptr);
}

TEST(SpatialScanData, FreshObjectIsEmptyAtIndexZeroWithHeaderOnlyCsv) {
    SpatialScanData data;
    EXPECT_TRUE(data.IsEmpty());
    EXPECT_EQ(data.GetWriteIndex(), 0);
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n");
}

TEST(SpatialScanData, FreshBoundsAreTheLargestAndTheSmallestPositiveFloat) {
    SpatialScanData data;
    data.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(0)));
    const std::string expected = Hex("00  00 00 00 00 00 00 00 00") + std::string(208, '\0') +
                                 Hex("FF FF 7F 7F  FF FF 7F 7F  FF FF 7F 7F"
                                     "00 00 80 00  00 00 80 00  00 00 80 00"
                                     "00 00 00 00");
    EXPECT_TRUE(SameBytes(expected, data.SerializeBinary()));
}

TEST(SpatialScanData, EachSweepBecomesItsStrongestPoint) {
    const SpatialScanData data = MakeTwoEntries();
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    EXPECT_EQ(data.GetWriteIndex(), 2);
    const EntryView e0 = Entry(data, 0);
    EXPECT_EQ(e0.frequencyHz, 100.1e6);
    EXPECT_EQ(e0.amplitude, -75.5f);
    EXPECT_EQ(e0.x, 0.5f);
    EXPECT_EQ(e0.ticks, 1000000);
    const EntryView e1 = Entry(data, 1);
    EXPECT_EQ(e1.frequencyHz, 100e6);
    EXPECT_EQ(e1.amplitude, -70.0f);
}

TEST(SpatialScanData, TiesInTheSweepGoToTheFirstPlace) {
    SpatialScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-5.0f, -1.0f, -1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    EXPECT_EQ(Entry(data, 0).frequencyHz, 1.001e6);
}

TEST(SpatialScanData, AddTouchesLastModified) {
    SpatialScanData data;
    const auto before = std::chrono::steady_clock::now();
    data.AddMeasurement(Sweep(1e6, 1e3, {-5.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    EXPECT_GE(data.GetLastModified(), before);
}

TEST(SpatialScanData, AfterResetOverwriteReplacesEntryZeroAndLeavesEntryOne) {
    SpatialScanData data = MakeTwoEntries();
    data.ResetWriteIndex();
    EXPECT_EQ(data.GetWriteIndex(), 0);
    EXPECT_FALSE(data.IsEmpty());
    data.AddMeasurement(Sweep(200e6, 1e6, {-99.0f, -98.0f}, At(1, 1, 1), 9ms), RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.GetWriteIndex(), 1);
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    const EntryView e0 = Entry(data, 0);
    EXPECT_EQ(e0.frequencyHz, 201e6);
    EXPECT_EQ(e0.amplitude, -98.0f);
    EXPECT_EQ(e0.x, 1.0f);
    EXPECT_EQ(e0.ticks, 9000000);
    const EntryView e1 = Entry(data, 1);
    EXPECT_EQ(e1.frequencyHz, 100e6);
    EXPECT_EQ(e1.amplitude, -70.0f);
    EXPECT_EQ(e1.y, 0.75f);
}

TEST(SpatialScanData, CombineKeepsTheGreaterAmplitudeAndTakesPositionAndTime) {
    SpatialScanData data = MakeTwoEntries();
    data.ResetWriteIndex();
    // Weaker than the stored -75.5: the amplitude stays, the rest is new.
    data.AddMeasurement(Sweep(300e6, 2e6, {-90.0f, -95.0f, -80.0f}, At(0.125f, 0.125f, 0), 7ms),
                        RepeatingBehavior::Combine);
    // Stronger than the stored -70.
    data.AddMeasurement(Sweep(100e6, 100e3, {-60.0f}, At(2, 2, 2), 8ms), RepeatingBehavior::Combine);
    EXPECT_EQ(data.GetWriteIndex(), 2);
    const EntryView e0 = Entry(data, 0);
    EXPECT_EQ(e0.amplitude, -75.5f);
    EXPECT_EQ(e0.x, 0.125f);
    EXPECT_EQ(e0.y, 0.125f);
    EXPECT_EQ(e0.ticks, 7000000);
    // The frequency is the new sweep's peak even though the old amplitude stays.
    EXPECT_EQ(e0.frequencyHz, 304e6);
    const EntryView e1 = Entry(data, 1);
    EXPECT_EQ(e1.amplitude, -60.0f);
    EXPECT_EQ(e1.x, 2.0f);
    EXPECT_EQ(e1.ticks, 8000000);
}

TEST(SpatialScanData, WriteBeyondTheEndAppendsAndCombineCountsAsOverwrite) {
    SpatialScanData data;
    // Combined with the zeroed new entry, 0 dBm would win; as Overwrite -80 is kept.
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f}, first, 1ms), RepeatingBehavior::Combine);
    ASSERT_EQ(data.GetMeasurements().size(), 1u);
    EXPECT_EQ(Entry(data, 0).amplitude, -80.0f);
    EXPECT_EQ(data.GetWriteIndex(), 1);
}

TEST(SpatialScanData, NegativeOnlyPositionsLeaveTheMaximumAtTheSmallestPositiveFloat) {
    SpatialScanData data;
    data.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(0)));
    data.AddMeasurement(Sweep(0, 0, {-80.0f}, At(-1, -1, -1), 0ns), RepeatingBehavior::Overwrite);
    const std::string body = data.SerializeBinary();
    ASSERT_GE(body.size(), 241u);
    EXPECT_TRUE(SameBytes(Hex("00 00 80 BF  00 00 80 BF  00 00 80 BF"   // boundsMin -1
                              "00 00 80 00  00 00 80 00  00 00 80 00"), // boundsMax unchanged
                          body.substr(217, 24)));
}

TEST(SpatialScanData, CsvHasOneLinePerEntryWithMillisecondsFromTheFirst) {
    const SpatialScanData data = MakeTwoEntries();
    // 3.5 ms - 1 ms = 2.5 ms, cut to 2.
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n"
                                     "100.1,-75.5,500,250,125,0\n"
                                     "100,-70,250,750,2000,2\n");
}

TEST(SpatialScanData, CsvTimeBeforeTheFirstEntryIsCutTowardsZero) {
    SpatialScanData data;
    data.AddMeasurement(Sweep(123456789.0, 0, {-80.123456f}, At(0.0123456789f, 0, 0), 10ms),
                        RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(1e6, 0, {0.0f}, At(0, 0, 0), 8500us), RepeatingBehavior::Overwrite);
    // -1.5 ms gives -1, not -2.
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n"
                                     "123.457,-80.1235,12.3457,0,0,0\n"
                                     "1,0,0,0,0,-1\n");
}

TEST(SpatialScanData, CsvTimesOfAnyTicksFromAFileWrapAround) {
    // The first entry at the smallest tick count, the second at the largest:
    // the difference, 2^64 - 1 nanoseconds, wraps to -1 and is cut to 0 ms.
    const std::string body = Hex("00  00 00 00 00 00 00 00 00") + std::string(24, '\0') + Hex("02 00 00 00") +
                             std::string(20, '\0') + Hex("00 00 00 00 00 00 00 80  00 00 00 00") +
                             std::string(20, '\0') + Hex("FF FF FF FF FF FF FF 7F  00 00 00 00");
    SpatialScanData data;
    std::string_view view(body);
    data.DeserializeBinary(view, Version(4));
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm),X (mm),Y (mm),Z (mm),Time (ms)\n"
                                     "0,0,0,0,0,0\n"
                                     "0,0,0,0,0,0\n");
}

TEST(SpatialScanData, BinaryBodyIsLaidOutByteByByte) {
    const SpatialScanData data = MakeTwoEntries();
    const std::string body = data.SerializeBinary();
    EXPECT_EQ(body.size(), 309u);
    EXPECT_TRUE(SameBytes(expectedHead + ExpectedInfo() + expectedRest, body));
}

TEST(SpatialScanData, ReadsVersion5WithCreationTimeAndInfo) {
    const std::string body = expectedHead + ExpectedInfo() + expectedRest + Hex("EE EE");
    SpatialScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}, first, 0ns), RepeatingBehavior::Overwrite);
    const auto before = std::chrono::steady_clock::now();
    std::string_view view(body);
    data.DeserializeBinary(view, Version(5));
    EXPECT_EQ(view.size(), 2u);
    EXPECT_EQ(data.GetState(), IScanData::State::Complete);
    EXPECT_EQ(data.GetCreationTime().time_since_epoch().count(), 0x0102030405060708);
    EXPECT_GE(data.GetLastModified(), before);
    EXPECT_EQ(data.GetInfo().header[0], 0x11);
    EXPECT_EQ(data.GetInfo().devices[1].serial[31], 'z');
    // The write index is not in the body and stays.
    EXPECT_EQ(data.GetWriteIndex(), 3);
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    const EntryView e1 = Entry(data, 1);
    EXPECT_EQ(e1.frequencyHz, 100e6);
    EXPECT_EQ(e1.x, 0.25f);
    EXPECT_EQ(e1.y, 0.75f);
    EXPECT_EQ(e1.z, 2.0f);
    EXPECT_EQ(e1.ticks, 3500000);
    EXPECT_EQ(e1.amplitude, -70.0f);
}

TEST(SpatialScanData, ReadsVersion4WithModificationTimeAndNoInfo) {
    const std::string body = expectedHead + expectedRest;
    SpatialScanData data;
    const IScanData::CreationTime constructed = data.GetCreationTime();
    std::memset(&data.GetInfo(), 0x5A, sizeof(ScanDataInfo));
    std::string_view view(body);
    data.DeserializeBinary(view, Version(4));
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(data.GetState(), IScanData::State::Complete);
    // Below version 5 the eight bytes are the steady-clock time of the last change.
    EXPECT_EQ(std::chrono::duration_cast<std::chrono::nanoseconds>(data.GetLastModified().time_since_epoch()).count(),
              0x0102030405060708);
    EXPECT_EQ(data.GetCreationTime(), constructed);
    const ScanDataInfo zero{};
    EXPECT_EQ(std::memcmp(&data.GetInfo(), &zero, sizeof zero), 0);
    ASSERT_EQ(data.GetMeasurements().size(), 2u);
    EXPECT_EQ(Entry(data, 0).frequencyHz, 100.1e6);
    EXPECT_EQ(Entry(data, 0).amplitude, -75.5f);
}

TEST(SpatialScanData, RoundTripAtVersion5KeepsAllButLastModifiedAndWriteIndex) {
    SpatialScanData source = MakeTwoEntries();
    source.SetLastModified(IScanData::SteadyTime(3ns));
    SpatialScanData copy;
    const std::string body = source.SerializeBinary();
    std::string_view view(body);
    copy.DeserializeBinary(view, Version(5));
    EXPECT_EQ(copy.GetState(), source.GetState());
    EXPECT_EQ(copy.GetCreationTime(), source.GetCreationTime());
    EXPECT_EQ(std::memcmp(&copy.GetInfo(), &source.GetInfo(), sizeof(ScanDataInfo)), 0);
    EXPECT_NE(copy.GetLastModified(), source.GetLastModified());
    EXPECT_EQ(source.GetWriteIndex(), 2);
    EXPECT_EQ(copy.GetWriteIndex(), 0);
    EXPECT_TRUE(SameBytes(body, copy.SerializeBinary()));
    EXPECT_EQ(copy.SerializeToCSV(), source.SerializeToCSV());
}

TEST(SpatialScanData, RoundTripThroughAnObjectRecord) {
    const SpatialScanData source = MakeTwoEntries();
    std::string record;
    AppendSerializeObject(record, &source);
    const std::string expected =
        Hex("09 00 00 00") + "SpatialSD" + Hex("35 01 00 00") + expectedHead + ExpectedInfo() + expectedRest;
    EXPECT_TRUE(SameBytes(expected, record));

    std::string_view view(record);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, Version(5)));
    EXPECT_TRUE(view.empty());
    auto* spatial = dynamic_cast<SpatialScanData*>(read.get());
    ASSERT_NE(spatial, nullptr);
    EXPECT_EQ(spatial->GetMeasurements().size(), 2u);
    EXPECT_TRUE(SameBytes(expectedHead + ExpectedInfo() + expectedRest, spatial->SerializeBinary()));
}

TEST(SpatialScanData, EveryTruncatedBodyRaises) {
    const std::string v5 = expectedHead + ExpectedInfo() + expectedRest;
    for (size_t length = 0; length < v5.size(); ++length)
        test::ExpectRaisesDeserializationError<SpatialScanData>(v5.substr(0, length), 5);
    const std::string v4 = expectedHead + expectedRest;
    for (size_t length = 0; length < v4.size(); ++length)
        test::ExpectRaisesDeserializationError<SpatialScanData>(v4.substr(0, length), 4);
}

TEST(SpatialScanData, HugeEntryCountRaisesInsteadOfAllocating) {
    const std::string body = expectedHead + std::string(24, '\0') + Hex("FF FF FF FF") + std::string(64, '\0');
    test::ExpectRaisesDeserializationError<SpatialScanData>(body, 4);
}

TEST(SpatialScanData, CopyTakesEntriesBoundsAndIndexButNotInfoOrUserData) {
    SpatialScanData source = MakeTwoEntries();
    int owner = 0;
    source.SetUserData(&owner);
    const SpatialScanData copy(source);
    std::unique_ptr<SpatialScanData> clone(source.Clone());
    for (const SpatialScanData* made : {&copy, static_cast<const SpatialScanData*>(clone.get())}) {
        EXPECT_EQ(made->GetWriteIndex(), 2);
        EXPECT_EQ(made->GetUserData(), nullptr);
        EXPECT_EQ(made->GetState(), IScanData::State::Complete);
        EXPECT_EQ(made->GetLastModified(), source.GetLastModified());
        EXPECT_TRUE(SameBytes(expectedHead + std::string(208, '\0') + expectedRest, made->SerializeBinary()));
    }
    SpatialScanData target;
    target.SetUserData(&owner);
    target.GetInfo().header[0] = 0x22;
    target = source;
    EXPECT_EQ(target.GetWriteIndex(), 2);
    EXPECT_EQ(target.GetUserData(), &owner);
    std::string withTargetInfo = expectedHead + std::string(208, '\0') + expectedRest;
    withTargetInfo[9] = 0x22;
    EXPECT_TRUE(SameBytes(withTargetInfo, target.SerializeBinary()));
}

TEST(SpatialScanData, EmptySweepCountsAsTheWeakestPoint) {
    SpatialScanData data;
    data.AddMeasurement(Sweep(5e6, 1e3, {}, first, 0ns), RepeatingBehavior::Overwrite);
    ASSERT_EQ(data.GetMeasurements().size(), 1u);
    EXPECT_EQ(Entry(data, 0).frequencyHz, 5e6);
    EXPECT_EQ(Entry(data, 0).amplitude, std::numeric_limits<float>::lowest());
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

SpatialScanData TwoCorrectableEntries() {
    SpatialScanData data;
    data.AddMeasurement(Sweep(100e6, 0, {-80.0f}, cell00, 0ns), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(150e6, 0, {-70.0f}, cell10, 0ns), RepeatingBehavior::Overwrite);
    return data;
}

TEST(SpatialScanData, CompensationAddsTheValueAtEachEntrysFrequencyAndCell) {
    SpatialScanData data = TwoCorrectableEntries();
    EXPECT_TRUE(data.ApplyCompensation(GridCorrection()));
    // Cell (0, 0) at 100 MHz: +1. Cell (1, 0) halfway to 200 MHz: (2 + 6) / 2 = +4.
    EXPECT_EQ(Entry(data, 0).amplitude, -79.0f);
    EXPECT_EQ(Entry(data, 1).amplitude, -66.0f);
    const std::string body = data.SerializeBinary();
    EXPECT_TRUE(SameBytes(Hex("00 00 9E C2"), body.substr(245 + 28, 4)));
    EXPECT_TRUE(SameBytes(Hex("00 00 84 C2"), body.substr(245 + 32 + 28, 4)));
}

TEST(SpatialScanData, PartialCompensationCorrectsOnlyTheGivenEntries) {
    SpatialScanData data = TwoCorrectableEntries();
    const Compensation correction = GridCorrection();
    data.PartialApplyCompensation(correction, 1, 1);
    EXPECT_EQ(Entry(data, 0).amplitude, -80.0f);
    EXPECT_EQ(Entry(data, 1).amplitude, -66.0f);
    // A range beyond the entries is cut to them.
    data.PartialApplyCompensation(correction, -1, 2);
    EXPECT_EQ(Entry(data, 0).amplitude, -79.0f);
    EXPECT_EQ(Entry(data, 1).amplitude, -66.0f);
    data.PartialApplyCompensation(correction, 1, 100);
    EXPECT_EQ(Entry(data, 1).amplitude, -62.0f);
    data.PartialApplyCompensation(correction, 2, 1);
    EXPECT_EQ(Entry(data, 1).amplitude, -62.0f);
}

TEST(SpatialScanData, CompensationOfNoEntriesStillSucceeds) {
    SpatialScanData data;
    EXPECT_TRUE(data.ApplyCompensation(GridCorrection()));
}

} // namespace
} // namespace nrq
