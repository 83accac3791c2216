#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace nrq {

// Delaunay triangulation of interleaved x, y values: three point indices per
// triangle. Fewer than three floats give an empty result; coincident or
// collinear points raise Error("not triangulation").
std::vector<uint32_t> DelaunayTriangulation2D(std::span<float> coords);

} // namespace nrq
