#pragma once

#include "HVX/Base/Quantities.h"
#include "HVX/Base/StringUtil.h"
#include "HVX/ESC/Features.h"
#include "HVX/ESC/Interpreter.h"
#include "HVX/ESC/Variant.h"
#include "HVX/Visa/Connection.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace nrq {

// One entry of an instrument's error queue.
struct SCPIError {
    std::string message;
    int32_t code = 0;
};

// The four fields of an identification reply.
struct SCPIIdentity {
    std::string manufacturer;
    std::string model;
    std::string serial;
    std::string firmware;
};

// A setting's value as the user chose it; index -1 when it is not from the feature's list.
struct SCPIStoredValue {
    ESCVariant value;
    int32_t index = -1;
};

// Feature label, or "Frequency Start" / "Frequency Stop", to the chosen value.
using SCPIVariableMap = std::unordered_map<std::string, SCPIStoredValue, string_hash, std::equal_to<>>;

// Bytes whose usable start is aligned to 64, so that wide loads may run past the data.
struct SCPIAlignedBuffer {
    std::vector<uint8_t> storage;
    uint8_t* data = nullptr;

    // Grows only; keeps 128 spare bytes behind `size`.
    uint8_t* Reserve(size_t size);
};

// One session with one SCPI spectrum analyzer.
struct SCPISpecAnState {
    IO* io = nullptr;                          // not owned
    const ESCFeatureSet* featureSet = nullptr; // not owned
    std::unique_ptr<ESCInterpreter> interpreter = std::make_unique<ESCInterpreter>();
    std::vector<SCPIError> errors;
    std::chrono::nanoseconds waitTime{20'000'000};
    std::chrono::nanoseconds queryTimeout{20'000'000'000};

    SCPIVariableMap variableMap;
    std::string setupCommands;
    std::string sweepCommand;
    std::string fetchCommand;
    std::string pointsQuery;
    Frequency frequencyStart{};
    Frequency frequencyStop{};
    uint64_t expectedBytes = 0;
    SCPIAlignedBuffer rawBuffer;
    SCPIAlignedBuffer valueBuffer;
    SCPIValueFormat valueFormat = SCPIValueFormat::Unknown;
    uint64_t valueCount = 0;
};

} // namespace nrq
