#include "HVX/Device/NullScanner.h"
#include "HVX/Device/Scanner/TavrelAdapterV1.h"
#include "HVX/Device/Scanner/TavrelAdapterV2.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nrq {
namespace {

std::string Bytes(std::initializer_list<int> values) {
    std::string out;
    for (int value : values)
        out.push_back(static_cast<char>(value));
    return out;
}

// The grid body with the given bytes set and all others zero.
std::string GridBody(const std::vector<std::pair<int, int>>& setBytes) {
    std::string body(153, '\0');
    for (const auto& [index, value] : setBytes)
        body[static_cast<size_t>(index)] = static_cast<char>(value);
    return body;
}

TEST(TavrelAdapterV1Parameters, GridSizes) {
    EXPECT_EQ(TavrelAdapterV1Parameters::bit_count, 1218);
    EXPECT_EQ(TavrelAdapterV1Parameters::byte_count, 153);
    EXPECT_EQ(TavrelAdapterV1Parameters::int_count, 39);
}

TEST(TavrelAdapterV1Parameters, AllCellsAreOffAfterConstruction) {
    const TavrelAdapterV1Parameters cells;
    EXPECT_EQ(cells.CountCells(), 0);
    EXPECT_FALSE(cells.IsInterleaved());
    EXPECT_FALSE(cells.GetCell(0, 0));
    EXPECT_EQ(cells.SerializeBinary(), std::string(153, '\0'));
}

TEST(TavrelAdapterV1Parameters, CellsOutsideTheGridReadAsOff) {
    TavrelAdapterV1Parameters cells;
    cells.SetAll(true);
    EXPECT_FALSE(cells.GetCell(42, 0));
    EXPECT_FALSE(cells.GetCell(0, 29));
    EXPECT_FALSE(cells.GetCell(-1, 0));
    EXPECT_FALSE(cells.GetCell(0, -1));
    EXPECT_TRUE(cells.GetCell(41, 28));
    EXPECT_TRUE(cells.GetCell(0, 0));
}

TEST(TavrelAdapterV1Parameters, SetAllCountsEveryCell) {
    TavrelAdapterV1Parameters cells;
    cells.SetAll(true);
    EXPECT_EQ(cells.CountCells(), 1218);
    cells.SetAll(false);
    EXPECT_EQ(cells.CountCells(), 0);
}

TEST(TavrelAdapterV1Parameters, SetAllLeavesTheBitsBehindTheLastCellClear) {
    TavrelAdapterV1Parameters cells;
    cells.SetAll(true);
    // 1218 bits: 152 full bytes, then bits 1216 and 1217 in the 153rd.
    std::string expected(152, '\xff');
    expected.push_back('\x03');
    EXPECT_EQ(cells.SerializeBinary(), expected);
}

TEST(TavrelAdapterV1Parameters, SetCellHasNoBoundsTest) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(42, 0, true); // bit 42: column 0 of row 1
    EXPECT_TRUE(cells.GetCell(0, 1));
    EXPECT_EQ(cells.CountCells(), 1);
    cells.SetCell(0, 1, false);
    EXPECT_EQ(cells.CountCells(), 0);
}

TEST(TavrelAdapterV1Parameters, BinaryFormIsTheGridByteForByte) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(0, 0, true);   // bit 0: byte 0, 0x01
    cells.SetCell(41, 0, true);  // bit 41: byte 5, 0x02
    cells.SetCell(5, 1, true);   // bit 47: byte 5, 0x80
    cells.SetCell(8, 3, true);   // bit 134: byte 16, 0x40
    cells.SetCell(41, 28, true); // bit 1217: byte 152, 0x02
    cells.SetInterleaved(true);  // not part of the body
    EXPECT_EQ(cells.SerializeBinary(), GridBody({{0, 0x01}, {5, 0x82}, {16, 0x40}, {152, 0x02}}));
}

TEST(TavrelAdapterV1Parameters, ReadingTakes153BytesAndLeavesTheFlag) {
    std::string data = GridBody({{0, 0x01}, {5, 0x82}, {152, 0x02}}) + "tail";
    std::string_view view(data);
    TavrelAdapterV1Parameters cells;
    cells.SetInterleaved(true);
    cells.DeserializeBinary(view, SerializeInfo{});
    EXPECT_EQ(view, "tail");
    EXPECT_TRUE(cells.IsInterleaved());
    EXPECT_EQ(cells.CountCells(), 4);
    EXPECT_TRUE(cells.GetCell(0, 0));
    EXPECT_TRUE(cells.GetCell(41, 0));
    EXPECT_TRUE(cells.GetCell(5, 1));
    EXPECT_TRUE(cells.GetCell(41, 28));
}

TEST(TavrelAdapterV1Parameters, ShortBodyRaises) {
    std::string data(152, '\0');
    std::string_view view(data);
    TavrelAdapterV1Parameters cells;
    try {
        cells.DeserializeBinary(view, SerializeInfo{});
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find("Deserialization ERROR"), std::string::npos);
    }
}

TEST(TavrelAdapterV1Parameters, BoundsAreTheWholeBoardEvenWithoutCells) {
    const TavrelAdapterV1Parameters cells;
    Position low(Length(1.0f), Length(1.0f), Length(1.0f));
    Position high;
    EXPECT_TRUE(cells.GetBounds(low, high));
    EXPECT_EQ(low.x().m(), 0.0f);
    EXPECT_EQ(low.y().m(), 0.0f);
    EXPECT_EQ(low.z().m(), 0.0f);
    EXPECT_FLOAT_EQ(high.x().m(), 0.315f);
    EXPECT_FLOAT_EQ(high.y().m(), 0.2175f);
    EXPECT_EQ(high.z().m(), 0.0f);
}

TEST(TavrelAdapterV1Parameters, RecordRoundTripGivesTheRealClass) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(5, 1, true);
    std::string record;
    AppendSerializeObject(record, &cells);
    EXPECT_EQ(record.substr(0, 13), Bytes({5, 0, 0, 0, 'T', 'V', '1', 'S', 'P', 153, 0, 0, 0}));
    EXPECT_EQ(record.size(), 13u + 153u);
    std::unique_ptr<ISerializable> back(ViewDeserializeObject(record, SerializeInfo{}));
    auto* read = dynamic_cast<TavrelAdapterV1Parameters*>(back.get());
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(dynamic_cast<TavrelAdapterV2Parameters*>(back.get()), nullptr);
    EXPECT_TRUE(read->GetCell(5, 1));
    EXPECT_EQ(read->CountCells(), 1);
}

TEST(TavrelAdapterV1State, StartsBeforeTheFirstCell) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(1, 1, true);
    cells.SetCell(2, 2, true);
    cells.SetCell(3, 3, true);
    const auto state = cells.NewState();
    auto* board = dynamic_cast<TavrelAdapterV1State*>(state.get());
    ASSERT_NE(board, nullptr);
    EXPECT_EQ(board->row, 0);
    EXPECT_EQ(board->column, -1);
    EXPECT_EQ(board->secondPass, 0);
    EXPECT_EQ(board->pointsDone, 0);
    EXPECT_EQ(board->GetTotalPoints(), 3);
    EXPECT_EQ(board->GetParameters().CountCells(), 3);
}

TEST(TavrelAdapterV1State, InterleavedDoublesTheTotal) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(1, 1, true);
    cells.SetCell(2, 2, true);
    cells.SetInterleaved(true);
    const TavrelAdapterV1State board(cells);
    EXPECT_EQ(board.GetTotalPoints(), 4);
}

TEST(TavrelAdapterV1State, ProgressIsDoneOverTotalAndResetStartsOver) {
    TavrelAdapterV1Parameters cells;
    cells.SetAll(true);
    cells.SetInterleaved(true);
    TavrelAdapterV1State board(cells);
    board.pointsDone = 609;
    board.row = 12;
    board.column = 7;
    board.secondPass = 1;
    float progress = -1.0f;
    EXPECT_TRUE(board.GetProgress(progress));
    EXPECT_FLOAT_EQ(progress, 0.25f);
    board.Reset();
    EXPECT_EQ(board.row, 0);
    EXPECT_EQ(board.column, -1);
    EXPECT_EQ(board.secondPass, 0);
    EXPECT_EQ(board.pointsDone, 0);
    EXPECT_TRUE(board.GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
}

TEST(TavrelAdapterV1State, BinaryFormIsEmptyAndCloneCopiesTheCounters) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(4, 4, true);
    TavrelAdapterV1State board(cells);
    board.row = 4;
    board.column = 3;
    EXPECT_EQ(board.SerializeBinary(), "");
    std::string data = "rest";
    std::string_view view(data);
    board.DeserializeBinary(view, SerializeInfo{});
    EXPECT_EQ(view, "rest");
    std::unique_ptr<TavrelAdapterV1State> copy(board.Clone());
    EXPECT_EQ(copy->row, 4);
    EXPECT_EQ(copy->column, 3);
    EXPECT_TRUE(copy->GetParameters().GetCell(4, 4));
    EXPECT_EQ(copy->GetTotalPoints(), 1);
}

TEST(TavrelAdapterV1State, RecordWithEmptyBodyReadsBackAsTheState) {
    const TavrelAdapterV1State board;
    std::string record;
    AppendSerializeObject(record, &board);
    EXPECT_EQ(record, Bytes({5, 0, 0, 0, 'T', 'V', '1', 'S', 'S', 0, 0, 0, 0}));
    std::unique_ptr<ISerializable> back(ViewDeserializeObject(record, SerializeInfo{}));
    EXPECT_NE(dynamic_cast<TavrelAdapterV1State*>(back.get()), nullptr);
}

TEST(TavrelAdapterV2Parameters, LevelOneByDefaultAndResolutionHalvesPerLevel) {
    TavrelAdapterV2Parameters cells;
    EXPECT_EQ(cells.GetLevel(), 1);
    EXPECT_FLOAT_EQ(cells.GetResolution().m(), 0.0075f);
    cells.SetLevel(2);
    EXPECT_FLOAT_EQ(cells.GetResolution().m(), 0.00375f);
    cells.SetLevel(4);
    EXPECT_FLOAT_EQ(cells.GetResolution().m(), 0.0009375f);
    EXPECT_EQ(cells.GetSubdivisions(), 8);
}

TEST(TavrelAdapterV2Parameters, BinaryFormIsTheGridThenTheLevel) {
    TavrelAdapterV2Parameters cells;
    cells.SetCell(0, 0, true);
    cells.SetCell(41, 28, true);
    cells.SetLevel(3);
    cells.SetInterleaved(true);
    const std::string expected = GridBody({{0, 0x01}, {152, 0x02}}) + Bytes({3, 0, 0, 0});
    EXPECT_EQ(cells.SerializeBinary(), expected);
    EXPECT_EQ(cells.SerializeBinary().size(), 157u);

    std::string data = expected + "x";
    std::string_view view(data);
    TavrelAdapterV2Parameters read;
    read.DeserializeBinary(view, SerializeInfo{});
    EXPECT_EQ(view, "x");
    EXPECT_EQ(read.GetLevel(), 3);
    EXPECT_FALSE(read.IsInterleaved());
    EXPECT_EQ(read.CountCells(), 2);
    EXPECT_TRUE(read.GetCell(41, 28));
}

TEST(TavrelAdapterV2Parameters, NegativeLevelIsWrittenAsItStands) {
    TavrelAdapterV2Parameters cells;
    cells.SetLevel(-2);
    EXPECT_EQ(cells.SerializeBinary().substr(153), Bytes({0xfe, 0xff, 0xff, 0xff}));
    // A level outside the range does not shift out of range.
    EXPECT_EQ(cells.GetSubdivisions(), 1);
}

TEST(TavrelAdapterV2Parameters, RecordRoundTripGivesTheRealClass) {
    TavrelAdapterV2Parameters cells;
    cells.SetCell(2, 3, true);
    cells.SetLevel(2);
    std::string record;
    AppendSerializeObject(record, &cells);
    EXPECT_EQ(record.substr(0, 13), Bytes({5, 0, 0, 0, 'T', 'V', '2', 'S', 'P', 157, 0, 0, 0}));
    std::unique_ptr<ISerializable> back(ViewDeserializeObject(record, SerializeInfo{}));
    auto* read = dynamic_cast<TavrelAdapterV2Parameters*>(back.get());
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->GetLevel(), 2);
    EXPECT_TRUE(read->GetCell(2, 3));
}

TEST(TavrelAdapterV2Parameters, TruncatedLevelRaises) {
    std::string data = std::string(153, '\0') + Bytes({1, 0});
    std::string_view view(data);
    TavrelAdapterV2Parameters cells;
    EXPECT_THROW(cells.DeserializeBinary(view, SerializeInfo{}), Error);
}

TEST(TavrelAdapterV2State, TotalIsCellsTimesPassesShiftedByTheLevel) {
    TavrelAdapterV2Parameters cells;
    cells.SetCell(1, 1, true);
    cells.SetCell(2, 1, true);
    cells.SetCell(3, 1, true);
    cells.SetLevel(2);
    EXPECT_EQ(TavrelAdapterV2State(cells).GetTotalPoints(), 12);
    cells.SetInterleaved(true);
    EXPECT_EQ(TavrelAdapterV2State(cells).GetTotalPoints(), 24);
    cells.SetLevel(1);
    EXPECT_EQ(TavrelAdapterV2State(cells).GetTotalPoints(), 6);
}

TEST(TavrelAdapterV2State, StartsBeforeTheFirstCellAndReportsProgress) {
    TavrelAdapterV2Parameters cells;
    cells.SetAll(true);
    const auto state = cells.NewState();
    auto* board = dynamic_cast<TavrelAdapterV2State*>(state.get());
    ASSERT_NE(board, nullptr);
    EXPECT_EQ(board->row, 0);
    EXPECT_EQ(board->column, -1);
    EXPECT_EQ(board->subIndex, 0);
    EXPECT_FALSE(board->secondPass);
    EXPECT_EQ(board->pointsDone, 0);
    float progress = -1.0f;
    EXPECT_TRUE(board->GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
    board->pointsDone = 609;
    EXPECT_TRUE(board->GetProgress(progress));
    EXPECT_FLOAT_EQ(progress, 0.5f);
}

TEST(TavrelAdapterV2State, ResetKeepsTheCounters) {
    TavrelAdapterV2State board;
    board.row = 5;
    board.column = 6;
    board.subIndex = 2;
    board.pointsDone = 9;
    board.Reset();
    EXPECT_EQ(board.row, 5);
    EXPECT_EQ(board.column, 6);
    EXPECT_EQ(board.subIndex, 2);
    EXPECT_EQ(board.pointsDone, 9);
}

TEST(TavrelAdapterV2State, RecordWithEmptyBodyReadsBackAsTheState) {
    const TavrelAdapterV2State board;
    EXPECT_EQ(board.SerializeBinary(), "");
    std::string record;
    AppendSerializeObject(record, &board);
    EXPECT_EQ(record, Bytes({5, 0, 0, 0, 'T', 'V', '2', 'S', 'S', 0, 0, 0, 0}));
    std::unique_ptr<ISerializable> back(ViewDeserializeObject(record, SerializeInfo{}));
    EXPECT_NE(dynamic_cast<TavrelAdapterV2State*>(back.get()), nullptr);
}

// The null scanner's imitation of the boards.

struct Point {
    float x;
    float y;
};

std::vector<Point> Walk(NullScanner& scanner, int limit = 100000) {
    std::vector<Point> points;
    while (static_cast<int>(points.size()) < limit && scanner.NextScanPosition() == ScanStatus::Ready) {
        const Position p = scanner.GetScanPosition();
        EXPECT_EQ(p.z().m(), 0.0f);
        points.push_back({p.x().m(), p.y().m()});
    }
    return points;
}

TEST(NullScannerTavrelV2, LevelOneVisitsEachSelectedCellAtItsCentreInRowOrder) {
    TavrelAdapterV2Parameters cells;
    cells.SetCell(5, 1, true);
    cells.SetCell(3, 2, true);
    cells.SetCell(40, 0, true);
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    const auto points = Walk(scanner);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_FLOAT_EQ(points[0].x, 0.30375f); // (40 + 0.5) * 7.5 mm
    EXPECT_FLOAT_EQ(points[0].y, 0.00375f);
    EXPECT_FLOAT_EQ(points[1].x, 0.04125f); // (5 + 0.5) * 7.5 mm
    EXPECT_FLOAT_EQ(points[1].y, 0.01125f);
    EXPECT_FLOAT_EQ(points[2].x, 0.02625f);
    EXPECT_FLOAT_EQ(points[2].y, 0.01875f);
}

TEST(NullScannerTavrelV2, LevelTwoWalksTheGridOncePerSubPosition) {
    TavrelAdapterV2Parameters cells;
    cells.SetCell(0, 0, true);
    cells.SetCell(1, 0, true);
    cells.SetLevel(2);
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    const auto points = Walk(scanner);
    ASSERT_EQ(points.size(), 8u);
    // Sub-position p: column part p % 2, row part p / 2, a quarter of a cell from the edges.
    const float quarter = 0.001875f;
    const float threeQuarters = 0.005625f;
    const float cell = 0.0075f;
    const std::vector<Point> expected = {
        {quarter, quarter},       {cell + quarter, quarter},
        {threeQuarters, quarter}, {cell + threeQuarters, quarter},
        {quarter, threeQuarters}, {cell + quarter, threeQuarters},
        {threeQuarters, threeQuarters}, {cell + threeQuarters, threeQuarters},
    };
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_FLOAT_EQ(points[i].x, expected[i].x) << i;
        EXPECT_FLOAT_EQ(points[i].y, expected[i].y) << i;
    }
    const auto* board = dynamic_cast<const TavrelAdapterV2State*>(scanner.GetState());
    ASSERT_NE(board, nullptr);
    EXPECT_EQ(board->subIndex, 4);
}

TEST(NullScannerTavrelV2, AllCellsGiveTheWholeGridAndFinishedStays) {
    TavrelAdapterV2Parameters cells;
    cells.SetAll(true);
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    const auto points = Walk(scanner);
    ASSERT_EQ(points.size(), 1218u);
    EXPECT_FLOAT_EQ(points.back().x, 0.31125f);
    EXPECT_FLOAT_EQ(points.back().y, 0.21375f);
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
    // The board's state does not start over.
    scanner.GetState()->Reset();
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
}

TEST(NullScannerTavrelV2, NoSelectedCellFinishesAtOnceAndLeavesProgressAlone) {
    const TavrelAdapterV2Parameters cells;
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
    float progress = -1.0f;
    EXPECT_TRUE(scanner.GetProgress(progress));
    EXPECT_EQ(progress, 0.0f);
}

TEST(NullScannerTavrelV1, VisitsEachSelectedCellOnceAndStartsOverAfterReset) {
    TavrelAdapterV1Parameters cells;
    cells.SetCell(0, 0, true);
    cells.SetCell(41, 28, true);
    cells.SetInterleaved(true); // the imitation has no second pass
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    auto points = Walk(scanner);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_FLOAT_EQ(points[0].x, 0.00375f);
    EXPECT_FLOAT_EQ(points[0].y, 0.00375f);
    EXPECT_FLOAT_EQ(points[1].x, 0.31125f);
    EXPECT_FLOAT_EQ(points[1].y, 0.21375f);
    const auto* board = dynamic_cast<const TavrelAdapterV1State*>(scanner.GetState());
    ASSERT_NE(board, nullptr);
    EXPECT_EQ(board->row, 29);
    EXPECT_EQ(board->pointsDone, 0);
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);

    scanner.GetState()->Reset();
    points = Walk(scanner);
    EXPECT_EQ(points.size(), 2u);
}

TEST(NullScannerTavrelV1, NoSelectedCellFinishesAtOnceAndBoundsStillHold) {
    const TavrelAdapterV1Parameters cells;
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    EXPECT_EQ(scanner.NextScanPosition(), ScanStatus::Finished);
    Position low, high;
    EXPECT_TRUE(cells.GetBounds(low, high));
}

TEST(NullScannerTavrelV1, RectangleOfCellsInRowOrder) {
    TavrelAdapterV1Parameters cells;
    for (int row = 2; row <= 3; ++row)
        for (int column = 10; column <= 12; ++column)
            cells.SetCell(column, row, true);
    NullScanner scanner(0);
    scanner.SetState(cells.NewState().get());
    const auto points = Walk(scanner);
    ASSERT_EQ(points.size(), 6u);
    EXPECT_FLOAT_EQ(points[0].x, 0.07875f); // (10 + 0.5) * 7.5 mm
    EXPECT_FLOAT_EQ(points[0].y, 0.01875f); // (2 + 0.5) * 7.5 mm
    EXPECT_FLOAT_EQ(points[2].x, 0.09375f);
    EXPECT_FLOAT_EQ(points[3].x, 0.07875f);
    EXPECT_FLOAT_EQ(points[3].y, 0.02625f);
}

} // namespace
} // namespace nrq
