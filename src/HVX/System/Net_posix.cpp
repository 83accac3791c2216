#include "HVX/System/Net.h"
#include "HVX/System/NetDetail.h"

#include "HVX/Base/Error.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

namespace nrq {
namespace net {
namespace {

constexpr size_t ECHO_HEADER_SIZE = 8;
constexpr size_t ECHO_PAYLOAD_SIZE = 32;
constexpr std::string_view ECHO_MARK = "NERQUIL LABS";

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (fd >= 0)
            ::close(fd);
    }
    int Get() const { return fd; }

private:
    int fd;
};

int OpenEchoSocket(EchoSocket kind) {
    const int type = kind == EchoSocket::Datagram ? SOCK_DGRAM : SOCK_RAW;
    return ::socket(AF_INET, type | SOCK_CLOEXEC, IPPROTO_ICMP);
}

uint16_t InternetChecksum(const uint8_t* bytes, size_t size) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < size; i += 2)
        sum += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    if (size % 2)
        sum += static_cast<uint32_t>(bytes[size - 1] << 8);
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

struct EchoId {
    uint16_t identifier;
    uint16_t sequence;
};

EchoId NextEchoId() {
    static std::atomic<uint16_t> sequence{0};
    return {static_cast<uint16_t>(::getpid()), ++sequence};
}

std::array<uint8_t, ECHO_HEADER_SIZE + ECHO_PAYLOAD_SIZE> MakeEchoRequest(EchoId id) {
    std::array<uint8_t, ECHO_HEADER_SIZE + ECHO_PAYLOAD_SIZE> packet{};
    packet[0] = ICMP_ECHO;
    packet[4] = static_cast<uint8_t>(id.identifier >> 8);
    packet[5] = static_cast<uint8_t>(id.identifier);
    packet[6] = static_cast<uint8_t>(id.sequence >> 8);
    packet[7] = static_cast<uint8_t>(id.sequence);
    std::memcpy(packet.data() + ECHO_HEADER_SIZE, ECHO_MARK.data(), ECHO_MARK.size());
    const uint16_t checksum = InternetChecksum(packet.data(), packet.size());
    packet[2] = static_cast<uint8_t>(checksum >> 8);
    packet[3] = static_cast<uint8_t>(checksum);
    return packet;
}

uint16_t ReadU16(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

// The ICMP message inside a received IPv4 packet, or empty when it is cut short.
std::string_view IcmpOfIpPacket(const uint8_t* packet, size_t size) {
    if (size < 20)
        return {};
    const size_t headerSize = (packet[0] & 0x0F) * 4u;
    if (headerSize < 20 || headerSize + ECHO_HEADER_SIZE > size)
        return {};
    return {reinterpret_cast<const char*>(packet) + headerSize, size - headerSize};
}

enum class Answer { Unrelated, Reply, Failure };

// A raw socket sees every ICMP message of the host, our own request on loopback included.
Answer ClassifyRawMessage(std::string_view icmp, EchoId id, uint32_t from, uint32_t target) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(icmp.data());
    if (icmp.size() < ECHO_HEADER_SIZE)
        return Answer::Unrelated;
    if (bytes[0] == ICMP_ECHOREPLY)
        return from == target && ReadU16(bytes + 4) == id.identifier && ReadU16(bytes + 6) == id.sequence
                   ? Answer::Reply
                   : Answer::Unrelated;
    if (bytes[0] != ICMP_DEST_UNREACH && bytes[0] != ICMP_TIME_EXCEEDED)
        return Answer::Unrelated;
    // An error message quotes the IP header and first bytes of the request it answers.
    const std::string_view quoted = IcmpOfIpPacket(bytes + ECHO_HEADER_SIZE, icmp.size() - ECHO_HEADER_SIZE);
    if (quoted.size() < ECHO_HEADER_SIZE)
        return Answer::Unrelated;
    const auto* request = reinterpret_cast<const uint8_t*>(quoted.data());
    return request[0] == ICMP_ECHO && ReadU16(request + 4) == id.identifier && ReadU16(request + 6) == id.sequence
               ? Answer::Failure
               : Answer::Unrelated;
}

// The kernel owns identifier and matching on a datagram socket; only replies arrive.
Answer ClassifyDatagramMessage(std::string_view icmp, EchoId id) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(icmp.data());
    if (icmp.size() < ECHO_HEADER_SIZE)
        return Answer::Unrelated;
    if (bytes[0] != ICMP_ECHOREPLY)
        return Answer::Failure;
    return ReadU16(bytes + 6) == id.sequence ? Answer::Reply : Answer::Unrelated;
}

// Errors that say the address can't be reached, not that the system is at fault.
bool IsUnreachable(int code) {
    switch (code) {
    case ENETUNREACH: case EHOSTUNREACH: case ENETDOWN: case EHOSTDOWN: case EADDRNOTAVAIL:
    case ECONNREFUSED: case EACCES: case EPERM: case ETIMEDOUT: case EPROTO:
        return true;
    default:
        return false;
    }
}

int RemainingMs(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

bool AwaitReply(int fd, EchoSocket kind, EchoId id, uint32_t target, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    std::array<uint8_t, 1500> buffer;
    for (;;) {
        pollfd waiting{fd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, RemainingMs(deadline));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0)
            throw Error::SystemCode(errno);
        if (ready == 0)
            return false;
        sockaddr_in from{};
        socklen_t fromSize = sizeof(from);
        const ssize_t got = ::recvfrom(fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from),
                                       &fromSize);
        if (got < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            if (IsUnreachable(errno))
                return false;
            throw Error::SystemCode(errno);
        }
        const size_t size = static_cast<size_t>(got);
        const Answer answer =
            kind == EchoSocket::Datagram
                ? ClassifyDatagramMessage({reinterpret_cast<const char*>(buffer.data()), size}, id)
                : ClassifyRawMessage(IcmpOfIpPacket(buffer.data(), size), id, from.sin_addr.s_addr, target);
        if (answer != Answer::Unrelated)
            return answer == Answer::Reply;
    }
}

bool Echo(int fd, EchoSocket kind, const asio::ip::address_v4& address, int timeoutMs) {
    const EchoId id = NextEchoId();
    const auto request = MakeEchoRequest(id);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(address.to_uint());
    const ssize_t sent =
        ::sendto(fd, request.data(), request.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    if (sent < 0) {
        if (IsUnreachable(errno))
            return false;
        throw Error::SystemCode(errno);
    }
    return AwaitReply(fd, kind, id, to.sin_addr.s_addr, timeoutMs);
}

} // namespace

bool PingThrough(EchoSocket kind, const asio::ip::address_v4& address, int timeoutMs) {
    const FileDescriptor socket(OpenEchoSocket(kind));
    if (socket.Get() < 0)
        throw Error::SystemCode(errno);
    return Echo(socket.Get(), kind, address, timeoutMs);
}

} // namespace net

bool Ping(const asio::ip::address_v4& address, int timeoutMs) {
    using net::EchoSocket;
    EchoSocket kind = EchoSocket::Datagram;
    int fd = net::OpenEchoSocket(kind);
    // Datagram ICMP is refused outside the system's ping group range; a raw socket may still be allowed.
    if (fd < 0 && (errno == EACCES || errno == EPERM || errno == EPROTONOSUPPORT)) {
        kind = EchoSocket::Raw;
        fd = net::OpenEchoSocket(kind);
    }
    const net::FileDescriptor socket(fd);
    if (socket.Get() < 0)
        throw Error::SystemCode(errno);
    return net::Echo(socket.Get(), kind, address, timeoutMs);
}

std::vector<asio::ip::address_v4> GetConnectedAddresses() {
    const net::FileDescriptor table(::open("/proc/net/arp", O_RDONLY | O_CLOEXEC));
    if (table.Get() < 0)
        throw Error::SystemCode(errno);
    // The kernel's table is bounded; so is what is read of it.
    constexpr size_t MAX_TABLE_SIZE = 16 * 1024 * 1024;
    std::string text;
    std::array<char, 4096> chunk;
    while (text.size() < MAX_TABLE_SIZE) {
        const ssize_t got = ::read(table.Get(), chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw Error::SystemCode(errno);
        if (got == 0)
            break;
        text.append(chunk.data(), static_cast<size_t>(got));
    }
    return net::ParseArpTable(text);
}

std::vector<NetInterface> GetNetInterfaceAddresses() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        return {};
    std::vector<NetInterface> interfaces;
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        NetInterface found;
        found.address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr;
        if (entry->ifa_netmask)
            found.mask = reinterpret_cast<const sockaddr_in*>(entry->ifa_netmask)->sin_addr.s_addr;
        interfaces.push_back(found);
    }
    ::freeifaddrs(list);
    return interfaces;
}

std::string GetSystemUserName() {
    const long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::string buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384, '\0');
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return {};
    return net::DisplayNameFromPasswd(found->pw_gecos ? found->pw_gecos : "", found->pw_name ? found->pw_name : "");
}

} // namespace nrq
