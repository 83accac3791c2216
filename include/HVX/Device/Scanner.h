#pragma once

#include "HVX/Base/Quantities.h"
#include "HVX/Base/Serialize.h"
#include "HVX/Base/Vector.h"
#include "HVX/Device/Device.h"

#include <cstdint>
#include <memory>

namespace nrq {

using Position = Vector<Length, 3>;
static_assert(sizeof(Position) == 12);

enum class ScanStatus : int32_t {
    Finished = 0, // the pass has ended
    Ready = 1,    // the probe stands at a new position: measure now
    Moving = 2,   // no position yet: call again without measuring
};

enum class ScanMethod : int32_t {
    Device = 0,       // a device of the registry
    LiveTracking = 1, // the camera-tracked probe
};

class ScannerState;

// What a scan of a given scanner is to cover.
class ScannerParameters : public ISerializable {
public:
    ScannerParameters* Clone() const override = 0;
    virtual bool GetBounds(Position& min, Position& max) const {
        (void)min;
        (void)max;
        return false;
    }
    // The state with which a scan starts.
    virtual std::unique_ptr<ScannerState> NewState() const { return nullptr; }
};

// The resumable position of a running scan.
class ScannerState : public ISerializable {
public:
    ScannerState* Clone() const override = 0;
    virtual bool GetProgress(float& progress) const {
        (void)progress;
        return false;
    }
    // Back to the start of the pass.
    virtual void Reset() {}
};

class Scanner : public virtual Device {
public:
    virtual void InitScanner() {}
    virtual void ResetScanner() {}
    virtual ScanStatus NextScanPosition() = 0;
    virtual Position GetScanPosition() const = 0;
    virtual const ScannerState* GetState() const = 0;
    virtual ScannerState* GetState() = 0;
    // Keeps its own copy of the argument.
    virtual void SetState(const ScannerState* state) = 0;
    virtual bool GetProgress(float& progress) const;

    bool GetPositionalOutputRequired() const { return positionalOutputRequired; }
    void SetPositionalOutputRequired(bool required) { positionalOutputRequired = required; }

protected:
    Scanner() = default;
    Scanner(const Scanner& other) : Device(), positionalOutputRequired(other.positionalOutputRequired) {}

private:
    bool positionalOutputRequired = true;
};

} // namespace nrq
