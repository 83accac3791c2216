#include "HVX/Util/InterprocessNamedMutex.h"

#include "HVX/Base/Error.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

namespace nrq {
namespace {

// The block in shared memory. The handle count and the retired mark are only
// touched under an flock of the object, so the last handle can remove the name
// without racing a process that is opening it.
struct MutexBlock {
    pthread_mutex_t mutex;
    uint32_t handles;
    uint32_t retired;
};

[[noreturn]] void RaiseCreateFailure(int code) {
    throw Error(fmt::format("failed to create mutex object: {}", HVXGetSystemErrorMessage(code)));
}

void InitialiseMutex(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int result = pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (result != 0)
        RaiseCreateFailure(result);
}

MutexBlock* MapBlock(int fd) {
    void* memory = ::mmap(nullptr, sizeof(MutexBlock), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED)
        RaiseCreateFailure(errno);
    return static_cast<MutexBlock*>(memory);
}

// Shared-memory names are one path component.
std::string SharedMemoryName(std::string_view name) {
    std::string result = "/hvx-mutex-";
    for (const char c : name)
        result += c == '/' ? '_' : c;
    return result;
}

class ObjectLock {
public:
    explicit ObjectLock(int fd) : fd(fd) {
        while (::flock(fd, LOCK_EX) != 0)
            if (errno != EINTR)
                RaiseCreateFailure(errno);
    }
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;
    ~ObjectLock() { ::flock(fd, LOCK_UN); }

private:
    int fd;
};

} // namespace

struct InterprocessNamedMutex::Shared {
    std::string name; // empty for an unnamed mutex
    int fd = -1;
    MutexBlock* block = nullptr;
    // How often this handle's owner has won it; changed only by the owner.
    long held = 0;

    Shared() = default;
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    ~Shared() {
        if (fd >= 0) {
            try {
                Release();
            } catch (const Error&) {
                // The name then outlives its last handle; nothing worse.
            }
        }
        // The system finds a held mutex through this mapping when its owner ends,
        // and can only then report it abandoned; so a held one stays mapped.
        if (block && held == 0)
            ::munmap(block, sizeof(MutexBlock));
        if (fd >= 0)
            ::close(fd);
    }

    // Opens the name, or makes it; retries when the last other handle removed it meanwhile.
    void OpenNamed() {
        for (;;) {
            fd = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            if (fd < 0)
                RaiseCreateFailure(errno);
            if (TryJoin())
                return;
            ::munmap(block, sizeof(MutexBlock));
            block = nullptr;
            ::close(fd);
            fd = -1;
        }
    }

    bool TryJoin() {
        const ObjectLock guard(fd);
        struct stat status {};
        if (::fstat(fd, &status) != 0)
            RaiseCreateFailure(errno);
        const bool fresh = status.st_size == 0;
        if (fresh && ::ftruncate(fd, sizeof(MutexBlock)) != 0)
            RaiseCreateFailure(errno);
        block = MapBlock(fd);
        if (fresh) {
            InitialiseMutex(block->mutex);
            block->handles = 0;
            block->retired = 0;
        }
        if (block->retired)
            return false;
        ++block->handles;
        return true;
    }

    void Release() {
        const ObjectLock guard(fd);
        if (--block->handles == 0) {
            block->retired = 1;
            ::shm_unlink(name.c_str());
        }
    }

    void OpenUnnamed() {
        void* memory = ::mmap(nullptr, sizeof(MutexBlock), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            RaiseCreateFailure(errno);
        block = static_cast<MutexBlock*>(memory);
        InitialiseMutex(block->mutex);
    }
};

InterprocessNamedMutex::InterprocessNamedMutex() : shared(std::make_shared<Shared>()) { shared->OpenUnnamed(); }

InterprocessNamedMutex::InterprocessNamedMutex(std::string_view name) : shared(std::make_shared<Shared>()) {
    shared->name = SharedMemoryName(name);
    shared->OpenNamed();
}

InterprocessNamedMutex::InterprocessNamedMutex(const InterprocessNamedMutex& other) {
    if (other.shared->name.empty()) {
        shared = other.shared;
        return;
    }
    shared = std::make_shared<Shared>();
    shared->name = other.shared->name;
    shared->OpenNamed();
}

InterprocessNamedMutex& InterprocessNamedMutex::operator=(const InterprocessNamedMutex& other) {
    if (this != &other)
        shared = InterprocessNamedMutex(other).shared;
    return *this;
}

InterprocessNamedMutex::~InterprocessNamedMutex() = default;

namespace {

// An owner that ended while holding the mutex: the state it guarded is unknown,
// so the caller gets an Error and the mutex is handed back, not taken over.
[[noreturn]] void RaiseAbandoned(pthread_mutex_t& mutex) {
    pthread_mutex_consistent(&mutex);
    pthread_mutex_unlock(&mutex);
    throw Error();
}

} // namespace

void InterprocessNamedMutex::lock() {
    const int result = pthread_mutex_lock(&shared->block->mutex);
    if (result == EOWNERDEAD)
        RaiseAbandoned(shared->block->mutex);
    if (result != 0)
        throw Error();
    ++shared->held;
}

bool InterprocessNamedMutex::try_lock() {
    const int result = pthread_mutex_trylock(&shared->block->mutex);
    if (result == 0) {
        ++shared->held;
        return true;
    }
    if (result == EBUSY)
        return false;
    if (result == EOWNERDEAD)
        RaiseAbandoned(shared->block->mutex);
    throw Error();
}

void InterprocessNamedMutex::unlock() {
    // Counted down while still held, so the count stays guarded by the mutex itself.
    --shared->held;
    if (pthread_mutex_unlock(&shared->block->mutex) != 0)
        ++shared->held;
}

} // namespace nrq
