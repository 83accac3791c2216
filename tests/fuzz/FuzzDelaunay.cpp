// Arbitrary floats, NaNs and infinities included, must triangulate or raise.
#include "HVX/Math/Delaunay.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<float> coords(size / sizeof(float));
    if (!coords.empty())
        std::memcpy(coords.data(), data, coords.size() * sizeof(float));
    std::vector<uint32_t> triangles;
    try {
        triangles = nrq::DelaunayTriangulation2D(coords);
    } catch (const std::exception&) {
        return 0;
    }
    const size_t points = coords.size() / 2;
    if (triangles.size() % 3 != 0)
        __builtin_trap();
    for (uint32_t index : triangles)
        if (index >= points)
            __builtin_trap();
    return 0;
}
