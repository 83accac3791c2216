// Times DelaunayTriangulation2D on a file of float32 x, y pairs; prints the
// best time in milliseconds and the triangle count.
#include <HVX/Math/Delaunay.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 3)
        return 2;
    std::ifstream in(argv[1], std::ios::binary | std::ios::ate);
    std::vector<float> coords(static_cast<size_t>(in.tellg()) / sizeof(float));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(coords.data()), static_cast<std::streamsize>(coords.size() * sizeof(float)));
    const int repeats = std::atoi(argv[2]);
    double best = 1e300;
    size_t triangles = 0;
    for (int r = 0; r < repeats; ++r) {
        const auto start = std::chrono::steady_clock::now();
        const auto result = nrq::DelaunayTriangulation2D(coords);
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        best = took.count() < best ? took.count() : best;
        triangles = result.size() / 3;
    }
    std::printf("%.3f %zu\n", best, triangles);
    return 0;
}
