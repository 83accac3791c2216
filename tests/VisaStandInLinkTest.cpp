// The library's VISA binding and VisaConnection against the stand-in VISA
// library and the simulated analyzer: two independent peers, over loopback.
#include "HVX/Visa/Visa.h"
#include "HVX/Visa/VisaConnection.h"
#include "HVX/Visa/VisaDetail.h"

#include <gtest/gtest.h>

#if defined(HVX_SCPI_SIM_AVAILABLE)

#include "hvxsim/ScpiSimulator.h"

#include <fmt/format.h>

#include <chrono>
#include <string>

namespace nrq {
namespace {

class VisaStandInLink : public ::testing::Test {
protected:
    void SetUp() override {
        Visa::detail::Reset();
        Visa::detail::SetLibraryDirectory(HVX_VISA_STANDIN_DIR);
        Visa::Init();
        ASSERT_TRUE(Visa::IsInitialised());
    }
    void TearDown() override {
        Visa::Terminate();
        Visa::detail::Reset();
    }
};

TEST_F(VisaStandInLink, IdentityOfTheSimulatedAnalyzerThroughASocketResource) {
    hvxsim::ScpiSimulatorOptions options;
    options.dialect = "bravo";
    hvxsim::ScpiSimulator simulator(options);
    VisaConnection link(fmt::format("TCPIP0::127.0.0.1::{}::SOCKET", simulator.Port()));
    ASSERT_TRUE(link.Connect());
    EXPECT_TRUE(link.IsConnected());
    const std::string query = "*IDN?\n";
    EXPECT_EQ(link.Write(query.data(), query.size()), query.size());
    const hvxsim::ScpiDialect& dialect = simulator.Dialect();
    EXPECT_EQ(link.ReadData(std::chrono::seconds(10)),
              fmt::format("{},{},{},{}\n", dialect.manufacturer, dialect.model, dialect.serial, dialect.firmware));
    link.Disconnect();
    EXPECT_FALSE(link.IsConnected());
}

TEST_F(VisaStandInLink, APortWithoutAnInstrumentDoesNotConnect) {
    uint16_t closedPort = 0;
    {
        hvxsim::ScpiSimulator gone;
        closedPort = gone.Port();
    }
    VisaConnection link(fmt::format("TCPIP0::127.0.0.1::{}::SOCKET", closedPort));
    EXPECT_FALSE(link.Connect());
    EXPECT_FALSE(link.IsConnected());
}

} // namespace
} // namespace nrq

#endif
