#pragma once

// What a scan will cost, worked out before the first sweep from the library's
// own serialisation of a sample, so that a scan that cannot be kept is
// refused before it starts.

#include <HVX/App/Data/ScanData.h>

#include <cstdint>
#include <memory>
#include <string>

namespace halvex {

enum class Shape { Spectral, Spatial, Combined };

const char* ShapeName(Shape shape);

// An empty scan data object of the shape.
std::shared_ptr<nrq::IScanData> MakeScanData(Shape shape);

struct ScanEstimate {
    int64_t points = 0;
    double seconds = 0;
    uint64_t fileBytes = 0;   // the whole scan file
    uint64_t csvBytes = 0;    // 0 without --csv
    uint64_t memoryBytes = 0; // the data, the file's bytes and the CSV text at once
};

// `fixedFileBytes`: what the file holds besides the scan data record (header,
// parameter records, notes). `sweepPoints`: values a sweep brings.
ScanEstimate EstimateScan(Shape shape, int64_t points, int sweepMilliseconds, size_t sweepPoints,
                          uint64_t fixedFileBytes, bool withCsv);

// The memory this process may still take: what the system has available,
// within the address-space limit that the process runs under (ulimit -v).
uint64_t AvailableMemory();

// The reason the scan cannot be kept, or "" when it can: a file larger than
// the format holds, or more memory than is available.
std::string RefusalReason(const ScanEstimate& estimate, Shape shape, uint64_t availableMemory);

} // namespace halvex
