#include "HVX/App/Data/ScanData.h"

#include "HVX/App/Data/Compensation.h"

#include "support/HexBytes.h"

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

FullScanMeasurement SweepOf(std::initializer_list<float> amplitudes) {
    FullScanMeasurement m;
    for (float a : amplitudes)
        m.values.push_back(DecibelMilliwatts(a));
    m.count = m.values.size();
    return m;
}

bool AllZero(const ScanDataInfo& info) {
    const ScanDataInfo zero{};
    return std::memcmp(&info, &zero, sizeof info) == 0;
}

// Scan data that only counts which AddMeasurement slot was reached.
class CountingScanData : public IScanData {
public:
    CountingScanData* Clone() const override { return new CountingScanData(*this); }
    const std::string& GetSerialType() const override {
        static const std::string name = "CountingSD";
        return name;
    }
    using IScanData::AddMeasurement;
    void AddMeasurement(const FullScanMeasurement& m, RepeatingBehavior behavior) override {
        ++byReference;
        lastCount = m.count;
        lastBehavior = behavior;
    }
    int byReference = 0;
    uint64_t lastCount = 0;
    RepeatingBehavior lastBehavior = RepeatingBehavior::Overwrite;
};

TEST(FullScanMeasurement, DefaultIsZeroAndEmpty) {
    const FullScanMeasurement m;
    EXPECT_EQ(m.position, Position());
    EXPECT_EQ(m.time.time_since_epoch().count(), 0);
    EXPECT_EQ(m.startFrequency.Hz(), 0.0);
    EXPECT_EQ(m.stepFrequency.Hz(), 0.0);
    EXPECT_EQ(m.count, 0u);
    EXPECT_TRUE(m.values.empty());
    EXPECT_EQ(m.minIndex, 0u);
    EXPECT_EQ(m.maxIndex, 0u);
}

TEST(FullScanMeasurement, CalculateMaxIndexTiesGoToTheFirstPlace) {
    FullScanMeasurement m = SweepOf({1, 3, 3, 1});
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 0u);
    EXPECT_EQ(m.maxIndex, 1u);
}

TEST(FullScanMeasurement, CalculateMaxIndexFillsBothIndices) {
    FullScanMeasurement m = SweepOf({2, 1, 1, 5, 5});
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 1u);
    EXPECT_EQ(m.maxIndex, 3u);
}

TEST(FullScanMeasurement, CalculateMaxIndexOfNoValuesIsZero) {
    FullScanMeasurement m;
    m.minIndex = 7;
    m.maxIndex = 9;
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 0u);
    EXPECT_EQ(m.maxIndex, 0u);
}

TEST(FullScanMeasurement, CalculateMaxIndexOnALongSweepTakesTheFirstOfEqualExtremes) {
    FullScanMeasurement m = SweepOf({-50, -50, -50, -50, -50, -90, -50, -50, -50, -50,
                                     -50, -50, -50, -10, -50, -50, -50, -10, -90, -50});
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 5u);
    EXPECT_EQ(m.maxIndex, 13u);
}

TEST(FullScanMeasurement, CalculateMaxIndexFindsExtremesInTheLastPlaces) {
    FullScanMeasurement m = SweepOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1, 1});
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 23u);
    EXPECT_EQ(m.maxIndex, 24u);
}

TEST(FullScanMeasurement, CalculateMaxIndexNeverPicksANaN) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    FullScanMeasurement m = SweepOf({1, nan, 3, -2, nan, nan, nan, nan, nan, nan, nan, nan, nan, nan, nan, nan, nan});
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 3u);
    EXPECT_EQ(m.maxIndex, 2u);
}

TEST(FullScanMeasurement, CalculateMaxIndexWithANaNFirstStaysAtZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    FullScanMeasurement m = SweepOf({nan, 1, -1, 2, -2, 3, -3, 4, -4, 5, -5, 6, -6});
    m.minIndex = 4;
    m.maxIndex = 4;
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 0u);
    EXPECT_EQ(m.maxIndex, 0u);
}

TEST(FullScanMeasurement, CalculateMaxIndexTreatsBothZerosAsEqual) {
    FullScanMeasurement m = SweepOf({-1, 0.0f, -0.0f, -2, -3, -3, -1, -0.0f, 0.0f, -2, -3, -1});
    m.CalculateMaxIndex();
    EXPECT_EQ(m.minIndex, 4u);
    EXPECT_EQ(m.maxIndex, 1u);
    FullScanMeasurement zeros = SweepOf({-0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f});
    zeros.CalculateMaxIndex();
    EXPECT_EQ(zeros.minIndex, 0u);
    EXPECT_EQ(zeros.maxIndex, 0u);
}

TEST(ScanDataInfo, RecordsHaveTheirFixedSizes) {
    EXPECT_EQ(sizeof(ScanDataDeviceInfo), 96u);
    EXPECT_EQ(sizeof(ScanDataInfo), 208u);
}

TEST(FillScanDataDeviceInfo, CopiesBoundedAndZeroFilled) {
    DeviceInformation device;
    device.manufacturer = "Nerquil Labs";
    device.model = "0123456789abcdefghijklmnopqrstuvwxyz"; // 36 bytes
    device.serial = std::string("ab\0cd", 5);
    ScanDataDeviceInfo target;
    std::memset(&target, 0x55, sizeof target);
    FillScanDataDeviceInfo(target, device);

    EXPECT_EQ(std::string(target.manufacturer, 32), std::string("Nerquil Labs") + std::string(20, '\0'));
    // 32 bytes or more: cut, and no terminator.
    EXPECT_EQ(std::string(target.model, 32), "0123456789abcdefghijklmnopqrstuv");
    // The copy ends at the first NUL, like a C string copy.
    EXPECT_EQ(std::string(target.serial, 32), std::string("ab") + std::string(30, '\0'));
}

TEST(IScanData, FreshObjectIsZeroWithCreationTimeNow) {
    const auto before = std::chrono::system_clock::now();
    BlankScanData data;
    const auto after = std::chrono::system_clock::now();
    EXPECT_EQ(data.GetState(), IScanData::State::Empty);
    EXPECT_EQ(data.GetLastModified().time_since_epoch().count(), 0);
    EXPECT_TRUE(AllZero(data.GetInfo()));
    EXPECT_EQ(data.GetUserData(), nullptr);
    // Whole 100-ns ticks, cut from the clock's reading.
    EXPECT_GE(data.GetCreationTime(), std::chrono::time_point_cast<IScanData::CreationDuration>(before));
    EXPECT_LE(data.GetCreationTime(), after);
}

TEST(IScanData, StateValuesAreFixed) {
    EXPECT_EQ(static_cast<int32_t>(IScanData::State::Empty), 0);
    EXPECT_EQ(static_cast<int32_t>(IScanData::State::Scanning), 1);
    EXPECT_EQ(static_cast<int32_t>(IScanData::State::Complete), 2);
    EXPECT_EQ(static_cast<int32_t>(RepeatingBehavior::Overwrite), 0);
    EXPECT_EQ(static_cast<int32_t>(RepeatingBehavior::Combine), 1);
}

TEST(IScanData, SetStateToTheSameStateKeepsTheTime) {
    BlankScanData data;
    const IScanData::SteadyTime marked(std::chrono::nanoseconds(12345));
    data.SetLastModified(marked);
    data.SetState(IScanData::State::Empty);
    EXPECT_EQ(data.GetLastModified(), marked);
}

TEST(IScanData, SetStateToAnotherStateTouchesTheTime) {
    BlankScanData data;
    data.SetLastModified(IScanData::SteadyTime(std::chrono::nanoseconds(12345)));
    const auto before = std::chrono::steady_clock::now();
    data.SetState(IScanData::State::Scanning);
    EXPECT_EQ(data.GetState(), IScanData::State::Scanning);
    EXPECT_GE(data.GetLastModified(), before);
}

TEST(IScanData, CopyTakesStateAndTimesButNeitherUserDataNorInfo) {
    BlankScanData source;
    int owner = 0;
    source.SetUserData(&owner);
    source.GetInfo().header[0] = 9;
    source.SetState(IScanData::State::Complete);
    source.SetLastModified(IScanData::SteadyTime(std::chrono::nanoseconds(77)));
    source.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(1234567)));

    const BlankScanData copy(source);
    std::unique_ptr<BlankScanData> clone(source.Clone());
    for (const IScanData* made : {static_cast<const IScanData*>(&copy), static_cast<const IScanData*>(clone.get())}) {
        EXPECT_EQ(made->GetState(), IScanData::State::Complete);
        EXPECT_EQ(made->GetLastModified().time_since_epoch().count(), 77);
        EXPECT_EQ(made->GetCreationTime().time_since_epoch().count(), 1234567);
        EXPECT_EQ(made->GetUserData(), nullptr);
        EXPECT_TRUE(AllZero(made->GetInfo()));
    }
}

TEST(IScanData, AssignmentKeepsTheTargetsUserDataAndInfo) {
    BlankScanData source;
    int sourceOwner = 0;
    source.SetUserData(&sourceOwner);
    source.GetInfo().header[0] = 1;
    source.SetState(IScanData::State::Scanning);
    source.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(42)));

    BlankScanData target;
    int targetOwner = 0;
    target.SetUserData(&targetOwner);
    target.GetInfo().header[0] = 2;
    target = source;
    EXPECT_EQ(target.GetState(), IScanData::State::Scanning);
    EXPECT_EQ(target.GetCreationTime().time_since_epoch().count(), 42);
    EXPECT_EQ(target.GetUserData(), &targetOwner);
    EXPECT_EQ(target.GetInfo().header[0], 2);
}

TEST(IScanData, DefaultSlotsForwardToAddByReference) {
    CountingScanData data;
    FullScanMeasurement m = SweepOf({1, 2, 3});
    data.AddMeasurement(std::move(m), RepeatingBehavior::Combine);
    EXPECT_EQ(data.byReference, 1);
    EXPECT_EQ(data.lastCount, 3u);
    EXPECT_EQ(data.lastBehavior, RepeatingBehavior::Combine);

    const FullScanMeasurement several[3] = {SweepOf({1}), SweepOf({1, 2}), SweepOf({1, 2, 3, 4})};
    data.AddMeasurements(several, 3, RepeatingBehavior::Overwrite);
    EXPECT_EQ(data.byReference, 4);
    EXPECT_EQ(data.lastCount, 4u);
    EXPECT_EQ(data.lastBehavior, RepeatingBehavior::Overwrite);
}

TEST(IScanData, DefaultsOfTheOtherSlots) {
    CountingScanData data;
    EXPECT_TRUE(data.IsEmpty());
    EXPECT_EQ(data.SerializeToCSV(), "");
    EXPECT_EQ(data.SerializeBinary(), "");
    data.ResetWriteIndex();
    std::string body = "abc";
    std::string_view view(body);
    data.DeserializeBinary(view, SerializeInfo{});
    EXPECT_EQ(view.size(), 3u);
}

TEST(BlankScanData, StoresNothingAndNeverCountsAsEmpty) {
    BlankScanData data;
    EXPECT_FALSE(data.IsEmpty());
    data.AddMeasurement(SweepOf({1, 2}), RepeatingBehavior::Overwrite);
    const FullScanMeasurement m = SweepOf({3});
    data.AddMeasurement(m, RepeatingBehavior::Combine);
    data.AddMeasurements(&m, 1, RepeatingBehavior::Overwrite);
    data.ResetWriteIndex();
    EXPECT_FALSE(data.IsEmpty());
    EXPECT_EQ(data.SerializeBinary(), "");
    EXPECT_EQ(data.SerializeToCSV(), "");
    EXPECT_EQ(data.GetSerialType(), "SD");
}

TEST(BlankScanData, DeserializeReadsNothing) {
    BlankScanData data;
    const std::string body = Hex("01 02 03");
    std::string_view view(body);
    data.DeserializeBinary(view, SerializeInfo{});
    EXPECT_EQ(view.size(), 3u);
    EXPECT_EQ(data.GetState(), IScanData::State::Empty);
}

TEST(BlankScanData, IsNotRegisteredAndReadsBackAsUnknownSerializable) {
    EXPECT_EQ(GetSerializableTypes().count("SD"), 0u);
    BlankScanData data;
    std::string record;
    AppendSerializeObject(record, &data);
    EXPECT_TRUE(SameBytes(Hex("02 00 00 00 53 44  00 00 00 00"), record));

    SerializeInfo info;
    info.version = 4;
    std::string_view view(record);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, info));
    auto* unknown = dynamic_cast<UnknownSerializable*>(read.get());
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->GetType(), "SD");
    EXPECT_EQ(unknown->GetData(), "");
    EXPECT_EQ(unknown->GetFormat(), 4);
    EXPECT_TRUE(view.empty());
}

TEST(UnknownScanData, IsRegisteredAndEmpty) {
    ASSERT_EQ(GetSerializableTypes().count("UnknownScanData"), 1u);
    UnknownScanData data;
    EXPECT_TRUE(data.IsEmpty());
    EXPECT_EQ(data.SerializeToCSV(), "");
    EXPECT_EQ(data.GetSerialType(), "UnknownScanData");
}

TEST(UnknownScanData, WritesTypeDataAndFormat) {
    UnknownScanData data;
    data.SetType("FutureSD");
    data.SetData(std::string("\x01\x02", 2));
    data.SetFormat(7);

    std::string record;
    AppendSerializeObject(record, &data);
    const std::string expected = Hex("0F 00 00 00") + "UnknownScanData" + Hex("16 00 00 00") + // 22-byte body
                                 Hex("08 00 00 00") + "FutureSD" + Hex("02 00 00 00 01 02") + Hex("07 00 00 00");
    EXPECT_TRUE(SameBytes(expected, record));

    // Read back, the wrapper is opened; its type is unknown here, so the bytes
    // stay as they were, with the stored format.
    std::string_view view(record);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, SerializeInfo{}));
    auto* unknown = dynamic_cast<UnknownSerializable*>(read.get());
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->GetType(), "FutureSD");
    EXPECT_EQ(unknown->GetData(), std::string("\x01\x02", 2));
    EXPECT_EQ(unknown->GetFormat(), 7);
    EXPECT_TRUE(view.empty());
}

TEST(UnknownScanData, CloneIsACopyOfTheKeptBytes) {
    UnknownScanData data;
    data.SetType("X");
    data.SetData("yz");
    data.SetFormat(3);
    std::unique_ptr<UnknownScanData> clone(data.Clone());
    EXPECT_EQ(clone->GetType(), "X");
    EXPECT_EQ(clone->GetData(), "yz");
    EXPECT_EQ(clone->GetFormat(), 3);
    EXPECT_TRUE(SameBytes(data.SerializeBinary(), clone->SerializeBinary()));
}

TEST(UnknownScanData, TruncatedBodyRaises) {
    UnknownScanData data;
    const std::string body = Hex("08 00 00 00") + "Future";
    std::string_view view(body);
    try {
        data.DeserializeBinary(view, SerializeInfo{});
        FAIL() << "no error";
    } catch (const Error& e) {
        EXPECT_THAT(e.what(), HasSubstr("Deserialization ERROR"));
    }
}

Compensation FlatCorrection() {
    return Compensation::Decode(Hex("43 4F 52 52 45 43 54 49 4F 4E  00 00 00 00"
                                    "00 00 00 00  00 00 00 00  01 00 00 00"
                                    "00 00 00 00 84 D7 97 41  00 00 80 3F"));
}

TEST(IScanData, DefaultCompensationDoesNothing) {
    CountingScanData data;
    EXPECT_FALSE(data.ApplyCompensation(FlatCorrection()));
}

TEST(BlankScanData, CompensationReturnsFalse) {
    BlankScanData data;
    EXPECT_FALSE(data.ApplyCompensation(FlatCorrection()));
}

} // namespace
} // namespace nrq
