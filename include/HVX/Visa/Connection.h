#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace nrq {

// The byte-stream interface of the library. What a time-out does is the
// transport's business; see each link.
class IO {
public:
    // The size that stands for reading all that comes.
    static const size_t READ_UNTIL_EOF;

    virtual size_t Write(const void* data, size_t size);
    virtual size_t Read(void* data, size_t size, std::chrono::nanoseconds timeout);
    // Reads until a Read returns nothing; an exception from Read drops what was collected.
    virtual std::string ReadData(std::chrono::nanoseconds timeout);
    virtual ~IO() = default;

    size_t WriteData(std::string_view data);
};

// An IO that can be opened, closed and checked.
class Connection : public IO {
public:
    size_t Write(const void* data, size_t size) override = 0;
    size_t Read(void* data, size_t size, std::chrono::nanoseconds timeout) override = 0;
    ~Connection() override = default;

    // False when the peer is unreachable in an ordinary way; local faults are thrown.
    virtual bool Connect();
    virtual void Disconnect();
    virtual bool IsConnected();
    // A cheap reachability test that leaves an open session alone.
    virtual bool Ping();
};

} // namespace nrq
