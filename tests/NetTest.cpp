#include "HVX/Base/Error.h"
#include "HVX/System/Net.h"
#include "HVX/System/NetDetail.h"
#include "HVX/Visa/VisaConnection.h"
#include "support/FakeVisa.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace nrq {

void PrintTo(const NetInterface& entry, std::ostream* out) {
    *out << asio::ip::make_address_v4(ntohl(entry.address)).to_string() << "/"
         << asio::ip::make_address_v4(ntohl(entry.mask)).to_string();
}

namespace {

using net::EchoSocket;
using net::PingThrough;

asio::ip::address_v4 Address(const char* text) { return asio::ip::make_address_v4(text); }

std::vector<asio::ip::address_v4> Addresses(std::initializer_list<const char*> texts) {
    std::vector<asio::ip::address_v4> result;
    for (const char* text : texts)
        result.push_back(Address(text));
    return result;
}

NetInterface Interface(const char* address, const char* mask) {
    return {htonl(Address(address).to_uint()), htonl(Address(mask).to_uint())};
}


// ---- ARP table text: parsed only, so its rows name loopback addresses

const char* const ARP_HEADING =
    "IP address       HW type     Flags       HW address            Mask     Device\n";

TEST(ArpTable, EveryRowInOrderWhateverItsFlags) {
    const std::string text = std::string(ARP_HEADING) +
                             "127.0.1.1        0x1         0x2         3c:7c:3f:aa:bb:cc     *        eth0\n"
                             "127.0.1.77       0x1         0x0         00:00:00:00:00:00     *        eth0\n"
                             "127.9.0.9        0x1         0x6         02:00:00:00:00:01     *        wlan0\n";
    EXPECT_EQ(net::ParseArpTable(text), Addresses({"127.0.1.1", "127.0.1.77", "127.9.0.9"}));
}

TEST(ArpTable, HeadingOnlyOrNothingIsEmpty) {
    EXPECT_TRUE(net::ParseArpTable(ARP_HEADING).empty());
    EXPECT_TRUE(net::ParseArpTable("").empty());
}

TEST(ArpTable, ALastRowWithoutLineFeedCounts) {
    EXPECT_EQ(net::ParseArpTable(std::string(ARP_HEADING) + "127.16.0.4 0x1 0x2 aa:bb:cc:dd:ee:ff * br0"),
              Addresses({"127.16.0.4"}));
}

TEST(ArpTable, RowsThatHoldNoAddressAreSkipped) {
    const std::string text = std::string(ARP_HEADING) + "\n" + "   \n" + "garbage 0x1 0x2\n" +
                             "127.0.0.300 0x1 0x2 aa:bb:cc:dd:ee:ff * eth0\n" +
                             "  127.0.1.2\t0x1 0x2 aa:bb:cc:dd:ee:ff * eth0\n";
    EXPECT_EQ(net::ParseArpTable(text), Addresses({"127.0.1.2"}));
}

TEST(ArpTable, TheSystemTableCanBeRead) { EXPECT_NO_THROW(GetConnectedAddresses()); }

// ---- user name

TEST(UserName, DisplayNameIsTheFirstFieldOfTheCommentElseTheLogin) {
    EXPECT_EQ(net::DisplayNameFromPasswd("Ada Lovelace,Room 1,,", "ada"), "Ada Lovelace");
    EXPECT_EQ(net::DisplayNameFromPasswd("Ada Lovelace", "ada"), "Ada Lovelace");
    EXPECT_EQ(net::DisplayNameFromPasswd("", "ada"), "ada");
    EXPECT_EQ(net::DisplayNameFromPasswd(",,,", "ada"), "ada");
}

TEST(UserName, SystemUserNameIsThatOfTheProcesssUser) {
    const passwd* entry = ::getpwuid(::getuid());
    ASSERT_NE(entry, nullptr);
    const std::string expected = net::DisplayNameFromPasswd(entry->pw_gecos ? entry->pw_gecos : "", entry->pw_name);
    EXPECT_EQ(GetSystemUserName(), expected);
    EXPECT_FALSE(GetSystemUserName().empty());
}

// ---- interfaces

TEST(NetInterfaces, LoopbackIsListedWithItsMask) {
    const std::vector<NetInterface> interfaces = GetNetInterfaceAddresses();
    EXPECT_NE(std::find(interfaces.begin(), interfaces.end(), Interface("127.0.0.1", "255.0.0.0")), interfaces.end());
}

// ---- echo on loopback

TEST(Ping, LoopbackAnswers) {
    EXPECT_TRUE(Ping(Address("127.0.0.1"), 500));
    EXPECT_TRUE(Ping(Address("127.0.0.2"), 500));
    EXPECT_TRUE(Ping("127.0.0.1", 500));
}

TEST(Ping, TextThatIsNoAddressIsFalse) {
    for (const char* text : {"", "localhost", "127.0.0", "256.0.0.1", "127.0.0.1 ", "::1", "1.2.3.4.5", "abc"})
        EXPECT_FALSE(Ping(text, 500)) << text;
}

TEST(Ping, RepeatedCallsLeaveNoSocketBehind) {
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openDescriptors();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(Ping(Address("127.0.0.1"), 500));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Ping, RawSocketEchoOnLoopback) {
    // Raw sockets need the right to open them; without it the call throws.
    try {
        EXPECT_TRUE(PingThrough(EchoSocket::Raw, Address("127.0.0.1"), 500));
    } catch (const Error& error) {
        GTEST_SKIP() << "no raw sockets here: " << error.what();
    }
}

// ---- inside a private network namespace: a silent neighbour, ping permissions

// Runs only inside the namespace that the test makes with unshare -n: lo up,
// and a veth pair whose both ends live in that namespace, v0 = 10.99.0.2/24
// with a neighbour 10.99.0.1 that never answers. Nothing reaches the host's network.
const char* const NAMESPACE_SETUP =
    "ip link set lo up && ip link add v0 type veth peer name v1 && ip addr add 10.99.0.2/24 dev v0 && "
    "ip link set v0 up && ip link set v1 up && "
    "ip neigh add 10.99.0.1 lladdr 02:00:00:00:00:01 dev v0 nud permanent";

bool CanMakeNetworkNamespace() {
    std::string output;
    return test::RunCommand("unshare -n true", output) == 0;
}

// Runs tests of this program, named by the filter, in a fresh network namespace.
void ExpectPassInNamespace(const std::string& pingGroupRange, const std::string& filter, int count) {
    if (!CanMakeNetworkNamespace())
        GTEST_SKIP() << "no network namespaces here";
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string command = "unshare -n sh -c '" + std::string(NAMESPACE_SETUP) +
                                " && sysctl -qw net.ipv4.ping_group_range=\"" + pingGroupRange +
                                "\" && exec \"$0\" --gtest_also_run_disabled_tests --gtest_filter=" + filter + "' " +
                                self;
    std::string output;
    EXPECT_EQ(test::RunCommand(command, output), 0) << output;
    EXPECT_NE(output.find("[  PASSED  ] " + std::to_string(count) + " test"), std::string::npos) << output;
}

TEST(PingInNamespace, DatagramSocketsWhenTheGroupMayPing) {
    ExpectPassInNamespace("0 2147483647", "DISABLED_NamespaceDatagram.*:DISABLED_NamespaceAny*.*", 8);
}

TEST(PingInNamespace, RawSocketsWhenNoGroupMayPing) {
    ExpectPassInNamespace("1 0", "DISABLED_NamespaceRaw.*:DISABLED_NamespaceAny*.*", 8);
}

TEST(DISABLED_NamespaceDatagram, EchoAnswersOnLoopbackAndOwnAddress) {
    EXPECT_TRUE(PingThrough(EchoSocket::Datagram, Address("127.0.0.1"), 500));
    EXPECT_TRUE(PingThrough(EchoSocket::Datagram, Address("10.99.0.2"), 500));
}

TEST(DISABLED_NamespaceDatagram, SilentNeighbourIsFalseAfterTheTimeout) {
    EXPECT_FALSE(PingThrough(EchoSocket::Datagram, Address("10.99.0.1"), 500));
}

TEST(DISABLED_NamespaceRaw, DatagramSocketIsRefusedSoPingFallsBackToRaw) {
    EXPECT_THROW(PingThrough(EchoSocket::Datagram, Address("127.0.0.1"), 500), Error);
    EXPECT_TRUE(Ping(Address("127.0.0.1"), 500));
    EXPECT_TRUE(Ping(Address("10.99.0.2"), 500));
}

TEST(DISABLED_NamespaceRaw, SilentNeighbourIsFalseAfterTheTimeout) {
    EXPECT_FALSE(PingThrough(EchoSocket::Raw, Address("10.99.0.1"), 500));
}

TEST(DISABLED_NamespaceAny, SilentNeighbourIsFalse) { EXPECT_FALSE(Ping(Address("10.99.0.1"), 500)); }

TEST(DISABLED_NamespaceAny, AddressWithoutRouteIsFalse) {
    EXPECT_FALSE(Ping(Address("192.0.2.1"), 500));
    EXPECT_FALSE(Ping("198.51.100.7", 500));
}

TEST(DISABLED_NamespaceAny, ArpTableHoldsTheNeighbour) {
    EXPECT_EQ(GetConnectedAddresses(), Addresses({"10.99.0.1"}));
}

TEST(DISABLED_NamespaceAny, InterfacesAreLoopbackAndTheLinkUnfiltered) {
    EXPECT_EQ(GetNetInterfaceAddresses(),
              (std::vector<NetInterface>{Interface("127.0.0.1", "255.0.0.0"), Interface("10.99.0.2", "255.255.255.0")}));
}

class DISABLED_NamespaceAnyVisa : public test::WithFakeVisa {};

TEST_F(DISABLED_NamespaceAnyVisa, ConnectToASilentAddressIsFalseWithoutTouchingVisa) {
    Visa::Init();
    fake.ClearCalls();
    VisaConnection connection("TCPIP0::10.99.0.1::INSTR");
    EXPECT_FALSE(connection.Connect());
    EXPECT_FALSE(connection.Ping());
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(fake.Calls(), "");
}

TEST_F(DISABLED_NamespaceAnyVisa, ConnectToAnAnsweringAddressOpens) {
    Visa::Init();
    fake.ClearCalls();
    VisaConnection connection("TCPIP0::10.99.0.2::5025::SOCKET");
    EXPECT_TRUE(connection.Connect());
    EXPECT_EQ(fake.CallsStartingWith("viOpen "), std::vector<std::string>{"viOpen 1 TCPIP0::10.99.0.2::5025::SOCKET 0 200"});
}

} // namespace
} // namespace nrq
