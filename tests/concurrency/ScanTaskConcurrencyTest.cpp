// The scan task across threads: Stop from another thread while a scan runs,
// progress read beside the stepping thread, and tasks contending for devices.
// Threads meet through latches, condition variables and atomics only.
#include "HVX/App/Data/SpectralScanData.h"
#include "HVX/App/Task.h"
#include "HVX/Device/DeviceLoader.h"
#include "HVX/Device/NullAnalyzer.h"
#include "HVX/Device/NullScanner.h"
#include "HVX/Device/Scanner/TavrelAdapterV1.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <latch>
#include <mutex>
#include <shared_mutex>
#include <thread>

namespace nrq {
namespace {

using namespace std::chrono_literals;
using State = IScanData::State;

// Scan data that may be read from any thread.
class GuardedScanData : public IScanData {
public:
    GuardedScanData* Clone() const override { return new GuardedScanData(); }
    const std::string& GetSerialType() const override {
        static const std::string name = "GuardedSD";
        return name;
    }
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior) override {
        std::lock_guard lock(mutex);
        ++count;
        lastCount = measurement.count;
    }
    bool IsEmpty() const override {
        std::lock_guard lock(mutex);
        return count == 0;
    }
    size_t Count() const {
        std::lock_guard lock(mutex);
        return count;
    }

private:
    mutable std::mutex mutex;
    size_t count = 0;
    uint64_t lastCount = 0;
};

// The spectrum of the scan, counting what it is given.
class CountingSpectralScanData : public SpectralScanData {
public:
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) override {
        SpectralScanData::AddMeasurement(measurement, behavior);
        added.fetch_add(1);
    }
    using SpectralScanData::AddMeasurement;
    std::atomic<int> added{0};
};

class CountingNullScanner : public NullScanner {
public:
    using NullScanner::NullScanner;
    void ResetScanner() override { resets.fetch_add(1); }
    std::atomic<int> resets{0};
};

// An analyzer whose sweeps wait for permits from the test, so the test knows
// where the scan thread stands.
class GatedAnalyzer : public NullAnalyzer {
public:
    GatedAnalyzer(int32_t id, int initialPermits) : NullAnalyzer(id), permits(initialPermits) {
        SetSweepDuration(0ns);
    }

    std::vector<DecibelMilliwatts> GetMeasurement() override {
        {
            std::unique_lock lock(mutex);
            ++started;
            changed.notify_all();
            changed.wait(lock, [&] { return permits > 0; });
            --permits;
        }
        return NullAnalyzer::GetMeasurement();
    }
    void ResetAnalyzer() override { resets.fetch_add(1); }

    void WaitUntilStarted(int sweeps) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return started >= sweeps; });
    }
    void Permit(int more) {
        std::lock_guard lock(mutex);
        permits += more;
        changed.notify_all();
    }

    std::atomic<int> resets{0};

private:
    std::mutex mutex;
    std::condition_variable changed;
    int started = 0;
    int permits;
};

class ScanTaskConcurrencyTest : public ::testing::Test {
protected:
    void SetUp() override { DeviceLoader::Reset(); }
    void TearDown() override { DeviceLoader::Reset(); }

    static std::string Add(std::shared_ptr<Device> device) {
        const auto added = DeviceLoader::AddDevice(std::move(device));
        EXPECT_NE(added, nullptr);
        return added ? DeviceLoader::MakeId(added->GetInfo()) : std::string();
    }

    const NullScannerParameters randomPass;
    const NullAnalyzerParameters analyzerParameters;
};

TEST_F(ScanTaskConcurrencyTest, StopFromAnotherThreadWhileASweepRuns) {
    auto scanner = std::make_shared<CountingNullScanner>(0);
    auto analyzer = std::make_shared<GatedAnalyzer>(0, 2);
    const std::string scannerId = Add(scanner);
    const std::string analyzerId = Add(analyzer);
    const auto data = std::make_shared<CountingSpectralScanData>();
    GenericScanTask task(data, {scannerId, ScanMethod::Device, &randomPass, analyzerId, &analyzerParameters});

    std::atomic<bool> stopRequested{false};
    bool locked = false;
    std::thread scan([&] {
        locked = task.LockResources();
        if (locked)
            while (!stopRequested.load() && task.Step()) {
            }
        task.UnlockResources();
    });

    // The third sweep is in flight: two measurements are in, the scan runs.
    analyzer->WaitUntilStarted(3);
    EXPECT_EQ(data->added.load(), 2);
    {
        // A reader beside the scan, as a drawing thread would be.
        std::shared_lock lock(data->GetMutex());
        EXPECT_EQ(data->GetValues().size(), 600u);
    }
    task.Stop(false);
    EXPECT_EQ(scanner->resets.load(), 1);
    EXPECT_EQ(analyzer->resets.load(), 1);
    EXPECT_EQ(data->GetState(), State::Complete);
    stopRequested.store(true);
    analyzer->Permit(1000);
    scan.join();

    ASSERT_TRUE(locked);
    // The sweep that was running when Stop came is kept.
    EXPECT_EQ(data->added.load(), 3);
    EXPECT_EQ(data->GetState(), State::Complete);
    EXPECT_TRUE(scanner->GetMutex().try_lock());
    scanner->GetMutex().unlock();
}

TEST_F(ScanTaskConcurrencyTest, StopBeforeAnyDataLeavesItEmpty) {
    auto scanner = std::make_shared<CountingNullScanner>(0);
    auto analyzer = std::make_shared<GatedAnalyzer>(0, 0);
    const std::string scannerId = Add(scanner);
    const std::string analyzerId = Add(analyzer);
    const auto data = std::make_shared<GuardedScanData>();
    GenericScanTask task(data, {scannerId, ScanMethod::Device, &randomPass, analyzerId, &analyzerParameters});

    std::atomic<bool> stopRequested{false};
    std::thread scan([&] {
        if (task.LockResources())
            while (!stopRequested.load() && task.Step()) {
            }
        task.UnlockResources();
    });
    analyzer->WaitUntilStarted(1);
    task.Stop(false);
    EXPECT_EQ(data->GetState(), State::Empty);
    stopRequested.store(true);
    analyzer->Permit(1);
    scan.join();
    // The first sweep came in after Stop; the state is what Stop left.
    EXPECT_EQ(data->Count(), 1u);
    EXPECT_EQ(data->GetState(), State::Empty);
}

// Each Step writes the progress word; a reader polls it meanwhile.
TEST_F(ScanTaskConcurrencyTest, ProgressIsReadWhileTheScanThreadWritesIt) {
    auto scanner = std::make_shared<NullScanner>(0);
    auto analyzer = std::make_shared<NullAnalyzer>(0);
    analyzer->SetSweepDuration(0ns);
    const std::string scannerId = Add(scanner);
    const std::string analyzerId = Add(analyzer);
    TavrelAdapterV1Parameters cells;
    cells.SetAll(true);
    const auto data = std::make_shared<GuardedScanData>();
    GenericScanTask task(data, {scannerId, ScanMethod::Device, &cells, analyzerId, &analyzerParameters});

    std::atomic<bool> done{false};
    std::thread scan([&] {
        task.RunComplete();
        done.store(true);
    });
    while (!done.load()) {
        float progress = -1.0f;
        ASSERT_TRUE(task.GetProgress(progress));
        ASSERT_GE(progress, 0.0f);
        ASSERT_LE(progress, 1.0f);
        EXPECT_EQ(task.GetStatusText(), "TEST");
    }
    scan.join();
    EXPECT_EQ(data->Count(), 1218u);
    EXPECT_EQ(data->GetState(), State::Complete);
}

TEST_F(ScanTaskConcurrencyTest, SecondTaskOnTheSameDevicesGetsFalseUntilTheFirstUnlocks) {
    auto scanner = std::make_shared<NullScanner>(0);
    auto analyzer = std::make_shared<NullAnalyzer>(0);
    analyzer->SetSweepDuration(0ns);
    const std::string scannerId = Add(scanner);
    const std::string analyzerId = Add(analyzer);
    const auto firstData = std::make_shared<GuardedScanData>();
    const auto secondData = std::make_shared<GuardedScanData>();
    GenericScanTask first(firstData, {scannerId, ScanMethod::Device, &randomPass, analyzerId, &analyzerParameters});
    GenericScanTask second(secondData, {scannerId, ScanMethod::Device, &randomPass, analyzerId, &analyzerParameters});

    std::latch firstLocked(1);
    std::latch secondTried(1);
    bool firstGotLocks = false;
    std::thread firstThread([&] {
        firstGotLocks = first.LockResources();
        firstLocked.count_down();
        secondTried.wait();
        if (firstGotLocks)
            while (first.Step()) {
            }
        first.UnlockResources();
    });
    firstLocked.wait();
    bool secondGotLocks = true;
    std::thread secondThread([&] {
        // Gives up on each device after its limit.
        secondGotLocks = second.LockResources();
        second.UnlockResources();
    });
    secondThread.join();
    secondTried.count_down();
    firstThread.join();

    EXPECT_TRUE(firstGotLocks);
    EXPECT_FALSE(secondGotLocks);
    EXPECT_EQ(firstData->Count(), 999u);
    EXPECT_EQ(firstData->GetState(), State::Complete);
    EXPECT_EQ(secondData->GetState(), State::Scanning);

    std::thread again([&] { second.RunComplete(); });
    again.join();
    EXPECT_EQ(secondData->Count(), 999u);
    EXPECT_EQ(secondData->GetState(), State::Complete);
}

TEST_F(ScanTaskConcurrencyTest, CrossedDevicesGiveUpInsteadOfWaitingForEachOther) {
    auto scannerA = std::make_shared<NullScanner>(1);
    auto scannerB = std::make_shared<NullScanner>(2);
    auto analyzerA = std::make_shared<NullAnalyzer>(1);
    auto analyzerB = std::make_shared<NullAnalyzer>(2);
    const std::string sA = Add(scannerA), sB = Add(scannerB), aA = Add(analyzerA), aB = Add(analyzerB);
    const auto dataA = std::make_shared<GuardedScanData>();
    const auto dataB = std::make_shared<GuardedScanData>();
    // Task one holds scanner A and analyzer A; task two wants scanner A with analyzer B.
    GenericScanTask one(dataA, {sA, ScanMethod::Device, &randomPass, aA, &analyzerParameters});
    GenericScanTask two(dataB, {sA, ScanMethod::Device, &randomPass, aB, &analyzerParameters});

    std::latch oneLocked(1);
    std::latch twoTried(1);
    std::latch checked(1);
    bool oneResult = false;
    std::thread oneThread([&] {
        oneResult = one.LockResources();
        oneLocked.count_down();
        checked.wait();
        one.UnlockResources();
    });
    oneLocked.wait();
    bool twoResult = true;
    std::thread twoThread([&] {
        twoResult = two.LockResources();
        twoTried.count_down();
        checked.wait();
        two.UnlockResources();
    });
    twoTried.wait();
    // Task two won analyzer B and keeps it until it unlocks.
    EXPECT_FALSE(analyzerB->GetMutex().try_lock());
    // Scanner B is nobody's.
    EXPECT_TRUE(scannerB->GetMutex().try_lock());
    scannerB->GetMutex().unlock();
    checked.count_down();
    oneThread.join();
    twoThread.join();

    EXPECT_TRUE(oneResult);
    EXPECT_FALSE(twoResult);
    EXPECT_TRUE(analyzerB->GetMutex().try_lock());
    analyzerB->GetMutex().unlock();
}

TEST_F(ScanTaskConcurrencyTest, TasksOnSeparateDevicesRunTogether) {
    constexpr int tasks = 3;
    std::vector<std::shared_ptr<GuardedScanData>> data;
    std::vector<std::unique_ptr<GenericScanTask>> scans;
    TavrelAdapterV1Parameters cells;
    for (int column = 0; column < 10; ++column)
        cells.SetCell(column, 3, true);
    for (int i = 0; i < tasks; ++i) {
        auto analyzer = std::make_shared<NullAnalyzer>(i);
        analyzer->SetSweepDuration(0ns);
        const std::string scannerId = Add(std::make_shared<NullScanner>(i));
        const std::string analyzerId = Add(analyzer);
        data.push_back(std::make_shared<GuardedScanData>());
        scans.push_back(std::make_unique<GenericScanTask>(
            data.back(), GenericScanArguments{scannerId, ScanMethod::Device, &cells, analyzerId, &analyzerParameters}));
    }
    std::latch start(tasks);
    std::vector<std::thread> threads;
    std::atomic<int> locked{0};
    for (int i = 0; i < tasks; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            if (scans[i]->LockResources()) {
                locked.fetch_add(1);
                while (scans[i]->Step()) {
                }
            }
            scans[i]->UnlockResources();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(locked.load(), tasks);
    for (const auto& d : data) {
        EXPECT_EQ(d->Count(), 10u);
        EXPECT_EQ(d->GetState(), State::Complete);
    }
}

TEST_F(ScanTaskConcurrencyTest, RegistryTakesDevicesFromManyThreads) {
    constexpr int threadsCount = 4;
    constexpr int perThread = 25;
    std::latch start(threadsCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadsCount; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int i = 0; i < perThread; ++i) {
                const int id = t * perThread + i;
                DeviceLoader::AddDevice(std::make_shared<NullScanner>(id));
                EXPECT_NE(DeviceLoader::GetScanner("{Nerquil Labs}{nullsc" + std::to_string(id) + "}",
                                                   ScanMethod::Device),
                          nullptr);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    auto lock = DeviceLoader::GetReadLock();
    EXPECT_EQ(std::distance(DeviceLoader::begin(), DeviceLoader::end()), threadsCount * perThread);
}

} // namespace
} // namespace nrq
