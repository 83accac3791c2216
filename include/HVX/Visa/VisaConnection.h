#pragma once

#include "HVX/Visa/Connection.h"

#include <asio/ip/address_v4.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace nrq {

// What a VISA resource string tells before anything is opened.
struct VisaAddressInfo {
    // Present when a TCP/IP resource names a numeric IPv4 address.
    std::optional<asio::ip::address_v4> address;
    // True for a raw socket resource.
    bool usingSocket = false;
};

VisaAddressInfo ParseVisaAddress(std::string_view resource);

// A link to one VISA resource. A numeric TCP/IP address is pinged before VISA
// opens it, so that a switched-off instrument can't stall the open.
class VisaConnection : public Connection {
public:
    explicit VisaConnection(std::string_view address);
    // Leaves the session as it is.
    ~VisaConnection() override;

    const std::string& GetAddress() const { return address; }
    unsigned long GetSession() const { return session; }
    bool UsingSocket() const { return usingSocket; }

    size_t Write(const void* data, size_t size) override;
    // One read of at most size bytes; a time-out returns what came.
    size_t Read(void* data, size_t size, std::chrono::nanoseconds timeout) override;
    // Reads until a read comes back short; a time-out ends the message.
    std::string ReadData(std::chrono::nanoseconds timeout) override;

    bool Connect() override;
    void Disconnect() override;
    bool IsConnected() override;
    bool Ping() override;

private:
    bool connected = false;
    std::string address;
    bool usingSocket = false;
    unsigned long session = 0;
    std::optional<asio::ip::address_v4> numericAddress;
};

} // namespace nrq
