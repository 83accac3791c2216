#if defined(HVX_SCPI_SIM_AVAILABLE)

#include "support/LoopbackClient.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

// halvex-sim run as a child whose standard output the test reads line by line.
class SimProcess {
public:
    explicit SimProcess(std::vector<std::string> args) {
        int pipeFds[2];
        if (::pipe(pipeFds) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
        args.insert(args.begin(), HVX_SIM_PATH);
        std::vector<char*> argv;
        for (std::string& arg : args)
            argv.push_back(arg.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, HVX_SIM_PATH, &actions, nullptr, argv.data(), environ) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(pipeFds[1]);
        output_ = ::fdopen(pipeFds[0], "r");
    }
    ~SimProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        if (output_)
            std::fclose(output_);
    }

    std::string ReadLine() {
        char line[512];
        return output_ && std::fgets(line, sizeof line, output_) ? std::string(line) : std::string();
    }

    // Sends the signal and gives the exit status.
    int Stop(int signal) {
        ::kill(pid_, signal);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t pid_ = -1;
    FILE* output_ = nullptr;
};

uint16_t PortOf(const std::string& listening) {
    const size_t colon = listening.rfind(':');
    return static_cast<uint16_t>(std::stoul(listening.substr(colon + 1)));
}

TEST(HalvexSimTest, ServesTheAnalyzerUntilTerminated) {
    SimProcess sim({"scpi", "--port", "0", "--dialect", "charlie", "--seed", "7"});
    const std::string listening = sim.ReadLine();
    ASSERT_EQ(listening.rfind("scpi: listening on 127.0.0.1:", 0), 0u) << listening;
    ASSERT_EQ(listening.substr(listening.find(", ")), ", dialect charlie\n");
    const uint16_t port = PortOf(listening.substr(0, listening.find(',', 20)));
    {
        nrq::test::LoopbackClient client(port);
        EXPECT_EQ(client.Query("*IDN?"), "Charlie Electronics,CSA815,CSA8150A0042,3.1.4\n");
        EXPECT_EQ(client.Query("SWE:POIN?"), "751\n");
    }
    EXPECT_EQ(sim.Stop(SIGTERM), 0);
    EXPECT_EQ(sim.ReadLine(), "scpi: stopped\n");
}

TEST(HalvexSimTest, StopsOnInterrupt) {
    SimProcess sim({"scpi"});
    const std::string listening = sim.ReadLine();
    EXPECT_NE(listening.find(", dialect default\n"), std::string::npos) << listening;
    EXPECT_EQ(sim.Stop(SIGINT), 0);
}

TEST(HalvexSimTest, HelpDescribesOptionsExampleAndExitStatus) {
    std::string output;
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH) + " scpi --help", output), 0);
    for (const char* part : {"--port UINT=0", "--dialect", "--seed UINT=1", "halvex-sim scpi --port 5025 --dialect bravo",
                             "Exit status: 0 after SIGINT or SIGTERM"})
        EXPECT_NE(output.find(part), std::string::npos) << part << "\n" << output;
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH) + " --help", output), 0);
    EXPECT_NE(output.find("scpi"), std::string::npos);
}

TEST(HalvexSimTest, ListsTheDialects) {
    std::string output;
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH) + " --list-dialects", output), 0);
    for (const char* name : {"alpha: ", "bravo: ", "charlie: ", "delta: ", "echo: "})
        EXPECT_NE(output.find(std::string("\n") + name), std::string::npos) << name;
    EXPECT_EQ(output.rfind("default: ", 0), 0u);
    EXPECT_NE(output.find("\necho: "), std::string::npos);
}

TEST(HalvexSimTest, UsageErrorsExitWithTwo) {
    std::string output;
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH) + " scpi --dialect zulu", output), 2);
    EXPECT_NE(output.find("zulu"), std::string::npos);
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH) + " scpi --port nope", output), 2);
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH), output), 2);
}

TEST(HalvexSimTest, PortInUseExitsWithOne) {
    SimProcess first({"scpi"});
    const std::string listening = first.ReadLine();
    const std::string port = std::to_string(PortOf(listening.substr(0, listening.find(',', 20))));
    std::string output;
    EXPECT_EQ(nrq::test::RunCommand(std::string(HVX_SIM_PATH) + " scpi --port " + port, output), 1);
    EXPECT_NE(output.find("halvex-sim scpi: bind 127.0.0.1"), std::string::npos) << output;
}

} // namespace

#endif
