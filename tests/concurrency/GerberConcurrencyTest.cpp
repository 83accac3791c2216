#include "HVX/App/Gerber.h"

#include <gtest/gtest.h>

#include <cstring>
#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace nrq {
namespace {

const std::string drawing = "%MOMM*%\n%FSLAX24Y24*%\n%ADD10C,0.5X0.2*%\n%ADD11P,1X6X1*%\nD10*\nX0Y0D03*\nG01*\n"
                            "X10000Y5000D01*\nG03*\nX0Y0I-5000J0D01*\nD11*\nX2Y2D03*\nM02*\n";

// The same drawing with an attribute, which only the generated parser reads.
std::string WithAttribute() {
    std::string text = drawing;
    text.insert(text.find("D10*"), "%TF.Part,Single*%\n");
    return text;
}

bool SameBytes(const GerberVertexData& a, const GerberVertexData& b) {
    const auto same = [](const auto& x, const auto& y) {
        return x.size() == y.size() && (x.empty() || std::memcmp(x.data(), y.data(), x.size() * sizeof(x[0])) == 0);
    };
    return same(a.vertices, b.vertices) && same(a.indices, b.indices) && same(a.fill, b.fill);
}

// Conversions on several threads at once, half of them through the generated
// parser and its shared tables, give what one thread alone gives.
TEST(GerberConcurrency, ParallelConversionsAgreeWithASingleOne) {
    const std::vector<std::string> texts = {drawing, WithAttribute()};
    std::vector<GerberVertexData> expected(texts.size());
    for (size_t k = 0; k < texts.size(); ++k)
        ConvertGerberDataIntoVertices(expected[k], texts[k]);
    ASSERT_TRUE(SameBytes(expected[0], expected[1]));
    ASSERT_FALSE(expected[0].indices.empty());

    constexpr int threads = 4;
    constexpr int rounds = 20;
    std::vector<int> mismatches(threads, 0);
    std::latch start(threads);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int r = 0; r < rounds; ++r) {
                const size_t k = static_cast<size_t>(t + r) % texts.size();
                GerberVertexData data;
                ConvertGerberDataIntoVertices(data, texts[k]);
                mismatches[static_cast<size_t>(t)] += !SameBytes(data, expected[k]);
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    for (int t = 0; t < threads; ++t)
        EXPECT_EQ(mismatches[static_cast<size_t>(t)], 0) << "thread " << t;
}

} // namespace
} // namespace nrq
