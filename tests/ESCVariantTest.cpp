#include "HVX/Base/Error.h"
#include "HVX/ESC/Compiler.h"
#include "HVX/ESC/Variant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <regex>

namespace nrq {
namespace {

std::string SyntaxError(const ESCVariant& value) {
    try {
        ESCConvertVariantToSyntax(value);
    } catch (const Error& error) {
        return std::regex_replace(error.what(), std::regex(R"(^\(\d+\) )"), "");
    }
    return "no error";
}

TEST(ESCVariant, IsAPayloadAndAnIndex) {
    EXPECT_EQ(sizeof(ESCVariant), 16u);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<ESCVariant>);
}

TEST(ESCVariant, TypeNumbersFollowTheAlternatives) {
    EXPECT_EQ(ESCType(Nil{}), ESCVariantType::Nil);
    EXPECT_EQ(ESCType(int64_t{1}), ESCVariantType::Integer);
    EXPECT_EQ(ESCType(1.0), ESCVariantType::Float);
    EXPECT_EQ(ESCType(DecibelMilliwatts(1.0f)), ESCVariantType::Amplitude);
    EXPECT_EQ(ESCType(Frequency(1.0)), ESCVariantType::Frequency);
    EXPECT_EQ(ESCType(ESCString()), ESCVariantType::String);
    EXPECT_EQ(ESCType(ESCFeatureAuto{}), ESCVariantType::Automatic);
    EXPECT_EQ(ESCType(ESCFeatureUnset{}), ESCVariantType::Unset);
    EXPECT_EQ(static_cast<int>(ESCVariantType::Unset), 7);
    EXPECT_TRUE(ESCIsNil(ESCVariant()));
    EXPECT_FALSE(ESCIsNil(int64_t{0}));
}

TEST(ESCVariant, TypeNames) {
    EXPECT_EQ(ESCTypeName(ESCVariantType::Nil), "Nil");
    EXPECT_EQ(ESCTypeName(ESCVariantType::Integer), "Integer");
    EXPECT_EQ(ESCTypeName(ESCVariantType::Float), "Float");
    EXPECT_EQ(ESCTypeName(ESCVariantType::Amplitude), "Amplitude");
    EXPECT_EQ(ESCTypeName(ESCVariantType::Frequency), "Frequency");
    EXPECT_EQ(ESCTypeName(ESCVariantType::String), "String");
    EXPECT_EQ(ESCTypeName(ESCVariantType::Automatic), "Automatic");
    EXPECT_EQ(ESCTypeName(ESCVariantType::Unset), "Unset");
    EXPECT_EQ(ESCTypeName(static_cast<ESCVariantType>(8)), "Unknown");
    EXPECT_EQ(ESCTypeName(ESCVariant(2.0)), "Float");
}

TEST(ESCVariant, Truthy) {
    EXPECT_FALSE(ESCTruthy(Nil{}));
    EXPECT_FALSE(ESCTruthy(int64_t{0}));
    EXPECT_FALSE(ESCTruthy(0.0));
    EXPECT_FALSE(ESCTruthy(-0.0));
    EXPECT_TRUE(ESCTruthy(int64_t{-1}));
    EXPECT_TRUE(ESCTruthy(0.5));
    EXPECT_TRUE(ESCTruthy(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_TRUE(ESCTruthy(ESCString()));
    EXPECT_TRUE(ESCTruthy(Frequency(0.0)));
    EXPECT_TRUE(ESCTruthy(DecibelMilliwatts(0.0f)));
    EXPECT_TRUE(ESCTruthy(ESCFeatureAuto{}));
    EXPECT_TRUE(ESCTruthy(ESCFeatureUnset{}));
}

TEST(ESCConvertVariantToSyntax, Values) {
    EXPECT_EQ(ESCConvertVariantToSyntax(Nil{}), "nil");
    EXPECT_EQ(ESCConvertVariantToSyntax(int64_t{-42}), "-42");
    EXPECT_EQ(ESCConvertVariantToSyntax(2.5), "2.5");
    EXPECT_EQ(ESCConvertVariantToSyntax(0.1), "0.1");
    EXPECT_EQ(ESCConvertVariantToSyntax(1e300), "1e+300");
    EXPECT_EQ(ESCConvertVariantToSyntax(Frequency(2.5e6)), "2500000Hz");
    EXPECT_EQ(ESCConvertVariantToSyntax(Frequency(0.5)), "0.5Hz");
    // Characters as they are, a backslash before each double quote only.
    EXPECT_EQ(ESCConvertVariantToSyntax(ESCString(std::string_view("say \"hi\" it's"))), "say \\\"hi\\\" it's");
    EXPECT_EQ(ESCConvertVariantToSyntax(ESCString()), "");
}

TEST(ESCConvertVariantToSyntax, OtherTypesFailTheAssertion) {
    EXPECT_EQ(SyntaxError(DecibelMilliwatts(-3.0f)), "Failed to convert value to syntax");
    EXPECT_EQ(SyntaxError(ESCFeatureAuto{}), "Failed to convert value to syntax");
    EXPECT_EQ(SyntaxError(ESCFeatureUnset{}), "Failed to convert value to syntax");
}

TEST(ESCConvertVariantToSyntax, IntegersAndFrequenciesReadBack) {
    ESCCompiler compiler;
    // The frequency text is a Freq literal of the language.
    const ESCByteCode code = compiler.Compile("{" + ESCConvertVariantToSyntax(Frequency(1.5e9)) + "}");
    ASSERT_EQ(code.GetInstructions().size(), 3u);
    EXPECT_EQ(code.GetInstructions()[0],
              ESCByteCodeInstruction::Load(ESCOpCode::LoadFrequency, 0, std::bit_cast<uint64_t>(1.5e9)));
}

TEST(ESCFromStringConversion, Integer) {
    EXPECT_EQ(std::get<int64_t>(ESCFromStringConversion(ESCVariantType::Integer, "42")), 42);
    EXPECT_EQ(std::get<int64_t>(ESCFromStringConversion(ESCVariantType::Integer, "-42")), -42);
    EXPECT_EQ(std::get<int64_t>(ESCFromStringConversion(ESCVariantType::Integer, "9223372036854775807")),
              std::numeric_limits<int64_t>::max());
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Integer, "9223372036854775808")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Integer, "12a")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Integer, "1.5")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Integer, "")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Integer, " 1")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Integer, "0x10")));
}

TEST(ESCFromStringConversion, FloatAmplitudeFrequency) {
    EXPECT_EQ(std::get<double>(ESCFromStringConversion(ESCVariantType::Float, "2.5")), 2.5);
    EXPECT_EQ(std::get<double>(ESCFromStringConversion(ESCVariantType::Float, "1e3")), 1000.0);
    EXPECT_EQ(std::get<double>(ESCFromStringConversion(ESCVariantType::Float, "-7")), -7.0);
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Float, "2.5 ")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Float, "abc")));
    EXPECT_EQ(std::get<DecibelMilliwatts>(ESCFromStringConversion(ESCVariantType::Amplitude, "-30.5")).dBm(),
              -30.5f);
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Amplitude, "-30 dBm")));
    EXPECT_EQ(std::get<Frequency>(ESCFromStringConversion(ESCVariantType::Frequency, "1.5e9")).Hz(), 1.5e9);
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Frequency, "1.5 GHz")));
}

TEST(ESCFromStringConversion, StringAndOtherTypes) {
    EXPECT_EQ(std::get<ESCString>(ESCFromStringConversion(ESCVariantType::String, " any text ")).str(),
              " any text ");
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Nil, "1")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Automatic, "auto")));
    EXPECT_TRUE(ESCIsNil(ESCFromStringConversion(ESCVariantType::Unset, "")));
}

} // namespace
} // namespace nrq
