#pragma once

// The halvex scan file: the host's own container around the library's object
// records. Pure functions over bytes, so that the reader can be fuzzed.
//
// | Offset | Size | Content                                                   |
// |--------|------|-----------------------------------------------------------|
// | 0      | 8    | magic "HVXSCAN" and the byte 0x1A                          |
// | 8      | 4    | format version, 32-bit little-endian: 6 when written      |
// | 12     | 4    | n, the length of what follows, 32-bit little-endian        |
// | 16     | n    | three object records: analyzer parameters, scanner        |
// |        |      | parameters, scan data (each may be the null record);      |
// |        |      | from version 6 on, the scan notes behind them              |
//
// The scan notes, 52 bytes, all little-endian: the outcome (32-bit: 0 finished,
// 1 stopped by a signal, 2 ended by a failure), flags (32-bit; bit 0: the grid
// was scanned interleaved, which the grid's record does not keep), the points
// measured and the points planned (64-bit each), the analyzer's start and stop
// frequency and RBW in hertz (64-bit floats, 0 where not known) and its points
// per sweep (32-bit).
//
// Nothing may follow. Up to version 5 the version is handed to the records'
// readers, so that a file of an older format reads as that format; version 6
// holds records of format 5.

#include <HVX/App/Data/ScanData.h>
#include <HVX/Device/Analyzer.h>
#include <HVX/Device/Scanner.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace halvex {

inline constexpr std::string_view scanFileMagic{"HVXSCAN\x1a", 8};
inline constexpr int32_t scanFileVersion = 6;
inline constexpr int32_t scanFileRecordFormat = 5;
inline constexpr size_t scanFileHeaderSize = 16;
inline constexpr size_t scanNotesSize = 52;
// What the format's 32-bit length can announce.
inline constexpr uint64_t scanFileMaxBody = UINT32_MAX;

// A file that is not a scan file, or a damaged one. The message is one line.
class ScanFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class ScanOutcome : int32_t { Finished = 0, Stopped = 1, Failed = 2 };

// What the host knows of a scan beyond the library's records.
struct ScanNotes {
    ScanOutcome outcome = ScanOutcome::Finished;
    bool interleaved = false;
    int64_t pointsMeasured = 0;
    int64_t pointsPlanned = 0;
    double startHz = 0;
    double stopHz = 0;
    double rbwHz = 0;
    int32_t sweepPoints = 0;
};

struct ScanFileHeader {
    int32_t version = scanFileVersion;
    uint32_t length = 0;
};

struct ScanFileContents {
    int32_t version = scanFileVersion;
    std::optional<ScanNotes> notes;
    // Each as read: null for a null record, an UnknownSerializable for a type
    // that this program does not know.
    std::unique_ptr<nrq::ISerializable> analyzerParameters;
    std::unique_ptr<nrq::ISerializable> scannerParameters;
    std::unique_ptr<nrq::ISerializable> scanData;

    // The scan data, when the record holds some of a known shape.
    const nrq::IScanData* GetScanData() const { return dynamic_cast<const nrq::IScanData*>(scanData.get()); }
};

std::string WriteScanFile(const nrq::AnalyzerParameters* analyzerParameters,
                          const nrq::ScannerParameters* scannerParameters, const nrq::IScanData& scanData,
                          const ScanNotes& notes);

// Checks the first bytes of a file before the rest is read: the magic, the
// version and, where the file's size is known (not -1), the announced length.
// Raises ScanFileError.
ScanFileHeader ReadScanFileHeader(std::string_view first, int64_t fileSize);

// Raises ScanFileError for anything that is not a whole, readable scan file.
ScanFileContents ReadScanFile(std::string_view bytes);

// What `halvex info` prints: "name: value" lines, each ending in a line feed.
std::string DescribeScanFile(const ScanFileContents& contents);

} // namespace halvex
