#include "HVX/Device/Analyzer.h"

namespace nrq {

const std::string& AnalyzerParameters::GetSerialType() const {
    static const std::string name = "AnalyzerParameters";
    return name;
}

std::string AnalyzerParameters::SerializeBinary() const {
    std::string out;
    out.reserve(binarySize);
    AppendRaw(out, minFrequency.Hz());
    AppendRaw(out, maxFrequency.Hz());
    AppendRaw(out, static_cast<uint8_t>(flag0));
    AppendRaw(out, rbw.Hz());
    AppendRaw(out, static_cast<uint8_t>(mode & 0xFF));
    AppendRaw(out, static_cast<uint8_t>(flag1));
    return out;
}

void AnalyzerParameters::DeserializeBinary(std::string_view& data, const SerializeInfo& info) {
    if (info.version < firstVersionWithBody)
        return;
    BinaryCursor cursor(data);
    minFrequency = Frequency(cursor.Read<double>());
    maxFrequency = Frequency(cursor.Read<double>());
    flag0 = cursor.Read<uint8_t>() != 0;
    rbw = Frequency(cursor.Read<double>());
    mode = cursor.Read<uint8_t>();
    flag1 = cursor.Read<uint8_t>() != 0;
}

} // namespace nrq
