#include "ScanFile.h"

#include "LibraryText.h"
#include "SettingText.h"

#include <HVX/Device/Analyzer/AutoSCPIAnalyzer.h>

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
#include <vector>

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
        throw ScanFileError(fmt::format("the {} record is damaged: {}", name, PlainLibraryMessage(error.what())));
    }
}

void CheckLength(uint32_t announced, uint64_t present) {
    if (present < announced)
        throw ScanFileError(fmt::format("the file is truncated: the header announces {} bytes of records, {} are there",
                                        announced, present));
    if (present > announced)
        throw ScanFileError(fmt::format("{} bytes follow the records, where the file should end", present - announced));
}

void AppendNotes(std::string& out, const ScanNotes& notes) {
    nrq::AppendRaw(out, static_cast<int32_t>(notes.outcome));
    nrq::AppendRaw(out, static_cast<uint32_t>(notes.interleaved ? 1 : 0));
    nrq::AppendRaw(out, notes.pointsMeasured);
    nrq::AppendRaw(out, notes.pointsPlanned);
    nrq::AppendRaw(out, notes.startHz);
    nrq::AppendRaw(out, notes.stopHz);
    nrq::AppendRaw(out, notes.rbwHz);
    nrq::AppendRaw(out, notes.sweepPoints);
}

ScanNotes ReadNotes(std::string_view& body) {
    if (body.size() < scanNotesSize)
        throw ScanFileError(fmt::format("the scan notes are cut short: they take {} bytes, {} are there",
                                        scanNotesSize, body.size()));
    ScanNotes notes;
    notes.outcome = static_cast<ScanOutcome>(ReadLittleEndian<int32_t>(body, 0));
    notes.interleaved = (ReadLittleEndian<uint32_t>(body, 4) & 1) != 0;
    notes.pointsMeasured = ReadLittleEndian<int64_t>(body, 8);
    notes.pointsPlanned = ReadLittleEndian<int64_t>(body, 16);
    notes.startHz = ReadLittleEndian<double>(body, 24);
    notes.stopHz = ReadLittleEndian<double>(body, 32);
    notes.rbwHz = ReadLittleEndian<double>(body, 40);
    notes.sweepPoints = ReadLittleEndian<int32_t>(body, 48);
    body.remove_prefix(scanNotesSize);
    return notes;
}

void DescribeOutcome(std::string& out, const ScanNotes& notes) {
    switch (notes.outcome) {
    case ScanOutcome::Finished:
        out += fmt::format("outcome: finished, {} of {} points\n", notes.pointsMeasured, notes.pointsPlanned);
        return;
    case ScanOutcome::Stopped:
        out += fmt::format("outcome: stopped after {} of {} points\n", notes.pointsMeasured, notes.pointsPlanned);
        return;
    case ScanOutcome::Failed:
        out += fmt::format("outcome: ended by a failure after {} of {} points\n", notes.pointsMeasured,
                           notes.pointsPlanned);
        return;
    }
    out += fmt::format("outcome: unknown ({}), {} of {} points\n", static_cast<int32_t>(notes.outcome),
                       notes.pointsMeasured, notes.pointsPlanned);
}

// What the host noted of the analyzer, for parameters this program cannot read.
std::string NotedAnalyzer(const ScanNotes& notes) {
    std::string text = fmt::format("{} to {}, {} points a sweep", nrq::Frequency(notes.startHz).ToString(),
                                   nrq::Frequency(notes.stopHz).ToString(), notes.sweepPoints);
    text += notes.rbwHz > 0 ? fmt::format(", RBW {}", nrq::Frequency(notes.rbwHz).ToString()) : ", RBW not set";
    return text;
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

// The instrument by its identity, the range, and every setting the scan used.
void DescribeScpiParameters(std::string& out, const nrq::AutoSCPIAnalyzerParameters& parameters,
                            const std::optional<ScanNotes>& notes) {
    out += fmt::format("analyzer parameters: ESCAP, an SCPI analyzer of {}, serial {}, {} to {}", parameters.manufacturer,
                       parameters.serial, parameters.GetMinFrequency().ToString(),
                       parameters.GetMaxFrequency().ToString());
    if (notes && notes->sweepPoints > 0)
        out += fmt::format(", {} points a sweep", notes->sweepPoints);
    out += "\n";
    std::vector<std::pair<std::string, std::string>> settings;
    for (const auto& [label, stored] : parameters.variableMap)
        if (label != "Frequency Start" && label != "Frequency Stop")
            settings.emplace_back(label, ValueText(stored.value));
    std::sort(settings.begin(), settings.end());
    for (const auto& [label, value] : settings)
        out += fmt::format("setting: {} = {}\n", label, value);
}

void DescribeAnalyzerParameters(std::string& out, const nrq::ISerializable* object,
                                const std::optional<ScanNotes>& notes) {
    const auto* unknown = dynamic_cast<const nrq::IUnknownDeserialized*>(object);
    if (!object) {
        out += "analyzer parameters: none\n";
    } else if (unknown && notes && unknown->GetType() == "NullAP") {
        out += fmt::format("analyzer parameters: NullAP, the simulated analyzer, {}\n", NotedAnalyzer(*notes));
    } else if (unknown) {
        out += fmt::format("analyzer parameters: {}\n", UnknownText(*object));
        if (notes && notes->sweepPoints > 0)
            out += fmt::format("analyzer as noted by halvex: {}\n", NotedAnalyzer(*notes));
    } else if (const auto* scpi = dynamic_cast<const nrq::AutoSCPIAnalyzerParameters*>(object)) {
        DescribeScpiParameters(out, *scpi, notes);
    } else {
        const auto& parameters = dynamic_cast<const nrq::AnalyzerParameters&>(*object);
        out += fmt::format("analyzer parameters: {}, {} to {}, RBW {}\n", parameters.GetSerialType(),
                           parameters.GetMinFrequency().ToString(), parameters.GetMaxFrequency().ToString(),
                           parameters.GetRBW().ToString());
    }
}

void DescribeGrid(std::string& out, const nrq::TavrelAdapterV1Parameters& cells, const std::optional<ScanNotes>& notes) {
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
    if (notes)
        out += fmt::format("interleaved: {}\n", notes->interleaved ? "yes" : "no");
}

void DescribeScannerParameters(std::string& out, const nrq::ISerializable* object,
                               const std::optional<ScanNotes>& notes) {
    if (!object) {
        out += "scanner parameters: none\n";
    } else if (dynamic_cast<const nrq::IUnknownDeserialized*>(object)) {
        out += fmt::format("scanner parameters: {}\n", UnknownText(*object));
    } else if (const auto* network = dynamic_cast<const nrq::TavrelAdapterV2Parameters*>(object)) {
        out += fmt::format("scanner parameters: {}, the network board's grid\n", object->GetSerialType());
        DescribeGrid(out, *network, notes);
        out += fmt::format("level: {}, resolution {:g} mm\n", network->GetLevel(),
                           static_cast<double>(network->GetResolution().mm()));
    } else if (const auto* usb = dynamic_cast<const nrq::TavrelAdapterV1Parameters*>(object)) {
        out += fmt::format("scanner parameters: {}, the USB board's grid\n", object->GetSerialType());
        DescribeGrid(out, *usb, notes);
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

// The strongest few values, strongest first; ties keep the earlier place.
constexpr size_t strongestShown = 5;

struct Strong {
    float dBm;
    double hertz;
    const nrq::ScanMeasurement* where; // null for a spectrum
};

void Consider(std::vector<Strong>& best, const Strong& candidate) {
    if (best.size() == strongestShown && !(candidate.dBm > best.back().dBm))
        return;
    auto at = std::upper_bound(best.begin(), best.end(), candidate,
                               [](const Strong& a, const Strong& b) { return a.dBm > b.dBm; });
    best.insert(at, candidate);
    if (best.size() > strongestShown)
        best.pop_back();
}

void DescribeStrongest(std::string& out, const std::vector<Strong>& best) {
    for (size_t i = 0; i < best.size(); ++i) {
        out += fmt::format("strongest {}: {:.2f} dBm at {}", i + 1, best[i].dBm, nrq::Frequency(best[i].hertz).ToString());
        if (best[i].where)
            out += fmt::format(", x {}, y {}", Millimetres(best[i].where->position.x().m()),
                               Millimetres(best[i].where->position.y().m()));
        out += "\n";
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
    std::vector<Strong> best;
    for (size_t i = 0; i < values.size(); ++i)
        Consider(best, {values[i].dBm(), start + step * static_cast<double>(i), nullptr});
    DescribeStrongest(out, best);
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
    std::vector<Strong> best;
    for (const auto& entry : entries)
        Consider(best, {entry.amplitude.dBm(), entry.frequency.Hz(), &entry});
    DescribeStrongest(out, best);
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
    std::vector<Strong> best;
    for (const auto& entry : entries)
        for (size_t i = 0; i < entry.values.size(); ++i)
            Consider(best, {entry.values[i].dBm(),
                            entry.startFrequency.Hz() + entry.stepFrequency.Hz() * static_cast<double>(i), &entry});
    DescribeStrongest(out, best);
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
                          const nrq::ScannerParameters* scannerParameters, const nrq::IScanData& scanData,
                          const ScanNotes& notes) {
    std::string body;
    nrq::AppendSerializeObject(body, analyzerParameters);
    nrq::AppendSerializeObject(body, scannerParameters);
    nrq::AppendSerializeObject(body, &scanData);
    AppendNotes(body, notes);
    if (body.size() > scanFileMaxBody)
        throw ScanFileError(fmt::format("the scan takes {} bytes, more than a scan file can hold ({} bytes)",
                                        body.size(), scanFileMaxBody));
    std::string out(scanFileMagic);
    nrq::AppendRaw(out, scanFileVersion);
    nrq::AppendRaw(out, static_cast<uint32_t>(body.size()));
    out += body;
    return out;
}

ScanFileHeader ReadScanFileHeader(std::string_view first, int64_t fileSize) {
    const size_t magicPart = std::min(first.size(), scanFileMagic.size());
    if (first.substr(0, magicPart) != scanFileMagic.substr(0, magicPart))
        throw ScanFileError("not a halvex scan file");
    const size_t known = fileSize >= 0 ? static_cast<size_t>(fileSize) : first.size();
    if (first.size() < scanFileHeaderSize)
        throw ScanFileError(fmt::format("the file is truncated: its header takes {} bytes, it has {}",
                                        scanFileHeaderSize, known));
    ScanFileHeader header;
    header.version = ReadLittleEndian<int32_t>(first, 8);
    if (header.version < 1 || header.version > scanFileVersion)
        throw ScanFileError(fmt::format("format version {} is not supported (this halvex reads versions 1 to {})",
                                        header.version, scanFileVersion));
    header.length = ReadLittleEndian<uint32_t>(first, 12);
    if (fileSize >= 0)
        CheckLength(header.length, static_cast<uint64_t>(fileSize) - scanFileHeaderSize);
    return header;
}

ScanFileContents ReadScanFile(std::string_view bytes) {
    const ScanFileHeader header = ReadScanFileHeader(bytes.substr(0, scanFileHeaderSize), -1);
    std::string_view body = bytes.substr(scanFileHeaderSize);
    CheckLength(header.length, body.size());

    ScanFileContents contents;
    contents.version = header.version;
    nrq::SerializeInfo info;
    info.version = std::min(header.version, scanFileRecordFormat);
    contents.analyzerParameters = ReadRecord(body, info, "analyzer parameters");
    contents.scannerParameters = ReadRecord(body, info, "scanner parameters");
    contents.scanData = ReadRecord(body, info, "scan data");
    if (header.version >= 6)
        contents.notes = ReadNotes(body);
    if (!body.empty())
        throw ScanFileError(fmt::format("{} bytes follow the {}", body.size(),
                                        contents.notes ? "scan notes" : "scan data record"));

    RequireKind<nrq::AnalyzerParameters>(contents.analyzerParameters.get(), "analyzer parameters");
    RequireKind<nrq::ScannerParameters>(contents.scannerParameters.get(), "scanner parameters");
    RequireKind<nrq::IScanData>(contents.scanData.get(), "scan data");
    return contents;
}

std::string DescribeScanFile(const ScanFileContents& contents) {
    std::string out = fmt::format("format version: {}\n", contents.version);
    if (contents.notes)
        DescribeOutcome(out, *contents.notes);
    DescribeAnalyzerParameters(out, contents.analyzerParameters.get(), contents.notes);
    DescribeScannerParameters(out, contents.scannerParameters.get(), contents.notes);
    DescribeScanData(out, contents.scanData.get());
    return out;
}

} // namespace halvex
