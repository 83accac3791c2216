#include "HVX/App/Gerber.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cmath>
#include <random>
#include <string>

namespace {

// A board-like file of about `bytes`: traces of chained lines, arcs, and
// flashes of circle and polygon pads, in millimetres with format 4.6.
std::string GenerateGerber(size_t bytes) {
    std::mt19937 random(99);
    std::uniform_int_distribution<int> coordinate(0, 150000000);
    std::uniform_int_distribution<int> step(-3000000, 3000000);
    std::uniform_int_distribution<int> choice(0, 99);
    std::string text = "G04 generated board*\n%MOMM*%\n%FSLAX46Y46*%\n%ADD10C,0.15*%\n%ADD11C,0.8X0.3*%\n"
                       "%ADD12P,1.2X8*%\n%ADD13C,0.25*%\nG01*\nD10*\n";
    text.reserve(bytes + 256);
    int x = 0;
    int y = 0;
    while (text.size() < bytes) {
        const int kind = choice(random);
        if (kind < 40) {
            x = coordinate(random);
            y = coordinate(random);
            fmt::format_to(std::back_inserter(text), "X{}Y{}D02*\n", x, y);
        } else if (kind < 85) {
            x += step(random);
            y += step(random);
            fmt::format_to(std::back_inserter(text), "X{}Y{}D01*\n", x, y);
        } else if (kind < 92) {
            // An arc of a random sweep around a centre 1-3 mm away.
            const double radius = 1e6 + (choice(random) % 20) * 1e5;
            const double from = choice(random) * 0.0628;
            const double to = from + 0.3 + choice(random) * 0.05;
            const int i = static_cast<int>(-radius * std::cos(from));
            const int j = static_cast<int>(-radius * std::sin(from));
            const int endX = static_cast<int>(x + i + radius * std::cos(to));
            const int endY = static_cast<int>(y + j + radius * std::sin(to));
            fmt::format_to(std::back_inserter(text), "{}X{}Y{}I{}J{}D01*\nG01*\n", kind % 2 ? "G03*\n" : "G02*\n",
                           endX, endY, i, j);
            x = endX;
            y = endY;
        } else {
            x = coordinate(random);
            y = coordinate(random);
            fmt::format_to(std::back_inserter(text), "D{}*\nX{}Y{}D03*\nD10*\n", 11 + kind % 3, x, y);
        }
    }
    text += "M02*\n";
    return text;
}

void ConvertGenerated(benchmark::State& state) {
    static const std::string text = GenerateGerber(50u << 20);
    size_t triangles = 0;
    for (auto _ : state) {
        nrq::GerberVertexData data;
        nrq::ConvertGerberDataIntoVertices(data, text);
        triangles = data.indices.size() / 3;
        benchmark::DoNotOptimize(data.vertices.data());
    }
    state.counters["triangles"] = static_cast<double>(triangles);
    state.counters["MB"] = static_cast<double>(text.size()) / (1 << 20);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(ConvertGenerated)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
