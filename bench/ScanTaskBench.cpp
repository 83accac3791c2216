// What one GenericScanTask::Step costs beside the sweep itself: the analyzer
// here takes no time, so the figure is the task's own work per point, with
// the simulated board's stepping and the scan data's share.
#include <HVX/App/Data/ScanData.h>
#include <HVX/App/Data/SpatialScanData.h>
#include <HVX/App/Data/SpectralScanData.h>
#include <HVX/App/Task.h>
#include <HVX/Device/DeviceLoader.h>
#include <HVX/Device/NullAnalyzer.h>
#include <HVX/Device/NullScanner.h>
#include <HVX/Device/Scanner/TavrelAdapterV2.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <vector>

namespace {

using namespace std::chrono_literals;

// An analyzer whose sweep is ready at once: a copy of fixed values.
class InstantAnalyzer : public nrq::NullAnalyzer {
public:
    explicit InstantAnalyzer(int32_t id) : NullAnalyzer(id), sweep(pointsPerSweep) {
        for (size_t i = 0; i < sweep.size(); ++i)
            sweep[i] = nrq::DecibelMilliwatts(-80.0f + static_cast<float>(i % 37));
    }
    std::vector<nrq::DecibelMilliwatts> GetMeasurement() override { return sweep; }

private:
    std::vector<nrq::DecibelMilliwatts> sweep;
};

template <class Data, class AnalyzerType>
void RunSteps(benchmark::State& state) {
    nrq::DeviceLoader::Reset();
    auto scanner = std::make_shared<nrq::NullScanner>(0);
    auto analyzer = std::make_shared<AnalyzerType>(0);
    analyzer->SetSweepDuration(0ns);
    nrq::DeviceLoader::AddDevice(scanner);
    nrq::DeviceLoader::AddDevice(analyzer);
    const std::string scannerId = nrq::DeviceLoader::MakeId(scanner->GetInfo());
    const std::string analyzerId = nrq::DeviceLoader::MakeId(analyzer->GetInfo());

    // The whole grid at the finest level: far more points than a run takes.
    nrq::TavrelAdapterV2Parameters cells;
    cells.SetAll(true);
    cells.SetLevel(8);
    const nrq::NullAnalyzerParameters analyzerParameters;
    const auto data = std::make_shared<Data>();
    nrq::GenericScanTask task(data, {scannerId, nrq::ScanMethod::Device, &cells, analyzerId, &analyzerParameters});
    if (!task.LockResources()) {
        state.SkipWithError("devices busy");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(task.Step());
    task.UnlockResources();
    state.SetItemsProcessed(state.iterations());
    nrq::DeviceLoader::Reset();
}

void BM_StepIntoBlankData(benchmark::State& state) { RunSteps<nrq::BlankScanData, InstantAnalyzer>(state); }
void BM_StepIntoSpectralData(benchmark::State& state) { RunSteps<nrq::SpectralScanData, InstantAnalyzer>(state); }
void BM_StepIntoSpatialData(benchmark::State& state) { RunSteps<nrq::SpatialScanData, InstantAnalyzer>(state); }
// The simulated analyzer with no sleep still draws 600 values of noise per sweep.
void BM_StepNullAnalyzerIntoSpectralData(benchmark::State& state) {
    RunSteps<nrq::SpectralScanData, nrq::NullAnalyzer>(state);
}

BENCHMARK(BM_StepIntoBlankData);
BENCHMARK(BM_StepIntoSpectralData);
BENCHMARK(BM_StepIntoSpatialData);
BENCHMARK(BM_StepNullAnalyzerIntoSpectralData);

} // namespace
