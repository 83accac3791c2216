#include "HVX/Device/NullAnalyzer.h"

#include <fmt/format.h>

#include <stdexcept>
#include <thread>

namespace nrq {
namespace {

std::minstd_rand::result_type RandomSeed() {
    const auto seed = static_cast<std::minstd_rand::result_type>(std::random_device{}() % 2147483647u);
    return seed == 0 ? 1 : seed;
}

} // namespace

const std::string& NullAnalyzerParameters::GetSerialType() const {
    static const std::string name = "NullAP";
    return name;
}

std::string NullAnalyzerParameters::SerializeBinary() const {
    std::string out;
    AppendRaw(out, extra);
    return out;
}

void NullAnalyzerParameters::DeserializeBinary(std::string_view& data, const SerializeInfo&) {
    BinaryCursor(data).ReadInto(extra);
}

NullAnalyzer::NullAnalyzer(int32_t id) : id(id), generator(RandomSeed()) {}

void NullAnalyzer::QueryInfo() {
    info.model = fmt::format("NullAnalyzer {}", id);
    info.manufacturer = "Nerquil Labs";
    info.serial = fmt::format("nullan{}", id);
}

// Fixed: the simulator does not follow its parameters.
FrequencyStartStop NullAnalyzer::GetFrequencyRange() const {
    return {Frequency(100e6), Frequency(200e6)};
}

std::vector<DecibelMilliwatts> NullAnalyzer::GetMeasurement() {
    if (sweepDuration.count() > 0)
        std::this_thread::sleep_for(sweepDuration);
    std::vector<DecibelMilliwatts> sweep;
    sweep.reserve(pointsPerSweep);
    for (size_t i = 0; i < pointsPerSweep; ++i)
        sweep.emplace_back(noise(generator));
    return sweep;
}

void NullAnalyzer::SetAnalyzerParameters(const AnalyzerParameters* given) {
    const auto* own = dynamic_cast<const NullAnalyzerParameters*>(given);
    if (!own)
        throw std::runtime_error("Cannot use these parameters with this analyzer.");
    parameters = *own;
}

} // namespace nrq
