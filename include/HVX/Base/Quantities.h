#pragma once

#include <cstddef>
#include <string>
#include <type_traits>

namespace nrq {
namespace detail {

// The shared shape of the plain quantities: one number in the base unit,
// scaled by numbers, added to its own kind, compared exactly.
template <class Derived, class T>
class Quantity {
public:
    using value_type = T;

    constexpr Quantity() = default;
    constexpr explicit Quantity(T baseValue) : value(baseValue) {}
    // Any other number, so that a literal 0 means zero and not nullptr.
    template <class N>
        requires(std::is_arithmetic_v<N> && !std::is_same_v<N, T>)
    constexpr explicit Quantity(N baseValue) : value(static_cast<T>(baseValue)) {}

    constexpr Derived operator*(T factor) const { return Derived(value * factor); }
    constexpr Derived operator/(T divisor) const { return Derived(value / divisor); }
    constexpr T operator/(const Derived& other) const { return value / other.value; }
    constexpr Derived operator+(const Derived& other) const { return Derived(value + other.value); }
    constexpr Derived operator-(const Derived& other) const { return Derived(value - other.value); }
    constexpr Derived operator+() const { return Derived(value); }
    constexpr Derived operator-() const { return Derived(-value); }

    constexpr const Derived& operator*=(T factor) { value *= factor; return Self(); }
    constexpr const Derived& operator/=(T divisor) { value /= divisor; return Self(); }
    constexpr const Derived& operator+=(const Derived& other) { value += other.value; return Self(); }
    constexpr const Derived& operator-=(const Derived& other) { value -= other.value; return Self(); }

    friend constexpr bool operator==(const Derived& a, const Derived& b) { return a.value == b.value; }
    friend constexpr bool operator!=(const Derived& a, const Derived& b) { return a.value != b.value; }
    friend constexpr bool operator<(const Derived& a, const Derived& b) { return a.value < b.value; }
    friend constexpr bool operator<=(const Derived& a, const Derived& b) { return a.value <= b.value; }
    friend constexpr bool operator>(const Derived& a, const Derived& b) { return a.value > b.value; }
    friend constexpr bool operator>=(const Derived& a, const Derived& b) { return a.value >= b.value; }

protected:
    constexpr Derived& Self() { return static_cast<Derived&>(*this); }

    T value{};
};

// Picks tera down to nano by magnitude and formats the signed value with {:g}.
std::string LadderToString(double value, const char* unit);
std::string LadderToString(float value, const char* unit);

} // namespace detail

class Frequency : public detail::Quantity<Frequency, double> {
public:
    using Quantity::Quantity;
    constexpr Frequency(std::nullptr_t) {}

    constexpr double nHz() const { return value * 1e9; }
    constexpr double uHz() const { return value * 1e6; }
    constexpr double mHz() const { return value * 1e3; }
    constexpr double Hz() const { return value; }
    constexpr double kHz() const { return value * 1e-3; }
    constexpr double MHz() const { return value * 1e-6; }
    constexpr double GHz() const { return value * 1e-9; }
    constexpr double THz() const { return value * 1e-12; }

    std::string ToString() const { return detail::LadderToString(value, "Hz"); }
};

class Length : public detail::Quantity<Length, float> {
public:
    using Quantity::Quantity;
    constexpr Length(std::nullptr_t) {}

    constexpr float nm() const { return value * 1e9f; }
    constexpr float um() const { return value * 1e6f; }
    constexpr float mm() const { return value * 1e3f; }
    constexpr float cm() const { return value * 100.0f; }
    constexpr float m() const { return value; }
    constexpr float km() const { return value * 1e-3f; }
    constexpr float Mm() const { return value * 1e-6f; }
    constexpr float Gm() const { return value * 1e-9f; }
    constexpr float Tm() const { return value * 1e-12f; }
    constexpr float in() const { return value * 39.37009811f; }
    constexpr float ft() const { return value * 3.28083992f; }
    constexpr float yd() const { return value * 1.09361005f; }
    // A cell is the 7.5 mm grid step of the scanner boards.
    constexpr float CellLengths() const { return value * 133.33332825f; }

    std::string ToString() const { return detail::LadderToString(value, "m"); }
};

class Area : public detail::Quantity<Area, float> {
public:
    using Quantity::Quantity;

    constexpr float nm2() const { return value * 1e18f; }
    constexpr float um2() const { return value * 1e12f; }
    constexpr float mm2() const { return value * 1e6f; }
    constexpr float m2() const { return value; }
    constexpr float km2() const { return value * 1e-6f; }
    constexpr float Mm2() const { return value * 1e-12f; }
    constexpr float Gm2() const { return value * 1e-18f; }
    constexpr float Tm2() const { return value * 1e-24f; }
    constexpr float in2() const { return value * 1550.0f; }
    constexpr float ft2() const { return value * 10.76389980f; }
    constexpr float yd2() const { return value * 1.19598997f; }
    // Kept as the boards' software has it, although it is not CellLengths squared.
    constexpr float CellLengths2() const { return value * 177.77777100f; }
};

#define HVX_SI_ACCESSORS(UNIT)                                            \
    constexpr float n##UNIT() const { return value * 1e9f; }             \
    constexpr float u##UNIT() const { return value * 1e6f; }             \
    constexpr float m##UNIT() const { return value * 1e3f; }             \
    constexpr float UNIT() const { return value; }                       \
    constexpr float k##UNIT() const { return value * 1e-3f; }            \
    constexpr float M##UNIT() const { return value * 1e-6f; }            \
    constexpr float G##UNIT() const { return value * 1e-9f; }            \
    constexpr float T##UNIT() const { return value * 1e-12f; }           \
    std::string ToString() const { return detail::LadderToString(value, #UNIT); }

class Power : public detail::Quantity<Power, float> {
public:
    using Quantity::Quantity;
    constexpr Power(std::nullptr_t) {}
    HVX_SI_ACCESSORS(W)
};

class Voltage : public detail::Quantity<Voltage, float> {
public:
    using Quantity::Quantity;
    constexpr Voltage(std::nullptr_t) {}
    HVX_SI_ACCESSORS(V)
};

class Current : public detail::Quantity<Current, float> {
public:
    using Quantity::Quantity;
    constexpr Current(std::nullptr_t) {}
    HVX_SI_ACCESSORS(A)
};

// The letter "O" stands for ohm.
class Resistance : public detail::Quantity<Resistance, float> {
public:
    using Quantity::Quantity;
    constexpr Resistance(std::nullptr_t) {}
    HVX_SI_ACCESSORS(O)
};

#undef HVX_SI_ACCESSORS

class Angle {
public:
    constexpr Angle() = default;
    constexpr explicit Angle(float radians) : value(radians) {}

    constexpr Angle operator*(const float& factor) const { return Angle(value * factor); }
    constexpr Angle operator+(const Angle& other) const { return Angle(value + other.value); }
    constexpr Angle operator-(const Angle& other) const { return Angle(value - other.value); }
    constexpr Angle operator+() const { return *this; }
    constexpr Angle operator-() const { return Angle(-value); }
    constexpr const Angle& operator*=(const float& factor) { value *= factor; return *this; }
    constexpr const Angle& operator+=(const Angle& other) { value += other.value; return *this; }
    constexpr const Angle& operator-=(const Angle& other) { value -= other.value; return *this; }

    // Callers rely on these two as they are: == is true when the difference
    // is NOT a whole number of turns, and != is the plain comparison.
    bool operator==(const Angle& other) const;
    bool operator!=(const Angle& other) const { return value != other.value; }

    constexpr float rad() const { return value; }
    constexpr float deg() const { return value * radians_2_degrees; }
    constexpr float grad() const { return value * radians_2_gradians; }
    constexpr float rev() const { return value * radians_2_revolutions; }

    // fmod by a turn, then shifted (not wrapped) by pi: 0 gives -pi.
    Angle Normalized() const;
    Angle NormalizedPositive() const;
    Angle Difference(const Angle& other) const;
    bool IsBetween(Angle first, Angle second) const;

private:
    static constexpr float pi = 3.14159274f;
    static constexpr float tau = 6.28318548f;
    static constexpr float degrees_2_radians = 0.01745329f;
    static constexpr float radians_2_degrees = 57.29578018f;
    static constexpr float gradians_2_radians = 0.01570796f;
    static constexpr float radians_2_gradians = 63.66197586f;
    static constexpr float revolutions_2_radians = 6.28318548f;
    static constexpr float radians_2_revolutions = 0.15915494f;

    float value = 0.0f;
};

class Impedance {
public:
    explicit Impedance(Resistance z0);

    Resistance GetZ0() const { return z0; }
    operator Resistance() const { return z0; }
    float GetSummand() const { return summand; }

    static const Impedance& GetDefault();
    static const Impedance& Get50OhmImpedance();
    static const Impedance& Get75OhmImpedance();

private:
    Impedance(Resistance z0, float summand) : z0(z0), summand(summand) {}

    Resistance z0;
    float summand = 0.0f;
};

class DecibelMicrovolts;

// Amplitudes of scan data: exactly one float wide.
class DecibelMilliwatts {
public:
    constexpr DecibelMilliwatts() = default;
    constexpr explicit DecibelMilliwatts(float dBm) : value(dBm) {}

    constexpr float Value() const { return value; }
    constexpr float dBm() const { return value; }
    constexpr DecibelMilliwatts operator+() const { return *this; }

    Power ConvertToPower() const;
    operator Power() const { return ConvertToPower(); }
    DecibelMicrovolts ConvertToDecibelMicrovolts(const Impedance& impedance) const;

    friend constexpr bool operator==(DecibelMilliwatts a, DecibelMilliwatts b) { return a.value == b.value; }
    friend constexpr bool operator!=(DecibelMilliwatts a, DecibelMilliwatts b) { return a.value != b.value; }
    friend constexpr bool operator<(DecibelMilliwatts a, DecibelMilliwatts b) { return a.value < b.value; }
    friend constexpr bool operator<=(DecibelMilliwatts a, DecibelMilliwatts b) { return a.value <= b.value; }
    friend constexpr bool operator>(DecibelMilliwatts a, DecibelMilliwatts b) { return a.value > b.value; }
    friend constexpr bool operator>=(DecibelMilliwatts a, DecibelMilliwatts b) { return a.value >= b.value; }

private:
    float value = 0.0f;
};

class DecibelMicrovolts {
public:
    constexpr DecibelMicrovolts() = default;
    constexpr explicit DecibelMicrovolts(float dBuV) : value(dBuV) {}

    constexpr float Value() const { return value; }
    constexpr float dBuV() const { return value; }
    constexpr DecibelMicrovolts operator+() const { return *this; }

    Voltage ConvertToVoltage() const;
    operator Voltage() const { return ConvertToVoltage(); }
    DecibelMilliwatts ConvertToDecibelMilliwatts(const Impedance& impedance) const;

    friend constexpr bool operator==(DecibelMicrovolts a, DecibelMicrovolts b) { return a.value == b.value; }
    friend constexpr bool operator!=(DecibelMicrovolts a, DecibelMicrovolts b) { return a.value != b.value; }
    friend constexpr bool operator<(DecibelMicrovolts a, DecibelMicrovolts b) { return a.value < b.value; }
    friend constexpr bool operator<=(DecibelMicrovolts a, DecibelMicrovolts b) { return a.value <= b.value; }
    friend constexpr bool operator>(DecibelMicrovolts a, DecibelMicrovolts b) { return a.value > b.value; }
    friend constexpr bool operator>=(DecibelMicrovolts a, DecibelMicrovolts b) { return a.value >= b.value; }

private:
    float value = 0.0f;
};

// Binary bodies write these as their raw numbers.
static_assert(sizeof(Frequency) == 8);
static_assert(sizeof(Length) == 4 && sizeof(Area) == 4 && sizeof(Power) == 4);
static_assert(sizeof(Voltage) == 4 && sizeof(Current) == 4 && sizeof(Resistance) == 4);
static_assert(sizeof(Angle) == 4);
static_assert(sizeof(DecibelMilliwatts) == 4 && sizeof(DecibelMicrovolts) == 4);

} // namespace nrq
