// Times CGAL's 2D Delaunay triangulation on a file of float32 x, y pairs;
// prints the best time in milliseconds and the triangle count.
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Triangulation = CGAL::Delaunay_triangulation_2<Kernel>;

int main(int argc, char** argv) {
    if (argc < 3)
        return 2;
    std::ifstream in(argv[1], std::ios::binary | std::ios::ate);
    std::vector<float> coords(static_cast<size_t>(in.tellg()) / sizeof(float));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(coords.data()), static_cast<std::streamsize>(coords.size() * sizeof(float)));
    std::vector<Kernel::Point_2> points;
    for (size_t i = 0; i + 1 < coords.size(); i += 2)
        points.emplace_back(coords[i], coords[i + 1]);
    const int repeats = std::atoi(argv[2]);
    double best = 1e300;
    size_t triangles = 0;
    for (int r = 0; r < repeats; ++r) {
        const auto start = std::chrono::steady_clock::now();
        Triangulation triangulation;
        triangulation.insert(points.begin(), points.end());
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        best = took.count() < best ? took.count() : best;
        triangles = triangulation.number_of_faces();
    }
    std::printf("%.3f %zu\n", best, triangles);
    return 0;
}
