// Running scripts: printing, discarded lines, variables, the stack, and the
// interpreter's own errors.
#include "HVX/Base/Error.h"
#include "HVX/ESC/Compiler.h"
#include "HVX/ESC/Interpreter.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>

namespace nrq {
namespace {

using Op = ESCOpCode;
using In = ESCByteCodeInstruction;

std::string Message(const std::exception& error) {
    return std::regex_replace(error.what(), std::regex(R"(^\(\d+\) )"), "");
}

// The output of one script run on a fresh interpreter.
std::string Out(const std::string& script) {
    ESCInterpreter interpreter;
    interpreter.Run(script);
    return interpreter.GetOutput();
}

std::string RunError(ESCInterpreter& interpreter, const std::string& script) {
    try {
        interpreter.Run(script);
    } catch (const Error& error) {
        return Message(error);
    }
    return "no error";
}

std::string RunError(const std::string& script) {
    ESCInterpreter interpreter;
    return RunError(interpreter, script);
}

std::string RunError(ESCInterpreter& interpreter, const ESCByteCode& code) {
    try {
        interpreter.Run(code);
    } catch (const Error& error) {
        return Message(error);
    }
    return "no error";
}

std::string RunError(const ESCByteCode& code) {
    ESCInterpreter interpreter;
    return RunError(interpreter, code);
}

ESCByteCode Code(std::initializer_list<In> instructions) {
    ESCByteCode code;
    for (const In& instruction : instructions)
        code.AddInstruction(instruction);
    return code;
}

TEST(ESCInterpreter, PrintsTextAndValues) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("FrequencyCenter", Frequency(700e6));
    interpreter.Run("FREQ:CENT {FrequencyCenter}");
    EXPECT_EQ(interpreter.GetOutput(), "FREQ:CENT 7e+08\n");
    interpreter.Run("FORMAT:DATA REAL,32");
    EXPECT_EQ(interpreter.GetOutput(), "FORMAT:DATA REAL,32\n");
}

TEST(ESCInterpreter, OuterTextKeepsItsBackslashes) {
    EXPECT_EQ(Out("A\\{B\\}"), "A\\{B\\}\n");
}

TEST(ESCInterpreter, UnknownVariablePrintsNothing) {
    EXPECT_EQ(Out("{x}"), "");
    EXPECT_EQ(Out("FREQ:CENT {FrequencyCenter}"), "");
}

TEST(ESCInterpreter, OneUnsetValueDropsTheWholeLine) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("a", int64_t{1});
    interpreter.Run("{a}X{b}");
    EXPECT_EQ(interpreter.GetOutput(), "");
    interpreter.SetVariable("b", int64_t{2});
    interpreter.Run("{a}X{b}");
    EXPECT_EQ(interpreter.GetOutput(), "1X2\n");
}

TEST(ESCInterpreter, AutoAndUnsetDiscardLikeNil) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("Auto", ESCFeatureAuto{});
    interpreter.Run("BAND:AUTO {Auto}");
    EXPECT_EQ(interpreter.GetOutput(), "");
    interpreter.SetVariable("Setup_Attenuation", ESCFeatureUnset{});
    interpreter.Run("INP:ATT {Setup_Attenuation}");
    EXPECT_EQ(interpreter.GetOutput(), "");
    // The flag goes with the flushed line.
    interpreter.Run("INIT");
    EXPECT_EQ(interpreter.GetOutput(), "INIT\n");
}

TEST(ESCInterpreter, DivisionResults) {
    EXPECT_EQ(Out("{1 / 2}"), "0.5\n");
    EXPECT_EQ(Out("{1 // 2}"), "0\n");
    EXPECT_EQ(Out("{7 // 2}"), "3\n");
    EXPECT_EQ(Out("{-7 // 2}"), "-3\n");
    EXPECT_EQ(Out("{1 / 3}"), "0.333333\n");
    EXPECT_EQ(Out("{1 / 0}"), "inf\n");
    EXPECT_EQ(Out("{-1 / 0}"), "-inf\n");
}

TEST(ESCInterpreter, FloatDivisionMultiplies) {
    EXPECT_EQ(Out("{7.0 / 2.0}"), "14\n");
    EXPECT_EQ(Out("{7 / 2.0}"), "14\n");
    EXPECT_EQ(Out("{7.0 / 2}"), "14\n");
    EXPECT_EQ(Out("{1 GHz / 4}"), "2.5e+08\n");
    EXPECT_EQ(Out("{1 GHz / 0.5}"), "2e+09\n");
}

TEST(ESCInterpreter, IntegerDivisionByZeroGivesZero) {
    EXPECT_EQ(Out("{5 // 0}"), "0\n");
    EXPECT_EQ(Out("{0 // 0}"), "0\n");
}

TEST(ESCInterpreter, IntegerArithmeticWrapsAround) {
    EXPECT_EQ(Out("{9223372036854775807 + 1}"), "-9223372036854775808\n");
    EXPECT_EQ(Out("{-9223372036854775807 - 2}"), "9223372036854775807\n");
    EXPECT_EQ(Out("{4611686018427387904 * 2}"), "-9223372036854775808\n");
    ESCInterpreter interpreter;
    interpreter.SetVariable("m", std::numeric_limits<int64_t>::min());
    interpreter.Run("{-m} {m // -1}");
    EXPECT_EQ(interpreter.GetOutput(), "-9223372036854775808 -9223372036854775808\n");
}

TEST(ESCInterpreter, FrequencyPrintsWithSixDigits) {
    EXPECT_EQ(Out("{1 MHz * 2}"), "2e+06\n");
    EXPECT_EQ(Out("{700 MHz}"), "7e+08\n");
    EXPECT_EQ(Out("{2.5 GHz}"), "2.5e+09\n");
    EXPECT_EQ(Out("{100 kHz}"), "100000\n");
    EXPECT_EQ(Out("{1.2345678 GHz}"), "1.23457e+09\n");
    EXPECT_EQ(Out("{1 MHz + 500 kHz}"), "1.5e+06\n");
    EXPECT_EQ(Out("{1 MHz - 2 MHz}"), "-1e+06\n");
    EXPECT_EQ(Out("{1 GHz / 1 MHz}"), "1000\n");
    EXPECT_EQ(Out("{2.5 * 1 kHz}"), "2500\n");
}

TEST(ESCInterpreter, NumbersPrintLikeAStandardStream) {
    EXPECT_EQ(Out("{1234567}"), "1234567\n");
    EXPECT_EQ(Out("{9223372036854775807}"), "9223372036854775807\n");
    EXPECT_EQ(Out("{-5}"), "-5\n");
    EXPECT_EQ(Out("{1.0}"), "1\n");
    EXPECT_EQ(Out("{2.50}"), "2.5\n");
    EXPECT_EQ(Out("{123456.0}"), "123456\n");
    EXPECT_EQ(Out("{1234567.0}"), "1.23457e+06\n");
    EXPECT_EQ(Out("{0.0001}"), "0.0001\n");
    EXPECT_EQ(Out("{0.00001}"), "1e-05\n");
    EXPECT_EQ(Out("{0.1 + 0.2}"), "0.3\n");
    EXPECT_EQ(Out("{-0.5}"), "-0.5\n");
}

TEST(ESCInterpreter, NumbersPrintAsADefaultStreamPrintsThem) {
    std::vector<double> values = {0.0, -0.0, 1e-5, 0.0001, 123456.0, 1234567.0, 999999.5, 0.1, 1e300, -2.5e-300,
                                  4.9e-324, 1.0 / 3.0, std::numeric_limits<double>::max(),
                                  std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::quiet_NaN()};
    std::mt19937_64 random(7);
    for (int i = 0; i < 2000; ++i)
        values.push_back(std::bit_cast<double>(random()));
    for (int i = 0; i < 2000; ++i)
        values.push_back(std::ldexp(static_cast<double>(random() % 2000001) - 1000000.0, static_cast<int>(random() % 80) - 40));
    ESCInterpreter interpreter;
    const ESCByteCode code = ESCCompiler().Compile("{f};{q};{a}");
    for (const double value : values) {
        interpreter.SetVariable("f", value);
        interpreter.SetVariable("q", Frequency(value));
        interpreter.SetVariable("a", DecibelMilliwatts(static_cast<float>(value)));
        interpreter.Run(code);
        std::ostringstream expected;
        expected << value << ';' << value << ';' << static_cast<float>(value) << '\n';
        ASSERT_EQ(interpreter.GetOutput(), expected.str()) << std::hexfloat << value;
    }
    const std::vector<int64_t> integers = {0, -1, 1, std::numeric_limits<int64_t>::min(),
                                           std::numeric_limits<int64_t>::max(), 1000000, -987654321};
    for (const int64_t value : integers) {
        interpreter.SetVariable("i", value);
        interpreter.Run("{i}");
        std::ostringstream expected;
        expected << value << '\n';
        EXPECT_EQ(interpreter.GetOutput(), expected.str());
    }
}

TEST(ESCInterpreter, AmplitudePrintsItsSinglePrecisionNumber) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("a", DecibelMilliwatts(-30.0f));
    interpreter.SetVariable("b", DecibelMilliwatts(-30.5f));
    interpreter.SetVariable("c", DecibelMilliwatts(0.1f));
    interpreter.SetVariable("d", DecibelMilliwatts(-123.456789f));
    interpreter.Run("REF {a};{b};{c};{d}");
    EXPECT_EQ(interpreter.GetOutput(), "REF -30;-30.5;0.1;-123.457\n");
}

TEST(ESCInterpreter, StringsPrintTheirBytes) {
    EXPECT_EQ(Out(R"({"a" + 'b'})"), "ab\n");
    EXPECT_EQ(Out(R"({"it\'s \"x\""})"), "it's \"x\"\n");
    EXPECT_EQ(Out(R"(X{""}Y)"), "XY\n");
}

TEST(ESCInterpreter, TypeOf) {
    EXPECT_EQ(Out("{typeof(1 GHz)}"), "Frequency\n");
    EXPECT_EQ(Out("{typeof(1)} {typeof(1.5)} {typeof('s')} {typeof(x)} {typeof(1 < 2)}"),
              "Integer Float String Nil Integer\n");
    ESCInterpreter interpreter;
    interpreter.SetVariable("a", DecibelMilliwatts(-10.0f));
    interpreter.SetVariable("b", ESCFeatureAuto{});
    interpreter.SetVariable("c", ESCFeatureUnset{});
    interpreter.Run("{typeof(a)} {typeof(b)} {typeof(c)} {typeof(typeof(c))}");
    EXPECT_EQ(interpreter.GetOutput(), "Amplitude Automatic Unset String\n");
}

TEST(ESCInterpreter, StringSubtractionIsTheDifferenceOfTruth) {
    EXPECT_EQ(Out(R"({"a" - ""})"), "1\n");
    EXPECT_EQ(Out(R"({"" - "a"})"), "-1\n");
    EXPECT_EQ(Out(R"({"a" - "b"})"), "0\n");
    EXPECT_EQ(Out(R"({"" - ""})"), "0\n");
}

TEST(ESCInterpreter, ComparisonErrors) {
    EXPECT_EQ(RunError(R"({1 < "a"})"), "Script Error: Cannot perform numerical comparison on 'Integer' and 'String'");
    EXPECT_EQ(RunError(R"({"a" >= 1})"), "Script Error: Cannot perform numerical comparison on 'String' and 'Integer'");
    EXPECT_EQ(RunError("{1 MHz > 1}"), "Script Error: Cannot perform numerical comparison on 'Frequency' and 'Integer'");
    EXPECT_EQ(RunError("{x <= 1}"), "Script Error: Cannot perform numerical comparison on 'Nil' and 'Integer'");
}

TEST(ESCInterpreter, EqualityNeedsTheSameType) {
    EXPECT_EQ(Out("{1 = 1.0}"), "0\n");
    EXPECT_EQ(Out("{1 != 1.0}"), "1\n");
    EXPECT_EQ(Out("{1 = 1}"), "1\n");
    EXPECT_EQ(Out("{1.5 = 1.5}"), "1\n");
    EXPECT_EQ(Out(R"({'x' = "x"})"), "1\n");
    EXPECT_EQ(Out("{1000 Hz = 1 kHz}"), "1\n");
    EXPECT_EQ(Out("{1 MHz = 1}"), "0\n");
    EXPECT_EQ(Out("{x = y}"), "1\n");
    EXPECT_EQ(Out("{x = 0}"), "0\n");
}

TEST(ESCInterpreter, AmplitudesAreAlwaysEqual) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("a", DecibelMilliwatts(-30.0f));
    interpreter.SetVariable("b", DecibelMilliwatts(10.0f));
    interpreter.SetVariable("auto1", ESCFeatureAuto{});
    interpreter.SetVariable("auto2", ESCFeatureAuto{});
    interpreter.SetVariable("unset", ESCFeatureUnset{});
    interpreter.Run("{a = b} {a != b} {auto1 = auto2} {auto1 = unset} {unset = unset}");
    EXPECT_EQ(interpreter.GetOutput(), "1 0 1 0 1\n");
}

TEST(ESCInterpreter, NaNIsUnequalToEverything) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("n", std::numeric_limits<double>::quiet_NaN());
    interpreter.SetVariable("q", Frequency(std::numeric_limits<double>::quiet_NaN()));
    // Gt and Gte are negations of Lte and Lt, so they hold for NaN.
    interpreter.Run("{n = n} {n != n} {q = q} {n < 1} {n <= 1} {n > 1} {n >= 1}");
    EXPECT_EQ(interpreter.GetOutput(), "0 1 0 0 0 1 1\n");
}

TEST(ESCInterpreter, OrderingAtEqualValues) {
    EXPECT_EQ(Out("{2 < 2} {2 <= 2} {2 > 2} {2 >= 2} {2 <= 2.0} {2.0 < 2} {1 kHz <= 1000 Hz}"), "0 1 0 1 1 0 1\n");
}

TEST(ESCInterpreter, LogicUsesTruth) {
    EXPECT_EQ(Out(R"({"" and 1})"), "1\n");
    EXPECT_EQ(Out("{0 or 0.0} {0 xor 1} {1 xor 2} {1 and 0} {x or 0} {x and 1}"), "0 1 0 0 0 0\n");
    EXPECT_EQ(Out("{not 0} {not 0.0} {!1} {not ''} {not 0 Hz} {!x}"), "1 1 0 0 0 1\n");
    EXPECT_EQ(Out("{1 && 2} {0 || 3} {1 AND 1} {0 OR 0} {1 XOR 1}"), "1 1 1 0 0\n");
}

TEST(ESCInterpreter, NoShortCircuit) {
    // The right side is computed even when the left decides.
    EXPECT_EQ(RunError("{0 and (1 < 'a')}"),
              "Script Error: Cannot perform numerical comparison on 'Integer' and 'String'");
    EXPECT_EQ(RunError("{1 or -'a'}"), "Script Error: Cannot perform negate on 'String'");
}

TEST(ESCInterpreter, PrecedenceAtRunTime) {
    EXPECT_EQ(Out("{7 * 5 // 2}"), "14\n");
    EXPECT_EQ(Out("{3 * 5 & 6}"), "12\n");
    EXPECT_EQ(Out("{1 < 2 < 3} {3 > 2 > 1}"), "1 0\n");
    EXPECT_EQ(Out("{-2 * 3} {2 - 3 - 4} {(2 + 3) * 4}"), "-6 -5 20\n");
    // (8 / 4) / 2: the float 2 divided by 2 multiplies.
    EXPECT_EQ(Out("{8 / 4 / 2}"), "4\n");
    EXPECT_EQ(Out("{9 // 2 / 2}"), "2\n");
    EXPECT_EQ(Out("{1 + 2 = 3 and 2 * 2 = 4}"), "1\n");
}

TEST(ESCInterpreter, BitOperators) {
    EXPECT_EQ(Out("{6 & 3} {6 | 3} {6 ^ 3} {-1 & 255}"), "2 7 5 255\n");
    EXPECT_EQ(RunError("{1.0 & 1}"), "Cannot perform bit operations on non-Integer types");
}

TEST(ESCInterpreter, NegationErrors) {
    EXPECT_EQ(RunError("{-'a'}"), "Script Error: Cannot perform negate on 'String'");
    EXPECT_EQ(RunError("{-1 MHz}"), "Script Error: Cannot perform negate on 'Frequency'");
    EXPECT_EQ(RunError("{-x}"), "Script Error: Cannot perform negate on 'Nil'");
    EXPECT_EQ(Out("{--3} {-2.5}"), "3 -2.5\n");
}

TEST(ESCInterpreter, GetOutputEmptiesTheOutput) {
    ESCInterpreter interpreter;
    interpreter.Run("A");
    interpreter.Run("B{1}");
    EXPECT_EQ(interpreter.GetOutput(), "A\nB1\n");
    EXPECT_EQ(interpreter.GetOutput(), "");
    interpreter.Run("C");
    EXPECT_EQ(interpreter.GetOutput(), "C\n");
}

TEST(ESCInterpreter, AssignmentsPrintNothing) {
    ESCInterpreter interpreter;
    interpreter.Run("{span := 1 MHz}{n := 3}");
    EXPECT_EQ(interpreter.GetOutput(), "");
    interpreter.Run("SPAN {span * n}");
    EXPECT_EQ(interpreter.GetOutput(), "SPAN 3e+06\n");
    // An assignment inside a line leaves the rest of the line.
    interpreter.Run("A{k := 2}B{k}");
    EXPECT_EQ(interpreter.GetOutput(), "AB2\n");
}

TEST(ESCInterpreter, VariablesPersistAndCanBeCleared) {
    ESCInterpreter interpreter;
    interpreter.Run("{a := 5}{s := 'x' + 'y'}{f := 2 kHz}{c := a = 5}");
    EXPECT_EQ(std::get<int64_t>(interpreter.GetVariable("a")), 5);
    EXPECT_EQ(std::get<ESCString>(interpreter.GetVariable("s")).str(), "xy");
    EXPECT_EQ(std::get<Frequency>(interpreter.GetVariable("f")).Hz(), 2000.0);
    EXPECT_EQ(std::get<int64_t>(interpreter.GetVariable("c")), 1);
    EXPECT_TRUE(ESCIsNil(interpreter.GetVariable("missing")));
    interpreter.Run("{a}");
    EXPECT_EQ(interpreter.GetOutput(), "5\n");
    interpreter.ClearVariables();
    EXPECT_TRUE(ESCIsNil(interpreter.GetVariable("a")));
    interpreter.Run("{a}");
    EXPECT_EQ(interpreter.GetOutput(), "");
}

TEST(ESCInterpreter, SetVariableOverwritesAndNilReadsAsNil) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("v", int64_t{1});
    interpreter.SetVariable("v", ESCString(std::string_view("text")));
    EXPECT_EQ(std::get<ESCString>(interpreter.GetVariable("v")).str(), "text");
    interpreter.SetVariable("v", Nil{});
    EXPECT_TRUE(ESCIsNil(interpreter.GetVariable("v")));
    interpreter.Run("{v}");
    EXPECT_EQ(interpreter.GetOutput(), "");
    // Assigning an unknown variable copies its Nil.
    interpreter.SetVariable("w", int64_t{4});
    interpreter.Run("{w := unknown}");
    EXPECT_TRUE(ESCIsNil(interpreter.GetVariable("w")));
}

TEST(ESCInterpreter, GetVariableGivesACopy) {
    ESCInterpreter interpreter;
    interpreter.SetVariable("s", ESCString(std::string_view("abc")));
    ESCVariant copy = interpreter.GetVariable("s");
    std::get<ESCString>(copy)[0] = 'X';
    EXPECT_EQ(std::get<ESCString>(interpreter.GetVariable("s")).str(), "abc");
}

TEST(ESCInterpreter, ValueWithoutAlternativeIsFatal) {
    struct Throwing {
        operator std::string_view() const { throw std::runtime_error("no text"); }
    };
    ESCVariant broken = int64_t{1};
    EXPECT_THROW(broken.emplace<ESCString>(Throwing{}), std::runtime_error);
    ASSERT_TRUE(broken.valueless_by_exception());
    EXPECT_EQ(ESCTypeName(broken), "Unknown");

    ESCInterpreter interpreter;
    interpreter.SetVariable("broken", broken);
    EXPECT_EQ(RunError(interpreter, "{broken}"), "A fatal error occurred when trying to obtain a setting value.");
    try {
        interpreter.GetVariable("broken");
        ADD_FAILURE() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(Message(error), "A fatal error occurred when trying to obtain a setting value.");
    }
}

TEST(ESCInterpreter, ErrorsLeaveTheHalfBuiltLine) {
    ESCInterpreter interpreter;
    EXPECT_EQ(RunError(interpreter, "A{1 < 'a'}"),
              "Script Error: Cannot perform numerical comparison on 'Integer' and 'String'");
    EXPECT_EQ(interpreter.GetOutput(), "");
    interpreter.Run("B");
    EXPECT_EQ(interpreter.GetOutput(), "AB\n");

    // The discard flag stays with the unfinished line too.
    EXPECT_EQ(RunError(interpreter, "A{x}{-'a'}"), "Script Error: Cannot perform negate on 'String'");
    interpreter.Run("B");
    EXPECT_EQ(interpreter.GetOutput(), "");
    interpreter.Run("C");
    EXPECT_EQ(interpreter.GetOutput(), "C\n");
}

TEST(ESCInterpreter, InstructionsBeforeAnErrorStayDone) {
    ESCInterpreter interpreter;
    EXPECT_EQ(RunError(interpreter, "{a := 1}{b := -'x'}"), "Script Error: Cannot perform negate on 'String'");
    EXPECT_EQ(std::get<int64_t>(interpreter.GetVariable("a")), 1);
    EXPECT_TRUE(ESCIsNil(interpreter.GetVariable("b")));
}

TEST(ESCInterpreter, ReadOutputIsRefusedAtRunTime) {
    EXPECT_EQ(RunError("{read_output()}"), "function read_output is not supported");
    EXPECT_EQ(RunError("{x := read_output(1)}"), "function read_output is not supported");
}

TEST(ESCInterpreter, MalformedAndUnknownInstructions) {
    EXPECT_EQ(RunError(Code({In::None(Op::Malformed)})), "Encountered malformed instruction 00");
    EXPECT_EQ(RunError(Code({In::None(static_cast<Op>(32))})), "Unexpected instruction code (32)");
    EXPECT_EQ(RunError(Code({In::None(static_cast<Op>(0xffff))})), "Unexpected instruction code (65535)");
    EXPECT_EQ(RunError(Code({In::Call(0, ESCBuiltin::None, 0, 0)})), "Tried to call unknown built-in function");
    EXPECT_EQ(RunError(Code({In::Call(0, static_cast<ESCBuiltin>(9), 0, 1)})),
              "Tried to call unknown built-in function");
}

TEST(ESCInterpreter, StringIndexOutsideThePool) {
    const std::string message = "Encountered unexpected string index";
    EXPECT_EQ(RunError(Code({In::String(Op::OutputString, 0)})), message);
    EXPECT_EQ(RunError(Code({In::Load(Op::LoadString, 0, 1)})), message);
    EXPECT_EQ(RunError(Code({In::Load(Op::ReadVariable, 0, ~0ull)})), message);
    EXPECT_EQ(RunError(Code({In::Load(Op::WriteVariable, 0, 5)})), message);
}

TEST(ESCInterpreter, HandWrittenByteCode) {
    ESCByteCode code;
    const uint64_t text = code.AddString("V ");
    const uint64_t name = code.AddString("v");
    for (const In& instruction :
         {In::None(Op::Nop), In::String(Op::OutputString, text), In::Load(Op::LoadInt, 4, 40),
          In::Load(Op::LoadFloat, 5, std::bit_cast<uint64_t>(0.5)), In::ThreeRegister(Op::Mul, 3, 4, 5),
          In::Load(Op::WriteVariable, 3, name), In::Register(Op::OutputRegister, 3), In::None(Op::EndLine)})
        code.AddInstruction(instruction);
    ESCInterpreter interpreter;
    interpreter.Run(code);
    EXPECT_EQ(interpreter.GetOutput(), "V 20\n");
    EXPECT_EQ(std::get<double>(interpreter.GetVariable("v")), 20.0);
}

TEST(ESCInterpreter, RegistersBeyondTheStackReadAsNil) {
    ESCInterpreter interpreter;
    interpreter.Run(Code({In::Register(Op::OutputRegister, 900), In::None(Op::EndLine)}));
    EXPECT_EQ(interpreter.GetOutput(), "");
    // Loading Nil into a register that does not exist is no error.
    interpreter.Run(Code({In::Register(Op::LoadNil, 60000), In::Load(Op::LoadInt, 0, 1),
                          In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)}));
    EXPECT_EQ(interpreter.GetOutput(), "1\n");
}

TEST(ESCInterpreter, StackPersistsBetweenRuns) {
    ESCInterpreter interpreter;
    interpreter.Run(Code({In::Load(Op::LoadInt, 5, 7)}));
    interpreter.Run(Code({In::Register(Op::OutputRegister, 5), In::None(Op::EndLine)}));
    EXPECT_EQ(interpreter.GetOutput(), "7\n");
    interpreter.Run(Code({In::Register(Op::LoadNil, 5), In::Register(Op::OutputRegister, 5), In::None(Op::EndLine)}));
    EXPECT_EQ(interpreter.GetOutput(), "");
}

TEST(ESCInterpreter, CallResultOverwritesTheFirstArgument) {
    ESCInterpreter interpreter;
    interpreter.Run(Code({In::Load(Op::LoadFloat, 2, std::bit_cast<uint64_t>(1.5)), In::Call(1, ESCBuiltin::TypeOf, 2, 1),
                          In::Register(Op::OutputRegister, 1), In::Register(Op::OutputRegister, 2),
                          In::None(Op::EndLine)}));
    EXPECT_EQ(interpreter.GetOutput(), "Float1.5\n");
}

TEST(ESCInterpreter, RunByteCodeTwice) {
    ESCInterpreter interpreter;
    const ESCByteCode code = ESCCompiler().Compile("CH{n} {n := n + 1}");
    interpreter.SetVariable("n", int64_t{1});
    interpreter.Run(code);
    interpreter.Run(code);
    EXPECT_EQ(interpreter.GetOutput(), "CH1 \nCH2 \n");
}

} // namespace
} // namespace nrq
