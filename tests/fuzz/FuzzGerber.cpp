// Gerber text of any shape must end in a result or a std::exception.
#include "HVX/App/Gerber.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string_view>

namespace {

// A polygon's vertex count is a size request: millions of vertices are a
// resource limit, not a fault, so such definitions are left out.
bool HasHugePolygon(std::string_view text) {
    for (size_t at = text.find("%AD"); at != std::string_view::npos; at = text.find("%AD", at + 1)) {
        const size_t end = text.find('%', at + 1);
        const std::string_view definition = text.substr(at, end == std::string_view::npos ? end : end - at);
        const size_t count = definition.find('X');
        if (definition.find("P,") == std::string_view::npos || count == std::string_view::npos)
            continue;
        size_t digits = 0;
        for (size_t k = count + 1; k < definition.size() && std::isdigit(static_cast<unsigned char>(definition[k])); ++k)
            ++digits;
        if (digits > 4)
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Syntax errors go to the console; millions of lines would only slow the run.
    static const bool quiet = [] {
        std::cerr.rdbuf(nullptr);
        return true;
    }();
    (void)quiet;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (HasHugePolygon(text))
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
