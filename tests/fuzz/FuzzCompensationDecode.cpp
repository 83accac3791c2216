// Correction files come from users; damaged ones must fail with an exception
// and decoded ones must answer every lookup without leaving the table.
#include "HVX/App/Data/Compensation.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace nrq;
    try {
        const Compensation compensation =
            Compensation::Decode(std::string_view(reinterpret_cast<const char*>(data), size));
        const double frequencies[] = {-1.0, 0.0, 1e3, 1e6, 2.5e9, 1e15,
                                      std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN()};
        const int cells[][2] = {{0, 0}, {-1, -1}, {1, 2}, {199, 199}, {200, 200}, {201, 0},
                                {0, 201}, {std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}};
        const float positions[][2] = {{0.0f, 0.0f}, {0.0075f, 0.015f}, {-0.02f, 1.49f}, {1.5f, 1.5f},
                                      {1e30f, -1e30f}, {std::numeric_limits<float>::quiet_NaN(), 0.1f}};
        volatile float sink = 0.0f;
        for (double hertz : frequencies) {
            const Frequency f(hertz);
            sink = sink + compensation.GetValue(f);
            for (const auto& cell : cells)
                sink = sink + compensation.GetValue(f, cell[0], cell[1]);
            for (const auto& position : positions)
                sink = sink + compensation.GetValue(
                    f, Vector<Length, 3>(Length(position[0]), Length(position[1]), Length(0.0f)));
        }
        const CompensationCache cache = compensation.MakeCachedValues({Frequency(1e6), Frequency(2e6), Frequency(1e3)});
        sink = sink + static_cast<float>(cache.values.size());
    } catch (const std::exception&) {
    }
    return 0;
}
