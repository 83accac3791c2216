#pragma once

// A minimal blocking TCP client for talking to the simulated instruments on
// 127.0.0.1, written from the wire's side so that tests do not lean on the
// library's own links. Reads give up after a guard time so that a broken
// simulator fails a test instead of hanging it.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace nrq::test {

class LoopbackClient {
public:
    explicit LoopbackClient(uint16_t port) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd_ < 0 || ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot connect to 127.0.0.1:" + std::to_string(port));
        timeval guard{20, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &guard, sizeof guard);
    }
    ~LoopbackClient() { Close(); }
    LoopbackClient(const LoopbackClient&) = delete;
    LoopbackClient& operator=(const LoopbackClient&) = delete;

    void Close() {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

    void Send(const std::string& bytes) {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                throw std::runtime_error("send failed");
            sent += static_cast<size_t>(count);
        }
    }

    // Up to and including the next line feed; what came before the link
    // closed if it closes first.
    std::string ReadLine() {
        std::string line;
        while (line.empty() || line.back() != '\n') {
            if (!Fill())
                break;
            const size_t end = buffer_.find('\n');
            const size_t take = end == std::string::npos ? buffer_.size() : end + 1;
            line += buffer_.substr(0, take);
            buffer_.erase(0, take);
        }
        return line;
    }

    std::string Query(const std::string& command) {
        Send(command + "\n");
        return ReadLine();
    }

    // Exactly count bytes, or fewer if the link closes.
    std::string ReadExactly(size_t count) {
        std::string bytes;
        while (bytes.size() < count && Fill()) {
            const size_t take = std::min(count - bytes.size(), buffer_.size());
            bytes += buffer_.substr(0, take);
            buffer_.erase(0, take);
        }
        return bytes;
    }

    // Everything until the peer closes the link.
    std::string ReadUntilClosed() {
        std::string bytes;
        while (Fill()) {
            bytes += buffer_;
            buffer_.clear();
        }
        return bytes;
    }

private:
    // Makes sure the buffer holds something; false at the end of the stream.
    bool Fill() {
        if (!buffer_.empty())
            return true;
        char chunk[65536];
        const ssize_t count = ::recv(fd_, chunk, sizeof chunk, 0);
        if (count <= 0)
            return false;
        buffer_.assign(chunk, static_cast<size_t>(count));
        return true;
    }

    int fd_ = -1;
    std::string buffer_;
};

} // namespace nrq::test
