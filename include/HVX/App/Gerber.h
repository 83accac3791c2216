#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace nrq {

// Triangles of one or more Gerber files, in millimetres, y pointing the
// opposite way to the file's y axis.
struct GerberVertexData {
    std::vector<float> vertices;   // x, y pairs
    std::vector<uint32_t> indices; // three per triangle
    std::vector<uint8_t> fill;     // one per vertex: 255 material, 0 hole disc
};

// Appends the triangles of `text` to `out`; never clears it. Raises Error for
// what the supported subset cannot draw; what was appended before stays.
void ConvertGerberDataIntoVertices(GerberVertexData& out, std::string_view text);

} // namespace nrq
