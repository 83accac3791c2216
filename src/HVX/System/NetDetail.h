#pragma once

// Pieces of the network helpers that tests reach directly.

#include <asio/ip/address_v4.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace nrq::net {

// How an ICMP echo is sent: a datagram ICMP socket needs the process's group in
// the system's ping range, a raw socket needs the right to open raw sockets.
enum class EchoSocket { Datagram, Raw };

// One echo through the given kind of socket; throws when that socket can't be opened.
bool PingThrough(EchoSocket kind, const asio::ip::address_v4& address, int timeoutMs);

// The addresses of the rows of /proc/net/arp text, in order; the heading and
// rows whose first field isn't an IPv4 address are skipped.
std::vector<asio::ip::address_v4> ParseArpTable(std::string_view text);

// The display name from a passwd entry: the first comma-separated field of the
// comment, else the login name.
std::string DisplayNameFromPasswd(std::string_view gecos, std::string_view login);

} // namespace nrq::net
