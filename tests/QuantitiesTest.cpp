#include "HVX/Base/Quantities.h"

#include <gtest/gtest.h>

#include <cmath>

namespace nrq {
namespace {

TEST(FrequencyTest, ZeroAndBelowANanohertzAreZeroHertz) {
    EXPECT_EQ(Frequency(0).ToString(), "0Hz");
    EXPECT_EQ(Frequency(5e-10).ToString(), "0Hz");
    EXPECT_EQ(Frequency(nullptr).ToString(), "0Hz");
    EXPECT_EQ(Frequency().ToString(), "0Hz");
}

TEST(FrequencyTest, LadderFromNanoToTera) {
    EXPECT_EQ(Frequency(1e-9).ToString(), "1nHz");
    EXPECT_EQ(Frequency(2.5e-6).ToString(), "2.5uHz");
    EXPECT_EQ(Frequency(0.001).ToString(), "1mHz");
    EXPECT_EQ(Frequency(1).ToString(), "1Hz");
    EXPECT_EQ(Frequency(999.5).ToString(), "999.5Hz");
    EXPECT_EQ(Frequency(1000).ToString(), "1kHz");
    EXPECT_EQ(Frequency(100e6).ToString(), "100MHz");
    EXPECT_EQ(Frequency(1.2345678e9).ToString(), "1.23457GHz");
    EXPECT_EQ(Frequency(3e12).ToString(), "3THz");
    EXPECT_EQ(Frequency(4e15).ToString(), "4000THz");
}

TEST(FrequencyTest, SignedValueFormattedByMagnitude) {
    EXPECT_EQ(Frequency(-2.4e9).ToString(), "-2.4GHz");
}

TEST(FrequencyTest, Accessors) {
    const Frequency f(2.5e6);
    EXPECT_DOUBLE_EQ(f.Hz(), 2.5e6);
    EXPECT_DOUBLE_EQ(f.kHz(), 2500.0);
    EXPECT_DOUBLE_EQ(f.MHz(), 2.5);
    EXPECT_DOUBLE_EQ(f.GHz(), 2.5e-3);
    EXPECT_DOUBLE_EQ(f.THz(), 2.5e-6);
    EXPECT_DOUBLE_EQ(f.mHz(), 2.5e9);
    EXPECT_DOUBLE_EQ(f.uHz(), 2.5e12);
    EXPECT_DOUBLE_EQ(f.nHz(), 2.5e15);
}

TEST(FrequencyTest, ArithmeticAndExactComparison) {
    Frequency f(10.0);
    EXPECT_EQ((f * 3.0).Hz(), 30.0);
    EXPECT_EQ((f / 4.0).Hz(), 2.5);
    EXPECT_EQ(Frequency(30.0) / f, 3.0);
    EXPECT_EQ((f + Frequency(5.0)).Hz(), 15.0);
    EXPECT_EQ((f - Frequency(15.0)).Hz(), -5.0);
    EXPECT_EQ((-f).Hz(), -10.0);
    EXPECT_EQ((+f).Hz(), 10.0);
    f *= 2.0;
    f += Frequency(1.0);
    f -= Frequency(3.0);
    f /= 2.0;
    EXPECT_EQ(f.Hz(), 9.0);
    EXPECT_TRUE(Frequency(1.0) < Frequency(2.0));
    EXPECT_TRUE(Frequency(2.0) <= Frequency(2.0));
    EXPECT_TRUE(Frequency(3.0) > Frequency(2.0));
    EXPECT_TRUE(Frequency(2.0) >= Frequency(2.0));
    EXPECT_TRUE(Frequency(0.1 + 0.2) != Frequency(0.3)); // no tolerance
    EXPECT_TRUE(Frequency(0.5) == Frequency(0.25 * 2));
}

TEST(LengthTest, SevenAndAHalfMillimetresIsOneCell) {
    EXPECT_NEAR(Length(0.0075f).CellLengths(), 1.0f, 1e-6f);
}

TEST(LengthTest, AccessorsAndLadder) {
    const Length l(0.0254f);
    EXPECT_FLOAT_EQ(l.mm(), 25.4f);
    EXPECT_FLOAT_EQ(l.cm(), 2.54f);
    EXPECT_NEAR(l.in(), 1.0f, 1e-6f);
    EXPECT_NEAR(Length(0.3048f).ft(), 1.0f, 1e-6f);
    EXPECT_NEAR(Length(0.9144f).yd(), 1.0f, 1e-5f); // the factor is given to nine digits
    EXPECT_EQ(Length(0.0075f).ToString(), "7.5mm");
    EXPECT_EQ(Length(0.0f).ToString(), "0m");
    EXPECT_EQ(Length(1.5f).ToString(), "1.5m");
    EXPECT_EQ(Length(2500.0f).ToString(), "2.5km");
    EXPECT_EQ(Length(-0.25f).ToString(), "-250mm");
}

TEST(AreaTest, FactorsAsGiven) {
    const Area a(1.0f);
    EXPECT_FLOAT_EQ(a.mm2(), 1e6f);
    EXPECT_FLOAT_EQ(a.in2(), 1550.0f);
    EXPECT_FLOAT_EQ(a.ft2(), 10.76389980f);
    // Not the square of the cell length factor: kept as the boards' software has it.
    EXPECT_FLOAT_EQ(a.CellLengths2(), 177.77777100f);
    EXPECT_FLOAT_EQ((Area(2.0f) * 3.0f).m2(), 6.0f);
}

TEST(ElectricalTest, LaddersWithTheirUnitLetters) {
    EXPECT_EQ(Power(0.001f).ToString(), "1mW");
    EXPECT_EQ(Power(nullptr).ToString(), "0W");
    EXPECT_EQ(Voltage(230.0f).ToString(), "230V");
    EXPECT_EQ(Voltage(2e-6f).ToString(), "2uV");
    EXPECT_EQ(Current(0.02f).ToString(), "20mA");
    EXPECT_EQ(Resistance(4700.0f).ToString(), "4.7kO");
    EXPECT_EQ(Resistance(0.0f).ToString(), "0O");
    EXPECT_FLOAT_EQ(Resistance(4700.0f).kO(), 4.7f);
    EXPECT_FLOAT_EQ(Current(0.5f).mA(), 500.0f);
    EXPECT_FLOAT_EQ(Power(2.0f).W(), 2.0f);
}

TEST(DecibelTest, ThirtyDbmIsOneWatt) {
    EXPECT_FLOAT_EQ(DecibelMilliwatts(30.0f).ConvertToPower().W(), 1.0f);
    const Power p = DecibelMilliwatts(0.0f);
    EXPECT_FLOAT_EQ(p.mW(), 1.0f);
}

TEST(DecibelTest, MinusOneHundredSevenDbmIsAboutZeroDbuvAtFiftyOhm) {
    const DecibelMicrovolts level =
        DecibelMilliwatts(-107.0f).ConvertToDecibelMicrovolts(Impedance::Get50OhmImpedance());
    EXPECT_NEAR(level.dBuV(), 0.0f, 0.02f);
    EXPECT_NEAR(level.ConvertToDecibelMilliwatts(Impedance::Get50OhmImpedance()).dBm(), -107.0f, 1e-4f);
}

TEST(DecibelTest, OneHundredTwentyDbuvIsOneVolt) {
    EXPECT_FLOAT_EQ(DecibelMicrovolts(120.0f).ConvertToVoltage().V(), 1.0f);
    const Voltage v = DecibelMicrovolts(0.0f);
    EXPECT_FLOAT_EQ(v.uV(), 1.0f);
}

TEST(DecibelTest, ComparisonsAndAccessors) {
    EXPECT_TRUE(DecibelMilliwatts(-80.0f) < DecibelMilliwatts(-70.0f));
    EXPECT_TRUE(DecibelMilliwatts(-80.0f) == DecibelMilliwatts(-80.0f));
    EXPECT_EQ(DecibelMilliwatts(-3.5f).Value(), -3.5f);
    EXPECT_EQ((+DecibelMicrovolts(4.0f)).dBuV(), 4.0f);
}

TEST(ImpedanceTest, FiftyOhmFromTheConstructorMatchesTheTable) {
    EXPECT_NEAR(Impedance(Resistance(50.0f)).GetSummand(), Impedance::Get50OhmImpedance().GetSummand(), 1e-4f);
    EXPECT_FLOAT_EQ(Impedance::Get50OhmImpedance().GetSummand(), 106.98970031f);
    EXPECT_EQ(&Impedance::GetDefault(), &Impedance::Get50OhmImpedance());
}

TEST(ImpedanceTest, SeventyFiveOhmTableValueDiffersFromTheConstructor) {
    // 20 log10(sqrt 75) + 90 = 108.75; the table holds 20 log10(75) + 90.
    EXPECT_NEAR(Impedance(Resistance(75.0f)).GetSummand(), 108.75061f, 1e-3f);
    EXPECT_FLOAT_EQ(Impedance::Get75OhmImpedance().GetSummand(), 127.50122833f);
    EXPECT_NEAR(Impedance::Get75OhmImpedance().GetSummand() - Impedance(Resistance(75.0f)).GetSummand(), 18.75f,
                1e-3f);
    const Resistance z0 = Impedance::Get75OhmImpedance();
    EXPECT_EQ(z0.O(), 75.0f);
}

Angle Degrees(float d) { return Angle(d * 0.01745329f); }

TEST(AngleTest, DifferenceOfThreeHundredFiftyAndTenIsTwenty) {
    EXPECT_NEAR(Degrees(350.0f).Difference(Degrees(10.0f)).deg(), 20.0f, 1e-3f);
    EXPECT_NEAR(Degrees(10.0f).Difference(Degrees(350.0f)).deg(), 20.0f, 1e-3f);
    EXPECT_NEAR(Degrees(90.0f).Difference(Degrees(0.0f)).deg(), 90.0f, 1e-3f);
}

TEST(AngleTest, EqualityIsTrueForDifferentAnglesAndFalseForEqualOnes) {
    const Angle a(1.0f);
    EXPECT_FALSE(a == Angle(1.0f));
    EXPECT_TRUE(a == Angle(2.0f));
    EXPECT_FALSE(a != Angle(1.0f));
    EXPECT_TRUE(a != Angle(2.0f));
    // == is not the negation of !=.
    EXPECT_TRUE(a == Angle(2.0f) && a != Angle(2.0f));
}

TEST(AngleTest, NormalizedShiftsByPi) {
    EXPECT_FLOAT_EQ(Angle(0.0f).Normalized().rad(), -3.14159274f);
    EXPECT_FLOAT_EQ(Angle(3.14159274f).Normalized().rad(), 0.0f);
}

TEST(AngleTest, NormalizedPositiveWraps) {
    EXPECT_NEAR(Angle(-1.0f).NormalizedPositive().rad(), 6.28318548f - 1.0f, 1e-6f);
    EXPECT_NEAR(Angle(7.0f).NormalizedPositive().rad(), 7.0f - 6.28318548f, 1e-6f);
    EXPECT_EQ(Angle(1.0f).NormalizedPositive().rad(), 1.0f);
}

TEST(AngleTest, IsBetweenWalksCounterclockwiseWithOneDegreeSlackAtTheFarEnd) {
    EXPECT_TRUE(Degrees(45.0f).IsBetween(Degrees(0.0f), Degrees(90.0f)));
    EXPECT_FALSE(Degrees(180.0f).IsBetween(Degrees(0.0f), Degrees(90.0f)));
    EXPECT_TRUE(Degrees(90.5f).IsBetween(Degrees(0.0f), Degrees(90.0f)));
    EXPECT_FALSE(Degrees(92.0f).IsBetween(Degrees(0.0f), Degrees(90.0f)));
    EXPECT_FALSE(Degrees(359.5f).IsBetween(Degrees(0.0f), Degrees(90.0f))); // no slack before the start
    EXPECT_TRUE(Degrees(10.0f).IsBetween(Degrees(350.0f), Degrees(20.0f)));  // across zero
}

TEST(AngleTest, AccessorsAndOperators) {
    const Angle quarter(1.57079637f);
    EXPECT_NEAR(quarter.deg(), 90.0f, 1e-4f);
    EXPECT_NEAR(quarter.grad(), 100.0f, 1e-4f);
    EXPECT_NEAR(quarter.rev(), 0.25f, 1e-6f);
    Angle a(1.0f);
    a *= 2.0f;
    a += Angle(1.0f);
    a -= Angle(0.5f);
    EXPECT_FLOAT_EQ(a.rad(), 2.5f);
    EXPECT_FLOAT_EQ((-a).rad(), -2.5f);
    EXPECT_FLOAT_EQ((a * 2.0f).rad(), 5.0f);
}

} // namespace
} // namespace nrq
