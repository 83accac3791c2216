// Byte code of scripts, instruction by instruction and register by register.
#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/ESC/Compiler.h"
#include "HVX/Filesystem/Filesystem.h"

#include "S1Lexer.h"
#include "HVX/ESC/S1Listener.h"
#include "S1Parser.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <bit>
#include <regex>
#include <string>
#include <vector>

namespace nrq {
namespace {

using Op = ESCOpCode;
using In = ESCByteCodeInstruction;
using Program = std::vector<ESCByteCodeInstruction>;
using Pool = std::vector<std::string>;

uint64_t Bits(double value) { return std::bit_cast<uint64_t>(value); }

Pool PoolOf(const ESCByteCode& code) {
    Pool pool;
    for (const ESCString& text : code.GetStrings())
        pool.push_back(text.str());
    return pool;
}

// A failure message shows the listing, which reads better than raw records.
void ExpectCode(const std::string& script, const Program& program, const Pool& pool) {
    const ESCByteCode code = ESCCompiler().Compile(script);
    EXPECT_EQ(code.GetInstructions(), program) << script << "\n" << ESCDisassemble(code);
    EXPECT_EQ(PoolOf(code), pool) << script;
}

// What an Error says without its "(line) " prefix.
std::string Message(const std::exception& error) {
    return std::regex_replace(error.what(), std::regex(R"(^\(\d+\) )"), "");
}

std::string CompileError(const std::string& script) {
    try {
        ESCCompiler().Compile(script);
    } catch (const Error& error) {
        return Message(error);
    }
    return "no error";
}

TEST(ESCCompiler, EmptyScriptGivesAnEmptyProgram) { ExpectCode("", {}, {}); }

TEST(ESCCompiler, EmptyBlockGivesNothingAtAll) { ExpectCode("{}", {}, {}); }

TEST(ESCCompiler, TextAndVariable) {
    ExpectCode("FREQ:CENT {a}",
               {In::String(Op::OutputString, 0), In::Load(Op::ReadVariable, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"FREQ:CENT ", "a"});
}

TEST(ESCCompiler, TextOnly) {
    ExpectCode("FORMAT:DATA REAL,32", {In::String(Op::OutputString, 0), In::None(Op::EndLine)},
               {"FORMAT:DATA REAL,32"});
}

TEST(ESCCompiler, TextKeepsItsBackslashes) {
    ExpectCode("A\\{B\\}", {In::String(Op::OutputString, 0), In::None(Op::EndLine)}, {"A\\{B\\}"});
}

TEST(ESCCompiler, AssignmentsAloneGiveNoLine) {
    ExpectCode("{a := 1}{b := 2}",
               {In::Load(Op::LoadInt, 0, 1), In::Load(Op::WriteVariable, 0, 0), In::Load(Op::LoadInt, 0, 2),
                In::Load(Op::WriteVariable, 0, 1)},
               {"a", "b"});
}

TEST(ESCCompiler, EmptyBlockBesideTextLeavesTheLine) {
    ExpectCode("A{}", {In::String(Op::OutputString, 0), In::None(Op::EndLine)}, {"A"});
}

TEST(ESCCompiler, MultiplicationUsesTheNextRegisters) {
    ExpectCode("{1 + 2 * 3}",
               {In::Load(Op::LoadInt, 0, 1), In::Load(Op::LoadInt, 1, 2), In::Load(Op::LoadInt, 2, 3),
                In::ThreeRegister(Op::Mul, 1, 1, 2), In::ThreeRegister(Op::Add, 0, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
}

TEST(ESCCompiler, DivisionInsideMultiplication) {
    ExpectCode("{x * y / z}",
               {In::Load(Op::ReadVariable, 0, 0), In::Load(Op::ReadVariable, 1, 1), In::Load(Op::ReadVariable, 2, 2),
                In::ThreeRegister(Op::Div, 1, 1, 2), In::ThreeRegister(Op::Mul, 0, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"x", "y", "z"});
}

TEST(ESCCompiler, LeftChainsReuseTheSecondRegister) {
    ExpectCode("{a < b < c}",
               {In::Load(Op::ReadVariable, 0, 0), In::Load(Op::ReadVariable, 1, 1), In::ThreeRegister(Op::Lt, 0, 0, 1),
                In::Load(Op::ReadVariable, 1, 2), In::ThreeRegister(Op::Lt, 0, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"a", "b", "c"});
}

TEST(ESCCompiler, ParenthesesOnlyGroup) {
    ExpectCode("{(1 + 2) * 3}",
               {In::Load(Op::LoadInt, 0, 1), In::Load(Op::LoadInt, 1, 2), In::ThreeRegister(Op::Add, 0, 0, 1),
                In::Load(Op::LoadInt, 1, 3), In::ThreeRegister(Op::Mul, 0, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
}

TEST(ESCCompiler, BitOperatorBeforeAddition) {
    ExpectCode("{1 & 2 + 3}",
               {In::Load(Op::LoadInt, 0, 1), In::Load(Op::LoadInt, 1, 2), In::ThreeRegister(Op::Band, 0, 0, 1),
                In::Load(Op::LoadInt, 1, 3), In::ThreeRegister(Op::Add, 0, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
}

TEST(ESCCompiler, RightNestingClimbsRegisters) {
    // a - (b - (c - d)): each right side one register further.
    ExpectCode("{a - (b - (c - d))}",
               {In::Load(Op::ReadVariable, 0, 0), In::Load(Op::ReadVariable, 1, 1), In::Load(Op::ReadVariable, 2, 2),
                In::Load(Op::ReadVariable, 3, 3), In::ThreeRegister(Op::Sub, 2, 2, 3),
                In::ThreeRegister(Op::Sub, 1, 1, 2), In::ThreeRegister(Op::Sub, 0, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"a", "b", "c", "d"});
}

TEST(ESCCompiler, EveryBinaryOperatorHasItsCode) {
    const std::vector<std::pair<std::string, Op>> operators = {
        {"&", Op::Band},  {"|", Op::Bor},   {"^", Op::Bxor},  {"+", Op::Add},    {"-", Op::Sub},
        {"*", Op::Mul},   {"/", Op::Div},   {"//", Op::IDiv}, {"=", Op::Eq},     {"!=", Op::Neq},
        {">", Op::Gt},    {"<", Op::Lt},    {">=", Op::Gte},  {"<=", Op::Lte},   {"&&", Op::And},
        {"and", Op::And}, {"AND", Op::And}, {"||", Op::Or},   {"or", Op::Or},    {"OR", Op::Or},
        {"xor", Op::Xor}, {"XOR", Op::Xor}};
    for (const auto& [text, op] : operators)
        ExpectCode("{a " + text + " b}",
                   {In::Load(Op::ReadVariable, 0, 0), In::Load(Op::ReadVariable, 1, 1), In::ThreeRegister(op, 0, 0, 1),
                    In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
                   {"a", "b"});
}

TEST(ESCCompiler, UnaryOperators) {
    ExpectCode("{-x}",
               {In::Load(Op::ReadVariable, 0, 0), In::TwoRegister(Op::Neg, 0, 0), In::Register(Op::OutputRegister, 0),
                In::None(Op::EndLine)},
               {"x"});
    for (const std::string script : {"{!x}", "{not x}", "{NOT x}"})
        ExpectCode(script,
                   {In::Load(Op::ReadVariable, 0, 0), In::TwoRegister(Op::Not, 0, 0),
                    In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
                   {"x"});
    // The operand of the right side stays in its own register.
    ExpectCode("{1 - -2}",
               {In::Load(Op::LoadInt, 0, 1), In::Load(Op::LoadInt, 1, 2), In::TwoRegister(Op::Neg, 1, 1),
                In::ThreeRegister(Op::Sub, 0, 0, 1), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
}

TEST(ESCCompiler, FrequencyUnits) {
    const std::vector<std::pair<std::string, double>> cases = {
        {"{3Hz}", 3.0},         {"{2 kHz}", 2000.0},   {"{1.5 GHz}", 1.5e9}, {"{1.5GHz}", 1.5e9},
        {"{.5 MHz}", 500000.0}, {"{700 mhz}", 7e8},    {"{0 GHZ}", 0.0},     {"{2.5 khz}", 2500.0}};
    for (const auto& [script, hertz] : cases)
        ExpectCode(script,
                   {In::Load(Op::LoadFrequency, 0, Bits(hertz)), In::Register(Op::OutputRegister, 0),
                    In::None(Op::EndLine)},
                   {});
}

TEST(ESCCompiler, NumberLiterals) {
    ExpectCode("{0}{42}{9223372036854775807}",
               {In::Load(Op::LoadInt, 0, 0), In::Register(Op::OutputRegister, 0), In::Load(Op::LoadInt, 0, 42),
                In::Register(Op::OutputRegister, 0), In::Load(Op::LoadInt, 0, 0x7fffffffffffffffull),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
    ExpectCode("{2.5}{.25}",
               {In::Load(Op::LoadFloat, 0, Bits(2.5)), In::Register(Op::OutputRegister, 0),
                In::Load(Op::LoadFloat, 0, Bits(0.25)), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
}

TEST(ESCCompiler, StringsDropBackslashesAndKeepTheNextCharacter) {
    ExpectCode(R"({'it\'s'})",
               {In::Load(Op::LoadString, 0, 0), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"it's"});
    // No escape means more than the character: backslash-n is the letter n.
    ExpectCode(R"({"a\nb\\c\"d"})",
               {In::Load(Op::LoadString, 0, 0), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"anb\\c\"d"});
    ExpectCode(R"({""})",
               {In::Load(Op::LoadString, 0, 0), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)}, {""});
}

TEST(ESCCompiler, EqualTextsShareOnePoolEntry) {
    ExpectCode("A{a}B{a}A{'A'}",
               {In::String(Op::OutputString, 0), In::Load(Op::ReadVariable, 0, 1), In::Register(Op::OutputRegister, 0),
                In::String(Op::OutputString, 2), In::Load(Op::ReadVariable, 0, 1), In::Register(Op::OutputRegister, 0),
                In::String(Op::OutputString, 0), In::Load(Op::LoadString, 0, 0), In::Register(Op::OutputRegister, 0),
                In::None(Op::EndLine)},
               {"A", "a", "B"});
}

TEST(ESCCompiler, AssignmentNameEntersThePoolAfterItsExpression) {
    ExpectCode(R"({f := typeof(x) = "Integer"})",
               {In::Load(Op::ReadVariable, 0, 0), In::Call(0, ESCBuiltin::TypeOf, 0, 1), In::Load(Op::LoadString, 1, 1),
                In::ThreeRegister(Op::Eq, 0, 0, 1), In::Load(Op::WriteVariable, 0, 2)},
               {"x", "Integer", "f"});
}

TEST(ESCCompiler, CallsOverwriteTheirFirstArgument) {
    ExpectCode("{typeof(a + b)}",
               {In::Load(Op::ReadVariable, 0, 0), In::Load(Op::ReadVariable, 1, 1), In::ThreeRegister(Op::Add, 0, 0, 1),
                In::Call(0, ESCBuiltin::TypeOf, 0, 1), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"a", "b"});
    ExpectCode("{1 + typeof(2)}",
               {In::Load(Op::LoadInt, 0, 1), In::Load(Op::LoadInt, 1, 2), In::Call(1, ESCBuiltin::TypeOf, 1, 1),
                In::ThreeRegister(Op::Add, 0, 0, 1), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
    ExpectCode("{typeof(typeof(1))}",
               {In::Load(Op::LoadInt, 0, 1), In::Call(0, ESCBuiltin::TypeOf, 0, 1), In::Call(0, ESCBuiltin::TypeOf, 0, 1),
                In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
    ExpectCode("{read_output()}",
               {In::Call(0, ESCBuiltin::ReadOutput, 0, 0), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {});
    ExpectCode("{x := read_output(7)}",
               {In::Load(Op::LoadInt, 0, 7), In::Call(0, ESCBuiltin::ReadOutput, 0, 1), In::Load(Op::WriteVariable, 0, 0)},
               {"x"});
}

TEST(ESCCompiler, CompilingAppends) {
    ESCByteCode code;
    ESCCompiler compiler;
    ESCByteCode& same = compiler.Compile(code, "A{x}");
    EXPECT_EQ(&same, &code);
    compiler.Compile(code, "{x}B");
    EXPECT_EQ(code.GetInstructions(),
              (Program{In::String(Op::OutputString, 0), In::Load(Op::ReadVariable, 0, 1),
                       In::Register(Op::OutputRegister, 0), In::None(Op::EndLine), In::Load(Op::ReadVariable, 0, 1),
                       In::Register(Op::OutputRegister, 0), In::String(Op::OutputString, 2), In::None(Op::EndLine)}));
    EXPECT_EQ(PoolOf(code), (Pool{"A", "x", "B"}));
}

TEST(ESCCompiler, RawRecordsOfOneScript) {
    // Byte by byte, little-endian: code, then the operands of the form.
    const ESCByteCode code = ESCCompiler().Compile("T{v := 1 GHz + w}");
    const auto& instructions = code.GetInstructions();
    ASSERT_EQ(instructions.size(), 6u);
    auto bytes = [&](size_t i) {
        std::vector<int> raw(12);
        const auto* p = reinterpret_cast<const unsigned char*>(&instructions[i]);
        for (size_t b = 0; b < 12; ++b)
            raw[b] = p[b];
        return raw;
    };
    EXPECT_EQ(bytes(0), (std::vector<int>{2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));             // text #0
    EXPECT_EQ(bytes(1), (std::vector<int>{8, 0, 0, 0, 0, 0, 0, 0, 0x65, 0xcd, 0xcd, 0x41})); // freq r0 1e9
    EXPECT_EQ(bytes(2), (std::vector<int>{9, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0}));              // get r1 #1
    EXPECT_EQ(bytes(3), (std::vector<int>{14, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}));             // add r0 r0 r1
    EXPECT_EQ(bytes(4), (std::vector<int>{10, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}));             // set #2 from r0
    EXPECT_EQ(bytes(5), (std::vector<int>{3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));              // end of line
    EXPECT_EQ(PoolOf(code), (Pool{"T", "w", "v"}));
}

TEST(ESCCompiler, ArgumentCountIsChecked) {
    EXPECT_EQ(CompileError("{typeof()}"), "Number of args for built-in function \"typeof\": expected 1, got 0");
    EXPECT_EQ(CompileError("{typeof(1, 2)}"), "Number of args for built-in function \"typeof\": expected 1, got 2");
    EXPECT_EQ(CompileError("{read_output(1, 2)}"),
              "Number of args for built-in function \"read_output\": expected 1, got 2");
    EXPECT_EQ(CompileError("{read_output(1)}"), "no error");
    EXPECT_EQ(CompileError("{read_output()}"), "no error");
}

TEST(ESCCompiler, UnknownFunctionFailsTheAssertion) {
    EXPECT_EQ(CompileError("{nothing(1)}"), "There is no function defined with the name \"nothing\"");
    // Names are case-sensitive.
    EXPECT_EQ(CompileError("{TypeOf(1)}"), "There is no function defined with the name \"TypeOf\"");
}

TEST(ESCCompiler, ArgumentsCompileBeforeTheirCountIsChecked) {
    EXPECT_EQ(CompileError("{typeof(missing(1), 2)}"), "There is no function defined with the name \"missing\"");
    EXPECT_EQ(CompileError("{typeof(typeof(), 2)}"),
              "Number of args for built-in function \"typeof\": expected 1, got 0");
}

TEST(ESCCompiler, BuiltinTable) {
    const auto* typeOf = ESCCompiler::FindBuiltin("typeof");
    ASSERT_NE(typeOf, nullptr);
    EXPECT_EQ(typeOf->builtin, ESCBuiltin::TypeOf);
    EXPECT_EQ(typeOf->minArguments, 1);
    EXPECT_EQ(typeOf->maxArguments, 1);
    const auto* readOutput = ESCCompiler::FindBuiltin("read_output");
    ASSERT_NE(readOutput, nullptr);
    EXPECT_EQ(readOutput->builtin, ESCBuiltin::ReadOutput);
    EXPECT_EQ(readOutput->minArguments, 0);
    EXPECT_EQ(readOutput->maxArguments, 1);
    EXPECT_EQ(ESCCompiler::FindBuiltin("print"), nullptr);
    EXPECT_EQ(static_cast<int>(ESCBuiltin::TypeOf), 1);
    EXPECT_EQ(static_cast<int>(ESCBuiltin::ReadOutput), 2);
}

TEST(ESCCompiler, SyntaxErrorsCompileWhatRecoveryLeaves) {
    // No viable block: recovery drops it whole.
    ExpectCode("{0x10}", {}, {});
    // An extraneous at sign is dropped; the text around it stays.
    ExpectCode("A@B",
               {In::String(Op::OutputString, 0), In::String(Op::OutputString, 1), In::None(Op::EndLine)},
               {"A", "B"});
    // The unreadable line feed is skipped by the lexer.
    ExpectCode("A\nB",
               {In::String(Op::OutputString, 0), In::String(Op::OutputString, 1), In::None(Op::EndLine)},
               {"A", "B"});
}

TEST(ESCCompiler, SyntaxErrorsGoToTheLog) {
    fs::MakeDirectory(fs::GetUserSaveDataDirectory());
    Log::Init();
    ESCCompiler().Compile("A\nB");
    const std::string log = test::LogWithoutTimeStamps();
    EXPECT_NE(log.find("[T] Error: token recognition error at: '\\n'\n"), std::string::npos) << log;
}

TEST(S1Listener, LogsWarningsAndErrorsWithoutThrowing) {
    fs::MakeDirectory(fs::GetUserSaveDataDirectory());
    Log::Init();
    antlr4::ANTLRInputStream input("");
    S1Lexer lexer(&input);
    antlr4::CommonTokenStream tokens(&lexer);
    S1Parser parser(&tokens);
    const antlr4::dfa::DFA& dfa = parser.getInterpreter<antlr4::atn::ParserATNSimulator>()->decisionToDFA.at(0);
    S1Listener listener;
    EXPECT_NO_THROW(listener.syntaxError(&parser, nullptr, 3, 4, "mismatched input", nullptr));
    EXPECT_NO_THROW(listener.reportAmbiguity(&parser, dfa, 0, 1, true, antlrcpp::BitSet(), nullptr));
    EXPECT_NO_THROW(listener.reportAttemptingFullContext(&parser, dfa, 0, 1, antlrcpp::BitSet(), nullptr));
    EXPECT_NO_THROW(listener.reportContextSensitivity(&parser, dfa, 0, 1, 2, nullptr));
    const std::string log = test::LogWithoutTimeStamps();
    EXPECT_NE(log.find("[T] Error: mismatched input\n"
                       "[T] Warning: ambiguity\n"
                       "[T] Warning: attempting full context\n"
                       "[T] Warning: context sensitivity\n"),
              std::string::npos)
        << log;
}

TEST(ESCCompiler, OverlongBlocksAreRefused) {
    std::string script = "{1";
    for (size_t i = 0; i < ESCCompiler::maxBlockTokens; ++i)
        script += "+1";
    script += "}";
    EXPECT_EQ(CompileError(script), "Script Error: an expression block holds more than 1000 tokens");
    // The count starts afresh after each block.
    std::string blocks;
    for (size_t i = 0; i < 600; ++i)
        blocks += "{-1}";
    EXPECT_EQ(CompileError(blocks), "no error");
    // Deep nesting within the limit compiles.
    EXPECT_EQ(CompileError("{" + std::string(300, '(') + "1" + std::string(300, ')') + "}"), "no error");
    EXPECT_EQ(CompileError("{" + std::string(998, '-') + "1}"), "no error");
    EXPECT_EQ(CompileError("{" + std::string(999, '-') + "1}"),
              "Script Error: an expression block holds more than 1000 tokens");
    EXPECT_EQ(CompileError("{" + std::string(499, '(') + "1" + std::string(499, ')') + "}"), "no error");
}

TEST(ESCCompiler, ScriptsAreUtf8) {
    EXPECT_EQ(CompileError("bad \xff {1}"), "Script Error: the script is not valid UTF-8");
    EXPECT_EQ(CompileError("{'\xc3'}"), "Script Error: the script is not valid UTF-8");
    // Valid UTF-8 beyond ASCII is no outer text, but it is allowed in strings.
    EXPECT_EQ(CompileError("caf\xc3\xa9"), "no error");
    ExpectCode("{'\xc3\xa9'}",
               {In::Load(Op::LoadString, 0, 0), In::Register(Op::OutputRegister, 0), In::None(Op::EndLine)},
               {"\xc3\xa9"});
    EXPECT_FALSE(ESCCheckSyntax("caf\xc3\xa9").empty());
}

TEST(ESCCompiler, CheckSyntaxReportsLineAndColumn) {
    EXPECT_TRUE(ESCCheckSyntax("FREQ:CENT {FrequencyCenter}").empty());
    const auto errors = ESCCheckSyntax("X {a + }");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].line, 1u);
    EXPECT_EQ(errors[0].column, 7u);
}

TEST(ESCCompiler, CompilerCanBeReusedAndMoved) {
    ESCCompiler first;
    const ESCByteCode a = first.Compile("{x}");
    ESCCompiler second = std::move(first);
    const ESCByteCode b = second.Compile("{x}");
    EXPECT_EQ(a.GetInstructions(), b.GetInstructions());
    // Nothing carries over: the second compile starts at register 0 again.
    EXPECT_EQ(b.GetInstructions()[0], In::Load(Op::ReadVariable, 0, 0));
}

} // namespace
} // namespace nrq
