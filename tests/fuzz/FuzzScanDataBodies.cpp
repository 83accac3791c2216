// Arbitrary bytes as the body of one scan data shape: the first byte picks the
// shape, the second the format version. Only std::exceptions may come out, and
// a body that was read must write and read back to the same bytes.
#include <HVX/HVX.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

namespace {

std::unique_ptr<nrq::IScanData> MakeShape(uint8_t pick) {
    switch (pick % 3) {
    case 0: return std::make_unique<nrq::SpectralScanData>();
    case 1: return std::make_unique<nrq::SpatialScanData>();
    default: return std::make_unique<nrq::CombinedScanData>();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    std::unique_ptr<nrq::IScanData> shape = MakeShape(data[0]);
    nrq::SerializeInfo info;
    info.version = 3 + data[1] % 3; // 3 and 4 without the info block, 5 with it
    std::string_view view(reinterpret_cast<const char*>(data) + 2, size - 2);
    try {
        shape->DeserializeBinary(view, info);
    } catch (const std::exception&) {
        return 0;
    }
    const std::string body = shape->SerializeBinary();
    (void)shape->SerializeToCSV();
    (void)shape->IsEmpty();
    std::unique_ptr<nrq::IScanData> clone(shape->Clone());
    std::unique_ptr<nrq::IScanData> again = MakeShape(data[0]);
    nrq::SerializeInfo current;
    std::string_view written(body);
    again->DeserializeBinary(written, current);
    if (!written.empty() || again->SerializeBinary() != body || clone->SerializeToCSV() != shape->SerializeToCSV())
        std::abort();
    return 0;
}
