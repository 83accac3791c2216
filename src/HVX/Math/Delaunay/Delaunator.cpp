#include "Delaunator.h"

#include "FreshMemory.h"
#include "InsertionOrder.h"
#include "TwoHalves.h"
#include "HVX/Base/Error.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>

namespace nrq::delaunator {
namespace {

constexpr float largestFloat = 3.4028235e38f;
constexpr float smallestNormalFloat = 1.1754944e-38f;
constexpr float epsilon = 1.1920929e-7f;

bool orient(float px, float py, float qx, float qy, float rx, float ry) {
    return (qy - py) * (rx - qx) - (qx - px) * (ry - qy) < 0.0f;
}

// The circumcentre relative to a; only the halving and the division run in double.
struct Offset {
    float x;
    float y;
    bool valid;
};

Offset circumOffset(float ax, float ay, float bx, float by, float cx, float cy, double& exactX, double& exactY) {
    const float dx = bx - ax;
    const float dy = by - ay;
    const float ex = cx - ax;
    const float ey = cy - ay;
    const float bl = dx * dx + dy * dy;
    const float cl = ex * ex + ey * ey;
    const float d = dx * ey - dy * ex;
    if (bl == 0.0f || cl == 0.0f || d == 0.0f)
        return {0.0f, 0.0f, false};
    exactX = static_cast<double>(ey * bl - dy * cl) * 0.5 / static_cast<double>(d);
    exactY = static_cast<double>(dx * cl - ex * bl) * 0.5 / static_cast<double>(d);
    return {static_cast<float>(exactX), static_cast<float>(exactY), true};
}

void circumcentre(float ax, float ay, float bx, float by, float cx, float cy, float& outX, float& outY) {
    double exactX = 0;
    double exactY = 0;
    circumOffset(ax, ay, bx, by, cx, cy, exactX, exactY);
    outX = static_cast<float>(static_cast<double>(ax) + exactX);
    outY = static_cast<float>(static_cast<double>(ay) + exactY);
}

bool inCircle(float ax, float ay, float bx, float by, float cx, float cy, float px, float py) {
    const float dx = ax - px;
    const float dy = ay - py;
    const float ex = bx - px;
    const float ey = by - py;
    const float fx = cx - px;
    const float fy = cy - py;
    const float ap = dx * dx + dy * dy;
    const float bp = ex * ex + ey * ey;
    const float cp = fx * fx + fy * fy;
    return dx * (ey * cp - bp * fy) - dy * (ex * cp - bp * fx) + ap * (ex * fy - ey * fx) < 0.0f;
}

bool nearlyEqual(float ax, float ay, float bx, float by) {
    return std::fabs(ax - bx) <= epsilon && std::fabs(ay - by) <= epsilon;
}

// The passes over all points run four at a time in the compiler's vector
// types. Each lane does the same float operations, in the same order, as
// the one-point code would, so the results agree to the bit.
using Floats = float __attribute__((vector_size(16)));
using Ints = int32_t __attribute__((vector_size(16)));
using Doubles = double __attribute__((vector_size(32)));
constexpr size_t lanes = 4;

struct Lanes {
    Floats x;
    Floats y;
    Ints index; // point numbers, wrapped into int32
};

// Points k to k + 3 of interleaved x, y values; lanes past the end hold NaN,
// which no pass takes for a point.
Lanes LoadLanes(const float* xy, size_t count, size_t k) {
    float block[2 * lanes];
    if (k + lanes <= count) {
        std::memcpy(block, xy + 2 * k, sizeof block);
    } else {
        std::fill(std::begin(block), std::end(block), std::numeric_limits<float>::quiet_NaN());
        std::memcpy(block, xy + 2 * k, 2 * (count - k) * sizeof(float));
    }
    Floats first;
    Floats second;
    std::memcpy(&first, block, sizeof first);
    std::memcpy(&second, block + lanes, sizeof second);
    const auto base = static_cast<int32_t>(static_cast<uint32_t>(k));
    return {__builtin_shufflevector(first, second, 0, 2, 4, 6), __builtin_shufflevector(first, second, 1, 3, 5, 7),
            Ints{base, base + 1, base + 2, base + 3}};
}

Ints Finite(Floats v) { return ((Ints)v & 0x7fffffff) < 0x7f800000; }

Floats Broadcast(float value) { return Floats{value, value, value, value}; }

struct Box {
    float minX;
    float minY;
    float maxX;
    float maxY;
    size_t finiteCount;
};

// Over the points with finite coordinates. The maxima start at the smallest
// positive float, not the most negative one, so a box of negative points
// reaches up to 0. Kept as it is.
Box BoundingBox(const float* xy, size_t count) {
    Floats minX = Broadcast(largestFloat);
    Floats minY = minX;
    Floats maxX = Broadcast(smallestNormalFloat);
    Floats maxY = maxX;
    Ints finite = {0, 0, 0, 0};
    for (size_t k = 0; k < count; k += lanes) {
        const Lanes p = LoadLanes(xy, count, k);
        const Ints ok = Finite(p.x) & Finite(p.y);
        finite -= ok;
        const Floats lowX = ok ? p.x : minX;
        const Floats lowY = ok ? p.y : minY;
        const Floats highX = ok ? p.x : maxX;
        const Floats highY = ok ? p.y : maxY;
        minX = lowX < minX ? lowX : minX;
        minY = lowY < minY ? lowY : minY;
        maxX = highX > maxX ? highX : maxX;
        maxY = highY > maxY ? highY : maxY;
    }
    // Which of two equal zeros is kept does not matter: the maxima are
    // positive, so the box's centre comes out the same.
    Box box{minX[0], minY[0], maxX[0], maxY[0], 0};
    for (size_t lane = 0; lane < lanes; ++lane) {
        box.minX = std::min(box.minX, minX[lane]);
        box.minY = std::min(box.minY, minY[lane]);
        box.maxX = std::max(box.maxX, maxX[lane]);
        box.maxY = std::max(box.maxY, maxY[lane]);
        box.finiteCount += static_cast<uint32_t>(finite[lane]);
    }
    return box;
}

struct Smallest {
    float value;
    uint32_t index;
};

// The point of [begin, end) with the smallest value below the largest float,
// the first one on equality, or InvalidIndex. `measure` gives four values,
// infinity for a lane that is no candidate. Each lane keeps its own first
// smallest; the lanes are then compared by value and, on equality, by point
// number.
template <class Measure>
Smallest FirstSmallestIn(const float* xy, size_t begin, size_t end, Measure measure) {
    Floats best = Broadcast(largestFloat);
    Ints bestIndex = {-1, -1, -1, -1};
    for (size_t k = begin; k < end; k += lanes) {
        const Lanes p = LoadLanes(xy, end, k);
        const Floats value = measure(p);
        const Ints smaller = value < best;
        best = smaller ? value : best;
        bestIndex = smaller ? p.index : bestIndex;
    }
    Smallest smallest{largestFloat, InvalidIndex};
    for (size_t lane = 0; lane < lanes; ++lane) {
        const auto laneIndex = static_cast<uint32_t>(bestIndex[lane]);
        if (laneIndex == InvalidIndex)
            continue;
        if (best[lane] < smallest.value || (best[lane] == smallest.value && laneIndex < smallest.index))
            smallest = {best[lane], laneIndex};
    }
    return smallest;
}

template <class Measure>
uint32_t FirstSmallest(const float* xy, size_t count, Measure measure) {
    return FirstSmallestIn(xy, 0, count, measure).index;
}

// The same for a costly measure, in two halves at once. A later half wins
// only with a strictly smaller value, so the first smallest stays first.
template <class Measure>
uint32_t FirstSmallestInHalves(const float* xy, size_t count, Measure measure) {
    Smallest halves[2];
    InTwoHalves(count, [&](size_t part, size_t begin, size_t end) {
        halves[part] = FirstSmallestIn(xy, begin, end, measure);
    });
    return (halves[1].value < halves[0].value ? halves[1] : halves[0]).index;
}

constexpr Floats infinities = {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::infinity(),
                               std::numeric_limits<float>::infinity(), std::numeric_limits<float>::infinity()};

Floats SquaredDistances(const Lanes& p, float x, float y) {
    const Floats dx = Broadcast(x) - p.x;
    const Floats dy = Broadcast(y) - p.y;
    return dx * dx + dy * dy;
}

// The squared circumradius of a, b and each of four points p, from the same
// offsets as circumOffset; infinity where those are undefined.
Floats Circumradii(const Lanes& p, float ax, float ay, float bx, float by) {
    const float dx = bx - ax;
    const float dy = by - ay;
    const float bl = dx * dx + dy * dy;
    const Floats ex = p.x - Broadcast(ax);
    const Floats ey = p.y - Broadcast(ay);
    const Floats cl = ex * ex + ey * ey;
    const Floats d = Broadcast(dx) * ey - Broadcast(dy) * ex;
    const Floats numeratorX = ey * bl - Broadcast(dy) * cl;
    const Floats numeratorY = Broadcast(dx) * cl - ex * bl;
    const Doubles denominator = __builtin_convertvector(d, Doubles);
    const Floats x = __builtin_convertvector(__builtin_convertvector(numeratorX, Doubles) * 0.5 / denominator, Floats);
    const Floats y = __builtin_convertvector(__builtin_convertvector(numeratorY, Doubles) * 0.5 / denominator, Floats);
    const Ints defined = (cl != 0.0f) & (d != 0.0f) & (bl != 0.0f ? -1 : 0);
    return defined ? x * x + y * y : infinities;
}

struct Seeds {
    uint32_t i0;
    uint32_t i1;
    uint32_t i2;
};

Seeds FindSeeds(const float* xy, size_t count, float cx, float cy) {
    Seeds seeds{};
    seeds.i0 = FirstSmallest(xy, count, [&](const Lanes& p) {
        return Finite(p.x) & Finite(p.y) ? SquaredDistances(p, cx, cy) : infinities;
    });
    if (seeds.i0 == InvalidIndex)
        throw Error("not triangulation");
    const float i0x = xy[2 * size_t(seeds.i0)];
    const float i0y = xy[2 * size_t(seeds.i0) + 1];

    seeds.i1 = FirstSmallest(xy, count, [&](const Lanes& p) {
        const Floats d = SquaredDistances(p, i0x, i0y);
        return Finite(p.x) & Finite(p.y) & (p.index != static_cast<int32_t>(seeds.i0)) & (d > 0.0f) ? d
                                                                                                     : infinities;
    });
    if (seeds.i1 == InvalidIndex)
        throw Error("not triangulation");
    const float i1x = xy[2 * size_t(seeds.i1)];
    const float i1y = xy[2 * size_t(seeds.i1) + 1];

    seeds.i2 = FirstSmallestInHalves(xy, count, [&](const Lanes& p) {
        const Ints candidate = Finite(p.x) & Finite(p.y) & (p.index != static_cast<int32_t>(seeds.i0)) &
                               (p.index != static_cast<int32_t>(seeds.i1));
        return candidate ? Circumradii(p, i0x, i0y, i1x, i1y) : infinities;
    });
    if (seeds.i2 == InvalidIndex)
        throw Error("not triangulation");
    return seeds;
}

// A divisibility test, then a select: cheaper than rebuilding the index
// from e / 3, and a test for 0 needs no remainder (one multiply, one compare).
uint32_t nextHalfedge(uint32_t e) { return (e + 1) % 3 == 0 ? e - 2 : e + 1; }
uint32_t prevHalfedge(uint32_t e) { return e % 3 == 0 ? e + 2 : e - 1; }

template <class T>
void PrepareFresh(std::vector<T>& reserved) {
    PrepareFreshMemory(reserved.data(), reserved.capacity() * sizeof(T));
}

// A corner's point: its number and coordinates.
struct CornerPoint {
    float x;
    float y;
    uint32_t number;
};

// Legalize works on either of two forms of the mesh. The public one: corners
// as point numbers in `triangles`, their coordinates looked up from there.
struct ArrayMesh {
    uint32_t* tri;
    uint32_t* half;
    const float* pts;
    size_t size;

    static uint32_t next(uint32_t e) { return nextHalfedge(e); }
    static uint32_t prev(uint32_t e) { return prevHalfedge(e); }
    uint32_t& twin(uint32_t e) const { return half[e]; }
    CornerPoint point(uint32_t e) const {
        const uint32_t number = tri[e];
        return {pts[2 * size_t(number)], pts[2 * size_t(number) + 1], number};
    }
    void setPoint(uint32_t e, const CornerPoint& point) const { tri[e] = point.number; }
};

// The sweep's own: a triangle to a cache line, each corner with its point's
// number and coordinates and its half-edge's twin, so that an in-circle test
// reads two lines instead of seven and waits for one load less. Half-edge k
// of triangle t is numbered 4t + k here, 3t + k in the public arrays.
struct alignas(16) MeshCorner {
    float x;
    float y;
    uint32_t point; // the caller's number
    uint32_t twin;
};

constexpr size_t cornersPerLine = 4; // the fourth only fills the line
constexpr size_t cacheLine = cornersPerLine * sizeof(MeshCorner);

// Room for a mesh of up to `triangles` triangles, starting on a line.
class MeshStore {
public:
    explicit MeshStore(size_t triangles)
        : storage(std::make_unique_for_overwrite<MeshCorner[]>(cornersPerLine * (triangles + 1))) {
        void* start = storage.get();
        size_t room = cornersPerLine * (triangles + 1) * sizeof(MeshCorner);
        const size_t bytes = cornersPerLine * triangles * sizeof(MeshCorner);
        // Corners are 16 bytes and aligned so, so the line's start is one.
        corners = static_cast<MeshCorner*>(std::align(cacheLine, bytes, start, room));
        PrepareFreshMemory(corners, bytes);
    }
    MeshCorner* corners = nullptr;

private:
    std::unique_ptr<MeshCorner[]> storage;
};

uint32_t PublicHalfedge(uint32_t e) { return e == InvalidIndex ? e : e - e / cornersPerLine; }

struct LineMesh {
    MeshCorner* corners;
    size_t size; // half-edge numbers in use, four per triangle

    static uint32_t next(uint32_t e) { return (e & 3) == 2 ? e - 2 : e + 1; }
    static uint32_t prev(uint32_t e) { return (e & 3) == 0 ? e + 2 : e - 1; }
    MeshCorner& corner(uint32_t e) const { return corners[e]; }
    uint32_t& twin(uint32_t e) const { return corner(e).twin; }
    CornerPoint point(uint32_t e) const {
        const MeshCorner& c = corner(e);
        return {c.x, c.y, c.point};
    }
    void setPoint(uint32_t e, const CornerPoint& point) const {
        MeshCorner& c = corner(e);
        c.x = point.x;
        c.y = point.y;
        c.point = point.number;
    }
};

// Into the public arrays, sized for the most triangles there can be, which
// then hold the same triangles in the same order.
void WriteOut(const LineMesh& mesh, std::vector<uint32_t>& triangles, std::vector<uint32_t>& halfedges) {
    const size_t count = mesh.size / cornersPerLine;
    uint32_t* const tri = triangles.data();
    uint32_t* const half = halfedges.data();
    InTwoHalves(count, [&](size_t, size_t begin, size_t end) {
        for (size_t t = begin; t < end; ++t) {
            for (size_t k = 0; k < 3; ++k) {
                const MeshCorner& corner = mesh.corners[cornersPerLine * t + k];
                tri[3 * t + k] = corner.point;
                half[3 * t + k] = PublicHalfedge(corner.twin);
            }
        }
    });
    triangles.resize(3 * count);
    halfedges.resize(3 * count);
}

} // namespace

// The quotient lies in [-1, 1], so the scaled angle never exceeds hashSize,
// and a key equal to it wraps to 0.
void HashKeys(const float* xy, size_t count, float centreX, float centreY, uint32_t hashSize, uint32_t* keys) {
    const Floats size = Broadcast(static_cast<float>(hashSize));
    const auto wrap = static_cast<int32_t>(hashSize);
    for (size_t k = 0; k < count; k += lanes) {
        const Lanes p = LoadLanes(xy, count, k);
        const Floats dx = p.x - Broadcast(centreX);
        const Floats dy = p.y - Broadcast(centreY);
        const Floats absX = (Floats)((Ints)dx & 0x7fffffff);
        const Floats absY = (Floats)((Ints)dy & 0x7fffffff);
        const Doubles q = __builtin_convertvector(dx / (absX + absY), Doubles);
        const Doubles angle = __builtin_convertvector(dy, Doubles) > 0.0 ? 3.0 - q : 1.0 + q;
        Floats scaled = __builtin_convertvector(angle * 0.25, Floats) * size;
        scaled = scaled >= 0.0f ? scaled : Broadcast(0.0f); // the centre itself: 0/0
        Ints key = __builtin_convertvector(scaled, Ints);
        key = key < wrap ? key : Ints{0, 0, 0, 0};
        const size_t valid = std::min(lanes, count - k);
        for (size_t lane = 0; lane < valid; ++lane)
            keys[k + lane] = static_cast<uint32_t>(key[lane]);
    }
}

Delaunator::Delaunator(std::span<float> input) : coords(input) {
    const size_t n = coords.size() / 2;
    const float* const xy = coords.data();
    const auto x = [&](uint32_t i) { return xy[2 * static_cast<size_t>(i)]; };
    const auto y = [&](uint32_t i) { return xy[2 * static_cast<size_t>(i) + 1]; };

    // Points with a NaN or an infinite coordinate take no part: they would
    // break the ordering of the sort and every geometric test.
    const Box box = BoundingBox(xy, n);
    const Seeds seeds = FindSeeds(xy, n, (box.minX + box.maxX) / 2, (box.minY + box.maxY) / 2);
    uint32_t i0 = seeds.i0;
    uint32_t i1 = seeds.i1;
    uint32_t i2 = seeds.i2;
    if (orient(x(i0), y(i0), x(i1), y(i1), x(i2), y(i2)))
        std::swap(i1, i2);
    circumcentre(x(i0), y(i0), x(i1), y(i1), x(i2), y(i2), centreX, centreY);

    // Insertion order: by squared distance to the circumcentre, then x, then
    // y. For finite values a strict difference and a comparison agree, and
    // comparing stays a strict weak order where distances overflow to
    // infinity.
    hashSize = static_cast<uint32_t>(std::llround(std::ceil(std::sqrt(static_cast<double>(n)))));
    const uint32_t seedNumbers[3] = {i0, i1, i2};
    const InsertionOrder order(xy, n, box.finiteCount, centreX, centreY, hashSize, seedNumbers);
    Sweep(order);
    RestorePointNumbers(order.PointNumbers());
}

// Points are numbered by their place in the insertion order: the hull front
// and the newest triangles are then neighbours in memory. The order is
// worked out alongside; the sweep waits where it is not yet known.
void Delaunator::Sweep(const InsertionOrder& order) {
    const uint32_t m = order.Count();
    const uint32_t* const keyOf = order.HashKeys();
    const uint32_t* const original = order.PointNumbers();
    const float* const p = order.Points();
    points = p;

    hash.assign(hashSize, InvalidIndex);
    hullPrev.assign(m, 0);
    hullNext.assign(m, 0);
    hullTri.assign(m, 0);

    // The seed triangle, then per insertion one triangle more than the
    // points it takes off the ring; the ring starts with three and keeps at
    // least one, so there are at most 1 + 2(m - 3) + 2 = 2m - 3 triangles.
    // Nearly all of the room gets written, so it is mapped at once; the
    // public arrays are sized now, while the order may still be in the
    // making, and filled at the end. Until then `hullTri` holds the mesh's
    // half-edge numbers.
    const size_t maxTriangles = 2 * size_t(m);
    const MeshStore store(maxTriangles);
    triangles.reserve(3 * maxTriangles);
    halfedges.reserve(3 * maxTriangles);
    PrepareFresh(triangles);
    PrepareFresh(halfedges);
    triangles.resize(3 * maxTriangles);
    halfedges.resize(3 * maxTriangles);
    LineMesh mesh{store.corners, 0};
    const auto add = [&](uint32_t i0, uint32_t i1, uint32_t i2, uint32_t a, uint32_t b, uint32_t c) {
        const auto t = static_cast<uint32_t>(mesh.size);
        MeshCorner* const corners = mesh.corners + t;
        corners[0] = {p[2 * size_t(i0)], p[2 * size_t(i0) + 1], original[i0], a};
        corners[1] = {p[2 * size_t(i1)], p[2 * size_t(i1) + 1], original[i1], b};
        corners[2] = {p[2 * size_t(i2)], p[2 * size_t(i2) + 1], original[i2], c};
        mesh.size += cornersPerLine;
        if (a != InvalidIndex)
            mesh.twin(a) = t;
        if (b != InvalidIndex)
            mesh.twin(b) = t + 1;
        if (c != InvalidIndex)
            mesh.twin(c) = t + 2;
        return t;
    };
    uint32_t seeds[3];
    order.SeedPlaces(seeds);
    const uint32_t s0 = seeds[0];
    const uint32_t s1 = seeds[1];
    const uint32_t s2 = seeds[2];
    const float i0x = p[2 * size_t(s0)];
    const float i0y = p[2 * size_t(s0) + 1];
    const float i1x = p[2 * size_t(s1)];
    const float i1y = p[2 * size_t(s1) + 1];
    const float i2x = p[2 * size_t(s2)];
    const float i2y = p[2 * size_t(s2) + 1];
    hullStart = s0;
    hullNext[s0] = hullPrev[s2] = s1;
    hullNext[s1] = hullPrev[s0] = s2;
    hullNext[s2] = hullPrev[s1] = s0;
    hullTri[s0] = 0;
    hullTri[s1] = 1;
    hullTri[s2] = 2;
    hash[keyOf[s0]] = s0;
    hash[keyOf[s1]] = s1;
    hash[keyOf[s2]] = s2;

    add(s0, s1, s2, InvalidIndex, InvalidIndex, InvalidIndex);
    if (edgeStack.size() < 64)
        edgeStack.resize(64);

    float prevX = std::numeric_limits<float>::quiet_NaN();
    float prevY = std::numeric_limits<float>::quiet_NaN();
    uint32_t available = 0;
    for (uint32_t i = 0; i < m; ++i) {
        if (i == available)
            available = order.AvailableBeyond(i);
        const float px = p[2 * size_t(i)];
        const float py = p[2 * size_t(i) + 1];

        // Against the previous point of the loop, inserted or not.
        if (i > 0 && nearlyEqual(px, py, prevX, prevY))
            continue;
        prevX = px;
        prevY = py;
        if (nearlyEqual(px, py, i0x, i0y) || nearlyEqual(px, py, i1x, i1y) || nearlyEqual(px, py, i2x, i2y))
            continue;

        // A visible hull edge near the point's pseudo-angle.
        uint32_t start = InvalidIndex;
        const uint32_t key = keyOf[i];
        uint32_t slot = key;
        for (uint32_t j = 0; j < hashSize; ++j) {
            start = hash[slot];
            if (start != InvalidIndex && start != hullNext[start])
                break;
            if (++slot == hashSize)
                slot = 0;
        }
        // Only a corrupted hash has no live entry; the ring's start is live.
        if (start == InvalidIndex || start == hullNext[start])
            start = hullStart;

        start = hullPrev[start];
        uint32_t e = start;
        uint32_t q = 0;
        bool visible = true;
        while (q = hullNext[e], !orient(px, py, p[2 * size_t(e)], p[2 * size_t(e) + 1], p[2 * size_t(q)],
                                        p[2 * size_t(q) + 1])) {
            e = q;
            if (e == start) {
                visible = false;
                break;
            }
        }
        // A near-duplicate of the hull, or numerically outside it.
        if (!visible)
            continue;

        uint32_t t = add(e, i, hullNext[e], InvalidIndex, InvalidIndex, hullTri[e]);
        hullTri[i] = LegalizeIn(mesh, t + 2);
        hullTri[e] = t;

        uint32_t next = hullNext[e];
        while (q = hullNext[next], orient(px, py, p[2 * size_t(next)], p[2 * size_t(next) + 1], p[2 * size_t(q)],
                                          p[2 * size_t(q) + 1])) {
            t = add(next, i, q, hullTri[i], InvalidIndex, hullTri[next]);
            hullTri[i] = LegalizeIn(mesh, t + 2);
            hullNext[next] = next;
            next = q;
        }

        if (e == start) {
            while (q = hullPrev[e], orient(px, py, p[2 * size_t(q)], p[2 * size_t(q) + 1], p[2 * size_t(e)],
                                           p[2 * size_t(e) + 1])) {
                t = add(q, i, e, InvalidIndex, hullTri[e], hullTri[q]);
                LegalizeIn(mesh, t + 2);
                hullTri[q] = t;
                hullNext[e] = e;
                e = q;
            }
        }

        hullPrev[i] = e;
        hullStart = e;
        hullPrev[next] = i;
        hullNext[e] = i;
        hullNext[i] = next;

        hash[key] = i;
        hash[keyOf[e]] = e;
    }
    edgeStack.resize(edgeStackUsed);
    WriteOut(mesh, triangles, halfedges);
}

// Back to the caller's point numbers (the triangles have them already) and
// half-edge numbers. The ring is saved first so that the sweep's arrays can
// take the final contents in place.
void Delaunator::RestorePointNumbers(const uint32_t* original) {
    const size_t n = coords.size() / 2;
    struct RingEntry {
        uint32_t point;
        uint32_t prev;
        uint32_t next;
        uint32_t tri;
    };
    std::vector<RingEntry> ring;
    uint32_t e = hullStart;
    do {
        ring.push_back({original[e], original[hullPrev[e]], original[hullNext[e]], PublicHalfedge(hullTri[e])});
        e = hullNext[e];
    } while (e != hullStart);
    // Every point off the hull links to itself.
    hullPrev.resize(n);
    hullNext.resize(n);
    std::iota(hullPrev.begin(), hullPrev.end(), 0u);
    std::iota(hullNext.begin(), hullNext.end(), 0u);
    hullTri.assign(n, 0);
    for (const RingEntry& entry : ring) {
        hullPrev[entry.point] = entry.prev;
        hullNext[entry.point] = entry.next;
        hullTri[entry.point] = entry.tri;
    }
    for (uint32_t& entry : hash)
        if (entry != InvalidIndex)
            entry = original[entry];
    hullStart = original[hullStart];
    points = coords.data();
}

uint32_t Delaunator::HashKey(float x, float y) const {
    const float dx = x - centreX;
    const float dy = y - centreY;
    const float p = dx / (std::fabs(dx) + std::fabs(dy));
    const double angle = dy > 0.0f ? 3.0 - static_cast<double>(p) : 1.0 + static_cast<double>(p);
    const float scaled = static_cast<float>(angle * 0.25) * static_cast<float>(hashSize);
    // A point at the centre itself gives 0/0; it goes to bucket 0 rather than
    // into an undefined conversion. Below 0 the floor is negative too (or -0),
    // and from 0 up truncation is the floor: std::floor is a library call
    // without SSE4.1.
    if (!(scaled >= 0.0f))
        return 0;
    uint64_t key = 0;
    if (scaled < 2147483648.0f)
        key = static_cast<uint32_t>(static_cast<int32_t>(scaled));
    else if (scaled < 18446744073709551616.0f)
        key = static_cast<uint64_t>(scaled);
    return key < hashSize ? static_cast<uint32_t>(key) : static_cast<uint32_t>(key % hashSize);
}

void Delaunator::Link(uint32_t a, uint32_t b) {
    size_t s = halfedges.size();
    if (a == s)
        halfedges.push_back(b);
    else if (a < s)
        halfedges[a] = b;
    else
        throw Error("Cannot link edge");
    if (b != InvalidIndex) {
        s = halfedges.size();
        if (b == s)
            halfedges.push_back(a);
        else if (b < s)
            halfedges[b] = a;
        else
            throw Error("Cannot link edge");
    }
}

uint32_t Delaunator::AddTriangle(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t a, uint32_t b, uint32_t c) {
    const uint32_t t = static_cast<uint32_t>(triangles.size());
    triangles.push_back(i0);
    triangles.push_back(i1);
    triangles.push_back(i2);
    Link(t, a);
    Link(t + 1, b);
    Link(t + 2, c);
    return t;
}

namespace {

// The rare turns of legalize, kept out of its loop so that the loop's
// values stay in registers.
[[gnu::noinline, gnu::cold]] void FixHullTriangle(uint32_t* hullTri, const uint32_t* hullNext, uint32_t hullStart,
                                                  uint32_t from, uint32_t to) {
    // A point taken off the ring during this insertion links to itself and
    // would never lead back to the start, so the walk ends there too.
    uint32_t e = hullStart;
    do {
        if (hullTri[e] == from) {
            hullTri[e] = to;
            break;
        }
        if (hullNext[e] == e)
            break;
        e = hullNext[e];
    } while (e != hullStart);
}

[[gnu::noinline, gnu::cold, noreturn]] void ThrowCannotLink(size_t& stackUsed, size_t used) {
    stackUsed = used;
    throw Error("Cannot link edge");
}

[[gnu::noinline, gnu::cold]] uint32_t* GrowStack(std::vector<uint32_t>& stack) {
    stack.resize(std::max<size_t>(64, 2 * stack.size()));
    return stack.data();
}

} // namespace

template <class Mesh>
uint32_t Delaunator::LegalizeIn(Mesh mesh, uint32_t a) {
    // Flips neither add nor remove half-edges, so the arrays stay put. The
    // work list lives in `edgeStack`, which is only ever longer than what
    // this call has used; `edgeStackUsed` records that length.
    uint32_t* stack = edgeStack.data();
    size_t capacity = edgeStack.size();
    size_t depth = 0;
    size_t used = 0;
    uint32_t unlinked = 0; // takes the writes meant for a missing twin
    for (;;) {
        const uint32_t b = mesh.twin(a);
        const uint32_t ar = Mesh::prev(a);
        if (b != InvalidIndex) {
            const uint32_t bl = Mesh::prev(b);
            const CornerPoint p0 = mesh.point(ar);
            const CornerPoint pr = mesh.point(a);
            const CornerPoint pl = mesh.point(Mesh::next(a));
            const CornerPoint p1 = mesh.point(bl);
            if (inCircle(p0.x, p0.y, pr.x, pr.y, pl.x, pl.y, p1.x, p1.y)) {
                mesh.setPoint(a, p1);
                mesh.setPoint(b, p0);
                const uint32_t h = mesh.twin(bl);
                // The flipped edge lies on the hull's far side: fix the reference.
                if (h == InvalidIndex) [[unlikely]]
                    FixHullTriangle(hullTri.data(), hullNext.data(), hullStart, bl, a);
                else if (h >= mesh.size) [[unlikely]]
                    ThrowCannotLink(edgeStackUsed, used);
                mesh.twin(a) = h;
                *(h != InvalidIndex ? &mesh.twin(h) : &unlinked) = a;
                const uint32_t g = mesh.twin(ar);
                if (g != InvalidIndex && g >= mesh.size) [[unlikely]]
                    ThrowCannotLink(edgeStackUsed, used);
                mesh.twin(b) = g;
                *(g != InvalidIndex ? &mesh.twin(g) : &unlinked) = b;
                mesh.twin(ar) = bl;
                mesh.twin(bl) = ar;
                if (depth == capacity) [[unlikely]] {
                    stack = GrowStack(edgeStack);
                    capacity = edgeStack.size();
                }
                stack[depth++] = Mesh::next(b);
                used = std::max(used, depth);
                continue;
            }
        }
        if (depth == 0) {
            edgeStackUsed = used;
            return ar;
        }
        a = stack[--depth];
    }
}

uint32_t Delaunator::Legalize(uint32_t a) {
    return LegalizeIn(ArrayMesh{triangles.data(), halfedges.data(), points, halfedges.size()}, a);
}

uint32_t Delaunator::addTriangle(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t a, uint32_t b, uint32_t c) {
    return AddTriangle(i0, i1, i2, a, b, c);
}

void Delaunator::link(unsigned int a, unsigned int b) { Link(a, b); }

unsigned int Delaunator::legalize(unsigned int a) {
    try {
        const uint32_t result = Legalize(a);
        edgeStack.resize(edgeStackUsed);
        return result;
    } catch (...) {
        edgeStack.resize(edgeStackUsed);
        throw;
    }
}

uint32_t Delaunator::hashKey(float x, float y) const { return HashKey(x, y); }

} // namespace nrq::delaunator
