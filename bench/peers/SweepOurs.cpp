// One sweep, command to values, through the library's VISA binding and its
// sweep functions: the sweep and the fetch go out in one write, the block
// is read by its announced length and decoded. Prints the best time of the
// rounds in milliseconds and the number of values.
#include <HVX/ESC/Features.h>
#include <HVX/ESC/SCPI/SpectrumScan.h>
#include <HVX/Visa/Visa.h>
#include <HVX/Visa/VisaConnection.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: sweep-ours RESOURCE POINTS ROUNDS\n");
        return 2;
    }
    const std::string resource = argv[1];
    const std::string points = argv[2];
    const int rounds = std::atoi(argv[3]);
    if (!nrq::Visa::Init()) {
        std::fprintf(stderr, "sweep-ours: no VISA library\n");
        return 1;
    }
    nrq::VisaConnection link(resource);
    if (!link.Connect()) {
        std::fprintf(stderr, "sweep-ours: cannot reach %s\n", resource.c_str());
        return 1;
    }
    link.WriteData("*RST\nINIT:CONT OFF\nFORM REAL,32\nFORM:BORD SWAP\nSWE:POIN " + points + "\n*OPC?\n");
    link.ReadData(std::chrono::seconds(5));

    nrq::ESCFeatureSet set;
    set.blockFormat = {nrq::SCPIDataBlockType::LengthPrefixedBinary, nrq::SCPIValueFormat::NativeFloat32, -1};
    nrq::SCPISpecAnState state;
    nrq::SCPIScanInitState(state, &link, &set);
    state.sweepCommand = "INIT:IMM\n";
    state.fetchCommand = "TRAC? TRACE1\n";

    double best = 1e300;
    size_t count = 0;
    for (int round = 0; round <= rounds; ++round) {
        const auto started = std::chrono::steady_clock::now();
        nrq::DecibelMilliwatts* values = nullptr;
        if (!nrq::SCPIScanRunMeas(state) || !nrq::SCPIScanGetMeasCount(state, count) ||
            !nrq::SCPIScanGetMeasValues(state, values)) {
            std::fprintf(stderr, "sweep-ours: the sweep failed\n");
            return 1;
        }
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
        if (round > 0) // the first round warms up
            best = std::min(best, ms);
    }
    nrq::SCPIScanClearState(state);
    link.Disconnect();
    nrq::Visa::Terminate();
    std::printf("%.3f %zu\n", best, count);
    return 0;
}
