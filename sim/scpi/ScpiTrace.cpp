#include "hvxsim/ScpiTrace.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace hvxsim {

namespace {

struct Carrier {
    double frequencyHz;
    double levelDbm;
};

// A few signals a board under test typically shows.
constexpr Carrier kCarriers[] = {
    {100e6, -42.0}, {433.92e6, -55.0}, {700e6, -35.0}, {868e6, -50.0}, {1.2e9, -60.0}, {2.44e9, -48.0},
};

constexpr double kThermalNoiseDbmPerHz = -174.0;
constexpr double kNoiseFigureDb = 24.0;
constexpr double kPreampGainDb = 15.0;
constexpr double kNoiseSpreadDb = 2.5;

uint64_t SplitMix64(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Uniform in [-1, 1), from the top 53 bits.
double UnitNoise(uint64_t& state) {
    return static_cast<double>(SplitMix64(state) >> 11) * (2.0 / 9007199254740992.0) - 1.0;
}

double NoiseFloorDbm(const TraceConditions& conditions) {
    const double rbw = conditions.rbwHz > 1.0 ? conditions.rbwHz : 1.0;
    return kThermalNoiseDbmPerHz + kNoiseFigureDb + 10.0 * std::log10(rbw) + conditions.attenuationDb -
           (conditions.preamp ? kPreampGainDb : 0.0);
}

// The carrier as seen through a Gaussian resolution filter.
double CarrierPowerMilliwatt(const Carrier& carrier, double frequencyHz, double rbwHz) {
    const double offset = 2.0 * (frequencyHz - carrier.frequencyHz) / (rbwHz > 1.0 ? rbwHz : 1.0);
    const double dropDb = 3.01 * offset * offset;
    if (dropDb > 200.0)
        return 0.0;
    return std::pow(10.0, (carrier.levelDbm - dropDb) / 10.0);
}

std::vector<double> CleanTrace(const TraceConditions& conditions);

bool SameConditions(const TraceConditions& a, const TraceConditions& b) {
    return a.startHz == b.startHz && a.stopHz == b.stopHz && a.rbwHz == b.rbwHz && a.points == b.points &&
           a.attenuationDb == b.attenuationDb && a.preamp == b.preamp;
}

// Floor and carriers cost a power and a logarithm a point; an instrument
// sweeps the same settings again and again, so they are kept per thread.
const std::vector<double>& CleanTraceDbm(const TraceConditions& conditions) {
    thread_local TraceConditions kept;
    thread_local std::vector<double> clean;
    thread_local bool valid = false;
    if (!valid || !SameConditions(kept, conditions)) {
        clean = CleanTrace(conditions);
        kept = conditions;
        valid = true;
    }
    return clean;
}

} // namespace

std::vector<double> TraceFrequencies(double startHz, double stopHz, int points) {
    std::vector<double> frequencies(points > 0 ? static_cast<size_t>(points) : 0);
    const double step = points > 1 ? (stopHz - startHz) / (points - 1) : 0.0;
    for (size_t i = 0; i < frequencies.size(); ++i)
        frequencies[i] = startHz + step * static_cast<double>(i);
    return frequencies;
}

std::vector<float> SynthesizeTrace(const TraceConditions& conditions, uint64_t seed, uint64_t sweepIndex) {
    const std::vector<double>& clean = CleanTraceDbm(conditions);
    uint64_t state = seed ^ (sweepIndex * 0xD1B54A32D192ED03ull);
    std::vector<float> values(clean.size());
    for (size_t i = 0; i < clean.size(); ++i)
        values[i] = static_cast<float>(clean[i] + kNoiseSpreadDb * UnitNoise(state));
    return values;
}

namespace {

// The trace without its noise, in dBm.
std::vector<double> CleanTrace(const TraceConditions& conditions) {
    const std::vector<double> frequencies = TraceFrequencies(conditions.startHz, conditions.stopHz, conditions.points);
    const double floorMilliwatt = std::pow(10.0, NoiseFloorDbm(conditions) / 10.0);
    std::vector<double> clean(frequencies.size());
    for (size_t i = 0; i < frequencies.size(); ++i) {
        double milliwatt = floorMilliwatt;
        for (const Carrier& carrier : kCarriers)
            milliwatt += CarrierPowerMilliwatt(carrier, frequencies[i], conditions.rbwHz);
        clean[i] = 10.0 * std::log10(milliwatt);
    }
    return clean;
}

} // namespace

std::string BlockTailBytes(BlockTail tail) {
    switch (tail) {
    case BlockTail::LineFeed: return "\n";
    case BlockTail::TwoSpareBytes: return std::string(2, '\0');
    case BlockTail::None: break;
    }
    return {};
}

std::string DefiniteLengthPrefix(size_t byteCount) {
    const std::string length = std::to_string(byteCount);
    return "#" + std::to_string(length.size()) + length;
}

std::string EncodeFloat32(const std::vector<float>& values, ByteOrder order) {
    std::string bytes(values.size() * 4, '\0');
    const bool swap = (order == ByteOrder::BigEndian) == (std::endian::native == std::endian::little);
    for (size_t i = 0; i < values.size(); ++i) {
        uint32_t word = std::bit_cast<uint32_t>(values[i]);
        if (swap)
            word = ((word & 0xFFu) << 24) | ((word & 0xFF00u) << 8) | ((word >> 8) & 0xFF00u) | (word >> 24);
        std::memcpy(bytes.data() + i * 4, &word, 4);
    }
    return bytes;
}

std::string EncodeAscii(const std::vector<float>& values) {
    std::string text;
    char buffer[32];
    for (size_t i = 0; i < values.size(); ++i) {
        std::snprintf(buffer, sizeof buffer, i == 0 ? "%.2f" : ",%.2f", static_cast<double>(values[i]));
        text += buffer;
    }
    return text;
}

} // namespace hvxsim
