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

std::string ErrorOf(const std::string& bytes) {
    try {
        ReadScanFile(bytes);
    } catch (const ScanFileError& error) {
        return error.what();
    }
    return "no error";
}

TEST(ScanFile, HeaderAndRecordsByteForByte) {
    const nrq::BlankScanData blank;
    const std::string expected = Bytes({'H', 'V', 'X', 'S', 'C', 'A', 'N', 0x1a, 5, 0, 0, 0, 26, 0, 0, 0}) +
                                 nullRecord + nullRecord + blankRecord;
    EXPECT_TRUE(nrq::test::SameBytes(expected, WriteScanFile(nullptr, nullptr, blank)));
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
    EXPECT_TRUE(nrq::test::SameBytes(File(5, records), WriteScanFile(&analyzer, &cells, blank)));
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

    const ScanFileContents contents = ReadScanFile(WriteScanFile(&analyzer, &cells, data));
    EXPECT_EQ(contents.version, 5);
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

    const std::string text = DescribeScanFile(ReadScanFile(WriteScanFile(&analyzer, &cells, data)));
    EXPECT_EQ(text, "format version: 5\n"
                    "analyzer parameters: \"NullAP\", kept unread (8 bytes, format 5)\n"
                    "scanner parameters: TV2SP, the network board's grid\n"
                    "cells: 30 of 42 x 29, columns 10 to 15, rows 8 to 12\n"
                    "level: 3, resolution 1.875 mm\n"
                    "scan data: SpectralSD\n"
                    "state: Complete\n"
                    "created: 2026-11-21 00:40:12 UTC\n"
                    "scanner: Nerquil Labs, NullScanner 0, serial nullsc0\n"
                    "spectrum: 3 points, 100MHz to 200MHz\n"
                    "peak: -20.50 dBm at 150MHz\n");
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
    EXPECT_EQ(ErrorOf(File(6, records)), "format version 6 is not supported (this halvex reads versions 1 to 5)");
    EXPECT_EQ(ErrorOf(File(0, records)), "format version 0 is not supported (this halvex reads versions 1 to 5)");
    EXPECT_EQ(ErrorOf(File(-1, records)), "format version -1 is not supported (this halvex reads versions 1 to 5)");
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
    EXPECT_EQ(message.rfind("the scanner parameters record is damaged: (", 0), 0u) << message;
    EXPECT_NE(message.find(") Deserialization ERROR"), std::string::npos) << message;
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
