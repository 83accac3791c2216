#include "HVX/Device/NullScanner.h"

#include "HVX/Device/Scanner/TavrelAdapterV1.h"
#include "HVX/Device/Scanner/TavrelAdapterV2.h"

#include <fmt/format.h>

namespace nrq {

const std::string& NullScannerParameters::GetSerialType() const {
    static const std::string name = "NullSP";
    return name;
}

std::unique_ptr<ScannerState> NullScannerParameters::NewState() const {
    return std::make_unique<NullScannerState>();
}

const std::string& NullScannerState::GetSerialType() const {
    static const std::string name = "NullSS";
    return name;
}

NullScanner::NullScanner(int32_t id) : id(id) {}

void NullScanner::QueryInfo() {
    info.model = fmt::format("NullScanner {}", id);
    info.manufacturer = "Nerquil Labs";
    info.serial = fmt::format("nullsc{}", id);
}

void NullScanner::SetState(const ScannerState* newState) {
    state.reset(newState ? newState->Clone() : nullptr);
}

ScanStatus NullScanner::NextScanPosition() {
    // The imitation follows the state's class: the plain pass, the network
    // board, the USB board; live tracking adds its branch after the boards.
    if (auto* random = dynamic_cast<NullScannerState*>(state.get()))
        return StepRandom(*random);
    if (auto* network = dynamic_cast<TavrelAdapterV2State*>(state.get()))
        return StepTavrelV2(*network);
    if (auto* usb = dynamic_cast<TavrelAdapterV1State*>(state.get()))
        return StepTavrelV1(*usb);
    // Any other state, a null one too, has nothing to visit.
    return ScanStatus::Finished;
}

ScanStatus NullScanner::StepRandom(NullScannerState& random) {
    if (random.counter >= NullScannerState::pointsPerPass)
        return ScanStatus::Finished;
    ++random.counter;
    const float a = random.distribution(random.generator);
    const float b = random.distribution(random.generator);
    position = Position(Length(b * 0.315f), Length(a * 0.2175f), Length(0.0f));
    return ScanStatus::Ready;
}

// The network board: the whole grid once per sub-position, over the selected cells.
ScanStatus NullScanner::StepTavrelV2(TavrelAdapterV2State& board) {
    constexpr int columns = TavrelAdapterV1Parameters::columns;
    constexpr int rows = TavrelAdapterV1Parameters::rows;
    const TavrelAdapterV2Parameters& cells = board.GetParameters();
    const int n = cells.GetSubdivisions();
    for (;;) {
        if (++board.column == columns) {
            board.column = 0;
            ++board.row;
        }
        if (board.row == rows) {
            board.row = 0;
            ++board.subIndex;
        }
        // Stays finished: later calls land here again at once.
        if (board.subIndex >= n * n)
            return ScanStatus::Finished;
        if (cells.GetCell(board.column, board.row))
            break;
    }
    const int q = board.subIndex / n;
    const int m = board.subIndex - q * n;
    const double cell = TavrelAdapterV1Parameters::cellSize;
    position = Position(Length(static_cast<float>((board.column + (m + 0.5) / n) * cell)),
                        Length(static_cast<float>((board.row + (q + 0.5) / n) * cell)), Length(0.0f));
    return ScanStatus::Ready;
}

// The USB board: one visit of each selected cell, at its centre.
ScanStatus NullScanner::StepTavrelV1(TavrelAdapterV1State& board) {
    constexpr int columns = TavrelAdapterV1Parameters::columns;
    constexpr int rows = TavrelAdapterV1Parameters::rows;
    const TavrelAdapterV1Parameters& cells = board.GetParameters();
    for (;;) {
        if (++board.column == columns) {
            board.column = 0;
            ++board.row;
        }
        // The row stays past the grid, so later calls finish at once until Reset.
        if (board.row >= rows) {
            board.row = rows;
            return ScanStatus::Finished;
        }
        if (cells.GetCell(board.column, board.row))
            break;
    }
    const double cell = TavrelAdapterV1Parameters::cellSize;
    position = Position(Length(static_cast<float>((board.column + 0.5) * cell)),
                        Length(static_cast<float>((board.row + 0.5) * cell)), Length(0.0f));
    return ScanStatus::Ready;
}

static SerializableTypes registerNullScannerParameters(std::make_unique<NullScannerParameters>());
static SerializableTypes registerNullScannerState(std::make_unique<NullScannerState>());

} // namespace nrq
