#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace nrq {

struct DeviceInformation {
    std::string model;
    std::string manufacturer;
    std::string serial;
    int64_t slot = 0;
    std::string note;
};

// Every instrument. The timed mutex says who may talk to it: the registry
// while it identifies the device, a scan from LockResources to UnlockResources.
class Device {
public:
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    virtual bool Connect() = 0;
    virtual void Disconnect() = 0;
    virtual bool IsConnected() = 0;
    // Reachable? Leaves a device that was not connected disconnected again.
    virtual bool Ping();

    const DeviceInformation& GetInfo() const { return info; }
    std::timed_mutex& GetMutex() const { return mutex; }

protected:
    Device() = default;
    // Fills the information; runs between Connect and Disconnect.
    virtual void QueryInfo() {}

    DeviceInformation info;

private:
    friend class DeviceLoader; // identifies devices as it files them

    mutable std::timed_mutex mutex;
};

} // namespace nrq
