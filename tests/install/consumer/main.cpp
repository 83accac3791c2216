// A program outside the tree that uses the installed package.
#include <HVX/HVX.h>

#include <cstdio>
#include <memory>

int main() {
    nrq::HVXInit(false);
    auto scanner = std::make_shared<nrq::NullScanner>(1);
    auto analyzer = std::make_shared<nrq::NullAnalyzer>(1);
    analyzer->SetSweepDuration(std::chrono::nanoseconds(0));
    std::shared_ptr<nrq::Scanner> asScanner = scanner;
    std::shared_ptr<nrq::Analyzer> asAnalyzer = analyzer;
    asScanner->Connect();
    asAnalyzer->Connect();
    const auto start = nrq::NullScannerParameters().NewState();
    asScanner->SetState(start.get());
    const nrq::NullAnalyzerParameters parameters;
    asAnalyzer->SetAnalyzerParameters(&parameters);
    int measured = 0;
    while (measured < 3 && asScanner->NextScanPosition() == nrq::ScanStatus::Ready) {
        const nrq::Position position = asScanner->GetScanPosition();
        const auto sweep = asAnalyzer->GetMeasurement();
        std::printf("(%.1f mm, %.1f mm): %zu points\n", position.x().mm(), position.y().mm(), sweep.size());
        ++measured;
    }
    asAnalyzer->Disconnect();
    asScanner->Disconnect();
    std::printf("%d positions measured\n", measured);
    nrq::HVXTerminate();
    return measured == 3 ? 0 : 1;
}
