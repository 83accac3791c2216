// The feature sets shipped for the simulator's dialects are the sets the
// tests build from the built-in candidates, in the store's file form.
#if defined(HVX_SCPI_SIM_AVAILABLE)

#include "HVX/ESC/FeaturesJson.h"

#include "hvxsim/ScpiDialect.h"

#include "support/SimFeatureSets.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <string>

namespace nrq {
namespace {

std::string StoreFileText(const std::string& dialect, SCPIValueFormat format) {
    const hvxsim::ScpiDialect* family = hvxsim::FindScpiDialect(dialect);
    nlohmann::ordered_json json;
    json["version"] = 1;
    json["manufacturer"] = family->manufacturer;
    json["serial_id"] = family->serial;
    json["feature_set"] = test::SimFeatureSet(dialect, test::PrefixedBlock(format, -1));
    return json.dump(2);
}

TEST(SimFeatureSetFiles, MatchTheSetsOfTheirDialects) {
    const std::string folder = std::string(HVX_SOURCE_DIR) + "/sim/feature-sets/";
    EXPECT_EQ(test::ReadFileBytes(folder + "default.json"), StoreFileText("default", SCPIValueFormat::NativeFloat32));
    EXPECT_EQ(test::ReadFileBytes(folder + "alpha.json"), StoreFileText("alpha", SCPIValueFormat::SwappedFloat32));
    EXPECT_EQ(test::ReadFileBytes(folder + "charlie.json"), StoreFileText("charlie", SCPIValueFormat::NativeFloat32));
}

} // namespace
} // namespace nrq

#endif
