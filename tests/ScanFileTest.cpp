#include "halvex/ScanFile.h"

#include "HVX/App/Data/SpectralScanData.h"
#include "HVX/Device/NullAnalyzer.h"
#include "HVX/Device/Scanner/TavrelAdapterV1.h"
#include "HVX/Device/Scanner/TavrelAdapterV2.h"

#include "support/Bytes.h"
#include "support/HexBytes.h"

#include <gtest/gtest.h>

namespace halvex {
namespace {

using nrq::test::Bytes;
using nrq::test::U32;

const std::string magic("HVXSCAN\x1a", 8);
const std::string nullRecord(8, '\0');
// BlankScanData: the type "SD" and an empty body.
const std::string blankRecord = Bytes({2, 0, 0, 0, 'S', 'D', 0, 0, 0, 0});

std::string File(int32_t version, const std::string& records) {
    return magic + U32(static_cast<uint32_t>(version)) + U32(static_cast<uint32_t>(records.size())) + records;
}

// The 52 bytes of scan notes, field by field.
std::string Notes(int32_t outcome, uint32_t flags, int64_t measured, int64_t planned, double start, double stop, double rbw,
                  int32_t sweepPoints) {
    std::string notes;
    nrq::AppendRaw(notes, outcome);
    nrq::AppendRaw(notes, flags);
    nrq::AppendRaw(notes, measured);
    nrq::AppendRaw(notes, planned);
    nrq::AppendRaw(notes, start);
    nrq::AppendRaw(notes, stop);
    nrq::AppendRaw(notes, rbw);
    nrq::AppendRaw(notes, sweepPoints);
    return notes;
}

const std::string noNotes = Notes(0, 0, 0, 0, 0, 0, 0, 0);

ScanNotes StoppedNotes() {
    ScanNotes notes;
    notes.outcome = ScanOutcome::Stopped;
    notes.interleaved = true;
    notes.pointsMeasured = 7;
    notes.pointsPlanned = 30;
    notes.startHz = 100e6;
    notes.stopHz = 200e6;
    notes.sweepPoints = 600;
    return notes;
}

std::string ErrorOf(const std::string& bytes) {
    try {
        ReadScanFile(bytes);
    } catch (const ScanFileError& error) {
        return error.what();
    }
    return "no error";
}

TEST(ScanFile, HeaderRecordsAndNotesByteForByte) {
    const nrq::BlankScanData blank;
    // 26 bytes of records and 52 of notes: 78.
    const std::string expected = Bytes({'H', 'V', 'X', 'S', 'C', 'A', 'N', 0x1a, 6, 0, 0, 0, 78, 0, 0, 0}) +
                                 nullRecord + nullRecord + blankRecord +
                                 Bytes({1, 0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0}) +
                                 Bytes({0, 0, 0, 0, 0x84, 0xd7, 0x97, 0x41}) + // 100e6
                                 Bytes({0, 0, 0, 0, 0x84, 0xd7, 0xa7, 0x41}) + // 200e6
                                 std::string(8, '\0') + Bytes({0x58, 0x02, 0, 0}); // no RBW, 600 points
    EXPECT_TRUE(nrq::test::SameBytes(expected, WriteScanFile(nullptr, nullptr, blank, StoppedNotes())));
}

TEST(ScanFile, ParametersGoInAsObjectRecords) {
    const nrq::NullAnalyzerParameters analyzer; // body: its 8-byte field
    nrq::TavrelAdapterV1Parameters cells;       // body: the 153 bytes of the grid
    cells.SetCell(1, 0, true);
    const nrq::BlankScanData blank;
    std::string grid(153, '\0');
    grid[0] = 0x02;
    const std::string records = Bytes({6, 0, 0, 0, 'N', 'u', 'l', 'l', 'A', 'P', 8, 0, 0, 0}) + std::string(8, '\0') +
                                Bytes({5, 0, 0, 0, 'T', 'V', '1', 'S', 'P', 153, 0, 0, 0}) + grid + blankRecord;
    EXPECT_TRUE(nrq::test::SameBytes(File(6, records + noNotes), WriteScanFile(&analyzer, &cells, blank, {})));
}

TEST(ScanFile, ReadsBackWhatItWrote) {
    nrq::TavrelAdapterV2Parameters cells;
    cells.SetCell(3, 4, true);
    cells.SetLevel(2);
    nrq::SpectralScanData data;
    nrq::FullScanMeasurement sweep;
    sweep.startFrequency = nrq::Frequency(100e6);
    sweep.stepFrequency = nrq::Frequency(50e6);
    sweep.count = 3;
    sweep.values = {nrq::DecibelMilliwatts(-70.0f), nrq::DecibelMilliwatts(-20.5f), nrq::DecibelMilliwatts(-90.0f)};
    data.AddMeasurement(sweep, nrq::RepeatingBehavior::Overwrite);
    data.SetState(nrq::IScanData::State::Complete);
    const nrq::NullAnalyzerParameters analyzer;

    const ScanFileContents contents = ReadScanFile(WriteScanFile(&analyzer, &cells, data, StoppedNotes()));
    EXPECT_EQ(contents.version, 6);
    ASSERT_TRUE(contents.notes.has_value());
    EXPECT_EQ(contents.notes->outcome, ScanOutcome::Stopped);
    EXPECT_EQ(contents.notes->pointsMeasured, 7);
    EXPECT_EQ(contents.notes->pointsPlanned, 30);
    EXPECT_EQ(contents.notes->startHz, 100e6);
    EXPECT_EQ(contents.notes->stopHz, 200e6);
    EXPECT_EQ(contents.notes->rbwHz, 0.0);
    EXPECT_EQ(contents.notes->sweepPoints, 600);
    // NullAP is not a registered type: it comes back kept as it was.
    const auto* unknown = dynamic_cast<const nrq::IUnknownDeserialized*>(contents.analyzerParameters.get());
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->GetType(), "NullAP");
    EXPECT_EQ(unknown->GetData(), std::string(8, '\0'));
    const auto* grid = dynamic_cast<const nrq::TavrelAdapterV2Parameters*>(contents.scannerParameters.get());
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(grid->GetLevel(), 2);
    EXPECT_TRUE(grid->GetCell(3, 4));
    const auto* spectral = dynamic_cast<const nrq::SpectralScanData*>(contents.GetScanData());
    ASSERT_NE(spectral, nullptr);
    EXPECT_EQ(spectral->GetState(), nrq::IScanData::State::Complete);
    EXPECT_EQ(spectral->GetValues().size(), 3u);
    EXPECT_EQ(spectral->GetValues()[1].dBm(), -20.5f);
}

TEST(ScanFile, DescriptionOfAFileOfKnownParts) {
    nrq::TavrelAdapterV2Parameters cells;
    for (int column = 10; column <= 15; ++column)
        for (int row = 8; row <= 12; ++row)
            cells.SetCell(column, row, true);
    cells.SetLevel(3);
    nrq::SpectralScanData data;
    nrq::FullScanMeasurement sweep;
    sweep.startFrequency = nrq::Frequency(100e6);
    sweep.stepFrequency = nrq::Frequency(50e6);
    sweep.count = 3;
    sweep.values = {nrq::DecibelMilliwatts(-70.0f), nrq::DecibelMilliwatts(-20.5f), nrq::DecibelMilliwatts(-90.0f)};
    data.AddMeasurement(sweep, nrq::RepeatingBehavior::Overwrite);
    data.SetState(nrq::IScanData::State::Complete);
    // 2026-11-21 00:40:12 UTC, in 100 ns ticks from 1970.
    data.SetCreationTime(nrq::IScanData::CreationTime(nrq::IScanData::CreationDuration(17952216120000000)));
    nrq::DeviceInformation scanner{"NullScanner 0", "Nerquil Labs", "nullsc0", 0, ""};
    nrq::FillScanDataDeviceInfo(data.GetInfo().devices[0], scanner);
    const nrq::NullAnalyzerParameters analyzer;

    const std::string text = DescribeScanFile(ReadScanFile(WriteScanFile(&analyzer, &cells, data, StoppedNotes())));
    EXPECT_EQ(text, "format version: 6\n"
                    "outcome: stopped after 7 of 30 points\n"
                    "analyzer parameters: NullAP, the simulated analyzer, 100MHz to 200MHz, 600 points a sweep, "
                    "RBW not set\n"
                    "scanner parameters: TV2SP, the network board's grid\n"
                    "cells: 30 of 42 x 29, columns 10 to 15, rows 8 to 12\n"
                    "interleaved: yes\n"
                    "level: 3, resolution 1.875 mm\n"
                    "scan data: SpectralSD\n"
                    "state: Complete\n"
                    "created: 2026-11-21 00:40:12 UTC\n"
                    "scanner: Nerquil Labs, NullScanner 0, serial nullsc0\n"
                    "spectrum: 3 points, 100MHz to 200MHz\n"
                    "peak: -20.50 dBm at 150MHz\n"
                    "strongest 1: -20.50 dBm at 150MHz\n"
                    "strongest 2: -70.00 dBm at 100MHz\n"
                    "strongest 3: -90.00 dBm at 200MHz\n");
}

TEST(ScanFile, OutcomesAndNotedAnalyzerOfAVersionSixFile) {
    const nrq::BlankScanData blank;
    ScanNotes notes = StoppedNotes();
    notes.outcome = ScanOutcome::Finished;
    notes.pointsMeasured = 30;
    notes.rbwHz = 10e3;
    EXPECT_EQ(DescribeScanFile(ReadScanFile(WriteScanFile(nullptr, nullptr, blank, notes))),
              "format version: 6\n"
              "outcome: finished, 30 of 30 points\n"
              "analyzer parameters: none\n"
              "scanner parameters: none\n"
              "scan data: \"SD\", kept unread (0 bytes, format 5)\n");
    notes.outcome = ScanOutcome::Failed;
    notes.pointsMeasured = 12;
    const std::string failed = DescribeScanFile(ReadScanFile(WriteScanFile(nullptr, nullptr, blank, notes)));
    EXPECT_NE(failed.find("outcome: ended by a failure after 12 of 30 points\n"), std::string::npos) << failed;
    // An analyzer record this program cannot read, with what halvex noted beside it.
    const std::string unknownAnalyzer = Bytes({3, 0, 0, 0, 'X', 'Y', 'Z', 0, 0, 0, 0});
    const std::string file = File(6, unknownAnalyzer + nullRecord + blankRecord + Notes(0, 0, 1, 1, 1e9, 2e9, 1e6, 1001));
    EXPECT_EQ(DescribeScanFile(ReadScanFile(file)),
              "format version: 6\n"
              "outcome: finished, 1 of 1 points\n"
              "analyzer parameters: \"XYZ\", kept unread (0 bytes, format 5)\n"
              "analyzer as noted by halvex: 1GHz to 2GHz, 1001 points a sweep, RBW 1MHz\n"
              "scanner parameters: none\n"
              "scan data: \"SD\", kept unread (0 bytes, format 5)\n");
}

TEST(ScanFile, NotesCutShortOrFollowedByBytes) {
    const std::string records = nullRecord + nullRecord + blankRecord;
    EXPECT_EQ(ErrorOf(File(6, records + noNotes.substr(0, 51))),
              "the scan notes are cut short: they take 52 bytes, 51 are there");
    EXPECT_EQ(ErrorOf(File(6, records)), "the scan notes are cut short: they take 52 bytes, 0 are there");
    EXPECT_EQ(ErrorOf(File(6, records + noNotes + "z")), "1 bytes follow the scan notes");
}

TEST(ScanFile, HeaderIsCheckedBeforeTheBody) {
    // A file whose size is known: the announced length is compared with it.
    const std::string header = magic + U32(6) + U32(1000);
    EXPECT_EQ(ReadScanFileHeader(header, 1016).length, 1000u);
    auto headerError = [&](std::string_view first, int64_t size) {
        try {
            ReadScanFileHeader(first, size);
        } catch (const ScanFileError& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(headerError(header, 3'000'000'000), "2999998984 bytes follow the records, where the file should end");
    EXPECT_EQ(headerError(header, 116), "the file is truncated: the header announces 1000 bytes of records, 100 are there");
    EXPECT_EQ(headerError(std::string(16, '\0'), 3'000'000'000), "not a halvex scan file");
    EXPECT_EQ(headerError(magic.substr(0, 5), 5), "the file is truncated: its header takes 16 bytes, it has 5");
}

TEST(ScanFile, BlankScanDataReadsBackUnreadAndNullRecordsAsNone) {
    const ScanFileContents contents = ReadScanFile(File(5, nullRecord + nullRecord + blankRecord));
    EXPECT_EQ(contents.analyzerParameters, nullptr);
    EXPECT_EQ(contents.scannerParameters, nullptr);
    ASSERT_NE(contents.scanData, nullptr);
    EXPECT_EQ(contents.GetScanData(), nullptr);
    EXPECT_EQ(DescribeScanFile(contents), "format version: 5\n"
                                          "analyzer parameters: none\n"
                                          "scanner parameters: none\n"
                                          "scan data: \"SD\", kept unread (0 bytes, format 5)\n");
}

TEST(ScanFile, OlderVersionReachesTheRecords) {
    // A spectral body of format 4: no info block after state and creation time.
    std::string body = Bytes({2}) + std::string(8, '\0');
    nrq::AppendRaw(body, 100e6);
    nrq::AppendRaw(body, 1e6);
    body += U32(2) + U32(2);
    nrq::AppendRaw(body, -1.5f);
    nrq::AppendRaw(body, -2.5f);
    const std::string record = Bytes({10, 0, 0, 0}) + "SpectralSD" + U32(static_cast<uint32_t>(body.size())) + body;
    const ScanFileContents contents = ReadScanFile(File(4, nullRecord + nullRecord + record));
    EXPECT_EQ(contents.version, 4);
    const auto* spectral = dynamic_cast<const nrq::SpectralScanData*>(contents.GetScanData());
    ASSERT_NE(spectral, nullptr);
    ASSERT_EQ(spectral->GetValues().size(), 2u);
    EXPECT_EQ(spectral->GetValues()[1].dBm(), -2.5f);
    EXPECT_EQ(spectral->GetState(), nrq::IScanData::State::Complete);
}

TEST(ScanFile, NotAScanFile) {
    EXPECT_EQ(ErrorOf("hello, world, this is text"), "not a halvex scan file");
    EXPECT_EQ(ErrorOf("HVXSCAM"), "not a halvex scan file");
}

TEST(ScanFile, TruncatedHeader) {
    EXPECT_EQ(ErrorOf(""), "the file is truncated: its header takes 16 bytes, it has 0");
    EXPECT_EQ(ErrorOf("HVX"), "the file is truncated: its header takes 16 bytes, it has 3");
    EXPECT_EQ(ErrorOf(magic + U32(5) + Bytes({26, 0})), "the file is truncated: its header takes 16 bytes, it has 14");
}

TEST(ScanFile, UnsupportedVersions) {
    const std::string records = nullRecord + nullRecord + blankRecord;
    EXPECT_EQ(ErrorOf(File(7, records)), "format version 7 is not supported (this halvex reads versions 1 to 6)");
    EXPECT_EQ(ErrorOf(File(0, records)), "format version 0 is not supported (this halvex reads versions 1 to 6)");
    EXPECT_EQ(ErrorOf(File(-1, records)), "format version -1 is not supported (this halvex reads versions 1 to 6)");
}

TEST(ScanFile, TruncatedRecords) {
    const std::string whole = File(5, nullRecord + nullRecord + blankRecord);
    EXPECT_EQ(ErrorOf(whole.substr(0, whole.size() - 1)),
              "the file is truncated: the header announces 26 bytes of records, 25 are there");
    EXPECT_EQ(ErrorOf(whole.substr(0, 16)), "the file is truncated: the header announces 26 bytes of records, 0 are there");
}

TEST(ScanFile, BytesAfterTheRecords) {
    EXPECT_EQ(ErrorOf(File(5, nullRecord + nullRecord + blankRecord) + "xyz"),
              "3 bytes follow the records, where the file should end");
    EXPECT_EQ(ErrorOf(File(5, nullRecord + nullRecord + blankRecord + "ab")),
              "2 bytes follow the scan data record");
}

TEST(ScanFile, DamagedRecordIsNamed) {
    // The scanner record announces a 200-byte type name in a 26-byte area.
    const std::string damaged = File(5, nullRecord + Bytes({200, 0, 0, 0, 0, 0, 0, 0}) + blankRecord);
    const std::string message = ErrorOf(damaged);
    // The library's "(line)" prefix stays out of the message.
    EXPECT_EQ(message, "the scanner parameters record is damaged: Deserialization ERROR");
    // Only two records where three belong.
    const std::string missing = ErrorOf(File(5, nullRecord + nullRecord));
    EXPECT_EQ(missing.rfind("the scan data record is damaged: ", 0), 0u) << missing;
    // A grid body one byte short.
    const std::string shortGrid = Bytes({5, 0, 0, 0, 'T', 'V', '1', 'S', 'P', 152, 0, 0, 0}) + std::string(152, '\0');
    const std::string grid = ErrorOf(File(5, nullRecord + shortGrid + blankRecord));
    EXPECT_EQ(grid.rfind("the scanner parameters record is damaged: ", 0), 0u) << grid;
}

TEST(ScanFile, RecordOfAnotherKind) {
    const nrq::TavrelAdapterV1Parameters cells;
    std::string record;
    nrq::AppendSerializeObject(record, &cells);
    EXPECT_EQ(ErrorOf(File(5, record + nullRecord + blankRecord)),
              "the analyzer parameters record holds \"TV1SP\", which is of another kind");
    EXPECT_EQ(ErrorOf(File(5, nullRecord + nullRecord + record)),
              "the scan data record holds \"TV1SP\", which is of another kind");
}

} // namespace
} // namespace halvex
