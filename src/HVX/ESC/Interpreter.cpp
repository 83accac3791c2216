#include "HVX/ESC/Interpreter.h"

#include "HVX/Base/Error.h"
#include "HVX/ESC/Compiler.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>

namespace nrq {
namespace {

constexpr size_t initialBuckets = 16;

// Indices of the alternatives, for switching on pairs of them.
constexpr size_t integer = 1;
constexpr size_t floating = 2;
constexpr size_t frequency = 4;
constexpr size_t string = 5;

constexpr size_t Pair(size_t left, size_t right) { return left * 16 + right; }

size_t PairOf(const ESCVariant& left, const ESCVariant& right) { return Pair(left.index(), right.index()); }

// Integer arithmetic wraps around instead of overflowing.
int64_t Wrap(uint64_t value) { return static_cast<int64_t>(value); }
uint64_t Bits(int64_t value) { return static_cast<uint64_t>(value); }

int64_t I(const ESCVariant& value) { return *std::get_if<int64_t>(&value); }
double F(const ESCVariant& value) { return *std::get_if<double>(&value); }
double Q(const ESCVariant& value) { return std::get_if<Frequency>(&value)->Hz(); }
double IorF(const ESCVariant& value) {
    return value.index() == integer ? static_cast<double>(I(value)) : F(value);
}
int64_t Truth(bool value) { return value ? 1 : 0; }

[[noreturn]] void BinaryError(std::string_view operation, const ESCVariant& left, const ESCVariant& right,
                              std::string_view tail = {}) {
    throw Error(fmt::format("Script Error: Cannot perform {} on '{}' and '{}'{}", operation, ESCTypeName(left),
                            ESCTypeName(right), tail));
}

} // namespace

ESCInterpreter::ESCInterpreter() : variables(initialBuckets) { variables.max_load_factor(1.0f); }

void ESCInterpreter::Run(const ESCByteCode& code) {
    struct Reset {
        const ESCByteCode*& pointer;
        ~Reset() { pointer = nullptr; }
    } reset{byteCode};
    byteCode = &code;
    for (const ESCByteCodeInstruction& instruction : code.GetInstructions())
        Interpret(instruction);
}

void ESCInterpreter::Run(std::string_view script) {
    const ESCByteCode code = ESCCompiler().Compile(script);
    Run(code);
}

ESCVariant ESCInterpreter::GetVariable(std::string_view name) const {
    const auto found = variables.find(name);
    if (found == variables.end())
        return Nil{};
    if (found->second.valueless_by_exception())
        throw Error("A fatal error occurred when trying to obtain a setting value.");
    return found->second;
}

void ESCInterpreter::SetVariable(std::string_view name, const ESCVariant& value) {
    if (const auto found = variables.find(name); found != variables.end())
        found->second = value;
    else
        variables.emplace(std::string(name), value);
}

void ESCInterpreter::ClearVariables() { variables.clear(); }

std::string ESCInterpreter::GetOutput() {
    std::string text(output.view());
    // Emptied in place: the buffer's capacity serves the next lines.
    std::string buffer = std::move(output).str();
    buffer.clear();
    output.str(std::move(buffer));
    return text;
}

void ESCInterpreter::Interpret(const ESCByteCodeInstruction& in) {
    switch (in.code) {
    case ESCOpCode::Malformed:
        throw Error("Encountered malformed instruction 00");
    case ESCOpCode::OutputRegister:
        Output(GetStackValue(in.Destination()));
        return;
    case ESCOpCode::OutputString:
        Output(std::string_view(GetDataString(in.StringIndex())));
        return;
    case ESCOpCode::EndLine:
        Output(std::string_view("\n"));
        Flush();
        return;
    case ESCOpCode::LoadInt:
        SetStackValue(in.Destination(), ESCVariant(static_cast<int64_t>(in.Immediate())));
        return;
    case ESCOpCode::LoadFloat:
        SetStackValue(in.Destination(), ESCVariant(std::bit_cast<double>(in.Immediate())));
        return;
    case ESCOpCode::LoadString:
        SetStackValue(in.Destination(), ESCVariant(GetDataString(in.Immediate())));
        return;
    case ESCOpCode::LoadNil:
        SetStackValue(in.Destination(), ESCVariant(Nil{}));
        return;
    case ESCOpCode::LoadFrequency:
        SetStackValue(in.Destination(), ESCVariant(Frequency(std::bit_cast<double>(in.Immediate()))));
        return;
    case ESCOpCode::ReadVariable:
        SetStackValue(in.Destination(), GetVariable(GetDataString(in.Immediate())));
        return;
    case ESCOpCode::WriteVariable: {
        const ESCString& name = GetDataString(in.Immediate());
        SetVariable(name, GetStackValue(in.Destination()));
        return;
    }
    case ESCOpCode::Band: Band(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Bor: Bor(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Bxor: Bxor(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Add: Add(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Sub: Sub(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Mul: Mul(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Div: Div(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::IDiv: IDiv(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Eq: Eq(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Neq: Neq(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Gt: Gt(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Lt: Lt(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Gte: Gte(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Lte: Lte(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::And: And(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Or: Or(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Xor: Xor(in.Destination(), in.Left(), in.Right()); return;
    case ESCOpCode::Not: Not(in.Destination(), in.Source()); return;
    case ESCOpCode::Neg: Neg(in.Destination(), in.Source()); return;
    case ESCOpCode::Call:
        CallBuiltin(in.Builtin(), in.Destination(), in.FirstArgument(), in.ArgumentCount());
        return;
    case ESCOpCode::Nop:
        return;
    }
    throw Error(fmt::format("Unexpected instruction code ({})", static_cast<unsigned>(in.code)));
}

const ESCVariant& ESCInterpreter::GetStackValue(uint16_t index) {
    if (index >= stack.size())
        stack.resize(size_t(index) + 1);
    return stack[index];
}

void ESCInterpreter::SetStackValue(uint16_t index, const ESCVariant& value) {
    SetStackValue(index, ESCVariant(value));
}

void ESCInterpreter::SetStackValue(uint16_t index, ESCVariant&& value) {
    if (value.valueless_by_exception())
        throw Error("A fatal error occurred when trying to set a stack value");
    if (index >= stack.size()) {
        // An empty register reads as Nil anyway.
        if (ESCIsNil(value))
            return;
        stack.resize(size_t(index) + 1);
    }
    stack[index] = std::move(value);
}

void ESCInterpreter::ClearStack() { std::fill(stack.begin(), stack.end(), ESCVariant(Nil{})); }

const ESCString& ESCInterpreter::GetDataString(uint64_t index) const {
    const std::vector<ESCString>& strings = byteCode->GetStrings();
    if (index >= strings.size())
        throw Error("Encountered unexpected string index");
    return strings[index];
}

namespace {

// What a standard stream with its default settings prints for a double: the
// general format with six significant digits, as printf's "%g" does.
// The string streams are written through their buffers: a stream's sentry
// checks nothing that a string stream could fail.
void Write(std::ostringstream& stream, std::string_view text) {
    stream.rdbuf()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

void WriteNumber(std::ostringstream& stream, double value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value, std::chars_format::general, 6);
    Write(stream, std::string_view(buffer, static_cast<size_t>(result.ptr - buffer)));
}

void WriteNumber(std::ostringstream& stream, int64_t value) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    Write(stream, std::string_view(buffer, static_cast<size_t>(result.ptr - buffer)));
}

} // namespace

void ESCInterpreter::Output(const ESCVariant& value) {
    switch (value.index()) {
    case 1: WriteNumber(line, std::get<int64_t>(value)); return;
    case 2: WriteNumber(line, std::get<double>(value)); return;
    case 3: WriteNumber(line, static_cast<double>(std::get<DecibelMilliwatts>(value).dBm())); return;
    case 4: WriteNumber(line, std::get<Frequency>(value).Hz()); return;
    case 5: Output(std::string_view(std::get<ESCString>(value))); return;
    case 0:
    case 6:
    case 7:
        // A line that should hold a value it can't print is dropped whole.
        discardLine = true;
        return;
    default:
        break;
    }
    throw Error(fmt::format("Failed to output unrecognized type: {}", value.index()));
}

void ESCInterpreter::Output(std::string_view text) { Write(line, text); }

void ESCInterpreter::Flush() {
    line.flush();
    if (!discardLine)
        Write(output, line.view());
    // Emptied in place, so that the next line reuses the buffer.
    std::string buffer = std::move(line).str();
    buffer.clear();
    line.str(std::move(buffer));
    discardLine = false;
}

void ESCInterpreter::CallBuiltin(ESCBuiltin builtin, uint16_t destination, uint16_t first, uint16_t) {
    switch (builtin) {
    case ESCBuiltin::TypeOf: {
        ESCString name(ESCTypeName(GetStackValue(first)));
        SetStackValue(destination, ESCVariant(std::move(name)));
        return;
    }
    case ESCBuiltin::ReadOutput:
        throw Error("function read_output is not supported");
    default:
        break;
    }
    Assert(false, "Tried to call unknown built-in function");
}

void ESCInterpreter::Add(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    const ESCVariant& l = stack[left];
    const ESCVariant& r = stack[right];
    ESCVariant result;
    switch (PairOf(l, r)) {
    case Pair(integer, integer): result = Wrap(Bits(I(l)) + Bits(I(r))); break;
    case Pair(integer, floating):
    case Pair(floating, integer):
    case Pair(floating, floating): result = IorF(l) + IorF(r); break;
    case Pair(frequency, frequency): result = Frequency(Q(l) + Q(r)); break;
    case Pair(string, string): result = std::get<ESCString>(l) + std::get<ESCString>(r); break;
    default: BinaryError("add", l, r);
    }
    SetStackValue(destination, std::move(result));
}

void ESCInterpreter::Sub(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    const ESCVariant& l = stack[left];
    const ESCVariant& r = stack[right];
    ESCVariant result;
    switch (PairOf(l, r)) {
    case Pair(integer, integer): result = Wrap(Bits(I(l)) - Bits(I(r))); break;
    case Pair(integer, floating):
    case Pair(floating, integer):
    case Pair(floating, floating): result = IorF(l) - IorF(r); break;
    case Pair(frequency, frequency): result = Frequency(Q(l) - Q(r)); break;
    // The difference of the two strings' truth, -1, 0 or 1.
    case Pair(string, string):
        result = Truth(static_cast<bool>(std::get<ESCString>(l))) - Truth(static_cast<bool>(std::get<ESCString>(r)));
        break;
    default: BinaryError("subtract", l, r);
    }
    SetStackValue(destination, std::move(result));
}

void ESCInterpreter::Mul(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    const ESCVariant& l = stack[left];
    const ESCVariant& r = stack[right];
    ESCVariant result;
    switch (PairOf(l, r)) {
    case Pair(integer, integer): result = Wrap(Bits(I(l)) * Bits(I(r))); break;
    case Pair(integer, floating):
    case Pair(floating, integer):
    case Pair(floating, floating): result = IorF(l) * IorF(r); break;
    case Pair(integer, frequency):
    case Pair(floating, frequency): result = Frequency(IorF(l) * Q(r)); break;
    case Pair(frequency, integer):
    case Pair(frequency, floating): result = Frequency(Q(l) * IorF(r)); break;
    case Pair(frequency, frequency):
        BinaryError("multiply", l, r, ". Frequency values can only be multiplied by unitless values.");
    default: BinaryError("multiply", l, r);
    }
    SetStackValue(destination, std::move(result));
}

void ESCInterpreter::Div(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    const ESCVariant& l = stack[left];
    const ESCVariant& r = stack[right];
    ESCVariant result;
    switch (PairOf(l, r)) {
    case Pair(integer, integer): result = IorF(l) / IorF(r); break;
    case Pair(frequency, integer):
    case Pair(frequency, floating): result = Frequency(Q(l) / IorF(r)); break;
    case Pair(frequency, frequency): result = Q(l) / Q(r); break;
    // These three multiply: the language has always done so, and scripts
    // in the field are written against it.
    case Pair(integer, floating):
    case Pair(floating, integer):
    case Pair(floating, floating): result = IorF(l) * IorF(r); break;
    default: BinaryError("divide", l, r);
    }
    SetStackValue(destination, std::move(result));
}

void ESCInterpreter::IDiv(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    const ESCVariant& l = stack[left];
    const ESCVariant& r = stack[right];
    if (PairOf(l, r) != Pair(integer, integer))
        BinaryError("integer divide", l, r);
    const int64_t dividend = I(l);
    const int64_t divisor = I(r);
    // The two cases that trap on x86 get what AArch64's sdiv gives them.
    int64_t quotient;
    if (divisor == 0)
        quotient = 0;
    else if (divisor == -1)
        quotient = Wrap(0 - Bits(dividend));
    else
        quotient = dividend / divisor;
    SetStackValue(destination, ESCVariant(quotient));
}

namespace {

template <class Operation>
ESCVariant BitOperation(const ESCVariant& l, const ESCVariant& r, Operation operation) {
    Assert(PairOf(l, r) == Pair(integer, integer), "Cannot perform bit operations on non-Integer types");
    return ESCVariant(static_cast<int64_t>(operation(I(l), I(r))));
}

} // namespace

void ESCInterpreter::Band(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    SetStackValue(destination, BitOperation(stack[left], stack[right], [](int64_t a, int64_t b) { return a & b; }));
}

void ESCInterpreter::Bor(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    SetStackValue(destination, BitOperation(stack[left], stack[right], [](int64_t a, int64_t b) { return a | b; }));
}

void ESCInterpreter::Bxor(uint16_t destination, uint16_t left, uint16_t right) {
    GetStackValue(std::max(left, right));
    SetStackValue(destination, BitOperation(stack[left], stack[right], [](int64_t a, int64_t b) { return a ^ b; }));
}

bool ESCInterpreter::IsEqual(const ESCVariant& left, const ESCVariant& right) {
    if (left.index() != right.index())
        return false;
    switch (left.index()) {
    case integer: return I(left) == I(right);
    case floating: return F(left) == F(right);
    case frequency: return Q(left) == Q(right);
    case string: return std::get<ESCString>(left) == std::get<ESCString>(right);
    // Nil, Automatic, Unset, and amplitudes whatever their numbers.
    default: return true;
    }
}

bool ESCInterpreter::IsLess(const ESCVariant& left, const ESCVariant& right) {
    switch (PairOf(left, right)) {
    case Pair(integer, integer): return I(left) < I(right);
    case Pair(integer, floating):
    case Pair(floating, integer):
    case Pair(floating, floating): return IorF(left) < IorF(right);
    case Pair(frequency, frequency): return Q(left) < Q(right);
    default: BinaryError("numerical comparison", left, right);
    }
}

bool ESCInterpreter::IsLessOrEqual(const ESCVariant& left, const ESCVariant& right) {
    switch (PairOf(left, right)) {
    case Pair(integer, integer): return I(left) <= I(right);
    case Pair(integer, floating):
    case Pair(floating, integer):
    case Pair(floating, floating): return IorF(left) <= IorF(right);
    case Pair(frequency, frequency): return Q(left) <= Q(right);
    default: BinaryError("numerical comparison", left, right);
    }
}

#define HVX_ESC_COMPARE(NAME, EXPRESSION)                                                    \
    void ESCInterpreter::NAME(uint16_t destination, uint16_t left, uint16_t right) {        \
        GetStackValue(std::max(left, right));                                               \
        const ESCVariant& l = stack[left];                                                  \
        const ESCVariant& r = stack[right];                                                 \
        SetStackValue(destination, ESCVariant(Truth(EXPRESSION)));                          \
    }

HVX_ESC_COMPARE(Eq, IsEqual(l, r))
HVX_ESC_COMPARE(Neq, !IsEqual(l, r))
HVX_ESC_COMPARE(Lt, IsLess(l, r))
HVX_ESC_COMPARE(Lte, IsLessOrEqual(l, r))
HVX_ESC_COMPARE(Gte, !IsLess(l, r))
HVX_ESC_COMPARE(Gt, !IsLessOrEqual(l, r))
// Both operands are computed already; the right one is only not looked at.
HVX_ESC_COMPARE(And, ESCTruthy(l) && ESCTruthy(r))
HVX_ESC_COMPARE(Or, ESCTruthy(l) || ESCTruthy(r))
HVX_ESC_COMPARE(Xor, ESCTruthy(l) != ESCTruthy(r))

#undef HVX_ESC_COMPARE

void ESCInterpreter::Not(uint16_t destination, uint16_t source) {
    SetStackValue(destination, ESCVariant(Truth(!ESCTruthy(GetStackValue(source)))));
}

void ESCInterpreter::Neg(uint16_t destination, uint16_t source) {
    const ESCVariant& value = GetStackValue(source);
    switch (value.index()) {
    case integer: SetStackValue(destination, ESCVariant(Wrap(0 - Bits(I(value))))); return;
    case floating: SetStackValue(destination, ESCVariant(-F(value))); return;
    default: break;
    }
    throw Error(fmt::format("Script Error: Cannot perform negate on '{}'", ESCTypeName(value)));
}

} // namespace nrq
