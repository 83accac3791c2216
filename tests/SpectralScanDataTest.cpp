#include "HVX/App/Data/SpectralScanData.h"

#include "HVX/App/Data/Compensation.h"

#include "support/HexBytes.h"
#include "support/SerializeHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>

namespace nrq {
namespace {

using test::Hex;
using test::SameBytes;
using ::testing::HasSubstr;

FullScanMeasurement Sweep(double startHz, double stepHz, std::initializer_list<float> amplitudes) {
    FullScanMeasurement m;
    m.startFrequency = Frequency(startHz);
    m.stepFrequency = Frequency(stepHz);
    for (float a : amplitudes)
        m.values.push_back(DecibelMilliwatts(a));
    m.count = m.values.size();
    return m;
}

std::vector<float> Amplitudes(const SpectralScanData& data) {
    std::vector<float> out;
    for (DecibelMilliwatts v : data.GetValues())
        out.push_back(v.dBm());
    return out;
}

using test::Version;

// 100 MHz start, 100 kHz step, two points: the maximum of [-80, -90] and [-85, -75.5].
SpectralScanData MakeTwoPointSpectrum() {
    SpectralScanData data;
    data.AddMeasurement(Sweep(100e6, 100e3, {-80.0f, -90.0f}), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(100e6, 100e3, {-85.0f, -75.5f}), RepeatingBehavior::Overwrite);
    data.SetState(IScanData::State::Complete);
    data.SetCreationTime(IScanData::CreationTime(IScanData::CreationDuration(0x0102030405060708)));
    data.GetInfo().header[0] = 0x11;
    data.GetInfo().devices[1].serial[31] = 'z';
    return data;
}

// The info block of MakeTwoPointSpectrum: 0x11, 206 zeros, 'z'.
std::string ExpectedInfo() {
    std::string info(208, '\0');
    info[0] = 0x11;
    info[207] = 'z';
    return info;
}

const std::string expectedHead = Hex("02  08 07 06 05 04 03 02 01");
const std::string expectedTail = Hex("00 00 00 00 84 D7 97 41" // start, 1e8
                                     "00 00 00 00 00 6A F8 40" // step, 1e5
                                     "02 00 00 00"             // count
                                     "02 00 00 00"             // number of values
                                     "00 00 A0 C2"             // -80
                                     "00 00 97 C2");           // -75.5

TEST(SpectralScanData, IsRegisteredUnderItsName) {
    SpectralScanData data;
    EXPECT_EQ(data.GetSerialType(), "SpectralSD");
    const auto found = GetSerializableTypes().find("SpectralSD");
    ASSERT_NE(found, GetSerializableTypes().end());
    EXPECT_NE(dynamic_cast<SpectralScanData*>(found->second.get()), nullptr);
}

TEST(SpectralScanData, FreshObjectIsEmpty) {
    SpectralScanData data;
    EXPECT_TRUE(data.IsEmpty());
    EXPECT_FALSE(data.IsRestartPending());
    EXPECT_EQ(data.GetCount(), 0u);
}

TEST(SpectralScanData, EmptySweepLeavesItEmptyWithoutError) {
    SpectralScanData data;
    FullScanMeasurement none;
    none.startFrequency = Frequency(5e6);
    EXPECT_NO_THROW(data.AddMeasurement(none, RepeatingBehavior::Overwrite));
    EXPECT_TRUE(data.IsEmpty());
    // A second one of another empty shape is taken over again: the object is still empty.
    none.startFrequency = Frequency(6e6);
    EXPECT_NO_THROW(data.AddMeasurement(none, RepeatingBehavior::Combine));
    EXPECT_TRUE(data.IsEmpty());
}

TEST(SpectralScanData, FirstSweepSetsTheShape) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 2e3, {-50.0f, -60.0f, -70.0f}), RepeatingBehavior::Combine);
    EXPECT_FALSE(data.IsEmpty());
    EXPECT_EQ(data.GetStartFrequency().Hz(), 1e6);
    EXPECT_EQ(data.GetStepFrequency().Hz(), 2e3);
    EXPECT_EQ(data.GetCount(), 3u);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-50.0f, -60.0f, -70.0f}));
}

TEST(SpectralScanData, KeepsTheElementWiseMaximumOverPositions) {
    SpectralScanData data;
    FullScanMeasurement first = Sweep(1e6, 1e3, {-80.0f, -90.0f, -70.0f});
    first.position = Position(Length(0.01f), Length(0.02f), Length(0.0f));
    FullScanMeasurement second = Sweep(1e6, 1e3, {-85.0f, -75.5f, -70.0f});
    second.position = Position(Length(0.03f), Length(0.04f), Length(0.0f));
    data.AddMeasurement(first, RepeatingBehavior::Overwrite);
    data.AddMeasurement(second, RepeatingBehavior::Overwrite);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -75.5f, -70.0f}));
}

TEST(SpectralScanData, OnEqualValuesTheStoredOneStays) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {0.0f}), RepeatingBehavior::Overwrite);
    data.AddMeasurement(Sweep(1e6, 1e3, {-0.0f}), RepeatingBehavior::Overwrite);
    // -0 equals +0, so the stored +0 is kept: its bit pattern shows it.
    EXPECT_FALSE(std::signbit(data.GetValues()[0].dBm()));
}

TEST(SpectralScanData, SweepOfAnotherSizeRaisesAndKeepsTheData) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f, -90.0f}), RepeatingBehavior::Overwrite);
    const IScanData::SteadyTime marked(std::chrono::nanoseconds(5));
    data.SetLastModified(marked);
    try {
        data.AddMeasurement(Sweep(1e6, 1e3, {-10.0f, -10.0f, -10.0f}), RepeatingBehavior::Overwrite);
        FAIL() << "no error";
    } catch (const Error& e) {
        EXPECT_THAT(e.what(), HasSubstr("attempted to add a measurement to spectral data of a different size"));
    }
    EXPECT_EQ(data.GetCount(), 2u);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -90.0f}));
    EXPECT_EQ(data.GetLastModified(), marked);
}

TEST(SpectralScanData, AnotherStartOrStepRaisesToo) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f}), RepeatingBehavior::Overwrite);
    EXPECT_THROW(data.AddMeasurement(Sweep(1e6 + 1, 1e3, {-80.0f}), RepeatingBehavior::Overwrite), Error);
    EXPECT_THROW(data.AddMeasurement(Sweep(1e6, 1e3 + 1, {-80.0f}), RepeatingBehavior::Combine), Error);
}

TEST(SpectralScanData, AddTouchesLastModified) {
    SpectralScanData data;
    const auto before = std::chrono::steady_clock::now();
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f}), RepeatingBehavior::Overwrite);
    EXPECT_GE(data.GetLastModified(), before);
}

TEST(SpectralScanData, AfterResetAnotherShapeWithCombineRaises) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f, -90.0f}), RepeatingBehavior::Combine);
    data.ResetWriteIndex();
    EXPECT_TRUE(data.IsRestartPending());
    EXPECT_THROW(data.AddMeasurement(Sweep(2e6, 1e3, {-10.0f}), RepeatingBehavior::Combine), Error);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -90.0f}));
    // A failed add leaves the restart pending.
    EXPECT_TRUE(data.IsRestartPending());
}

TEST(SpectralScanData, AfterResetAnotherShapeWithOverwriteReplacesIt) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f, -90.0f}), RepeatingBehavior::Overwrite);
    data.ResetWriteIndex();
    data.AddMeasurement(Sweep(2e6, 5e2, {-95.0f, -96.0f, -97.0f}), RepeatingBehavior::Overwrite);
    EXPECT_FALSE(data.IsRestartPending());
    EXPECT_EQ(data.GetStartFrequency().Hz(), 2e6);
    EXPECT_EQ(data.GetStepFrequency().Hz(), 5e2);
    EXPECT_EQ(data.GetCount(), 3u);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-95.0f, -96.0f, -97.0f}));
}

TEST(SpectralScanData, AfterResetOverwriteOfTheSameShapeStartsANewSpectrum) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-10.0f, -20.0f}), RepeatingBehavior::Overwrite);
    data.ResetWriteIndex();
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f, -90.0f}), RepeatingBehavior::Overwrite);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -90.0f}));
    // Only the first sweep after the reset starts anew.
    data.AddMeasurement(Sweep(1e6, 1e3, {-85.0f, -70.0f}), RepeatingBehavior::Overwrite);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -70.0f}));
}

TEST(SpectralScanData, AfterResetCombineGoesOnTakingTheMaximum) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-10.0f, -20.0f}), RepeatingBehavior::Combine);
    data.ResetWriteIndex();
    data.AddMeasurement(Sweep(1e6, 1e3, {-80.0f, -5.0f}), RepeatingBehavior::Combine);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-10.0f, -5.0f}));
    EXPECT_FALSE(data.IsRestartPending());
}

TEST(SpectralScanData, CsvOfNoValuesIsTheHeaderAlone) {
    SpectralScanData data;
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm)\n");
}

TEST(SpectralScanData, CsvHasOneLinePerValue) {
    const SpectralScanData data = MakeTwoPointSpectrum();
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm)\n"
                                     "100,-80\n"
                                     "100.1,-75.5\n");
}

TEST(SpectralScanData, CsvUsesSixSignificantDigits) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(123456789.0, 1.5e12, {-80.123456f, 1234567.0f, 0.0001f}), RepeatingBehavior::Overwrite);
    // 123.456789 MHz; 1.5e12 + 123456789 Hz = 1500123.456789 MHz; 3000123.456789 MHz.
    EXPECT_EQ(data.SerializeToCSV(), "Frequency (MHz),Amplitude (dBm)\n"
                                     "123.457,-80.1235\n"
                                     "1.50012e+06,1.23457e+06\n"
                                     "3.00012e+06,0.0001\n");
}

TEST(SpectralScanData, BinaryBodyIsLaidOutByteByByte) {
    const SpectralScanData data = MakeTwoPointSpectrum();
    const std::string body = data.SerializeBinary();
    EXPECT_EQ(body.size(), 249u);
    EXPECT_TRUE(SameBytes(expectedHead + ExpectedInfo() + expectedTail, body));
}

TEST(SpectralScanData, CountIsKeptApartFromTheNumberOfValues) {
    // An empty spectrum whose count says more than it holds.
    SpectralScanData data;
    const std::string body = Hex("00  00 00 00 00 00 00 00 00") + std::string(208, '\0') +
                             Hex("00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                                 "05 00 00 00  00 00 00 00");
    std::string_view view(body);
    data.DeserializeBinary(view, Version(5));
    EXPECT_EQ(data.GetCount(), 5u);
    EXPECT_TRUE(data.IsEmpty());
    EXPECT_TRUE(SameBytes(body, data.SerializeBinary()));
}

TEST(SpectralScanData, ReadsVersion5WithItsInfoBlock) {
    const std::string body = expectedHead + ExpectedInfo() + expectedTail + Hex("EE");
    SpectralScanData data;
    const auto before = std::chrono::steady_clock::now();
    std::string_view view(body);
    data.DeserializeBinary(view, Version(5));
    // Only the body is consumed.
    EXPECT_EQ(view.size(), 1u);
    EXPECT_EQ(data.GetState(), IScanData::State::Complete);
    EXPECT_EQ(data.GetCreationTime().time_since_epoch().count(), 0x0102030405060708);
    EXPECT_EQ(data.GetInfo().header[0], 0x11);
    EXPECT_EQ(data.GetInfo().devices[1].serial[31], 'z');
    EXPECT_GE(data.GetLastModified(), before);
    EXPECT_EQ(data.GetStartFrequency().Hz(), 1e8);
    EXPECT_EQ(data.GetStepFrequency().Hz(), 1e5);
    EXPECT_EQ(data.GetCount(), 2u);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -75.5f}));
}

TEST(SpectralScanData, ReadsVersion4WithoutInfoAndZeroesIt) {
    const std::string body = expectedHead + expectedTail;
    EXPECT_EQ(body.size(), 41u);
    SpectralScanData data;
    std::memset(&data.GetInfo(), 0x5A, sizeof(ScanDataInfo));
    std::string_view view(body);
    data.DeserializeBinary(view, Version(4));
    EXPECT_TRUE(view.empty());
    const ScanDataInfo zero{};
    EXPECT_EQ(std::memcmp(&data.GetInfo(), &zero, sizeof zero), 0);
    EXPECT_EQ(data.GetState(), IScanData::State::Complete);
    EXPECT_EQ(data.GetCreationTime().time_since_epoch().count(), 0x0102030405060708);
    EXPECT_EQ(data.GetCount(), 2u);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -75.5f}));
    // Written again, the body is the current form, with the (zero) info block.
    EXPECT_TRUE(SameBytes(expectedHead + std::string(208, '\0') + expectedTail, data.SerializeBinary()));
}

TEST(SpectralScanData, ValuesTakeTheReadLength) {
    SpectralScanData data;
    data.AddMeasurement(Sweep(1e6, 1e3, {-1.0f, -2.0f, -3.0f, -4.0f}), RepeatingBehavior::Overwrite);
    const std::string body = expectedHead + expectedTail;
    std::string_view view(body);
    data.DeserializeBinary(view, Version(4));
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-80.0f, -75.5f}));
}

TEST(SpectralScanData, RoundTripAtVersion5KeepsAllButLastModified) {
    SpectralScanData source = MakeTwoPointSpectrum();
    source.SetLastModified(IScanData::SteadyTime(std::chrono::nanoseconds(3)));
    SpectralScanData copy;
    const std::string body = source.SerializeBinary();
    std::string_view view(body);
    copy.DeserializeBinary(view, Version(5));
    EXPECT_EQ(copy.GetState(), source.GetState());
    EXPECT_EQ(copy.GetCreationTime(), source.GetCreationTime());
    EXPECT_EQ(std::memcmp(&copy.GetInfo(), &source.GetInfo(), sizeof(ScanDataInfo)), 0);
    EXPECT_EQ(copy.GetStartFrequency(), source.GetStartFrequency());
    EXPECT_EQ(copy.GetStepFrequency(), source.GetStepFrequency());
    EXPECT_EQ(copy.GetCount(), source.GetCount());
    EXPECT_EQ(Amplitudes(copy), Amplitudes(source));
    EXPECT_NE(copy.GetLastModified(), source.GetLastModified());
}

TEST(SpectralScanData, RoundTripThroughAnObjectRecord) {
    const SpectralScanData source = MakeTwoPointSpectrum();
    std::string record;
    AppendSerializeObject(record, &source);
    const std::string expected =
        Hex("0A 00 00 00") + "SpectralSD" + Hex("F9 00 00 00") + expectedHead + ExpectedInfo() + expectedTail;
    EXPECT_TRUE(SameBytes(expected, record));

    std::string_view view(record);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, Version(5)));
    EXPECT_TRUE(view.empty());
    auto* spectral = dynamic_cast<SpectralScanData*>(read.get());
    ASSERT_NE(spectral, nullptr);
    EXPECT_EQ(Amplitudes(*spectral), (std::vector<float>{-80.0f, -75.5f}));
    EXPECT_EQ(spectral->GetInfo().header[0], 0x11);
    EXPECT_TRUE(SameBytes(source.SerializeBinary(), spectral->SerializeBinary()));
}

TEST(SpectralScanData, WrappedByAnOlderLibraryComesBackToLife) {
    const SpectralScanData source = MakeTwoPointSpectrum();
    UnknownScanData wrapper;
    wrapper.SetType("SpectralSD");
    wrapper.SetData(source.SerializeBinary());
    wrapper.SetFormat(5);
    std::string record;
    AppendSerializeObject(record, &wrapper);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(record, Version(5)));
    auto* spectral = dynamic_cast<SpectralScanData*>(read.get());
    ASSERT_NE(spectral, nullptr);
    EXPECT_EQ(Amplitudes(*spectral), (std::vector<float>{-80.0f, -75.5f}));
}

TEST(SpectralScanData, EveryTruncatedBodyRaises) {
    const std::string v5 = expectedHead + ExpectedInfo() + expectedTail;
    for (size_t length = 0; length < v5.size(); ++length)
        test::ExpectRaisesDeserializationError<SpectralScanData>(v5.substr(0, length), 5);
    const std::string v4 = expectedHead + expectedTail;
    for (size_t length = 0; length < v4.size(); ++length)
        test::ExpectRaisesDeserializationError<SpectralScanData>(v4.substr(0, length), 4);
}

TEST(SpectralScanData, HugeValueCountRaisesInsteadOfAllocating) {
    const std::string body = expectedHead + Hex("00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                                                 "02 00 00 00  FF FF FF FF  00 00 A0 C2");
    test::ExpectRaisesDeserializationError<SpectralScanData>(body, 4);
}

TEST(SpectralScanData, TruncatedRecordRaises) {
    const SpectralScanData source = MakeTwoPointSpectrum();
    std::string record;
    AppendSerializeObject(record, &source);
    record.resize(record.size() - 1);
    std::string_view view(record);
    try {
        std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, Version(5)));
        FAIL() << "no error";
    } catch (const Error& e) {
        EXPECT_THAT(e.what(), HasSubstr("Deserialization ERROR"));
    }
}

TEST(SpectralScanData, CopyTakesTheSpectrumButNotInfoOrUserData) {
    SpectralScanData source = MakeTwoPointSpectrum();
    int owner = 0;
    source.SetUserData(&owner);
    source.ResetWriteIndex();

    const SpectralScanData copy(source);
    std::unique_ptr<SpectralScanData> clone(source.Clone());
    for (const SpectralScanData* made : {&copy, static_cast<const SpectralScanData*>(clone.get())}) {
        EXPECT_EQ(made->GetState(), IScanData::State::Complete);
        EXPECT_EQ(made->GetCreationTime(), source.GetCreationTime());
        EXPECT_EQ(made->GetLastModified(), source.GetLastModified());
        EXPECT_EQ(made->GetStartFrequency().Hz(), 1e8);
        EXPECT_EQ(made->GetStepFrequency().Hz(), 1e5);
        EXPECT_EQ(made->GetCount(), 2u);
        EXPECT_EQ(Amplitudes(*made), (std::vector<float>{-80.0f, -75.5f}));
        EXPECT_TRUE(made->IsRestartPending());
        EXPECT_EQ(made->GetUserData(), nullptr);
        EXPECT_EQ(made->GetInfo().header[0], 0);
        EXPECT_TRUE(SameBytes(expectedHead + std::string(208, '\0') + expectedTail, made->SerializeBinary()));
    }
    // The copies are independent of the source.
    source.AddMeasurement(Sweep(1e8, 1e5, {0.0f, 0.0f}), RepeatingBehavior::Combine);
    EXPECT_EQ(Amplitudes(copy), (std::vector<float>{-80.0f, -75.5f}));
}

TEST(SpectralScanData, AssignmentKeepsTheTargetsInfoAndUserData) {
    const SpectralScanData source = MakeTwoPointSpectrum();
    SpectralScanData target;
    int owner = 0;
    target.SetUserData(&owner);
    target.GetInfo().header[0] = 0x22;
    target.AddMeasurement(Sweep(1e6, 1e3, {-1.0f}), RepeatingBehavior::Overwrite);
    target = source;
    EXPECT_EQ(target.GetUserData(), &owner);
    EXPECT_EQ(target.GetInfo().header[0], 0x22);
    EXPECT_EQ(target.GetState(), IScanData::State::Complete);
    EXPECT_EQ(target.GetCreationTime(), source.GetCreationTime());
    EXPECT_EQ(Amplitudes(target), (std::vector<float>{-80.0f, -75.5f}));
    EXPECT_EQ(target.GetCount(), 2u);
    // Self-assignment is harmless.
    SpectralScanData& self = target;
    target = self;
    EXPECT_EQ(Amplitudes(target), (std::vector<float>{-80.0f, -75.5f}));
}

// One value per frequency: 1 dB at 100 MHz, 3 dB at 100.2 MHz.
Compensation SingleValueCorrection() {
    return Compensation::Decode(Hex("43 4F 52 52 45 43 54 49 4F 4E  00 00 00 00"
                                    "00 00 00 00  00 00 00 00  02 00 00 00"
                                    "00 00 00 00 84 D7 97 41  00 00 80 3F"
                                    "00 00 00 00 B9 E3 97 41  00 00 40 40"));
}

TEST(SpectralScanData, CompensationAddsTheValueAtEachFrequency) {
    SpectralScanData data = MakeTwoPointSpectrum();
    const Compensation correction = SingleValueCorrection();
    EXPECT_TRUE(data.ApplyCompensation(correction));
    // 100 MHz is on the table: +1. 100.1 MHz lies halfway: +2.
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-79.0f, -73.5f}));
    const std::string body = data.SerializeBinary();
    EXPECT_TRUE(SameBytes(Hex("00 00 9E C2  00 00 93 C2"), body.substr(body.size() - 8)));
}

TEST(SpectralScanData, CompensationAppliedTwiceAddsTwice) {
    SpectralScanData data = MakeTwoPointSpectrum();
    const Compensation correction = SingleValueCorrection();
    data.ApplyCompensation(correction);
    data.ApplyCompensation(correction);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-78.0f, -71.5f}));
}

TEST(SpectralScanData, CompensationOfNoValuesStillSucceeds) {
    SpectralScanData data;
    EXPECT_TRUE(data.ApplyCompensation(SingleValueCorrection()));
    EXPECT_TRUE(data.IsEmpty());
}

TEST(SpectralScanData, CompensationIgnoresThePositionGrid) {
    // Two columns: 1 dB in cell (0, 0), 5 dB in cell (1, 0), at every frequency.
    const Compensation grid = Compensation::Decode(Hex("43 4F 52 52 45 43 54 49 4F 4E  00 00 00 00"
                                                       "02 00 00 00  01 00 00 00  01 00 00 00"
                                                       "00 00 00 00 84 D7 97 41  00 00 80 3F 00 00 A0 40"));
    SpectralScanData data = MakeTwoPointSpectrum();
    data.ApplyCompensation(grid);
    EXPECT_EQ(Amplitudes(data), (std::vector<float>{-79.0f, -74.5f}));
}

} // namespace
} // namespace nrq
