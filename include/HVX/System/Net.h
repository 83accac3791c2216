#pragma once

#include <asio/ip/address_v4.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// One IPv4 interface: both numbers in the network's byte order.
struct NetInterface {
    uint32_t address = 0;
    uint32_t mask = 0;

    bool operator==(const NetInterface&) const = default;
};

// One ICMP echo. False when no good reply came within the time-out or the
// address can't be reached; a fault of the local system is thrown.
bool Ping(const asio::ip::address_v4& address, int timeoutMs);
// The same for a dotted address in text; text that is no IPv4 address gives false.
bool Ping(std::string_view address, int timeoutMs);

// Every host in the system's ARP table, in the table's order, unfiltered.
std::vector<asio::ip::address_v4> GetConnectedAddresses();

// Every IPv4 interface, loopback included; empty when the system can't tell.
std::vector<NetInterface> GetNetInterfaceAddresses();

// The display form of the user's name, or empty.
std::string GetSystemUserName();

} // namespace nrq
