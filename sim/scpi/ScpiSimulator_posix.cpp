#include "hvxsim/ScpiSimulator.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace hvxsim {

namespace {

// Longer than any program message a client sends; a line beyond it is garbage.
constexpr size_t kMaxInputBytes = 1 << 20;

[[noreturn]] void ThrowErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

enum class WaitResult { Ready, TimedOut, Stopping };

} // namespace

class ScpiSimulator::Server {
public:
    Server(const ScpiDialect& dialect, const ScpiSimulatorOptions& options);
    ~Server();

    uint16_t Port() const { return port_; }
    void Stop();

    std::mutex mutex;
    ScpiInstrument instrument;
    uint64_t connections = 0;

private:
    void Run();
    void Serve(int client);
    bool ProcessInput(int client, std::string& input, std::string& pending);
    void DropOverlongLine(std::string& input);
    WaitResult Wait(int fd, short events, int timeoutMs);
    bool SendAll(int client, const std::string& bytes);
    bool Pause(std::chrono::milliseconds delay);
    void DrainAvailable(int client, std::string& input);

    std::chrono::milliseconds window_;
    bool skippingLine_ = false; // the rest of an overlong line is dropped up to its end
    int listen_ = -1;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    uint16_t port_ = 0;
    std::atomic<bool> stopping_{false};
    std::mutex stopMutex_; // Stop may come from several threads; one joins
    std::thread thread_;
};

ScpiSimulator::Server::Server(const ScpiDialect& dialect, const ScpiSimulatorOptions& options)
    : instrument(dialect, options.seed), window_(options.queryInterruptWindow) {
    if (options.identifyDelay)
        instrument.SetIdentifyDelay(*options.identifyDelay);
    int wake[2];
    if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0)
        ThrowErrno("pipe2");
    wakeRead_ = wake[0];
    wakeWrite_ = wake[1];
    listen_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listen_ < 0)
        ThrowErrno("socket");
    const int yes = 1;
    ::setsockopt(listen_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(options.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(listen_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(listen_, 4) != 0) {
        const int error = errno;
        ::close(listen_);
        ::close(wakeRead_);
        ::close(wakeWrite_);
        throw std::system_error(error, std::generic_category(), "bind 127.0.0.1");
    }
    socklen_t length = sizeof address;
    ::getsockname(listen_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Run(); });
}

ScpiSimulator::Server::~Server() {
    Stop();
    ::close(listen_);
    ::close(wakeRead_);
    ::close(wakeWrite_);
}

void ScpiSimulator::Server::Stop() {
    if (!stopping_.exchange(true)) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = ::write(wakeWrite_, &byte, 1);
    }
    std::lock_guard lock(stopMutex_);
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id())
        thread_.join();
}

// Waits for fd or for Stop; a negative time-out waits without limit.
WaitResult ScpiSimulator::Server::Wait(int fd, short events, int timeoutMs) {
    pollfd fds[2] = {{wakeRead_, POLLIN, 0}, {fd, events, 0}};
    for (;;) {
        const int count = ::poll(fds, fd < 0 ? 1 : 2, timeoutMs);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 || stopping_.load() || (fds[0].revents & POLLIN))
            return WaitResult::Stopping;
        return count == 0 ? WaitResult::TimedOut : WaitResult::Ready;
    }
}

bool ScpiSimulator::Server::Pause(std::chrono::milliseconds delay) {
    return Wait(-1, 0, static_cast<int>(delay.count())) == WaitResult::TimedOut;
}

void ScpiSimulator::Server::Run() {
    while (Wait(listen_, POLLIN, -1) == WaitResult::Ready) {
        const int client = ::accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        const int yes = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        {
            std::lock_guard lock(mutex);
            ++connections;
        }
        Serve(client);
        ::close(client);
    }
}

bool ScpiSimulator::Server::SendAll(int client, const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            sent += static_cast<size_t>(count);
            continue;
        }
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            if (Wait(client, POLLOUT, -1) != WaitResult::Ready)
                return false;
            continue;
        }
        return false;
    }
    return true;
}

// What arrived while the instrument was busy counts as arrived before its reply.
void ScpiSimulator::Server::DrainAvailable(int client, std::string& input) {
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(client, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count <= 0)
            return;
        input.append(buffer, static_cast<size_t>(count));
    }
}

void ScpiSimulator::Server::DropOverlongLine(std::string& input) {
    if (skippingLine_) {
        const size_t end = input.find('\n');
        input.erase(0, end == std::string::npos ? input.size() : end + 1);
        skippingLine_ = end == std::string::npos;
    }
    if (input.size() > kMaxInputBytes && input.find('\n') == std::string::npos) {
        input.clear();
        skippingLine_ = true;
        std::lock_guard lock(mutex);
        instrument.InputOverrun();
    }
}

// Runs every complete line of the input. False when the link is to close.
bool ScpiSimulator::Server::ProcessInput(int client, std::string& input, std::string& pending) {
    DropOverlongLine(input);
    size_t end;
    while ((end = input.find('\n')) != std::string::npos) {
        if (end > kMaxInputBytes) {
            input.erase(0, end + 1);
            std::lock_guard lock(mutex);
            instrument.InputOverrun();
            continue;
        }
        std::string line = input.substr(0, end);
        input.erase(0, end + 1);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (Trim(line).empty())
            continue;
        ScpiExecution execution;
        {
            std::lock_guard lock(mutex);
            if (!pending.empty()) {
                pending.clear();
                instrument.InterruptQuery();
            }
            execution = instrument.Execute(line);
        }
        if (execution.delay.count() > 0) {
            if (!Pause(execution.delay))
                return false;
            DrainAvailable(client, input);
        }
        pending = std::move(execution.reply);
        if (execution.closeLink) {
            SendAll(client, pending);
            return false;
        }
    }
    return true;
}

void ScpiSimulator::Server::Serve(int client) {
    skippingLine_ = false;
    std::string input;
    std::string pending;
    for (;;) {
        const int timeout = pending.empty() ? -1 : static_cast<int>(window_.count());
        const WaitResult waited = timeout == 0 ? WaitResult::TimedOut : Wait(client, POLLIN, timeout);
        if (waited == WaitResult::Stopping)
            return;
        if (waited == WaitResult::TimedOut) {
            if (!SendAll(client, pending))
                return;
            pending.clear();
            continue;
        }
        char buffer[4096];
        const ssize_t count = ::recv(client, buffer, sizeof buffer, 0);
        if (count <= 0)
            return;
        input.append(buffer, static_cast<size_t>(count));
        if (!ProcessInput(client, input, pending))
            return;
    }
}

namespace {

ScpiDialect ChooseDialect(const ScpiSimulatorOptions& options) {
    const ScpiDialect* dialect = FindScpiDialect(options.dialect);
    if (!dialect)
        throw std::invalid_argument("unknown SCPI dialect \"" + options.dialect + "\"");
    ScpiDialect chosen = *dialect;
    if (options.adjustDialect)
        options.adjustDialect(chosen);
    return chosen;
}

} // namespace

ScpiSimulator::ScpiSimulator(ScpiSimulatorOptions options) : dialect_(ChooseDialect(options)) {
    server_ = std::make_unique<Server>(dialect_, options);
    port_ = server_->Port();
}

ScpiSimulator::~ScpiSimulator() { Stop(); }

void ScpiSimulator::Stop() {
    if (server_)
        server_->Stop();
}

std::vector<float> ScpiSimulator::LastTrace() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.LastTrace();
}

std::vector<double> ScpiSimulator::LastTraceFrequencies() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.LastTraceFrequencies();
}

std::string ScpiSimulator::LastTraceReply() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.LastBlock();
}

uint64_t ScpiSimulator::SweepCount() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.SweepCount();
}

uint64_t ScpiSimulator::TriggerCount() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.TriggerCount();
}

uint64_t ScpiSimulator::ConnectionCount() const {
    std::lock_guard lock(server_->mutex);
    return server_->connections;
}

size_t ScpiSimulator::ErrorQueueSize() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.ErrorCount();
}

ScpiInstrumentSettings ScpiSimulator::Settings() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.Settings();
}

std::vector<std::string> ScpiSimulator::ReceivedMessages() const {
    std::lock_guard lock(server_->mutex);
    return server_->instrument.ReceivedMessages();
}

void ScpiSimulator::SetTraceSource(TraceSource source) {
    std::lock_guard lock(server_->mutex);
    server_->instrument.SetTraceSource(std::move(source));
}

void ScpiSimulator::DropLinkAfterSweeps(uint64_t sweeps) {
    std::lock_guard lock(server_->mutex);
    server_->instrument.Faults().dropLinkAfterSweeps = sweeps;
}

void ScpiSimulator::DropLinkMidBlock(size_t bytesSent) {
    std::lock_guard lock(server_->mutex);
    server_->instrument.Faults().dropLinkMidBlockAfterBytes = bytesSent;
}

void ScpiSimulator::SendShortBlock(size_t missingBytes) {
    std::lock_guard lock(server_->mutex);
    server_->instrument.Faults().shortBlockMissingBytes = missingBytes;
}

void ScpiSimulator::SendMalformedBlockPrefix(std::string prefix) {
    std::lock_guard lock(server_->mutex);
    server_->instrument.Faults().malformedBlockPrefix = std::move(prefix);
}

void ScpiSimulator::AnswerIdentityWithTooFewFields(bool on) {
    std::lock_guard lock(server_->mutex);
    server_->instrument.Faults().identifyWithTooFewFields = on;
}

void ScpiSimulator::ClearFaults() {
    std::lock_guard lock(server_->mutex);
    server_->instrument.Faults() = ScpiFaults{};
}

} // namespace hvxsim
