// Every binary operator over every pair of value types, and both unary
// operators over every type: each cell is a result type and value, or the
// exact message of its error.
#include "HVX/Base/Error.h"
#include "HVX/ESC/Compiler.h"
#include "HVX/ESC/Interpreter.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <regex>
#include <string>
#include <vector>

namespace nrq {
namespace {

// The sample on the left and on the right of each type. They differ, so that
// a cell shows which operand went where; the right string is empty.
ESCVariant Left(int type) {
    switch (type) {
    case 0: return Nil{};
    case 1: return int64_t{7};
    case 2: return 2.5;
    case 3: return DecibelMilliwatts(-30.0f);
    case 4: return Frequency(1e6);
    case 5: return ESCString(std::string_view("ab"));
    case 6: return ESCFeatureAuto{};
    default: return ESCFeatureUnset{};
    }
}

ESCVariant Right(int type) {
    switch (type) {
    case 0: return Nil{};
    case 1: return int64_t{2};
    case 2: return 8.0;
    case 3: return DecibelMilliwatts(-10.0f);
    case 4: return Frequency(250e3);
    case 5: return ESCString();
    case 6: return ESCFeatureAuto{};
    default: return ESCFeatureUnset{};
    }
}

const char* const typeNames[] = {"Nil", "Integer", "Float", "Amplitude", "Frequency", "String", "Automatic", "Unset"};

enum T { N = 0, I = 1, F = 2, A = 3, Q = 4, S = 5, Au = 6, U = 7 };

// A cell that gives a value.
struct Result {
    ESCVariant value;
};

using Cells = std::map<std::pair<int, int>, Result>;

ESCVariant Int(int64_t value) { return value; }
ESCVariant Flt(double value) { return value; }
ESCVariant Hz(double value) { return Frequency(value); }
ESCVariant Str(const char* text) { return ESCString(std::string_view(text)); }

struct OperatorTable {
    std::string symbol;
    Cells cells;          // the pairs that give a value
    std::string error;    // the message of every other pair, with {} for the types
    std::string qqError;  // a message of its own for Frequency with Frequency, if any
};

std::string Fill(std::string pattern, const std::string& left, const std::string& right) {
    if (const size_t at = pattern.find("{}"); at != std::string::npos)
        pattern.replace(at, 2, left);
    if (const size_t at = pattern.find("{}"); at != std::string::npos)
        pattern.replace(at, 2, right);
    return pattern;
}

// The full table for the operators whose result is the same for every pair
// of types: equality and logic.
Cells AllPairs(int (*cell)(int, int)) {
    Cells cells;
    for (int l = 0; l < 8; ++l)
        for (int r = 0; r < 8; ++r)
            cells[{l, r}] = Result{Int(cell(l, r))};
    return cells;
}

// Truth of the samples: Nil is false, the others are true (the right string
// is empty and still true).
bool LeftTruth(int type) { return type != N; }
bool RightTruth(int type) { return type != N; }

// Equality of the samples of the same type: Nil, amplitudes, Automatic and
// Unset are equal whatever they hold; the others differ.
int SameTypeEqual(int type) { return type == N || type == A || type == Au || type == U ? 1 : 0; }

std::vector<OperatorTable> Tables() {
    const std::string compare = "Script Error: Cannot perform numerical comparison on '{}' and '{}'";
    // 7 < 2, 7 < 8.0, 2.5 < 2, 2.5 < 8.0, 1 MHz < 250 kHz
    auto ordered = [](int lt, int ilf, int fli, int flf, int qlq) {
        return Cells{{{I, I}, {Int(lt)}}, {{I, F}, {Int(ilf)}}, {{F, I}, {Int(fli)}}, {{F, F}, {Int(flf)}},
                     {{Q, Q}, {Int(qlq)}}};
    };
    return {
        {"+",
         {{{I, I}, {Int(9)}}, {{I, F}, {Flt(15.0)}}, {{F, I}, {Flt(4.5)}}, {{F, F}, {Flt(10.5)}},
          {{Q, Q}, {Hz(1.25e6)}}, {{S, S}, {Str("ab")}}},
         "Script Error: Cannot perform add on '{}' and '{}'", ""},
        {"-",
         {{{I, I}, {Int(5)}}, {{I, F}, {Flt(-1.0)}}, {{F, I}, {Flt(0.5)}}, {{F, F}, {Flt(-5.5)}},
          {{Q, Q}, {Hz(750e3)}}, {{S, S}, {Int(1)}}},
         "Script Error: Cannot perform subtract on '{}' and '{}'", ""},
        {"*",
         {{{I, I}, {Int(14)}}, {{I, F}, {Flt(56.0)}}, {{F, I}, {Flt(5.0)}}, {{F, F}, {Flt(20.0)}},
          {{I, Q}, {Hz(1.75e6)}}, {{F, Q}, {Hz(625e3)}}, {{Q, I}, {Hz(2e6)}}, {{Q, F}, {Hz(8e6)}}},
         "Script Error: Cannot perform multiply on '{}' and '{}'",
         "Script Error: Cannot perform multiply on 'Frequency' and 'Frequency'. Frequency values can only be "
         "multiplied by unitless values."},
        // I/F, F/I and F/F multiply: 7 * 8.0, 2.5 * 2, 2.5 * 8.0.
        {"/",
         {{{I, I}, {Flt(3.5)}}, {{Q, I}, {Hz(500e3)}}, {{Q, F}, {Hz(125e3)}}, {{Q, Q}, {Flt(4.0)}},
          {{I, F}, {Flt(56.0)}}, {{F, I}, {Flt(5.0)}}, {{F, F}, {Flt(20.0)}}},
         "Script Error: Cannot perform divide on '{}' and '{}'", ""},
        {"//", {{{I, I}, {Int(3)}}}, "Script Error: Cannot perform integer divide on '{}' and '{}'", ""},
        {"&", {{{I, I}, {Int(2)}}}, "Cannot perform bit operations on non-Integer types", ""},
        {"|", {{{I, I}, {Int(7)}}}, "Cannot perform bit operations on non-Integer types", ""},
        {"^", {{{I, I}, {Int(5)}}}, "Cannot perform bit operations on non-Integer types", ""},
        {"<", ordered(0, 1, 0, 1, 0), compare, ""},
        {"<=", ordered(0, 1, 0, 1, 0), compare, ""},
        {">", ordered(1, 0, 1, 0, 1), compare, ""},
        {">=", ordered(1, 0, 1, 0, 1), compare, ""},
        {"=", AllPairs([](int l, int r) { return l == r ? SameTypeEqual(l) : 0; }), "", ""},
        {"!=", AllPairs([](int l, int r) { return l == r ? 1 - SameTypeEqual(l) : 1; }), "", ""},
        {"and", AllPairs([](int l, int r) { return LeftTruth(l) && RightTruth(r) ? 1 : 0; }), "", ""},
        {"or", AllPairs([](int l, int r) { return LeftTruth(l) || RightTruth(r) ? 1 : 0; }), "", ""},
        {"xor", AllPairs([](int l, int r) { return LeftTruth(l) != RightTruth(r) ? 1 : 0; }), "", ""},
    };
}

std::string Describe(const ESCVariant& value) {
    std::string text = std::string(ESCTypeName(value)) + " ";
    switch (value.index()) {
    case 1: return text + std::to_string(std::get<int64_t>(value));
    case 2: return text + std::to_string(std::get<double>(value));
    case 3: return text + std::to_string(std::get<DecibelMilliwatts>(value).dBm());
    case 4: return text + std::to_string(std::get<Frequency>(value).Hz());
    case 5: return text + "\"" + std::get<ESCString>(value).str() + "\"";
    default: return text;
    }
}

// Same type and the same payload, exactly; amplitudes by their numbers.
bool Identical(const ESCVariant& a, const ESCVariant& b) {
    if (a.index() != b.index())
        return false;
    switch (a.index()) {
    case 1: return std::get<int64_t>(a) == std::get<int64_t>(b);
    case 2: return std::get<double>(a) == std::get<double>(b);
    case 3: return std::get<DecibelMilliwatts>(a).dBm() == std::get<DecibelMilliwatts>(b).dBm();
    case 4: return std::get<Frequency>(a).Hz() == std::get<Frequency>(b).Hz();
    case 5: return std::get<ESCString>(a) == std::get<ESCString>(b);
    default: return true;
    }
}

// Runs "{x := L op R}" and gives the value of x, or the error's message.
std::pair<std::optional<ESCVariant>, std::string> Evaluate(const ESCByteCode& code, const ESCVariant& left,
                                                            const ESCVariant& right) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("L", left);
    interpreter.SetVariable("R", right);
    try {
        interpreter.Run(code);
    } catch (const Error& error) {
        return {std::nullopt, std::regex_replace(error.what(), std::regex(R"(^\(\d+\) )"), "")};
    }
    return {interpreter.GetVariable("x"), ""};
}

TEST(ESCOperatorMatrix, EveryBinaryOperatorOverEveryPairOfTypes) {
    size_t cellsChecked = 0;
    for (const OperatorTable& table : Tables()) {
        const ESCByteCode code = ESCCompiler().Compile("{x := L " + table.symbol + " R}");
        for (int l = 0; l < 8; ++l) {
            for (int r = 0; r < 8; ++r) {
                SCOPED_TRACE(std::string(typeNames[l]) + " " + table.symbol + " " + typeNames[r]);
                const auto [value, error] = Evaluate(code, Left(l), Right(r));
                const auto cell = table.cells.find({l, r});
                if (cell != table.cells.end()) {
                    ASSERT_TRUE(value.has_value()) << error;
                    EXPECT_TRUE(Identical(*value, cell->second.value))
                        << "got " << Describe(*value) << ", expected " << Describe(cell->second.value);
                } else {
                    EXPECT_FALSE(value.has_value()) << "got " << Describe(*value);
                    const std::string expected = l == Q && r == Q && !table.qqError.empty()
                                                     ? table.qqError
                                                     : Fill(table.error, typeNames[l], typeNames[r]);
                    EXPECT_EQ(error, expected);
                }
                ++cellsChecked;
            }
        }
    }
    EXPECT_EQ(cellsChecked, 17u * 64u);
}

TEST(ESCOperatorMatrix, NegateOverEveryType) {
    const ESCByteCode code = ESCCompiler().Compile("{x := -L}");
    for (int type = 0; type < 8; ++type) {
        SCOPED_TRACE(typeNames[type]);
        const auto [value, error] = Evaluate(code, Left(type), Nil{});
        if (type == I) {
            ASSERT_TRUE(value.has_value()) << error;
            EXPECT_TRUE(Identical(*value, Int(-7)));
        } else if (type == F) {
            ASSERT_TRUE(value.has_value()) << error;
            EXPECT_TRUE(Identical(*value, Flt(-2.5)));
        } else {
            EXPECT_FALSE(value.has_value());
            EXPECT_EQ(error, std::string("Script Error: Cannot perform negate on '") + typeNames[type] + "'");
        }
    }
}

TEST(ESCOperatorMatrix, NotOverEveryType) {
    const ESCByteCode code = ESCCompiler().Compile("{x := not L}");
    for (int type = 0; type < 8; ++type) {
        SCOPED_TRACE(typeNames[type]);
        for (const ESCVariant& sample : {Left(type), Right(type)}) {
            const auto [value, error] = Evaluate(code, sample, Nil{});
            ASSERT_TRUE(value.has_value()) << error;
            EXPECT_TRUE(Identical(*value, Int(type == N ? 1 : 0))) << Describe(*value);
        }
    }
    // The two falsy values besides Nil.
    EXPECT_TRUE(Identical(*Evaluate(code, Int(0), Nil{}).first, Int(1)));
    EXPECT_TRUE(Identical(*Evaluate(code, Flt(0.0), Nil{}).first, Int(1)));
    EXPECT_TRUE(Identical(*Evaluate(code, Hz(0.0), Nil{}).first, Int(0)));
}

TEST(ESCOperatorMatrix, LogicWithFalsyNumbers) {
    struct Case {
        const char* script;
        int64_t expected;
    };
    for (const Case& c : {Case{"{x := 0 and 1}", 0}, Case{"{x := 0.0 or 0}", 0}, Case{"{x := 0 xor 0.0}", 0},
                          Case{"{x := 1 xor 0.0}", 1}, Case{"{x := 0 or 'a'}", 1}, Case{"{x := 0 Hz and 1}", 1}}) {
        ESCInterpreter interpreter;
        interpreter.Run(c.script);
        EXPECT_TRUE(Identical(interpreter.GetVariable("x"), Int(c.expected))) << c.script;
    }
}

} // namespace
} // namespace nrq
