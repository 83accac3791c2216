// halvex-sim: the simulated instruments as a program, for trying the host
// and the library against something that answers like real hardware.
#include "hvxsim/ScpiSimulator.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <pthread.h>
#include <string>
#include <vector>

namespace {

constexpr int kExitUsage = 2;
constexpr int kExitFailure = 1;

const char* kFooter =
    "Exit status: 0 after SIGINT or SIGTERM, 1 when the simulator cannot start\n"
    "(e.g. the port is in use), 2 for a usage error.";

std::vector<std::string> DialectNames() {
    std::vector<std::string> names;
    for (const hvxsim::ScpiDialect& dialect : hvxsim::ScpiDialects())
        names.push_back(dialect.name);
    return names;
}

void ListDialects() {
    for (const hvxsim::ScpiDialect& dialect : hvxsim::ScpiDialects())
        std::cout << dialect.name << ": " << dialect.description << "\n";
}

// Blocks the stop signals in every thread, so that the main thread alone
// takes them with sigwait.
sigset_t BlockStopSignals() {
    // A shell starts background jobs with SIGINT ignored; an ignored signal
    // would never reach sigwait.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int RunScpi(const hvxsim::ScpiSimulatorOptions& options, uint64_t dropLinkAfter) {
    const sigset_t signals = BlockStopSignals();
    try {
        hvxsim::ScpiSimulator simulator(options);
        if (dropLinkAfter > 0)
            simulator.DropLinkAfterSweeps(dropLinkAfter);
        std::cout << "scpi: listening on 127.0.0.1:" << simulator.Port() << ", dialect " << simulator.Dialect().name
                  << std::endl;
        int received = 0;
        sigwait(&signals, &received);
        simulator.Stop();
        std::cout << "scpi: stopped" << std::endl;
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "halvex-sim scpi: " << error.what() << std::endl;
        return kExitFailure;
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"halvex-sim: simulated instruments for HalvexAPI, served on the loopback interface."};
    app.footer(kFooter);
    app.require_subcommand(0, 1);
    bool listDialects = false;
    app.add_flag("--list-dialects", listDialects, "List the SCPI dialects and exit");

    hvxsim::ScpiSimulatorOptions options;
    options.queryInterruptWindow = std::chrono::milliseconds(5);
    unsigned identifyDelayMs = 0;
    unsigned windowMs = 5;
    uint64_t dropLinkAfter = 0;
    CLI::App* scpi = app.add_subcommand(
        "scpi", "A simulated SCPI spectrum analyzer on a TCP socket at 127.0.0.1, one client at a time.\n"
                "Prints \"scpi: listening on 127.0.0.1:PORT, dialect NAME\" and serves until SIGINT or SIGTERM.");
    scpi->add_option("--port", options.port, "TCP port, 0 for an ephemeral one")->capture_default_str();
    scpi->add_option("--dialect", options.dialect, "Instrument family (see --list-dialects)")
        ->check(CLI::IsMember(DialectNames()))
        ->capture_default_str();
    scpi->add_option("--seed", options.seed, "Seed of the trace noise")->capture_default_str();
    scpi->add_option("--idn-delay-ms", identifyDelayMs, "Delay of the *IDN? reply; 0 keeps the dialect's");
    scpi->add_option("--interrupt-window-ms", windowMs,
                     "How long a reply waits unread; a command arriving meanwhile gives -410")
        ->capture_default_str();
    scpi->add_option("--drop-link-after", dropLinkAfter,
                     "Close the link at the trace query after N traces, once, as a failing instrument would");
    scpi->footer(std::string("Example:\n  halvex-sim scpi --port 5025 --dialect bravo --seed 7\n\n") + kFooter);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? 0 : kExitUsage;
    }
    if (listDialects) {
        ListDialects();
        return 0;
    }
    if (!scpi->parsed()) {
        std::cout << app.help();
        return kExitUsage;
    }
    if (identifyDelayMs > 0)
        options.identifyDelay = std::chrono::milliseconds(identifyDelayMs);
    options.queryInterruptWindow = std::chrono::milliseconds(windowMs);
    return RunScpi(options, dropLinkAfter);
}
