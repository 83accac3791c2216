#pragma once

// Feature sets for the simulated analyzer's dialects, made of the built-in
// candidates that each dialect understands and completed as discovery would
// complete them: setters take their variable, queries are the head with "?".

#include "HVX/ESC/Features.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace nrq::test {

// The candidates a dialect answers, by their command text.
struct SimDialectCandidates {
    std::string modeCommand;   // empty: a dialect without modes
    std::string modeName;
    std::string fetchQuery;
    std::string dataFormat;
    std::string byteOrder;     // empty: the instrument's own order is left as it is
    std::string attenuation;
};

inline SimDialectCandidates CandidatesOfDialect(std::string_view dialect) {
    if (dialect == "default")
        return {"INST SA", "SA", "TRAC? trace1", "FORMAT:DATA REAL,32", "FORMAT:BORD SWAP", "POW:RF:ATT"};
    // Big-endian by its "normal" order: the host has to swap.
    if (dialect == "alpha")
        return {"INST SAN", "SAN", "TRAC? trace1", "FORMAT:DATA REAL,32", "FORMAT:BORD NORM", "INP:ATT"};
    if (dialect == "charlie")
        return {"INST SPA", "SPA", "TRAC:DATA? 1", "FORMAT:DATA REAL", "", "POW:RF:ATT"};
    throw std::invalid_argument("no candidates listed for this dialect");
}

// The built-in row with this command (or, for query-only rows, this query).
inline const ESCFeature& BuiltInCandidate(std::string_view script) {
    for (const ESCFeature& feature : GetBuiltInFeatures())
        if (feature.command == script || (feature.command.empty() && feature.commandQuery == script))
            return feature;
    throw std::invalid_argument("no such built-in candidate");
}

inline std::string CommandHead(const std::string& command) {
    const size_t blank = command.find_first_of(" \t");
    return command.substr(0, blank);
}

// A candidate as discovery keeps it once it has passed.
inline ESCFeature KeptFeature(std::string_view script) {
    ESCFeature feature = BuiltInCandidate(script);
    const bool isSetup = feature.type == ESCFeatureType::Setup;
    const std::string variable = isSetup ? GenerateVariableName(feature, false)
                                         : std::string(GetFeatureVariableName(feature, false));
    if (!feature.command.empty() && feature.commandQuery.empty())
        feature.commandQuery = CommandHead(feature.command) + "?";
    if (DoesFeatureHaveParameters(feature) && !variable.empty() &&
        feature.command.find_first_of(" {") == std::string::npos)
        feature.command += " {" + variable + "}";
    if (isSetup && !feature.command.empty())
        feature.variableName = variable;
    if (feature.setBehavior == ESCFeatureSetBehavior::Unspecified)
        feature.setBehavior = ESCFeatureSetBehavior::Normal;
    if (feature.unset == ESCFeatureUnsetRule::Unspecified)
        feature.unset = ESCFeatureUnsetRule::Allow;
    feature.modes = 1;
    return feature;
}

// A set for the dialect with every feature a sweep needs and a few settings.
inline ESCFeatureSet SimFeatureSet(std::string_view dialect, SCPIDataBlockFormat blockFormat) {
    const SimDialectCandidates candidates = CandidatesOfDialect(dialect);
    ESCFeatureSet set;
    set.blockFormat = blockFormat;
    if (!candidates.modeCommand.empty()) {
        set.modeNames[ESCDeviceModeIndex::SpectrumAnalyzer] = candidates.modeName;
        set.features.push_back(KeptFeature(candidates.modeCommand));
    }
    set.features.push_back(KeptFeature("INIT:CONT"));
    set.features.push_back(KeptFeature("INIT"));
    set.features.push_back(KeptFeature(candidates.fetchQuery));
    set.features.push_back(KeptFeature(candidates.attenuation));
    set.features.push_back(KeptFeature("SWE:POIN"));
    set.features.push_back(KeptFeature("FREQ:SPAN"));
    set.features.push_back(KeptFeature("FREQ:CENT"));
    set.features.push_back(KeptFeature("BAND"));
    set.features.push_back(KeptFeature("UNIT:POW DBM"));
    set.features.push_back(KeptFeature(candidates.dataFormat));
    if (!candidates.byteOrder.empty())
        set.features.push_back(KeptFeature(candidates.byteOrder));
    return set;
}

inline SCPIDataBlockFormat PrefixedBlock(SCPIValueFormat valueFormat, int32_t additionalCharacters) {
    SCPIDataBlockFormat format;
    format.type = SCPIDataBlockType::LengthPrefixedBinary;
    format.valueFormat = valueFormat;
    format.additionalCharacters = additionalCharacters;
    return format;
}

} // namespace nrq::test
