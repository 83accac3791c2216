#pragma once

namespace nrq {

// The registry of devices in use.
class DeviceLoader {
public:
    DeviceLoader() = delete;

    // Releases every registered device.
    static void Reset();
};

} // namespace nrq
