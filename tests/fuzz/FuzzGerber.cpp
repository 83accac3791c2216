// Gerber text of any shape must end in a result or a std::exception.
#include "HVX/App/Gerber.h"

#include "GerberFuzzLimits.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Syntax errors go to the console; millions of lines would only slow the run.
    static const bool quiet = [] {
        std::cerr.rdbuf(nullptr);
        return true;
    }();
    (void)quiet;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (nrq::fuzz::HasHugePolygon(text))
        return 0;
    nrq::GerberVertexData out;
    try {
        nrq::ConvertGerberDataIntoVertices(out, text);
    } catch (const std::exception&) {
        return 0;
    }
    // Whatever was produced must hang together.
    if (out.fill.size() * 2 != out.vertices.size() || out.indices.size() % 3 != 0)
        __builtin_trap();
    return 0;
}
