#include "HVX/App/Data/CombinedScanData.h"
#include "HVX/App/Data/SpectralScanData.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace nrq {
namespace {

constexpr size_t sweepPoints = 10001;
constexpr size_t scanSweeps = 1000;

FullScanMeasurement MakeSweep(size_t k) {
    FullScanMeasurement m;
    m.startFrequency = Frequency(10e6);
    m.stepFrequency = Frequency(10e3);
    m.count = sweepPoints;
    m.values.resize(sweepPoints);
    for (size_t i = 0; i < sweepPoints; ++i)
        m.values[i] = DecibelMilliwatts(-90.0f + static_cast<float>((i * 7 + k * 13) % 61) * 0.5f);
    m.position = Position(Length(0.0075f * static_cast<float>(k % 42)), Length(0.0075f * static_cast<float>(k / 42)),
                          Length(0.0f));
    m.time = std::chrono::steady_clock::time_point(std::chrono::milliseconds(k));
    m.CalculateMaxIndex();
    return m;
}

// The scan of the serialisation benchmarks, made once.
const CombinedScanData& FullScan() {
    static const std::unique_ptr<CombinedScanData> scan = [] {
        auto data = std::make_unique<CombinedScanData>();
        for (size_t k = 0; k < scanSweeps; ++k)
            data->AddMeasurement(MakeSweep(k), RepeatingBehavior::Overwrite);
        return data;
    }();
    return *scan;
}

const std::string& FullScanBody() {
    static const std::string body = FullScan().SerializeBinary();
    return body;
}

void SpectralAddMeasurement(benchmark::State& state) {
    SpectralScanData data;
    const FullScanMeasurement sweeps[2] = {MakeSweep(0), MakeSweep(1)};
    data.AddMeasurement(sweeps[0], RepeatingBehavior::Overwrite);
    size_t k = 0;
    for (auto _ : state) {
        data.AddMeasurement(sweeps[++k & 1], RepeatingBehavior::Overwrite);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * sweepPoints * sizeof(float)));
}
BENCHMARK(SpectralAddMeasurement);

// Adds a whole scan per iteration, each sweep moved in; making the sweeps and
// freeing the scan are outside the timing.
void CombinedAddMeasurementMoved(benchmark::State& state) {
    const FullScanMeasurement model = MakeSweep(3);
    for (auto _ : state) {
        state.PauseTiming();
        auto data = std::make_unique<CombinedScanData>();
        std::vector<FullScanMeasurement> sweeps(scanSweeps, model);
        state.ResumeTiming();
        for (FullScanMeasurement& sweep : sweeps)
            data->AddMeasurement(std::move(sweep), RepeatingBehavior::Overwrite);
        benchmark::ClobberMemory();
        state.PauseTiming();
        data.reset();
        sweeps.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * scanSweeps));
}
BENCHMARK(CombinedAddMeasurementMoved)->Unit(benchmark::kMillisecond);

void CombinedSerializeBinary(benchmark::State& state) {
    const CombinedScanData& scan = FullScan();
    size_t size = 0;
    for (auto _ : state) {
        std::string body = scan.SerializeBinary();
        size = body.size();
        benchmark::DoNotOptimize(body.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}
BENCHMARK(CombinedSerializeBinary)->Unit(benchmark::kMillisecond);

// Reads into a fresh object each time; freeing it is outside the timing.
void CombinedDeserializeBinary(benchmark::State& state) {
    const std::string& body = FullScanBody();
    const SerializeInfo info;
    for (auto _ : state) {
        auto data = std::make_unique<CombinedScanData>();
        std::string_view view(body);
        data->DeserializeBinary(view, info);
        benchmark::DoNotOptimize(data.get());
        state.PauseTiming();
        data.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK(CombinedDeserializeBinary)->Unit(benchmark::kMillisecond);

// Reads into the same object again and again, as a reload does; the old
// entries are freed inside the timing.
void CombinedDeserializeBinaryReload(benchmark::State& state) {
    const std::string& body = FullScanBody();
    const SerializeInfo info;
    CombinedScanData data;
    for (auto _ : state) {
        std::string_view view(body);
        data.DeserializeBinary(view, info);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK(CombinedDeserializeBinaryReload)->Unit(benchmark::kMillisecond);

// The yardstick: the same bytes copied into a buffer that already exists.
void MemcpyScanBytes(benchmark::State& state) {
    const std::string& body = FullScanBody();
    std::string target(body.size(), '\0');
    for (auto _ : state) {
        std::memcpy(target.data(), body.data(), body.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK(MemcpyScanBytes)->Unit(benchmark::kMillisecond);

// The same copy into a freshly allocated buffer, as a serialiser must make one.
void MemcpyScanBytesFreshBuffer(benchmark::State& state) {
    const std::string& body = FullScanBody();
    for (auto _ : state) {
        std::unique_ptr<char[]> target(new char[body.size()]);
        std::memcpy(target.get(), body.data(), body.size());
        benchmark::DoNotOptimize(target.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK(MemcpyScanBytesFreshBuffer)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace nrq
