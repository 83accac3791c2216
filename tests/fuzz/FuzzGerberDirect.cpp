// Whatever the direct reading of plain drawings accepts must be free of
// lexical and syntax errors for the generated parser, and convert to the same
// triangles and error; whatever it declines it must leave untouched.
#include "HVX/App/Gerber.h"
#include "HVX/App/Gerber/GerberProcessing.h"

#include "GerberFuzzLimits.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

template <class T>
bool SameBytes(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool Same(const nrq::GerberVertexData& a, const nrq::GerberVertexData& b) {
    return SameBytes(a.vertices, b.vertices) && SameBytes(a.indices, b.indices) && SameBytes(a.fill, b.fill);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (nrq::fuzz::HasHugePolygon(text))
        return 0;

    nrq::GerberVertexData direct;
    std::string directError;
    bool accepted = true;
    try {
        accepted = nrq::gerber_impl::ConvertDirect(direct, text);
    } catch (const std::exception& error) {
        directError = error.what();
    }
    if (!accepted) {
        if (!directError.empty() || !direct.vertices.empty() || !direct.indices.empty() || !direct.fill.empty())
            __builtin_trap();
        return 0;
    }

    // The parser's error reports go to the console: there must be none.
    std::ostringstream console;
    std::streambuf* const previous = std::cerr.rdbuf(console.rdbuf());
    nrq::GerberVertexData whole;
    std::string wholeError;
    try {
        nrq::gerber_impl::ConvertText(whole, text, 0);
    } catch (const std::exception& error) {
        wholeError = error.what();
    }
    std::cerr.rdbuf(previous);
    if (!console.str().empty() || directError != wholeError || !Same(direct, whole))
        __builtin_trap();
    return 0;
}
