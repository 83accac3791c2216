#include "ScanFile.h"

#include <HVX/App/Data/CombinedScanData.h>
#include <HVX/App/Data/SpatialScanData.h>
#include <HVX/App/Data/SpectralScanData.h>
#include <HVX/Device/NullScanner.h>
#include <HVX/Device/Scanner/TavrelAdapterV1.h>
#include <HVX/Device/Scanner/TavrelAdapterV2.h>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <limits>
#include <mutex>
#include <shared_mutex>

namespace halvex {
namespace {

template <class T>
T ReadLittleEndian(std::string_view bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

std::unique_ptr<nrq::ISerializable> ReadRecord(std::string_view& records, const nrq::SerializeInfo& info,
                                               std::string_view name) {
    try {
        return std::unique_ptr<nrq::ISerializable>(nrq::ViewDeserializeObject(records, info));
    } catch (const std::exception& error) {
        throw ScanFileError(fmt::format("the {} record is damaged: {}", name, error.what()));
    }
}

// Null, unknown to this program, or of the wanted kind.
template <class Kind>
void RequireKind(const nrq::ISerializable* object, std::string_view name) {
    if (!object || dynamic_cast<const Kind*>(object) || dynamic_cast<const nrq::IUnknownDeserialized*>(object))
        return;
    throw ScanFileError(fmt::format("the {} record holds \"{}\", which is of another kind", name,
                                    object->GetSerialType()));
}

std::string Text(const char (&field)[32]) {
    return std::string(field, strnlen(field, sizeof(field)));
}

std::string StateName(nrq::IScanData::State state) {
    switch (state) {
    case nrq::IScanData::State::Empty:
        return "Empty";
    case nrq::IScanData::State::Scanning:
        return "Scanning";
    case nrq::IScanData::State::Complete:
        return "Complete";
    }
    return fmt::format("unknown ({})", static_cast<int32_t>(state));
}

std::string CreationText(nrq::IScanData::CreationTime time) {
    const int64_t ticks = time.time_since_epoch().count();
    const int64_t seconds = ticks / 10'000'000;
    // Up to the end of the year 9999; a damaged file may hold anything.
    if (ticks < 0 || seconds >= 253'402'300'800)
        return fmt::format("{} ticks (out of range)", ticks);
    const std::time_t t = static_cast<std::time_t>(seconds);
    return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(t));
}

std::string UnknownText(const nrq::ISerializable& object) {
    const auto& unknown = dynamic_cast<const nrq::IUnknownDeserialized&>(object);
    return fmt::format("\"{}\", kept unread ({} bytes, format {})", unknown.GetType(), unknown.GetData().size(),
                       unknown.GetFormat());
}

std::string Millimetres(float metres) { return fmt::format("{:.2f} mm", static_cast<double>(metres) * 1e3); }

void DescribeAnalyzerParameters(std::string& out, const nrq::ISerializable* object) {
    if (!object) {
        out += "analyzer parameters: none\n";
    } else if (dynamic_cast<const nrq::IUnknownDeserialized*>(object)) {
        out += fmt::format("analyzer parameters: {}\n", UnknownText(*object));
    } else {
        const auto& parameters = dynamic_cast<const nrq::AnalyzerParameters&>(*object);
        out += fmt::format("analyzer parameters: {}, {} to {}, RBW {}\n", parameters.GetSerialType(),
                           parameters.GetMinFrequency().ToString(), parameters.GetMaxFrequency().ToString(),
                           parameters.GetRBW().ToString());
    }
}

void DescribeGrid(std::string& out, const nrq::TavrelAdapterV1Parameters& cells) {
    int minColumn = cells.columns, maxColumn = -1, minRow = cells.rows, maxRow = -1;
    for (int row = 0; row < cells.rows; ++row)
        for (int column = 0; column < cells.columns; ++column)
            if (cells.GetCell(column, row)) {
                minColumn = std::min(minColumn, column);
                maxColumn = std::max(maxColumn, column);
                minRow = std::min(minRow, row);
                maxRow = std::max(maxRow, row);
            }
    if (maxColumn < 0)
        out += fmt::format("cells: {} of {} x {}\n", cells.CountCells(), cells.columns, cells.rows);
    else
        out += fmt::format("cells: {} of {} x {}, columns {} to {}, rows {} to {}\n", cells.CountCells(),
                           cells.columns, cells.rows, minColumn, maxColumn, minRow, maxRow);
}

void DescribeScannerParameters(std::string& out, const nrq::ISerializable* object) {
    if (!object) {
        out += "scanner parameters: none\n";
    } else if (dynamic_cast<const nrq::IUnknownDeserialized*>(object)) {
        out += fmt::format("scanner parameters: {}\n", UnknownText(*object));
    } else if (const auto* network = dynamic_cast<const nrq::TavrelAdapterV2Parameters*>(object)) {
        out += fmt::format("scanner parameters: {}, the network board's grid\n", object->GetSerialType());
        DescribeGrid(out, *network);
        out += fmt::format("level: {}, resolution {:g} mm\n", network->GetLevel(),
                           static_cast<double>(network->GetResolution().mm()));
    } else if (const auto* usb = dynamic_cast<const nrq::TavrelAdapterV1Parameters*>(object)) {
        out += fmt::format("scanner parameters: {}, the USB board's grid\n", object->GetSerialType());
        DescribeGrid(out, *usb);
    } else if (dynamic_cast<const nrq::NullScannerParameters*>(object)) {
        out += fmt::format("scanner parameters: {}, the simulated random pass\n", object->GetSerialType());
    } else {
        out += fmt::format("scanner parameters: {}\n", object->GetSerialType());
    }
}

void DescribeDevices(std::string& out, const nrq::ScanDataInfo& info) {
    static constexpr const char* roles[] = {"scanner", "analyzer"};
    for (size_t i = 0; i < 2; ++i) {
        const nrq::ScanDataDeviceInfo& device = info.devices[i];
        const std::string manufacturer = Text(device.manufacturer);
        const std::string model = Text(device.model);
        const std::string serial = Text(device.serial);
        if (manufacturer.empty() && model.empty() && serial.empty())
            continue;
        out += fmt::format("{}: {}, {}, serial {}\n", roles[i], manufacturer, model, serial);
    }
}

void DescribeSpectrum(std::string& out, const nrq::SpectralScanData& data) {
    std::shared_lock lock(data.GetMutex());
    const auto& values = data.GetValues();
    if (values.empty()) {
        out += "spectrum: no values\n";
        return;
    }
    const double start = data.GetStartFrequency().Hz();
    const double step = data.GetStepFrequency().Hz();
    const double stop = start + step * static_cast<double>(values.size() - 1);
    out += fmt::format("spectrum: {} points, {} to {}\n", values.size(), data.GetStartFrequency().ToString(),
                       nrq::Frequency(stop).ToString());
    const auto peak = std::max_element(values.begin(), values.end());
    const double at = start + step * static_cast<double>(peak - values.begin());
    out += fmt::format("peak: {:.2f} dBm at {}\n", peak->dBm(), nrq::Frequency(at).ToString());
}

template <class Entry>
void DescribeArea(std::string& out, const std::vector<Entry>& entries) {
    float minX = std::numeric_limits<float>::max(), minY = minX;
    float maxX = std::numeric_limits<float>::lowest(), maxY = maxX;
    for (const Entry& entry : entries) {
        minX = std::min(minX, entry.position.x().m());
        maxX = std::max(maxX, entry.position.x().m());
        minY = std::min(minY, entry.position.y().m());
        maxY = std::max(maxY, entry.position.y().m());
    }
    out += fmt::format("area: x {} to {}, y {} to {}\n", Millimetres(minX), Millimetres(maxX), Millimetres(minY),
                       Millimetres(maxY));
}

void DescribeSpatial(std::string& out, const nrq::SpatialScanData& data) {
    std::shared_lock lock(data.GetMutex());
    const auto& entries = data.GetMeasurements();
    out += fmt::format("positions: {}\n", entries.size());
    if (entries.empty())
        return;
    DescribeArea(out, entries);
    const auto strongest = std::max_element(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.amplitude < b.amplitude;
    });
    out += fmt::format("peak: {:.2f} dBm at {}, x {}, y {}\n", strongest->amplitude.dBm(),
                       strongest->frequency.ToString(), Millimetres(strongest->position.x().m()),
                       Millimetres(strongest->position.y().m()));
}

void DescribeCombined(std::string& out, const nrq::CombinedScanData& data) {
    std::shared_lock lock(data.GetMutex());
    const auto& entries = data.GetMeasurements();
    size_t points = 0;
    for (const auto& entry : entries)
        points += entry.values.size();
    out += fmt::format("positions: {}, {} values in all\n", entries.size(), points);
    if (entries.empty())
        return;
    DescribeArea(out, entries);
}

void DescribeScanData(std::string& out, const nrq::ISerializable* object) {
    if (!object) {
        out += "scan data: none\n";
        return;
    }
    if (dynamic_cast<const nrq::IUnknownDeserialized*>(object)) {
        out += fmt::format("scan data: {}\n", UnknownText(*object));
        return;
    }
    const auto& data = dynamic_cast<const nrq::IScanData&>(*object);
    out += fmt::format("scan data: {}\n", data.GetSerialType());
    out += fmt::format("state: {}\n", StateName(data.GetState()));
    out += fmt::format("created: {}\n", CreationText(data.GetCreationTime()));
    DescribeDevices(out, data.GetInfo());
    if (const auto* spectral = dynamic_cast<const nrq::SpectralScanData*>(&data))
        DescribeSpectrum(out, *spectral);
    else if (const auto* spatial = dynamic_cast<const nrq::SpatialScanData*>(&data))
        DescribeSpatial(out, *spatial);
    else if (const auto* combined = dynamic_cast<const nrq::CombinedScanData*>(&data))
        DescribeCombined(out, *combined);
}

} // namespace

std::string WriteScanFile(const nrq::AnalyzerParameters* analyzerParameters,
                          const nrq::ScannerParameters* scannerParameters, const nrq::IScanData& scanData) {
    std::string records;
    nrq::AppendSerializeObject(records, analyzerParameters);
    nrq::AppendSerializeObject(records, scannerParameters);
    nrq::AppendSerializeObject(records, &scanData);
    if (records.size() > std::numeric_limits<uint32_t>::max())
        throw ScanFileError("the scan is too large for a scan file");
    std::string out(scanFileMagic);
    nrq::AppendRaw(out, scanFileVersion);
    nrq::AppendRaw(out, static_cast<uint32_t>(records.size()));
    out += records;
    return out;
}

ScanFileContents ReadScanFile(std::string_view bytes) {
    const size_t magicPart = std::min(bytes.size(), scanFileMagic.size());
    if (bytes.substr(0, magicPart) != scanFileMagic.substr(0, magicPart))
        throw ScanFileError("not a halvex scan file");
    if (bytes.size() < scanFileHeaderSize)
        throw ScanFileError(fmt::format("the file is truncated: its header takes {} bytes, it has {}",
                                        scanFileHeaderSize, bytes.size()));
    ScanFileContents contents;
    contents.version = ReadLittleEndian<int32_t>(bytes, 8);
    if (contents.version < 1 || contents.version > scanFileVersion)
        throw ScanFileError(fmt::format("format version {} is not supported (this halvex reads versions 1 to {})",
                                        contents.version, scanFileVersion));
    const uint32_t length = ReadLittleEndian<uint32_t>(bytes, 12);
    std::string_view records = bytes.substr(scanFileHeaderSize);
    if (records.size() < length)
        throw ScanFileError(fmt::format("the file is truncated: the header announces {} bytes of records, {} are there",
                                        length, records.size()));
    if (records.size() > length)
        throw ScanFileError(fmt::format("{} bytes follow the records, where the file should end",
                                        records.size() - length));

    nrq::SerializeInfo info;
    info.version = contents.version;
    contents.analyzerParameters = ReadRecord(records, info, "analyzer parameters");
    contents.scannerParameters = ReadRecord(records, info, "scanner parameters");
    contents.scanData = ReadRecord(records, info, "scan data");
    if (!records.empty())
        throw ScanFileError(fmt::format("{} bytes follow the scan data record", records.size()));

    RequireKind<nrq::AnalyzerParameters>(contents.analyzerParameters.get(), "analyzer parameters");
    RequireKind<nrq::ScannerParameters>(contents.scannerParameters.get(), "scanner parameters");
    RequireKind<nrq::IScanData>(contents.scanData.get(), "scan data");
    return contents;
}

std::string DescribeScanFile(const ScanFileContents& contents) {
    std::string out = fmt::format("format version: {}\n", contents.version);
    DescribeAnalyzerParameters(out, contents.analyzerParameters.get());
    DescribeScannerParameters(out, contents.scannerParameters.get());
    DescribeScanData(out, contents.scanData.get());
    return out;
}

} // namespace halvex
