#include "HVX/ESC/Variant.h"

namespace nrq {

std::string_view ESCTypeName(ESCVariantType type) {
    switch (type) {
    case ESCVariantType::Nil: return "Nil";
    case ESCVariantType::Integer: return "Integer";
    case ESCVariantType::Float: return "Float";
    case ESCVariantType::Amplitude: return "Amplitude";
    case ESCVariantType::Frequency: return "Frequency";
    case ESCVariantType::String: return "String";
    case ESCVariantType::Automatic: return "Automatic";
    case ESCVariantType::Unset: return "Unset";
    }
    return "Unknown";
}

std::string_view ESCTypeName(const ESCVariant& value) {
    if (value.valueless_by_exception())
        return "Unknown";
    return ESCTypeName(ESCType(value));
}

bool ESCTruthy(const ESCVariant& value) {
    switch (value.index()) {
    case 0: return false;
    case 1: return std::get<int64_t>(value) != 0;
    case 2: return std::get<double>(value) != 0.0;
    default: return true;
    }
}

} // namespace nrq
