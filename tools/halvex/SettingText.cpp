#include "SettingText.h"

#include <fmt/format.h>

#include <string_view>

namespace halvex {

std::string ValueText(const nrq::ESCVariant& value) {
    struct Visitor {
        std::string operator()(nrq::Nil) const { return "-"; }
        std::string operator()(int64_t v) const { return std::to_string(v); }
        std::string operator()(double v) const { return fmt::format("{:g}", v); }
        std::string operator()(nrq::DecibelMilliwatts v) const { return fmt::format("{:g} dBm", v.dBm()); }
        std::string operator()(nrq::Frequency v) const { return v.ToString(); }
        std::string operator()(const nrq::ESCString& v) const { return std::string(std::string_view(v)); }
        std::string operator()(nrq::ESCFeatureAuto) const { return "auto"; }
        std::string operator()(nrq::ESCFeatureUnset) const { return "unset"; }
    };
    return std::visit(Visitor{}, value);
}

} // namespace halvex
