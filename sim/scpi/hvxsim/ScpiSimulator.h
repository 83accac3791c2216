#pragma once

#include "hvxsim/ScpiDialect.h"
#include "hvxsim/ScpiInstrument.h"
#include "hvxsim/ScpiTrace.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hvxsim {

struct ScpiSimulatorOptions {
    std::string dialect = "default";     // see ScpiDialects()
    uint16_t port = 0;                   // 0: an ephemeral port, see Port()
    uint64_t seed = 1;                   // the trace noise
    std::optional<std::chrono::milliseconds> identifyDelay; // replaces the dialect's *IDN? delay
    // How long a reply waits in the output queue for the client before it is
    // sent; a command arriving meanwhile discards it with -410. Zero: only
    // commands that arrived together with the query interrupt it.
    std::chrono::milliseconds queryInterruptWindow{0};
    // Changes a copy of the dialect before the instrument starts, for an
    // instrument that differs from its family (other points, ranges, tail...).
    std::function<void(ScpiDialect&)> adjustDialect;
};

// A simulated SCPI spectrum analyzer on a TCP socket at 127.0.0.1, served by
// its own thread. One client at a time, as the instruments do: a second
// client's connection waits in the listen backlog until the first has gone.
// Commands end with a line feed ("\r\n" too); all accessors are thread-safe.
class ScpiSimulator {
public:
    // Throws std::invalid_argument for an unknown dialect and
    // std::system_error when the socket cannot be bound.
    explicit ScpiSimulator(ScpiSimulatorOptions options = {});
    ~ScpiSimulator();
    ScpiSimulator(const ScpiSimulator&) = delete;
    ScpiSimulator& operator=(const ScpiSimulator&) = delete;

    uint16_t Port() const { return port_; }
    const ScpiDialect& Dialect() const { return dialect_; }

    // Closes the link and the listening socket and joins the thread; idempotent.
    void Stop();

    // What the last trace query delivered: the values (in the power unit in
    // effect) before encoding, their frequencies, and the exact reply bytes
    // of the trace including its tail.
    std::vector<float> LastTrace() const;
    std::vector<double> LastTraceFrequencies() const;
    std::string LastTraceReply() const;
    uint64_t SweepCount() const;   // trace queries answered
    uint64_t TriggerCount() const; // single sweeps started
    uint64_t ConnectionCount() const;
    size_t ErrorQueueSize() const;
    ScpiInstrumentSettings Settings() const;
    // Every program message received, trimmed, in order.
    std::vector<std::string> ReceivedMessages() const;

    // The twin hook: replaces noise and carriers; null restores them.
    void SetTraceSource(TraceSource source);

    // Faults. Each fires once, on the trace query named, unless said otherwise.
    void DropLinkAfterSweeps(uint64_t sweeps);     // that many traces go out, the next trace query closes the link
    void DropLinkMidBlock(size_t bytesSent);       // the next trace reply stops after that many bytes, then the link closes
    void SendShortBlock(size_t missingBytes);      // the next block holds fewer data bytes than it announces
    void SendMalformedBlockPrefix(std::string prefix = "#X"); // the next block starts with this instead of "#<n><len>"
    void AnswerIdentityWithTooFewFields(bool on);  // *IDN? gives "manufacturer,model" while on
    void ClearFaults();

private:
    class Server;

    ScpiDialect dialect_;
    uint16_t port_ = 0;
    std::unique_ptr<Server> server_;
};

} // namespace hvxsim
