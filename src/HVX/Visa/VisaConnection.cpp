#include "HVX/Visa/VisaConnection.h"

// GCC 12's regex automaton trips a false maybe-uninitialized warning when
// instrumented for sanitizers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "HVX/System/Net.h"
#include "HVX/Visa/Visa.h"

#include <array>
#include <regex>

namespace nrq {
namespace {

constexpr int PING_TIMEOUT_MS = 500;

const std::regex& TcpipResourcePattern() {
    static const std::regex pattern("TCPIP[0-9]+::([^:]+)(?:::[a-zA-Z0-9]+)?::([A-Z]+)", std::regex::ECMAScript);
    return pattern;
}

uint64_t WholeMilliseconds(std::chrono::nanoseconds timeout) {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(timeout).count();
    return milliseconds > 0 ? static_cast<uint64_t>(milliseconds) : 0;
}

} // namespace

VisaAddressInfo ParseVisaAddress(std::string_view resource) {
    VisaAddressInfo info;
    std::match_results<std::string_view::const_iterator> match;
    if (!std::regex_match(resource.begin(), resource.end(), match, TcpipResourcePattern()))
        return info;
    asio::error_code error;
    const auto address = asio::ip::make_address_v4(match[1].str(), error);
    if (!error)
        info.address = address;
    info.usingSocket = match[2].str() == "SOCKET";
    return info;
}

VisaConnection::VisaConnection(std::string_view address) : address(address) {
    const VisaAddressInfo info = ParseVisaAddress(address);
    usingSocket = info.usingSocket;
    numericAddress = info.address;
}

VisaConnection::~VisaConnection() = default;

size_t VisaConnection::Write(const void* data, size_t size) {
    return Visa::Write(session, std::string_view(static_cast<const char*>(data), size));
}

size_t VisaConnection::Read(void* data, size_t size, std::chrono::nanoseconds timeout) {
    Visa::SetTimeout(session, WholeMilliseconds(timeout));
    return Visa::ReadExact(session, data, size);
}

std::string VisaConnection::ReadData(std::chrono::nanoseconds timeout) {
    Visa::SetTimeout(session, WholeMilliseconds(timeout));
    std::array<char, 1024> chunk;
    std::string message;
    for (;;) {
        const uint64_t got = Visa::Read(session, chunk.data(), chunk.size());
        message.append(chunk.data(), got);
        if (got < chunk.size())
            return message;
    }
}

bool VisaConnection::Connect() {
    if (numericAddress && !nrq::Ping(*numericAddress, PING_TIMEOUT_MS))
        return false;
    try {
        session = Visa::Open(address);
    } catch (const VisaError&) {
        return false;
    }
    connected = true;
    return true;
}

void VisaConnection::Disconnect() {
    if (!IsConnected())
        return;
    connected = false;
    Visa::Close(session);
}

bool VisaConnection::IsConnected() {
    if (!connected)
        return false;
    // A session closed behind our back, as by a purge, shows as lost from then on.
    connected = Visa::IsOpen(session);
    return connected;
}

bool VisaConnection::Ping() {
    if (numericAddress)
        return nrq::Ping(*numericAddress, PING_TIMEOUT_MS);
    return Visa::HasRsrc(address);
}

} // namespace nrq
