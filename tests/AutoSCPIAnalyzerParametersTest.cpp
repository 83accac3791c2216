#include "HVX/Device/Analyzer/AutoSCPIAnalyzer.h"
#include "support/Bytes.h"
#include "support/SerializeHelpers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace nrq {
namespace {

using test::Bytes;
using test::Record;
using test::U32;
using test::Version;

template <class T>
std::string Raw(T value) {
    std::string out(sizeof(T), '\0');
    std::memcpy(out.data(), &value, sizeof(T));
    return out;
}

// The body of a parameters object with empty identity and the given entries.
std::string BodyWithEntries(uint32_t count, const std::string& entries) {
    return Record("") + Record("") + U32(count) + entries;
}

AutoSCPIAnalyzerParameters ReadBack(const std::string& body) {
    AutoSCPIAnalyzerParameters read;
    std::string_view view(body);
    read.DeserializeBinary(view, Version(5));
    EXPECT_TRUE(view.empty()) << view.size() << " bytes left";
    return read;
}

TEST(AutoSCPIAnalyzerParametersTest, FreshObjectCoversZeroToOneGigahertz) {
    const AutoSCPIAnalyzerParameters parameters;
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 0.0);
    EXPECT_EQ(parameters.GetMaxFrequency().Hz(), 1e9);
    EXPECT_EQ(parameters.GetSerialType(), "ESCAP");
    EXPECT_TRUE(parameters.variableMap.empty());
}

TEST(AutoSCPIAnalyzerParametersTest, FreshObjectWritesEmptyIdentityAndNoEntries) {
    EXPECT_EQ(AutoSCPIAnalyzerParameters().SerializeBinary(), Bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

// 1 MHz = 0x412E848000000000.
TEST(AutoSCPIAnalyzerParametersTest, MinFrequencyOnAFreshObjectIsOneFrequencyEntry) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.SetMinFrequency(Frequency(1e6));
    EXPECT_EQ(parameters.SerializeBinary(),
              Bytes({0, 0, 0, 0,                               // manufacturer
                     0, 0, 0, 0,                               // serial
                     1, 0, 0, 0})                              // one entry
                  + Record("Frequency Start")
                  + Bytes({0xFF, 0xFF, 0xFF, 0xFF,             // index -1
                           4,                                  // Frequency
                           0, 0, 0, 0, 0x80, 0x84, 0x2E, 0x41}));
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 1e6);
    EXPECT_EQ(parameters.GetMaxFrequency().Hz(), 1e9);
}

TEST(AutoSCPIAnalyzerParametersTest, MaxFrequencyGoesUnderFrequencyStop) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.SetMaxFrequency(Frequency(3e6));
    ASSERT_EQ(parameters.variableMap.size(), 1u);
    const SCPIStoredValue& stored = parameters.variableMap.at("Frequency Stop");
    EXPECT_EQ(stored.index, -1);
    EXPECT_EQ(std::get<Frequency>(stored.value).Hz(), 3e6);
    EXPECT_EQ(parameters.GetMaxFrequency().Hz(), 3e6);
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 0.0);
}

TEST(AutoSCPIAnalyzerParametersTest, SettingAnExistingKeyKeepsItsIndex) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.variableMap["Frequency Start"] = SCPIStoredValue{Frequency(5.0), 3};
    parameters.SetMinFrequency(Frequency(7.0));
    EXPECT_EQ(parameters.variableMap.at("Frequency Start").index, 3);
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 7.0);
}

TEST(AutoSCPIAnalyzerParametersTest, AnotherTypeUnderTheKeyIsReplacedByAFrequency) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.variableMap["Frequency Start"] = SCPIStoredValue{int64_t{12}, 2};
    parameters.variableMap["Frequency Stop"] = SCPIStoredValue{ESCString(std::string("fast")), 4};
    // Until then the getters fall back, as for a missing key.
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 0.0);
    EXPECT_EQ(parameters.GetMaxFrequency().Hz(), 1e9);

    parameters.SetMinFrequency(Frequency(2e6));
    parameters.SetMaxFrequency(Frequency(4e6));
    EXPECT_EQ(ESCType(parameters.variableMap.at("Frequency Start").value), ESCVariantType::Frequency);
    EXPECT_EQ(ESCType(parameters.variableMap.at("Frequency Stop").value), ESCVariantType::Frequency);
    EXPECT_EQ(parameters.variableMap.at("Frequency Start").index, 2);
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 2e6);
    EXPECT_EQ(parameters.GetMaxFrequency().Hz(), 4e6);
}

TEST(AutoSCPIAnalyzerParametersTest, BaseFieldsAreNeitherUsedNorWritten) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.SetRBW(Frequency(30e3));
    parameters.SetMode(9);
    parameters.SetFlag0(true);
    parameters.SetFlag1(true);
    EXPECT_EQ(parameters.SerializeBinary(), AutoSCPIAnalyzerParameters().SerializeBinary());
}

TEST(AutoSCPIAnalyzerParametersTest, IdentityIsWrittenAsTwoRecords) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.manufacturer = "Acme";
    parameters.serial = "SN-7";
    EXPECT_EQ(parameters.SerializeBinary(), Record("Acme") + Record("SN-7") + U32(0));
}

struct TypedEntry {
    const char* name;
    ESCVariant value;
    std::string payload;
    uint8_t type;
};

class AutoSCPIAnalyzerParametersValueTest : public ::testing::TestWithParam<int> {};

std::vector<TypedEntry> EveryType() {
    return {
        {"Nil", Nil{}, "", 0},
        {"Integer", int64_t{-5}, Raw<int64_t>(-5), 1},
        {"Float", 2.5, Raw<double>(2.5), 2},
        {"Amplitude", DecibelMilliwatts(-30.25f), Raw<float>(-30.25f), 3},
        {"Frequency", Frequency(100e3), Raw<double>(100e3), 4},
        {"String", ESCString(std::string("SA")), Record("SA"), 5},
        {"Automatic", ESCFeatureAuto{}, "", 6},
        {"Unset", ESCFeatureUnset{}, "", 7},
    };
}

TEST_P(AutoSCPIAnalyzerParametersValueTest, EachValueTypeHasItsPayloadAndRoundTrips) {
    const TypedEntry entry = EveryType()[GetParam()];
    AutoSCPIAnalyzerParameters parameters;
    parameters.variableMap["RBW"] = SCPIStoredValue{entry.value, 6};
    const std::string body = parameters.SerializeBinary();
    EXPECT_EQ(body, BodyWithEntries(1, Record("RBW") + Raw<int32_t>(6) + Bytes({entry.type}) + entry.payload))
        << entry.name;

    const AutoSCPIAnalyzerParameters read = ReadBack(body);
    ASSERT_EQ(read.variableMap.size(), 1u);
    const SCPIStoredValue& stored = read.variableMap.at("RBW");
    EXPECT_EQ(stored.index, 6);
    EXPECT_EQ(stored.value, entry.value) << entry.name;
}

INSTANTIATE_TEST_SUITE_P(AllTypes, AutoSCPIAnalyzerParametersValueTest, ::testing::Range(0, 8));

TEST(AutoSCPIAnalyzerParametersTest, StringValueRoundTripsWithAnyLength) {
    std::string longText(70000, 'x');
    longText[10] = '\0';
    longText[69999] = 'z';
    AutoSCPIAnalyzerParameters parameters;
    parameters.variableMap["Long"] = SCPIStoredValue{ESCString(longText), -1};
    parameters.variableMap["Empty"] = SCPIStoredValue{ESCString(std::string()), 0};

    const std::string body = parameters.SerializeBinary();
    const AutoSCPIAnalyzerParameters read = ReadBack(body);
    EXPECT_EQ(std::string_view(std::get<ESCString>(read.variableMap.at("Long").value)), longText);
    EXPECT_EQ(std::get<ESCString>(read.variableMap.at("Empty").value).size(), 0u);
    EXPECT_EQ(read.variableMap.at("Empty").index, 0);
}

TEST(AutoSCPIAnalyzerParametersTest, KeyManufacturerAndSerialAreLimitedToOneThousandBytes) {
    const std::string longKey = std::string(1000, 'k') + "tail";
    AutoSCPIAnalyzerParameters parameters;
    parameters.manufacturer = std::string(1001, 'm');
    parameters.serial = std::string(1500, 's');
    parameters.variableMap[longKey] = SCPIStoredValue{int64_t{1}, 0};

    const std::string body = parameters.SerializeBinary();
    EXPECT_EQ(body, Record(std::string(1000, 'm')) + Record(std::string(1000, 's')) + U32(1) +
                        Record(std::string(1000, 'k')) + Raw<int32_t>(0) + Bytes({1}) + Raw<int64_t>(1));

    const AutoSCPIAnalyzerParameters read = ReadBack(body);
    EXPECT_EQ(read.manufacturer, std::string(1000, 'm'));
    EXPECT_EQ(read.serial, std::string(1000, 's'));
    EXPECT_EQ(read.variableMap.count(std::string(1000, 'k')), 1u);
    EXPECT_EQ(read.variableMap.count(longKey), 0u);
}

TEST(AutoSCPIAnalyzerParametersTest, TypeNumberAboveSevenIsNilAndReadsNoPayload) {
    const std::string body = BodyWithEntries(
        2, Record("Future") + Raw<int32_t>(4) + Bytes({8}) +
               Record("Frequency Stop") + Raw<int32_t>(-1) + Bytes({4}) + Raw<double>(2e6));
    const AutoSCPIAnalyzerParameters read = ReadBack(body);
    ASSERT_EQ(read.variableMap.size(), 2u);
    EXPECT_TRUE(ESCIsNil(read.variableMap.at("Future").value));
    EXPECT_EQ(read.variableMap.at("Future").index, 4);
    EXPECT_EQ(read.GetMaxFrequency().Hz(), 2e6);

    const AutoSCPIAnalyzerParameters highest =
        ReadBack(BodyWithEntries(1, Record("X") + Raw<int32_t>(0) + Bytes({255})));
    EXPECT_TRUE(ESCIsNil(highest.variableMap.at("X").value));
}

TEST(AutoSCPIAnalyzerParametersTest, ReadingConsumesOnlyTheBody) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.manufacturer = "Acme";
    parameters.SetMaxFrequency(Frequency(5e6));
    const std::string body = parameters.SerializeBinary() + "next";
    std::string_view view(body);
    AutoSCPIAnalyzerParameters read;
    read.variableMap["stale"] = SCPIStoredValue{int64_t{1}, 0};
    read.DeserializeBinary(view, Version(5));
    EXPECT_EQ(view, "next");
    EXPECT_EQ(read.manufacturer, "Acme");
    EXPECT_EQ(read.variableMap.size(), 1u);
    EXPECT_EQ(read.GetMaxFrequency().Hz(), 5e6);
}

TEST(AutoSCPIAnalyzerParametersTest, EveryTruncationRaisesTheDeserializationError) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.manufacturer = "Acme";
    parameters.serial = "42";
    parameters.variableMap["A"] = SCPIStoredValue{ESCString(std::string("text")), 1};
    parameters.variableMap["B"] = SCPIStoredValue{DecibelMilliwatts(-3.0f), 2};
    parameters.variableMap["C"] = SCPIStoredValue{ESCFeatureAuto{}, 3};
    const std::string body = parameters.SerializeBinary();
    for (size_t length = 0; length < body.size(); ++length)
        test::ExpectRaisesDeserializationError<AutoSCPIAnalyzerParameters>(body.substr(0, length), 5);
}

TEST(AutoSCPIAnalyzerParametersTest, HugeCountWithoutEntriesRaises) {
    test::ExpectRaisesDeserializationError<AutoSCPIAnalyzerParameters>(BodyWithEntries(0xFFFFFFFFu, ""), 5);
}

TEST(AutoSCPIAnalyzerParametersTest, RegisteredRecordReadsBackAsItsClass) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.manufacturer = "Acme";
    parameters.serial = "42";
    parameters.SetMinFrequency(Frequency(1e6));
    parameters.variableMap["Sweep Time"] = SCPIStoredValue{ESCFeatureAuto{}, -1};
    std::string record;
    AppendSerializeObject(record, &parameters);
    EXPECT_EQ(record.substr(0, 9), Record("ESCAP"));

    std::string_view view(record);
    std::unique_ptr<ISerializable> read(ViewDeserializeObject(view, Version(5)));
    auto* typed = dynamic_cast<AutoSCPIAnalyzerParameters*>(read.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(typed->manufacturer, "Acme");
    EXPECT_EQ(typed->serial, "42");
    EXPECT_EQ(typed->GetMinFrequency().Hz(), 1e6);
    EXPECT_EQ(typed->variableMap.at("Sweep Time").value, ESCVariant(ESCFeatureAuto{}));
}

TEST(AutoSCPIAnalyzerParametersTest, CloneIsAnIndependentCopy) {
    AutoSCPIAnalyzerParameters parameters;
    parameters.serial = "42";
    parameters.SetMaxFrequency(Frequency(8e6));
    std::unique_ptr<AutoSCPIAnalyzerParameters> copy(parameters.Clone());
    parameters.SetMaxFrequency(Frequency(9e6));
    EXPECT_EQ(copy->serial, "42");
    EXPECT_EQ(copy->GetMaxFrequency().Hz(), 8e6);
    EXPECT_EQ(copy->SerializeBinary().size(), parameters.SerializeBinary().size());
}

} // namespace
} // namespace nrq
