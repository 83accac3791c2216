#pragma once

// The halvex scan file: the host's own container around the library's object
// records. Pure functions over bytes, so that the reader can be fuzzed.
//
// | Offset | Size | Content                                                   |
// |--------|------|-----------------------------------------------------------|
// | 0      | 8    | magic "HVXSCAN" and the byte 0x1A                          |
// | 8      | 4    | format version, 32-bit little-endian: 5 when written      |
// | 12     | 4    | n, the length of the records, 32-bit little-endian        |
// | 16     | n    | three object records: analyzer parameters, scanner        |
// |        |      | parameters, scan data (each may be the null record)       |
//
// Nothing may follow the records. The version is handed to the records'
// readers, so that a file of an older format reads as that format.

#include <HVX/App/Data/ScanData.h>
#include <HVX/Device/Analyzer.h>
#include <HVX/Device/Scanner.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace halvex {

inline constexpr std::string_view scanFileMagic{"HVXSCAN\x1a", 8};
inline constexpr int32_t scanFileVersion = 5;
inline constexpr size_t scanFileHeaderSize = 16;

// A file that is not a scan file, or a damaged one. The message is one line.
class ScanFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ScanFileContents {
    int32_t version = scanFileVersion;
    // Each as read: null for a null record, an UnknownSerializable for a type
    // that this program does not know.
    std::unique_ptr<nrq::ISerializable> analyzerParameters;
    std::unique_ptr<nrq::ISerializable> scannerParameters;
    std::unique_ptr<nrq::ISerializable> scanData;

    // The scan data, when the record holds some of a known shape.
    const nrq::IScanData* GetScanData() const { return dynamic_cast<const nrq::IScanData*>(scanData.get()); }
};

std::string WriteScanFile(const nrq::AnalyzerParameters* analyzerParameters,
                          const nrq::ScannerParameters* scannerParameters, const nrq::IScanData& scanData);

// Raises ScanFileError for anything that is not a whole, readable scan file.
ScanFileContents ReadScanFile(std::string_view bytes);

// What `halvex info` prints: "name: value" lines, each ending in a line feed.
std::string DescribeScanFile(const ScanFileContents& contents);

} // namespace halvex
