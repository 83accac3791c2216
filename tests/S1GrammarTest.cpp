// The S1 grammars as generated: token numbers, ties between lexer rules, the
// parser's alternatives and its precedence levels.
#include "HVX/ESC/Compiler.h"

#include "S1Lexer.h"
#include "S1Parser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nrq {
namespace {

using Tokens = std::vector<std::pair<size_t, std::string>>;

class Recorder : public antlr4::BaseErrorListener {
public:
    void syntaxError(antlr4::Recognizer*, antlr4::Token*, size_t, size_t, const std::string& msg,
                     std::exception_ptr) override {
        messages.push_back(msg);
    }
    std::vector<std::string> messages;
};

// Every token the lexer makes, up to and without EOF.
Tokens Lex(const std::string& script, std::vector<std::string>* errors = nullptr) {
    antlr4::ANTLRInputStream input(script);
    S1Lexer lexer(&input);
    Recorder recorder;
    lexer.removeErrorListeners();
    lexer.addErrorListener(&recorder);
    Tokens tokens;
    for (auto token = lexer.nextToken(); token->getType() != antlr4::Token::EOF; token = lexer.nextToken())
        tokens.emplace_back(token->getType(), token->getText());
    if (errors)
        *errors = recorder.messages;
    return tokens;
}

std::vector<size_t> Types(const std::string& script) {
    std::vector<size_t> types;
    for (const auto& token : Lex(script))
        types.push_back(token.first);
    return types;
}

// A parsed script with the objects that own its tree.
struct Parsed {
    explicit Parsed(const std::string& script)
        : input(script), lexer(&input), tokens(&lexer), parser(&tokens) {
        lexer.removeErrorListeners();
        parser.removeErrorListeners();
        lexer.addErrorListener(&recorder);
        parser.addErrorListener(&recorder);
        tree = parser.prog();
    }

    Recorder recorder;
    antlr4::ANTLRInputStream input;
    S1Lexer lexer;
    antlr4::CommonTokenStream tokens;
    S1Parser parser;
    S1Parser::ProgContext* tree = nullptr;
};

// The expression tree with explicit grouping: binary and unary operations in
// round brackets, source parentheses in square ones.
std::string Shape(S1Parser::ExprContext* expr) {
    if (auto* bin = dynamic_cast<S1Parser::BinContext*>(expr))
        return "(" + Shape(bin->expr(0)) + " " + bin->op->getText() + " " + Shape(bin->expr(1)) + ")";
    if (auto* unary = dynamic_cast<S1Parser::UnaryContext*>(expr))
        return "(" + unary->op->getText() + " " + Shape(unary->expr()) + ")";
    if (auto* paren = dynamic_cast<S1Parser::ParenContext*>(expr))
        return "[" + Shape(paren->expr()) + "]";
    if (auto* call = dynamic_cast<S1Parser::CallContext*>(expr)) {
        std::string text = call->ID()->getText() + "(";
        const auto arguments = call->expr();
        for (size_t i = 0; i < arguments.size(); ++i)
            text += (i ? ", " : "") + Shape(arguments[i]);
        return text + ")";
    }
    if (auto* freq = dynamic_cast<S1Parser::FreqContext*>(expr))
        return "<" + freq->number->getText() + " " + freq->unit->getText() + ">";
    return expr->getText();
}

// The shape of the expression of a script that is one output block.
std::string ShapeOf(const std::string& script) {
    Parsed parsed(script);
    EXPECT_TRUE(parsed.recorder.messages.empty()) << script;
    const auto statements = parsed.tree->statement();
    if (statements.size() != 1)
        return "statements: " + std::to_string(statements.size());
    auto* output = dynamic_cast<S1Parser::OutputContext*>(statements[0]->eval());
    if (!output || !output->expr())
        return "not an output";
    return Shape(output->expr());
}

TEST(S1Lexer, TokenNumbersFollowTheRuleOrder) {
    EXPECT_EQ(S1Lexer::DIRECTIVE, 1u);
    EXPECT_EQ(S1Lexer::TEXT, 2u);
    EXPECT_EQ(S1Lexer::BEGIN_EVAL, 3u);
    EXPECT_EQ(S1Lexer::BEGIN_EVAL_2, 4u);
    EXPECT_EQ(S1Lexer::END_EVAL, 5u);
    EXPECT_EQ(S1Lexer::STRING, 6u);
    EXPECT_EQ(S1Lexer::KW_HZ, 7u);
    EXPECT_EQ(S1Lexer::KW_KHZ, 8u);
    EXPECT_EQ(S1Lexer::KW_MHZ, 9u);
    EXPECT_EQ(S1Lexer::KW_GHZ, 10u);
    EXPECT_EQ(S1Lexer::FLOAT, 11u);
    EXPECT_EQ(S1Lexer::INT, 12u);
    EXPECT_EQ(S1Lexer::HEX, 13u);
    EXPECT_EQ(S1Lexer::OCT, 14u);
    EXPECT_EQ(S1Lexer::OPEN_PAREN, 15u);
    EXPECT_EQ(S1Lexer::CLOSE_PAREN, 16u);
    EXPECT_EQ(S1Lexer::COMMA, 17u);
    EXPECT_EQ(S1Lexer::IDIV, 18u);
    EXPECT_EQ(S1Lexer::DIV, 19u);
    EXPECT_EQ(S1Lexer::MUL, 20u);
    EXPECT_EQ(S1Lexer::ADD, 21u);
    EXPECT_EQ(S1Lexer::SUB, 22u);
    EXPECT_EQ(S1Lexer::NEQ, 23u);
    EXPECT_EQ(S1Lexer::ASSIGN, 24u);
    EXPECT_EQ(S1Lexer::EQ, 25u);
    EXPECT_EQ(S1Lexer::GT, 26u);
    EXPECT_EQ(S1Lexer::GTE, 27u);
    EXPECT_EQ(S1Lexer::LT, 28u);
    EXPECT_EQ(S1Lexer::LTE, 29u);
    EXPECT_EQ(S1Lexer::NOT, 30u);
    EXPECT_EQ(S1Lexer::AND, 31u);
    EXPECT_EQ(S1Lexer::OR, 32u);
    EXPECT_EQ(S1Lexer::XOR, 33u);
    EXPECT_EQ(S1Lexer::BAND, 34u);
    EXPECT_EQ(S1Lexer::BOR, 35u);
    EXPECT_EQ(S1Lexer::BXOR, 36u);
    EXPECT_EQ(S1Lexer::ID, 37u);
    EXPECT_EQ(S1Lexer::WS, 38u);
    // The parser shares the numbers.
    EXPECT_EQ(S1Parser::ID, 37u);
    EXPECT_EQ(S1Parser::WS, 38u);
}

TEST(S1Lexer, ModesAndChannels) {
    S1Lexer lexer(nullptr);
    EXPECT_EQ(lexer.getModeNames(), (std::vector<std::string>{"DEFAULT_MODE", "MODE_EVAL_BLOCK"}));
    EXPECT_EQ(lexer.getChannelNames(), (std::vector<std::string>{"DEFAULT_TOKEN_CHANNEL", "HIDDEN"}));
}

TEST(S1Lexer, OuterTextIsOneTokenUpToABrace) {
    EXPECT_EQ(Lex("FREQ:CENT {FrequencyCenter}"),
              (Tokens{{2, "FREQ:CENT "}, {3, "{"}, {37, "FrequencyCenter"}, {5, "}"}}));
    EXPECT_EQ(Lex("FORMAT:DATA REAL,32"), (Tokens{{2, "FORMAT:DATA REAL,32"}}));
    EXPECT_EQ(Lex("a|b~c"), (Tokens{{2, "a|b~c"}}));
}

TEST(S1Lexer, AtSignIsADirective) {
    EXPECT_EQ(Lex("A@B"), (Tokens{{2, "A"}, {1, "@"}, {2, "B"}}));
}

TEST(S1Lexer, BackslashCarriesAnyCharacterAndStays) {
    EXPECT_EQ(Lex("A\\{B\\}C\\@D"), (Tokens{{2, "A\\{B\\}C\\@D"}}));
    EXPECT_EQ(Lex("X\\\nY"), (Tokens{{2, "X\\\nY"}}));
    // A lone backslash is in the plain range too.
    EXPECT_EQ(Lex("X\\"), (Tokens{{2, "X\\"}}));
}

TEST(S1Lexer, ControlCharactersAreNoText) {
    std::vector<std::string> errors;
    EXPECT_EQ(Lex("A\nB", &errors), (Tokens{{2, "A"}, {2, "B"}}));
    EXPECT_EQ(errors, (std::vector<std::string>{"token recognition error at: '\\n'"}));
    EXPECT_EQ(Lex("A\tB", &errors), (Tokens{{2, "A"}, {2, "B"}}));
    EXPECT_EQ(errors, (std::vector<std::string>{"token recognition error at: '\\t'"}));
    EXPECT_EQ(Lex("A\x7f" "B", &errors), (Tokens{{2, "A"}, {2, "B"}}));
    EXPECT_EQ(errors.size(), 1u);
}

TEST(S1Lexer, WhitespaceInsideBlocksIsSkipped) {
    EXPECT_EQ(Types("{ a \t+\r\n b }"), (std::vector<size_t>{3, 37, 21, 37, 5}));
    // Outside a block a blank is text.
    EXPECT_EQ(Lex(" {a} "), (Tokens{{2, " "}, {3, "{"}, {37, "a"}, {5, "}"}, {2, " "}}));
}

TEST(S1Lexer, NumberTies) {
    EXPECT_EQ(Lex("{0}"), (Tokens{{3, "{"}, {12, "0"}, {5, "}"}}));
    EXPECT_EQ(Lex("{007}"), (Tokens{{3, "{"}, {14, "007"}, {5, "}"}}));
    EXPECT_EQ(Lex("{00}"), (Tokens{{3, "{"}, {14, "00"}, {5, "}"}}));
    EXPECT_EQ(Lex("{0x}"), (Tokens{{3, "{"}, {13, "0x"}, {5, "}"}}));
    EXPECT_EQ(Lex("{0x1F}"), (Tokens{{3, "{"}, {13, "0x1F"}, {5, "}"}}));
    EXPECT_EQ(Lex("{0XaB}"), (Tokens{{3, "{"}, {13, "0XaB"}, {5, "}"}}));
    EXPECT_EQ(Lex("{120}"), (Tokens{{3, "{"}, {12, "120"}, {5, "}"}}));
    EXPECT_EQ(Lex("{.5}"), (Tokens{{3, "{"}, {11, ".5"}, {5, "}"}}));
    EXPECT_EQ(Lex("{0.25}"), (Tokens{{3, "{"}, {11, "0.25"}, {5, "}"}}));
    EXPECT_EQ(Lex("{007.5}"), (Tokens{{3, "{"}, {11, "007.5"}, {5, "}"}}));
}

TEST(S1Lexer, TrailingPointIsNoFloat) {
    std::vector<std::string> errors;
    // The failed FLOAT has read the point and looked at the brace; ANTLR's
    // recovery then drops the character it stands on, the brace.
    EXPECT_EQ(Lex("{5.}", &errors), (Tokens{{3, "{"}, {12, "5"}}));
    EXPECT_EQ(errors, (std::vector<std::string>{"token recognition error at: '.}'"}));
    EXPECT_EQ(Lex("{5. }", &errors), (Tokens{{3, "{"}, {12, "5"}, {5, "}"}}));
}

TEST(S1Lexer, UnitWordsInAnyCase) {
    EXPECT_EQ(Types("{hz HZ Hz hZ}"), (std::vector<size_t>{3, 7, 7, 7, 7, 5}));
    EXPECT_EQ(Types("{khz KHZ kHz KhZ}"), (std::vector<size_t>{3, 8, 8, 8, 8, 5}));
    EXPECT_EQ(Types("{mhz MHZ MHz mHz}"), (std::vector<size_t>{3, 9, 9, 9, 9, 5}));
    EXPECT_EQ(Types("{ghz GHZ GHz gHz}"), (std::vector<size_t>{3, 10, 10, 10, 10, 5}));
}

TEST(S1Lexer, LongerWordsBeginningWithAUnitAreIdentifiers) {
    EXPECT_EQ(Lex("{MHzX Hz2 kHz_ GHzz}"),
              (Tokens{{3, "{"}, {37, "MHzX"}, {37, "Hz2"}, {37, "kHz_"}, {37, "GHzz"}, {5, "}"}}));
}

TEST(S1Lexer, WordOperatorsOnlyInTheirTwoSpellings) {
    EXPECT_EQ(Types("{not NOT Not nOT}"), (std::vector<size_t>{3, 30, 30, 37, 37, 5}));
    EXPECT_EQ(Types("{and AND And aND}"), (std::vector<size_t>{3, 31, 31, 37, 37, 5}));
    EXPECT_EQ(Types("{or OR Or oR}"), (std::vector<size_t>{3, 32, 32, 37, 37, 5}));
    EXPECT_EQ(Types("{xor XOR Xor xOR}"), (std::vector<size_t>{3, 33, 33, 37, 37, 5}));
    EXPECT_EQ(Types("{nota andy _or}"), (std::vector<size_t>{3, 37, 37, 37, 5}));
}

TEST(S1Lexer, OperatorTies) {
    EXPECT_EQ(Types("{!= ! && & // / >= > <= < := = || | ^}"),
              (std::vector<size_t>{3, 23, 30, 31, 34, 18, 19, 27, 26, 29, 28, 24, 25, 32, 35, 36, 5}));
    // Longest match: three slashes are "//" and "/".
    EXPECT_EQ(Types("{///}"), (std::vector<size_t>{3, 18, 19, 5}));
    EXPECT_EQ(Types("{( ) ,+-*}"), (std::vector<size_t>{3, 15, 16, 17, 21, 22, 20, 5}));
}

TEST(S1Lexer, ColonAloneMatchesNothing) {
    std::vector<std::string> errors;
    EXPECT_EQ(Types("{a : b}"), (std::vector<size_t>{3, 37, 37, 5}));
    Lex("{a : b}", &errors);
    EXPECT_EQ(errors, (std::vector<std::string>{"token recognition error at: ': '"}));
}

TEST(S1Lexer, Strings) {
    EXPECT_EQ(Lex(R"({"abc"})"), (Tokens{{3, "{"}, {6, R"("abc")"}, {5, "}"}}));
    EXPECT_EQ(Lex(R"({'abc'})"), (Tokens{{3, "{"}, {6, "'abc'"}, {5, "}"}}));
    EXPECT_EQ(Lex(R"({"a\"b"})"), (Tokens{{3, "{"}, {6, R"("a\"b")"}, {5, "}"}}));
    EXPECT_EQ(Lex(R"({'it\'s'})"), (Tokens{{3, "{"}, {6, R"('it\'s')"}, {5, "}"}}));
    // The other quote needs no backslash.
    EXPECT_EQ(Lex(R"({"it's"})"), (Tokens{{3, "{"}, {6, R"("it's")"}, {5, "}"}}));
    // No longer reading closes, so the backslash counts as a plain character.
    EXPECT_EQ(Lex(R"({"a\"})"), (Tokens{{3, "{"}, {6, R"("a\")"}, {5, "}"}}));
    // Strings may span lines and hold braces.
    EXPECT_EQ(Lex("{\"a\n}{b\"}"), (Tokens{{3, "{"}, {6, "\"a\n}{b\""}, {5, "}"}}));
    EXPECT_EQ(Lex(R"({"" ''})"), (Tokens{{3, "{"}, {6, R"("")"}, {6, "''"}, {5, "}"}}));
}

TEST(S1Lexer, NestedBracesKeepTheirNesting) {
    EXPECT_EQ(Lex("{a{b}c}d"),
              (Tokens{{3, "{"}, {37, "a"}, {4, "{"}, {37, "b"}, {5, "}"}, {37, "c"}, {5, "}"}, {2, "d"}}));
}

TEST(S1Lexer, FrequencyWithAndWithoutBlank) {
    EXPECT_EQ(Lex("{1.5 GHz}"), (Tokens{{3, "{"}, {11, "1.5"}, {10, "GHz"}, {5, "}"}}));
    EXPECT_EQ(Lex("{1.5GHz}"), (Tokens{{3, "{"}, {11, "1.5"}, {10, "GHz"}, {5, "}"}}));
}

TEST(S1Parser, EmptyScriptIsAnEmptyProg) {
    Parsed parsed("");
    EXPECT_TRUE(parsed.recorder.messages.empty());
    EXPECT_TRUE(parsed.tree->statement().empty());
    EXPECT_NE(parsed.tree->EOF(), nullptr);
}

TEST(S1Parser, RuleNamesInOrder) {
    Parsed parsed("");
    EXPECT_EQ(parsed.parser.getRuleNames(), (std::vector<std::string>{"prog", "statement", "eval", "expr"}));
}

TEST(S1Parser, EmptyBlockIsAnOutputWithoutExpression) {
    Parsed parsed("{}");
    EXPECT_TRUE(parsed.recorder.messages.empty());
    ASSERT_EQ(parsed.tree->statement().size(), 1u);
    auto* output = dynamic_cast<S1Parser::OutputContext*>(parsed.tree->statement(0)->eval());
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(output->expr(), nullptr);
}

TEST(S1Parser, TextAndBlocksAreStatements) {
    Parsed parsed("FREQ:CENT {a} Hz");
    EXPECT_TRUE(parsed.recorder.messages.empty());
    const auto statements = parsed.tree->statement();
    ASSERT_EQ(statements.size(), 3u);
    EXPECT_EQ(statements[0]->TEXT()->getText(), "FREQ:CENT ");
    EXPECT_NE(dynamic_cast<S1Parser::OutputContext*>(statements[1]->eval()), nullptr);
    EXPECT_EQ(statements[2]->TEXT()->getText(), " Hz");
}

TEST(S1Parser, AssignmentNeedsTheColon) {
    Parsed assign("{a := 1}");
    EXPECT_TRUE(assign.recorder.messages.empty());
    auto* assignment = dynamic_cast<S1Parser::AssignmentContext*>(assign.tree->statement(0)->eval());
    ASSERT_NE(assignment, nullptr);
    EXPECT_EQ(assignment->ID()->getText(), "a");
    EXPECT_EQ(Shape(assignment->expr()), "1");

    EXPECT_EQ(ShapeOf("{a = 1}"), "(a = 1)");
}

TEST(S1Parser, HexAndOctalAreSyntaxErrors) {
    EXPECT_FALSE(ESCCheckSyntax("{0x10}").empty());
    EXPECT_FALSE(ESCCheckSyntax("{010}").empty());
    EXPECT_FALSE(ESCCheckSyntax("{0x}").empty());
    EXPECT_TRUE(ESCCheckSyntax("{10}").empty());
    EXPECT_TRUE(ESCCheckSyntax("{0}").empty());
}

TEST(S1Parser, DirectiveIsASyntaxError) {
    const auto errors = ESCCheckSyntax("A@B");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].line, 1u);
    EXPECT_EQ(errors[0].column, 1u);
    EXPECT_TRUE(ESCCheckSyntax("A\\@B").empty());
}

TEST(S1Parser, LineFeedInOuterTextIsALexicalError) {
    const auto errors = ESCCheckSyntax("A\nB");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].line, 1u);
    EXPECT_EQ(errors[0].column, 1u);
    EXPECT_EQ(errors[0].message, "token recognition error at: '\\n'");
    // An escaped line end is text, and the next line counts from 1.
    EXPECT_TRUE(ESCCheckSyntax("A\\\nB").empty());
    const auto second = ESCCheckSyntax("A\\\nB@");
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0].line, 2u);
    EXPECT_EQ(second[0].column, 1u);
}

TEST(S1Parser, NestedBlocksAreSyntaxErrors) {
    EXPECT_FALSE(ESCCheckSyntax("{a{b}}").empty());
    EXPECT_FALSE(ESCCheckSyntax("{{}}").empty());
}

TEST(S1Parser, TrailingPointIsAnError) {
    EXPECT_FALSE(ESCCheckSyntax("{5.}").empty());
    EXPECT_TRUE(ESCCheckSyntax("{.5}").empty());
    EXPECT_TRUE(ESCCheckSyntax("{5.0}").empty());
}

TEST(S1Parser, FrequencyTakesAnIntOrFloatAndAUnit) {
    EXPECT_EQ(ShapeOf("{1.5 GHz}"), "<1.5 GHz>");
    EXPECT_EQ(ShapeOf("{1.5GHz}"), "<1.5 GHz>");
    EXPECT_EQ(ShapeOf("{10 khz}"), "<10 khz>");
    EXPECT_EQ(ShapeOf("{.5MHZ}"), "<.5 MHZ>");
    EXPECT_EQ(ShapeOf("{3 hZ}"), "<3 hZ>");
    // A unit word is no identifier.
    EXPECT_FALSE(ESCCheckSyntax("{GHz}").empty());
    EXPECT_FALSE(ESCCheckSyntax("{GHz := 1}").empty());
    EXPECT_FALSE(ESCCheckSyntax("{a GHz}").empty());
    EXPECT_TRUE(ESCCheckSyntax("{GHzX := 1}").empty());
}

TEST(S1Parser, NoNegativeLiterals) {
    Parsed parsed("{-1}");
    auto* output = dynamic_cast<S1Parser::OutputContext*>(parsed.tree->statement(0)->eval());
    ASSERT_NE(output, nullptr);
    auto* unary = dynamic_cast<S1Parser::UnaryContext*>(output->expr());
    ASSERT_NE(unary, nullptr);
    EXPECT_EQ(unary->op->getType(), S1Lexer::SUB);
    EXPECT_NE(dynamic_cast<S1Parser::IntContext*>(unary->expr()), nullptr);
}

TEST(S1Parser, LabelledAlternatives) {
    auto kind = [](const std::string& script) -> std::string {
        Parsed parsed(script);
        auto* output = dynamic_cast<S1Parser::OutputContext*>(parsed.tree->statement(0)->eval());
        if (!output || !output->expr())
            return "none";
        S1Parser::ExprContext* expr = output->expr();
        if (dynamic_cast<S1Parser::ParenContext*>(expr)) return "Paren";
        if (dynamic_cast<S1Parser::CallContext*>(expr)) return "Call";
        if (dynamic_cast<S1Parser::UnaryContext*>(expr)) return "Unary";
        if (dynamic_cast<S1Parser::BinContext*>(expr)) return "Bin";
        if (dynamic_cast<S1Parser::FreqContext*>(expr)) return "Freq";
        if (dynamic_cast<S1Parser::IdContext*>(expr)) return "Id";
        if (dynamic_cast<S1Parser::StrContext*>(expr)) return "Str";
        if (dynamic_cast<S1Parser::FloatContext*>(expr)) return "Float";
        if (dynamic_cast<S1Parser::IntContext*>(expr)) return "Int";
        return "other";
    };
    EXPECT_EQ(kind("{(1)}"), "Paren");
    EXPECT_EQ(kind("{f()}"), "Call");
    EXPECT_EQ(kind("{f(1, 2, 3)}"), "Call");
    EXPECT_EQ(kind("{!a}"), "Unary");
    EXPECT_EQ(kind("{a ^ b}"), "Bin");
    EXPECT_EQ(kind("{2 MHz}"), "Freq");
    EXPECT_EQ(kind("{a}"), "Id");
    EXPECT_EQ(kind("{'a'}"), "Str");
    EXPECT_EQ(kind("{2.5}"), "Float");
    EXPECT_EQ(kind("{25}"), "Int");
}

TEST(S1Parser, CallArguments) {
    EXPECT_EQ(ShapeOf("{f()}"), "f()");
    EXPECT_EQ(ShapeOf("{f(a, b + c, g(1))}"), "f(a, (b + c), g(1))");
    EXPECT_FALSE(ESCCheckSyntax("{f(a,)}").empty());
    EXPECT_FALSE(ESCCheckSyntax("{f(,a)}").empty());
}

TEST(S1Precedence, BitOperatorsBindTighterThanArithmetic) {
    EXPECT_EQ(ShapeOf("{a + b & c}"), "(a + (b & c))");
    EXPECT_EQ(ShapeOf("{a & b + c}"), "((a & b) + c)");
    EXPECT_EQ(ShapeOf("{a * b | c}"), "(a * (b | c))");
    EXPECT_EQ(ShapeOf("{a // b ^ c}"), "(a // (b ^ c))");
    // The three share a level and associate to the left.
    EXPECT_EQ(ShapeOf("{a | b ^ c & d}"), "(((a | b) ^ c) & d)");
}

TEST(S1Precedence, DivisionBindsTighterThanMultiplication) {
    EXPECT_EQ(ShapeOf("{x * y / z}"), "(x * (y / z))");
    EXPECT_EQ(ShapeOf("{x / y * z}"), "((x / y) * z)");
    EXPECT_EQ(ShapeOf("{x * y // z}"), "(x * (y // z))");
    EXPECT_EQ(ShapeOf("{x / y // z}"), "((x / y) // z)");
    EXPECT_EQ(ShapeOf("{x // y / z}"), "((x // y) / z)");
}

TEST(S1Precedence, ArithmeticLevels) {
    EXPECT_EQ(ShapeOf("{a + b * c}"), "(a + (b * c))");
    EXPECT_EQ(ShapeOf("{a * b - c}"), "((a * b) - c)");
    EXPECT_EQ(ShapeOf("{a - b - c}"), "((a - b) - c)");
    EXPECT_EQ(ShapeOf("{a - b + c}"), "((a - b) + c)");
    EXPECT_EQ(ShapeOf("{a * b * c}"), "((a * b) * c)");
    EXPECT_EQ(ShapeOf("{a / b / c}"), "((a / b) / c)");
}

TEST(S1Precedence, ComparisonsChainFromTheLeft) {
    EXPECT_EQ(ShapeOf("{a < b < c}"), "((a < b) < c)");
    EXPECT_EQ(ShapeOf("{a = b != c}"), "((a = b) != c)");
    EXPECT_EQ(ShapeOf("{a >= b <= c > d}"), "(((a >= b) <= c) > d)");
    EXPECT_EQ(ShapeOf("{a + 1 = b * 2}"), "((a + 1) = (b * 2))");
}

TEST(S1Precedence, LogicBindsLoosest) {
    EXPECT_EQ(ShapeOf("{a and b or c}"), "((a and b) or c)");
    EXPECT_EQ(ShapeOf("{a or b and c}"), "((a or b) and c)");
    EXPECT_EQ(ShapeOf("{a xor b && c || d}"), "(((a xor b) && c) || d)");
    EXPECT_EQ(ShapeOf("{a = 1 and b < 2}"), "((a = 1) and (b < 2))");
}

TEST(S1Precedence, UnaryOperandIsTheTightestLevel) {
    EXPECT_EQ(ShapeOf("{-a + b}"), "((- a) + b)");
    EXPECT_EQ(ShapeOf("{-a & b}"), "((- a) & b)");
    EXPECT_EQ(ShapeOf("{not a = b}"), "((not a) = b)");
    EXPECT_EQ(ShapeOf("{!a and b}"), "((! a) and b)");
    EXPECT_EQ(ShapeOf("{--a}"), "(- (- a))");
    EXPECT_EQ(ShapeOf("{a - -b}"), "(a - (- b))");
    EXPECT_EQ(ShapeOf("{-(a + b)}"), "(- [(a + b)])");
}

TEST(S1Precedence, ParenthesesGroup) {
    EXPECT_EQ(ShapeOf("{(a + b) * c}"), "([(a + b)] * c)");
    EXPECT_EQ(ShapeOf("{a / (b * c)}"), "(a / [(b * c)])");
}

} // namespace
} // namespace nrq
