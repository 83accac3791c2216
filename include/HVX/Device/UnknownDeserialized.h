#pragma once

#include "HVX/Base/Serialize.h"
#include "HVX/Device/Analyzer.h"
#include "HVX/Device/Scanner.h"

namespace nrq {

// Parameters and states of types this library does not know, kept byte for byte.

class UnknownAnalyzerParameters : public UnknownDeserializedAs<AnalyzerParameters> {
public:
    UnknownAnalyzerParameters* Clone() const override { return new UnknownAnalyzerParameters(*this); }
    const std::string& GetSerialType() const override;
};

class UnknownScannerParameters : public UnknownDeserializedAs<ScannerParameters> {
public:
    UnknownScannerParameters* Clone() const override { return new UnknownScannerParameters(*this); }
    const std::string& GetSerialType() const override;
};

class UnknownScannerState : public UnknownDeserializedAs<ScannerState> {
public:
    UnknownScannerState* Clone() const override { return new UnknownScannerState(*this); }
    const std::string& GetSerialType() const override;
};

} // namespace nrq
