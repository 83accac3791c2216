#include "HVX/ESC/Compiler.h"

#include "HVX/Base/Error.h"
#include "S1Lexer.h"
#include "S1Listener.h"
#include "S1Parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <optional>
#include <stdexcept>
#include <unordered_map>

namespace nrq {
namespace {

using BuiltinTable = std::unordered_map<std::string_view, ESCCompiler::BuiltinInfo, string_hash>;

const BuiltinTable& Builtins() {
    // Function-local static: built once, thread-safe, at the first compile.
    static const BuiltinTable table = [] {
        BuiltinTable built(16);
        built.max_load_factor(1.0f);
        built.emplace("typeof", ESCCompiler::BuiltinInfo{ESCBuiltin::TypeOf, 1, 1});
        built.emplace("read_output", ESCCompiler::BuiltinInfo{ESCBuiltin::ReadOutput, 0, 1});
        return built;
    }();
    return table;
}

// Lexer, parser and tree of one script. The parser owns the tree's nodes.
class S1Parse {
public:
    S1Parse(std::string_view script, antlr4::ANTLRErrorListener& listener)
        : lexer(&input), tokens(&lexer), parser(&tokens) {
        lexer.removeErrorListeners();
        lexer.addErrorListener(&listener);
        parser.removeErrorListeners();
        parser.addErrorListener(&listener);
        try {
            input.load(std::string(script));
        } catch (const std::range_error&) {
            // ANTLR decodes the text to code points before the lexer sees it.
            throw Error("Script Error: the script is not valid UTF-8");
        }
        tokens.fill();
        CheckBlockLengths();
        tree = parser.prog();
    }

    S1Parser::ProgContext* Tree() const { return tree; }

private:
    // Every nested rule call in an expression consumes a token first, so the
    // tokens between two pieces of outer text bound the parser's depth.
    void CheckBlockLengths() {
        size_t run = 0;
        for (antlr4::Token* token : tokens.getTokens()) {
            switch (token->getType()) {
            case S1Lexer::TEXT:
            case S1Lexer::DIRECTIVE:
            case S1Lexer::END_EVAL:
                run = 0;
                break;
            default:
                if (++run > ESCCompiler::maxBlockTokens)
                    throw Error(fmt::format("Script Error: an expression block holds more than {} tokens",
                                            ESCCompiler::maxBlockTokens));
            }
        }
    }

    antlr4::ANTLRInputStream input;
    S1Lexer lexer;
    antlr4::CommonTokenStream tokens;
    S1Parser parser;
    S1Parser::ProgContext* tree = nullptr;
};

ESCOpCode BinaryCode(size_t tokenType) {
    switch (tokenType) {
    case S1Lexer::BAND: return ESCOpCode::Band;
    case S1Lexer::BOR: return ESCOpCode::Bor;
    case S1Lexer::BXOR: return ESCOpCode::Bxor;
    case S1Lexer::ADD: return ESCOpCode::Add;
    case S1Lexer::SUB: return ESCOpCode::Sub;
    case S1Lexer::MUL: return ESCOpCode::Mul;
    case S1Lexer::DIV: return ESCOpCode::Div;
    case S1Lexer::IDIV: return ESCOpCode::IDiv;
    case S1Lexer::EQ: return ESCOpCode::Eq;
    case S1Lexer::NEQ: return ESCOpCode::Neq;
    case S1Lexer::GT: return ESCOpCode::Gt;
    case S1Lexer::LT: return ESCOpCode::Lt;
    case S1Lexer::GTE: return ESCOpCode::Gte;
    case S1Lexer::LTE: return ESCOpCode::Lte;
    case S1Lexer::AND: return ESCOpCode::And;
    case S1Lexer::OR: return ESCOpCode::Or;
    case S1Lexer::XOR: return ESCOpCode::Xor;
    default: break;
    }
    Assert(false, fmt::format("Unexpected binary operator token {}", tokenType));
    return ESCOpCode::Malformed;
}

double UnitFactor(size_t tokenType) {
    switch (tokenType) {
    case S1Lexer::KW_KHZ: return 1000.0;
    case S1Lexer::KW_MHZ: return 1e6;
    case S1Lexer::KW_GHZ: return 1e9;
    default: return 1.0;
    }
}

// A backslash takes the next character literally; no escape means more.
std::string Unescape(std::string_view quoted) {
    std::string text;
    if (quoted.size() < 2)
        return text;
    const std::string_view inner = quoted.substr(1, quoted.size() - 2);
    text.reserve(inner.size());
    for (size_t i = 0; i < inner.size(); ++i) {
        if (inner[i] == '\\') {
            if (++i == inner.size())
                break;
        }
        text += inner[i];
    }
    return text;
}

// The walk over one script's tree. Recovery after a syntax error may leave
// nodes without children, so every child is checked before use.
class Emitter {
public:
    explicit Emitter(ESCByteCode& byteCode) : code(byteCode) {}

    void Program(S1Parser::ProgContext* prog) {
        current = 0;
        hasOutput = false;
        if (prog)
            for (S1Parser::StatementContext* statement : prog->statement())
                Statement(statement);
        if (hasOutput)
            code.AddInstruction(ESCByteCodeInstruction::None(ESCOpCode::EndLine));
    }

private:
    void Statement(S1Parser::StatementContext* statement) {
        if (!statement)
            return;
        if (antlr4::tree::TerminalNode* text = statement->TEXT()) {
            hasOutput = true;
            const uint64_t index = code.AddString(text->getText());
            code.AddInstruction(ESCByteCodeInstruction::String(ESCOpCode::OutputString, index));
            return;
        }
        S1Parser::EvalContext* eval = statement->eval();
        if (auto* output = dynamic_cast<S1Parser::OutputContext*>(eval)) {
            S1Parser::ExprContext* expr = output->expr();
            if (!expr)
                return;
            Expression(expr);
            hasOutput = true;
            code.AddInstruction(ESCByteCodeInstruction::Register(ESCOpCode::OutputRegister, current));
        } else if (auto* assignment = dynamic_cast<S1Parser::AssignmentContext*>(eval)) {
            Expression(assignment->expr());
            const uint64_t name = code.AddString(Text(assignment->ID()));
            code.AddInstruction(ESCByteCodeInstruction::Load(ESCOpCode::WriteVariable, current, name));
        }
    }

    void Expression(S1Parser::ExprContext* expr) {
        if (auto* paren = dynamic_cast<S1Parser::ParenContext*>(expr)) {
            Expression(paren->expr());
        } else if (auto* call = dynamic_cast<S1Parser::CallContext*>(expr)) {
            Call(call);
        } else if (auto* bin = dynamic_cast<S1Parser::BinContext*>(expr)) {
            const uint16_t r = current;
            Expression(bin->expr(0));
            ++current;
            Expression(bin->expr(1));
            --current;
            const ESCOpCode op = BinaryCode(bin->op ? bin->op->getType() : 0);
            code.AddInstruction(ESCByteCodeInstruction::ThreeRegister(op, r, r, r + 1));
        } else if (auto* unary = dynamic_cast<S1Parser::UnaryContext*>(expr)) {
            Expression(unary->expr());
            const bool negate = unary->op && unary->op->getType() == S1Lexer::SUB;
            code.AddInstruction(ESCByteCodeInstruction::TwoRegister(negate ? ESCOpCode::Neg : ESCOpCode::Not,
                                                                    current, current));
        } else if (auto* freq = dynamic_cast<S1Parser::FreqContext*>(expr)) {
            const std::string number = freq->number ? freq->number->getText() : std::string();
            const double hertz = std::atof(number.c_str()) * UnitFactor(freq->unit ? freq->unit->getType() : 0);
            code.AddInstruction(ESCByteCodeInstruction::Load(ESCOpCode::LoadFrequency, current,
                                                             std::bit_cast<uint64_t>(hertz)));
        } else if (auto* id = dynamic_cast<S1Parser::IdContext*>(expr)) {
            const uint64_t name = code.AddString(Text(id->ID()));
            code.AddInstruction(ESCByteCodeInstruction::Load(ESCOpCode::ReadVariable, current, name));
        } else if (auto* str = dynamic_cast<S1Parser::StrContext*>(expr)) {
            const uint64_t index = code.AddString(Unescape(Text(str->STRING())));
            code.AddInstruction(ESCByteCodeInstruction::Load(ESCOpCode::LoadString, current, index));
        } else if (auto* flt = dynamic_cast<S1Parser::FloatContext*>(expr)) {
            const double value = std::atof(Text(flt->FLOAT()).c_str());
            code.AddInstruction(ESCByteCodeInstruction::Load(ESCOpCode::LoadFloat, current,
                                                             std::bit_cast<uint64_t>(value)));
        } else if (auto* integer = dynamic_cast<S1Parser::IntContext*>(expr)) {
            const long long value = std::atoll(Text(integer->INT()).c_str());
            code.AddInstruction(ESCByteCodeInstruction::Load(ESCOpCode::LoadInt, current,
                                                             static_cast<uint64_t>(value)));
        }
    }

    void Call(S1Parser::CallContext* call) {
        const std::string name = Text(call->ID());
        const ESCCompiler::BuiltinInfo* info = ESCCompiler::FindBuiltin(name);
        Assert(info != nullptr, fmt::format("There is no function defined with the name \"{}\"", name));

        const uint16_t r = current;
        const std::vector<S1Parser::ExprContext*> arguments = call->expr();
        for (S1Parser::ExprContext* argument : arguments) {
            Expression(argument);
            ++current;
        }
        current = r;

        const size_t count = arguments.size();
        const size_t clamped = std::clamp<size_t>(count, info->minArguments, info->maxArguments);
        if (clamped != count)
            throw Error(fmt::format("Number of args for built-in function \"{}\": expected {}, got {}", name,
                                    clamped, count));
        code.AddInstruction(
            ESCByteCodeInstruction::Call(r, info->builtin, r, static_cast<uint16_t>(count)));
    }

    static std::string Text(antlr4::tree::TerminalNode* node) { return node ? node->getText() : std::string(); }

    ESCByteCode& code;
    uint16_t current = 0;
    bool hasOutput = false;
};

// Keeps what the parser reports, for ESCCheckSyntax.
class CollectingListener : public antlr4::BaseErrorListener {
public:
    void syntaxError(antlr4::Recognizer*, antlr4::Token*, size_t line, size_t charPositionInLine,
                     const std::string& msg, std::exception_ptr) override {
        errors.push_back(ESCSyntaxError{line, charPositionInLine, msg});
    }

    std::vector<ESCSyntaxError> errors;
};

} // namespace

const ESCCompiler::BuiltinInfo* ESCCompiler::FindBuiltin(std::string_view name) {
    const BuiltinTable& table = Builtins();
    const auto found = table.find(name);
    return found == table.end() ? nullptr : &found->second;
}

ESCByteCode ESCCompiler::Compile(std::string_view script) {
    ESCByteCode byteCode;
    Compile(byteCode, script);
    return byteCode;
}

ESCByteCode& ESCCompiler::Compile(ESCByteCode& byteCode, std::string_view script) {
    Builtins();
    S1Listener listener;
    S1Parse parse(script, listener);
    Emitter(byteCode).Program(parse.Tree());
    return byteCode;
}

std::vector<ESCSyntaxError> ESCCheckSyntax(std::string_view script) {
    CollectingListener listener;
    S1Parse parse(script, listener);
    return std::move(listener.errors);
}

std::string ESCConvertVariantToSyntax(const ESCVariant& value) {
    switch (value.index()) {
    case 0:
        return "nil";
    case 1:
        return fmt::format("{}", std::get<int64_t>(value));
    case 2:
        return fmt::format("{}", std::get<double>(value));
    case 4:
        return fmt::format("{}Hz", std::get<Frequency>(value).Hz());
    case 5: {
        const std::string_view text = std::get<ESCString>(value);
        std::string escaped;
        escaped.reserve(text.size());
        for (const char c : text) {
            if (c == '"')
                escaped += '\\';
            escaped += c;
        }
        return escaped;
    }
    default:
        break;
    }
    Assert(false, "Failed to convert value to syntax");
    return {};
}

namespace {

template <class T>
std::optional<T> ReadWhole(std::string_view text) {
    T number{};
    const char* end = text.data() + text.size();
    std::from_chars_result result;
    if constexpr (std::is_integral_v<T>)
        result = std::from_chars(text.data(), end, number, 10);
    else
        result = std::from_chars(text.data(), end, number, std::chars_format::general);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return number;
}

} // namespace

ESCVariant ESCFromStringConversion(ESCVariantType type, std::string_view text) {
    switch (type) {
    case ESCVariantType::Integer:
        if (const auto number = ReadWhole<int64_t>(text))
            return *number;
        break;
    case ESCVariantType::Float:
        if (const auto number = ReadWhole<double>(text))
            return *number;
        break;
    case ESCVariantType::Amplitude:
        if (const auto number = ReadWhole<float>(text))
            return DecibelMilliwatts(*number);
        break;
    case ESCVariantType::Frequency:
        if (const auto number = ReadWhole<double>(text))
            return Frequency(*number);
        break;
    case ESCVariantType::String:
        return ESCString(text);
    default:
        break;
    }
    return Nil{};
}

} // namespace nrq
