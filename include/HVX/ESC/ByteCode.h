#pragma once

#include "HVX/Base/StringUtil.h"
#include "HVX/ESC/String.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace nrq {

// Operation codes of the byte code. The numbers are fixed.
enum class ESCOpCode : uint16_t {
    Malformed = 0,      // never emitted
    OutputRegister = 1, // register
    OutputString = 2,   // string
    EndLine = 3,        // none: line feed, then flush the line
    LoadInt = 4,        // load
    LoadFloat = 5,      // load, the bits of a double
    LoadString = 6,     // load, a pool index
    LoadNil = 7,        // register; never emitted
    LoadFrequency = 8,  // load, the bits of a double in hertz
    ReadVariable = 9,   // load, the name's pool index
    WriteVariable = 10, // load, the name's pool index, from the register
    Band = 11,          // three-register from here to Xor
    Bor = 12,
    Bxor = 13,
    Add = 14,
    Sub = 15,
    Mul = 16,
    Div = 17,
    IDiv = 18,
    Eq = 19,
    Neq = 20,
    Gt = 21,
    Lt = 22,
    Gte = 23,
    Lte = 24,
    And = 25,
    Or = 26,
    Xor = 27,
    Not = 28,           // two-register
    Neg = 29,           // two-register
    Call = 30,          // call
    Nop = 31,           // never emitted
};

enum class ESCBuiltin : uint16_t {
    None = 0,
    TypeOf = 1,
    ReadOutput = 2,
};

// One instruction: a 16-bit code and ten operand bytes, 12 bytes in all.
// Operands are stored at fixed byte offsets and read with memcpy, so the
// record needs no alignment beyond its code. Bytes outside the form are zero.
struct ESCByteCodeInstruction {
    ESCOpCode code = ESCOpCode::Malformed;
    uint8_t operands[10] = {};

    static ESCByteCodeInstruction None(ESCOpCode code) { return ESCByteCodeInstruction{code}; }
    static ESCByteCodeInstruction String(ESCOpCode code, uint64_t index) {
        ESCByteCodeInstruction instruction{code};
        instruction.Put(0, index);
        return instruction;
    }
    static ESCByteCodeInstruction Register(ESCOpCode code, uint16_t reg) {
        ESCByteCodeInstruction instruction{code};
        instruction.Put(0, reg);
        return instruction;
    }
    static ESCByteCodeInstruction Load(ESCOpCode code, uint16_t destination, uint64_t immediate) {
        ESCByteCodeInstruction instruction{code};
        instruction.Put(0, destination);
        instruction.Put(2, immediate);
        return instruction;
    }
    static ESCByteCodeInstruction ThreeRegister(ESCOpCode code, uint16_t destination, uint16_t left,
                                                uint16_t right) {
        ESCByteCodeInstruction instruction{code};
        instruction.Put(0, destination);
        instruction.Put(2, left);
        instruction.Put(4, right);
        return instruction;
    }
    static ESCByteCodeInstruction TwoRegister(ESCOpCode code, uint16_t destination, uint16_t source) {
        ESCByteCodeInstruction instruction{code};
        instruction.Put(0, destination);
        instruction.Put(2, source);
        return instruction;
    }
    static ESCByteCodeInstruction Call(uint16_t destination, ESCBuiltin builtin, uint16_t first,
                                       uint16_t count) {
        ESCByteCodeInstruction instruction{ESCOpCode::Call};
        instruction.Put(0, destination);
        instruction.Put(2, static_cast<uint16_t>(builtin));
        instruction.Put(4, first);
        instruction.Put(6, count);
        return instruction;
    }

    // Readers by form. The first 16-bit operand is the register of the
    // register form and the destination of every other register form.
    uint64_t StringIndex() const { return Get<uint64_t>(0); }
    uint16_t Destination() const { return Get<uint16_t>(0); }
    uint64_t Immediate() const { return Get<uint64_t>(2); }
    uint16_t Left() const { return Get<uint16_t>(2); }
    uint16_t Right() const { return Get<uint16_t>(4); }
    uint16_t Source() const { return Get<uint16_t>(2); }
    ESCBuiltin Builtin() const { return static_cast<ESCBuiltin>(Get<uint16_t>(2)); }
    uint16_t FirstArgument() const { return Get<uint16_t>(4); }
    uint16_t ArgumentCount() const { return Get<uint16_t>(6); }

    template <class T>
    T Get(size_t offset) const {
        T value;
        std::memcpy(&value, operands + offset, sizeof(T));
        return value;
    }
    template <class T>
    void Put(size_t offset, T value) {
        std::memcpy(operands + offset, &value, sizeof(T));
    }

    friend bool operator==(const ESCByteCodeInstruction& a, const ESCByteCodeInstruction& b) {
        return a.code == b.code && std::memcmp(a.operands, b.operands, sizeof(a.operands)) == 0;
    }
};

static_assert(sizeof(ESCByteCodeInstruction) == 12);

// A compiled script: instructions run first to last, and a pool of strings
// in which equal strings share one index.
class ESCByteCode {
public:
    ESCByteCode();
    // The table's keys view the copy's own strings.
    ESCByteCode(const ESCByteCode& other);
    ESCByteCode& operator=(const ESCByteCode& other);
    ESCByteCode(ESCByteCode&&) noexcept = default;
    ESCByteCode& operator=(ESCByteCode&&) noexcept = default;

    void AddInstruction(const ESCByteCodeInstruction& instruction) { instructions.push_back(instruction); }
    uint64_t AddString(std::string_view text);

    const std::vector<ESCByteCodeInstruction>& GetInstructions() const { return instructions; }
    const std::vector<ESCString>& GetStrings() const { return strings; }

private:
    void RebuildTable();

    std::vector<ESCByteCodeInstruction> instructions;
    std::vector<ESCString> strings;
    std::unordered_map<std::string_view, uint64_t, string_hash> stringTable;
};

// A readable listing of the instructions and the string pool.
std::string ESCDisassemble(const ESCByteCode& byteCode);

} // namespace nrq
