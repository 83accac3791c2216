#include "HVX/Device/Analyzer.h"
#include "HVX/Device/Scanner.h"
#include "HVX/Base/Error.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace nrq {
namespace {

// Counts the calls Ping makes.
class CountingDevice : public Device {
public:
    bool connected = false;
    bool connectSucceeds = true;
    bool connectThrows = false;
    bool disconnectThrows = false;
    int connects = 0;
    int disconnects = 0;

    bool Connect() override {
        ++connects;
        if (connectThrows)
            throw std::runtime_error("link refused");
        connected = connectSucceeds;
        return connectSucceeds;
    }
    void Disconnect() override {
        ++disconnects;
        connected = false;
        if (disconnectThrows)
            throw Error("disconnect failed");
    }
    bool IsConnected() override { return connected; }
};

TEST(DevicePing, ConnectedDeviceStaysConnected) {
    CountingDevice device;
    device.connected = true;
    EXPECT_TRUE(device.Ping());
    EXPECT_TRUE(device.connected);
    EXPECT_EQ(device.connects, 0);
    EXPECT_EQ(device.disconnects, 0);
}

TEST(DevicePing, UnconnectedDeviceIsConnectedAndDisconnectedAgain) {
    CountingDevice device;
    EXPECT_TRUE(device.Ping());
    EXPECT_FALSE(device.connected);
    EXPECT_EQ(device.connects, 1);
    EXPECT_EQ(device.disconnects, 1);
}

TEST(DevicePing, FailedConnectIsFalseAndStillDisconnects) {
    CountingDevice device;
    device.connectSucceeds = false;
    EXPECT_FALSE(device.Ping());
    EXPECT_EQ(device.disconnects, 1);
}

TEST(DevicePing, RaisingConnectCountsAsFalseAndStillDisconnects) {
    CountingDevice device;
    device.connectThrows = true;
    device.disconnectThrows = true;
    EXPECT_FALSE(device.Ping());
    EXPECT_EQ(device.disconnects, 1);
    EXPECT_FALSE(device.connected);
}

TEST(DeviceInfo, StartsEmptyWithSlotZero) {
    const CountingDevice device;
    EXPECT_EQ(device.GetInfo().model, "");
    EXPECT_EQ(device.GetInfo().slot, 0);
    EXPECT_EQ(device.GetInfo().note, "");
}

TEST(DeviceMutex, IsTheDevicesTimedMutex) {
    const CountingDevice device;
    std::timed_mutex& mutex = device.GetMutex();
    ASSERT_TRUE(mutex.try_lock());
    EXPECT_FALSE(device.GetMutex().try_lock());
    mutex.unlock();
}

class StateWithProgress : public ScannerState {
public:
    StateWithProgress* Clone() const override { return new StateWithProgress(*this); }
    const std::string& GetSerialType() const override {
        static const std::string name = "TestProgressState";
        return name;
    }
    bool GetProgress(float& progress) const override {
        progress = 0.25f;
        return true;
    }
};

class StubScanner : public Scanner {
public:
    std::unique_ptr<ScannerState> state;
    bool Connect() override { return true; }
    void Disconnect() override {}
    bool IsConnected() override { return true; }
    ScanStatus NextScanPosition() override { return ScanStatus::Finished; }
    Position GetScanPosition() const override { return {}; }
    const ScannerState* GetState() const override { return state.get(); }
    ScannerState* GetState() override { return state.get(); }
    void SetState(const ScannerState* s) override { state.reset(s ? s->Clone() : nullptr); }
};

TEST(ScannerProgress, NoStateIsFalseAndLeavesProgressAlone) {
    const StubScanner scanner;
    float progress = 0.75f;
    EXPECT_FALSE(scanner.GetProgress(progress));
    EXPECT_EQ(progress, 0.75f);
}

TEST(ScannerProgress, AsksTheState) {
    StubScanner scanner;
    const StateWithProgress state;
    scanner.SetState(&state);
    float progress = 0.0f;
    EXPECT_TRUE(scanner.GetProgress(progress));
    EXPECT_EQ(progress, 0.25f);
}

TEST(ScannerFlags, PositionalOutputRequiredByDefault) {
    StubScanner scanner;
    EXPECT_TRUE(scanner.GetPositionalOutputRequired());
    scanner.SetPositionalOutputRequired(false);
    EXPECT_FALSE(scanner.GetPositionalOutputRequired());
}

TEST(ScannerDefaults, ParametersAndStates) {
    class Parameters : public ScannerParameters {
    public:
        Parameters* Clone() const override { return new Parameters(*this); }
        const std::string& GetSerialType() const override {
            static const std::string name = "TestParameters";
            return name;
        }
    } parameters;
    Position min, max;
    EXPECT_FALSE(parameters.GetBounds(min, max));
    EXPECT_EQ(parameters.NewState(), nullptr);
    EXPECT_EQ(parameters.SerializeBinary(), "");
}

TEST(Statuses, ValuesAreFixed) {
    EXPECT_EQ(static_cast<int>(ScanStatus::Finished), 0);
    EXPECT_EQ(static_cast<int>(ScanStatus::Ready), 1);
    EXPECT_EQ(static_cast<int>(ScanStatus::Moving), 2);
    EXPECT_EQ(static_cast<int>(ScanMethod::Device), 0);
    EXPECT_EQ(static_cast<int>(ScanMethod::LiveTracking), 1);
}

} // namespace
} // namespace nrq
