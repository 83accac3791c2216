#include "HVX/Device/Analyzer/AutoSCPIAnalyzer.h"

#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/ESC/SCPI/Session.h"
#include "HVX/ESC/SCPI/SpectrumScan.h"

#include <fmt/format.h>

#include <exception>

namespace nrq {

namespace {

// The session functions need a link and a set; both come from Connect.
void RequireSession(const SCPISpecAnState& state, std::source_location where = std::source_location::current()) {
    if (!state.io || !state.featureSet || !state.interpreter)
        throw Error("The analyzer is not connected", where);
}

// A link that breaks mid-exchange throws instead of answering false; the
// driver words it like any other failure and leaves the cause in the log.
template <class Call>
bool RunOnLink(Call call) {
    try {
        return call();
    } catch (const Error&) {
        throw;
    } catch (const std::exception& e) {
        Log::Error(e.what());
        return false;
    }
}

} // namespace

AutoSCPIAnalyzer::AutoSCPIAnalyzer(std::string_view resource) : connection(resource) {}

AutoSCPIAnalyzer::~AutoSCPIAnalyzer() {
    // The link closes here at the latest; a failing close must not escape.
    try {
        Disconnect();
    } catch (const std::exception&) {
    }
}

bool AutoSCPIAnalyzer::Connect() {
    if (connection.IsConnected())
        return true;
    if (!connection.Connect())
        return false;
    SCPIScanInitState(state, &connection, nullptr);
    SCPIIdentity identity;
    if (!RunOnLink([&] { return SCPIGetIdentity(state, identity); })) {
        connection.Disconnect();
        return false;
    }
    // Without a stored set the instrument has to go through discovery first.
    std::shared_ptr<ESCMapStoreEntry> found = ESCMapStore::GetInstance().FindEntry(identity.manufacturer, identity.serial);
    if (!found) {
        connection.Disconnect();
        return false;
    }
    entry = std::move(found);
    state.featureSet = &entry->featureSet;
    return true;
}

void AutoSCPIAnalyzer::Disconnect() {
    SCPIScanClearState(state);
    if (connection.IsConnected())
        connection.Disconnect();
}

bool AutoSCPIAnalyzer::IsConnected() { return connection.IsConnected(); }

bool AutoSCPIAnalyzer::Ping() { return connection.Ping(); }

void AutoSCPIAnalyzer::QueryInfo() {
    SCPIIdentity identity;
    // Asked only between Connect and Disconnect; without a link it stays empty.
    if (!state.io || !RunOnLink([&] { return SCPIGetIdentity(state, identity); }))
        identity = SCPIIdentity{};
    info.model = identity.model;
    info.manufacturer = identity.manufacturer;
    info.serial = identity.serial;
}


void AutoSCPIAnalyzer::InitAnalyzer() {
    RequireSession(state);
    RunOnLink([&] { return SCPISwitchMode(state, ESCDeviceModeIndex::SpectrumAnalyzer); });
    std::string report;
    if (!SCPIScanHasRequiredFeatures(state, report))
        throw Error(fmt::format(
            "The feature set for this analyzer does not contain the required features to run a scan:\n{}", report));
    if (!SCPIScanCreateCommands(state))
        throw Error("Halvex was unable to generate the setup commands for this analyzer.");
    if (!RunOnLink([&] { return SCPIScanRunSetup(state); }))
        throw Error("Halvex failed to run the setup commands for this analyzer.");
}

void AutoSCPIAnalyzer::ResetAnalyzer() {
    if (!SCPIScanRunEndSetup(state))
        throw Error("Halvex failed to run the end commands for this analyzer.");
}

FrequencyStartStop AutoSCPIAnalyzer::GetFrequencyRange() const {
    FrequencyStartStop range{Frequency(0.0), Frequency(0.0)};
    SCPIScanGetFrequencyRange(state, range.start, range.stop);
    return range;
}

std::vector<DecibelMilliwatts> AutoSCPIAnalyzer::GetMeasurement() {
    RequireSession(state);
    if (!RunOnLink([&] { return SCPIScanRunMeas(state); }))
        throw Error("Halvex failed to collect measurements from the analyzer.");
    size_t count = 0;
    if (!SCPIScanGetMeasCount(state, count))
        throw Error("Halvex failed to collect measurement counts from the analyzer.");
    DecibelMilliwatts* values = nullptr;
    if (!SCPIScanGetMeasValues(state, values))
        throw Error("Halvex failed to collect measurement values from the analyzer.");
    return std::vector<DecibelMilliwatts>(values, values + count);
}

void AutoSCPIAnalyzer::SetAnalyzerParameters(const AnalyzerParameters* parameters) {
    const auto* ours = dynamic_cast<const AutoSCPIAnalyzerParameters*>(parameters);
    if (!ours)
        throw Error("Tried to apply invalid parameters to a SCPI device");
    state.variableMap = ours->variableMap;
}

AutoSCPIAnalyzerParameters* AutoSCPIAnalyzer::GenerateParams() const {
    auto parameters = std::make_unique<AutoSCPIAnalyzerParameters>();
    parameters->manufacturer = info.manufacturer;
    parameters->serial = info.serial;
    const std::shared_ptr<ESCMapStoreEntry> found =
        ESCMapStore::GetInstance().FindEntry(parameters->manufacturer, parameters->serial);
    if (!found)
        return nullptr;
    std::vector<const ESCFeature*> relevant;
    SCPIScanGetRelevantFeatureList(found->featureSet.features, relevant);
    SCPIScanCreateVariableMap(relevant, parameters->variableMap);
    return parameters.release();
}

} // namespace nrq
