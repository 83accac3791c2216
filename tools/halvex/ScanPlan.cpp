#include "ScanPlan.h"

#include "Progress.h"
#include "ScanFile.h"

#include <HVX/App/Data/CombinedScanData.h>
#include <HVX/App/Data/SpatialScanData.h>
#include <HVX/App/Data/SpectralScanData.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

#include <sys/resource.h>

namespace halvex {
namespace {

// Values with as many digits as measured ones, so that the CSV text has their length.
nrq::FullScanMeasurement SampleSweep(size_t sweepPoints, int index) {
    nrq::FullScanMeasurement sweep;
    const float x = 0.01125f * static_cast<float>(index + 1);
    sweep.position = nrq::Position(nrq::Length(x), nrq::Length(x), nrq::Length(0.0f));
    sweep.time = std::chrono::steady_clock::time_point(std::chrono::milliseconds(12345 * index));
    sweep.startFrequency = nrq::Frequency(123.456789e6);
    sweep.stepFrequency = nrq::Frequency(166.9449e3);
    sweep.count = sweepPoints;
    sweep.values.assign(sweepPoints, nrq::DecibelMilliwatts(-33.3333f));
    sweep.CalculateMaxIndex();
    return sweep;
}

struct SampleSizes {
    uint64_t body = 0;
    uint64_t csv = 0;
};

// The data record and CSV text after `count` sweeps at distinct places.
SampleSizes MeasureSample(Shape shape, size_t sweepPoints, int count) {
    const std::shared_ptr<nrq::IScanData> data = MakeScanData(shape);
    for (int i = 0; i < count; ++i)
        data->AddMeasurement(SampleSweep(sweepPoints, i),
                             nrq::RepeatingBehavior::Overwrite);
    std::string record;
    nrq::AppendSerializeObject(record, data.get());
    return {record.size(), data->SerializeToCSV().size()};
}

// What one more point keeps in memory; vectors may hold twice their size.
uint64_t MemoryPerPoint(Shape shape, size_t sweepPoints) {
    switch (shape) {
    case Shape::Spectral:
        return 0;
    case Shape::Spatial:
        return 2 * sizeof(nrq::SpatialScanMeasurement);
    case Shape::Combined:
        break;
    }
    return 2 * sizeof(nrq::FullScanMeasurement) + sweepPoints * sizeof(nrq::DecibelMilliwatts);
}

uint64_t SaturatingMultiply(uint64_t a, uint64_t b) {
    if (a != 0 && b > std::numeric_limits<uint64_t>::max() / a)
        return std::numeric_limits<uint64_t>::max();
    return a * b;
}

uint64_t SaturatingAdd(uint64_t a, uint64_t b) {
    return a > std::numeric_limits<uint64_t>::max() - b ? std::numeric_limits<uint64_t>::max() : a + b;
}

// A "Name:   1234 kB" line of a /proc file, in bytes; 0 when absent.
uint64_t ProcKilobytes(const char* file, const std::string& name) {
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line))
        if (line.starts_with(name + ":")) {
            std::istringstream fields(line.substr(name.size() + 1));
            uint64_t kilobytes = 0;
            fields >> kilobytes;
            return kilobytes * 1024;
        }
    return 0;
}

} // namespace

std::shared_ptr<nrq::IScanData> MakeScanData(Shape shape) {
    switch (shape) {
    case Shape::Spectral:
        return std::make_shared<nrq::SpectralScanData>();
    case Shape::Spatial:
        return std::make_shared<nrq::SpatialScanData>();
    case Shape::Combined:
        break;
    }
    return std::make_shared<nrq::CombinedScanData>();
}

const char* ShapeName(Shape shape) {
    switch (shape) {
    case Shape::Spectral:
        return "spectral";
    case Shape::Spatial:
        return "spatial";
    case Shape::Combined:
        break;
    }
    return "combined";
}

ScanEstimate EstimateScan(Shape shape, int64_t points, int sweepMilliseconds, size_t sweepPoints,
                          uint64_t fixedFileBytes, bool withCsv) {
    const SampleSizes one = MeasureSample(shape, sweepPoints, 1);
    const SampleSizes two = MeasureSample(shape, sweepPoints, 2);
    const auto count = static_cast<uint64_t>(std::max<int64_t>(points, 1));
    ScanEstimate estimate;
    estimate.points = points;
    estimate.seconds = static_cast<double>(points) * sweepMilliseconds / 1000.0;
    estimate.fileBytes =
        SaturatingAdd(fixedFileBytes, SaturatingAdd(one.body, SaturatingMultiply(two.body - one.body, count - 1)));
    if (withCsv)
        estimate.csvBytes = SaturatingAdd(one.csv, SaturatingMultiply(two.csv - one.csv, count - 1));
    const uint64_t data = SaturatingAdd(sweepPoints * sizeof(nrq::DecibelMilliwatts),
                                        SaturatingMultiply(MemoryPerPoint(shape, sweepPoints), count));
    estimate.memoryBytes = SaturatingAdd(data, SaturatingAdd(estimate.fileBytes, estimate.csvBytes));
    return estimate;
}

uint64_t AvailableMemory() {
    uint64_t available = ProcKilobytes("/proc/meminfo", "MemAvailable");
    if (available == 0)
        available = std::numeric_limits<uint64_t>::max();
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        const uint64_t used = ProcKilobytes("/proc/self/status", "VmSize");
        const uint64_t room = limit.rlim_cur > used ? limit.rlim_cur - used : 0;
        available = std::min(available, room);
    }
    return available;
}

std::string RefusalReason(const ScanEstimate& estimate, Shape shape, uint64_t availableMemory) {
    if (estimate.fileBytes > scanFileMaxBody + scanFileHeaderSize)
        return fmt::format("{} points of {} data make a scan file of about {}, and a scan file holds at most {}; "
                           "choose fewer cells, a lower level, or spatial data",
                           estimate.points, ShapeName(shape), FormatBytes(estimate.fileBytes),
                           FormatBytes(scanFileMaxBody + scanFileHeaderSize));
    if (estimate.memoryBytes > availableMemory)
        return fmt::format("{} points of {} data need about {} of memory, and {} are available; "
                           "choose fewer cells, a lower level, or spatial data",
                           estimate.points, ShapeName(shape), FormatBytes(estimate.memoryBytes),
                           FormatBytes(availableMemory));
    return {};
}

} // namespace halvex
