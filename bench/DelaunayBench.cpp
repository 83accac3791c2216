#include "HVX/Math/Delaunay.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

std::vector<float> UniformPoints(size_t count) {
    std::mt19937 random(2024);
    std::uniform_real_distribution<float> coordinate(0.0f, 1000.0f);
    std::vector<float> coords(2 * count);
    for (float& value : coords)
        value = coordinate(random);
    return coords;
}

void TriangulateUniform(benchmark::State& state) {
    std::vector<float> coords = UniformPoints(static_cast<size_t>(state.range(0)));
    size_t triangles = 0;
    for (auto _ : state) {
        const auto result = nrq::DelaunayTriangulation2D(coords);
        triangles = result.size() / 3;
        benchmark::DoNotOptimize(result.data());
    }
    state.counters["triangles"] = static_cast<double>(triangles);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(TriangulateUniform)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

} // namespace
