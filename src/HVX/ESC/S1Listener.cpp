#include "S1Listener.h"

#include "HVX/Base/Log.h"

namespace nrq {
namespace {

// A log that fails to write must not unwind through ANTLR's recognizers.
template <class F>
void Quietly(F write) noexcept {
    try {
        write();
    } catch (...) {
    }
}

} // namespace

void S1Listener::syntaxError(antlr4::Recognizer*, antlr4::Token*, size_t, size_t, const std::string& msg,
                             std::exception_ptr) {
    Quietly([&] { Log::Error(msg); });
}

void S1Listener::reportAmbiguity(antlr4::Parser*, const antlr4::dfa::DFA&, size_t, size_t, bool,
                                 const antlrcpp::BitSet&, antlr4::atn::ATNConfigSet*) {
    Quietly([] { Log::Warn("ambiguity"); });
}

void S1Listener::reportAttemptingFullContext(antlr4::Parser*, const antlr4::dfa::DFA&, size_t, size_t,
                                             const antlrcpp::BitSet&, antlr4::atn::ATNConfigSet*) {
    Quietly([] { Log::Warn("attempting full context"); });
}

void S1Listener::reportContextSensitivity(antlr4::Parser*, const antlr4::dfa::DFA&, size_t, size_t, size_t,
                                          antlr4::atn::ATNConfigSet*) {
    Quietly([] { Log::Warn("context sensitivity"); });
}

} // namespace nrq
