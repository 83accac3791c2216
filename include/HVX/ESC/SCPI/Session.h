#pragma once

#include "HVX/ESC/SCPI/State.h"

#include <string>
#include <string_view>

namespace nrq {

// Each returns false for a device failure and tells the log why; none throws for one.
bool SCPIGetError(SCPISpecAnState& state, SCPIError& error);
bool SCPIGetIdentity(SCPISpecAnState& state, SCPIIdentity& identity);
bool SCPIPingIdentity(SCPISpecAnState& state);
bool SCPISwitchMode(SCPISpecAnState& state, ESCDeviceModeIndex mode);

// The building blocks of the above, open to the sweep and to tests.
void SCPIWait(const SCPISpecAnState& state);
bool SCPIDrainErrors(SCPISpecAnState& state);
bool SCPIRunWrite(SCPISpecAnState& state, std::string_view script, bool unchecked);
bool SCPIRunQuery(SCPISpecAnState& state, std::string_view script, std::string& response, bool unchecked);

} // namespace nrq
