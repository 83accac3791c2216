// Arbitrary bytes as a stream of object records. Only std::exceptions may come out.
#include <HVX/HVX.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    nrq::SerializeInfo info;
    info.version = 3 + data[0] % 3; // the versions that change bodies: 3, 4, 5
    std::string_view view(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        for (int record = 0; record < 16 && !view.empty(); ++record) {
            std::unique_ptr<nrq::ISerializable> object(nrq::ViewDeserializeObject(view, info));
            if (!object)
                continue;
            // What was read must write and read back.
            std::string again;
            nrq::AppendSerializeObject(again, object.get());
            std::unique_ptr<nrq::ISerializable> twice(nrq::ViewDeserializeObject(again, info));
            std::unique_ptr<nrq::ISerializable> clone(object->Clone());
        }
    } catch (const std::exception&) {
    }
    return 0;
}
