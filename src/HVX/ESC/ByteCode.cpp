#include "HVX/ESC/ByteCode.h"

#include <fmt/format.h>

#include <bit>

namespace nrq {
namespace {

constexpr size_t initialBuckets = 16;

const char* Mnemonic(ESCOpCode code) {
    switch (code) {
    case ESCOpCode::Malformed: return "malformed";
    case ESCOpCode::OutputRegister: return "out";
    case ESCOpCode::OutputString: return "text";
    case ESCOpCode::EndLine: return "endl";
    case ESCOpCode::LoadInt: return "int";
    case ESCOpCode::LoadFloat: return "float";
    case ESCOpCode::LoadString: return "str";
    case ESCOpCode::LoadNil: return "nil";
    case ESCOpCode::LoadFrequency: return "freq";
    case ESCOpCode::ReadVariable: return "get";
    case ESCOpCode::WriteVariable: return "set";
    case ESCOpCode::Band: return "band";
    case ESCOpCode::Bor: return "bor";
    case ESCOpCode::Bxor: return "bxor";
    case ESCOpCode::Add: return "add";
    case ESCOpCode::Sub: return "sub";
    case ESCOpCode::Mul: return "mul";
    case ESCOpCode::Div: return "div";
    case ESCOpCode::IDiv: return "idiv";
    case ESCOpCode::Eq: return "eq";
    case ESCOpCode::Neq: return "neq";
    case ESCOpCode::Gt: return "gt";
    case ESCOpCode::Lt: return "lt";
    case ESCOpCode::Gte: return "gte";
    case ESCOpCode::Lte: return "lte";
    case ESCOpCode::And: return "and";
    case ESCOpCode::Or: return "or";
    case ESCOpCode::Xor: return "xor";
    case ESCOpCode::Not: return "not";
    case ESCOpCode::Neg: return "neg";
    case ESCOpCode::Call: return "call";
    case ESCOpCode::Nop: return "nop";
    }
    return nullptr;
}

const char* BuiltinName(ESCBuiltin builtin) {
    switch (builtin) {
    case ESCBuiltin::TypeOf: return "typeof";
    case ESCBuiltin::ReadOutput: return "read_output";
    case ESCBuiltin::None: break;
    }
    return "?";
}

// Pool strings may hold anything a script's text or string literal holds.
std::string Quote(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (c == '\n') {
            quoted += "\\n";
        } else if (c == '\r') {
            quoted += "\\r";
        } else if (c == '\t') {
            quoted += "\\t";
        } else if (byte < 0x20 || byte >= 0x7f) {
            quoted += fmt::format("\\x{:02x}", byte);
        } else {
            quoted += c;
        }
    }
    quoted += '"';
    return quoted;
}

std::string PoolOperand(const ESCByteCode& byteCode, uint64_t index, bool quoted) {
    const auto& strings = byteCode.GetStrings();
    if (index >= strings.size())
        return fmt::format("#{} (outside the pool)", index);
    const std::string_view text = strings[index];
    return fmt::format("#{} {}", index, quoted ? Quote(text) : std::string(text));
}

std::string Operands(const ESCByteCode& byteCode, const ESCByteCodeInstruction& instruction) {
    const auto& in = instruction;
    switch (in.code) {
    case ESCOpCode::OutputRegister:
    case ESCOpCode::LoadNil:
        return fmt::format("r{}", in.Destination());
    case ESCOpCode::OutputString:
        return PoolOperand(byteCode, in.StringIndex(), true);
    case ESCOpCode::LoadInt:
        return fmt::format("r{}, {}", in.Destination(), static_cast<int64_t>(in.Immediate()));
    case ESCOpCode::LoadFloat:
        return fmt::format("r{}, {}", in.Destination(), std::bit_cast<double>(in.Immediate()));
    case ESCOpCode::LoadFrequency:
        return fmt::format("r{}, {} Hz", in.Destination(), std::bit_cast<double>(in.Immediate()));
    case ESCOpCode::LoadString:
        return fmt::format("r{}, {}", in.Destination(), PoolOperand(byteCode, in.Immediate(), true));
    case ESCOpCode::ReadVariable:
        return fmt::format("r{}, {}", in.Destination(), PoolOperand(byteCode, in.Immediate(), false));
    case ESCOpCode::WriteVariable:
        return fmt::format("{}, r{}", PoolOperand(byteCode, in.Immediate(), false), in.Destination());
    case ESCOpCode::Not:
    case ESCOpCode::Neg:
        return fmt::format("r{}, r{}", in.Destination(), in.Source());
    case ESCOpCode::Call:
        return fmt::format("r{}, {}, r{}, {}", in.Destination(), BuiltinName(in.Builtin()),
                           in.FirstArgument(), in.ArgumentCount());
    case ESCOpCode::Malformed:
    case ESCOpCode::EndLine:
    case ESCOpCode::Nop:
        return {};
    default:
        break;
    }
    return fmt::format("r{}, r{}, r{}", in.Destination(), in.Left(), in.Right());
}

} // namespace

ESCByteCode::ESCByteCode() : stringTable(initialBuckets) { stringTable.max_load_factor(1.0f); }

ESCByteCode::ESCByteCode(const ESCByteCode& other)
    : instructions(other.instructions), strings(other.strings), stringTable(initialBuckets) {
    stringTable.max_load_factor(1.0f);
    RebuildTable();
}

ESCByteCode& ESCByteCode::operator=(const ESCByteCode& other) {
    if (this != &other) {
        instructions = other.instructions;
        strings = other.strings;
        RebuildTable();
    }
    return *this;
}

void ESCByteCode::RebuildTable() {
    stringTable.clear();
    for (size_t i = 0; i < strings.size(); ++i)
        stringTable.emplace(std::string_view(strings[i]), i);
}

uint64_t ESCByteCode::AddString(std::string_view text) {
    if (const auto found = stringTable.find(text); found != stringTable.end())
        return found->second;
    strings.emplace_back(text);
    const uint64_t index = strings.size() - 1;
    stringTable.emplace(std::string_view(strings.back()), index);
    return index;
}

std::string ESCDisassemble(const ESCByteCode& byteCode) {
    std::string text = "code:\n";
    const auto& instructions = byteCode.GetInstructions();
    for (size_t i = 0; i < instructions.size(); ++i) {
        const ESCByteCodeInstruction& instruction = instructions[i];
        const char* name = Mnemonic(instruction.code);
        std::string line = name ? fmt::format("{:4}  {:<6} {}", i, name, Operands(byteCode, instruction))
                                : fmt::format("{:4}  code {}", i, static_cast<unsigned>(instruction.code));
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        text += line;
        text += '\n';
    }
    text += "strings:\n";
    const auto& strings = byteCode.GetStrings();
    for (size_t i = 0; i < strings.size(); ++i)
        text += fmt::format("{:4}  {}\n", i, Quote(strings[i]));
    return text;
}

} // namespace nrq
