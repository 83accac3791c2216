#pragma once

#include "HVX/Base/StringUtil.h"
#include "HVX/ESC/ByteCode.h"
#include "HVX/ESC/Variant.h"

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace nrq {

// Runs S1 byte code and collects the lines it prints. Variables and the
// register stack survive between runs: setup scripts feed later scripts.
class ESCInterpreter {
public:
    ESCInterpreter();

    void Run(const ESCByteCode& byteCode);
    // Compiles with a fresh compiler, runs, and drops the byte code.
    void Run(std::string_view script);

    // Nil when there is no such variable.
    ESCVariant GetVariable(std::string_view name) const;
    // Setting Nil keeps the entry, which then reads as Nil.
    void SetVariable(std::string_view name, const ESCVariant& value);
    void ClearVariables();

    // All finished lines so far; empties the output.
    std::string GetOutput();

private:
    void Interpret(const ESCByteCodeInstruction& instruction);

    const ESCVariant& GetStackValue(uint16_t index);
    void SetStackValue(uint16_t index, const ESCVariant& value);
    void SetStackValue(uint16_t index, ESCVariant&& value);
    void ClearStack();
    const ESCString& GetDataString(uint64_t index) const;

    void Output(const ESCVariant& value);
    void Output(std::string_view text);
    void Flush();
    void CallBuiltin(ESCBuiltin builtin, uint16_t destination, uint16_t first, uint16_t count);

    void Add(uint16_t destination, uint16_t left, uint16_t right);
    void Sub(uint16_t destination, uint16_t left, uint16_t right);
    void Mul(uint16_t destination, uint16_t left, uint16_t right);
    void Div(uint16_t destination, uint16_t left, uint16_t right);
    void IDiv(uint16_t destination, uint16_t left, uint16_t right);
    void Band(uint16_t destination, uint16_t left, uint16_t right);
    void Bor(uint16_t destination, uint16_t left, uint16_t right);
    void Bxor(uint16_t destination, uint16_t left, uint16_t right);
    void Eq(uint16_t destination, uint16_t left, uint16_t right);
    void Neq(uint16_t destination, uint16_t left, uint16_t right);
    void Gt(uint16_t destination, uint16_t left, uint16_t right);
    void Lt(uint16_t destination, uint16_t left, uint16_t right);
    void Gte(uint16_t destination, uint16_t left, uint16_t right);
    void Lte(uint16_t destination, uint16_t left, uint16_t right);
    void And(uint16_t destination, uint16_t left, uint16_t right);
    void Or(uint16_t destination, uint16_t left, uint16_t right);
    void Xor(uint16_t destination, uint16_t left, uint16_t right);
    void Not(uint16_t destination, uint16_t source);
    void Neg(uint16_t destination, uint16_t source);

    static bool IsEqual(const ESCVariant& left, const ESCVariant& right);
    static bool IsLess(const ESCVariant& left, const ESCVariant& right);
    static bool IsLessOrEqual(const ESCVariant& left, const ESCVariant& right);

    std::unordered_map<std::string, ESCVariant, string_hash, std::equal_to<>> variables;
    std::vector<ESCVariant> stack;
    std::ostringstream output;
    std::ostringstream line;
    const ESCByteCode* byteCode = nullptr;
    bool discardLine = false;
};

} // namespace nrq
