#pragma once

#include "HVX/Device/Analyzer.h"
#include "HVX/Device/Scanner.h"

#include <atomic>
#include <stdexcept>
#include <string>

namespace nrq::test {

// A device that identifies itself as told, and counts what was done to it.
class ScriptedDevice : public virtual Device {
public:
    ScriptedDevice(std::string model, std::string manufacturer, std::string serial, bool connects = true)
        : model(std::move(model)), manufacturer(std::move(manufacturer)), serial(std::move(serial)),
          connects(connects) {}

    bool Connect() override {
        ++connectCalls;
        if (throwOnConnect)
            throw std::runtime_error("no link");
        connected = connects;
        return connects;
    }
    void Disconnect() override {
        ++disconnectCalls;
        connected = false;
    }
    bool IsConnected() override { return connected; }

    bool throwOnConnect = false;
    bool connected = false;
    int connectCalls = 0;
    int disconnectCalls = 0;
    int queryCalls = 0;

protected:
    void QueryInfo() override {
        ++queryCalls;
        info.model = model;
        info.manufacturer = manufacturer;
        info.serial = serial;
    }

private:
    std::string model;
    std::string manufacturer;
    std::string serial;
    bool connects;
};

} // namespace nrq::test
