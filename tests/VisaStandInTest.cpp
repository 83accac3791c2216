#if defined(HVX_SCPI_SIM_AVAILABLE)

#include "hvxsim/ScpiSimulator.h"
#include "hvxvisa/VisaTypes.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace {

using namespace hvxvisa;
using hvxsim::ScpiSimulator;
using hvxsim::ScpiSimulatorOptions;

// The 15 entry points, looked up by name in the stand-in loaded by its full path.
struct VisaLibrary {
    void* handle = nullptr;
    ViStatus (*viOpenDefaultRM)(ViPSession) = nullptr;
    ViStatus (*viFindRsrc)(ViSession, ViConstString, ViPFindList, ViPUInt32, ViChar*) = nullptr;
    ViStatus (*viFindNext)(ViFindList, ViChar*) = nullptr;
    ViStatus (*viOpen)(ViSession, ViConstRsrc, ViAccessMode, ViUInt32, ViPSession) = nullptr;
    ViStatus (*viClose)(ViObject) = nullptr;
    ViStatus (*viSetAttribute)(ViObject, ViAttr, ViAttrState) = nullptr;
    ViStatus (*viGetAttribute)(ViObject, ViAttr, void*) = nullptr;
    ViStatus (*viStatusDesc)(ViObject, ViStatus, ViChar*) = nullptr;
    ViStatus (*viTerminate)(ViObject, ViUInt16, ViJobId) = nullptr;
    ViStatus (*viRead)(ViSession, ViPBuf, ViUInt32, ViPUInt32) = nullptr;
    ViStatus (*viReadAsync)(ViSession, ViPBuf, ViUInt32, ViPJobId) = nullptr;
    ViStatus (*viWrite)(ViSession, ViConstBuf, ViUInt32, ViPUInt32) = nullptr;
    ViStatus (*viWriteAsync)(ViSession, ViConstBuf, ViUInt32, ViPJobId) = nullptr;
    ViStatus (*viClear)(ViSession) = nullptr;
    ViStatus (*viFlush)(ViSession, ViUInt16) = nullptr;

    VisaLibrary() {
        handle = ::dlopen(HVX_VISA_STANDIN_DIR "/libvisa.so", RTLD_NOW | RTLD_LOCAL);
        if (!handle)
            return;
        Bind(viOpenDefaultRM, "viOpenDefaultRM");
        Bind(viFindRsrc, "viFindRsrc");
        Bind(viFindNext, "viFindNext");
        Bind(viOpen, "viOpen");
        Bind(viClose, "viClose");
        Bind(viSetAttribute, "viSetAttribute");
        Bind(viGetAttribute, "viGetAttribute");
        Bind(viStatusDesc, "viStatusDesc");
        Bind(viTerminate, "viTerminate");
        Bind(viRead, "viRead");
        Bind(viReadAsync, "viReadAsync");
        Bind(viWrite, "viWrite");
        Bind(viWriteAsync, "viWriteAsync");
        Bind(viClear, "viClear");
        Bind(viFlush, "viFlush");
    }

    template <typename F>
    void Bind(F& slot, const char* name) {
        slot = reinterpret_cast<F>(::dlsym(handle, name));
    }
};

// Loaded once for the process, as the library loads its VISA.
VisaLibrary& Visa() {
    static VisaLibrary library;
    return library;
}

// Sets an environment variable for one test.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() {
        if (old_)
            ::setenv(name_, old_->c_str(), 1);
        else
            ::unsetenv(name_);
    }

private:
    const char* name_;
    std::optional<std::string> old_;
};

std::string SocketResource(uint16_t port, const std::string& host = "127.0.0.1") {
    return "TCPIP0::" + host + "::" + std::to_string(port) + "::SOCKET";
}

ScpiSimulatorOptions Quick(const std::string& dialect = "default") {
    ScpiSimulatorOptions options;
    options.dialect = dialect;
    options.identifyDelay = std::chrono::milliseconds(0);
    return options;
}

// A port nobody listens on: bound once, then given back.
uint16_t ClosedPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

class VisaStandInTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(Visa().handle, nullptr) << ::dlerror();
        ASSERT_EQ(Visa().viOpenDefaultRM(&rm_), kViSuccess);
    }
    void TearDown() override {
        if (rm_ != kViNull)
            Visa().viClose(rm_);
    }

    ViSession Open(const std::string& resource) {
        ViSession session = kViNull;
        EXPECT_EQ(Visa().viOpen(rm_, resource.c_str(), 0, 200, &session), kViSuccess) << resource;
        return session;
    }

    ViStatus Write(ViSession session, const std::string& text) {
        ViUInt32 written = 0;
        const ViStatus status =
            Visa().viWrite(session, reinterpret_cast<ViConstBuf>(text.data()), static_cast<ViUInt32>(text.size()), &written);
        EXPECT_EQ(written, text.size());
        return status;
    }

    ViStatus Read(ViSession session, ViUInt32 count, std::string& text) {
        std::string buffer(count, '\0');
        ViUInt32 got = 0;
        const ViStatus status = Visa().viRead(session, reinterpret_cast<ViPBuf>(buffer.data()), count, &got);
        text = buffer.substr(0, got);
        return status;
    }

    void UseTermChar(ViSession session) {
        ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTermcharEn, 1), kViSuccess);
        ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTmoValue, 5000), kViSuccess);
    }

    ViSession rm_ = kViNull;
};

TEST_F(VisaStandInTest, ExportsAllFifteenEntryPoints) {
    const VisaLibrary& visa = Visa();
    EXPECT_TRUE(visa.viOpenDefaultRM && visa.viFindRsrc && visa.viFindNext && visa.viOpen && visa.viClose);
    EXPECT_TRUE(visa.viSetAttribute && visa.viGetAttribute && visa.viStatusDesc && visa.viTerminate && visa.viRead);
    EXPECT_TRUE(visa.viReadAsync && visa.viWrite && visa.viWriteAsync && visa.viClear && visa.viFlush);
}

TEST_F(VisaStandInTest, OpensWritesReadsAndCloses) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    ASSERT_NE(session, kViNull);
    UseTermChar(session);
    EXPECT_EQ(Write(session, "*IDN?\n"), kViSuccess);
    std::string reply;
    EXPECT_EQ(Read(session, 2048, reply), kViSuccessTermChar);
    EXPECT_EQ(reply, "Halvex Simulation,SIM-SA3000,SIM000001,1.0.0\n");
    EXPECT_EQ(Visa().viClose(session), kViSuccess);
    EXPECT_EQ(Visa().viClose(session), kViErrorInvObject);
    EXPECT_EQ(Visa().viRead(session, nullptr, 0, nullptr), kViErrorInvObject);
}

TEST_F(VisaStandInTest, AcceptsEachSocketAddressForm) {
    ScpiSimulator sim(Quick());
    const std::string port = std::to_string(sim.Port());
    for (const std::string& resource : {"TCPIP0::127.0.0.1::" + port + "::SOCKET", "TCPIP::127.0.0.1::" + port + "::SOCKET",
                                       "TCPIP3::localhost::" + port + "::SOCKET", "tcpip0::LocalHost::" + port + "::socket"}) {
        const ViSession session = Open(resource);
        ASSERT_NE(session, kViNull) << resource;
        UseTermChar(session);
        Write(session, "*OPC?\n");
        std::string reply;
        EXPECT_EQ(Read(session, 64, reply), kViSuccessTermChar) << resource;
        EXPECT_EQ(reply, "1\n");
        char name[kViFindBufLen] = {};
        EXPECT_EQ(Visa().viGetAttribute(session, kViAttrRsrcName, name), kViSuccess);
        EXPECT_EQ(std::string(name), resource);
        char address[kViFindBufLen] = {};
        EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTcpipAddr, address), kViSuccess);
        EXPECT_EQ(std::string(address), "127.0.0.1");
        ViUInt16 tcpPort = 0;
        EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTcpipPort, &tcpPort), kViSuccess);
        EXPECT_EQ(tcpPort, sim.Port());
        EXPECT_EQ(Visa().viClose(session), kViSuccess);
    }
}

TEST_F(VisaStandInTest, RefusesMalformedAndUnreachableResources) {
    struct Case {
        std::string resource;
        ViStatus status;
    };
    const Case cases[] = {
        {"garbage", kViErrorInvRsrcName},
        {"", kViErrorInvRsrcName},
        {"TCPIP0::127.0.0.1::SOCKET", kViErrorInvRsrcName},
        {"TCPIP0::127.0.0.1::0::SOCKET", kViErrorInvRsrcName},
        {"TCPIP0::127.0.0.1::65536::SOCKET", kViErrorInvRsrcName},
        {"TCPIP0::127.0.0.1::50x5::SOCKET", kViErrorInvRsrcName},
        {"TCPIP0::::5025::SOCKET", kViErrorInvRsrcName},
        {"TCPIPX::127.0.0.1::5025::SOCKET", kViErrorInvRsrcName},
        {"TCPIP0::127.0.0.1::5025::RAW", kViErrorInvRsrcName},
        {"TCPIP0::127.0.0.1::INSTR", kViErrorRsrcNfound},
        {"TCPIP0::127.0.0.1::inst0::INSTR", kViErrorRsrcNfound},
        {"USB0::0x1234::0x5678::SN42::INSTR", kViErrorRsrcNfound},
        {"GPIB0::12::INSTR", kViErrorRsrcNfound},
        {SocketResource(ClosedPort()), kViErrorRsrcNfound},
    };
    for (const Case& c : cases) {
        ViSession session = 77;
        EXPECT_EQ(Visa().viOpen(rm_, c.resource.c_str(), 0, 200, &session), c.status) << c.resource;
        EXPECT_EQ(session, kViNull) << c.resource;
    }
}

TEST_F(VisaStandInTest, OpenNeedsAResourceManagerSession) {
    ScpiSimulator sim(Quick());
    ViSession session = kViNull;
    EXPECT_EQ(Visa().viOpen(12345, SocketResource(sim.Port()).c_str(), 0, 200, &session), kViErrorInvObject);
    EXPECT_EQ(Visa().viOpen(rm_, SocketResource(sim.Port()).c_str(), 0x100, 200, &session), kViErrorInvAccMode);
}

TEST_F(VisaStandInTest, ReadStopsAtTheTerminationCharacterAndKeepsTheRest) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    UseTermChar(session);
    Write(session, "*IDN?;*OPC?\n");
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTermchar, ','), kViSuccess);
    std::string part;
    EXPECT_EQ(Read(session, 2048, part), kViSuccessTermChar);
    EXPECT_EQ(part, "Halvex Simulation,");
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTermchar, '\n'), kViSuccess);
    EXPECT_EQ(Read(session, 2048, part), kViSuccessTermChar);
    EXPECT_EQ(part, "SIM-SA3000,SIM000001,1.0.0;1\n");
    ViUInt8 termChar = 0;
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTermchar, &termChar), kViSuccess);
    EXPECT_EQ(termChar, '\n');
}

TEST_F(VisaStandInTest, ReadThatFillsTheBufferReportsMaxCount) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    UseTermChar(session);
    Write(session, "*IDN?\n");
    std::string part;
    EXPECT_EQ(Read(session, 5, part), kViSuccessMaxCnt);
    EXPECT_EQ(part, "Halve");
    EXPECT_EQ(Read(session, 2048, part), kViSuccessTermChar);
    EXPECT_EQ(part, "x Simulation,SIM-SA3000,SIM000001,1.0.0\n");
}

TEST_F(VisaStandInTest, BinaryBlockReadsWithTheTerminationCharacterOff) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTermcharEn, 0), kViSuccess);
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTmoValue, 5000), kViSuccess);
    Write(session, "TRAC:DATA? TRACE1\n");
    std::string block;
    EXPECT_EQ(Read(session, 6 + 4004 + 1, block), kViSuccessMaxCnt);
    EXPECT_EQ(block, sim.LastTraceReply());
}

TEST_F(VisaStandInTest, ReadTimesOutWithWhatArrived) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTmoValue, 100), kViSuccess);
    // Without the termination character the reply cannot end the read.
    Write(session, "*OPC?\n");
    std::string part;
    EXPECT_EQ(Read(session, 64, part), kViErrorTmo);
    EXPECT_EQ(part, "1\n");
}

TEST_F(VisaStandInTest, SlowIdentityTimesOut) {
    ScpiSimulatorOptions options = Quick("delta");
    options.identifyDelay = std::chrono::hours(1);
    ScpiSimulator sim(options);
    const ViSession session = Open(SocketResource(sim.Port()));
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTermcharEn, 1), kViSuccess);
    ASSERT_EQ(Visa().viSetAttribute(session, kViAttrTmoValue, 50), kViSuccess);
    ViUInt32 timeout = 0;
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTmoValue, &timeout), kViSuccess);
    EXPECT_EQ(timeout, 50u);
    Write(session, "*IDN?\n");
    std::string reply;
    EXPECT_EQ(Read(session, 256, reply), kViErrorTmo);
    EXPECT_EQ(reply, "");
    sim.Stop();
}

TEST_F(VisaStandInTest, LostLinkIsReported) {
    ScpiSimulator sim(Quick());
    sim.DropLinkAfterSweeps(0);
    const ViSession session = Open(SocketResource(sim.Port()));
    UseTermChar(session);
    Write(session, "TRAC:DATA? TRACE1\n");
    std::string reply;
    EXPECT_EQ(Read(session, 256, reply), kViErrorConnLost);
    EXPECT_EQ(reply, "");
}

TEST_F(VisaStandInTest, RunsOutOfSessions) {
    ScpiSimulator sim(Quick());
    ScopedEnv limit(kMaxSessionsVariable, "2");
    const ViSession first = Open(SocketResource(sim.Port()));
    ASSERT_NE(first, kViNull);
    ViSession second = 99;
    EXPECT_EQ(Visa().viOpen(rm_, SocketResource(sim.Port()).c_str(), 0, 200, &second), kViErrorAlloc);
    EXPECT_EQ(second, kViNull);
    ViSession manager = 99;
    EXPECT_EQ(Visa().viOpenDefaultRM(&manager), kViErrorAlloc);
    ViFindList list = 99;
    EXPECT_EQ(Visa().viFindRsrc(rm_, "?*", &list, nullptr, nullptr), kViErrorAlloc);
    // Closing a session makes room again.
    EXPECT_EQ(Visa().viClose(first), kViSuccess);
    EXPECT_EQ(Visa().viOpenDefaultRM(&manager), kViSuccess);
    EXPECT_EQ(Visa().viClose(manager), kViSuccess);
}

TEST_F(VisaStandInTest, FindsResourcesFromTheEnvironmentList) {
    ScopedEnv list(kResourcesVariable,
                   "TCPIP0::192.0.2.7::5025::SOCKET; USB0::0x1234::0x5678::SN42::INSTR ,TCPIP0::localhost::5025::SOCKET,,");
    ViFindList find = kViNull;
    ViUInt32 count = 0;
    char description[kViFindBufLen] = {};
    ASSERT_EQ(Visa().viFindRsrc(rm_, "?*", &find, &count, description), kViSuccess);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(std::string(description), "TCPIP0::192.0.2.7::5025::SOCKET");
    EXPECT_EQ(Visa().viFindNext(find, description), kViSuccess);
    EXPECT_EQ(std::string(description), "USB0::0x1234::0x5678::SN42::INSTR");
    EXPECT_EQ(Visa().viFindNext(find, description), kViSuccess);
    EXPECT_EQ(std::string(description), "TCPIP0::localhost::5025::SOCKET");
    EXPECT_EQ(Visa().viFindNext(find, description), kViErrorRsrcNfound);
    EXPECT_EQ(Visa().viClose(find), kViSuccess);

    ASSERT_EQ(Visa().viFindRsrc(rm_, "tcpip?*socket", &find, &count, description), kViSuccess);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(Visa().viClose(find), kViSuccess);
    ASSERT_EQ(Visa().viFindRsrc(rm_, "TCPIP0::localhost::5025::SOCKET", &find, &count, description), kViSuccess);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(Visa().viClose(find), kViSuccess);
    ASSERT_EQ(Visa().viFindRsrc(rm_, "(USB|GPIB)?*INSTR", &find, &count, description), kViSuccess);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(Visa().viClose(find), kViSuccess);
}

TEST_F(VisaStandInTest, FindWithoutMatchesIsNotFoundAndItsHandleCloses) {
    ScopedEnv list(kResourcesVariable, "TCPIP0::localhost::5025::SOCKET");
    ViFindList find = kViNull;
    ViUInt32 count = 7;
    char description[kViFindBufLen] = "x";
    EXPECT_EQ(Visa().viFindRsrc(rm_, "GPIB?*INSTR", &find, &count, description), kViErrorRsrcNfound);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(std::string(description), "");
    EXPECT_NE(find, kViNull);
    EXPECT_EQ(Visa().viClose(find), kViSuccess);
    EXPECT_EQ(Visa().viFindRsrc(rm_, "[", &find, &count, description), kViErrorInvExpr);
    EXPECT_EQ(Visa().viFindRsrc(9999, "?*", &find, &count, description), kViErrorInvObject);
}

TEST_F(VisaStandInTest, FindWithoutTheVariableFindsNothing) {
    ::unsetenv(kResourcesVariable);
    ViFindList find = kViNull;
    ViUInt32 count = 0;
    EXPECT_EQ(Visa().viFindRsrc(rm_, "?*", &find, &count, nullptr), kViErrorRsrcNfound);
    Visa().viClose(find);
}

TEST_F(VisaStandInTest, StatusDescriptionsNameTheCode) {
    char text[kViFindBufLen] = {};
    EXPECT_EQ(Visa().viStatusDesc(rm_, kViErrorTmo, text), kViSuccess);
    EXPECT_EQ(std::string(text), "VI_ERROR_TMO: Timeout expired before operation completed.");
    EXPECT_EQ(Visa().viStatusDesc(rm_, kViErrorAlloc, text), kViSuccess);
    EXPECT_EQ(std::string(text), "VI_ERROR_ALLOC: Insufficient system resources to perform necessary memory allocation.");
    EXPECT_EQ(Visa().viStatusDesc(rm_, kViSuccessTermChar, text), kViSuccess);
    EXPECT_EQ(std::string(text), "VI_SUCCESS_TERM_CHAR: The specified termination character was read.");
    EXPECT_EQ(Visa().viStatusDesc(rm_, kViErrorRsrcNfound, text), kViSuccess);
    EXPECT_EQ(std::string(text), "VI_ERROR_RSRC_NFOUND: Insufficient location information or the requested device or "
                                 "resource is not present in the system.");
    EXPECT_EQ(Visa().viStatusDesc(rm_, 0x12345, text), kViWarnUnknownStatus);
    EXPECT_EQ(std::string(text), "Unknown status code 0x00012345.");
}

TEST_F(VisaStandInTest, AttributesReadBackAndRefuseWhatTheyCannotTake) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    ViSession manager = kViNull;
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrRmSession, &manager), kViSuccess);
    EXPECT_EQ(manager, rm_);
    EXPECT_EQ(Visa().viGetAttribute(rm_, kViAttrRmSession, &manager), kViSuccess);
    EXPECT_EQ(manager, rm_);
    ViBoolean enabled = 9;
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTermcharEn, &enabled), kViSuccess);
    EXPECT_EQ(enabled, kViFalse);
    EXPECT_EQ(Visa().viSetAttribute(session, kViAttrTermcharEn, 1), kViSuccess);
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTermcharEn, &enabled), kViSuccess);
    EXPECT_EQ(enabled, kViTrue);
    EXPECT_EQ(Visa().viSetAttribute(session, kViAttrTermcharEn, 5), kViErrorNsupAttrState);
    EXPECT_EQ(Visa().viSetAttribute(session, kViAttrTermchar, 256), kViErrorNsupAttrState);
    EXPECT_EQ(Visa().viSetAttribute(session, kViAttrRmSession, 1), kViErrorAttrReadonly);
    EXPECT_EQ(Visa().viSetAttribute(session, 0x3FFF0999u, 1), kViErrorNsupAttr);
    EXPECT_EQ(Visa().viSetAttribute(rm_, kViAttrTmoValue, 1), kViErrorNsupAttr);
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrTmoValue, nullptr), kViErrorUserBuf);
    ViUInt16 type = 0;
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrIntfType, &type), kViSuccess);
    EXPECT_EQ(type, kViIntfTcpip);
}

TEST_F(VisaStandInTest, ClosingTheResourceManagerClosesItsSessions) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    EXPECT_EQ(Visa().viClose(rm_), kViSuccess);
    rm_ = kViNull;
    ViSession manager = kViNull;
    EXPECT_EQ(Visa().viGetAttribute(session, kViAttrRmSession, &manager), kViErrorInvObject);
    EXPECT_EQ(Visa().viClose(session), kViErrorInvObject);
    EXPECT_EQ(Visa().viClose(kViNull), kViWarnNullObject);
}

TEST_F(VisaStandInTest, ClearAndFlushDropUnreadInput) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    UseTermChar(session);
    Write(session, "*IDN?;*OPC?\n");
    std::string part;
    EXPECT_EQ(Read(session, 5, part), kViSuccessMaxCnt);
    EXPECT_EQ(Visa().viFlush(session, kViReadBufDiscard), kViSuccess);
    Write(session, "SWE:POIN?\n");
    EXPECT_EQ(Read(session, 256, part), kViSuccessTermChar);
    EXPECT_EQ(part, "1001\n");
    EXPECT_EQ(Visa().viFlush(session, 0), kViErrorInvMask);
    EXPECT_EQ(Visa().viFlush(session, kViWriteBuf), kViSuccess);
    EXPECT_EQ(Visa().viClear(session), kViSuccess);
    EXPECT_EQ(Visa().viClear(rm_), kViErrorNsupOper);
    EXPECT_EQ(Visa().viClear(4242), kViErrorInvObject);
}

TEST_F(VisaStandInTest, AsynchronousOperationsAreNotSupported) {
    ScpiSimulator sim(Quick());
    const ViSession session = Open(SocketResource(sim.Port()));
    ViJobId job = 5;
    ViUInt8 buffer[4];
    EXPECT_EQ(Visa().viReadAsync(session, buffer, 4, &job), kViErrorNsupOper);
    EXPECT_EQ(Visa().viWriteAsync(session, buffer, 4, &job), kViErrorNsupOper);
    EXPECT_EQ(Visa().viTerminate(session, 0, job), kViErrorNsupOper);
    EXPECT_EQ(Visa().viTerminate(4242, 0, job), kViErrorInvObject);
}

} // namespace

#endif
