#pragma once

#include "HVX/Base/Quantities.h"
#include "HVX/Base/Serialize.h"
#include "HVX/Device/Device.h"

#include <cstdint>
#include <vector>

namespace nrq {

// The first and last point of a sweep.
struct FrequencyStartStop {
    Frequency start;
    Frequency stop;
};

// The settings of a sweep. Concrete: a driver without special settings uses it as it is.
class AnalyzerParameters : public ISerializable {
public:
    AnalyzerParameters* Clone() const override { return new AnalyzerParameters(*this); }
    const std::string& GetSerialType() const override;
    std::string SerializeBinary() const override;
    void DeserializeBinary(std::string_view& data, const SerializeInfo& info) override;
    using ISerializable::DeserializeBinary;

    virtual void SetMinFrequency(Frequency f) { minFrequency = f; }
    virtual void SetMaxFrequency(Frequency f) { maxFrequency = f; }
    virtual Frequency GetMinFrequency() const { return minFrequency; }
    virtual Frequency GetMaxFrequency() const { return maxFrequency; }

    Frequency GetRBW() const { return rbw; }
    void SetRBW(Frequency value) { rbw = value; }
    int32_t GetMode() const { return mode; }
    void SetMode(int32_t value) { mode = value; }
    bool GetFlag0() const { return flag0; }
    void SetFlag0(bool value) { flag0 = value; }
    bool GetFlag1() const { return flag1; }
    void SetFlag1(bool value) { flag1 = value; }

    // The body is 27 bytes: min, max, flag0, rbw, mode (one byte), flag1.
    static constexpr size_t binarySize = 27;
    // Bodies before this format version carry no fields.
    static constexpr int32_t firstVersionWithBody = 4;

protected:
    bool flag0 = false;                  // kept and saved; no reader in the library
    Frequency rbw = Frequency(100e3);
    int32_t mode = 0;                    // kept and saved as one byte
    bool flag1 = false;                  // kept and saved; no reader in the library
    Frequency minFrequency = Frequency(10e6);
    Frequency maxFrequency = Frequency(110e6);
};

class Analyzer : public virtual Device {
public:
    // Configures the instrument, once per scan, after the settings are in place.
    virtual void InitAnalyzer() {}
    virtual void ResetAnalyzer() {}
    virtual FrequencyStartStop GetFrequencyRange() const = 0;
    // One sweep, blocking, in dBm at evenly spaced frequencies from start to stop.
    virtual std::vector<DecibelMilliwatts> GetMeasurement() = 0;
    virtual void SetAnalyzerParameters(const AnalyzerParameters* parameters) = 0;

protected:
    Analyzer() = default;
};

} // namespace nrq
