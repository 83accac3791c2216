#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace nrq::delaunator {

inline constexpr uint32_t InvalidIndex = 0xFFFFFFFFu;

class InsertionOrder;

// Incremental sweep-hull triangulation in 32-bit floats. Points are added in
// order of distance from the seed triangle's circumcentre to a hull kept as a
// doubly linked ring; a pseudo-angle hash finds the hull edge a point sees.
class Delaunator {
public:
    explicit Delaunator(std::span<float> coords);

    std::span<float> coords; // not owned, interleaved x, y
    std::vector<uint32_t> triangles;
    std::vector<uint32_t> halfedges; // opposite half-edge or InvalidIndex on the hull
    std::vector<uint32_t> hullPrev;
    std::vector<uint32_t> hullNext;
    std::vector<uint32_t> hullTri;
    uint32_t hullStart = 0;
    std::vector<uint32_t> hash;
    float centreX = 0.0f;
    float centreY = 0.0f;
    uint32_t hashSize = 0;
    std::vector<uint32_t> edgeStack; // legalize's work list, kept to save allocations

    uint32_t addTriangle(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t a, uint32_t b, uint32_t c);
    void link(unsigned int a, unsigned int b);
    unsigned int legalize(unsigned int a);
    uint32_t hashKey(float x, float y) const;

private:
    // The working versions of the operations above: hidden from the dynamic
    // symbol table, so calls inside the library are direct and can inline.
#define HVX_DELAUNATOR_INTERNAL [[gnu::visibility("hidden")]]
    HVX_DELAUNATOR_INTERNAL uint32_t AddTriangle(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t a, uint32_t b,
                                                 uint32_t c);
    HVX_DELAUNATOR_INTERNAL [[gnu::always_inline]] inline void Link(uint32_t a, uint32_t b);
    HVX_DELAUNATOR_INTERNAL uint32_t Legalize(uint32_t a);
    HVX_DELAUNATOR_INTERNAL uint32_t HashKey(float x, float y) const;

    // Legalize on either the public arrays or the sweep's own mesh.
    template <class Mesh>
    HVX_DELAUNATOR_INTERNAL uint32_t LegalizeIn(Mesh mesh, uint32_t a);
#undef HVX_DELAUNATOR_INTERNAL

    void Sweep(const InsertionOrder& order);
    void RestorePointNumbers(const uint32_t* original);

    // The points that legalize reads: during the sweep a copy in insertion
    // order, so that the hull front stays in cache; afterwards `coords`.
    const float* points = nullptr;
    // How far legalize's last call filled `edgeStack`: the vector itself is
    // kept longer while the sweep runs, and cut to this at the end.
    size_t edgeStackUsed = 0;
};

// hashKey for `count` points of interleaved x, y values at once, as a
// Delaunator with that centre and hash size computes it point by point.
void HashKeys(const float* xy, size_t count, float centreX, float centreY, uint32_t hashSize, uint32_t* keys);

} // namespace nrq::delaunator
