#pragma once

// The interpreter behind ConvertGerberDataIntoVertices, open to the tests.
#include "HVX/App/Gerber.h"

#include "GerberParser.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

namespace nrq::gerber_impl {

struct CircleAperture {
    float diameter;
    float holeDiameter;
};

// Rectangles and oblongs are recognised but never stored; the branches on
// them stay so that storing one later needs no other change.
struct RectangleAperture {
    float xSize;
    float ySize;
    float holeDiameter;
};

struct OblongAperture {
    float xSize;
    float ySize;
    float holeDiameter;
};

struct PolygonAperture {
    float diameter;
    int vertexCount;
    float rotation; // radians, as consumed
    float holeDiameter;
};

using Aperture = std::variant<CircleAperture, RectangleAperture, OblongAperture, PolygonAperture>;

enum class CoordAxis { X = 0, Y = 1 };

struct GerberProcessState {
    explicit GerberProcessState(GerberVertexData& data) : out(data) {}

    GerberVertexData& out;
    int xIntegerDigits = -1;
    int xDecimalDigits = -1;
    int yIntegerDigits = -1;
    int yDecimalDigits = -1;
    int lengthUnit = 0;        // 0 unknown, 1 millimetres, 2 inches
    int polarity = 0;          // 0 unset, 1 dark, 2 clear
    int interpolationMode = 0; // 0 unset, 1 linear, 2 clockwise, 3 counter-clockwise
    int currentAperture = -1;
    float currentX = 0.0f;
    float currentY = 0.0f; // already negated
    std::unordered_map<int, Aperture> apertures;
};

template <class T>
T DecimalToNum(std::string_view text);

template <class T>
T ValueToMM(GerberProcessState& state, T value);

float DCoordToNumber(GerberProcessState& state, antlr4::tree::TerminalNode* node, CoordAxis axis);
float OptionalLengthToMM(GerberProcessState& state, antlr4::tree::TerminalNode* node, float fallback);
int ApertureNumber(antlr4::tree::TerminalNode* node);

// The commands' steps on the texts of their tokens. The functions on tree
// nodes hand their tokens' texts to these, and so does the direct reading.

// The X, Y, I and J of one D01, D02 or D03, and the texts of its INTEGER tokens.
struct OperationText {
    bool x = false;
    bool y = false;
    bool i = false;
    size_t integerCount = 0;
    std::string_view integers[4];

    // INTEGER(k) of the generated code; null where the command has none.
    const std::string_view* Integer(size_t k) const { return k < integerCount && k < 4 ? &integers[k] : nullptr; }
};

// An aperture definition's D-code and the texts of its DECIMAL tokens.
struct ApertureText {
    std::optional<std::string_view> dcode;
    size_t decimalCount = 0;
    std::string_view decimals[4];

    // DECIMAL(k) of the generated code; null where the definition has none.
    const std::string_view* Decimal(size_t k) const { return k < decimalCount && k < 4 ? &decimals[k] : nullptr; }
};

float CoordinateToNumber(GerberProcessState& state, const std::string_view* text, CoordAxis axis);
void MoveCurrentPoint(GerberProcessState& state, const OperationText& operation);
void ProcessOperationD01(GerberProcessState& state, const OperationText& operation);
void SelectAperture(GerberProcessState& state, const std::string_view* dcode);
void DefineCircle(GerberProcessState& state, const ApertureText& definition);
void DefineRectangle(GerberProcessState& state, const ApertureText& definition);
void DefineOblong(GerberProcessState& state, const ApertureText& definition);
void DefinePolygon(GerberProcessState& state, const ApertureText& definition);
[[noreturn]] void DefineNamed();
// These take the whole token text, as the lexer cut it.
void ProcessComment(std::string_view token);
void ProcessUnit(GerberProcessState& state, std::string_view token);
void ProcessFormat(GerberProcessState& state, std::string_view token);
void ProcessPolarity(GerberProcessState& state, std::string_view token);
void IgnoreCommand(std::string_view firstToken);
// The line that opens the processing of a file's commands.
void AnnounceConversion();

// Holds back the log lines of this thread's conversion until its outcome is
// certain, so that nothing is written twice or before the parser's own
// messages would be. Lines not released are dropped.
class DeferredLog {
public:
    DeferredLog();
    ~DeferredLog();
    DeferredLog(const DeferredLog&) = delete;
    DeferredLog& operator=(const DeferredLog&) = delete;

    enum class Kind { Output, Success, Warn, Error };
    void Hold(Kind kind, std::string_view line) { lines.emplace_back(kind, std::string(line)); }
    // Stops holding back and writes what was held.
    void Release();

private:
    std::vector<std::pair<Kind, std::string>> lines;
    bool holding = true;
};

// Grows the arrays once for the rest of a file, extrapolated from what the
// first `done` of `total` characters appended since `start`.
struct OutputSizes {
    size_t vertices;
    size_t indices;
    size_t fill;
};
OutputSizes SizesOf(const GerberVertexData& out);
void ReserveForRest(GerberVertexData& out, const OutputSizes& start, size_t done, size_t total);
void Restore(GerberVertexData& out, const OutputSizes& sizes);

// Converts a file made only of the commands that plain drawings use, without
// the generated parser: true when it did (raising the conversion's error, if
// any, like the general path). False, with `out` and the log untouched, when
// the text holds anything else, valid or not; the general path then decides.
bool ConvertDirect(GerberVertexData& out, std::string_view text);

void Flash(GerberProcessState& state);
void PlotLine(GerberProcessState& state, float startX, float startY, float endX, float endY);
void PlotArc(GerberProcessState& state, float startX, float startY, float endX, float endY,
             float centreX, float centreY);

void ProcessAdC(GerberProcessState& state, GerberParser::AdCContext* ctx);
void ProcessAdR(GerberProcessState& state, GerberParser::AdRContext* ctx);
void ProcessAdO(GerberProcessState& state, GerberParser::AdOContext* ctx);
void ProcessAdP(GerberProcessState& state, GerberParser::AdPContext* ctx);
void ProcessComAD(GerberProcessState& state, GerberParser::ComADContext* ctx);
void ProcessComD01(GerberProcessState& state, GerberParser::ComD01Context* ctx);
void ProcessCommand(GerberProcessState& state, GerberParser::ComContext* ctx);

// Tokens per piece of a conversion, about 20 KB of text: the arrays of a
// piece's tree and token stream then stay below the size whose release makes
// malloc consolidate all small free blocks, which bigger pieces pay for
// dearly; the cost per piece is still negligible.
constexpr size_t pieceTokens = size_t(1) << 12;

// ConvertGerberDataIntoVertices with pieces of about `pieceSize` tokens, each
// parsed and processed before the next is read; 0 parses the whole file first.
// Output, log lines and errors are the same for every size.
void ConvertText(GerberVertexData& out, std::string_view text, size_t pieceSize);

void EmitDisc(GerberProcessState& state, float radius, int vertexCount, float startAngle, bool filled);
void EmitArcFan(GerberProcessState& state, float radius, int stepsPerTurn, float startAngle, float endAngle,
                bool filled);
void EmitCapsule(GerberProcessState& state, float radius, int stepsPerTurn, float startX, float startY,
                 float endX, float endY, bool filled);
void EmitArcBand(GerberProcessState& state, float radius, int stepsPerTurn, float startX, float startY,
                 float endX, float endY, float centreX, float centreY, bool filled);

} // namespace nrq::gerber_impl
