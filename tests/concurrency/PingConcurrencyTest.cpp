#include "HVX/System/Net.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace nrq {
namespace {

// Echoes from several threads at once each find their own reply.
TEST(PingThreads, ConcurrentEchoesOnLoopbackAllAnswer) {
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i)
                if (Ping(asio::ip::make_address_v4("127.0.0.1"), 500))
                    ++answered;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answered.load(), 20);
}

} // namespace
} // namespace nrq
