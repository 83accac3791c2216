#include "HVX/App/Data/SpectralScanData.h"
#include "HVX/App/Task.h"
#include "HVX/App/UserChoice.h"
#include "HVX/Device/DeviceLoader.h"
#include "HVX/Device/NullAnalyzer.h"
#include "HVX/Device/NullScanner.h"
#include "HVX/Device/Scanner/TavrelAdapterV1.h"
#include "HVX/Device/Scanner/TavrelAdapterV2.h"

#include "support/TestDevices.h"
#include "support/TestScanData.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

namespace nrq {
namespace {

using namespace std::chrono_literals;
using State = IScanData::State;

const std::string nullScannerId = "{Nerquil Labs}{nullsc0}";
const std::string nullAnalyzerId = "{Nerquil Labs}{nullan0}";

// The message of an Error without its "(line) " in front.
std::string WithoutLine(const std::string& message) {
    const size_t close = message.find(") ");
    EXPECT_EQ(message.front(), '(') << message;
    return close == std::string::npos ? message : message.substr(close + 2);
}

class ScanTaskTest : public ::testing::Test {
protected:
    void SetUp() override {
        DeviceLoader::Reset();
        nullScanner = std::make_shared<NullScanner>(0);
        nullAnalyzer = std::make_shared<NullAnalyzer>(0);
        nullAnalyzer->SetSweepDuration(0ns);
        ASSERT_NE(DeviceLoader::AddDevice(nullScanner), nullptr);
        ASSERT_NE(DeviceLoader::AddDevice(nullAnalyzer), nullptr);
    }
    void TearDown() override { DeviceLoader::Reset(); }

    GenericScanArguments NullArguments() const {
        return GenericScanArguments{nullScannerId, ScanMethod::Device, &nullScannerParameters, nullAnalyzerId,
                                    &nullAnalyzerParameters, RepeatingBehavior::Overwrite, true};
    }

    // Journal devices filed under "{Test}{js}" and "{Test}{ja}".
    void AddJournalDevices() {
        journalScanner = std::make_shared<test::JournalScanner>(journal, "js");
        journalAnalyzer = std::make_shared<test::JournalAnalyzer>(journal, "ja");
        ASSERT_NE(DeviceLoader::AddDevice(journalScanner), nullptr);
        ASSERT_NE(DeviceLoader::AddDevice(journalAnalyzer), nullptr);
        journal.clear();
    }

    std::shared_ptr<NullScanner> nullScanner;
    std::shared_ptr<NullAnalyzer> nullAnalyzer;
    NullScannerParameters nullScannerParameters;
    NullAnalyzerParameters nullAnalyzerParameters;

    std::vector<std::string> journal;
    std::shared_ptr<test::JournalScanner> journalScanner;
    std::shared_ptr<test::JournalAnalyzer> journalAnalyzer;
    const std::string journalScannerId = "{Test}{js}";
    const std::string journalAnalyzerId = "{Test}{ja}";
};

// Task's own parts, through the smallest task there is.
class IdleTask : public Task {
public:
    bool LockResources() override { return true; }
    bool UnlockResources() override { return true; }
    bool Step() override { return false; }
    void Suspend() override {}
    void Continue() override {}
    std::vector<std::shared_ptr<Device>> GetDevicesInUse() override { return {}; }
    std::vector<std::shared_ptr<IScanData>> GetScanData() override { return {}; }
    std::string_view GetStatusText() override { return "idle"; }
};

TEST(Task, NoProgressUntilOneIsSet) {
    IdleTask task;
    float progress = 7.0f;
    EXPECT_FALSE(task.GetProgress(progress));
    EXPECT_EQ(progress, 7.0f);
    task.SetProgress(0.5f);
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.5f);
}

TEST(Task, ProgressIsClampedToZeroToOne) {
    IdleTask task;
    float progress = -1.0f;
    task.SetProgress(1.5f);
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 1.0f);
    task.SetProgress(-0.25f);
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
}

TEST(Task, CopyTakesProgressRepeatingAndUserData) {
    IdleTask task;
    int owner = 0;
    task.SetUserData(&owner);
    task.SetRepeating(true);
    task.SetProgress(0.75f);
    const IdleTask copy(task);
    float progress = 0.0f;
    EXPECT_TRUE(copy.GetProgress(progress));
    EXPECT_EQ(progress, 0.75f);
    EXPECT_TRUE(copy.GetRepeating());
    EXPECT_EQ(copy.GetUserData(), &owner);
}

TEST(Task, RepeatingIsOffAtFirst) {
    IdleTask task;
    EXPECT_FALSE(task.GetRepeating());
    Task& base = task;
    base.Stop(true); // empty by default
}

TEST_F(ScanTaskTest, EmptyScannerIdRaises) {
    const std::string empty;
    const auto data = std::make_shared<test::RecordingScanData>();
    try {
        GenericScanTask task(data, {empty, ScanMethod::Device, nullptr, nullAnalyzerId, nullptr});
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(WithoutLine(error.what()), "A scanner was not selected for this scan");
    }
}

TEST_F(ScanTaskTest, UnknownScannerRaises) {
    const std::string unknown = "{Nerquil Labs}{nullsc9}";
    const auto data = std::make_shared<test::RecordingScanData>();
    try {
        GenericScanTask task(data, {unknown, ScanMethod::Device, nullptr, nullAnalyzerId, nullptr});
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(WithoutLine(error.what()), "The scanning device is not connected");
    }
}

TEST_F(ScanTaskTest, AnAnalyzerIdOfAScannerCountsAsNotConnected) {
    const std::string empty;
    const auto data = std::make_shared<test::RecordingScanData>();
    try {
        GenericScanTask task(data, {nullScannerId, ScanMethod::Device, nullptr, empty, nullptr});
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(WithoutLine(error.what()), "An analyzer was not selected for this scan");
    }
    try {
        GenericScanTask task(data, {nullScannerId, ScanMethod::Device, nullptr, nullScannerId, nullptr});
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(WithoutLine(error.what()), "The analyzer is not connected");
    }
}

TEST_F(ScanTaskTest, ConstructorSetsScanningAndZeroProgress) {
    const auto data = std::make_shared<test::RecordingScanData>();
    ASSERT_EQ(data->GetState(), State::Empty);
    GenericScanTask task(data, NullArguments());
    EXPECT_EQ(data->GetState(), State::Scanning);
    float progress = -1.0f;
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
    EXPECT_EQ(task.GetScanMethod(), ScanMethod::Device);
}

TEST_F(ScanTaskTest, ParametersAreClonedAndIdsCopied) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    const GenericScanParameters& kept = task.GetParameters();
    EXPECT_EQ(kept.scannerId, nullScannerId);
    EXPECT_EQ(kept.analyzerId, nullAnalyzerId);
    ASSERT_NE(kept.scannerParameters, nullptr);
    EXPECT_NE(kept.scannerParameters.get(), &nullScannerParameters);
    EXPECT_EQ(kept.scannerParameters->GetSerialType(), "NullSP");
    ASSERT_NE(kept.analyzerParameters, nullptr);
    EXPECT_EQ(kept.analyzerParameters->GetSerialType(), "NullAP");
}

TEST_F(ScanTaskTest, StatusTextIsTestAtAllTimes) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    EXPECT_EQ(task.GetStatusText(), "TEST");
    ASSERT_TRUE(task.LockResources());
    EXPECT_EQ(task.GetStatusText(), "TEST");
    EXPECT_TRUE(task.Step());
    EXPECT_EQ(task.GetStatusText(), "TEST");
    task.Stop(false);
    task.UnlockResources();
    EXPECT_EQ(task.GetStatusText(), "TEST");
}

TEST_F(ScanTaskTest, DevicesInUseAreEmptyBeforeLockResources) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    EXPECT_TRUE(task.GetDevicesInUse().empty());
    ASSERT_TRUE(task.LockResources());
    const auto devices = task.GetDevicesInUse();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0], std::static_pointer_cast<Device>(nullScanner));
    EXPECT_EQ(devices[1], std::static_pointer_cast<Device>(nullAnalyzer));
    task.UnlockResources();
    EXPECT_EQ(task.GetDevicesInUse().size(), 2u);
}

TEST_F(ScanTaskTest, ScanDataIsTheObjectWhileItLives) {
    auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    const auto held = task.GetScanData();
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(held[0], data);
    data.reset();
    EXPECT_EQ(task.GetScanData().size(), 1u); // `held` keeps it
}

TEST_F(ScanTaskTest, GoneScanDataGivesNoScanDataAndNoLock) {
    auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    data.reset();
    EXPECT_TRUE(task.GetScanData().empty());
    EXPECT_FALSE(task.LockResources());
    // The device locks were won and stay held until UnlockResources.
    bool freeMeanwhile = true;
    std::thread other([&] {
        freeMeanwhile = nullScanner->GetMutex().try_lock();
        if (freeMeanwhile)
            nullScanner->GetMutex().unlock();
    });
    other.join();
    EXPECT_FALSE(freeMeanwhile);
    task.UnlockResources();
    EXPECT_TRUE(nullScanner->GetMutex().try_lock());
    nullScanner->GetMutex().unlock();
}

// The scan of the null devices: 999 points of 600 values each, then Complete.
TEST_F(ScanTaskTest, FullNullScan) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    ASSERT_TRUE(task.LockResources());
    for (int i = 1; i <= 999; ++i) {
        ASSERT_TRUE(task.Step()) << "call " << i;
        ASSERT_EQ(data->measurements.size(), static_cast<size_t>(i));
    }
    EXPECT_EQ(data->GetState(), State::Scanning);
    EXPECT_FALSE(task.Step());
    EXPECT_EQ(data->measurements.size(), 999u);
    EXPECT_EQ(data->GetState(), State::Complete);
    task.UnlockResources();

    for (const FullScanMeasurement& m : data->measurements) {
        ASSERT_EQ(m.count, 600u);
        ASSERT_EQ(m.values.size(), 600u);
        EXPECT_EQ(m.startFrequency.Hz(), 100e6);
        EXPECT_EQ(m.stepFrequency.Hz(), 100e6 / 599.0);
        EXPECT_GE(m.position.x().m(), 0.0f);
        EXPECT_LE(m.position.x().m(), 0.315f);
        EXPECT_GE(m.position.y().m(), 0.0f);
        EXPECT_LE(m.position.y().m(), 0.2175f);
        EXPECT_EQ(m.values[m.maxIndex], *std::max_element(m.values.begin(), m.values.end()));
        EXPECT_EQ(m.values[m.minIndex], *std::min_element(m.values.begin(), m.values.end()));
    }
    for (RepeatingBehavior behavior : data->behaviors)
        EXPECT_EQ(behavior, RepeatingBehavior::Overwrite);
    // The null state never reports progress, so it stays where the constructor set it.
    float progress = -1.0f;
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
}

// Spectral data that counts the measurements it is given.
class CountingSpectralScanData : public SpectralScanData {
public:
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) override {
        ++added;
        SpectralScanData::AddMeasurement(measurement, behavior);
    }
    using SpectralScanData::AddMeasurement;
    int added = 0;
};

TEST_F(ScanTaskTest, FullNullScanIntoSpectralData) {
    const auto data = std::make_shared<CountingSpectralScanData>();
    GenericScanTask task(data, NullArguments());
    ASSERT_TRUE(task.LockResources());
    for (int i = 1; i <= 999; ++i) {
        ASSERT_TRUE(task.Step()) << "call " << i;
        ASSERT_EQ(data->added, i);
    }
    EXPECT_FALSE(task.Step());
    EXPECT_EQ(data->added, 999);
    EXPECT_EQ(data->GetState(), State::Complete);
    task.UnlockResources();
    EXPECT_EQ(data->GetCount(), 600u);
    EXPECT_EQ(data->GetValues().size(), 600u);
    EXPECT_EQ(data->GetStartFrequency().Hz(), 100e6);
    EXPECT_EQ(data->GetStepFrequency().Hz(), 100e6 / 599.0);
    EXPECT_FALSE(data->IsEmpty());
}

TEST_F(ScanTaskTest, RepeatingSpectralScanWithOverwriteStartsANewSpectrumEachPass) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(0, 0, true);
    cells.SetCell(1, 0, true);
    const auto data = std::make_shared<CountingSpectralScanData>();
    GenericScanTask task(data, {nullScannerId, ScanMethod::Device, &cells, nullAnalyzerId, &nullAnalyzerParameters});
    task.SetRepeating(true);
    ASSERT_TRUE(task.LockResources());
    ASSERT_TRUE(task.Step());
    ASSERT_TRUE(task.Step());
    EXPECT_FALSE(data->IsRestartPending());
    ASSERT_TRUE(task.Step()); // end of the pass: the USB board's state starts over
    EXPECT_TRUE(data->IsRestartPending());
    ASSERT_TRUE(task.Step());
    EXPECT_FALSE(data->IsRestartPending());
    EXPECT_EQ(data->added, 3);
    task.SetRepeating(false);
    ASSERT_TRUE(task.Step());
    EXPECT_FALSE(task.Step());
    EXPECT_EQ(data->added, 4);
    EXPECT_EQ(data->GetState(), State::Complete);
    task.UnlockResources();
}

TEST_F(ScanTaskTest, StopOverEmptySpectralDataSetsEmpty) {
    const auto data = std::make_shared<SpectralScanData>();
    GenericScanTask task(data, NullArguments());
    task.Stop(false);
    EXPECT_EQ(data->GetState(), State::Empty);
}

TEST_F(ScanTaskTest, RunCompleteRunsTheWholeScanAndUnlocks) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    task.RunComplete();
    EXPECT_EQ(data->measurements.size(), 999u);
    EXPECT_EQ(data->GetState(), State::Complete);
    EXPECT_TRUE(nullScanner->GetMutex().try_lock());
    nullScanner->GetMutex().unlock();
    EXPECT_TRUE(nullAnalyzer->GetMutex().try_lock());
    nullAnalyzer->GetMutex().unlock();
}

TEST_F(ScanTaskTest, RepeatingNullScanNeverEndsAndBringsNoMoreData) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    task.SetRepeating(true);
    ASSERT_TRUE(task.LockResources());
    for (int i = 1; i <= 999; ++i)
        ASSERT_TRUE(task.Step());
    EXPECT_EQ(data->writeIndexResets, 0);
    // The 1000th call ends the pass; the null state keeps its counter in Reset,
    // so from here on every call resets the pass again.
    for (int i = 0; i < 25; ++i)
        ASSERT_TRUE(task.Step());
    EXPECT_EQ(data->writeIndexResets, 25);
    EXPECT_EQ(data->measurements.size(), 999u);
    EXPECT_EQ(data->GetState(), State::Scanning);
    task.UnlockResources();
}

TEST_F(ScanTaskTest, RepeatingResetsTheStatesPassAndTakesItsProgress) {
    AddJournalDevices();
    const test::FixedProgressParameters startAtQuarter(0.25f);
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, &startAtQuarter, journalAnalyzerId, nullptr});
    task.SetRepeating(true);
    ASSERT_TRUE(task.LockResources());
    journal.clear();
    EXPECT_TRUE(task.Step()); // Finished: no measurement on this call
    EXPECT_EQ((std::vector<std::string>{"scanner.NextScanPosition", "scanner.GetProgress"}), journal);
    const auto* state = dynamic_cast<const test::FixedProgressState*>(journalScanner->GetState());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->resets, 1);
    EXPECT_EQ(data->writeIndexResets, 1);
    EXPECT_TRUE(data->measurements.empty());
    float progress = 0.0f;
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.25f);
    task.UnlockResources();
}

TEST_F(ScanTaskTest, CallsReachTheDevicesInTheFixedOrder) {
    AddJournalDevices();
    journalScanner->script = {ScanStatus::Ready, ScanStatus::Moving};
    journalScanner->position = Position(Length(0.01f), Length(0.02f), Length(0.0f));
    journalAnalyzer->sweep = {DecibelMilliwatts(-50.0f), DecibelMilliwatts(-20.0f), DecibelMilliwatts(-70.0f)};
    const test::FixedProgressParameters scannerParameters(0.5f);
    const AnalyzerParameters analyzerParameters;
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, &scannerParameters, journalAnalyzerId,
                                &analyzerParameters, RepeatingBehavior::Combine, false});
    EXPECT_TRUE(journal.empty());
    ASSERT_TRUE(journalScanner->GetPositionalOutputRequired());

    ASSERT_TRUE(task.LockResources());
    EXPECT_EQ(journal, (std::vector<std::string>{"scanner.Connect", "analyzer.Connect", "scanner.SetState",
                                                 "analyzer.SetAnalyzerParameters", "scanner.InitScanner",
                                                 "analyzer.InitAnalyzer"}));
    EXPECT_FALSE(journalScanner->GetPositionalOutputRequired());

    journal.clear();
    EXPECT_TRUE(task.Step());
    EXPECT_EQ(journal, (std::vector<std::string>{"scanner.NextScanPosition", "scanner.GetScanPosition",
                                                 "analyzer.GetFrequencyRange", "analyzer.GetMeasurement",
                                                 "scanner.GetProgress"}));
    journal.clear();
    EXPECT_TRUE(task.Step()); // Moving: nothing else, and progress is not asked
    EXPECT_EQ(journal, (std::vector<std::string>{"scanner.NextScanPosition"}));
    journal.clear();
    EXPECT_FALSE(task.Step());
    EXPECT_EQ(data->GetState(), State::Complete);

    journal.clear();
    task.UnlockResources();
    EXPECT_EQ(journal, (std::vector<std::string>{"analyzer.Disconnect", "scanner.Disconnect"}));

    ASSERT_EQ(data->measurements.size(), 1u);
    EXPECT_EQ(data->behaviors[0], RepeatingBehavior::Combine);
    const FullScanMeasurement& m = data->measurements[0];
    EXPECT_EQ(m.position.x().m(), 0.01f);
    EXPECT_EQ(m.position.y().m(), 0.02f);
    EXPECT_EQ(m.startFrequency.Hz(), 10.0);
    EXPECT_EQ(m.stepFrequency.Hz(), 5.0);
    EXPECT_EQ(m.count, 3u);
    EXPECT_EQ(m.maxIndex, 1u);
    EXPECT_EQ(m.minIndex, 2u);
    float progress = 0.0f;
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.5f);
}

TEST_F(ScanTaskTest, MeasurementTimeIsTakenAfterTheSweep) {
    AddJournalDevices();
    journalScanner->script = {ScanStatus::Ready};
    journalAnalyzer->sweep = {DecibelMilliwatts(1.0f), DecibelMilliwatts(2.0f)};
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, nullptr, journalAnalyzerId, nullptr});
    ASSERT_TRUE(task.LockResources());
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(task.Step());
    const auto after = std::chrono::steady_clock::now();
    ASSERT_EQ(data->measurements.size(), 1u);
    EXPECT_GE(data->measurements[0].time, before);
    EXPECT_LE(data->measurements[0].time, after);
    task.UnlockResources();
}

TEST_F(ScanTaskTest, WithoutScannerParametersTheStateIsLeftAndNullAnalyzerParametersPassOn) {
    AddJournalDevices();
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, nullptr, journalAnalyzerId, nullptr});
    ASSERT_TRUE(task.LockResources());
    EXPECT_EQ(journal, (std::vector<std::string>{"scanner.Connect", "analyzer.Connect",
                                                 "analyzer.SetAnalyzerParameters(null)", "scanner.InitScanner",
                                                 "analyzer.InitAnalyzer"}));
    task.UnlockResources();
}

TEST_F(ScanTaskTest, OnePointSweepGivesAnInfiniteStepAndNoPointsAVanishingOne) {
    AddJournalDevices();
    journalScanner->script = {ScanStatus::Ready, ScanStatus::Ready};
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, nullptr, journalAnalyzerId, nullptr});
    ASSERT_TRUE(task.LockResources());
    journalAnalyzer->sweep = {DecibelMilliwatts(-3.0f)};
    ASSERT_TRUE(task.Step());
    journalAnalyzer->sweep = {};
    ASSERT_TRUE(task.Step());
    task.UnlockResources();
    ASSERT_EQ(data->measurements.size(), 2u);
    EXPECT_EQ(data->measurements[0].stepFrequency.Hz(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(data->measurements[1].count, 0u);
    EXPECT_EQ(data->measurements[1].stepFrequency.Hz(), 10.0 / 18446744073709551615.0);
    EXPECT_GT(data->measurements[1].stepFrequency.Hz(), 0.0);
}

TEST_F(ScanTaskTest, DriverExceptionPassesThroughStepAndDataKeepsScanning) {
    AddJournalDevices();
    journalScanner->script = {ScanStatus::Ready, ScanStatus::Ready};
    journalAnalyzer->sweep = {DecibelMilliwatts(1.0f), DecibelMilliwatts(2.0f)};
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, nullptr, journalAnalyzerId, nullptr});
    ASSERT_TRUE(task.LockResources());
    ASSERT_TRUE(task.Step());
    journalAnalyzer->failMeasurement = true;
    EXPECT_THROW(task.Step(), std::runtime_error);
    EXPECT_EQ(data->measurements.size(), 1u);
    EXPECT_EQ(data->GetState(), State::Scanning);
    task.UnlockResources();
}

TEST_F(ScanTaskTest, LockResourcesWhileAnotherTaskHoldsTheScannerReturnsFalse) {
    const auto first = std::make_shared<test::RecordingScanData>();
    const auto second = std::make_shared<test::RecordingScanData>();
    GenericScanTask holder(first, NullArguments());
    GenericScanTask contender(second, NullArguments());
    ASSERT_TRUE(holder.LockResources());
    bool locked = true;
    // Device mutexes belong to threads: the contender tries from its own.
    std::thread other([&] {
        locked = contender.LockResources();
        contender.UnlockResources();
    });
    other.join();
    EXPECT_FALSE(locked);
    holder.UnlockResources();
    EXPECT_TRUE(contender.LockResources());
    contender.UnlockResources();
}

TEST_F(ScanTaskTest, DeviceThatLeftTheRegistryRaisesAtLockResources) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    ASSERT_TRUE(DeviceLoader::RemoveDevice(nullScannerId));
    try {
        task.LockResources();
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(WithoutLine(error.what()), "Connection to the scanner has been lost.");
    }
    DeviceLoader::AddDevice(nullScanner);
    ASSERT_TRUE(DeviceLoader::RemoveDevice(nullAnalyzerId));
    try {
        task.LockResources();
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(WithoutLine(error.what()), "The analyzer is not connected");
    }
}

TEST_F(ScanTaskTest, StopOverEmptyDataSetsEmpty) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    ASSERT_EQ(data->GetState(), State::Scanning);
    task.Stop(false);
    EXPECT_EQ(data->GetState(), State::Empty);
}

TEST_F(ScanTaskTest, StopWithDataInHandSetsCompleteAndResetsTheDevices) {
    AddJournalDevices();
    journalScanner->script = {ScanStatus::Ready, ScanStatus::Ready};
    journalAnalyzer->sweep = {DecibelMilliwatts(1.0f), DecibelMilliwatts(2.0f)};
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {journalScannerId, ScanMethod::Device, nullptr, journalAnalyzerId, nullptr});
    task.Stop(true); // before LockResources no device is held
    EXPECT_TRUE(journal.empty());
    EXPECT_EQ(data->GetState(), State::Empty);
    data->SetState(State::Scanning);
    ASSERT_TRUE(task.LockResources());
    ASSERT_TRUE(task.Step());
    journal.clear();
    task.Stop(false);
    EXPECT_EQ(journal, (std::vector<std::string>{"scanner.ResetScanner", "analyzer.ResetAnalyzer"}));
    EXPECT_EQ(data->GetState(), State::Complete);
    // Stop does not end the run: the stepping thread does.
    EXPECT_TRUE(task.Step());
    task.UnlockResources();
    EXPECT_EQ(data->measurements.size(), 2u);
}

TEST_F(ScanTaskTest, StopOnBlankDataSetsComplete) {
    const auto data = std::make_shared<BlankScanData>();
    GenericScanTask task(data, NullArguments());
    task.Stop(false);
    EXPECT_EQ(data->GetState(), State::Complete);
}

TEST_F(ScanTaskTest, SuspendAndContinueResumeWhereTheScanStood) {
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, NullArguments());
    ASSERT_TRUE(task.LockResources());
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(task.Step());
    task.Suspend();
    // What the scan would have done next, from a copy of its state.
    NullScanner reference(1);
    reference.SetState(nullScanner->GetState());
    ASSERT_EQ(reference.NextScanPosition(), ScanStatus::Ready);
    task.UnlockResources();

    ASSERT_TRUE(task.LockResources()); // sets the start state again
    task.Continue();
    ASSERT_TRUE(task.Step());
    const auto* state = dynamic_cast<const NullScannerState*>(nullScanner->GetState());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->counter, 6);
    EXPECT_EQ(data->measurements.back().position.x(), reference.GetScanPosition().x());
    EXPECT_EQ(data->measurements.back().position.y(), reference.GetScanPosition().y());
    task.UnlockResources();
}

// A board with two positions per pass that asks, as the USB board does,
// whether a second pass is to follow.
class AskingScanner : public test::JournalScanner {
public:
    using JournalScanner::JournalScanner;
    ScanStatus NextScanPosition() override {
        if (position < 2 || (secondPass && position < 4)) {
            ++position;
            return ScanStatus::Ready;
        }
        if (secondPass)
            return ScanStatus::Finished;
        if (EmitTaskEvent(TaskEvent::TavrelSecondPass).value != 0)
            return ScanStatus::Finished;
        secondPass = true;
        return NextScanPosition();
    }

private:
    int position = 0;
    bool secondPass = false;
};

class AnswerHandler : public TaskEventHandler {
public:
    explicit AnswerHandler(int32_t answer) : answer(answer) {}
    TaskEventResponse HandleTaskEvent(TaskEvent event) override {
        events.push_back(event);
        return TaskEventResponse{answer};
    }
    int32_t answer;
    std::vector<TaskEvent> events;
};

class TaskEventsTest : public ScanTaskTest {
protected:
    // Runs a scan of the asking board on a thread of its own, with `handler` installed there.
    size_t ScanWithHandler(TaskEventHandler* handler) {
        DeviceLoader::AddDevice(std::make_shared<AskingScanner>(journal, "ask"));
        AddJournalDevices();
        journalAnalyzer->sweep = {DecibelMilliwatts(1.0f), DecibelMilliwatts(2.0f)};
        const std::string askingId = "{Test}{ask}";
        const auto data = std::make_shared<test::RecordingScanData>();
        GenericScanTask task(data, {askingId, ScanMethod::Device, nullptr, journalAnalyzerId, nullptr});
        std::thread scan([&] {
            SetThreadTaskEventHandler(handler);
            task.RunComplete();
            SetThreadTaskEventHandler(nullptr);
        });
        scan.join();
        EXPECT_EQ(data->GetState(), State::Complete);
        return data->measurements.size();
    }
};

TEST_F(TaskEventsTest, WithoutAHandlerTheAnswerIsOneAndTheScanEndsAfterThePass) {
    AnswerHandler elsewhere(0);
    SetThreadTaskEventHandler(&elsewhere); // this thread's, not the scan's
    EXPECT_EQ(ScanWithHandler(nullptr), 2u);
    SetThreadTaskEventHandler(nullptr);
    EXPECT_TRUE(elsewhere.events.empty());
}

TEST_F(TaskEventsTest, HandlerOnTheScanThreadAnsweringZeroStartsTheSecondPass) {
    AnswerHandler yes(0);
    EXPECT_EQ(ScanWithHandler(&yes), 4u);
    EXPECT_EQ(yes.events, (std::vector<TaskEvent>{TaskEvent::TavrelSecondPass}));
}

TEST_F(TaskEventsTest, NonZeroAnswerEndsTheScan) {
    AnswerHandler no(2);
    EXPECT_EQ(ScanWithHandler(&no), 2u);
    EXPECT_EQ(no.events.size(), 1u);
}

TEST_F(ScanTaskTest, TavrelGridScanThroughTheNullScanner) {
    TavrelAdapterV2Parameters cells;
    for (int column = 2; column < 5; ++column)
        cells.SetCell(column, 7, true);
    cells.SetLevel(2);
    const auto data = std::make_shared<test::RecordingScanData>();
    GenericScanTask task(data, {nullScannerId, ScanMethod::Device, &cells, nullAnalyzerId, &nullAnalyzerParameters});
    task.RunComplete();
    EXPECT_EQ(data->measurements.size(), 12u);
    EXPECT_EQ(data->GetState(), State::Complete);
    float progress = -1.0f;
    EXPECT_TRUE(task.GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
}

} // namespace
} // namespace nrq
