#pragma once

#include "HVX/Base/Error.h"
#include "HVX/Base/Serialize.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace nrq::test {

inline SerializeInfo Version(int32_t version) {
    SerializeInfo info;
    info.version = version;
    return info;
}

// Reading `body` into a fresh T must raise "Deserialization ERROR".
template <class T>
void ExpectRaisesDeserializationError(const std::string& body, int32_t version) {
    T object;
    std::string_view view(body);
    try {
        object.DeserializeBinary(view, Version(version));
        ADD_FAILURE() << "no error for " << body.size() << " bytes";
    } catch (const Error& e) {
        EXPECT_NE(std::string(e.what()).find("Deserialization ERROR"), std::string::npos) << e.what();
    }
}

} // namespace nrq::test
