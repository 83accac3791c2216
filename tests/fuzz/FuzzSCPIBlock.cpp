// Trace blocks come straight from an instrument: a damaged or hostile block
// must end in false or an exception, never in a read past the buffers, and a
// block that decodes must decode to its bytes, swapped or not.
//
// Input: byte 0 picks the framing (bits 0-1 value format, bit 2 unprefixed,
// bits 3-4 the trailer: -1, 0, 1 or 7 characters); byte 1 is the point count
// an unprefixed block expects; the rest is what the instrument sends.
#include "HVX/Base/Error.h"
#include "HVX/ESC/SCPI/SpectrumScan.h"
#include "support/ScriptedIO.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace {

constexpr int32_t trailers[] = {-1, 0, 1, 7};
// Larger announced blocks only cost time: each would be allocated in full.
constexpr unsigned long long largestBlock = 1u << 20;

bool AnnouncesAHugeBlock(const std::string& reply) {
    if (reply.size() < 2 || reply[1] < '0' || reply[1] > '9')
        return false;
    const std::string digits = reply.substr(2, static_cast<size_t>(reply[1] - '0'));
    const unsigned long long count = std::strtoull(digits.c_str(), nullptr, 10);
    return count > largestBlock && count < SIZE_MAX - 1024;
}

void CheckDecoded(const nrq::SCPISpecAnState& state, const nrq::DecibelMilliwatts* values) {
    const bool swapped = state.valueFormat == nrq::SCPIValueFormat::SwappedFloat32;
    for (size_t i = 0; i < state.valueCount; ++i) {
        uint8_t expected[4];
        for (size_t b = 0; b < 4; ++b)
            expected[b] = state.rawBuffer.data[i * 4 + (swapped ? 3 - b : b)];
        if (std::memcmp(expected, values + i, 4) != 0)
            __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    nrq::ESCFeatureSet set;
    set.blockFormat.valueFormat = static_cast<nrq::SCPIValueFormat>(data[0] & 3);
    set.blockFormat.type = (data[0] & 4) ? nrq::SCPIDataBlockType::UnprefixedBinary
                                         : nrq::SCPIDataBlockType::LengthPrefixedBinary;
    set.blockFormat.additionalCharacters = trailers[(data[0] >> 3) & 3];
    const std::string reply(reinterpret_cast<const char*>(data + 2), size - 2);
    if (set.blockFormat.type == nrq::SCPIDataBlockType::LengthPrefixedBinary && AnnouncesAHugeBlock(reply))
        return 0;

    nrq::test::ScriptedIO io;
    io.throwWhenEmpty = true; // ends the endless trailer loop, as a link's time-out does
    io.Queue(reply);
    nrq::SCPISpecAnState state;
    nrq::SCPIScanInitState(state, &io, &set);
    state.sweepCommand = "INIT\n";
    state.fetchCommand = "TRAC?\n";
    state.expectedBytes = data[1] * nrq::GetBinaryFormatSize(set.blockFormat.valueFormat);
    try {
        if (!nrq::SCPIScanRunMeas(state))
            return 0;
    } catch (const std::exception&) {
        return 0;
    }
    size_t count = 0;
    if (!nrq::SCPIScanGetMeasCount(state, count))
        return 0;
    nrq::DecibelMilliwatts* values = nullptr;
    const bool wide = nrq::GetBinaryFormatSize(state.valueFormat) == 8;
    try {
        nrq::SCPIScanGetMeasValues(state, values);
    } catch (const nrq::Error&) {
        if (!wide)
            __builtin_trap();
        return 0;
    }
    if (wide)
        __builtin_trap();
    CheckDecoded(state, values);
    return 0;
}
