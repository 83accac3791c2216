#pragma once

#include "HVX/Device/Analyzer.h"
#include "HVX/Device/Device.h"
#include "HVX/Device/Scanner.h"

#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

namespace nrq {

// The process-wide table of the instruments in use, keyed by
// "{manufacturer}{serial}". Only static members; nothing makes an instance.
class DeviceLoader {
public:
    using Table = std::map<std::string, std::shared_ptr<Device>>;
    // Walks the entries in key order; hold GetReadLock() for the length of the walk.
    using Iterator = Table::const_iterator;

    DeviceLoader() = delete;

    // Connects, identifies and disconnects the device under its own mutex, then
    // files it. Null for a device that cannot connect or does not say who it is.
    static std::shared_ptr<Device> AddDevice(std::shared_ptr<Device> device);
    // Leaves `device` empty in every case.
    static std::shared_ptr<Device> AddDevice(std::unique_ptr<Device>& device);

    // These two take no lock, so that a caller already walking the table under
    // the read lock can use them; others take GetReadLock() first.
    static std::shared_ptr<Device> GetDevice(const std::string& id);
    static std::shared_ptr<Analyzer> GetAnalyzer(const std::string& id);
    static std::shared_ptr<Scanner> GetScanner(const std::string& id, ScanMethod method);

    static bool RemoveDevice(const std::string& id);
    // Releases every registered device; the first act of HVXTerminate.
    static void Reset();

    static std::shared_lock<std::shared_mutex> GetReadLock();
    static std::unique_lock<std::shared_mutex> GetWriteLock();

    static Iterator begin();
    static Iterator end();

    // The key under which a device with this information is filed.
    static std::string MakeId(const DeviceInformation& info);
};

} // namespace nrq
