#pragma once

#include "HVX/Visa/Connection.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

namespace nrq::test {

// An instrument told in advance: every Write is recorded, every Read takes
// up to its size from the first queued reply (the rest stays queued), and
// every ReadData takes one whole reply. An empty queue is a time-out: Read
// returns 0 and ReadData "", or both throw when `throwWhenEmpty` is set, as
// a link that raises at its time-out does.
class ScriptedIO : public IO {
public:
    struct ReadCall {
        size_t size;
        std::chrono::nanoseconds timeout;
    };

    void Queue(std::string reply) { replies.push_back(std::move(reply)); }

    size_t Write(const void* data, size_t size) override {
        writes.emplace_back(static_cast<const char*>(data), size);
        return size;
    }

    size_t Read(void* data, size_t size, std::chrono::nanoseconds timeout) override {
        reads.push_back({size, timeout});
        if (replies.empty())
            return TimedOut();
        std::string& front = replies.front();
        const size_t count = std::min(size, front.size());
        std::memcpy(data, front.data(), count);
        front.erase(0, count);
        if (front.empty())
            replies.pop_front();
        return count;
    }

    std::string ReadData(std::chrono::nanoseconds timeout) override {
        dataReads.push_back(timeout);
        if (replies.empty()) {
            TimedOut();
            return {};
        }
        std::string reply = std::move(replies.front());
        replies.pop_front();
        return reply;
    }

    // All writes joined, for comparing a whole exchange at once.
    std::string Written() const {
        std::string all;
        for (const std::string& write : writes)
            all += write;
        return all;
    }

    std::vector<std::string> writes;
    std::deque<std::string> replies;
    std::vector<ReadCall> reads;
    std::vector<std::chrono::nanoseconds> dataReads;
    bool throwWhenEmpty = false;

private:
    size_t TimedOut() const {
        if (throwWhenEmpty)
            throw std::runtime_error("Timed out while reading");
        return 0;
    }
};

} // namespace nrq::test
