#pragma once

#include "HVX/App/Data/ScanData.h"
#include "HVX/Base/UserData.h"
#include "HVX/Device/Analyzer.h"
#include "HVX/Device/Device.h"
#include "HVX/Device/Scanner.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// A unit of background work that the application drives step by step:
// LockResources until true, Step until false, UnlockResources.
class Task : public UserDataContainer {
public:
    Task() = default;
    Task(const Task& other);
    Task& operator=(const Task& other);
    virtual ~Task() = default;

    virtual bool LockResources() = 0;
    virtual bool UnlockResources() = 0;
    // One move of the work; true to be called again.
    virtual bool Step() = 0;
    virtual void Suspend() = 0;
    virtual void Continue() = 0;
    virtual void Stop(bool) {}
    virtual std::vector<std::shared_ptr<Device>> GetDevicesInUse() = 0;
    virtual std::vector<std::shared_ptr<IScanData>> GetScanData() = 0;
    virtual std::string_view GetStatusText() = 0;
    // False until some progress has been set.
    virtual bool GetProgress(float& progress) const;
    // The whole job on the calling thread. An exception leaves it without unlocking.
    virtual void RunComplete();

    // Clamped to 0..1.
    void SetProgress(float value);
    bool GetRepeating() const { return repeating.load(std::memory_order_relaxed); }
    void SetRepeating(bool value) { repeating.store(value, std::memory_order_relaxed); }

private:
    // Written by the task thread, read by any: one word each, no lock.
    std::atomic<bool> hasProgress{false};
    std::atomic<float> progress{0.0f};
    std::atomic<bool> repeating{false};
};

// What the application fills to start a scan. The ids are keys of DeviceLoader.
struct GenericScanArguments {
    const std::string& scannerId;
    ScanMethod method = ScanMethod::Device;
    const ScannerParameters* scannerParameters = nullptr;
    const std::string& analyzerId;
    const AnalyzerParameters* analyzerParameters = nullptr;
    RepeatingBehavior behavior = RepeatingBehavior::Overwrite;
    bool positionalOutputRequired = true;
};

// The scan task's own lasting copy of what it was given.
struct GenericScanParameters {
    ScanMethod method = ScanMethod::Device;
    std::string analyzerId;
    std::string scannerId;
    std::unique_ptr<ScannerParameters> scannerParameters;
    std::unique_ptr<AnalyzerParameters> analyzerParameters;
};

// Walks one scanner's positions, takes one sweep at each and adds it to the scan data.
class GenericScanTask : public Task {
public:
    // Raises through Assert when a device id is empty or not in the registry.
    GenericScanTask(std::shared_ptr<IScanData> data, const GenericScanArguments& arguments);
    GenericScanTask(const GenericScanTask&) = delete;
    GenericScanTask& operator=(const GenericScanTask&) = delete;
    ~GenericScanTask() override = default;

    // False when a device stays busy for half a second or the data has gone;
    // a lock that was won stays held until UnlockResources or the next attempt.
    bool LockResources() override;
    bool UnlockResources() override;
    bool Step() override;
    void Suspend() override;
    void Continue() override;
    // May come from another thread while Step runs; it does not end the run.
    void Stop(bool) override;
    std::vector<std::shared_ptr<Device>> GetDevicesInUse() override;
    std::vector<std::shared_ptr<IScanData>> GetScanData() override;
    std::string_view GetStatusText() override;

    ScanMethod GetScanMethod() const { return parameters.method; }
    const GenericScanParameters& GetParameters() const { return parameters; }

    // How long LockResources waits for each device.
    static constexpr std::chrono::milliseconds lockTimeout{500};

protected:
    void UpdateProgress();

private:
    GenericScanParameters parameters;
    std::weak_ptr<IScanData> scanData;
    RepeatingBehavior behavior;
    bool positionalOutputRequired;
    std::shared_ptr<Scanner> scanner;
    std::shared_ptr<Analyzer> analyzer;
    std::shared_ptr<IScanData> lockedData;
    std::unique_lock<std::timed_mutex> analyzerLock;
    std::unique_lock<std::timed_mutex> scannerLock;
    std::unique_ptr<ScannerState> savedState;
};

} // namespace nrq
