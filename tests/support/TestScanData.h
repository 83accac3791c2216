#pragma once

#include "HVX/App/Data/ScanData.h"

#include <string>
#include <vector>

namespace nrq::test {

// Scan data that keeps every measurement it is given, for looking at afterwards.
class RecordingScanData : public IScanData {
public:
    RecordingScanData* Clone() const override { return new RecordingScanData(*this); }
    const std::string& GetSerialType() const override {
        static const std::string name = "RecordingSD";
        return name;
    }
    void AddMeasurement(const FullScanMeasurement& measurement, RepeatingBehavior behavior) override {
        measurements.push_back(measurement);
        behaviors.push_back(behavior);
    }
    void ResetWriteIndex() override { ++writeIndexResets; }
    bool IsEmpty() const override { return measurements.empty(); }

    std::vector<FullScanMeasurement> measurements;
    std::vector<RepeatingBehavior> behaviors;
    int writeIndexResets = 0;
};

} // namespace nrq::test
