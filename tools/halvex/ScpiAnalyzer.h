#pragma once

// An SCPI analyzer as the host reaches it: "scpi:RESOURCE" on the command
// line, its stored feature set, and a plain line when it cannot be used.

#include <HVX/Device/Analyzer/AutoSCPIAnalyzer.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace halvex {

inline constexpr std::string_view scpiPrefix = "scpi:";

// The resource of "scpi:RESOURCE", or "" for any other analyzer name.
std::string ScpiResource(std::string_view analyzer);

struct ScpiAnalyzer {
    std::shared_ptr<nrq::AutoSCPIAnalyzer> device;
    std::unique_ptr<nrq::AutoSCPIAnalyzerParameters> parameters;
    std::shared_ptr<nrq::ESCMapStoreEntry> entry;
};

// Registers the analyzer with the library, identified and with its stored
// set; the store must be open. Raises a runtime_error that says in one line
// why the instrument cannot be used: no VISA, no answer, no stored set.
ScpiAnalyzer ConnectScpiAnalyzer(const std::string& resource, const std::string& storeFolder);

// The settings in the parameters: the range from the defaults unless given,
// then each "LABEL=VALUE" in order. Raises UsageError for a bad one.
void ApplySettings(ScpiAnalyzer& analyzer, const std::vector<std::string>& assignments);

// "MANUFACTURER MODEL, serial SERIAL"
std::string DescribeInstrument(const nrq::DeviceInformation& info);

} // namespace halvex
