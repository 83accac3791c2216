#include "HVX/Device/Analyzer.h"
#include "HVX/Device/NullAnalyzer.h"
#include "support/Bytes.h"
#include "support/SerializeHelpers.h"

#include <gtest/gtest.h>

namespace nrq {
namespace {

using test::Bytes;

using test::Version;

TEST(AnalyzerParametersTest, Defaults) {
    const AnalyzerParameters parameters;
    EXPECT_EQ(parameters.GetMinFrequency().Hz(), 10e6);
    EXPECT_EQ(parameters.GetMaxFrequency().Hz(), 110e6);
    EXPECT_EQ(parameters.GetRBW().Hz(), 100e3);
    EXPECT_EQ(parameters.GetMode(), 0);
    EXPECT_FALSE(parameters.GetFlag0());
    EXPECT_FALSE(parameters.GetFlag1());
    EXPECT_EQ(parameters.GetSerialType(), "AnalyzerParameters");
}

// 10 MHz = 0x416312D000000000, 110 MHz = 0x419A39DE00000000, 100 kHz = 0x40F86A0000000000,
// 1 GHz = 0x41CDCD6500000000, 2 GHz = 0x41DDCD6500000000, 30 kHz = 0x40DD4C0000000000.
TEST(AnalyzerParametersTest, BodyIsTwentySevenBytesInItsOrder) {
    EXPECT_EQ(AnalyzerParameters().SerializeBinary(),
              Bytes({0, 0, 0, 0, 0xD0, 0x12, 0x63, 0x41,   // min 10 MHz
                     0, 0, 0, 0, 0xDE, 0x39, 0x9A, 0x41,   // max 110 MHz
                     0,                                    // flag0
                     0, 0, 0, 0, 0, 0x6A, 0xF8, 0x40,      // rbw 100 kHz
                     0,                                    // mode
                     0}));                                 // flag1

    AnalyzerParameters set;
    set.SetMinFrequency(Frequency(1e9));
    set.SetMaxFrequency(Frequency(2e9));
    set.SetFlag0(true);
    set.SetRBW(Frequency(30e3));
    set.SetMode(0x1234);
    set.SetFlag1(true);
    const std::string body = set.SerializeBinary();
    EXPECT_EQ(body.size(), 27u);
    EXPECT_EQ(body, Bytes({0, 0, 0, 0, 0x65, 0xCD, 0xCD, 0x41,
                           0, 0, 0, 0, 0x65, 0xCD, 0xDD, 0x41,
                           1,
                           0, 0, 0, 0, 0, 0x4C, 0xDD, 0x40,
                           0x34,   // the low byte of the mode only
                           1}));
}

TEST(AnalyzerParametersTest, ReadsTheBodyFromVersionFour) {
    AnalyzerParameters written;
    written.SetMinFrequency(Frequency(1e9));
    written.SetMode(7);
    written.SetFlag1(true);
    std::string body = written.SerializeBinary() + "next";
    std::string_view view(body);
    AnalyzerParameters read;
    read.DeserializeBinary(view, Version(4));
    EXPECT_EQ(read.GetMinFrequency().Hz(), 1e9);
    EXPECT_EQ(read.GetMode(), 7);
    EXPECT_TRUE(read.GetFlag1());
    EXPECT_EQ(view, "next");
}

TEST(AnalyzerParametersTest, OlderVersionsReadNothingAndKeepDefaults) {
    AnalyzerParameters written;
    written.SetMinFrequency(Frequency(1e9));
    const std::string body = written.SerializeBinary();
    std::string_view view(body);
    AnalyzerParameters read;
    read.DeserializeBinary(view, Version(3));
    EXPECT_EQ(read.GetMinFrequency().Hz(), 10e6);
    EXPECT_EQ(view.size(), 27u);
}

TEST(AnalyzerParametersTest, ShortBodyRaisesInsteadOfReadingPastTheEnd) {
    const std::string body = AnalyzerParameters().SerializeBinary().substr(0, 26);
    std::string_view view(body);
    AnalyzerParameters read;
    EXPECT_THROW(read.DeserializeBinary(view, Version(5)), Error);
}

TEST(NullAnalyzerParametersTest, BodyIsItsOwnEightBytesOnly) {
    NullAnalyzerParameters parameters;
    parameters.SetMinFrequency(Frequency(1e9));
    parameters.SetExtra(0x0102030405060708ull);
    EXPECT_EQ(parameters.GetSerialType(), "NullAP");
    EXPECT_EQ(parameters.SerializeBinary(), Bytes({8, 7, 6, 5, 4, 3, 2, 1}));

    const std::string body = Bytes({0xFF, 0, 0, 0, 0, 0, 0, 0x80, 0xAA});
    std::string_view view(body);
    NullAnalyzerParameters read;
    read.DeserializeBinary(view, Version(5));
    EXPECT_EQ(read.GetExtra(), 0x80000000000000FFull);
    EXPECT_EQ(view.size(), 1u);
    EXPECT_EQ(read.GetMinFrequency().Hz(), 10e6); // base fields are not in the body
}

TEST(NullAnalyzerParametersTest, CloneKeepsTheClass) {
    NullAnalyzerParameters parameters;
    parameters.SetExtra(42);
    std::unique_ptr<AnalyzerParameters> clone(static_cast<const AnalyzerParameters&>(parameters).Clone());
    auto* null = dynamic_cast<NullAnalyzerParameters*>(clone.get());
    ASSERT_NE(null, nullptr);
    EXPECT_EQ(null->GetExtra(), 42u);
}

} // namespace
} // namespace nrq
