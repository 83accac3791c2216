#include "HVX/Math/Delaunay.h"
#include "HVX/Base/Error.h"

#include "HVX/Math/Delaunay/Delaunator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace nrq {
namespace {

using delaunator::Delaunator;
using delaunator::InvalidIndex;

std::string ErrorOf(std::vector<float> coords) {
    try {
        DelaunayTriangulation2D(coords);
    } catch (const Error& error) {
        const std::string what = error.what();
        const size_t close = what.find(") ");
        return close == std::string::npos ? what : what.substr(close + 2);
    }
    return "(no error)";
}

double Cross(double ax, double ay, double bx, double by, double cx, double cy) {
    return (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
}

// Area of the convex hull (Andrew's monotone chain), in double.
double HullArea(const std::vector<float>& coords) {
    std::vector<std::pair<double, double>> points;
    for (size_t i = 0; i + 1 < coords.size(); i += 2)
        points.emplace_back(coords[i], coords[i + 1]);
    std::sort(points.begin(), points.end());
    points.erase(std::unique(points.begin(), points.end()), points.end());
    std::vector<std::pair<double, double>> hull(2 * points.size());
    size_t k = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        while (k >= 2 && Cross(hull[k - 2].first, hull[k - 2].second, hull[k - 1].first, hull[k - 1].second,
                               points[i].first, points[i].second) <= 0)
            --k;
        hull[k++] = points[i];
    }
    for (size_t i = points.size() - 1, lower = k + 1; i-- > 0;) {
        while (k >= lower && Cross(hull[k - 2].first, hull[k - 2].second, hull[k - 1].first, hull[k - 1].second,
                                   points[i].first, points[i].second) <= 0)
            --k;
        hull[k++] = points[i];
    }
    double area = 0;
    for (size_t i = 0; i + 1 < k; ++i)
        area += hull[i].first * hull[i + 1].second - hull[i + 1].first * hull[i].second;
    return std::fabs(area) / 2;
}

// Positive when d lies strictly inside the circle through a, b, c (counter-
// clockwise), in double, with the size of its terms for a tolerance.
double InCircle(const std::vector<float>& p, uint32_t a, uint32_t b, uint32_t c, uint32_t d, double& scale) {
    const double adx = p[2 * a] - double(p[2 * d]), ady = p[2 * a + 1] - double(p[2 * d + 1]);
    const double bdx = p[2 * b] - double(p[2 * d]), bdy = p[2 * b + 1] - double(p[2 * d + 1]);
    const double cdx = p[2 * c] - double(p[2 * d]), cdy = p[2 * c + 1] - double(p[2 * d + 1]);
    const double al = adx * adx + ady * ady, bl = bdx * bdx + bdy * bdy, cl = cdx * cdx + cdy * cdy;
    scale = al * std::fabs(bdx * cdy) + al * std::fabs(bdy * cdx) + bl * std::fabs(cdx * ady) +
            bl * std::fabs(cdy * adx) + cl * std::fabs(adx * bdy) + cl * std::fabs(ady * bdx);
    return al * (bdx * cdy - bdy * cdx) + bl * (cdx * ady - cdy * adx) + cl * (adx * bdy - ady * bdx);
}

// Checks a triangulation against its input: consistent winding, matching
// half-edges, local Delaunay on every inner edge (which for a triangulation
// means no point lies strictly inside any circumcircle), the hull covered,
// and every distinct point used.
void CheckTriangulation(std::vector<float> coords) {
    const Delaunator d(coords);
    const auto& t = d.triangles;
    ASSERT_EQ(t.size() % 3, 0u);
    ASSERT_EQ(d.halfedges.size(), t.size());
    ASSERT_FALSE(t.empty());
    const size_t n = coords.size() / 2;

    double area = 0;
    int sign = 0;
    for (size_t k = 0; k < t.size(); k += 3) {
        ASSERT_LT(t[k], n);
        ASSERT_LT(t[k + 1], n);
        ASSERT_LT(t[k + 2], n);
        const double cross = Cross(coords[2 * t[k]], coords[2 * t[k] + 1], coords[2 * t[k + 1]],
                                   coords[2 * t[k + 1] + 1], coords[2 * t[k + 2]], coords[2 * t[k + 2] + 1]);
        ASSERT_NE(cross, 0.0) << "degenerate triangle " << k / 3;
        const int s = cross > 0 ? 1 : -1;
        if (sign == 0)
            sign = s;
        ASSERT_EQ(s, sign) << "triangle " << k / 3 << " has the other winding";
        area += std::fabs(cross) / 2;
    }

    size_t violations = 0;
    for (size_t e = 0; e < t.size(); ++e) {
        const uint32_t o = d.halfedges[e];
        if (o == InvalidIndex)
            continue;
        ASSERT_LT(o, t.size());
        ASSERT_EQ(d.halfedges[o], e);
        const size_t next = 3 * (e / 3) + (e + 1) % 3;
        const size_t oNext = 3 * (o / 3) + (o + 1) % 3;
        ASSERT_EQ(t[e], t[oNext]);
        ASSERT_EQ(t[next], t[o]);
        // The vertex across edge e against the circumcircle of e's triangle.
        const uint32_t across = t[3 * (o / 3) + (o + 2) % 3];
        uint32_t a = t[3 * (e / 3)], b = t[3 * (e / 3) + 1], c = t[3 * (e / 3) + 2];
        if (sign < 0)
            std::swap(b, c);
        double scale = 0;
        if (InCircle(coords, a, b, c, across, scale) > 1e-6 * scale)
            ++violations;
    }
    EXPECT_EQ(violations, 0u);

    // The hull ring in the caller's point numbers: each hull point starts a
    // hull half-edge, and the ring has as many edges as there are such.
    size_t hullEdges = 0;
    for (uint32_t h : d.halfedges)
        hullEdges += h == InvalidIndex;
    size_t ring = 0;
    uint32_t p = d.hullStart;
    do {
        ASSERT_LT(p, n);
        ASSERT_EQ(d.hullPrev[d.hullNext[p]], p);
        ASSERT_EQ(t[d.hullTri[p]], p);
        ASSERT_EQ(d.halfedges[d.hullTri[p]], InvalidIndex);
        p = d.hullNext[p];
        ASSERT_LE(++ring, n);
    } while (p != d.hullStart);
    EXPECT_EQ(ring, hullEdges);

    const double hull = HullArea(coords);
    EXPECT_NEAR(area, hull, 1e-6 * hull);

    std::set<std::pair<float, float>> distinct;
    for (size_t i = 0; i < n; ++i)
        distinct.emplace(coords[2 * i], coords[2 * i + 1]);
    std::set<std::pair<float, float>> used;
    for (uint32_t v : t)
        used.emplace(coords[2 * v], coords[2 * v + 1]);
    EXPECT_EQ(used.size(), distinct.size());
    // The exported function gives the same triangles.
    EXPECT_EQ(DelaunayTriangulation2D(coords), t);
}

std::vector<float> Uniform(size_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> coordinate(0.0f, 1000.0f);
    std::vector<float> coords(2 * n);
    for (float& value : coords)
        value = coordinate(random);
    return coords;
}

TEST(Delaunay, TwoFloatsGiveNothing) {
    std::vector<float> coords = {1.0f, 2.0f};
    EXPECT_TRUE(DelaunayTriangulation2D(coords).empty());
    EXPECT_TRUE(DelaunayTriangulation2D({}).empty());
}

TEST(Delaunay, OneOrTwoPointsAreNoTriangulation) {
    EXPECT_EQ(ErrorOf({1, 2, 3}), "not triangulation");
    EXPECT_EQ(ErrorOf({1, 2, 3, 4}), "not triangulation");
    EXPECT_EQ(ErrorOf({1, 2, 3, 4, 5}), "not triangulation");
}

TEST(Delaunay, ThreePointsGiveTheSeedWithFixedWinding) {
    // Box centre (0.5, 0.5), all three at the same distance: i0 = 0; i1 = 1
    // (first of two at distance 1); i2 = 2. (0,0), (1,0), (0,1) is
    // counter-clockwise, orient() holds, so i1 and i2 swap.
    std::vector<float> coords = {0, 0, 1, 0, 0, 1};
    EXPECT_EQ(DelaunayTriangulation2D(coords), (std::vector<uint32_t>{0, 2, 1}));
    // Already in that winding: no swap.
    std::vector<float> other = {0, 0, 0, 1, 1, 0};
    EXPECT_EQ(DelaunayTriangulation2D(other), (std::vector<uint32_t>{0, 1, 2}));
}

TEST(Delaunay, SeedSearchTakesTheFirstOfEqualCandidates) {
    // Box centre (0,0). Points 5, 6, 8 and 9 lie at distance 1 from it: i0 is
    // 5, (0,-1). From there 6 and 8 lie at squared distance 2: i1 is 6,
    // (1,0). With (0,-1) and (1,0), both 8 and 9 lie on the unit circle,
    // squared circumradius 1, the smallest: i2 is 8, (-1,0). (0,-1), (1,0),
    // (-1,0) is counter-clockwise, so i1 and i2 swap. No point lies strictly
    // inside that circle, so the seed triangle is never flipped.
    std::vector<float> coords = {5, 5, -5, -5, 5, -5, -5, 5, 3, 0, 0, -1, 1, 0, 2, 2, -1, 0, 0, 1};
    const Delaunator d(coords);
    EXPECT_EQ(d.centreX, 0.0f);
    EXPECT_EQ(d.centreY, 0.0f);
    ASSERT_GE(d.triangles.size(), 3u);
    EXPECT_EQ(std::vector<uint32_t>(d.triangles.begin(), d.triangles.begin() + 3), (std::vector<uint32_t>{5, 8, 6}));
    CheckTriangulation(coords);
}

TEST(Delaunay, EveryHashEntryHoldsAPointOfThatKey) {
    std::vector<std::vector<float>> inputs = {Uniform(5000, 3), Uniform(37, 4)};
    std::vector<float> negative = Uniform(3001, 5);
    for (float& value : negative)
        value = -value;
    inputs.push_back(negative);
    std::vector<float> huge = Uniform(1000, 6);
    for (float& value : huge)
        value *= 1e9f;
    inputs.push_back(huge);
    for (std::vector<float>& coords : inputs) {
        const Delaunator d(coords);
        size_t filled = 0;
        for (uint32_t key = 0; key < d.hashSize; ++key) {
            const uint32_t point = d.hash[key];
            if (point == InvalidIndex)
                continue;
            ++filled;
            EXPECT_EQ(d.hashKey(coords[2 * point], coords[2 * point + 1]), key) << point;
        }
        EXPECT_GT(filled, d.hashSize / 4);
    }
}

TEST(Delaunay, KeysOfManyPointsAgreeWithHashKey) {
    std::vector<float> seed = {5, 5, -5, -5, 5, -5, -5, 5, 3, 0, 0, -1, 1, 0, 2, 2, -1, 0, 0, 1};
    const Delaunator d(seed); // centre (0,0), hash size 4
    ASSERT_EQ(d.centreX, 0.0f);
    ASSERT_EQ(d.hashSize, 4u);
    // The centre itself (0/0), each axis from both sides, a point just above
    // the negative axis whose angle rounds up to a full turn, and the extremes.
    std::vector<float> points = {0,     0,     3,      0,     -3,    0,     0,      3,     0,      -3,
                                 -100,  1e-6f, -100,   -1e-6f, 1e-30f, 1e-30f, -3e38f, 3e38f, 3e38f, -3e38f,
                                 1e-45f, -1e-45f, 2,   2,     -2,    2,     -2,     -2,    2,      -2};
    std::mt19937 random(11);
    std::uniform_real_distribution<float> coordinate(-50.0f, 50.0f);
    for (int k = 0; k < 2001; ++k)
        points.push_back(coordinate(random));
    const size_t count = points.size() / 2;
    std::vector<uint32_t> keys(count + 1, 12345u);
    delaunator::HashKeys(points.data(), count, d.centreX, d.centreY, d.hashSize, keys.data());
    EXPECT_EQ(d.hashKey(-100, 1e-6f), 0u); // 4 wraps to 0
    EXPECT_EQ(d.hashKey(0, 0), 0u);
    EXPECT_EQ(d.hashKey(0, 3), 3u); // 3 - 0 = 3 quarters of a turn
    for (size_t k = 0; k < count; ++k)
        EXPECT_EQ(keys[k], d.hashKey(points[2 * k], points[2 * k + 1])) << points[2 * k] << ", " << points[2 * k + 1];
    EXPECT_EQ(keys[count], 12345u); // nothing written past the end
}

TEST(Delaunay, LegalizingAHullEdgeChangesNothing) {
    std::vector<float> coords = {0, 0, 4, 0, 4, 4, 0, 4, 2, 2};
    Delaunator d(coords);
    const auto triangles = d.triangles;
    const auto halfedges = d.halfedges;
    uint32_t hullEdge = InvalidIndex;
    for (uint32_t e = 0; e < d.halfedges.size() && hullEdge == InvalidIndex; ++e)
        if (d.halfedges[e] == InvalidIndex)
            hullEdge = e;
    ASSERT_NE(hullEdge, InvalidIndex);
    // The previous half-edge inside the same triangle comes back.
    EXPECT_EQ(d.legalize(hullEdge), hullEdge % 3 == 0 ? hullEdge + 2 : hullEdge - 1);
    EXPECT_TRUE(d.edgeStack.empty());
    EXPECT_EQ(d.triangles, triangles);
    EXPECT_EQ(d.halfedges, halfedges);
}

TEST(Delaunay, CollinearPointsAreNoTriangulation) {
    EXPECT_EQ(ErrorOf({0, 0, 1, 1, 2, 2, 3, 3, 5, 5}), "not triangulation");
    EXPECT_EQ(ErrorOf({4, 4, 4, 4, 4, 4}), "not triangulation");
}

TEST(Delaunay, DuplicatesAndNearDuplicatesAreSkipped) {
    // Seeds (2,2), (2.5,2), (2,2.5) inside a square; then (1,1) twice,
    // within 1.2e-7 in x, and as 1 + 5e-8 in y (which rounds to 1), and a
    // corner again. Near-duplicates are kept away from the seeds, which are
    // chosen without the epsilon test.
    std::vector<float> coords = {0, 0, 4, 0, 4, 4, 0, 4, 2, 2, 1, 1, 1, 1, 1.0000001f, 1, 4, 4, 1.0f, 1.0f + 5e-8f,
                                 2.5f, 2, 2, 2.5f};
    const auto t = DelaunayTriangulation2D(coords);
    // Eight points with four on the hull: 2 * 8 - 2 - 4 = 10 triangles.
    ASSERT_EQ(t.size(), 30u);
    std::set<uint32_t> used(t.begin(), t.end());
    EXPECT_EQ(used.size(), 8u);
    // Of each group of coincident points only one is used.
    EXPECT_EQ(used.count(5) + used.count(6) + used.count(7) + used.count(9), 1u);
    EXPECT_EQ(used.count(2) + used.count(8), 1u);
}

TEST(Delaunay, SeedsIgnoreTheEpsilon) {
    // In floats the sliver (2,2), (1+2^-23,1), (1,1) has circumradius 1, the
    // smallest of all, so two near-duplicates become seeds together.
    std::vector<float> coords = {0, 0, 4, 0, 4, 4, 0, 4, 2, 2, 1, 1, 1.0000001f, 1};
    const Delaunator d(coords);
    EXPECT_EQ(d.centreX, 1.0f);
    EXPECT_EQ(d.centreY, 2.0f);
}

TEST(Delaunay, PointNearASeedIsSkipped) {
    // Box centre (0,0): seeds (0,0), (1,0), (0,1). (1 + 2^-23, 0) lies within
    // the epsilon of the seed (1,0).
    std::vector<float> coords = {0, 0, 1, 0, 0, 1, -5, -5, 5, 5, 5, -5, -5, 5, 1.0000001f, 0};
    const auto t = DelaunayTriangulation2D(coords);
    for (uint32_t v : t)
        EXPECT_NE(v, 7u);
    // Seven points, four on the hull: 2 * 7 - 2 - 4 = 8 triangles.
    EXPECT_EQ(t.size(), 24u);
}

TEST(Delaunay, NegativeQuadrantUsesTheBoxUpToZero) {
    // The box reaches (-10,-10) to (0,0), centre (-5,-5): the nearest point
    // is (-1,-1), not (-9,-10) as the true box centre (-5.5,-5.5) would give.
    // Seed (-1,-1), (-9,-10), (-10,-9) has its circumcentre at -89.5/17 on
    // both axes; the true seed would have it at (-9.5, -9.5).
    std::vector<float> coords = {-10, -10, -9, -10, -10, -9, -1, -1};
    const Delaunator d(coords);
    EXPECT_NEAR(d.centreX, -89.5 / 17, 1e-5);
    EXPECT_NEAR(d.centreY, -89.5 / 17, 1e-5);
    CheckTriangulation(coords);
}

TEST(Delaunay, SmallSquareWithCentre) {
    CheckTriangulation({0, 0, 4, 0, 4, 4, 0, 4, 2, 2});
    CheckTriangulation({-5, -5, -1, -4, -3, -1, -2, -2.5f, -4, -3});
}

TEST(Delaunay, Uniform100k) { CheckTriangulation(Uniform(100000, 1)); }

TEST(Delaunay, UniformSmallSets) {
    for (unsigned seed = 1; seed <= 200; ++seed)
        CheckTriangulation(Uniform(3 + seed % 50, seed));
}

TEST(Delaunay, ATriangularHullGivesTheLargestTriangleCount) {
    // With h of m points on the hull, a triangulation has 2m - h - 2
    // triangles: the most there can be, 2m - 5, for a hull of three.
    std::vector<float> coords = {-10000, -10000, 10000, -10000, 0, 10000};
    for (int i = 0; i < 150; ++i) {
        for (int j = 0; j < 150; ++j) {
            coords.push_back(static_cast<float>(10 * i + 1));
            coords.push_back(static_cast<float>(10 * j + 3));
        }
    }
    const size_t m = coords.size() / 2;
    const Delaunator d(coords);
    EXPECT_EQ(d.triangles.size(), 3 * (2 * m - 5));
    CheckTriangulation(coords);
}

TEST(Delaunay, Clustered100k) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> centre(-500.0f, 500.0f);
    std::vector<std::pair<float, float>> centres(20);
    for (auto& c : centres)
        c = {centre(random), centre(random)};
    std::normal_distribution<float> spread(0.0f, 2.0f);
    std::vector<float> coords;
    for (size_t i = 0; i < 100000; ++i) {
        const auto& c = centres[i % centres.size()];
        coords.push_back(c.first + spread(random));
        coords.push_back(c.second + spread(random));
    }
    CheckTriangulation(coords);
}

TEST(Delaunay, Grid100kTerminates) {
    // Many cocircular points: only a strictly negative test flips.
    std::vector<float> coords;
    for (int y = 0; y < 316; ++y)
        for (int x = 0; x < 316; ++x) {
            coords.push_back(static_cast<float>(x));
            coords.push_back(static_cast<float>(y));
        }
    CheckTriangulation(coords);
    EXPECT_EQ(DelaunayTriangulation2D(coords).size(), 3u * 2 * 315 * 315);
}

TEST(Delaunay, CollinearWithOneOutlier) {
    std::vector<float> coords;
    for (int x = 0; x < 100000; ++x) {
        coords.push_back(static_cast<float>(x) * 0.01f);
        coords.push_back(0.0f);
    }
    coords.push_back(500.0f);
    coords.push_back(10.0f);
    const auto t = DelaunayTriangulation2D(coords);
    // A fan from the outlier over every gap of the line.
    EXPECT_EQ(t.size(), 3u * 99999);
    for (size_t k = 0; k < t.size(); k += 3)
        EXPECT_TRUE(t[k] == 100000 || t[k + 1] == 100000 || t[k + 2] == 100000);
    CheckTriangulation(coords);
}

TEST(Delaunay, NonFinitePointsTakeNoPart) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> coords = {0, 0, nan, 1, 1, 0, inf, inf, 0, 1, 2, -inf};
    const auto t = DelaunayTriangulation2D(coords);
    EXPECT_EQ(t, (std::vector<uint32_t>{0, 4, 2}));
    EXPECT_EQ(ErrorOf({nan, nan, nan, nan, nan, nan}), "not triangulation");
}

TEST(Delaunay, ExtremeMagnitudesEndInAResultOrTheError) {
    // Squares underflow or overflow 32-bit floats here; the sweep still ends.
    for (float scale : {1e-40f, 1e-20f, 1e19f, 1e30f, 3e38f}) {
        std::mt19937 random(5);
        std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
        std::vector<float> coords(2000);
        for (float& value : coords)
            value = unit(random) * scale;
        try {
            for (uint32_t v : DelaunayTriangulation2D(coords))
                EXPECT_LT(v, 1000u);
        } catch (const Error& error) {
            EXPECT_NE(std::string(error.what()).find("not triangulation"), std::string::npos) << scale;
        }
    }
}

TEST(Delaunay, LinkRefusesAGap) {
    std::vector<float> coords = {0, 0, 1, 0, 0, 1};
    Delaunator d(coords);
    EXPECT_THROW(d.link(static_cast<unsigned>(d.halfedges.size() + 1), InvalidIndex), Error);
    EXPECT_THROW(d.link(0, static_cast<unsigned>(d.halfedges.size() + 1)), Error);
    // Appending at the end is allowed.
    d.link(static_cast<unsigned>(d.halfedges.size()), 0);
    EXPECT_EQ(d.halfedges.back(), 0u);
    EXPECT_EQ(d.halfedges[0], 3u);
}

} // namespace
} // namespace nrq
