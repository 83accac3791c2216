#include "HVX/Device/DeviceLoader.h"
#include "HVX/Device/NullAnalyzer.h"
#include "HVX/Device/NullScanner.h"

#include "support/TestDevices.h"

#include <gtest/gtest.h>

#include <iterator>
#include <stdexcept>

namespace nrq {
namespace {

class DeviceLoaderTest : public ::testing::Test {
protected:
    void SetUp() override { DeviceLoader::Reset(); }
    void TearDown() override { DeviceLoader::Reset(); }
};

TEST_F(DeviceLoaderTest, KeyIsManufacturerAndSerialInBraces) {
    const auto analyzer = DeviceLoader::AddDevice(std::make_shared<NullAnalyzer>(3));
    ASSERT_NE(analyzer, nullptr);
    EXPECT_EQ(DeviceLoader::GetDevice("{Nerquil Labs}{nullan3}"), analyzer);
    EXPECT_EQ(DeviceLoader::MakeId(analyzer->GetInfo()), "{Nerquil Labs}{nullan3}");
}

TEST_F(DeviceLoaderTest, AddedNullScannerIsFoundByItsId) {
    const auto scanner = std::make_shared<NullScanner>(0);
    const std::shared_ptr<Device> added = DeviceLoader::AddDevice(scanner);
    EXPECT_EQ(added, scanner);
    EXPECT_EQ(scanner->GetInfo().model, "NullScanner 0");
    const std::string id = "{Nerquil Labs}{nullsc0}";
    EXPECT_EQ(DeviceLoader::GetDevice(id), scanner);
    EXPECT_EQ(DeviceLoader::GetScanner(id, ScanMethod::Device), scanner);
}

TEST_F(DeviceLoaderTest, AddingReleasesTheDeviceMutexAndLeavesItDisconnected) {
    const auto device = std::make_shared<test::ScriptedDevice>("M", "Maker", "S1");
    ASSERT_EQ(DeviceLoader::AddDevice(device), device);
    EXPECT_EQ(device->connectCalls, 1);
    EXPECT_EQ(device->queryCalls, 1);
    EXPECT_EQ(device->disconnectCalls, 1);
    EXPECT_FALSE(device->connected);
    EXPECT_TRUE(device->GetMutex().try_lock());
    device->GetMutex().unlock();
}

TEST_F(DeviceLoaderTest, GetAnalyzerWithTheIdOfAScannerIsNull) {
    DeviceLoader::AddDevice(std::make_shared<NullScanner>(1));
    DeviceLoader::AddDevice(std::make_shared<NullAnalyzer>(1));
    EXPECT_EQ(DeviceLoader::GetAnalyzer("{Nerquil Labs}{nullsc1}"), nullptr);
    EXPECT_EQ(DeviceLoader::GetScanner("{Nerquil Labs}{nullan1}", ScanMethod::Device), nullptr);
    EXPECT_NE(DeviceLoader::GetAnalyzer("{Nerquil Labs}{nullan1}"), nullptr);
}

TEST_F(DeviceLoaderTest, SameManufacturerAndSerialLeavesOneEntryTheNewer) {
    const auto older = std::make_shared<test::ScriptedDevice>("Old model", "Maker", "S1");
    const auto newer = std::make_shared<test::ScriptedDevice>("New model", "Maker", "S1");
    DeviceLoader::AddDevice(older);
    DeviceLoader::AddDevice(newer);
    auto lock = DeviceLoader::GetReadLock();
    ASSERT_EQ(std::distance(DeviceLoader::begin(), DeviceLoader::end()), 1);
    EXPECT_EQ(DeviceLoader::begin()->first, "{Maker}{S1}");
    EXPECT_EQ(DeviceLoader::begin()->second, newer);
}

TEST_F(DeviceLoaderTest, DeviceThatDoesNotConnectGivesNullAndLeavesTheTable) {
    DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("M", "Maker", "S1"));
    const auto failing = std::make_shared<test::ScriptedDevice>("M", "Maker", "S2", false);
    EXPECT_EQ(DeviceLoader::AddDevice(failing), nullptr);
    EXPECT_EQ(failing->queryCalls, 0);
    EXPECT_EQ(failing->disconnectCalls, 0);
    EXPECT_EQ(std::distance(DeviceLoader::begin(), DeviceLoader::end()), 1);
    EXPECT_EQ(DeviceLoader::GetDevice("{Maker}{S2}"), nullptr);
}

TEST_F(DeviceLoaderTest, DeviceWithoutModelManufacturerOrSerialIsRefused) {
    EXPECT_EQ(DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("", "Maker", "S1")), nullptr);
    EXPECT_EQ(DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("M", "", "S1")), nullptr);
    EXPECT_EQ(DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("M", "Maker", "")), nullptr);
    EXPECT_EQ(DeviceLoader::begin(), DeviceLoader::end());
}

TEST_F(DeviceLoaderTest, ExceptionFromConnectPassesAndReleasesTheMutex) {
    const auto device = std::make_shared<test::ScriptedDevice>("M", "Maker", "S1");
    device->throwOnConnect = true;
    EXPECT_THROW(DeviceLoader::AddDevice(device), std::runtime_error);
    EXPECT_EQ(DeviceLoader::begin(), DeviceLoader::end());
    EXPECT_TRUE(device->GetMutex().try_lock());
    device->GetMutex().unlock();
}

TEST_F(DeviceLoaderTest, RemoveDeviceWithAnUnknownIdReturnsFalse) {
    DeviceLoader::AddDevice(std::make_shared<NullScanner>(0));
    EXPECT_FALSE(DeviceLoader::RemoveDevice("{Nerquil Labs}{nullsc9}"));
    EXPECT_TRUE(DeviceLoader::RemoveDevice("{Nerquil Labs}{nullsc0}"));
    EXPECT_FALSE(DeviceLoader::RemoveDevice("{Nerquil Labs}{nullsc0}"));
}

TEST_F(DeviceLoaderTest, RemovedDeviceLivesOnWithItsHolders) {
    const auto scanner = std::make_shared<NullScanner>(0);
    DeviceLoader::AddDevice(scanner);
    const std::weak_ptr<Device> watch = DeviceLoader::GetDevice("{Nerquil Labs}{nullsc0}");
    EXPECT_TRUE(DeviceLoader::RemoveDevice("{Nerquil Labs}{nullsc0}"));
    EXPECT_FALSE(watch.expired());
}

TEST_F(DeviceLoaderTest, AfterResetBeginEqualsEnd) {
    DeviceLoader::AddDevice(std::make_shared<NullScanner>(0));
    DeviceLoader::AddDevice(std::make_shared<NullAnalyzer>(0));
    ASSERT_NE(DeviceLoader::begin(), DeviceLoader::end());
    DeviceLoader::Reset();
    EXPECT_EQ(DeviceLoader::begin(), DeviceLoader::end());
}

TEST_F(DeviceLoaderTest, ResetReleasesDevicesNobodyElseHolds) {
    std::weak_ptr<Device> watch;
    {
        auto scanner = std::make_shared<NullScanner>(0);
        watch = scanner;
        DeviceLoader::AddDevice(std::move(scanner));
    }
    EXPECT_FALSE(watch.expired());
    DeviceLoader::Reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(DeviceLoaderTest, LiveTrackingIgnoresTheTable) {
    const auto scanner = std::make_shared<NullScanner>(0);
    DeviceLoader::AddDevice(scanner);
    const std::string id = "{Nerquil Labs}{nullsc0}";
    ASSERT_EQ(DeviceLoader::GetScanner(id, ScanMethod::Device), scanner);
    EXPECT_EQ(DeviceLoader::GetScanner(id, ScanMethod::LiveTracking), nullptr);
    EXPECT_EQ(DeviceLoader::GetScanner(id, static_cast<ScanMethod>(7)), nullptr);
}

TEST_F(DeviceLoaderTest, UniquePtrIsLeftEmptyEvenForAnInvalidDevice) {
    std::unique_ptr<Device> valid = std::make_unique<NullScanner>(4);
    Device* raw = valid.get();
    const std::shared_ptr<Device> added = DeviceLoader::AddDevice(valid);
    EXPECT_EQ(valid, nullptr);
    EXPECT_EQ(added.get(), raw);
    EXPECT_EQ(DeviceLoader::GetDevice("{Nerquil Labs}{nullsc4}"), added);

    std::unique_ptr<Device> invalid = std::make_unique<test::ScriptedDevice>("M", "Maker", "");
    EXPECT_EQ(DeviceLoader::AddDevice(invalid), nullptr);
    EXPECT_EQ(invalid, nullptr);
}

TEST_F(DeviceLoaderTest, IterationIsInByteWiseKeyOrder) {
    DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("M", "b", "1"));
    DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("M", "B", "1"));
    DeviceLoader::AddDevice(std::make_shared<test::ScriptedDevice>("M", "a", "1"));
    std::vector<std::string> keys;
    auto lock = DeviceLoader::GetReadLock();
    for (auto it = DeviceLoader::begin(); it != DeviceLoader::end(); ++it)
        keys.push_back(it->first);
    EXPECT_EQ(keys, (std::vector<std::string>{"{B}{1}", "{a}{1}", "{b}{1}"}));
}

} // namespace
} // namespace nrq
