// halvex demo: a short scan of the simulated devices through the plain
// Scanner/Analyzer interfaces, without scan data or tasks.
#include "Command.h"

#include <HVX/HVX.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

namespace halvex {
namespace {

int RunDemo(const std::vector<std::string>& args) {
    const Arguments arguments(args, {});
    if (auto unknown = arguments.Unknown({"points", "sweep-ms"}); !unknown.empty())
        throw UsageError{"unknown option --" + unknown.front()};
    const int points = std::stoi(arguments.Get("points", "12"));
    const int sweepMilliseconds = std::stoi(arguments.Get("sweep-ms", "20"));
    if (points <= 0 || sweepMilliseconds < 0)
        throw UsageError{"--points must be positive and --sweep-ms not negative"};

    nrq::HVXInit(false);
    auto scanner = std::make_shared<nrq::NullScanner>(0);
    auto analyzer = std::make_shared<nrq::NullAnalyzer>(0);
    analyzer->SetSweepDuration(std::chrono::milliseconds(sweepMilliseconds));

    scanner->Connect();
    analyzer->Connect();
    const nrq::NullScannerParameters scannerParameters;
    const auto start = scannerParameters.NewState();
    scanner->SetState(start.get());
    const nrq::NullAnalyzerParameters analyzerParameters;
    analyzer->SetAnalyzerParameters(&analyzerParameters);
    scanner->InitScanner();
    analyzer->InitAnalyzer();

    const nrq::FrequencyStartStop range = analyzer->GetFrequencyRange();
    std::printf("%-5s %9s %9s %12s %11s\n", "point", "x (mm)", "y (mm)", "peak at", "peak (dBm)");
    int measured = 0;
    while (measured < points && scanner->NextScanPosition() == nrq::ScanStatus::Ready) {
        const nrq::Position position = scanner->GetScanPosition();
        const auto sweep = analyzer->GetMeasurement();
        const auto peak = std::max_element(sweep.begin(), sweep.end());
        const double step = (range.stop.Hz() - range.start.Hz()) / static_cast<double>(sweep.size() - 1);
        const nrq::Frequency peakFrequency(range.start.Hz() + step * static_cast<double>(peak - sweep.begin()));
        ++measured;
        std::printf("%-5d %9.2f %9.2f %12s %11.2f\n", measured, position.x().mm(), position.y().mm(),
                    peakFrequency.ToString().c_str(), peak->dBm());
    }
    analyzer->Disconnect();
    scanner->Disconnect();
    nrq::Log::Summary(fmt::format("demo: {} positions measured", measured));
    std::printf("%d positions measured, %zu points each, %s to %s\n", measured, nrq::NullAnalyzer::pointsPerSweep,
                range.start.ToString().c_str(), range.stop.ToString().c_str());
    std::printf("log file: %s/log.txt\n", std::string(nrq::fs::GetUserSaveDataDirectory()).c_str());
    nrq::HVXTerminate();
    return exitOk;
}

const CommandRegistration registration({
    "demo",
    "measure a few positions with the simulated scanner and analyzer",
    "usage: halvex demo [--points N] [--sweep-ms MS]\n\n"
    "Starts the library, steps the simulated scanner and takes one sweep of the\n"
    "simulated analyzer at each position, prints position and peak, and tells\n"
    "where the log file is.\n\n"
    "  --points N     positions to measure (default 12)\n"
    "  --sweep-ms MS  simulated sweep time in milliseconds (default 20)\n",
    &RunDemo,
});

} // namespace
} // namespace halvex
