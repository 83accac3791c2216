#include "Delaunator.h"

#include "HVX/Base/Error.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cmath>
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

float circumradius(float ax, float ay, float bx, float by, float cx, float cy) {
    double exactX = 0;
    double exactY = 0;
    const Offset offset = circumOffset(ax, ay, bx, by, cx, cy, exactX, exactY);
    if (!offset.valid)
        return largestFloat;
    return offset.x * offset.x + offset.y * offset.y;
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

// Stable LSD radix sort of m 64-bit keys by their upper 32 bits, in digits
// of 11, 11 and 10 bits; `counts` holds the three digit histograms, taken
// while the keys were made. Digits where every key agrees are skipped. The
// result is in `keys` or `buffer`: the returned one.
constexpr int radixShifts[3] = {32, 43, 54};
constexpr uint64_t radixMasks[3] = {0x7ff, 0x7ff, 0x3ff};

uint64_t* RadixSortHighWords(uint64_t* keys, uint64_t* buffer, size_t m, size_t* counts) {
    for (int d = 0; d < 3; ++d) {
        size_t* count = counts + d * 2048;
        if (std::find(count, count + 2048, m) != count + 2048)
            continue;
        size_t offset = 0;
        for (size_t k = 0; k < 2048; ++k) {
            const size_t here = count[k];
            count[k] = offset;
            offset += here;
        }
        const int shift = radixShifts[d];
        const uint64_t mask = radixMasks[d];
        for (size_t k = 0; k < m; ++k) {
            const uint64_t key = keys[k];
            buffer[count[(key >> shift) & mask]++] = key;
        }
        std::swap(keys, buffer);
    }
    return keys;
}

// A divisibility test, then a select: cheaper than rebuilding the index
// from e / 3, and a test for 0 needs no remainder (one multiply, one compare).
uint32_t nextHalfedge(uint32_t e) { return (e + 1) % 3 == 0 ? e - 2 : e + 1; }
uint32_t prevHalfedge(uint32_t e) { return e % 3 == 0 ? e + 2 : e - 1; }

} // namespace

Delaunator::Delaunator(std::span<float> input) : coords(input) {
    const size_t n = coords.size() / 2;
    const auto x = [&](uint32_t i) { return coords[2 * static_cast<size_t>(i)]; };
    const auto y = [&](uint32_t i) { return coords[2 * static_cast<size_t>(i) + 1]; };

    // Points with a NaN or an infinite coordinate take no part: they would
    // break the ordering of the sort and every geometric test.
    const auto finite = [&](uint32_t i) { return std::isfinite(x(i)) && std::isfinite(y(i)); };
    size_t finiteCount = 0;
    float minX = largestFloat;
    float minY = largestFloat;
    // The maxima start at the smallest positive float, not the most negative
    // one, so a box of negative points reaches up to 0. Kept as it is.
    float maxX = smallestNormalFloat;
    float maxY = smallestNormalFloat;
    for (uint32_t i = 0; i < n; ++i) {
        const float px = x(i);
        const float py = y(i);
        if (!std::isfinite(px) || !std::isfinite(py))
            continue;
        ++finiteCount;
        if (px < minX) minX = px;
        if (py < minY) minY = py;
        if (px > maxX) maxX = px;
        if (py > maxY) maxY = py;
    }
    const float cx = (minX + maxX) / 2;
    const float cy = (minY + maxY) / 2;

    uint32_t i0 = InvalidIndex;
    uint32_t i1 = InvalidIndex;
    uint32_t i2 = InvalidIndex;
    float minDist = largestFloat;
    for (uint32_t i = 0; i < n; ++i) {
        if (!finite(i))
            continue;
        const float dx = cx - x(i);
        const float dy = cy - y(i);
        const float d = dx * dx + dy * dy;
        if (d < minDist) {
            i0 = i;
            minDist = d;
        }
    }
    if (i0 == InvalidIndex)
        throw Error("not triangulation");
    const float i0x = x(i0);
    const float i0y = y(i0);

    minDist = largestFloat;
    for (uint32_t i = 0; i < n; ++i) {
        if (i == i0 || !finite(i))
            continue;
        const float dx = i0x - x(i);
        const float dy = i0y - y(i);
        const float d = dx * dx + dy * dy;
        if (d < minDist && d > 0.0f) {
            i1 = i;
            minDist = d;
        }
    }
    if (i1 == InvalidIndex)
        throw Error("not triangulation");
    float i1x = x(i1);
    float i1y = y(i1);

    float minRadius = largestFloat;
    for (uint32_t i = 0; i < n; ++i) {
        if (i == i0 || i == i1 || !finite(i))
            continue;
        const float r = circumradius(i0x, i0y, i1x, i1y, x(i), y(i));
        if (r < minRadius) {
            i2 = i;
            minRadius = r;
        }
    }
    if (i2 == InvalidIndex)
        throw Error("not triangulation");
    float i2x = x(i2);
    float i2y = y(i2);

    if (orient(i0x, i0y, i1x, i1y, i2x, i2y)) {
        std::swap(i1, i2);
        std::swap(i1x, i2x);
        std::swap(i1y, i2y);
    }
    circumcentre(i0x, i0y, i1x, i1y, i2x, i2y, centreX, centreY);

    // Insertion order: by squared distance to the circumcentre, then x, then
    // y. For finite values a strict difference and a comparison agree, and
    // comparing stays a strict weak order where distances overflow to
    // infinity. A squared distance is never negative (nor -0), so its bit
    // pattern sorts like its value: a radix sort on the bits, then the rare
    // runs of equal distance by x and y. The sort's buffers are overwritten
    // whole, so they are not zeroed first.
    auto keyStore = std::make_unique_for_overwrite<uint64_t[]>(finiteCount);
    auto keyBuffer = std::make_unique_for_overwrite<uint64_t[]>(finiteCount);
    std::vector<size_t> counts(3 * 2048, 0);
    {
        uint64_t* out = keyStore.get();
        size_t* count = counts.data();
        for (uint32_t i = 0; i < n; ++i) {
            if (!finite(i))
                continue;
            const float dx = x(i) - centreX;
            const float dy = y(i) - centreY;
            const uint64_t key = static_cast<uint64_t>(std::bit_cast<uint32_t>(dx * dx + dy * dy)) << 32 | i;
            *out++ = key;
            ++count[(key >> radixShifts[0]) & radixMasks[0]];
            ++count[2048 + ((key >> radixShifts[1]) & radixMasks[1])];
            ++count[2 * 2048 + ((key >> radixShifts[2]) & radixMasks[2])];
        }
    }
    uint64_t* const keys = RadixSortHighWords(keyStore.get(), keyBuffer.get(), finiteCount, counts.data());
    const auto byPosition = [&](uint64_t a, uint64_t b) {
        const uint32_t ia = static_cast<uint32_t>(a);
        const uint32_t ib = static_cast<uint32_t>(b);
        return x(ia) != x(ib) ? x(ia) < x(ib) : y(ia) < y(ib);
    };
    for (size_t run = 0; run < finiteCount;) {
        size_t end = run + 1;
        while (end < finiteCount && keys[end] >> 32 == keys[run] >> 32)
            ++end;
        if (end - run > 1)
            std::sort(keys + run, keys + end, byPosition);
        run = end;
    }
    if (keys == keyStore.get())
        keyBuffer.reset();
    else
        keyStore.reset();

    // The sweep works on points numbered by their place in that order: the
    // hull front and the newest triangles are then neighbours in memory.
    // Point numbers are mapped back at the end.
    const uint32_t m = static_cast<uint32_t>(finiteCount);
    auto originalStore = std::make_unique_for_overwrite<uint32_t[]>(m);
    uint32_t* const original = originalStore.get();
    sortedPoints.resize(2 * static_cast<size_t>(m));
    uint32_t s0 = 0;
    uint32_t s1 = 0;
    uint32_t s2 = 0;
    for (uint32_t k = 0; k < m; ++k) {
        const uint32_t id = static_cast<uint32_t>(keys[k]);
        original[k] = id;
        sortedPoints[2 * static_cast<size_t>(k)] = x(id);
        sortedPoints[2 * static_cast<size_t>(k) + 1] = y(id);
        if (id == i0) s0 = k;
        if (id == i1) s1 = k;
        if (id == i2) s2 = k;
    }
    keyStore.reset();
    keyBuffer.reset();
    points = sortedPoints.data();
    const float* p = points;

    hashSize = static_cast<uint32_t>(std::llround(std::ceil(std::sqrt(static_cast<double>(n)))));
    hash.assign(hashSize, InvalidIndex);
    hullPrev.assign(m, 0);
    hullNext.assign(m, 0);
    hullTri.assign(m, 0);

    hullStart = s0;
    hullNext[s0] = hullPrev[s2] = s1;
    hullNext[s1] = hullPrev[s0] = s2;
    hullNext[s2] = hullPrev[s1] = s0;
    hullTri[s0] = 0;
    hullTri[s1] = 1;
    hullTri[s2] = 2;
    hash[HashKey(i0x, i0y)] = s0;
    hash[HashKey(i1x, i1y)] = s1;
    hash[HashKey(i2x, i2y)] = s2;

    const size_t maxEntries = n < 3 ? 3 : 6 * n - 15;
    triangles.reserve(maxEntries);
    halfedges.reserve(maxEntries);
    AddTriangle(s0, s1, s2, InvalidIndex, InvalidIndex, InvalidIndex);

    float prevX = std::numeric_limits<float>::quiet_NaN();
    float prevY = std::numeric_limits<float>::quiet_NaN();
    for (uint32_t i = 0; i < m; ++i) {
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
        const uint32_t key = HashKey(px, py);
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

        uint32_t t = AddTriangle(e, i, hullNext[e], InvalidIndex, InvalidIndex, hullTri[e]);
        hullTri[i] = Legalize(t + 2);
        hullTri[e] = t;

        uint32_t next = hullNext[e];
        while (q = hullNext[next], orient(px, py, p[2 * size_t(next)], p[2 * size_t(next) + 1], p[2 * size_t(q)],
                                          p[2 * size_t(q) + 1])) {
            t = AddTriangle(next, i, q, hullTri[i], InvalidIndex, hullTri[next]);
            hullTri[i] = Legalize(t + 2);
            hullNext[next] = next;
            next = q;
        }

        if (e == start) {
            while (q = hullPrev[e], orient(px, py, p[2 * size_t(q)], p[2 * size_t(q) + 1], p[2 * size_t(e)],
                                           p[2 * size_t(e) + 1])) {
                t = AddTriangle(q, i, e, InvalidIndex, hullTri[e], hullTri[q]);
                Legalize(t + 2);
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
        hash[HashKey(p[2 * size_t(e)], p[2 * size_t(e) + 1])] = e;
    }

    // Back to the caller's point numbers. The ring is saved first so that
    // the sweep's arrays can take the final contents in place.
    for (uint32_t& corner : triangles)
        corner = original[corner];
    struct RingEntry {
        uint32_t point;
        uint32_t prev;
        uint32_t next;
        uint32_t tri;
    };
    std::vector<RingEntry> ring;
    uint32_t e = hullStart;
    do {
        ring.push_back({original[e], original[hullPrev[e]], original[hullNext[e]], hullTri[e]});
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
    std::vector<float>().swap(sortedPoints);
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

uint32_t Delaunator::Legalize(uint32_t a) {
    // Flips neither add nor remove half-edges, so the arrays stay put and
    // are used through plain pointers held in locals (members would be
    // reloaded after every store); anything out of range goes to Link,
    // which raises.
    uint32_t* tri = triangles.data();
    uint32_t* half = halfedges.data();
    size_t size = halfedges.size();
    const float* const pts = points;
    const auto link = [&](uint32_t x, uint32_t y) {
        if (x < size && (y == InvalidIndex || y < size)) [[likely]] {
            half[x] = y;
            if (y != InvalidIndex)
                half[y] = x;
        } else {
            Link(x, y);
            half = halfedges.data();
            size = halfedges.size();
        }
    };

    edgeStack.clear();
    uint32_t* stack = edgeStack.data();
    size_t stackSize = 0;
    size_t depth = 0;
    for (;;) {
        const uint32_t b = half[a];
        const uint32_t ar = prevHalfedge(a);

        bool legal = b == InvalidIndex;
        uint32_t bl = 0;
        uint32_t p0 = 0;
        uint32_t p1 = 0;
        if (!legal) {
            bl = prevHalfedge(b);
            p0 = tri[ar];
            const uint32_t pr = tri[a];
            const uint32_t pl = tri[nextHalfedge(a)];
            p1 = tri[bl];
            legal = !inCircle(pts[2 * size_t(p0)], pts[2 * size_t(p0) + 1], pts[2 * size_t(pr)],
                              pts[2 * size_t(pr) + 1], pts[2 * size_t(pl)], pts[2 * size_t(pl) + 1],
                              pts[2 * size_t(p1)], pts[2 * size_t(p1) + 1]);
        }
        if (legal) {
            if (depth == 0)
                return ar;
            --depth;
            a = stack[depth];
            continue;
        }

        tri[a] = p1;
        tri[b] = p0;
        const uint32_t h = half[bl];
        if (h == InvalidIndex) [[unlikely]] {
            // The flipped edge lies on the hull's far side: fix the reference.
            // A point taken off the ring during this insertion links to itself
            // and would never lead back to the start, so the walk ends there too.
            uint32_t e = hullStart;
            do {
                if (hullTri[e] == bl) {
                    hullTri[e] = a;
                    break;
                }
                if (hullNext[e] == e)
                    break;
                e = hullNext[e];
            } while (e != hullStart);
        }
        link(a, h);
        link(b, half[ar]);
        link(ar, bl);

        const uint32_t br = nextHalfedge(b);
        if (depth < stackSize) {
            stack[depth] = br;
        } else {
            edgeStack.push_back(br);
            stack = edgeStack.data();
            stackSize = edgeStack.size();
        }
        ++depth;
    }
}

uint32_t Delaunator::addTriangle(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t a, uint32_t b, uint32_t c) {
    return AddTriangle(i0, i1, i2, a, b, c);
}

void Delaunator::link(unsigned int a, unsigned int b) { Link(a, b); }

unsigned int Delaunator::legalize(unsigned int a) { return Legalize(a); }

uint32_t Delaunator::hashKey(float x, float y) const { return HashKey(x, y); }

} // namespace nrq::delaunator
