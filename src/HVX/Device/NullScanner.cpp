#include "HVX/Device/NullScanner.h"

#include <fmt/format.h>

namespace nrq {

const std::string& NullScannerParameters::GetSerialType() const {
    static const std::string name = "NullSP";
    return name;
}

std::unique_ptr<ScannerState> NullScannerParameters::NewState() const {
    return std::make_unique<NullScannerState>();
}

const std::string& NullScannerState::GetSerialType() const {
    static const std::string name = "NullSS";
    return name;
}

NullScanner::NullScanner(int32_t id) : id(id) {}

void NullScanner::QueryInfo() {
    info.model = fmt::format("NullScanner {}", id);
    info.manufacturer = "Nerquil Labs";
    info.serial = fmt::format("nullsc{}", id);
}

void NullScanner::SetState(const ScannerState* newState) {
    state.reset(newState ? newState->Clone() : nullptr);
}

ScanStatus NullScanner::NextScanPosition() {
    // The imitation follows the state's class. The scanner boards and live
    // tracking add their branches here, in this order, after the plain one.
    if (auto* random = dynamic_cast<NullScannerState*>(state.get()))
        return StepRandom(*random);
    // Any other state, a null one too, has nothing to visit.
    return ScanStatus::Finished;
}

ScanStatus NullScanner::StepRandom(NullScannerState& random) {
    if (random.counter >= NullScannerState::pointsPerPass)
        return ScanStatus::Finished;
    ++random.counter;
    const float a = random.distribution(random.generator);
    const float b = random.distribution(random.generator);
    position = Position(Length(b * 0.315f), Length(a * 0.2175f), Length(0.0f));
    return ScanStatus::Ready;
}

static SerializableTypes registerNullScannerParameters(std::make_unique<NullScannerParameters>());
static SerializableTypes registerNullScannerState(std::make_unique<NullScannerState>());

} // namespace nrq
