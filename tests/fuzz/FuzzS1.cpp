// Arbitrary text through the S1 compiler and interpreter: anything may be
// refused with an exception, nothing may crash.
#include "HVX/ESC/Compiler.h"
#include "HVX/ESC/Interpreter.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view script(reinterpret_cast<const char*>(data), size);
    try {
        nrq::ESCCheckSyntax(script);
    } catch (const std::exception&) {
    }
    try {
        const nrq::ESCByteCode code = nrq::ESCCompiler().Compile(script);
        nrq::ESCDisassemble(code);
        nrq::ESCInterpreter interpreter;
        interpreter.SetVariable("i", int64_t{-7});
        interpreter.SetVariable("f", 0.5);
        interpreter.SetVariable("q", nrq::Frequency(1e6));
        interpreter.SetVariable("a", nrq::DecibelMilliwatts(-30.0f));
        interpreter.SetVariable("s", nrq::ESCString(std::string_view("text")));
        interpreter.SetVariable("auto", nrq::ESCFeatureAuto{});
        interpreter.SetVariable("unset", nrq::ESCFeatureUnset{});
        // Twice, so that the second run meets the first one's stack and variables.
        for (int run = 0; run < 2; ++run) {
            try {
                interpreter.Run(code);
            } catch (const std::exception&) {
            }
        }
        interpreter.GetOutput();
    } catch (const std::exception&) {
    }
    return 0;
}
