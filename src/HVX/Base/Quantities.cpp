#include "HVX/Base/Quantities.h"

#include <fmt/format.h>

#include <cmath>

namespace nrq {
namespace detail {
namespace {

struct LadderStep {
    double threshold;
    const char* prefix;
    double factor;
};

constexpr LadderStep ladder[] = {
    {1e12, "T", 1e-12}, {1e9, "G", 1e-9}, {1e6, "M", 1e-6}, {1000.0, "k", 1e-3},
    {1.0, "", 1.0},     {0.001, "m", 1e3}, {1e-6, "u", 1e6}, {0.0, "n", 1e9},
};

template <class T>
std::string FormatOnLadder(T value, const char* unit) {
    const double magnitude = std::fabs(static_cast<double>(value));
    if (magnitude < 1e-9)
        return fmt::format("0{}", unit);
    for (const LadderStep& step : ladder) {
        if (magnitude >= step.threshold)
            return fmt::format("{:g}{}{}", value * static_cast<T>(step.factor), step.prefix, unit);
    }
    return fmt::format("0{}", unit);
}

} // namespace

std::string LadderToString(double value, const char* unit) { return FormatOnLadder(value, unit); }
std::string LadderToString(float value, const char* unit) { return FormatOnLadder(value, unit); }

} // namespace detail

bool Angle::operator==(const Angle& other) const {
    return std::fmod(value - other.value, tau) != 0.0f;
}

Angle Angle::Normalized() const { return Angle(std::fmod(value, tau) - pi); }

Angle Angle::NormalizedPositive() const {
    float wrapped = std::fmod(value, tau);
    if (wrapped < 0.0f)
        wrapped += tau;
    return Angle(wrapped);
}

Angle Angle::Difference(const Angle& other) const {
    const float d = (*this - other).NormalizedPositive().value;
    return Angle(d >= pi ? tau - d : d);
}

bool Angle::IsBetween(Angle first, Angle second) const {
    const float p = (*this - first).NormalizedPositive().value;
    const float q = (second - first).NormalizedPositive().value;
    return q + 0.017453292f >= p;
}

Impedance::Impedance(Resistance z0)
    : z0(z0),
      summand(static_cast<float>(20.0 * static_cast<double>(std::log10(std::sqrt(z0.O()))) + 90.0)) {}

const Impedance& Impedance::GetDefault() { return Get50OhmImpedance(); }

const Impedance& Impedance::Get50OhmImpedance() {
    static const Impedance fifty(Resistance(50.0f), 106.98970031f);
    return fifty;
}

// The table value 20 log10(75) + 90, which the public constructor would not give.
const Impedance& Impedance::Get75OhmImpedance() {
    static const Impedance seventyFive(Resistance(75.0f), 127.50122833f);
    return seventyFive;
}

Power DecibelMilliwatts::ConvertToPower() const {
    return Power(static_cast<float>(std::pow(10.0, (static_cast<double>(value) - 30.0) / 10.0)));
}

DecibelMicrovolts DecibelMilliwatts::ConvertToDecibelMicrovolts(const Impedance& impedance) const {
    return DecibelMicrovolts(value + impedance.GetSummand());
}

Voltage DecibelMicrovolts::ConvertToVoltage() const {
    return Voltage(static_cast<float>(std::pow(10.0, (static_cast<double>(value) - 120.0) / 20.0)));
}

DecibelMilliwatts DecibelMicrovolts::ConvertToDecibelMilliwatts(const Impedance& impedance) const {
    return DecibelMilliwatts(value - impedance.GetSummand());
}

} // namespace nrq
