#include "HVX/Base/Error.h"
#include "HVX/Util/InterprocessNamedMutex.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace nrq {
namespace {

std::string UniqueName(const std::string& what) {
    return "hvx-test-" + std::to_string(::getpid()) + "-threads-" + what;
}

TEST(InterprocessNamedMutexThreads, OneObjectSerialisesThreads) {
    InterprocessNamedMutex mutex(UniqueName("count"));
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                const std::lock_guard guard(mutex);
                ++counter;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 8000);
}

TEST(InterprocessNamedMutexThreads, AnotherThreadIsExcludedEvenWithItsOwnHandle) {
    const std::string name = UniqueName("exclude");
    InterprocessNamedMutex mine(name);
    mine.lock();
    bool wonWhileHeld = true;
    std::thread([&] {
        InterprocessNamedMutex theirs(name);
        wonWhileHeld = theirs.try_lock();
    }).join();
    EXPECT_FALSE(wonWhileHeld);
    mine.unlock();
    bool wonAfterRelease = false;
    std::thread([&] {
        InterprocessNamedMutex theirs(name);
        wonAfterRelease = theirs.try_lock();
        if (wonAfterRelease)
            theirs.unlock();
    }).join();
    EXPECT_TRUE(wonAfterRelease);
}

TEST(InterprocessNamedMutexThreads, AThreadThatEndsHoldingItAbandonsIt) {
    InterprocessNamedMutex mutex(UniqueName("abandon"));
    std::thread([&] { mutex.lock(); }).join();
    EXPECT_THROW(mutex.try_lock(), Error);
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

} // namespace
} // namespace nrq
