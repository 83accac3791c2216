#pragma once

#include "HVX/ESC/SCPI/State.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace nrq {

bool SCPIScanInitState(SCPISpecAnState& state, IO* io, const ESCFeatureSet* featureSet);
bool SCPIScanClearState(SCPISpecAnState& state);
// The features of the spectrum analyzer mode, in order.
bool SCPIScanGetRelevantFeatureList(std::span<const ESCFeature> features, std::vector<const ESCFeature*>& relevant);
// The default of each label's first feature; Nil defaults are left out.
bool SCPIScanCreateVariableMap(const std::vector<const ESCFeature*>& features, SCPIVariableMap& map);
bool SCPIScanHasRequiredFeatures(SCPISpecAnState& state, std::string& report);
bool SCPIScanCreateCommands(SCPISpecAnState& state);
bool SCPIScanRunSetup(SCPISpecAnState& state);
bool SCPIScanRunEndSetup(SCPISpecAnState& state);
bool SCPIScanRunMeas(SCPISpecAnState& state);
bool SCPIScanGetMeasCount(SCPISpecAnState& state, size_t& count);
// The pointer stays valid until the next call.
bool SCPIScanGetMeasValues(SCPISpecAnState& state, DecibelMilliwatts*& values);
bool SCPIScanGetFrequencyRange(const SCPISpecAnState& state, Frequency& start, Frequency& stop);

// 4 for the 32-bit formats, 8 for the 64-bit ones.
size_t GetBinaryFormatSize(SCPIValueFormat format);

} // namespace nrq
