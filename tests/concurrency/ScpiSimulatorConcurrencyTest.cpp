#if defined(HVX_SCPI_SIM_AVAILABLE)

#include "support/LoopbackClient.h"

#include "hvxsim/ScpiSimulator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

// A client sweeps while another thread reads the simulator's records and
// changes its faults and trace source; then the simulator stops under a
// connected client.
TEST(ScpiSimulatorConcurrencyTest, AccessorsRunBesideTheServingThread) {
    hvxsim::ScpiSimulatorOptions options;
    options.seed = 3;
    hvxsim::ScpiSimulator sim(options);
    constexpr int sweeps = 40;
    std::atomic<bool> done{false};
    std::thread observer([&] {
        uint64_t seen = 0;
        while (!done.load()) {
            const std::vector<float> trace = sim.LastTrace();
            const uint64_t count = sim.SweepCount();
            EXPECT_GE(count, seen);
            seen = count;
            EXPECT_TRUE(trace.empty() || trace.size() == 101u);
            sim.AnswerIdentityWithTooFewFields(false);
            sim.SetTraceSource(count % 2 ? hvxsim::TraceSource() : [](const std::vector<double>& f) {
                return std::vector<float>(f.size(), -60.0f);
            });
            (void)sim.Settings();
            (void)sim.ReceivedMessages();
        }
    });
    nrq::test::LoopbackClient client(sim.Port());
    client.Send("SWE:POIN 101\n");
    for (int i = 0; i < sweeps; ++i) {
        client.Send("TRAC:DATA? TRACE1\n");
        ASSERT_EQ(client.ReadExactly(5 + 404 + 1).substr(0, 5), "#3404");
    }
    done = true;
    observer.join();
    EXPECT_EQ(sim.SweepCount(), static_cast<uint64_t>(sweeps));
    sim.Stop();
    EXPECT_EQ(client.ReadUntilClosed(), "");
}

} // namespace

#endif
