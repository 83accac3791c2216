// S1: compiling a command, running a precompiled setup, raw interpreter speed.
#include "HVX/ESC/Compiler.h"
#include "HVX/ESC/Interpreter.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

using namespace nrq;

void BM_S1CompileOneLineCommand(benchmark::State& state) {
    for (auto _ : state) {
        ESCByteCode code = ESCCompiler().Compile("FREQ:CENT {FrequencyCenter}");
        benchmark::DoNotOptimize(code);
    }
}
BENCHMARK(BM_S1CompileOneLineCommand);

// The commands an analyzer session sends before its first sweep.
const char* const setupScripts[] = {
    "FREQ:CENT {FrequencyCenter}",
    "FREQ:SPAN {FrequencySpan}",
    "BAND {ResolutionBandwidth}",
    "BAND:VID {VideoBandwidth}",
    "DISP:WIND:TRAC:Y:RLEV {ReferenceLevel}",
    "INP:ATT {Setup_Attenuation}",
    "SWE:POIN {SweepPoints}",
    "DET {Detector}",
    "FORMAT:DATA REAL,32",
    "INIT:CONT {Continuous}",
};

void BM_S1RunTenCommandSetup(benchmark::State& state) {
    std::vector<ESCByteCode> codes;
    for (const char* script : setupScripts)
        codes.push_back(ESCCompiler().Compile(script));
    ESCInterpreter interpreter;
    interpreter.SetVariable("FrequencyCenter", Frequency(700e6));
    interpreter.SetVariable("FrequencySpan", Frequency(20e6));
    interpreter.SetVariable("ResolutionBandwidth", Frequency(10e3));
    interpreter.SetVariable("VideoBandwidth", Frequency(30e3));
    interpreter.SetVariable("ReferenceLevel", DecibelMilliwatts(-20.0f));
    interpreter.SetVariable("Setup_Attenuation", ESCFeatureUnset{});
    interpreter.SetVariable("SweepPoints", int64_t{1001});
    interpreter.SetVariable("Detector", ESCString(std::string_view("POS")));
    interpreter.SetVariable("Continuous", ESCString(std::string_view("OFF")));
    for (auto _ : state) {
        for (const ESCByteCode& code : codes)
            interpreter.Run(code);
        std::string text = interpreter.GetOutput();
        benchmark::DoNotOptimize(text);
    }
    state.counters["commands"] = benchmark::Counter(static_cast<double>(std::size(setupScripts)));
}
BENCHMARK(BM_S1RunTenCommandSetup);

void BM_S1InterpreterThroughput(benchmark::State& state) {
    const ESCByteCode code = ESCCompiler().Compile(
        "{x := (a + b) * c - d // e + (a * 2 - b // 3) * (c + 1)}"
        "{y := x * 3 + a - (b - c) * (d + e) // 7 + x // 5}"
        "{z := (x + y) * (x - y) + f * 2.5 - f / 4}"
        "{q := (g + 1 MHz) * 2 / 3 - g}"
        "{w := (a < b) + (c >= d) + (x = y) + (a & b | c ^ d) - not e}");
    ESCInterpreter interpreter;
    interpreter.SetVariable("a", int64_t{3});
    interpreter.SetVariable("b", int64_t{11});
    interpreter.SetVariable("c", int64_t{-4});
    interpreter.SetVariable("d", int64_t{100});
    interpreter.SetVariable("e", int64_t{7});
    interpreter.SetVariable("f", 0.125);
    interpreter.SetVariable("g", Frequency(1e9));
    const size_t instructions = code.GetInstructions().size();
    for (auto _ : state)
        interpreter.Run(code);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * instructions));
    state.counters["instructions"] = benchmark::Counter(static_cast<double>(instructions));
}
BENCHMARK(BM_S1InterpreterThroughput);

} // namespace
