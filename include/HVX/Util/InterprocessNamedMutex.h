#pragma once

#include <memory>
#include <string_view>

namespace nrq {

// A mutex shared by name between processes, reentrant for the owning thread.
// Works with the standard lock guards. A mutex abandoned by a process or thread
// that ended while holding it is reported by an Error, not taken over.
class InterprocessNamedMutex {
public:
    // An unnamed mutex: shared only with processes forked after it was made.
    InterprocessNamedMutex();
    // Created or, when the name exists, opened; never owned on return.
    explicit InterprocessNamedMutex(std::string_view name);
    // A second handle to the same mutex with a life of its own.
    InterprocessNamedMutex(const InterprocessNamedMutex& other);
    InterprocessNamedMutex& operator=(const InterprocessNamedMutex& other);
    ~InterprocessNamedMutex();

    void lock();
    bool try_lock();
    void unlock();

    struct Shared;

private:
    std::shared_ptr<Shared> shared;
};

} // namespace nrq
