// The scan-file reader of the host on arbitrary bytes: a damaged or cut file
// must end in an exception, never in a crash, and what reads must describe
// itself and give its CSV.
#include "halvex/ScanFile.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        const halvex::ScanFileContents contents =
            halvex::ReadScanFile(std::string_view(reinterpret_cast<const char*>(data), size));
        (void)halvex::DescribeScanFile(contents);
        if (const nrq::IScanData* scanData = contents.GetScanData()) {
            (void)scanData->SerializeToCSV();
            (void)scanData->SerializeBinary();
        }
    } catch (const std::exception&) {
    }
    return 0;
}
