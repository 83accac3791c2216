#pragma once

#include "HVX/ESC/ByteCode.h"
#include "HVX/ESC/Variant.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nrq {

// Turns S1 scripts into byte code. Keeps nothing between compiles.
class ESCCompiler {
public:
    struct BuiltinInfo {
        ESCBuiltin builtin;
        uint16_t minArguments;
        uint16_t maxArguments;
    };

    // Scripts whose expression blocks hold more tokens than this are refused
    // with an Error: the parser descends once per token at worst, and the
    // stack it may use is finite.
    static constexpr size_t maxBlockTokens = 1000;

    ESCByteCode Compile(std::string_view script);
    // Appends the script's code to what `byteCode` holds.
    ESCByteCode& Compile(ESCByteCode& byteCode, std::string_view script);

    // The built-in function of that name, or null.
    static const BuiltinInfo* FindBuiltin(std::string_view name);
};

// A syntax error as the parser reports it; the line counts from 1, the
// column from 0 in characters, as ANTLR has them.
struct ESCSyntaxError {
    size_t line = 0;
    size_t column = 0;
    std::string message;
};

// The syntax errors of a script, for tools that show them to its author;
// compiling itself only logs them.
std::vector<ESCSyntaxError> ESCCheckSyntax(std::string_view script);

// S1 source text that means the same value.
std::string ESCConvertVariantToSyntax(const ESCVariant& value);

// The value of that type that the whole text spells, or Nil.
ESCVariant ESCFromStringConversion(ESCVariantType type, std::string_view text);

} // namespace nrq
