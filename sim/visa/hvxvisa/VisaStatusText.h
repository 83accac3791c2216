#pragma once

#include "hvxvisa/VisaTypes.h"

namespace hvxvisa {

// The description viStatusDesc gives for a status, and whether it is known.
const char* VisaStatusText(ViStatus status, bool& known);

} // namespace hvxvisa
