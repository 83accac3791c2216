#include "HVX/Base/Error.h"
#include "HVX/Util/InterprocessNamedMutex.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <mutex>
#include <string>

namespace nrq {
namespace {

std::string UniqueName(const std::string& what) {
    static int counter = 0;
    return "hvx-test-" + std::to_string(::getpid()) + "-" + what + "-" + std::to_string(++counter);
}

// Runs body in a forked child and gives its result; locals of body are
// destroyed before the child ends, without the parent's exit handlers.
int InChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        int code = 3;
        try {
            code = body();
        } catch (...) {
            code = 4;
        }
        ::_exit(code);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int TryLockByName(const std::string& name) {
    InterprocessNamedMutex mutex(name);
    if (!mutex.try_lock())
        return 1;
    mutex.unlock();
    return 0;
}

// Memory that a forked child shares with this process.
template <typename T>
class SharedValue {
public:
    SharedValue()
        : memory(static_cast<T*>(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        new (memory) T{};
    }
    SharedValue(const SharedValue&) = delete;
    SharedValue& operator=(const SharedValue&) = delete;
    ~SharedValue() { ::munmap(memory, sizeof(T)); }
    T& operator*() { return *memory; }
    T* operator->() { return memory; }

private:
    T* memory;
};

std::string WhatOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "no exception";
}

TEST(InterprocessNamedMutex, SameNameExcludesAnotherProcess) {
    const std::string name = UniqueName("exclude");
    InterprocessNamedMutex mutex(name);
    ASSERT_TRUE(mutex.try_lock());
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    mutex.unlock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 0);
}

TEST(InterprocessNamedMutex, LockInAnotherProcessReturnsOnlyAfterRelease) {
    const std::string name = UniqueName("wait");
    InterprocessNamedMutex mutex(name);
    SharedValue<std::atomic<int>> released;
    mutex.lock();
    const pid_t child = ::fork();
    if (child == 0) {
        int seen = 0;
        {
            InterprocessNamedMutex other(name);
            other.lock();
            seen = released->load();
            other.unlock();
        }
        ::_exit(seen == 1 ? 0 : 1);
    }
    released->store(1);
    mutex.unlock();
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(InterprocessNamedMutex, TheOwningThreadWinsItAgain) {
    const std::string name = UniqueName("reentrant");
    InterprocessNamedMutex mutex(name);
    mutex.lock();
    EXPECT_TRUE(mutex.try_lock());
    mutex.lock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    mutex.unlock();
    mutex.unlock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    mutex.unlock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 0);
}

TEST(InterprocessNamedMutex, WorksWithTheStandardGuards) {
    const std::string name = UniqueName("guards");
    InterprocessNamedMutex mutex(name);
    {
        const std::lock_guard guard(mutex);
        EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    }
    std::unique_lock lock(mutex, std::try_to_lock);
    EXPECT_TRUE(lock.owns_lock());
    lock.unlock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 0);
}

TEST(InterprocessNamedMutex, AnAbandonedMutexIsReportedNotTakenOver) {
    const std::string name = UniqueName("abandoned");
    InterprocessNamedMutex mutex(name);
    ASSERT_EQ(InChild([&] {
                  InterprocessNamedMutex other(name);
                  other.lock();
                  return 0; // ends while holding it
              }),
              0);
    EXPECT_EQ(WhatOf([&] { mutex.try_lock(); }), "unspecified error");
    // Handed back, not kept: it can be won again.
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 0);
}

TEST(InterprocessNamedMutex, LockOfAnAbandonedMutexRaisesToo) {
    const std::string name = UniqueName("abandoned-lock");
    InterprocessNamedMutex mutex(name);
    ASSERT_EQ(InChild([&] {
                  InterprocessNamedMutex other(name);
                  return other.try_lock() ? 0 : 1;
              }),
              0);
    EXPECT_EQ(WhatOf([&] { mutex.lock(); }), "unspecified error");
    mutex.lock();
    mutex.unlock();
}

TEST(InterprocessNamedMutex, ACopyIsASecondHandleWithALifeOfItsOwn) {
    const std::string name = UniqueName("copy");
    auto original = std::make_unique<InterprocessNamedMutex>(name);
    InterprocessNamedMutex copy(*original);
    original.reset();
    copy.lock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    copy.unlock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 0);
}

TEST(InterprocessNamedMutex, AssignmentSharesTheSameMutex) {
    const std::string name = UniqueName("assign");
    InterprocessNamedMutex source(name);
    InterprocessNamedMutex target;
    target = source;
    target.lock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    target.unlock();
}

TEST(InterprocessNamedMutex, AnUnnamedMutexIsSharedWithAForkedChild) {
    InterprocessNamedMutex mutex;
    mutex.lock();
    EXPECT_EQ(InChild([&] { return mutex.try_lock() ? 0 : 1; }), 1);
    mutex.unlock();
    EXPECT_EQ(InChild([&] {
                  const bool won = mutex.try_lock();
                  if (won)
                      mutex.unlock();
                  return won ? 0 : 1;
              }),
              0);
}

TEST(InterprocessNamedMutex, UnnamedMutexesAreDistinct) {
    InterprocessNamedMutex first;
    InterprocessNamedMutex second;
    first.lock();
    EXPECT_EQ(InChild([&] { return second.try_lock() ? 0 : 1; }), 0);
    first.unlock();
}

TEST(InterprocessNamedMutex, ANameWithASlashIsOneName) {
    const std::string name = UniqueName("a/b");
    InterprocessNamedMutex mutex(name);
    mutex.lock();
    EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 1);
    mutex.unlock();
}

TEST(InterprocessNamedMutex, NothingIsLeftBehindWhenTheLastHandleCloses) {
    const std::string name = UniqueName("cleanup");
    {
        InterprocessNamedMutex first(name);
        InterprocessNamedMutex second(name);
        EXPECT_EQ(InChild([&] { return TryLockByName(name); }), 0);
    }
    const int fd = ::shm_open(("/hvx-mutex-" + name).c_str(), O_RDWR, 0);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(errno, ENOENT);
    if (fd >= 0)
        ::close(fd);
}

TEST(InterprocessNamedMutex, ANameTheSystemRefusesRaises) {
    const std::string what = WhatOf([] { InterprocessNamedMutex mutex(std::string(300, 'n')); });
    const size_t close = what.find(") ");
    ASSERT_NE(close, std::string::npos) << what;
    // The C library refuses a shared-memory name longer than a file name.
    EXPECT_EQ(what.substr(close + 2), "failed to create mutex object: Invalid argument");
}

} // namespace
} // namespace nrq
