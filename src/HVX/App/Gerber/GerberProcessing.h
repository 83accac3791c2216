#pragma once

// The interpreter behind ConvertGerberDataIntoVertices, open to the tests.
#include "HVX/App/Gerber.h"

#include "GerberParser.h"

#include <string_view>
#include <unordered_map>
#include <variant>

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
