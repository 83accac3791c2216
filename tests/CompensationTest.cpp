#include "HVX/App/Data/Compensation.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace nrq {
namespace {

constexpr const char* notACorrectionFile = "The given data is not a correction file";
constexpr const char* corrupted = "The correction file was corrupted.";

// Little-endian bytes put together field by field.
class Bytes {
public:
    Bytes& Text(std::string_view text) {
        data.append(text);
        return *this;
    }
    Bytes& U32(uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8)
            data.push_back(static_cast<char>((value >> shift) & 0xff));
        return *this;
    }
    Bytes& U64(uint64_t value) {
        for (int shift = 0; shift < 64; shift += 8)
            data.push_back(static_cast<char>((value >> shift) & 0xff));
        return *this;
    }
    Bytes& F32(float value) { return U32(std::bit_cast<uint32_t>(value)); }
    Bytes& F64(double value) { return U64(std::bit_cast<uint64_t>(value)); }
    Bytes& Record(double hertz, std::initializer_list<float> grid) {
        F64(hertz);
        for (float value : grid)
            F32(value);
        return *this;
    }

    std::string data;
};

// Magic, the four unread bytes, then the three counts.
Bytes Header(uint32_t columns, uint32_t rows, uint32_t frequencyCount) {
    Bytes bytes;
    bytes.Text("CORRECTION").U32(0xdeadbeef).U32(columns).U32(rows).U32(frequencyCount);
    return bytes;
}

void ExpectDecodeError(const std::string& file, const char* message) {
    try {
        Compensation::Decode(file);
        ADD_FAILURE() << "decoded " << file.size() << " bytes";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), message) << "at " << file.size() << " bytes";
    }
}

Frequency Hz(double value) {
    return Frequency(value);
}

Vector<Length, 3> At(float x, float y, float z = 0.0f) {
    return Vector<Length, 3>(Length(x), Length(y), Length(z));
}

// 3 columns by 2 rows, rows stored one after the other, at 100 and 300 Hz.
std::string ThreeByTwoFile() {
    return Header(3, 2, 2)
        .Record(100.0, {10, 11, 12, 20, 21, 22})
        .Record(300.0, {110, 111, 112, 120, 121, 122})
        .data;
}

// A single place per frequency: 1, 2, 3 dB at 100, 200, 400 Hz.
std::string ThreeFrequencyFile() {
    return Header(1, 1, 3).Record(100.0, {1}).Record(200.0, {2}).Record(400.0, {3}).data;
}

static_assert(sizeof(Range<Frequency>) == 24);
static_assert(!std::is_default_constructible_v<Compensation>);
static_assert(!std::is_copy_constructible_v<Compensation>);
static_assert(!std::is_copy_assignable_v<Compensation>);
static_assert(std::is_nothrow_move_constructible_v<Compensation>);
static_assert(std::is_nothrow_move_assignable_v<Compensation>);

TEST(CompensationDecode, FewerThanElevenBytesIsNotACorrectionFileEvenWithTheMagic) {
    ExpectDecodeError("", notACorrectionFile);
    ExpectDecodeError("CORRECTIO", notACorrectionFile);
    ExpectDecodeError("CORRECTION", notACorrectionFile);
}

TEST(CompensationDecode, WrongMagicIsNotACorrectionFile) {
    std::string file = Header(0, 0, 0).data;
    file[9] = 'M';
    ExpectDecodeError(file, notACorrectionFile);
    ExpectDecodeError(std::string(26, '\0'), notACorrectionFile);
    // The magic has no terminator but is case-sensitive.
    std::string lower = Header(0, 0, 0).data;
    lower[0] = 'c';
    ExpectDecodeError(lower, notACorrectionFile);
}

TEST(CompensationDecode, ColumnsAboveTwoHundredAreCorrupted) {
    ExpectDecodeError(Header(201, 1, 0).data, corrupted);
    ExpectDecodeError(Header(0xffffffffu, 1, 0).data, corrupted);
}

TEST(CompensationDecode, RowsAboveTwoHundredAreCorrupted) {
    ExpectDecodeError(Header(1, 201, 0).data, corrupted);
}

TEST(CompensationDecode, MoreThanAThousandFrequenciesAreCorrupted) {
    ExpectDecodeError(Header(1, 1, 1001).data, corrupted);
}

TEST(CompensationDecode, TheLimitsThemselvesPassWithSmallFiles) {
    // 200 x 200 with one frequency: 26 + 8 + 160000 bytes.
    std::string wide = Header(200, 200, 1).F64(1e6).data;
    for (int place = 0; place < 200 * 200; ++place)
        wide += Bytes().F32(static_cast<float>(place % 1000)).data;
    const Compensation grid = Compensation::Decode(wide);
    EXPECT_EQ(grid.GetValue(Hz(1e6), 199, 199), 999.0f); // place 39999
    EXPECT_EQ(grid.GetValue(Hz(1e6), 5, 1), 205.0f);

    // 1000 frequencies of one value each, k dB at k MHz.
    Bytes many = Header(0, 0, 1000);
    for (int k = 1; k <= 1000; ++k)
        many.Record(k * 1e6, {static_cast<float>(k)});
    const Compensation table = Compensation::Decode(many.data);
    EXPECT_EQ(table.GetValue(Hz(999e6)), 999.0f);
    EXPECT_EQ(table.GetValue(Hz(999.5e6)), 999.5f);
    EXPECT_EQ(table.GetValue(Hz(2e9)), 1000.0f);
}

TEST(CompensationDecode, TwoHundredByTwoHundredByAThousandPasses) {
    constexpr size_t gridBytes = 200 * 200 * 4;
    constexpr size_t recordBytes = 8 + gridBytes;
    std::string file = Header(200, 200, 1000).data;
    ASSERT_EQ(file.size(), 26u);
    file.resize(26 + 1000 * recordBytes, '\0');
    const auto put = [&](size_t offset, const std::string& bytes) { file.replace(offset, bytes.size(), bytes); };
    for (size_t k = 0; k < 1000; ++k)
        put(26 + k * recordBytes, Bytes().F64(static_cast<double>(k + 1) * 1e6).data);
    // Record 0, place 0 and record 999, place 39999 (cell 199, 199).
    put(26 + 8, Bytes().F32(-2.5f).data);
    put(26 + 999 * recordBytes + 8 + 39999 * 4, Bytes().F32(7.25f).data);
    ASSERT_EQ(file.size(), 160008026u);

    const Compensation compensation = Compensation::Decode(file);
    EXPECT_EQ(compensation.GetValue(Hz(1e6)), -2.5f);
    EXPECT_EQ(compensation.GetValue(Hz(0.5e6), 0, 0), -2.5f);
    EXPECT_EQ(compensation.GetValue(Hz(1000e6), 199, 199), 7.25f);
    EXPECT_EQ(compensation.GetValue(Hz(5e9), 199, 199), 7.25f);
    EXPECT_EQ(compensation.GetValue(Hz(500e6), 199, 199), 0.0f);
}

TEST(CompensationDecode, EmptyTableDecodesFromTheHeaderAlone) {
    const Compensation compensation = Compensation::Decode(Header(5, 4, 0).data);
    EXPECT_EQ(compensation.GetValue(Hz(1e6)), 0.0f);
    EXPECT_EQ(compensation.GetValue(Hz(1e6), 2, 3), 0.0f);
    EXPECT_EQ(compensation.GetValue(Hz(1e6), 7, -1), 0.0f);
    EXPECT_EQ(compensation.GetValue(Hz(1e6), At(0.02f, 0.01f)), 0.0f);
}

TEST(CompensationDecode, TruncatedFilesAreCorrupted) {
    // 2 x 1 grid, two records of 8 + 2 * 4 bytes: 58 bytes in all.
    const std::string file = Header(2, 1, 2).Record(1e3, {1, 2}).Record(2e3, {3, 4}).data;
    ASSERT_EQ(file.size(), 58u);
    ASSERT_NO_THROW(Compensation::Decode(file));

    // Below 11 bytes the magic decides; from there on the counts run out.
    for (size_t length : {0u, 5u, 10u})
        ExpectDecodeError(file.substr(0, length), notACorrectionFile);
    // Inside the unread field, inside each count, in the first frequency,
    // in the first grid, at a record boundary, one byte short.
    for (size_t length : {11u, 14u, 17u, 18u, 21u, 22u, 25u, 26u, 30u, 34u, 38u, 42u, 50u, 57u})
        ExpectDecodeError(file.substr(0, length), corrupted);
    for (size_t length = 11; length < file.size(); ++length)
        ExpectDecodeError(file.substr(0, length), corrupted);
}

TEST(CompensationDecode, BytesBeyondTheRecordsAreIgnored) {
    const std::string file = Header(0, 0, 1).Record(1e3, {-6.5f}).Text("trailing bytes").data;
    const Compensation compensation = Compensation::Decode(file);
    EXPECT_EQ(compensation.GetValue(Hz(1e3)), -6.5f);
}

TEST(CompensationDecode, ColumnsWithoutRowsHoldOneValuePerFrequency) {
    // max(3 x 0, 1) = 1 place: records of 8 + 4 bytes.
    const std::string file = Header(3, 0, 2).Record(100.0, {4}).Record(200.0, {8}).data;
    ASSERT_EQ(file.size(), 26u + 2 * 12);
    const Compensation compensation = Compensation::Decode(file);
    EXPECT_EQ(compensation.GetValue(Hz(150.0)), 6.0f);
}

TEST(CompensationGetValue, EmptyGridGivesTheSameResultFromAllThree) {
    // Columns and rows 0: one place per frequency, 5 dB at 100 Hz, 9 dB at 200 Hz.
    const Compensation compensation =
        Compensation::Decode(Header(0, 0, 2).Record(100.0, {5}).Record(200.0, {9}).data);
    for (double hertz : {50.0, 100.0, 150.0, 175.0, 200.0, 1e9}) {
        const float plain = compensation.GetValue(Hz(hertz));
        EXPECT_EQ(compensation.GetValue(Hz(hertz), 0, 0), plain) << hertz;
        EXPECT_EQ(compensation.GetValue(Hz(hertz), 3, 4), plain) << hertz;
        EXPECT_EQ(compensation.GetValue(Hz(hertz), -2, -9), plain) << hertz;
        EXPECT_EQ(compensation.GetValue(Hz(hertz), At(1.0f, 2.0f, 3.0f)), plain) << hertz;
        EXPECT_EQ(compensation.GetValue(Hz(hertz), At(0.0f, 0.0f)), plain) << hertz;
    }
    // (150 - 100) / (200 - 100) = 0.5: 0.5 x 5 + 0.5 x 9.
    EXPECT_EQ(compensation.GetValue(Hz(150.0)), 7.0f);
    // t = 0.75: 0.25 x 5 + 0.75 x 9 = 1.25 + 6.75.
    EXPECT_EQ(compensation.GetValue(Hz(175.0), 3, 4), 8.0f);
}

TEST(CompensationGetValue, FrequencyOnAnEntryGivesThatEntry) {
    const Compensation compensation = Compensation::Decode(ThreeFrequencyFile());
    EXPECT_EQ(compensation.GetValue(Hz(100.0)), 1.0f);
    EXPECT_EQ(compensation.GetValue(Hz(200.0)), 2.0f);
    EXPECT_EQ(compensation.GetValue(Hz(400.0)), 3.0f);
    EXPECT_EQ(compensation.GetValue(Hz(200.0), 0, 0), 2.0f);
}

TEST(CompensationGetValue, FrequencyBelowTheFirstEntryGivesTheFirstEntry) {
    const Compensation compensation = Compensation::Decode(ThreeFrequencyFile());
    EXPECT_EQ(compensation.GetValue(Hz(99.0)), 1.0f);
    EXPECT_EQ(compensation.GetValue(Hz(0.0)), 1.0f);
    EXPECT_EQ(compensation.GetValue(Hz(-1e9)), 1.0f);
    EXPECT_EQ(compensation.GetValue(Hz(-1e9), 0, 0), 1.0f);
}

TEST(CompensationGetValue, FrequencyAboveTheLastEntryGivesTheLastEntry) {
    const Compensation compensation = Compensation::Decode(ThreeFrequencyFile());
    EXPECT_EQ(compensation.GetValue(Hz(401.0)), 3.0f);
    EXPECT_EQ(compensation.GetValue(Hz(1e12)), 3.0f);
    EXPECT_EQ(compensation.GetValue(Hz(std::numeric_limits<double>::infinity())), 3.0f);
    EXPECT_EQ(compensation.GetValue(Hz(1e12), 0, 0), 3.0f);
}

TEST(CompensationGetValue, InterpolatesLinearlyBetweenNeighbours) {
    const Compensation compensation = Compensation::Decode(ThreeFrequencyFile());
    // 150 Hz: t = 50 / 100 = 0.5 between 1 and 2.
    EXPECT_EQ(compensation.GetValue(Hz(150.0)), 1.5f);
    // 250 Hz: t = 50 / 200 = 0.25 between 2 and 3: 1.5 + 0.75.
    EXPECT_EQ(compensation.GetValue(Hz(250.0)), 2.25f);
    // 350 Hz: t = 0.75: 0.5 + 2.25.
    EXPECT_EQ(compensation.GetValue(Hz(350.0)), 2.75f);

    // -4 dB at 1 MHz, 8 dB at 3 MHz; 1.5 MHz is t = 0.25: -3 + 2.
    const Compensation signedValues =
        Compensation::Decode(Header(0, 0, 2).Record(1e6, {-4}).Record(3e6, {8}).data);
    EXPECT_EQ(signedValues.GetValue(Hz(1.5e6)), -1.0f);
    // 2.5 MHz is t = 0.75: -1 + 6.
    EXPECT_EQ(signedValues.GetValue(Hz(2.5e6)), 5.0f);
}

TEST(CompensationGetValue, PlainLookupReadsTheFirstPlaceOfTheGrid) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    EXPECT_EQ(compensation.GetValue(Hz(100.0)), 10.0f);
    EXPECT_EQ(compensation.GetValue(Hz(300.0)), 110.0f);
    // 150 Hz: t = 0.25: 7.5 + 27.5.
    EXPECT_EQ(compensation.GetValue(Hz(150.0)), 35.0f);
}

TEST(CompensationGetValue, CellsAreReadRowByRow) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 0, 0), 10.0f);
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 2, 0), 12.0f);
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 0, 1), 20.0f);
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 1, 1), 21.0f);
    EXPECT_EQ(compensation.GetValue(Hz(300.0), 2, 1), 122.0f);
    // 150 Hz, cell (2, 1): t = 0.25: 0.75 x 22 + 0.25 x 122 = 16.5 + 30.5.
    EXPECT_EQ(compensation.GetValue(Hz(150.0), 2, 1), 47.0f);
    // 200 Hz, cell (1, 0): t = 0.5: 5.5 + 55.5.
    EXPECT_EQ(compensation.GetValue(Hz(200.0), 1, 0), 61.0f);
}

TEST(CompensationGetValue, CellJustPastARowReadsTheNextRowsFirstPlace) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    // cellX = columns: place 0 x 3 + 3 = 3, the first of row 1.
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 3, 0), 20.0f);
    EXPECT_EQ(compensation.GetValue(Hz(300.0), 3, 0), 120.0f);
    // Past the last row: place 1 x 3 + 3 = 6, the next record's first place.
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 3, 1), 110.0f);
    // cellY = rows: place 2 x 3 + 1 = 7, the next record's second place.
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 1, 2), 111.0f);
}

TEST(CompensationGetValue, CellsAreClampedToZeroAndTheCounts) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    EXPECT_EQ(compensation.GetValue(Hz(100.0), -5, -5), 10.0f);
    EXPECT_EQ(compensation.GetValue(Hz(100.0), -1, 1), 20.0f);
    // Clamped to 3, the count: as (3, 0).
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 100, 0), 20.0f);
    // Clamped to (0, 2): place 6.
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 0, 100), 110.0f);
    EXPECT_EQ(compensation.GetValue(Hz(100.0), std::numeric_limits<int>::min(), 0), 10.0f);
    EXPECT_EQ(compensation.GetValue(Hz(100.0), std::numeric_limits<int>::max(), 0), 20.0f);
}

TEST(CompensationGetValue, PlacesPastTheWholeTableReadItsLastValue) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    // Cell (3, 2) is place 9; at 300 Hz that lies behind the last record.
    EXPECT_EQ(compensation.GetValue(Hz(300.0), 3, 2), 122.0f);
    EXPECT_EQ(compensation.GetValue(Hz(300.0), 0, 2), 122.0f);
    // At 100 Hz (t = 0) place 9 is the second record's place 3.
    EXPECT_EQ(compensation.GetValue(Hz(100.0), 3, 2), 120.0f);
    // 200 Hz, t = 0.5 between 120 and the held 122.
    EXPECT_EQ(compensation.GetValue(Hz(200.0), 3, 2), 121.0f);
}

TEST(CompensationGetValue, PositionsMapToCellsOfSevenAndAHalfMillimetres) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    const Frequency f = Hz(100.0);
    EXPECT_EQ(compensation.GetValue(f, At(0.0f, 0.0f)), 10.0f);
    // 0.0074 / 0.0075 = 0.987 is still cell 0; 0.0075 is exactly cell 1.
    EXPECT_EQ(compensation.GetValue(f, At(0.0074f, 0.0f)), 10.0f);
    EXPECT_EQ(compensation.GetValue(f, At(0.0075f, 0.0f)), 11.0f);
    EXPECT_EQ(compensation.GetValue(f, At(0.0076f, 0.0f)), 11.0f);
    // 0.0149 / 0.0075 = 1.987 is cell 1, 0.0151 / 0.0075 = 2.013 cell 2.
    EXPECT_EQ(compensation.GetValue(f, At(0.0149f, 0.0f)), 11.0f);
    EXPECT_EQ(compensation.GetValue(f, At(0.0151f, 0.0f)), 12.0f);
    // y: 0.0076 is row 1; x 0.0001 is cell 0.
    EXPECT_EQ(compensation.GetValue(f, At(0.0001f, 0.0076f)), 20.0f);
    EXPECT_EQ(compensation.GetValue(f, At(0.0149f, 0.0100f)), 21.0f);
    // Cut towards zero: small negative positions are cell 0, larger ones clamp to it.
    EXPECT_EQ(compensation.GetValue(f, At(-0.0074f, -0.0074f)), 10.0f);
    EXPECT_EQ(compensation.GetValue(f, At(-0.02f, 0.0076f)), 20.0f);
    // 0.0225 / 0.0075 is about 3, clamped to the count: as cell (3, 0).
    EXPECT_EQ(compensation.GetValue(f, At(0.0230f, 0.0f)), 20.0f);
    // Far outside: clamped to (3, 2), place 9.
    EXPECT_EQ(compensation.GetValue(f, At(1e30f, 1e30f)), 120.0f);
    EXPECT_EQ(compensation.GetValue(f, At(-1e30f, -1e30f)), 10.0f);
}

TEST(CompensationGetValue, PositionIgnoresZAndMatchesTheCellLookup) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    const Frequency f = Hz(175.0);
    EXPECT_EQ(compensation.GetValue(f, At(0.008f, 0.008f, 0.0f)), compensation.GetValue(f, 1, 1));
    EXPECT_EQ(compensation.GetValue(f, At(0.008f, 0.008f, 5.0f)), compensation.GetValue(f, 1, 1));
    EXPECT_EQ(compensation.GetValue(f, At(0.008f, 0.008f, -5.0f)), compensation.GetValue(f, 1, 1));
    // t = 0.375: 0.625 x 21 + 0.375 x 121 = 13.125 + 45.375.
    EXPECT_EQ(compensation.GetValue(f, At(0.008f, 0.008f, 1.0f)), 58.5f);
}

TEST(CompensationGetValue, NotANumberPositionIsCellZero) {
    const Compensation compensation = Compensation::Decode(ThreeByTwoFile());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(compensation.GetValue(Hz(100.0), At(nan, nan)), 10.0f);
}

TEST(CompensationGetValue, OneFrequencyHoldsEverywhere) {
    const Compensation compensation =
        Compensation::Decode(Header(2, 1, 1).Record(1e6, {-3.5f, 4.5f}).data);
    for (double hertz : {-1.0, 0.0, 1e3, 1e6, 2e6, 1e12}) {
        EXPECT_EQ(compensation.GetValue(Hz(hertz)), -3.5f) << hertz;
        EXPECT_EQ(compensation.GetValue(Hz(hertz), 1, 0), 4.5f) << hertz;
        EXPECT_EQ(compensation.GetValue(Hz(hertz), At(0.0080f, 0.0f)), 4.5f) << hertz;
    }
    // Places 2 and 4 lie past the only record: its last value holds.
    EXPECT_EQ(compensation.GetValue(Hz(1e6), 2, 0), 4.5f);
    EXPECT_EQ(compensation.GetValue(Hz(1e6), 2, 1), 4.5f);
}

TEST(CompensationGetValue, EqualNeighbouringFrequenciesGiveNoNaN) {
    // On and above a repeated last frequency: span 0, t taken as 0.
    const Compensation atTheEnd =
        Compensation::Decode(Header(0, 0, 3).Record(100.0, {1}).Record(200.0, {2}).Record(200.0, {5}).data);
    EXPECT_EQ(atTheEnd.GetValue(Hz(200.0)), 2.0f);
    EXPECT_EQ(atTheEnd.GetValue(Hz(300.0)), 2.0f);
    EXPECT_EQ(atTheEnd.GetValue(Hz(150.0)), 1.5f);

    // Below a repeated first frequency.
    const Compensation atTheStart =
        Compensation::Decode(Header(0, 0, 3).Record(100.0, {1}).Record(100.0, {4}).Record(200.0, {6}).data);
    EXPECT_EQ(atTheStart.GetValue(Hz(50.0)), 1.0f);
    // On it the walk passes both: t = 0 from the second.
    EXPECT_EQ(atTheStart.GetValue(Hz(100.0)), 4.0f);
    EXPECT_EQ(atTheStart.GetValue(Hz(150.0)), 5.0f);

    const Compensation allEqual =
        Compensation::Decode(Header(0, 0, 2).Record(100.0, {7}).Record(100.0, {9}).data);
    for (double hertz : {0.0, 100.0, 1e9})
        EXPECT_FALSE(std::isnan(allEqual.GetValue(Hz(hertz)))) << hertz;
    EXPECT_EQ(allEqual.GetValue(Hz(100.0)), 7.0f);
}

TEST(CompensationMove, ConstructionHandsOverTheTable) {
    Compensation source = Compensation::Decode(ThreeByTwoFile());
    Compensation target(std::move(source));
    EXPECT_EQ(target.GetValue(Hz(100.0), 1, 1), 21.0f);
    EXPECT_EQ(target.GetValue(Hz(150.0), 2, 1), 47.0f);
    // The source is left empty and still answers.
    EXPECT_EQ(source.GetValue(Hz(100.0)), 0.0f);
    EXPECT_EQ(source.GetValue(Hz(100.0), 1, 1), 0.0f);
    EXPECT_EQ(source.GetValue(Hz(100.0), At(0.01f, 0.01f)), 0.0f);
}

TEST(CompensationMove, AssignmentReplacesTheTable) {
    Compensation target = Compensation::Decode(ThreeFrequencyFile());
    Compensation source = Compensation::Decode(ThreeByTwoFile());
    target = std::move(source);
    EXPECT_EQ(target.GetValue(Hz(300.0), 2, 0), 112.0f);
    EXPECT_EQ(source.GetValue(Hz(300.0), 2, 0), 0.0f);

    // A moved-from object takes a table again.
    source = Compensation::Decode(ThreeFrequencyFile());
    EXPECT_EQ(source.GetValue(Hz(250.0)), 2.25f);
}

TEST(CompensationMove, SelfAssignmentKeepsTheTable) {
    Compensation compensation = Compensation::Decode(ThreeFrequencyFile());
    Compensation& alias = compensation;
    compensation = std::move(alias);
    EXPECT_EQ(compensation.GetValue(Hz(150.0)), 1.5f);
}

TEST(CompensationMove, ObjectsTravelInContainers) {
    std::vector<Compensation> list;
    for (int i = 0; i < 10; ++i)
        list.push_back(Compensation::Decode(Header(0, 0, 1).Record(1.0, {static_cast<float>(i)}).data));
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(list[i].GetValue(Hz(1.0)), static_cast<float>(i));
}

TEST(CompensationCache, CopiesTheRangeAndZeroesTheRest) {
    const Compensation compensation = Compensation::Decode(ThreeFrequencyFile());
    const Range<Frequency> range{Hz(1e6), Hz(3e9), Hz(5e5)};
    const CompensationCache cache = compensation.MakeCachedValues(range);
    EXPECT_EQ(cache.range.min, Hz(1e6));
    EXPECT_EQ(cache.range.max, Hz(3e9));
    EXPECT_EQ(cache.range.step, Hz(5e5));
    EXPECT_EQ(cache.reserved0, 0u);
    EXPECT_EQ(cache.reserved1, 0u);
    EXPECT_EQ(cache.gap, 0u);
    EXPECT_TRUE(cache.values.empty());
}

TEST(CompensationCache, WorksOnAnEmptyTable) {
    const Compensation compensation = Compensation::Decode(Header(0, 0, 0).data);
    const CompensationCache cache = compensation.MakeCachedValues({Hz(1.0), Hz(2.0), Hz(0.5)});
    EXPECT_TRUE(cache.range == (Range<Frequency>{Hz(1.0), Hz(2.0), Hz(0.5)}));
    EXPECT_TRUE(cache.values.empty());
}

} // namespace
} // namespace nrq
