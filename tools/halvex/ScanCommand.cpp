// halvex scan: a GenericScanTask over the simulated scanner and analyzer, run
// on a thread of its own, with a progress display, a clean stop on Ctrl-C, and
// the scan file (and CSV) at the end.
#include "Command.h"
#include "HostFiles.h"
#include "Progress.h"
#include "ScanFile.h"

#include <HVX/HVX.h>

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <unistd.h>

namespace halvex {
namespace {

using Clock = std::chrono::steady_clock;

enum class Shape { Spectral, Spatial, Combined };
enum class Board { V1, V2 };

struct Rectangle {
    int firstColumn = 0;
    int firstRow = 0;
    int lastColumn = nrq::TavrelAdapterV1Parameters::columns - 1;
    int lastRow = nrq::TavrelAdapterV1Parameters::rows - 1;

    int Cells() const { return (lastColumn - firstColumn + 1) * (lastRow - firstRow + 1); }
};

struct ScanOptions {
    std::string out = "scan.hvxscan";
    std::string csv;
    std::string correction;
    Shape shape = Shape::Spectral;
    bool random = false;
    Rectangle cells;
    Board board = Board::V2;
    int level = 1;
    bool interleaved = false;
    int repeat = 1;
    nrq::RepeatingBehavior behavior = nrq::RepeatingBehavior::Overwrite;
    int sweepMilliseconds = 20;
    bool quiet = false;
};

// `what` names the number in the message: "--level", "a column of --cells".
int ParseInt(const std::string& text, const std::string& what, int low, int high) {
    size_t used = 0;
    int value = 0;
    try {
        value = std::stoi(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || value < low || value > high)
        throw UsageError{fmt::format("{} takes a whole number from {} to {}, not '{}'", what, low, high, text)};
    return value;
}

// "C1,R1:C2,R2", corners included, in either order.
Rectangle ParseRectangle(const std::string& text) {
    const auto corners = nrq::SplitString(text, ':');
    const auto first = corners.size() == 2 ? nrq::SplitString(corners[0], ',') : std::vector<std::string_view>{};
    const auto second = corners.size() == 2 ? nrq::SplitString(corners[1], ',') : std::vector<std::string_view>{};
    if (first.size() != 2 || second.size() != 2)
        throw UsageError{fmt::format("--cells takes all, random or COLUMN,ROW:COLUMN,ROW, not '{}'", text)};
    constexpr int lastColumn = nrq::TavrelAdapterV1Parameters::columns - 1;
    constexpr int lastRow = nrq::TavrelAdapterV1Parameters::rows - 1;
    const int c1 = ParseInt(std::string(first[0]), "a column of --cells", 0, lastColumn);
    const int r1 = ParseInt(std::string(first[1]), "a row of --cells", 0, lastRow);
    const int c2 = ParseInt(std::string(second[0]), "a column of --cells", 0, lastColumn);
    const int r2 = ParseInt(std::string(second[1]), "a row of --cells", 0, lastRow);
    return Rectangle{std::min(c1, c2), std::min(r1, r2), std::max(c1, c2), std::max(r1, r2)};
}

ScanOptions ParseOptions(const std::vector<std::string>& args) {
    const Arguments arguments(args, {"interleaved", "quiet"});
    if (auto unknown = arguments.Unknown({"out", "csv", "correction", "shape", "cells", "board", "level", "interleaved",
                                          "repeat", "behavior", "sweep-ms", "quiet"});
        !unknown.empty())
        throw UsageError{"unknown option --" + unknown.front()};
    if (!arguments.Positionals().empty())
        throw UsageError{"unexpected argument '" + arguments.Positionals().front() + "'"};

    ScanOptions options;
    options.out = arguments.Get("out", options.out);
    if (options.out.empty())
        throw UsageError{"--out needs a file name"};
    options.csv = arguments.Get("csv");
    options.correction = arguments.Get("correction");
    options.quiet = arguments.Has("quiet");

    const std::string shape = arguments.Get("shape", "spectral");
    if (shape == "spectral")
        options.shape = Shape::Spectral;
    else if (shape == "spatial")
        options.shape = Shape::Spatial;
    else if (shape == "combined")
        options.shape = Shape::Combined;
    else
        throw UsageError{"--shape takes spectral, spatial or combined, not '" + shape + "'"};

    const std::string cells = arguments.Get("cells", "all");
    if (cells == "random")
        options.random = true;
    else if (cells != "all")
        options.cells = ParseRectangle(cells);

    const std::string board = arguments.Get("board", "v2");
    if (board == "v1")
        options.board = Board::V1;
    else if (board != "v2")
        throw UsageError{"--board takes v1 or v2, not '" + board + "'"};

    options.level = ParseInt(arguments.Get("level", "1"), "--level", 1, 8);
    options.interleaved = arguments.Has("interleaved");
    if (options.random && (arguments.Has("board") || arguments.Has("level") || options.interleaved))
        throw UsageError{"--board, --level and --interleaved belong to the grid, not to --cells random"};
    if (options.board == Board::V1 && options.level != 1)
        throw UsageError{"--level needs the v2 board"};

    options.repeat = ParseInt(arguments.Get("repeat", "1"), "--repeat", 1, 1000);
    const std::string behavior = arguments.Get("behavior", "overwrite");
    if (behavior == "overwrite")
        options.behavior = nrq::RepeatingBehavior::Overwrite;
    else if (behavior == "combine")
        options.behavior = nrq::RepeatingBehavior::Combine;
    else
        throw UsageError{"--behavior takes overwrite or combine, not '" + behavior + "'"};
    options.sweepMilliseconds = ParseInt(arguments.Get("sweep-ms", "20"), "--sweep-ms", 0, 60000);
    return options;
}

std::unique_ptr<nrq::ScannerParameters> MakeScannerParameters(const ScanOptions& options) {
    if (options.random)
        return std::make_unique<nrq::NullScannerParameters>();
    std::unique_ptr<nrq::TavrelAdapterV1Parameters> grid;
    if (options.board == Board::V2) {
        auto network = std::make_unique<nrq::TavrelAdapterV2Parameters>();
        network->SetLevel(options.level);
        grid = std::move(network);
    } else {
        grid = std::make_unique<nrq::TavrelAdapterV1Parameters>();
    }
    for (int row = options.cells.firstRow; row <= options.cells.lastRow; ++row)
        for (int column = options.cells.firstColumn; column <= options.cells.lastColumn; ++column)
            grid->SetCell(column, row, true);
    grid->SetInterleaved(options.interleaved);
    return grid;
}

std::shared_ptr<nrq::IScanData> MakeScanData(Shape shape) {
    switch (shape) {
    case Shape::Spectral:
        return std::make_shared<nrq::SpectralScanData>();
    case Shape::Spatial:
        return std::make_shared<nrq::SpatialScanData>();
    case Shape::Combined:
        return std::make_shared<nrq::CombinedScanData>();
    }
    return nullptr;
}

const char* ShapeName(Shape shape) {
    switch (shape) {
    case Shape::Spectral:
        return "spectral";
    case Shape::Spatial:
        return "spatial";
    case Shape::Combined:
        return "combined";
    }
    return "";
}

// The points one pass brings. The simulated boards visit each selected cell
// once per sub-position; the random pass has a fixed count.
int64_t PointsPerPass(const ScanOptions& options) {
    if (options.random)
        return nrq::NullScannerState::pointsPerPass;
    const int64_t n = int64_t{1} << (options.level - 1);
    return options.cells.Cells() * n * n;
}

// Only the USB board's state starts over when a pass is repeated; the others
// keep their counters, so their later passes bring nothing.
int64_t ExpectedPoints(const ScanOptions& options) {
    const bool rewinds = !options.random && options.board == Board::V1;
    return PointsPerPass(options) * (rewinds ? options.repeat : 1);
}

std::string Describe(const ScanOptions& options) {
    if (options.random)
        return "the random pass of the simulated scanner";
    const Rectangle& cells = options.cells;
    std::string text = fmt::format("{} x {} cells from column {}, row {}, board {}", cells.lastColumn - cells.firstColumn + 1,
                                   cells.lastRow - cells.firstRow + 1, cells.firstColumn, cells.firstRow,
                                   options.board == Board::V1 ? "v1" : "v2");
    if (options.board == Board::V2)
        text += fmt::format(", level {}", options.level);
    if (options.interleaved)
        text += ", interleaved";
    return text;
}

// The simulated scanner, which also tells the scan thread what each step did.
class HostScanner : public nrq::NullScanner {
public:
    using NullScanner::NullScanner;
    nrq::ScanStatus NextScanPosition() override {
        lastStatus = NullScanner::NextScanPosition();
        return lastStatus;
    }
    // Written and read on the scan thread only.
    nrq::ScanStatus lastStatus = nrq::ScanStatus::Finished;
};

// A board that asks whether a second, interleaved pass is to follow gets its
// answer from the command line.
class SecondPassHandler : public nrq::TaskEventHandler {
public:
    explicit SecondPassHandler(bool interleaved) : interleaved(interleaved) {}
    nrq::TaskEventResponse HandleTaskEvent(nrq::TaskEvent event) override {
        const bool secondPass = interleaved && (event == nrq::TaskEvent::TavrelSecondPass ||
                                                event == nrq::TaskEvent::DobotSecondPass);
        return nrq::TaskEventResponse{secondPass ? 0 : 1};
    }

private:
    bool interleaved;
};

// What the scan thread and the main thread share.
struct ScanRun {
    std::atomic<bool> locked{false};
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> finished{false};
    std::atomic<int64_t> points{0};
    // Set by the scan thread before `finished`, read after it.
    bool lockFailed = false;
    std::exception_ptr error;
    std::string note;
};

void RunScanThread(nrq::GenericScanTask& task, HostScanner& scanner, const ScanOptions& options, ScanRun& run) {
    SecondPassHandler handler(options.interleaved);
    nrq::SetThreadTaskEventHandler(&handler);
    try {
        if (!task.LockResources()) {
            run.lockFailed = true;
            task.UnlockResources();
        } else {
            run.locked.store(true);
            int passesDone = 0;
            int64_t pointsThisPass = 0;
            task.SetRepeating(options.repeat > 1);
            while (!run.stopRequested.load()) {
                const bool more = task.Step();
                if (scanner.lastStatus == nrq::ScanStatus::Ready) {
                    run.points.fetch_add(1);
                    ++pointsThisPass;
                }
                if (!more)
                    break;
                if (scanner.lastStatus != nrq::ScanStatus::Finished)
                    continue;
                // A pass has ended and the next one starts on the next step.
                ++passesDone;
                if (pointsThisPass == 0) {
                    run.note = fmt::format("pass {} brought no points: this scanner state does not start over", passesDone);
                    task.SetRepeating(false);
                } else if (passesDone + 1 >= options.repeat) {
                    task.SetRepeating(false);
                }
                pointsThisPass = 0;
            }
            // Stop runs here, between steps: the simulated devices have no sweep
            // to cut short, and the data is then touched by this thread alone.
            if (run.stopRequested.load())
                task.Stop(false);
            task.UnlockResources();
        }
    } catch (...) {
        run.error = std::current_exception();
        try {
            task.UnlockResources();
        } catch (...) {
        }
    }
    nrq::SetThreadTaskEventHandler(nullptr);
    run.finished.store(true);
}

// SIGINT is taken synchronously by the main thread, never by a handler.
class InterruptWatch {
public:
    InterruptWatch() {
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        pthread_sigmask(SIG_BLOCK, &set, &previous);
    }
    ~InterruptWatch() {
        // An interrupt that came after the scan ends here, not with the files.
        timespec none{0, 0};
        while (sigtimedwait(&set, nullptr, &none) == SIGINT) {
        }
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    // True when SIGINT came within the time.
    bool Wait(std::chrono::milliseconds time) {
        timespec limit{static_cast<time_t>(time.count() / 1000), static_cast<long>(time.count() % 1000) * 1000000};
        return sigtimedwait(&set, nullptr, &limit) == SIGINT;
    }

private:
    sigset_t set;
    sigset_t previous;
};

void Print(bool quiet, const std::string& line) {
    if (quiet)
        return;
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
}

int RunScan(const std::vector<std::string>& args) {
    const ScanOptions options = ParseOptions(args);
    // A correction file is read first, so that a bad one costs no scan.
    std::unique_ptr<nrq::Compensation> correction;
    if (!options.correction.empty())
        correction = std::make_unique<nrq::Compensation>(nrq::Compensation::Decode(ReadWholeFile(options.correction)));

    nrq::HVXInit(false);
    struct Terminate {
        ~Terminate() { nrq::HVXTerminate(); }
    } terminate;

    auto scanner = std::make_shared<HostScanner>(0);
    auto analyzer = std::make_shared<nrq::NullAnalyzer>(0);
    analyzer->SetSweepDuration(std::chrono::milliseconds(options.sweepMilliseconds));
    if (!nrq::DeviceLoader::AddDevice(scanner) || !nrq::DeviceLoader::AddDevice(analyzer))
        throw std::runtime_error("the simulated devices did not identify themselves");
    const std::string scannerId = nrq::DeviceLoader::MakeId(scanner->GetInfo());
    const std::string analyzerId = nrq::DeviceLoader::MakeId(analyzer->GetInfo());

    const std::shared_ptr<nrq::IScanData> data = MakeScanData(options.shape);
    nrq::FillScanDataDeviceInfo(data->GetInfo().devices[0], scanner->GetInfo());
    nrq::FillScanDataDeviceInfo(data->GetInfo().devices[1], analyzer->GetInfo());
    const std::unique_ptr<nrq::ScannerParameters> scannerParameters = MakeScannerParameters(options);
    const nrq::NullAnalyzerParameters analyzerParameters;
    nrq::GenericScanTask task(data, {scannerId, nrq::ScanMethod::Device, scannerParameters.get(), analyzerId,
                                     &analyzerParameters, options.behavior, true});

    const int64_t expected = ExpectedPoints(options);
    Print(options.quiet, fmt::format("scan: {} points ({}), {} data, {} pass{}, sweeps of {} ms\n", expected,
                                     Describe(options), ShapeName(options.shape), options.repeat,
                                     options.repeat == 1 ? "" : "es", options.sweepMilliseconds));

    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    bool interrupted = false;
    ScanRun run;
    const Clock::time_point started = Clock::now();
    {
        InterruptWatch interrupts;
        std::thread scanThread(RunScanThread, std::ref(task), std::ref(*scanner), std::cref(options), std::ref(run));
        bool announced = false;
        Clock::time_point lastLine = started;
        while (!run.finished.load()) {
            if (interrupts.Wait(std::chrono::milliseconds(100))) {
                if (interrupted) {
                    // A second Ctrl-C: the user does not want to wait for the sweep.
                    PrintError("interrupted again: leaving without writing files");
                    std::_Exit(exitInterrupted);
                }
                interrupted = true;
                run.stopRequested.store(true);
                Print(options.quiet, fmt::format("{}stopping after the sweep in hand...\n", terminal ? "\n" : ""));
            }
            if (!announced && run.locked.load()) {
                announced = true;
                Print(options.quiet, "scanning: Ctrl-C stops the scan and keeps what was measured\n");
            }
            const Clock::time_point now = Clock::now();
            const double elapsed = std::chrono::duration<double>(now - started).count();
            if (!announced || interrupted || run.finished.load())
                continue;
            if (terminal)
                Print(options.quiet, fmt::format("\r{}\033[K", FormatProgress(run.points.load(), expected, elapsed, 30)));
            else if (now - lastLine >= std::chrono::seconds(1)) {
                lastLine = now;
                Print(options.quiet, fmt::format("progress: {}\n", FormatProgress(run.points.load(), expected, elapsed, 0)));
            }
        }
        scanThread.join();
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
    if (terminal && !interrupted)
        Print(options.quiet, fmt::format("\r{}\033[K\n", FormatProgress(run.points.load(), expected, elapsed, 30)));

    if (run.lockFailed)
        throw std::runtime_error("the simulated devices are busy");
    if (!run.note.empty())
        Print(options.quiet, fmt::format("note: {}\n", run.note));
    if (correction && !data->ApplyCompensation(*correction))
        Print(options.quiet, fmt::format("note: {} data takes no correction\n", ShapeName(options.shape)));

    // What was measured is written also when the scan failed half-way.
    WriteWholeFile(options.out, WriteScanFile(&analyzerParameters, scannerParameters.get(), *data));
    if (!options.csv.empty())
        WriteWholeFile(options.csv, data->SerializeToCSV());
    if (run.error)
        std::rethrow_exception(run.error);

    Print(options.quiet, fmt::format("{}: {} points in {:.1f} s, data {}\n", interrupted ? "interrupted" : "done",
                                     run.points.load(), elapsed,
                                     data->GetState() == nrq::IScanData::State::Complete ? "complete" : "empty"));
    Print(options.quiet, fmt::format("wrote {}\n", options.out));
    if (!options.csv.empty())
        Print(options.quiet, fmt::format("wrote {}\n", options.csv));
    return interrupted ? exitInterrupted : exitOk;
}

const CommandRegistration registration({
    "scan",
    "run a scan on the simulated devices and write a scan file",
    "usage: halvex scan [OPTIONS]\n\n"
    "Runs a scan task on a thread of its own over the simulated scanner and\n"
    "analyzer, shows its progress, and writes the scan file (and CSV if asked).\n"
    "The scanner imitates the Tavrel boards over the selected cells of their\n"
    "42 x 29 grid of 7.5 mm cells, or makes its random pass of 999 points.\n\n"
    "  --out FILE         scan file to write (default scan.hvxscan)\n"
    "  --csv FILE         also write the scan data as CSV\n"
    "  --shape SHAPE      spectral (default), spatial or combined data\n"
    "  --cells CELLS      all (default), random, or the rectangle C1,R1:C2,R2 of\n"
    "                     columns 0-41 and rows 0-28, corners included\n"
    "  --board BOARD      v2 (default), the network board, or v1, the USB board\n"
    "  --level N          v2 only: each cell at 2^(N-1) x 2^(N-1) sub-positions,\n"
    "                     N from 1 (default) to 8\n"
    "  --interleaved      mark the grid interleaved, and answer yes when a board\n"
    "                     offers a second pass (the simulated boards make none)\n"
    "  --correction FILE  apply this correction file to the data after the scan\n"
    "  --repeat N         passes (default 1); only the v1 board's state starts\n"
    "                     over, so with v2 and random later passes bring nothing\n"
    "  --behavior B       overwrite (default) or combine: what a later pass does\n"
    "                     with what an earlier one wrote\n"
    "  --sweep-ms MS      simulated sweep time in milliseconds (default 20)\n"
    "  --quiet            print nothing but errors\n\n"
    "Progress is a bar on a terminal and a line a second otherwise. Ctrl-C\n"
    "(SIGINT) stops the scan after the sweep in hand; the files are written\n"
    "with everything measured until then.\n\n"
    "Exit status: 0 done, 1 failure, 2 wrong command line, 130 stopped by\n"
    "Ctrl-C with the files written.\n",
    &RunScan,
});

} // namespace
} // namespace halvex
