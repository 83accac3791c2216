#include "HVX/Math/Delaunay.h"

#include "Delaunator.h"

namespace nrq {

std::vector<uint32_t> DelaunayTriangulation2D(std::span<float> coords) {
    if (coords.size() < 3)
        return {};
    delaunator::Delaunator triangulation(coords);
    return std::move(triangulation.triangles);
}

} // namespace nrq
