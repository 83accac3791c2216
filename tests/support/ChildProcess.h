#pragma once

// A child process whose stdout and stderr come through one pipe, read as they
// come, so that a test can wait for a line before it acts (no sleeps).

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace nrq::test {

class ChildProcess {
public:
    // `argv[0]` is the program's path; `extraEnvironment` holds "NAME=VALUE"
    // entries that replace or join the test's own environment.
    explicit ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnvironment = {}) {
        int fds[2];
        if (::pipe(fds) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        posix_spawn_file_actions_addclose(&actions, fds[1]);
        std::vector<char*> arguments;
        for (const std::string& argument : argv)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        std::vector<std::string> environment = Environment(extraEnvironment);
        std::vector<char*> environmentPointers;
        for (std::string& entry : environment)
            environmentPointers.push_back(entry.data());
        environmentPointers.push_back(nullptr);
        spawned = posix_spawnp(&pid, argv.at(0).c_str(), &actions, nullptr, arguments.data(),
                               environmentPointers.data()) == 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        pipe = fds[0];
    }
    ~ChildProcess() {
        if (pipe >= 0)
            ::close(pipe);
        if (spawned && !reaped) {
            ::kill(pid, SIGKILL);
            int status = 0;
            ::waitpid(pid, &status, 0);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Reads until `text` has come, or the output ends; true when it came.
    bool ReadUntil(const std::string& text) {
        while (output.find(text) == std::string::npos)
            if (!ReadSome())
                return false;
        return true;
    }
    // Reads the rest and waits for the exit; the exit code, or -1 for a signal.
    int Finish() {
        while (ReadSome()) {
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        reaped = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    bool spawned = false;
    pid_t pid = -1;
    std::string output;

private:
    static std::vector<std::string> Environment(const std::vector<std::string>& extra) {
        std::vector<std::string> environment;
        for (char** entry = environ; *entry; ++entry) {
            const std::string text(*entry);
            const std::string name = text.substr(0, text.find('=') + 1);
            bool replaced = false;
            for (const std::string& added : extra)
                replaced = replaced || added.rfind(name, 0) == 0;
            if (!replaced)
                environment.push_back(text);
        }
        environment.insert(environment.end(), extra.begin(), extra.end());
        return environment;
    }

    bool ReadSome() {
        char buffer[4096];
        const ssize_t got = ::read(pipe, buffer, sizeof(buffer));
        if (got <= 0)
            return false;
        output.append(buffer, static_cast<size_t>(got));
        return true;
    }

    int pipe = -1;
    bool reaped = false;
};

} // namespace nrq::test
