#pragma once

#include "HVX/Base/Quantities.h"
#include "HVX/ESC/String.h"

#include <cstdint>
#include <string_view>
#include <variant>

namespace nrq {

// The value of nothing: an unknown variable, an empty register.
struct Nil {
    friend constexpr bool operator==(Nil, Nil) { return true; }
};

// A feature left to the instrument's own choice.
struct ESCFeatureAuto {
    friend constexpr bool operator==(ESCFeatureAuto, ESCFeatureAuto) { return true; }
};

// A feature the user has not set; commands that print it disappear.
struct ESCFeatureUnset {
    friend constexpr bool operator==(ESCFeatureUnset, ESCFeatureUnset) { return true; }
};

// The run-time value of S1. The order of the alternatives is ESCVariantType.
using ESCVariant = std::variant<Nil, int64_t, double, DecibelMilliwatts, Frequency, ESCString,
                                ESCFeatureAuto, ESCFeatureUnset>;

enum class ESCVariantType : uint8_t {
    Nil = 0,
    Integer = 1,
    Float = 2,
    Amplitude = 3,
    Frequency = 4,
    String = 5,
    Automatic = 6,
    Unset = 7,
};

static_assert(sizeof(ESCVariant) == 16, "a value is a 64-bit payload and the index");

// The name that typeof and error messages show; "Unknown" outside the enumeration.
std::string_view ESCTypeName(ESCVariantType type);
// Of a value; a value without an alternative shows as "Unknown".
std::string_view ESCTypeName(const ESCVariant& value);

inline bool ESCIsNil(const ESCVariant& value) { return value.index() == 0; }
inline ESCVariantType ESCType(const ESCVariant& value) { return static_cast<ESCVariantType>(value.index()); }

// False only for Nil, the integer 0 and the float 0.0.
bool ESCTruthy(const ESCVariant& value);

} // namespace nrq
