#pragma once

#include "antlr4-runtime.h"

namespace nrq {

// Sends the lexer's and parser's complaints to the log and never throws, so
// that compiling goes on with what ANTLR's recovery leaves.
class S1Listener : public antlr4::ANTLRErrorListener {
public:
    void syntaxError(antlr4::Recognizer* recognizer, antlr4::Token* offendingSymbol, size_t line,
                     size_t charPositionInLine, const std::string& msg, std::exception_ptr e) override;
    void reportAmbiguity(antlr4::Parser* recognizer, const antlr4::dfa::DFA& dfa, size_t startIndex,
                         size_t stopIndex, bool exact, const antlrcpp::BitSet& ambigAlts,
                         antlr4::atn::ATNConfigSet* configs) override;
    void reportAttemptingFullContext(antlr4::Parser* recognizer, const antlr4::dfa::DFA& dfa,
                                     size_t startIndex, size_t stopIndex,
                                     const antlrcpp::BitSet& conflictingAlts,
                                     antlr4::atn::ATNConfigSet* configs) override;
    void reportContextSensitivity(antlr4::Parser* recognizer, const antlr4::dfa::DFA& dfa,
                                  size_t startIndex, size_t stopIndex, size_t prediction,
                                  antlr4::atn::ATNConfigSet* configs) override;
};

} // namespace nrq
