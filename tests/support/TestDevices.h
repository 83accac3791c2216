#pragma once

#include "HVX/Device/Analyzer.h"
#include "HVX/Device/Scanner.h"

#include <atomic>
#include <memory>
#include <vector>
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

namespace nrq::test {

// Scanner and analyzer that write each call into one shared journal, and take
// what they report from the test.
class JournalScanner : public Scanner {
public:
    JournalScanner(std::vector<std::string>& journal, std::string serial) : journal(journal), serial(std::move(serial)) {}

    bool Connect() override { journal.push_back("scanner.Connect"); return true; }
    void Disconnect() override { journal.push_back("scanner.Disconnect"); }
    bool IsConnected() override { return true; }
    void InitScanner() override { journal.push_back("scanner.InitScanner"); }
    void ResetScanner() override { journal.push_back("scanner.ResetScanner"); }
    ScanStatus NextScanPosition() override {
        journal.push_back("scanner.NextScanPosition");
        if (script.empty())
            return ScanStatus::Finished;
        const ScanStatus next = script.front();
        script.erase(script.begin());
        return next;
    }
    Position GetScanPosition() const override {
        journal.push_back("scanner.GetScanPosition");
        return position;
    }
    const ScannerState* GetState() const override { return state.get(); }
    ScannerState* GetState() override { return state.get(); }
    void SetState(const ScannerState* newState) override {
        journal.push_back(newState ? "scanner.SetState" : "scanner.SetState(null)");
        state.reset(newState ? newState->Clone() : nullptr);
    }
    bool GetProgress(float& progress) const override {
        journal.push_back("scanner.GetProgress");
        return Scanner::GetProgress(progress);
    }

    std::vector<ScanStatus> script;
    Position position;

protected:
    void QueryInfo() override {
        info.model = "Journal scanner";
        info.manufacturer = "Test";
        info.serial = serial;
    }

private:
    std::vector<std::string>& journal;
    std::string serial;
    std::unique_ptr<ScannerState> state;
};

class JournalAnalyzer : public Analyzer {
public:
    JournalAnalyzer(std::vector<std::string>& journal, std::string serial) : journal(journal), serial(std::move(serial)) {}

    bool Connect() override { journal.push_back("analyzer.Connect"); return true; }
    void Disconnect() override { journal.push_back("analyzer.Disconnect"); }
    bool IsConnected() override { return true; }
    void InitAnalyzer() override { journal.push_back("analyzer.InitAnalyzer"); }
    void ResetAnalyzer() override { journal.push_back("analyzer.ResetAnalyzer"); }
    FrequencyStartStop GetFrequencyRange() const override {
        journal.push_back("analyzer.GetFrequencyRange");
        return range;
    }
    std::vector<DecibelMilliwatts> GetMeasurement() override {
        journal.push_back("analyzer.GetMeasurement");
        if (failMeasurement)
            throw std::runtime_error("link lost");
        return sweep;
    }
    void SetAnalyzerParameters(const AnalyzerParameters* parameters) override {
        journal.push_back(parameters ? "analyzer.SetAnalyzerParameters" : "analyzer.SetAnalyzerParameters(null)");
    }

    FrequencyStartStop range{Frequency(10.0), Frequency(20.0)};
    std::vector<DecibelMilliwatts> sweep;
    bool failMeasurement = false;

protected:
    void QueryInfo() override {
        info.model = "Journal analyzer";
        info.manufacturer = "Test";
        info.serial = serial;
    }

private:
    std::vector<std::string>& journal;
    std::string serial;
};

// A state that reports the progress it is given.
class FixedProgressState : public ScannerState {
public:
    explicit FixedProgressState(float progress = 0.0f) : progress(progress) {}
    FixedProgressState* Clone() const override { return new FixedProgressState(*this); }
    const std::string& GetSerialType() const override {
        static const std::string name = "FixedProgressSS";
        return name;
    }
    bool GetProgress(float& value) const override {
        value = progress;
        return true;
    }
    void Reset() override { ++resets; }

    float progress;
    int resets = 0;
};

class FixedProgressParameters : public ScannerParameters {
public:
    explicit FixedProgressParameters(float progress = 0.0f) : progress(progress) {}
    FixedProgressParameters* Clone() const override { return new FixedProgressParameters(*this); }
    const std::string& GetSerialType() const override {
        static const std::string name = "FixedProgressSP";
        return name;
    }
    std::unique_ptr<ScannerState> NewState() const override { return std::make_unique<FixedProgressState>(progress); }

    float progress;
};

} // namespace nrq::test
