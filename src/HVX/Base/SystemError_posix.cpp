#include "HVX/Base/Error.h"

#include <cerrno>
#include <cstring>

namespace nrq {

// The platform's message table; a code without text gives an empty string.
std::string HVXGetSystemErrorMessage(int code) {
    const char* text = strerrordesc_np(code);
    return text ? std::string(text) : std::string();
}

std::string HVXGetSystemErrorMessage() { return HVXGetSystemErrorMessage(errno); }

} // namespace nrq
