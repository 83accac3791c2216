// halvex scan: a GenericScanTask over the simulated scanner and analyzer, run
// on a thread of its own, with a progress display, a clean stop on SIGINT,
// SIGTERM or SIGHUP, and the scan file (and CSV) at the end. Everything that
// can be checked is checked before the first sweep; what was measured is
// written on every way out but a second signal.
#include "Command.h"
#include "Failure.h"
#include "HostFiles.h"
#include "Library.h"
#include "Options.h"
#include "Progress.h"
#include "ScanFile.h"
#include "ScanPlan.h"
#include "FeatureStore.h"
#include "ScpiAnalyzer.h"

#include <HVX/HVX.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
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

enum class Board { V1, V2 };

struct Rectangle {
    int firstColumn = 0;
    int firstRow = 0;
    int lastColumn = nrq::TavrelAdapterV1Parameters::columns - 1;
    int lastRow = nrq::TavrelAdapterV1Parameters::rows - 1;

    int Cells() const { return (lastColumn - firstColumn + 1) * (lastRow - firstRow + 1); }
};

// As given on the command line; Resolve turns it into ScanOptions.
struct ScanArguments {
    std::string out = "scan.hvxscan";
    std::string csv;
    std::string correction;
    std::string shape = "spectral";
    std::string cells = "all";
    std::string board = "v2";
    int level = 1;
    bool interleaved = false;
    int repeat = 1;
    std::string behavior = "overwrite";
    int sweepMilliseconds = 20;
    bool quiet = false;
    std::string analyzer = "null";
    std::vector<std::string> settings;
    std::string store;
    // Which options were given at all.
    bool boardGiven = false;
    bool levelGiven = false;
    bool sweepGiven = false;
};

struct ScanOptions {
    std::string out;
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
    std::string scpiResource; // empty: the simulated analyzer
    std::vector<std::string> settings;
    std::string store;
};

int ParseCellNumber(std::string_view text, const char* what, int high) {
    std::string value(text);
    const std::string problem = Whole(0, high)(value);
    if (!problem.empty())
        throw UsageError{fmt::format("{} of --cells {}", what, problem)};
    return std::stoi(value);
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
    const int c1 = ParseCellNumber(first[0], "a column", lastColumn);
    const int r1 = ParseCellNumber(first[1], "a row", lastRow);
    const int c2 = ParseCellNumber(second[0], "a column", lastColumn);
    const int r2 = ParseCellNumber(second[1], "a row", lastRow);
    return Rectangle{std::min(c1, c2), std::min(r1, r2), std::max(c1, c2), std::max(r1, r2)};
}

Shape ShapeFromName(const std::string& name) {
    if (name == "spatial")
        return Shape::Spatial;
    if (name == "combined")
        return Shape::Combined;
    return Shape::Spectral;
}

ScanOptions Resolve(const ScanArguments& given) {
    ScanOptions options;
    options.out = given.out;
    if (options.out.empty())
        throw UsageError{"--out needs a file name"};
    options.csv = given.csv;
    options.correction = given.correction;
    options.quiet = given.quiet;
    options.shape = ShapeFromName(given.shape);
    if (given.cells == "random")
        options.random = true;
    else if (given.cells != "all")
        options.cells = ParseRectangle(given.cells);
    options.board = given.board == "v1" ? Board::V1 : Board::V2;
    options.level = given.level;
    options.interleaved = given.interleaved;
    if (options.random && (given.boardGiven || given.levelGiven || options.interleaved))
        throw UsageError{"--board, --level and --interleaved belong to the grid, not to --cells random"};
    if (options.board == Board::V1 && options.level != 1)
        throw UsageError{"--level needs the v2 board"};
    options.repeat = given.repeat;
    // Only the USB board's state starts a pass over; the others would bring
    // nothing after the first pass.
    if (options.repeat > 1 && (options.random || options.board == Board::V2))
        throw UsageError{fmt::format("--repeat {} needs --board v1: {} does not start a pass over, so passes after the "
                                     "first would bring nothing",
                                     options.repeat, options.random ? "the random pass" : "the v2 board")};
    options.behavior =
        given.behavior == "combine" ? nrq::RepeatingBehavior::Combine : nrq::RepeatingBehavior::Overwrite;
    options.sweepMilliseconds = given.sweepMilliseconds;
    options.scpiResource = ScpiResource(given.analyzer);
    if (given.analyzer != "null" && options.scpiResource.empty())
        throw UsageError{fmt::format("--analyzer takes null or scpi:RESOURCE, not '{}'", given.analyzer)};
    if (!given.settings.empty() && options.scpiResource.empty())
        throw UsageError{"--set belongs to an SCPI analyzer: give --analyzer scpi:RESOURCE"};
    if (given.sweepGiven && !options.scpiResource.empty())
        throw UsageError{"--sweep-ms belongs to the simulated analyzer; an SCPI analyzer sweeps in its own time"};
    options.settings = given.settings;
    options.store = given.store;
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

// The points one pass brings: each selected cell once per sub-position, or
// the random pass's fixed count.
int64_t PointsPerPass(const ScanOptions& options) {
    if (options.random)
        return nrq::NullScannerState::pointsPerPass;
    const int64_t n = int64_t{1} << (options.level - 1);
    return options.cells.Cells() * n * n;
}

int64_t PlannedPoints(const ScanOptions& options) { return PointsPerPass(options) * options.repeat; }

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
};

void StepUntilDone(nrq::GenericScanTask& task, HostScanner& scanner, const ScanOptions& options, ScanRun& run) {
    int passesDone = 0;
    task.SetRepeating(options.repeat > 1);
    while (!run.stopRequested.load()) {
        const bool more = task.Step();
        if (scanner.lastStatus == nrq::ScanStatus::Ready)
            run.points.fetch_add(1);
        if (!more)
            break;
        if (scanner.lastStatus == nrq::ScanStatus::Finished && ++passesDone + 1 >= options.repeat)
            task.SetRepeating(false);
    }
}

void RunScanThread(nrq::GenericScanTask& task, HostScanner& scanner, const ScanOptions& options, ScanRun& run) {
    SecondPassHandler handler(options.interleaved);
    nrq::SetThreadTaskEventHandler(&handler);
    try {
        if (!task.LockResources()) {
            run.lockFailed = true;
        } else {
            run.locked.store(true);
            StepUntilDone(task, scanner, options, run);
            // Stop runs here, between steps: the simulated devices have no sweep
            // to cut short, and the data is then touched by this thread alone.
            if (run.stopRequested.load())
                task.Stop(false);
        }
        task.UnlockResources();
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

// The stop signals are taken synchronously by the main thread, never by a handler.
class StopSignals {
public:
    StopSignals() {
        sigemptyset(&set);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&set, signal);
        pthread_sigmask(SIG_BLOCK, &set, &previous);
    }
    ~StopSignals() {
        // A signal that came after the scan ends here, not with the files.
        timespec none{0, 0};
        while (sigtimedwait(&set, nullptr, &none) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The signal that came within the time, or 0.
    int Wait(std::chrono::milliseconds time) {
        timespec limit{static_cast<time_t>(time.count() / 1000), static_cast<long>(time.count() % 1000) * 1000000};
        const int signal = sigtimedwait(&set, nullptr, &limit);
        return signal > 0 ? signal : 0;
    }

private:
    sigset_t set;
    sigset_t previous;
};

// Progress and reports go to stdout, or to stderr where stdout carries a file.
class Talk {
public:
    Talk(bool quiet, bool stdoutCarriesData)
        : quiet(quiet), stream(stdoutCarriesData ? stderr : stdout),
          terminal(::isatty(::fileno(stdoutCarriesData ? stderr : stdout)) == 1) {}
    void operator()(const std::string& line) const {
        if (quiet)
            return;
        std::fputs(line.c_str(), stream);
        std::fflush(stream);
    }
    bool Terminal() const { return terminal; }

private:
    bool quiet;
    std::FILE* stream;
    bool terminal;
};

const char* SignalName(int signal) {
    switch (signal) {
    case SIGTERM:
        return "SIGTERM";
    case SIGHUP:
        return "SIGHUP";
    default:
        return "SIGINT";
    }
}

// A second signal: the user does not want to wait for the sweep in hand.
[[noreturn]] void LeaveAtOnce(int signal, const ScanOptions& options) {
    PrintError(fmt::format("{} again: leaving at once; {} is not written", SignalName(signal),
                           ShownName(options.out, true)));
    std::_Exit(exitFailure);
}

struct ScanOutcomeText {
    bool interrupted = false;
    double elapsed = 0;
};

// Runs the task on its own thread until it ends or a signal stops it.
ScanOutcomeText WatchScan(nrq::GenericScanTask& task, HostScanner& scanner, const ScanOptions& options, ScanRun& run,
                          const Talk& talk, int64_t planned) {
    ScanOutcomeText outcome;
    const Clock::time_point started = Clock::now();
    StopSignals signals;
    std::thread scanThread(RunScanThread, std::ref(task), std::ref(scanner), std::cref(options), std::ref(run));
    bool announced = false;
    Clock::time_point lastLine = started;
    while (!run.finished.load()) {
        if (const int signal = signals.Wait(std::chrono::milliseconds(100))) {
            if (outcome.interrupted)
                LeaveAtOnce(signal, options);
            outcome.interrupted = true;
            run.stopRequested.store(true);
            talk(fmt::format("{}{}: stopping after the sweep in hand...\n", talk.Terminal() ? "\n" : "",
                             SignalName(signal)));
        }
        if (!announced && run.locked.load()) {
            announced = true;
            talk("scanning: Ctrl-C (or SIGTERM, SIGHUP) stops the scan and keeps what was measured\n");
        }
        const Clock::time_point now = Clock::now();
        const double elapsed = std::chrono::duration<double>(now - started).count();
        if (!announced || outcome.interrupted || run.finished.load())
            continue;
        if (talk.Terminal())
            talk(fmt::format("\r{}\033[K", FormatProgress(run.points.load(), planned, elapsed, 30)));
        else if (now - lastLine >= std::chrono::seconds(1)) {
            lastLine = now;
            talk(fmt::format("progress: {}\n", FormatProgress(run.points.load(), planned, elapsed, 0)));
        }
    }
    scanThread.join();
    // A second signal that came while the scan was ending still means: now.
    if (const int signal = signals.Wait(std::chrono::milliseconds(0)); signal && outcome.interrupted)
        LeaveAtOnce(signal, options);
    outcome.elapsed = std::chrono::duration<double>(Clock::now() - started).count();
    if (talk.Terminal() && !outcome.interrupted)
        talk(fmt::format("\r{}\033[K\n", FormatProgress(run.points.load(), planned, outcome.elapsed, 30)));
    return outcome;
}

uint64_t FixedFileBytes(const nrq::AnalyzerParameters& analyzer, const nrq::ScannerParameters& scanner) {
    std::string records;
    nrq::AppendSerializeObject(records, &analyzer);
    nrq::AppendSerializeObject(records, &scanner);
    return scanFileHeaderSize + records.size() + scanNotesSize;
}

ScanNotes MakeNotes(const ScanRun& run, bool interrupted, int64_t planned, const nrq::FrequencyStartStop& range,
                    const nrq::AnalyzerParameters& analyzer, size_t sweepPoints, const ScanOptions& options) {
    ScanNotes notes;
    notes.interleaved = options.interleaved;
    notes.outcome = run.error ? ScanOutcome::Failed : interrupted ? ScanOutcome::Stopped : ScanOutcome::Finished;
    notes.pointsMeasured = run.points.load();
    notes.pointsPlanned = planned;
    notes.startHz = range.start.Hz();
    notes.stopHz = range.stop.Hz();
    notes.rbwHz = analyzer.GetRBW().Hz();
    notes.sweepPoints = static_cast<int32_t>(sweepPoints);
    return notes;
}

std::unique_ptr<nrq::Compensation> ReadCorrection(const std::string& path) {
    const std::string bytes = ReadWholeFile(path);
    try {
        return std::make_unique<nrq::Compensation>(nrq::Compensation::Decode(bytes));
    } catch (const std::exception&) {
        throw std::runtime_error(ShownName(path, false) + ": " + DescribeFailure(std::current_exception()));
    }
}

// The analyzer of the scan: the simulated one, or an SCPI analyzer that is
// reached, identified and set up before the first sweep.
struct ChosenAnalyzer {
    std::shared_ptr<nrq::AutoSCPIAnalyzer> device; // null: the simulated analyzer
    std::unique_ptr<nrq::AnalyzerParameters> parameters;
    size_t sweepPoints = nrq::NullAnalyzer::pointsPerSweep;
    std::string sweeps;
    bool timed = true;

    // What the sweeps delivered, where the instrument has swept.
    size_t MeasuredSweepPoints() const {
        if (device && device->GetState().valueCount > 0)
            return static_cast<size_t>(device->GetState().valueCount);
        return sweepPoints;
    }
};

// The points that a sweep will bring, as the settings say; a guess without one.
size_t PlannedSweepPoints(const ScpiAnalyzer& scpi) {
    constexpr size_t usual = 1001;
    for (const nrq::ESCFeature& feature : scpi.entry->featureSet.features) {
        if (feature.type != nrq::ESCFeatureType::SweepPoints || !(feature.modes & 1))
            continue;
        const auto found = scpi.parameters->variableMap.find(feature.label);
        if (found == scpi.parameters->variableMap.end())
            return usual;
        const auto* points = std::get_if<int64_t>(&found->second.value);
        return points && *points > 0 ? static_cast<size_t>(*points) : usual;
    }
    return usual;
}

ChosenAnalyzer ChooseAnalyzer(const ScanOptions& options) {
    ChosenAnalyzer chosen;
    if (options.scpiResource.empty()) {
        chosen.parameters = std::make_unique<nrq::NullAnalyzerParameters>();
        chosen.sweeps = fmt::format("sweeps of {} ms", options.sweepMilliseconds);
        return chosen;
    }
    OpenStore(options.store);
    ScpiAnalyzer scpi = ConnectScpiAnalyzer(options.scpiResource, options.store);
    ApplySettings(scpi, options.settings);
    chosen.sweepPoints = PlannedSweepPoints(scpi);
    chosen.sweeps = fmt::format("sweeps by {} at {}, {} to {}", DescribeInstrument(scpi.device->GetInfo()),
                                options.scpiResource, scpi.parameters->GetMinFrequency().ToString(),
                                scpi.parameters->GetMaxFrequency().ToString());
    chosen.timed = false;
    chosen.device = std::move(scpi.device);
    chosen.parameters = std::move(scpi.parameters);
    return chosen;
}

std::shared_ptr<nrq::Analyzer> MakeNullAnalyzer(const ScanOptions& options) {
    auto analyzer = std::make_shared<nrq::NullAnalyzer>(0);
    analyzer->SetSweepDuration(std::chrono::milliseconds(options.sweepMilliseconds));
    return analyzer;
}

int RunScan(const ScanArguments& given) {
    const ScanOptions options = Resolve(given);
    std::vector<Output> outputs{{"--out", options.out}};
    if (!options.csv.empty())
        outputs.push_back({"--csv", options.csv});
    CheckOutputs(outputs, options.correction.empty() ? std::vector<std::string>{}
                                                     : std::vector<std::string>{options.correction});
    const Talk talk(options.quiet, options.out == "-" || options.csv == "-");

    // A correction file is read first, so that a bad one costs no scan.
    std::unique_ptr<nrq::Compensation> correction;
    if (!options.correction.empty())
        correction = ReadCorrection(options.correction);

    const std::unique_ptr<nrq::ScannerParameters> scannerParameters = MakeScannerParameters(options);
    ChosenAnalyzer chosen = ChooseAnalyzer(options);
    const nrq::AnalyzerParameters& analyzerParameters = *chosen.parameters;
    const int64_t planned = PlannedPoints(options);
    const ScanEstimate estimate =
        EstimateScan(options.shape, planned, options.sweepMilliseconds, chosen.sweepPoints,
                     FixedFileBytes(analyzerParameters, *scannerParameters), !options.csv.empty());
    talk(fmt::format("scan: {} points ({}), {} data, {} pass{}, {}\n", planned, Describe(options),
                     ShapeName(options.shape), options.repeat, options.repeat == 1 ? "" : "es", chosen.sweeps));
    talk(fmt::format("estimate: {}, a scan file of about {}{}, about {} of memory\n",
                     chosen.timed ? "about " + FormatDuration(estimate.seconds) : std::string("time set by the analyzer"),
                     FormatBytes(estimate.fileBytes),
                     options.csv.empty() ? "" : fmt::format(" and a CSV file of about {}", FormatBytes(estimate.csvBytes)),
                     FormatBytes(estimate.memoryBytes)));
    if (const std::string refusal = RefusalReason(estimate, options.shape, AvailableMemory()); !refusal.empty())
        throw UsageError{"the scan cannot be kept: " + refusal};
    CheckRoom(outputs[0], estimate.fileBytes);
    if (!options.csv.empty())
        CheckRoom(outputs[1], estimate.csvBytes);

    StartLibrary();
    auto scanner = std::make_shared<HostScanner>(0);
    const std::shared_ptr<nrq::Analyzer> analyzer = chosen.device ? chosen.device : MakeNullAnalyzer(options);
    if (!nrq::DeviceLoader::AddDevice(scanner) || (!chosen.device && !nrq::DeviceLoader::AddDevice(analyzer)))
        throw std::runtime_error("the simulated devices did not identify themselves");
    const std::string scannerId = nrq::DeviceLoader::MakeId(scanner->GetInfo());
    const std::string analyzerId = nrq::DeviceLoader::MakeId(analyzer->GetInfo());

    const std::shared_ptr<nrq::IScanData> data = MakeScanData(options.shape);
    nrq::FillScanDataDeviceInfo(data->GetInfo().devices[0], scanner->GetInfo());
    nrq::FillScanDataDeviceInfo(data->GetInfo().devices[1], analyzer->GetInfo());
    nrq::GenericScanTask task(data, {scannerId, nrq::ScanMethod::Device, scannerParameters.get(), analyzerId,
                                     &analyzerParameters, options.behavior, true});

    ScanRun run;
    const ScanOutcomeText outcome = WatchScan(task, *scanner, options, run, talk, planned);
    if (run.lockFailed)
        throw std::runtime_error("the devices are busy with another scan");
    if (correction && !data->ApplyCompensation(*correction))
        talk(fmt::format("note: {} data takes no correction\n", ShapeName(options.shape)));

    // What was measured is written also when the scan failed half-way.
    const ScanNotes notes = MakeNotes(run, outcome.interrupted, planned, analyzer->GetFrequencyRange(), analyzerParameters,
                                     chosen.MeasuredSweepPoints(), options);
    const std::string wroteScan =
        WriteWithRescue(options.out, WriteScanFile(&analyzerParameters, scannerParameters.get(), *data, notes),
                        "the scan file");
    const std::string wroteCsv =
        options.csv.empty() ? std::string() : WriteWithRescue(options.csv, data->SerializeToCSV(), "the CSV file");
    if (run.error)
        std::rethrow_exception(run.error);

    talk(fmt::format("{}: {} of {} points in {:.1f} s, data {}\n", outcome.interrupted ? "stopped" : "done",
                     run.points.load(), planned, outcome.elapsed,
                     data->GetState() == nrq::IScanData::State::Complete ? "complete" : "empty"));
    if (wroteScan == options.out)
        talk(fmt::format("wrote {}\n", ShownName(options.out, true)));
    if (!options.csv.empty() && wroteCsv == options.csv)
        talk(fmt::format("wrote {}\n", ShownName(options.csv, true)));
    if (wroteScan != options.out || wroteCsv != options.csv)
        return exitFailure;
    return outcome.interrupted ? exitInterrupted : exitOk;
}

const char* const description =
    "Runs a scan task on a thread of its own over the simulated scanner and\n"
    "analyzer, shows its progress, and writes the scan file (and CSV if asked).\n"
    "Before the first sweep it checks the outputs, states the points, the time\n"
    "and the sizes it expects, and refuses a scan that could not be kept.\n"
    "\n"
    "The simulated analyzer sweeps 100 MHz to 200 MHz in 600 points of noise\n"
    "around -80 dBm. The simulated scanner imitates the Tavrel boards over the\n"
    "selected cells of their 42 x 29 grid of 7.5 mm cells: the v2 network board\n"
    "visits each cell at 2^(LEVEL-1) x 2^(LEVEL-1) sub-positions, the v1 USB\n"
    "board once and starts over for --repeat; --cells random is a pass of 999\n"
    "random points instead. --interleaved marks the grid interleaved and answers\n"
    "yes when a board offers a second pass (the simulated boards offer none).\n"
    "\n"
    "Data shapes: spectral keeps one spectrum, the highest value of every\n"
    "frequency over all positions (small, position-free); spatial keeps, per\n"
    "position, the strongest frequency and its level (a heat map); combined\n"
    "keeps every sweep at every position (everything, and the largest).\n"
    "\n"
    "With --analyzer scpi:RESOURCE the sweeps come from an SCPI spectrum\n"
    "analyzer reached through VISA (TCPIP0::HOST::PORT::SOCKET for a LAN\n"
    "instrument's socket), as its stored feature set describes it (see 'halvex\n"
    "store' and 'halvex features RESOURCE'). --set LABEL=VALUE chooses a\n"
    "setting; \"Frequency Start\" and \"Frequency Stop\" are the range (default\n"
    "0 Hz to 1 GHz). The analyzer is reached and its settings are checked\n"
    "before the first sweep; a sweep that fails ends the scan with what was\n"
    "measured until then written.\n"
    "\n"
    "A correction file (magic \"CORRECTION\": for each frequency a grid of values\n"
    "in dB by scanner cell, for the probe and its cable) is added to the measured\n"
    "amplitudes after the scan.\n"
    "\n"
    "SIGINT (Ctrl-C), SIGTERM or SIGHUP stops the scan after the sweep in hand,\n"
    "and the files are written with everything measured until then and marked\n"
    "as stopped; a second signal leaves at once without writing. Where a file\n"
    "cannot be written at the end, it is saved into a rescue file in the\n"
    "temporary folder (or the home folder), and the message names it.";

const char* const footer =
    "Examples:\n"
    "  halvex scan --cells 0,0:5,4 --csv scan.csv\n"
    "  halvex scan --shape combined --level 2 --cells 10,10:12,12 --out board.hvxscan\n"
    "  halvex scan --board v1 --repeat 3 --behavior combine --shape spatial\n"
    "  halvex scan --analyzer scpi:TCPIP0::127.0.0.1::5025::SOCKET --set \"Frequency Start=100 MHz\"\n"
    "\n"
    "Exit status: 0 done, 1 failure (a file could not be written where asked,\n"
    "a device or library error), 2 wrong command line or a scan refused before\n"
    "it starts, 130 stopped by a signal with every file written.\n";

CommandRun Setup(CLI::App& command) {
    auto given = std::make_shared<ScanArguments>();
    command.description(description);
    command.add_option("--out", given->out, "scan file to write (default scan.hvxscan); - writes standard output")
        ->type_name("FILE");
    command.add_option("--csv", given->csv, "also write the scan data as CSV; - writes standard output")
        ->type_name("FILE");
    command.add_option("--shape", given->shape, "spectral (default), spatial or combined data")
        ->check(OneOf({"spectral", "spatial", "combined"}))
        ->type_name("SHAPE");
    command.add_option("--cells", given->cells,
                       "all (default), random, or the rectangle C1,R1:C2,R2 of columns 0-41 and rows 0-28, corners "
                       "included")
        ->type_name("CELLS");
    CLI::Option* board = command.add_option("--board", given->board, "v2 (default), the network board, or v1, the USB board")
                             ->check(OneOf({"v1", "v2"}))
                             ->type_name("BOARD");
    CLI::Option* level =
        command.add_option("--level", given->level, "v2 only: 2^(N-1) x 2^(N-1) sub-positions a cell, 1 (default) to 8")
            ->transform(Whole(1, 8))
            ->type_name("N");
    command.add_flag("--interleaved", given->interleaved, "mark the grid interleaved; yes to a second pass");
    command.add_option("--correction", given->correction, "add this correction file to the data after the scan")
        ->type_name("FILE");
    command.add_option("--repeat", given->repeat, "passes, 1 (default) to 1000; needs --board v1")
        ->transform(Whole(1, 1000))
        ->type_name("N");
    command.add_option("--behavior", given->behavior,
                       "overwrite (default) or combine: what a later pass does with an earlier one's values")
        ->check(OneOf({"overwrite", "combine"}))
        ->type_name("B");
    CLI::Option* sweep = command.add_option("--sweep-ms", given->sweepMilliseconds,
                       "simulated sweep time in milliseconds, 0 to 60000 (default 20)")
        ->transform(Whole(0, 60000))
        ->type_name("MS");
    command.add_flag("--quiet", given->quiet, "print nothing but errors");
    command.add_option("--analyzer", given->analyzer,
                       "null (default), the simulated analyzer, or scpi:RESOURCE, an SCPI analyzer reached through VISA")
        ->type_name("A");
    command.add_option("--set", given->settings,
                       "LABEL=VALUE, a setting of the SCPI analyzer (see halvex features RESOURCE); again for more")
        ->type_name("LABEL=VALUE")
        ->allow_extra_args(false);
    AddStoreOption(command, given->store);
    command.footer(footer);
    return [given, board, level, sweep] {
        ScanArguments arguments = *given;
        arguments.boardGiven = board->count() > 0;
        arguments.levelGiven = level->count() > 0;
        arguments.sweepGiven = sweep->count() > 0;
        return RunScan(arguments);
    };
}

const CommandRegistration registration({"scan", "run a scan on the simulated devices and write a scan file", &Setup});

} // namespace
} // namespace halvex
