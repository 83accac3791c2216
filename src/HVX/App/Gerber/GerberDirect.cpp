// Plain drawings - units, format, circle and polygon apertures, comments,
// moves, lines, arcs and flashes - make up most large files, and the
// generated lexer and parser cost several times what drawing them does. This
// reader takes such files in one pass over the bytes. It cuts each token as
// the lexer's longest-match rules would and accepts each command only in the
// form the grammar parses without error, so its result is the general
// path's. At the first thing outside that repertoire, valid or not, it gives
// up without a trace and leaves the file to the general path, whose error
// reports and recovery are the ones that count.
#include "GerberProcessing.h"

#include <cstring>
#include <exception>

namespace nrq::gerber_impl {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLetterOrDot(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.'; }
bool IsNameChar(char c) { return IsLetterOrDot(c) || IsDigit(c); }

class DirectReader {
public:
    DirectReader(GerberProcessState& state, std::string_view text)
        : state(state), begin(text.data()), at(text.data()), end(text.data() + text.size()) {}

    // False at the first thing outside the repertoire.
    bool ReadFile() {
        const OutputSizes start = SizesOf(state.out);
        bool estimated = false;
        for (;;) {
            SkipNewlines();
            if (at == end)
                return false; // no M02
            if (Literal("M02*")) {
                SkipNewlines();
                return at == end;
            }
            if (!ReadCommand())
                return false;
            // A quarter megabyte of text is enough to extrapolate from.
            if (!estimated && at - begin >= (1 << 18)) {
                estimated = true;
                ReserveForRest(state.out, start, static_cast<size_t>(at - begin), static_cast<size_t>(end - begin));
            }
        }
    }

    // The conversion's first error; the commands behind it are only checked.
    std::exception_ptr failure;

private:
    GerberProcessState& state;
    const char* const begin;
    const char* at;
    const char* const end;

    // Line ends between tokens are skipped in every mode this reader meets.
    void SkipNewlines() {
        while (at != end && (*at == '\n' || *at == '\r'))
            ++at;
    }

    bool Literal(std::string_view literal) {
        if (static_cast<size_t>(end - at) < literal.size() || std::memcmp(at, literal.data(), literal.size()) != 0)
            return false;
        at += literal.size();
        return true;
    }

    // The token at `at`, if it is this single character; line ends before it skipped.
    bool Token(char c) {
        SkipNewlines();
        if (at == end || *at != c)
            return false;
        ++at;
        return true;
    }

    template <class Step>
    void Process(Step&& step) {
        if (failure)
            return;
        try {
            step();
        } catch (...) {
            failure = std::current_exception();
        }
    }

    bool ReadCommand() {
        switch (*at) {
        case 'X': case 'Y': case 'I': case 'J':
            return ReadOperation();
        case 'D':
            return OperationCodeAhead() ? ReadOperation() : ReadApertureSelection();
        case 'G':
            return ReadGCode();
        case '%':
            return ReadExtended();
        default:
            return false;
        }
    }

    // D01*, D02* and D03* are tokens of their own, longer than a D-code.
    bool OperationCodeAhead() const {
        return end - at >= 4 && at[0] == 'D' && at[1] == '0' && at[2] >= '1' && at[2] <= '3' && at[3] == '*';
    }

    const char* DigitsFrom(const char* p) const {
        while (p != end && IsDigit(*p))
            ++p;
        return p;
    }

    // The end of [+-]? [0-9]+ from p, as long as it goes; null if there is none.
    const char* SignedDigitsFrom(const char* p) const {
        if (p != end && (*p == '+' || *p == '-'))
            ++p;
        const char* digits = p;
        p = DigitsFrom(p);
        return p == digits ? nullptr : p;
    }

    // '.' [0-9]+ at p.
    bool FractionAt(const char* p) const { return p != end && *p == '.' && p + 1 != end && IsDigit(p[1]); }

    // The token from `at` to `stop`.
    bool Take(const char* stop, std::string_view& text) {
        text = std::string_view(at, static_cast<size_t>(stop - at));
        at = stop;
        return true;
    }

    // 'D' '0'* [1-9] [0-9]*, as long as it goes.
    bool DCode(std::string_view& text) {
        if (at == end || *at != 'D')
            return false;
        const char* p = at + 1;
        while (p != end && *p == '0')
            ++p;
        if (p == end || *p < '1' || *p > '9')
            return false;
        return Take(DigitsFrom(p), text);
    }

    // INTEGER: [+-]? [0-9]+.
    bool Integer(std::string_view& text) {
        SkipNewlines();
        const char* stop = SignedDigitsFrom(at);
        return stop && Take(stop, text);
    }

    // The coordinate mode's DECIMAL: [+-]? [0-9]+ ('.' [0-9]+)? | '.' [0-9]+.
    bool Decimal(std::string_view& text) {
        SkipNewlines();
        if (const char* stop = SignedDigitsFrom(at))
            return Take(FractionAt(stop) ? DigitsFrom(stop + 2) : stop, text);
        return FractionAt(at) && Take(DigitsFrom(at + 2), text);
    }

    // One axis letter and its INTEGER, if the letter is next.
    bool Coordinate(char axis, OperationText& operation, bool& present, bool& ok) {
        SkipNewlines();
        if (at == end || *at != axis)
            return false;
        ++at;
        present = true;
        std::string_view text;
        ok = Integer(text);
        if (ok)
            operation.integers[operation.integerCount++] = text;
        return true;
    }

    // (X INTEGER)? (Y INTEGER)? (I INTEGER J INTEGER)? then D01*, D02* or D03*;
    // I and J only before D01*. `code` is the operation's digit.
    bool Operation(OperationText& operation, char& code) {
        bool ok = true;
        if (Coordinate('X', operation, operation.x, ok) && !ok)
            return false;
        if (Coordinate('Y', operation, operation.y, ok) && !ok)
            return false;
        if (Coordinate('I', operation, operation.i, ok)) {
            bool j = false;
            if (!ok || !Coordinate('J', operation, j, ok) || !ok)
                return false;
        }
        SkipNewlines();
        if (!OperationCodeAhead())
            return false;
        code = at[2];
        at += 4;
        return code == '1' || !operation.i;
    }

    bool ReadOperation() {
        OperationText operation;
        char code = 0;
        if (!Operation(operation, code))
            return false;
        Process([&] {
            if (code == '1') {
                ProcessOperationD01(state, operation);
            } else {
                MoveCurrentPoint(state, operation);
                if (code == '3')
                    Flash(state);
            }
        });
        return true;
    }

    // DCODE ASTERISK.
    bool ReadApertureSelection() {
        std::string_view dcode;
        if (!DCode(dcode) || !Token('*'))
            return false;
        Process([&] { SelectAperture(state, &dcode); });
        return true;
    }

    bool ReadGCode() {
        if (end - at >= 3 && at[1] == '0' && at[2] == '4')
            return ReadComment();
        const char* start = at;
        if (Literal("G01*") || Literal("G02*") || Literal("G03*")) {
            const int mode = start[2] - '0';
            Process([&] { state.interpolationMode = mode; });
            return true;
        }
        if (Literal("G75*")) {
            Process([&] { IgnoreCommand("G75*"); });
            return true;
        }
        if (Literal("G36*"))
            return ReadRegion();
        return false;
    }

    // 'G04' ~[%*]* '*'; text other than ASCII is left to the decoding path.
    bool ReadComment() {
        const char* p = at + 3;
        while (p != end && *p != '*' && *p != '%' && static_cast<unsigned char>(*p) < 0x80)
            ++p;
        if (p == end || *p != '*')
            return false;
        const std::string_view token(at, static_cast<size_t>(p + 1 - at));
        at = p + 1;
        Process([&] { ProcessComment(token); });
        return true;
    }

    // G36* contour+ G37*, each contour a D02 operation followed by D01
    // operations and interpolation modes. Only the region's start is acted on.
    bool ReadRegion() {
        bool inContour = false;
        for (;;) {
            SkipNewlines();
            if (Literal("G37*"))
                break;
            if (Literal("G01*") || Literal("G02*") || Literal("G03*")) {
                if (!inContour)
                    return false;
                continue;
            }
            OperationText operation;
            char code = 0;
            if (!Operation(operation, code) || code == '3' || (code == '1' && !inContour))
                return false;
            inContour = true;
        }
        if (!inContour)
            return false;
        Process([&] { IgnoreCommand("G36*"); });
        return true;
    }

    bool ReadExtended() {
        const char* start = at;
        if (Literal("%MOMM*%") || Literal("%MOIN*%")) {
            Process([&] { ProcessUnit(state, std::string_view(start, 7)); });
            return true;
        }
        if (Literal("%FSLAX")) {
            if (end - at < 7 || !IsDigit(at[0]) || !IsDigit(at[1]) || at[2] != 'Y' || !IsDigit(at[3]) ||
                !IsDigit(at[4]) || at[5] != '*' || at[6] != '%')
                return false;
            at += 7;
            Process([&] { ProcessFormat(state, std::string_view(start, 13)); });
            return true;
        }
        if (Literal("%LPD*%") || Literal("%LPC*%")) {
            Process([&] { ProcessPolarity(state, std::string_view(start, 6)); });
            return true;
        }
        if (Literal("%LMN*%") || Literal("%LMXY*%") || Literal("%LMX*%") || Literal("%LMY*%")) {
            const std::string_view token(start, static_cast<size_t>(at - start));
            Process([&] { IgnoreCommand(token); });
            return true;
        }
        if (Literal("%AD"))
            return ReadApertureDefinition();
        return false;
    }

    // %AD, a D-code, a template letter or name, its parameters, '*' '%'.
    bool ReadApertureDefinition() {
        ApertureText definition;
        std::string_view dcode;
        SkipNewlines();
        if (!DCode(dcode))
            return false;
        definition.dcode = dcode;
        SkipNewlines();
        if (at == end || !IsLetterOrDot(*at))
            return false;
        const char* name = at;
        while (at != end && IsNameChar(*at))
            ++at;
        // A single letter of C, R, O or P is a template of its own; any
        // longer name is a macro's, however it begins.
        const char kind = at - name == 1 && std::strchr("CROP", *name) ? *name : 'N';

        size_t decimals = 0;
        if (Token(',')) {
            std::string_view value;
            do {
                if (!Decimal(value))
                    return false;
                if (decimals < 4)
                    definition.decimals[decimals] = value;
                ++decimals;
            } while (Token('X'));
        }
        definition.decimalCount = decimals;
        if (!Token('*') || !Token('%'))
            return false;

        switch (kind) {
        case 'C':
            if (decimals < 1 || decimals > 2)
                return false;
            Process([&] { DefineCircle(state, definition); });
            break;
        case 'R':
        case 'O':
            if (decimals < 2 || decimals > 3)
                return false;
            Process([&] { kind == 'R' ? DefineRectangle(state, definition) : DefineOblong(state, definition); });
            break;
        case 'P':
            if (decimals < 2 || decimals > 4)
                return false;
            Process([&] { DefinePolygon(state, definition); });
            break;
        default:
            Process([&] { DefineNamed(); });
            break;
        }
        return true;
    }
};

} // namespace

bool ConvertDirect(GerberVertexData& out, std::string_view text) {
    const OutputSizes before = SizesOf(out);
    DeferredLog log;
    GerberProcessState state(out);
    AnnounceConversion();
    DirectReader reader(state, text);
    if (!reader.ReadFile()) {
        Restore(out, before);
        return false;
    }
    log.Release();
    if (reader.failure)
        std::rethrow_exception(reader.failure);
    return true;
}

} // namespace nrq::gerber_impl
