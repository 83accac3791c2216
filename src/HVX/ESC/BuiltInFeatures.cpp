// The candidate features that discovery tries, in the order it tries them:
// the commands that are common among SCPI spectrum analyzers.
#include "HVX/ESC/Features.h"

#include <initializer_list>

namespace nrq {
namespace {

using Type = ESCFeatureType;
using Behavior = ESCFeatureSetBehavior;
using Default = ESCFeatureDefault;

ESCFeature Candidate(std::string_view label, std::string_view command, Type type,
                     Behavior behavior = Behavior::Unspecified, Default defaultIndex = Default::None,
                     Default resetIndex = Default::None, std::vector<ESCVariant> values = {}) {
    ESCFeature feature;
    feature.label = label;
    feature.command = command;
    feature.type = type;
    feature.setBehavior = behavior;
    feature.defaultIndex = defaultIndex;
    feature.resetIndex = resetIndex;
    feature.values = std::move(values);
    feature.modes = 1;
    return feature;
}

// A trace fetch has nothing to set: its script is the query.
ESCFeature QueryOnly(std::string_view label, std::string_view query, Type type) {
    ESCFeature feature = Candidate(label, "", type);
    feature.commandQuery = query;
    return feature;
}

// Probes that work in every mode, run before any mode is chosen.
ESCFeature EveryMode(ESCFeature feature) {
    feature.modes = ESCAllDeviceModes;
    return feature;
}

std::vector<ESCVariant> Integers(std::initializer_list<int64_t> numbers) {
    return {numbers.begin(), numbers.end()};
}

Default Index(int32_t index) {
    return static_cast<Default>(index);
}

std::vector<ESCFeature> BuildBuiltInFeatures() {
    const Frequency MHz(1e6);
    const Frequency kHz(1e3);
    // Row 0 fails on purpose, so that the instrument's code for an invalid
    // command is on record before the real candidates run. The two "Power
    // Unit (dBm)" rows are Setup, not PowerUnit: no candidate has that type.
    return {
        EveryMode(Candidate("(invalid)", "AAAAAAA", Type::DiscoveryOnly)),
        EveryMode(Candidate("Mute Errors", "SYST:AUD:VOL 0", Type::DiscoveryOnly)),
        Candidate("Mode", "INST SA", Type::Mode),
        Candidate("Mode", "INST SAN", Type::Mode),
        Candidate("Mode", "INST \"SA\"", Type::Mode),
        Candidate("Mode", "INST SPA", Type::Mode),
        Candidate("Mode", "INST GPSA", Type::Mode),
        Candidate("Continuous Sweeping", "INIT:CONT", Type::SweepContinuous, Behavior::Boolean, Index(0), Index(1)),
        Candidate("Continuous Sweeping", "INIT1:CONT", Type::SweepContinuous, Behavior::Boolean, Index(0), Index(1)),
        Candidate("Single Sweep", "INIT", Type::SweepInit),
        QueryOnly("Fetch Trace Data", "TRAC? trace1", Type::FetchData),
        QueryOnly("Fetch Trace Data", "TRAC:DATA? trace1", Type::FetchData),
        QueryOnly("Fetch Trace Data", "TRAC:DATA?", Type::FetchData),
        QueryOnly("Fetch Trace Data", "TRAC:DATA? 1", Type::FetchData),
        Candidate("Attenuation", "POW:RF:ATT", Type::Setup, Behavior::Normal, Default::None, Default::None,
                  Integers({0, 10, 20, 30})),
        Candidate("Attenuation", "INP:ATT", Type::Setup, Behavior::Normal, Default::None, Default::None,
                  Integers({0, 10, 20, 30, 40, 50, 60, 70})),
        Candidate("Pre-Amplifier", "POW:GAIN", Type::Setup, Behavior::Boolean, Default::None, Default::None,
                  Integers({1})),
        Candidate("Low Noise Amplifier (LNA)", "INP:GAIN:LNA:STAT", Type::Setup, Behavior::Boolean, Default::None,
                  Default::None, Integers({1})),
        Candidate("Pre-Amplifier", "INP:GAIN:VAL", Type::Setup, Behavior::Boolean, Default::None, Default::None,
                  Integers({1})),
        Candidate("Pre-Amplifier", "SENS:POW:RF:GAIN:STAT", Type::Setup, Behavior::Boolean, Default::None,
                  Default::None, Integers({1})),
        Candidate("Sweep Points", "SWE:POIN", Type::SweepPoints, Behavior::Unspecified, Default::Unset,
                  Default::None, Integers({1001})),
        Candidate("Sweep Points", "DISP:POIN", Type::SweepPoints, Behavior::Unspecified, Default::Unset,
                  Default::None, Integers({1001})),
        Candidate("Frequency Span", "FREQ:SPAN", Type::FrequencySpan, Behavior::Unspecified, Default::None,
                  Default::None, {MHz * 100.0}),
        Candidate("Frequency Center", "FREQ:CENT", Type::FrequencyCenter, Behavior::Unspecified, Default::None,
                  Default::None, {MHz * 700.0}),
        Candidate("RBW", "BAND", Type::Setup, Behavior::Unspecified, Default::None, Default::None, {kHz * 100.0}),
        Candidate("VBW", "BAND:VID", Type::Setup, Behavior::Unspecified, Default::Auto, Default::None,
                  {kHz * 100.0}),
        Candidate("Reference Level", "DISP:WIND:TRAC:Y:RLEV", Type::Setup, Behavior::Unspecified, Default::None,
                  Default::None, {DecibelMilliwatts(-30.0f), DecibelMilliwatts(10.0f)}),
        Candidate("Power Unit (dBm)", "UNIT:POW DBM", Type::Setup),
        Candidate("Power Unit (dBm)", "AMPL:UNIT DBM", Type::Setup),
        Candidate("Data Format", "FORMAT:DATA REAL,32", Type::Setup),
        Candidate("Data Format", "FORMAT:DATA REAL, 32", Type::Setup),
        Candidate("Data Format", "FORMAT:DATA REAL", Type::Setup),
        Candidate("Data Byte Order (Device Native)", "FORMAT:BORD NORM", Type::ByteOrder),
        Candidate("Data Byte Order (Device Swapped)", "FORMAT:BORD SWAP", Type::ByteOrder),
        Candidate("Enable Display", "DISP:ENAB", Type::Setup, Behavior::Boolean, Default::None, Index(0),
                  Integers({0})),
        Candidate("Sweep Time", "SWE:TIME", Type::Setup, Behavior::Normal, Default::Auto, Default::None,
                  Integers({0, 1, 2, 3})),
    };
}

} // namespace

const std::vector<ESCFeature>& GetBuiltInFeatures() {
    static const std::vector<ESCFeature> features = BuildBuiltInFeatures();
    return features;
}

namespace {
// Built during start-up, so that no discovery pays for it on its thread.
[[maybe_unused]] const std::vector<ESCFeature>& builtAtStartUp = GetBuiltInFeatures();
} // namespace

} // namespace nrq
