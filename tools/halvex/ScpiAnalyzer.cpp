#include "ScpiAnalyzer.h"

#include "Command.h"
#include "ScpiSettings.h"

#include <HVX/Device/DeviceLoader.h>
#include <HVX/ESC/SCPI/Session.h>
#include <HVX/ESC/SCPI/SpectrumScan.h>
#include <HVX/Visa/Visa.h>

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace halvex {
namespace {

// The stand-in VISA that is installed beside this program, if it is.
std::string InstalledStandInFolder() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return {};
    const std::filesystem::path folder = program.parent_path().parent_path() / "lib" / "halvex-visa";
    return std::filesystem::exists(folder / "libvisa.so", error) ? folder.string() : std::string();
}

std::string NoVisaText(const std::string& resource) {
    const std::string standIn = InstalledStandInFolder();
    return fmt::format("cannot reach {}: no VISA library (libvisa.so or libiovisa.so) was found; {}", resource,
                       standIn.empty() ? std::string("install a VISA, or build halvex's stand-in VISA for LAN instruments")
                                       : fmt::format("the one installed with halvex is used with LD_LIBRARY_PATH={}",
                                                     standIn));
}

// Why the library would not take the instrument, found out over a link of our own.
std::string ConnectFailureText(const std::string& resource, const std::string& storeFolder) {
    if (!nrq::Visa::IsInitialised())
        return NoVisaText(resource);
    nrq::VisaConnection link(resource);
    try {
        if (!link.Connect())
            return fmt::format("cannot reach {}: no instrument answers there", resource);
    } catch (const std::exception& error) {
        return fmt::format("cannot reach {}: {}", resource, error.what());
    }
    nrq::SCPISpecAnState state;
    nrq::SCPIScanInitState(state, &link, nullptr);
    nrq::SCPIIdentity identity;
    const bool identified = nrq::SCPIGetIdentity(state, identity);
    nrq::SCPIScanClearState(state);
    link.Disconnect();
    if (!identified)
        return fmt::format("{} gives no usable answer to *IDN?", resource);
    if (!nrq::ESCMapStore::GetInstance().FindEntry(identity.manufacturer, identity.serial))
        return fmt::format("no feature set for {} {}, serial {} in {} ('halvex store list' shows the stored sets)",
                           identity.manufacturer, identity.model, identity.serial, storeFolder);
    return fmt::format("{} could not be connected", resource);
}

} // namespace

std::string ScpiResource(std::string_view analyzer) {
    if (analyzer.substr(0, scpiPrefix.size()) != scpiPrefix)
        return {};
    return std::string(analyzer.substr(scpiPrefix.size()));
}

ScpiAnalyzer ConnectScpiAnalyzer(const std::string& resource, const std::string& storeFolder) {
    if (!nrq::Visa::IsInitialised())
        throw std::runtime_error(NoVisaText(resource));
    ScpiAnalyzer analyzer;
    auto device = std::make_shared<nrq::AutoSCPIAnalyzer>(resource);
    if (!nrq::DeviceLoader::AddDevice(device))
        throw std::runtime_error(ConnectFailureText(resource, storeFolder));
    analyzer.device = std::move(device);
    analyzer.parameters.reset(analyzer.device->GenerateParams());
    const nrq::DeviceInformation& info = analyzer.device->GetInfo();
    analyzer.entry = nrq::ESCMapStore::GetInstance().FindEntry(info.manufacturer, info.serial);
    if (!analyzer.parameters || !analyzer.entry)
        throw std::runtime_error(fmt::format("no feature set for {} in {} ('halvex store list' shows the stored sets)",
                                             DescribeInstrument(info), storeFolder));
    return analyzer;
}

void ApplySettings(ScpiAnalyzer& analyzer, const std::vector<std::string>& assignments) {
    nrq::AutoSCPIAnalyzerParameters& parameters = *analyzer.parameters;
    // Center and span follow from the range; their own values are never sent.
    for (const nrq::ESCFeature& feature : analyzer.entry->featureSet.features)
        if (feature.type == nrq::ESCFeatureType::FrequencyCenter || feature.type == nrq::ESCFeatureType::FrequencySpan)
            parameters.variableMap.erase(feature.label);
    parameters.SetMinFrequency(parameters.GetMinFrequency());
    parameters.SetMaxFrequency(parameters.GetMaxFrequency());
    for (const std::string& assignment : assignments)
        ApplySetting(analyzer.entry->featureSet, parameters.variableMap, assignment);
    if (parameters.GetMinFrequency() >= parameters.GetMaxFrequency())
        throw UsageError{fmt::format("the range {} to {} is empty: Frequency Start must lie below Frequency Stop",
                                     parameters.GetMinFrequency().ToString(), parameters.GetMaxFrequency().ToString())};
}

std::string DescribeInstrument(const nrq::DeviceInformation& info) {
    return fmt::format("{} {}, serial {}", info.manufacturer, info.model, info.serial);
}

} // namespace halvex
