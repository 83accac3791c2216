// Decoding one sweep: a million byte-swapped floats, against a plain copy of
// the same bytes into an aligned buffer, the rate the decode should keep up with.
#include "HVX/ESC/SCPI/SpectrumScan.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>

namespace {

using namespace nrq;

constexpr size_t pointCount = 1'000'000;
constexpr size_t blockBytes = pointCount * 4;

void FillRandom(uint8_t* bytes, size_t size) {
    std::mt19937 random(7);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(random());
}

void BM_SCPIScanGetMeasValuesSwappedFloat32(benchmark::State& state) {
    SCPISpecAnState scan;
    FillRandom(scan.rawBuffer.Reserve(blockBytes), blockBytes);
    scan.valueFormat = SCPIValueFormat::SwappedFloat32;
    scan.valueCount = pointCount;
    DecibelMilliwatts* values = nullptr;
    SCPIScanGetMeasValues(scan, values); // grows the value buffer once
    for (auto _ : state) {
        SCPIScanGetMeasValues(scan, values);
        benchmark::DoNotOptimize(values);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blockBytes));
}
BENCHMARK(BM_SCPIScanGetMeasValuesSwappedFloat32);

void BM_SCPIScanMemcpyBaseline(benchmark::State& state) {
    SCPIAlignedBuffer source;
    SCPIAlignedBuffer target;
    FillRandom(source.Reserve(blockBytes), blockBytes);
    uint8_t* out = target.Reserve(blockBytes);
    std::memcpy(out, source.data, blockBytes);
    for (auto _ : state) {
        std::memcpy(out, source.data, blockBytes);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * blockBytes));
}
BENCHMARK(BM_SCPIScanMemcpyBaseline);

} // namespace
