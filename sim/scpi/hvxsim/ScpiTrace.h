#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace hvxsim {

// Supplies trace values for a list of frequencies (hertz), in dBm, one value
// per frequency. A digital twin plugs in here; it runs on the simulator's
// thread with the simulator locked, so it must not call back into it.
using TraceSource = std::function<std::vector<float>(const std::vector<double>& frequenciesHz)>;

// What the analyzer's settings mean for the synthesized trace.
struct TraceConditions {
    double startHz = 0.0;
    double stopHz = 0.0;
    double rbwHz = 100e3;
    int points = 1001;
    double attenuationDb = 10.0;
    bool preamp = false;
};

// The frequency of each point: start to stop in equal steps.
std::vector<double> TraceFrequencies(double startHz, double stopHz, int points);

// Noise floor plus a few carriers, in dBm. The noise comes from the seed and
// the sweep number alone, so equal inputs give bit-identical traces.
std::vector<float> SynthesizeTrace(const TraceConditions& conditions, uint64_t seed, uint64_t sweepIndex);

enum class ByteOrder { LittleEndian, BigEndian };

// What follows the data bytes of a definite-length block.
enum class BlockTail { LineFeed, TwoSpareBytes, None };

// The bytes of the tail: "\n", two NULs, or nothing.
std::string BlockTailBytes(BlockTail tail);

// "#<n><len>": n the count of length digits.
std::string DefiniteLengthPrefix(size_t byteCount);

// The float32 values in the given byte order.
std::string EncodeFloat32(const std::vector<float>& values, ByteOrder order);

// Comma-separated values with two decimals, as instruments answer in ASCII.
std::string EncodeAscii(const std::vector<float>& values);

} // namespace hvxsim
