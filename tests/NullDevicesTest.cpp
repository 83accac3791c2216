#include "HVX/Device/NullAnalyzer.h"
#include "HVX/Device/NullScanner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <stdexcept>

namespace nrq {
namespace {

// Reaches the protected QueryInfo as the registry does.
template <class DeviceType>
class Identified : public DeviceType {
public:
    using DeviceType::DeviceType;
    using DeviceType::QueryInfo;
};

TEST(NullScannerTest, IdentifiesItself) {
    Identified<NullScanner> scanner(7);
    scanner.QueryInfo();
    EXPECT_EQ(scanner.GetInfo().model, "NullScanner 7");
    EXPECT_EQ(scanner.GetInfo().manufacturer, "Nerquil Labs");
    EXPECT_EQ(scanner.GetInfo().serial, "nullsc7");
}

TEST(NullScannerTest, AlwaysConnected) {
    NullScanner scanner(0);
    EXPECT_TRUE(scanner.Connect());
    EXPECT_TRUE(scanner.IsConnected());
    scanner.Disconnect();
    EXPECT_TRUE(scanner.IsConnected());
    EXPECT_TRUE(scanner.Ping());
}

TEST(NullScannerTest, WithoutStateFinishesAtOnce) {
    NullScanner scanner(0);
    EXPECT_EQ(scanner.GetState(), nullptr);
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
}

TEST(NullScannerTest, NineHundredNinetyNineReadyThenFinishedWithinTheBoard) {
    NullScanner scanner(0);
    const auto start = NullScannerParameters().NewState();
    scanner.SetState(start.get());
    for (int call = 1; call <= 999; ++call) {
        ASSERT_EQ(scanner.NextScanPosition(), ScanStatus::Ready) << "call " << call;
        const Position p = scanner.GetScanPosition();
        EXPECT_GE(p.x().m(), 0.0f);
        EXPECT_LT(p.x().m(), 0.315f);
        EXPECT_GE(p.y().m(), 0.0f);
        EXPECT_LT(p.y().m(), 0.2175f);
        EXPECT_EQ(p.z().m(), 0.0f);
    }
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
    EXPECT_EQ(static_cast<const NullScannerState*>(scanner.GetState())->counter, 999);
}

TEST(NullScannerTest, FirstPositionComesFromTheDefaultSeededGenerator) {
    // The state's generator is mt19937 with seed 5489; a is the first draw, b the second.
    std::mt19937 reference;
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const float a = unit(reference);
    const float b = unit(reference);
    NullScanner scanner(0);
    const NullScannerState state;
    scanner.SetState(&state);
    ASSERT_EQ(scanner.NextScanPosition(), ScanStatus::Ready);
    EXPECT_EQ(scanner.GetScanPosition().x().m(), b * 0.315f);
    EXPECT_EQ(scanner.GetScanPosition().y().m(), a * 0.2175f);
}

TEST(NullScannerTest, StatesClonedAtTheSamePointGiveTheSameSequence) {
    NullScanner first(0), second(1);
    NullScannerState state;
    NullScanner warmup(2);
    warmup.SetState(&state);
    for (int i = 0; i < 10; ++i)
        warmup.NextScanPosition();
    first.SetState(warmup.GetState());
    second.SetState(warmup.GetState());
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(first.NextScanPosition(), second.NextScanPosition());
        EXPECT_EQ(first.GetScanPosition(), second.GetScanPosition());
    }
}

TEST(NullScannerTest, SetStateCopiesAndLeavesTheArgumentWithTheCaller) {
    NullScanner scanner(0);
    NullScannerState state;
    scanner.SetState(&state);
    EXPECT_NE(scanner.GetState(), &state);
    scanner.NextScanPosition();
    EXPECT_EQ(state.counter, 0);
    scanner.SetState(nullptr);
    EXPECT_EQ(scanner.GetState(), nullptr);
}

TEST(NullScannerTest, OtherStatesFinish) {
    class OtherState : public ScannerState {
    public:
        OtherState* Clone() const override { return new OtherState(*this); }
        const std::string& GetSerialType() const override {
            static const std::string name = "TestOtherState";
            return name;
        }
    } other;
    NullScanner scanner(0);
    scanner.SetState(&other);
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
}

TEST(NullScannerStateTest, EmptyBodyAndDefaultProgress) {
    NullScannerState state;
    EXPECT_EQ(state.GetSerialType(), "NullSS");
    EXPECT_EQ(state.SerializeBinary(), "");
    float progress = 0.5f;
    EXPECT_FALSE(state.GetProgress(progress));
    state.counter = 12;
    state.Reset(); // the default Reset keeps the counter
    EXPECT_EQ(state.counter, 12);
    EXPECT_EQ(NullScannerParameters().GetSerialType(), "NullSP");
    EXPECT_EQ(NullScannerParameters().SerializeBinary(), "");
}

TEST(NullAnalyzerTest, IdentifiesItself) {
    Identified<NullAnalyzer> analyzer(3);
    analyzer.QueryInfo();
    EXPECT_EQ(analyzer.GetInfo().model, "NullAnalyzer 3");
    EXPECT_EQ(analyzer.GetInfo().manufacturer, "Nerquil Labs");
    EXPECT_EQ(analyzer.GetInfo().serial, "nullan3");
}

TEST(NullAnalyzerTest, FixedRangeWhateverTheParameters) {
    NullAnalyzer analyzer(0);
    NullAnalyzerParameters parameters;
    parameters.SetMinFrequency(Frequency(1e9));
    parameters.SetMaxFrequency(Frequency(2e9));
    analyzer.SetAnalyzerParameters(&parameters);
    EXPECT_EQ(analyzer.GetParameters().GetMinFrequency().Hz(), 1e9);
    const FrequencyStartStop range = analyzer.GetFrequencyRange();
    EXPECT_EQ(range.start.Hz(), 100e6);
    EXPECT_EQ(range.stop.Hz(), 200e6);
}

TEST(NullAnalyzerTest, SweepIsSixHundredFiniteNoisePoints) {
    NullAnalyzer analyzer(0);
    analyzer.SetSweepDuration(std::chrono::nanoseconds(0));
    const auto sweep = analyzer.GetMeasurement();
    ASSERT_EQ(sweep.size(), 600u);
    double sum = 0.0;
    for (DecibelMilliwatts v : sweep) {
        ASSERT_TRUE(std::isfinite(v.dBm()));
        sum += v.dBm();
    }
    // Mean -80 and standard deviation 15: the mean of 600 draws lies far within +-5.
    EXPECT_NEAR(sum / 600.0, -80.0, 5.0);
}

TEST(NullAnalyzerTest, HalfSecondSweepByDefault) {
    EXPECT_EQ(NullAnalyzer(0).GetSweepDuration(), std::chrono::milliseconds(500));
}

TEST(NullAnalyzerTest, PlainParametersAreRefused) {
    NullAnalyzer analyzer(0);
    const AnalyzerParameters plain;
    try {
        analyzer.SetAnalyzerParameters(&plain);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Cannot use these parameters with this analyzer.");
    }
    EXPECT_THROW(analyzer.SetAnalyzerParameters(nullptr), std::runtime_error);
}

TEST(NullDevices, ReachableAsDeviceAndAsTheirRoleThroughOneSharedPointer) {
    std::shared_ptr<Device> scanner = std::make_shared<NullScanner>(0);
    std::shared_ptr<Device> analyzer = std::make_shared<NullAnalyzer>(0);
    EXPECT_NE(std::dynamic_pointer_cast<Scanner>(scanner), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<Analyzer>(analyzer), nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<Analyzer>(scanner), nullptr);
}

} // namespace
} // namespace nrq
