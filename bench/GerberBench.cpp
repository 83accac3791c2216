#include "HVX/App/Gerber.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "GerberLexer.h"
#include "GerberParser.h"
#include "HVX/App/Gerber/GerberProcessing.h"

#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

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

const std::string& LargeText() {
    static const std::string text = GenerateGerber(50u << 20);
    return text;
}

void ConvertGenerated(benchmark::State& state) {
    const std::string& text = LargeText();
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

// The same file through the generated lexer and parser, as files with other
// commands take it.
void ConvertGeneratedWithParser(benchmark::State& state) {
    const std::string& text = LargeText();
    for (auto _ : state) {
        nrq::GerberVertexData data;
        nrq::gerber_impl::ConvertText(data, text, nrq::gerber_impl::pieceTokens);
        benchmark::DoNotOptimize(data.vertices.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(ConvertGeneratedWithParser)->Iterations(1)->Unit(benchmark::kMillisecond);

// The stages on a tenth of the size: decoding and lexing alone, then lexing
// and parsing the whole text into one tree.
const std::string& SmallText() {
    static const std::string text = GenerateGerber(5u << 20);
    return text;
}

void LexGenerated(benchmark::State& state) {
    const std::string& text = SmallText();
    size_t tokens = 0;
    for (auto _ : state) {
        antlr4::ANTLRInputStream input;
        input.load(text);
        GerberLexer lexer(&input);
        tokens = 0;
        while (lexer.nextToken()->getType() != antlr4::Token::EOF)
            ++tokens;
    }
    state.counters["tokens"] = static_cast<double>(tokens);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(LexGenerated)->Iterations(1)->Unit(benchmark::kMillisecond);

void ParseGenerated(benchmark::State& state) {
    const std::string& text = SmallText();
    for (auto _ : state) {
        antlr4::ANTLRInputStream input;
        input.load(text);
        GerberLexer lexer(&input);
        antlr4::CommonTokenStream tokens(&lexer);
        GerberParser parser(&tokens);
        benchmark::DoNotOptimize(parser.gerb());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(ParseGenerated)->Iterations(1)->Unit(benchmark::kMillisecond);

#ifdef HVX_SHARED_DIR
// Every layer of the real sample boards; most end early in an error of the
// supported subset, which counts as done.
void ConvertRealBoards(benchmark::State& state) {
    std::vector<std::string> texts;
    size_t bytes = 0;
    const std::filesystem::path boards = std::filesystem::path(HVX_SHARED_DIR) / "gerber-samples" / "boards";
    if (std::filesystem::exists(boards)) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(boards)) {
            if (!entry.is_regular_file() || entry.path().filename() == "LICENSE")
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            std::stringstream content;
            content << file.rdbuf();
            texts.push_back(content.str());
            bytes += texts.back().size();
        }
    }
    size_t failed = 0;
    for (auto _ : state) {
        failed = 0;
        for (const std::string& text : texts) {
            nrq::GerberVertexData data;
            try {
                nrq::ConvertGerberDataIntoVertices(data, text);
            } catch (const std::exception&) {
                ++failed;
            }
            benchmark::DoNotOptimize(data.vertices.data());
        }
    }
    state.counters["files"] = static_cast<double>(texts.size());
    state.counters["failed"] = static_cast<double>(failed);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

BENCHMARK(ConvertRealBoards)->Iterations(3)->Unit(benchmark::kMillisecond);
#endif

} // namespace
