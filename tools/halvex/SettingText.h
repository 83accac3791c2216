#pragma once

#include <HVX/ESC/Variant.h>

#include <string>

namespace halvex {

// A setting's value as the user sees it: "1MHz", "-10 dBm", "auto", "unset", "-" for none.
std::string ValueText(const nrq::ESCVariant& value);

} // namespace halvex
