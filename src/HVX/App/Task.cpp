#include "HVX/App/Task.h"

#include "HVX/Base/Error.h"
#include "HVX/Device/DeviceLoader.h"

#include <algorithm>
#include <chrono>

namespace nrq {
namespace {

void TryLockFor(std::unique_lock<std::timed_mutex>& lock, std::chrono::milliseconds limit) {
#if defined(__SANITIZE_THREAD__)
    // This ThreadSanitizer does not see pthread_mutex_clocklock, which
    // try_lock_for uses, and then reports the unlock; a system-clock deadline
    // goes through pthread_mutex_timedlock, which it does see.
    lock.try_lock_until(std::chrono::system_clock::now() + limit);
#else
    lock.try_lock_for(limit);
#endif
}

} // namespace

Task::Task(const Task& other)
    : UserDataContainer(other),
      hasProgress(other.hasProgress.load(std::memory_order_relaxed)),
      progress(other.progress.load(std::memory_order_relaxed)),
      repeating(other.repeating.load(std::memory_order_relaxed)) {}

Task& Task::operator=(const Task& other) {
    UserDataContainer::operator=(other);
    hasProgress.store(other.hasProgress.load(std::memory_order_relaxed), std::memory_order_relaxed);
    progress.store(other.progress.load(std::memory_order_relaxed), std::memory_order_relaxed);
    repeating.store(other.repeating.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return *this;
}

bool Task::GetProgress(float& value) const {
    if (!hasProgress.load(std::memory_order_acquire))
        return false;
    value = progress.load(std::memory_order_relaxed);
    return true;
}

void Task::SetProgress(float value) {
    progress.store(std::clamp(value, 0.0f, 1.0f), std::memory_order_relaxed);
    hasProgress.store(true, std::memory_order_release);
}

void Task::RunComplete() {
    LockResources();
    while (Step()) {
    }
    UnlockResources();
}

GenericScanTask::GenericScanTask(std::shared_ptr<IScanData> data, const GenericScanArguments& arguments)
    : scanData(data), behavior(arguments.behavior), positionalOutputRequired(arguments.positionalOutputRequired) {
    Assert(!arguments.scannerId.empty(), "A scanner was not selected for this scan");
    Assert(DeviceLoader::GetScanner(arguments.scannerId, arguments.method) != nullptr,
           "The scanning device is not connected");
    Assert(!arguments.analyzerId.empty(), "An analyzer was not selected for this scan");
    Assert(DeviceLoader::GetAnalyzer(arguments.analyzerId) != nullptr, "The analyzer is not connected");

    parameters.method = arguments.method;
    parameters.scannerId = arguments.scannerId;
    parameters.analyzerId = arguments.analyzerId;
    if (arguments.scannerParameters)
        parameters.scannerParameters.reset(arguments.scannerParameters->Clone());
    if (arguments.analyzerParameters)
        parameters.analyzerParameters.reset(arguments.analyzerParameters->Clone());

    SetProgress(0.0f);
    if (data)
        data->SetState(IScanData::State::Scanning);
}

bool GenericScanTask::LockResources() {
    // The devices are looked up afresh: one may have left the registry since.
    scanner = DeviceLoader::GetScanner(parameters.scannerId, parameters.method);
    if (!scanner)
        throw Error("Connection to the scanner has been lost.");
    analyzer = DeviceLoader::GetAnalyzer(parameters.analyzerId);
    if (!analyzer)
        throw Error("The analyzer is not connected");

    // Scanner first, analyzer second, each with a limit, so that two tasks with
    // crossed devices give up instead of waiting for each other.
    scannerLock = std::unique_lock(scanner->GetMutex(), std::defer_lock);
    TryLockFor(scannerLock, lockTimeout);
    analyzerLock = std::unique_lock(analyzer->GetMutex(), std::defer_lock);
    TryLockFor(analyzerLock, lockTimeout);
    lockedData = scanData.lock();
    if (!scannerLock.owns_lock() || !analyzerLock.owns_lock() || !lockedData)
        return false;

    scanner->Connect();
    analyzer->Connect();
    if (parameters.scannerParameters) {
        const std::unique_ptr<ScannerState> start = parameters.scannerParameters->NewState();
        scanner->SetState(start.get());
    }
    analyzer->SetAnalyzerParameters(parameters.analyzerParameters.get());
    scanner->InitScanner();
    analyzer->InitAnalyzer();
    scanner->SetPositionalOutputRequired(positionalOutputRequired);
    return true;
}

bool GenericScanTask::Step() {
    const ScanStatus status = scanner->NextScanPosition();
    if (status == ScanStatus::Finished) {
        if (!GetRepeating()) {
            lockedData->SetState(IScanData::State::Complete);
            return false;
        }
        // The next pass starts on the next call; this one measures nothing.
        if (ScannerState* state = scanner->GetState())
            state->Reset();
        lockedData->ResetWriteIndex();
        UpdateProgress();
        return true;
    }
    if (status != ScanStatus::Ready)
        return true;

    FullScanMeasurement measurement;
    measurement.position = scanner->GetScanPosition();
    const FrequencyStartStop range = analyzer->GetFrequencyRange();
    std::vector<DecibelMilliwatts> values = analyzer->GetMeasurement();
    measurement.time = std::chrono::steady_clock::now();
    measurement.startFrequency = range.start;
    measurement.count = values.size();
    // One point gives an infinite step and none a vanishing one; the data decides.
    measurement.stepFrequency =
        Frequency((range.stop.Hz() - range.start.Hz()) / static_cast<double>(measurement.count - 1));
    measurement.values = std::move(values);
    measurement.CalculateMaxIndex();
    lockedData->AddMeasurement(static_cast<const FullScanMeasurement&>(measurement), behavior);
    UpdateProgress();
    return true;
}

void GenericScanTask::UpdateProgress() {
    float value = 0.0f;
    if (scanner->GetProgress(value))
        SetProgress(value);
}

void GenericScanTask::Suspend() {
    const ScannerState* state = scanner ? scanner->GetState() : nullptr;
    savedState.reset(state ? state->Clone() : nullptr);
}

void GenericScanTask::Continue() {
    scanner->SetState(savedState.get());
    savedState.reset();
}

void GenericScanTask::Stop(bool) {
    if (scanner)
        scanner->ResetScanner();
    if (analyzer)
        analyzer->ResetAnalyzer();
    if (const std::shared_ptr<IScanData> data = scanData.lock())
        data->SetState(data->IsEmpty() ? IScanData::State::Empty : IScanData::State::Complete);
}

bool GenericScanTask::UnlockResources() {
    if (analyzer)
        analyzer->Disconnect();
    if (scanner)
        scanner->Disconnect();
    lockedData.reset();
    if (scannerLock.owns_lock())
        scannerLock.unlock();
    if (analyzerLock.owns_lock())
        analyzerLock.unlock();
    return true;
}

std::vector<std::shared_ptr<Device>> GenericScanTask::GetDevicesInUse() {
    if (!scanner || !analyzer)
        return {};
    return {std::static_pointer_cast<Device>(scanner), std::static_pointer_cast<Device>(analyzer)};
}

std::vector<std::shared_ptr<IScanData>> GenericScanTask::GetScanData() {
    if (std::shared_ptr<IScanData> data = scanData.lock())
        return {std::move(data)};
    return {};
}

std::string_view GenericScanTask::GetStatusText() {
    // One fixed text for every phase of the scan.
    return "TEST";
}

} // namespace nrq
