#include "HVX/Device/Device.h"

#include <exception>

namespace nrq {

bool Device::Ping() {
    if (IsConnected())
        return true;
    bool connected = false;
    try {
        connected = Connect();
    } catch (const std::exception&) {
        connected = false;
    }
    try {
        Disconnect();
    } catch (const std::exception&) {
    }
    return connected;
}

} // namespace nrq
