#include "HVX/Base/Error.h"
#include "HVX/Visa/Visa.h"
#include "HVX/Visa/VisaConnection.h"
#include "HVX/Visa/VisaDetail.h"
#include "support/FakeVisa.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace nrq {
namespace {

using namespace std::chrono_literals;
using namespace test;

std::string Attr(uint32_t attribute) { return std::to_string(attribute); }

asio::ip::address_v4 Address(const char* text) { return asio::ip::make_address_v4(text); }

// ---- the resource string

TEST(VisaAddress, InstrumentResourceHasANumericAddressAndNoSocket) {
    const VisaAddressInfo info = ParseVisaAddress("TCPIP0::127.0.0.5::INSTR");
    ASSERT_TRUE(info.address);
    EXPECT_EQ(*info.address, Address("127.0.0.5"));
    EXPECT_FALSE(info.usingSocket);
}

TEST(VisaAddress, SocketResourceHasANumericAddressAndASocket) {
    const VisaAddressInfo info = ParseVisaAddress("TCPIP0::127.0.0.5::5025::SOCKET");
    ASSERT_TRUE(info.address);
    EXPECT_EQ(*info.address, Address("127.0.0.5"));
    EXPECT_TRUE(info.usingSocket);
}

TEST(VisaAddress, DeviceNameBetweenAddressAndClassIsAllowed) {
    for (const char* resource : {"TCPIP0::127.0.0.7::inst0::INSTR", "TCPIP12::127.0.0.7::hislip0::INSTR"}) {
        const VisaAddressInfo info = ParseVisaAddress(resource);
        ASSERT_TRUE(info.address) << resource;
        EXPECT_EQ(*info.address, Address("127.0.0.7"));
        EXPECT_FALSE(info.usingSocket);
    }
}

TEST(VisaAddress, HostNameLeavesTheAddressEmpty) {
    const VisaAddressInfo instrument = ParseVisaAddress("TCPIP0::instrument.local::INSTR");
    EXPECT_FALSE(instrument.address);
    EXPECT_FALSE(instrument.usingSocket);
    const VisaAddressInfo socket = ParseVisaAddress("TCPIP0::analyzer-3::5025::SOCKET");
    EXPECT_FALSE(socket.address);
    EXPECT_TRUE(socket.usingSocket);
}

TEST(VisaAddress, AnAddressOutOfRangeIsNoAddress) {
    EXPECT_FALSE(ParseVisaAddress("TCPIP0::999.1.1.1::INSTR").address);
    EXPECT_FALSE(ParseVisaAddress("TCPIP0::1.2.3::INSTR").address);
}

TEST(VisaAddress, OnlyTheExactClassSocketMeansASocket) {
    const VisaAddressInfo info = ParseVisaAddress("TCPIP0::127.0.0.5::5025::SOCKETS");
    EXPECT_TRUE(info.address);
    EXPECT_FALSE(info.usingSocket);
}

TEST(VisaAddress, ResourcesOutsideTheFormHaveNothing) {
    for (const char* resource :
         {"USB0::0x0957::0x1796::MY12345678::INSTR", "ASRL1::INSTR", "GPIB0::7::INSTR", "TCPIP::127.0.0.5::INSTR",
          "TCPIP0::127.0.0.5::instr", "TCPIP0::127.0.0.5::INSTR extra", " TCPIP0::127.0.0.5::INSTR",
          "TCPIP0::127.0.0.5::a::b::INSTR", "TCPIP0::127.0.0.5::inst-0::INSTR", "TCPIP0::::INSTR",
          "TCPIP0::127.0.0.5", "tcpip0::127.0.0.5::INSTR", ""}) {
        const VisaAddressInfo info = ParseVisaAddress(resource);
        EXPECT_FALSE(info.address) << resource;
        EXPECT_FALSE(info.usingSocket) << resource;
    }
}

TEST(VisaConnection, ConstructorKeepsTheAddressAndOpensNothing) {
    const VisaConnection connection("TCPIP0::127.0.0.5::5025::SOCKET");
    EXPECT_EQ(connection.GetAddress(), "TCPIP0::127.0.0.5::5025::SOCKET");
    EXPECT_TRUE(connection.UsingSocket());
    EXPECT_EQ(connection.GetSession(), 0u);
    EXPECT_FALSE(VisaConnection("USB0::1::INSTR").UsingSocket());
}

// ---- without a VISA library

class VisaConnectionWithoutVisa : public ::testing::Test {
protected:
    void SetUp() override {
        Visa::detail::Reset();
        Visa::detail::SetLibraryDirectory(MakeTempDir("no-visa").string());
        StartFreshLog();
        Visa::Init();
    }
    void TearDown() override { Visa::detail::Reset(); }
};

TEST_F(VisaConnectionWithoutVisa, ConnectPassesTheMissingLibraryError) {
    VisaConnection usb("USB0::0x0957::0x1796::MY1::INSTR");
    EXPECT_THROW(usb.Connect(), Error);
    VisaConnection loopback("TCPIP0::127.0.0.1::INSTR");
    EXPECT_THROW(loopback.Connect(), Error);
    EXPECT_FALSE(usb.IsConnected());
}

TEST_F(VisaConnectionWithoutVisa, PingOfAHostNameAsksVisaAndFindsNothing) {
    VisaConnection connection("TCPIP0::instrument.local::INSTR");
    EXPECT_FALSE(connection.Ping());
}

TEST_F(VisaConnectionWithoutVisa, PingOfANumericAddressIsAnEcho) {
    VisaConnection connection("TCPIP0::127.0.0.1::5025::SOCKET");
    EXPECT_TRUE(connection.Ping());
}

// ---- with the stand-in library

class VisaConnectionWithFake : public WithFakeVisa {
protected:
    void SetUp() override {
        WithFakeVisa::SetUp();
        Visa::Init();
        fake.ClearCalls();
    }
};

TEST_F(VisaConnectionWithFake, ConnectOfALoopbackSocketPingsThenOpens) {
    VisaConnection connection("TCPIP0::127.0.0.1::5025::SOCKET");
    ASSERT_TRUE(connection.Connect());
    EXPECT_EQ(connection.GetSession(), 2u);
    EXPECT_TRUE(connection.IsConnected());
    EXPECT_EQ(fake.CallsStartingWith("viOpen "), std::vector<std::string>{"viOpen 1 TCPIP0::127.0.0.1::5025::SOCKET 0 200"});
}

TEST_F(VisaConnectionWithFake, AResourceOutsideTheFormIsSimplyOpened) {
    VisaConnection connection("USB0::0x0957::0x1796::MY1::INSTR");
    ASSERT_TRUE(connection.Connect());
    EXPECT_EQ(fake.CallsStartingWith("viOpen "),
              std::vector<std::string>{"viOpen 1 USB0::0x0957::0x1796::MY1::INSTR 0 200"});
}

TEST_F(VisaConnectionWithFake, AVisaErrorOnOpenIsFalse) {
    fake.QueueStatus("viOpen", static_cast<int32_t>(VI_ERROR_RSRC_NFOUND));
    VisaConnection connection("USB0::1::INSTR");
    EXPECT_FALSE(connection.Connect());
    EXPECT_FALSE(connection.IsConnected());
}

TEST_F(VisaConnectionWithFake, PingOfAHostNameAsksVisa) {
    fake.AddResource("TCPIP0::instrument.local::INSTR");
    VisaConnection known("TCPIP0::instrument.local::INSTR");
    EXPECT_TRUE(known.Ping());
    EXPECT_EQ(fake.CallsStartingWith("viFindRsrc"),
              std::vector<std::string>{"viFindRsrc 1 TCPIP0::instrument.local::INSTR"});
    VisaConnection unknown("TCPIP0::other.local::INSTR");
    EXPECT_FALSE(unknown.Ping());
}

TEST_F(VisaConnectionWithFake, PingOfANumericAddressLeavesVisaAlone) {
    VisaConnection connection("TCPIP0::127.0.0.1::INSTR");
    EXPECT_TRUE(connection.Ping());
    EXPECT_EQ(fake.Calls(), "");
}

TEST_F(VisaConnectionWithFake, DisconnectClosesTheSession) {
    VisaConnection connection("USB0::1::INSTR");
    ASSERT_TRUE(connection.Connect());
    connection.Disconnect();
    EXPECT_FALSE(fake.IsOpen(2));
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_NO_THROW(connection.Disconnect());
    EXPECT_EQ(fake.CallsStartingWith("viClose"), std::vector<std::string>{"viClose 2"});
}

TEST_F(VisaConnectionWithFake, TheDestructorLeavesTheSessionOpen) {
    {
        VisaConnection connection("USB0::1::INSTR");
        ASSERT_TRUE(connection.Connect());
    }
    EXPECT_TRUE(fake.IsOpen(2));
}

TEST_F(VisaConnectionWithFake, ConnectionsOpenBeforeAPurgeAreLost) {
    VisaConnection first("USB0::1::INSTR");
    VisaConnection second("USB0::2::INSTR");
    ASSERT_TRUE(first.Connect());
    ASSERT_TRUE(second.Connect());
    fake.QueueStatus("viOpen", static_cast<int32_t>(VI_ERROR_ALLOC));
    VisaConnection third("USB0::3::INSTR");
    EXPECT_FALSE(third.Connect());
    EXPECT_FALSE(first.IsConnected());
    EXPECT_FALSE(second.IsConnected());
    EXPECT_EQ(fake.CallsStartingWith("viOpenDefaultRM").size(), 1u);
}

TEST_F(VisaConnectionWithFake, ReadSetsTheTimeoutInWholeMillisecondsAndReadsOnceWithoutTermination) {
    VisaConnection connection("USB0::1::INSTR");
    ASSERT_TRUE(connection.Connect());
    fake.ClearCalls();
    fake.QueueRead("12345", VI_ERROR_TMO);
    std::array<char, 50> buffer{};
    EXPECT_EQ(connection.Read(buffer.data(), buffer.size(), 1999999ns), 5u);
    EXPECT_EQ(std::string(buffer.data(), 5), "12345");
    EXPECT_EQ(fake.Calls(), "viSetAttribute 2 " + Attr(VI_ATTR_TMO_VALUE) + " 1\n"
                            "viSetAttribute 2 " + Attr(VI_ATTR_TERMCHAR_EN) + " 0\n"
                            "viRead 2 50 termchar 0\n"
                            "viSetAttribute 2 " + Attr(VI_ATTR_TERMCHAR_EN) + " 1\n");
}

TEST_F(VisaConnectionWithFake, ReadUntilEofIsOneReadOfTheLargestCount) {
    VisaConnection connection("USB0::1::INSTR");
    ASSERT_TRUE(connection.Connect());
    fake.ClearCalls();
    fake.QueueRead("abc", 0);
    std::array<char, 8> buffer{};
    // The stand-in copies no more than it has; the count VISA is given is capped at 32 bits.
    EXPECT_EQ(connection.Read(buffer.data(), IO::READ_UNTIL_EOF, 0ns), 3u);
    EXPECT_EQ(fake.CallsStartingWith("viRead"), std::vector<std::string>{"viRead 2 4294967295 termchar 0"});
}

TEST_F(VisaConnectionWithFake, ReadDataOfExactly1024BytesRunsOneMoreReadThatTimesOut) {
    VisaConnection connection("USB0::1::INSTR");
    ASSERT_TRUE(connection.Connect());
    fake.ClearCalls();
    const std::string message(1024, 'm');
    fake.QueueRead(message, 0);
    EXPECT_EQ(connection.ReadData(250ms), message);
    EXPECT_EQ(fake.Calls(), "viSetAttribute 2 " + Attr(VI_ATTR_TMO_VALUE) + " 250\n"
                            "viRead 2 1024 termchar 1\nviRead 2 1024 termchar 1\n");
}

TEST_F(VisaConnectionWithFake, ReadDataStopsAtTheFirstShortRead) {
    VisaConnection connection("USB0::1::INSTR");
    ASSERT_TRUE(connection.Connect());
    fake.QueueRead(std::string(1024, 'a'), VI_SUCCESS_MAX_CNT);
    fake.QueueRead("end\n", VI_SUCCESS_TERM_CHAR);
    fake.QueueRead("never read", 0);
    fake.ClearCalls();
    EXPECT_EQ(connection.ReadData(1s), std::string(1024, 'a') + "end\n");
    EXPECT_EQ(fake.CallsStartingWith("viRead").size(), 2u);
}

TEST_F(VisaConnectionWithFake, WriteHandsTheBytesToVisa) {
    VisaConnection connection("USB0::1::INSTR");
    ASSERT_TRUE(connection.Connect());
    fake.ClearCalls();
    EXPECT_EQ(connection.WriteData(":FREQ:CENT 1E9\n"), 15u);
    EXPECT_EQ(fake.Calls(), "viWrite 2 :FREQ:CENT 1E9\n\n");
}

} // namespace
} // namespace nrq
