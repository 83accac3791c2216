#include "HVX/Device/UnknownDeserialized.h"

namespace nrq {

const std::string& UnknownAnalyzerParameters::GetSerialType() const {
    static const std::string name = "UnknownAnalyzerParameters";
    return name;
}

const std::string& UnknownScannerParameters::GetSerialType() const {
    static const std::string name = "UnknownScannerParameters";
    return name;
}

const std::string& UnknownScannerState::GetSerialType() const {
    static const std::string name = "UnknownScannerState";
    return name;
}

static SerializableTypes registerUnknownAnalyzerParameters(std::make_unique<UnknownAnalyzerParameters>());
static SerializableTypes registerUnknownScannerParameters(std::make_unique<UnknownScannerParameters>());
static SerializableTypes registerUnknownScannerState(std::make_unique<UnknownScannerState>());

} // namespace nrq
