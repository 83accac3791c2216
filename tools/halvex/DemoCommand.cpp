// halvex demo: a short scan of the simulated devices through the plain
// Scanner/Analyzer interfaces, without scan data or tasks.
#include "Command.h"
#include "Library.h"
#include "Options.h"

#include <HVX/HVX.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

namespace halvex {
namespace {

struct DemoOptions {
    int points = 12;
    int sweepMilliseconds = 20;
};

int RunDemo(const DemoOptions& options) {
    const int points = options.points;
    StartLibrary();
    auto scanner = std::make_shared<nrq::NullScanner>(0);
    auto analyzer = std::make_shared<nrq::NullAnalyzer>(0);
    analyzer->SetSweepDuration(std::chrono::milliseconds(options.sweepMilliseconds));

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
    return exitOk;
}

CommandRun Setup(CLI::App& command) {
    auto options = std::make_shared<DemoOptions>();
    command.description(
        "Starts the library, steps the simulated scanner and takes one sweep of the\n"
        "simulated analyzer at each position through the plain Scanner and Analyzer\n"
        "interfaces (no scan task, no scan data), prints position and peak, and\n"
        "tells where the log file is.");
    command.add_option("--points", options->points, "positions to measure (default 12)")
        ->transform(Whole(1, 1000000))
        ->type_name("N");
    command.add_option("--sweep-ms", options->sweepMilliseconds, "simulated sweep time in milliseconds (default 20)")
        ->transform(Whole(0, 60000))
        ->type_name("MS");
    command.footer("Example:\n  halvex demo --points 5 --sweep-ms 0\n\n" + ExitStatusText("the library failed"));
    return [options] { return RunDemo(*options); };
}

const CommandRegistration registration({"demo", "measure a few positions with the simulated scanner and analyzer",
                                        &Setup});

} // namespace
} // namespace halvex
