#include "HVX/Device/DeviceLoader.h"

#include <fmt/format.h>

namespace nrq {
namespace {

DeviceLoader::Table& Devices() {
    static DeviceLoader::Table devices;
    return devices;
}

std::shared_mutex& TableMutex() {
    static std::shared_mutex mutex;
    return mutex;
}

} // namespace

std::string DeviceLoader::MakeId(const DeviceInformation& info) {
    return fmt::format("{{{}}}{{{}}}", info.manufacturer, info.serial);
}

std::shared_ptr<Device> DeviceLoader::AddDevice(std::shared_ptr<Device> device) {
    if (!device)
        return nullptr;
    bool valid = false;
    std::string id;
    {
        // Only the device's own lock while it talks: a slow instrument holds up
        // this call and nobody else's use of the table.
        std::unique_lock deviceLock(device->GetMutex());
        if (device->Connect()) {
            device->QueryInfo();
            device->Disconnect();
            const DeviceInformation& info = device->GetInfo();
            id = MakeId(info);
            valid = !info.model.empty() && !info.manufacturer.empty() && !info.serial.empty();
        }
    }
    if (!valid)
        return nullptr;
    {
        std::unique_lock tableLock(TableMutex());
        // A device filed again under the same key replaces the older object,
        // which goes once its other users let go.
        Devices().insert_or_assign(std::move(id), device);
    }
    return device;
}

std::shared_ptr<Device> DeviceLoader::AddDevice(std::unique_ptr<Device>& device) {
    return AddDevice(std::shared_ptr<Device>(device.release()));
}

std::shared_ptr<Device> DeviceLoader::GetDevice(const std::string& id) {
    const Table& devices = Devices();
    const auto found = devices.find(id);
    return found == devices.end() ? nullptr : found->second;
}

std::shared_ptr<Analyzer> DeviceLoader::GetAnalyzer(const std::string& id) {
    return std::dynamic_pointer_cast<Analyzer>(GetDevice(id));
}

std::shared_ptr<Scanner> DeviceLoader::GetScanner(const std::string& id, ScanMethod method) {
    switch (method) {
    case ScanMethod::Device: {
        std::shared_lock lock(TableMutex());
        return std::dynamic_pointer_cast<Scanner>(GetDevice(id));
    }
    case ScanMethod::LiveTracking:
        // The camera-tracked probe is reached through live tracking's own
        // table, never through this one; this build has no cameras to track.
        return nullptr;
    }
    return nullptr;
}

bool DeviceLoader::RemoveDevice(const std::string& id) {
    std::unique_lock lock(TableMutex());
    return Devices().erase(id) != 0;
}

void DeviceLoader::Reset() {
    // Drivers' destructors may run here, under the lock: they must not call back.
    std::unique_lock lock(TableMutex());
    Devices().clear();
}

std::shared_lock<std::shared_mutex> DeviceLoader::GetReadLock() {
    return std::shared_lock(TableMutex());
}

std::unique_lock<std::shared_mutex> DeviceLoader::GetWriteLock() {
    return std::unique_lock(TableMutex());
}

DeviceLoader::Iterator DeviceLoader::begin() { return Devices().cbegin(); }

DeviceLoader::Iterator DeviceLoader::end() { return Devices().cend(); }

} // namespace nrq
