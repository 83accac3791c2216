#include "HVX/App/Gerber.h"

#include "GerberLexer.h"
#include "GerberParser.h"
#include "GerberProcessing.h"

#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"

#include <fmt/format.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <memory>
#include <string>

namespace nrq {
namespace gerber_impl {
namespace {

constexpr float fullTurn = 6.2831855f;
constexpr float quarterTurn = 1.5707964f;
constexpr float inverseTurn = 0.15915494f;

// Factors for 0 to 9 decimal digits; %FS allows no more.
constexpr float decimalScale[10] = {1.0f, 1e-1f, 1e-2f, 1e-3f, 1e-4f, 1e-5f, 1e-6f, 1e-7f, 1e-8f, 1e-9f};

// ceil() of a step count, truncated; a NaN from degenerate input counts as 0
// instead of an undefined conversion.
int TruncatedCount(float value) {
    if (!(value > 0.0f))
        return 0;
    if (value >= static_cast<float>(INT_MAX))
        return INT_MAX;
    return static_cast<int>(value);
}

float WrapAngle(float angle) {
    float wrapped = std::fmod(angle, fullTurn);
    if (wrapped < 0.0f)
        wrapped += fullTurn;
    return wrapped;
}

uint32_t VertexCount(const GerberProcessState& state) {
    return static_cast<uint32_t>(state.out.vertices.size() / 2);
}

void AppendVertex(GerberProcessState& state, float x, float y, uint8_t fill) {
    state.out.vertices.push_back(x);
    state.out.vertices.push_back(y);
    state.out.fill.push_back(fill);
}

void AppendTriangle(GerberProcessState& state, uint32_t a, uint32_t b, uint32_t c) {
    state.out.indices.push_back(a);
    state.out.indices.push_back(b);
    state.out.indices.push_back(c);
}

const Aperture& CurrentAperture(GerberProcessState& state) {
    auto found = state.apertures.find(state.currentAperture);
    if (found == state.apertures.end())
        throw Error("Failed to flash: no aperture specified or aperture has not been defined");
    return found->second;
}

// X and Y of a D01/D02/D03 applied to a point; returns how many INTEGER
// tokens they used.
template <class Context>
size_t ApplyCoordinates(GerberProcessState& state, Context* ctx, float& x, float& y) {
    size_t used = 0;
    if (ctx->X())
        x = DCoordToNumber(state, ctx->INTEGER(used++), CoordAxis::X);
    if (ctx->Y())
        y = -DCoordToNumber(state, ctx->INTEGER(used++), CoordAxis::Y);
    return used;
}

template <class Context>
void MoveCurrentPoint(GerberProcessState& state, Context* ctx) {
    if (!ctx)
        return;
    ApplyCoordinates(state, ctx, state.currentX, state.currentY);
}

} // namespace

template <>
int DecimalToNum<int>(std::string_view text) {
    int value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end)
        throw Error("encountered invalid numeric format");
    return value;
}

template <>
float DecimalToNum<float>(std::string_view text) {
    float value = 0.0f;
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (text.empty() || ec != std::errc() || ptr != end)
        throw Error("encountered invalid numeric format");
    return value;
}

template <>
float ValueToMM<float>(GerberProcessState& state, float value) {
    if (state.lengthUnit == 1)
        return value;
    if (state.lengthUnit == 2)
        return value * 0.0254f * 1000.0f;
    throw Error("a length value was defined but length unit is unknown");
}

template <>
int ValueToMM<int>(GerberProcessState& state, int value) {
    if (state.lengthUnit == 1)
        return value;
    if (state.lengthUnit == 2) {
        const float scaled = static_cast<float>(value) * 0.0254f * 1000.0f;
        // Beyond int range the cut is undefined; saturate instead.
        if (scaled >= 2147483648.0f)
            return INT_MAX;
        if (scaled <= -2147483648.0f)
            return INT_MIN;
        return static_cast<int>(scaled);
    }
    throw Error("a length value was defined but length unit is unknown");
}

float DCoordToNumber(GerberProcessState& state, antlr4::tree::TerminalNode* node, CoordAxis axis) {
    // A tree repaired by error recovery can lack the token.
    if (!node)
        throw Error("encountered invalid numeric format");
    const std::string owned = node->getText();
    std::string_view text = owned;
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    const int integerDigits = axis == CoordAxis::X ? state.xIntegerDigits : state.yIntegerDigits;
    const int decimalDigits = axis == CoordAxis::X ? state.xDecimalDigits : state.yDecimalDigits;
    Assert(integerDigits >= 0 && decimalDigits >= 0,
           "FS command must appear before a D01, D02 or D03 command.");

    // Leading zeros may be omitted, so the digits are right-aligned in a field
    // of the declared width. Digits beyond that width widen the field to the
    // left: they count as further integer digits rather than being dropped.
    const size_t width = static_cast<size_t>(integerDigits + decimalDigits);
    std::string field(std::max(width, text.size()), '0');
    field.replace(field.size() - text.size(), text.size(), text);

    float value = DecimalToNum<float>(field) * decimalScale[decimalDigits];
    if (negative)
        value = -value;
    return ValueToMM<float>(state, value);
}

float OptionalLengthToMM(GerberProcessState& state, antlr4::tree::TerminalNode* node, float fallback) {
    if (!node)
        return fallback;
    return ValueToMM<float>(state, DecimalToNum<float>(node->getText()));
}

int ApertureNumber(antlr4::tree::TerminalNode* node) {
    if (!node)
        throw Error("encountered invalid numeric format");
    const std::string text = node->getText();
    return DecimalToNum<int>(std::string_view(text).substr(text.empty() ? 0 : 1));
}

void EmitDisc(GerberProcessState& state, float radius, int vertexCount, float startAngle, bool filled) {
    if (radius <= 0.0f)
        return;
    const uint32_t base = VertexCount(state);
    const float step = fullTurn / static_cast<float>(vertexCount);
    const uint8_t fill = filled ? 255 : 0;
    float angle = startAngle;
    for (int k = 0; k < vertexCount; ++k) {
        AppendVertex(state, state.currentX + radius * std::cos(angle), state.currentY + radius * std::sin(angle),
                     fill);
        angle += step;
    }
    for (int k = 0; k + 3 <= vertexCount; ++k)
        AppendTriangle(state, base, base + 1 + static_cast<uint32_t>(k), base + 2 + static_cast<uint32_t>(k));
}

void EmitArcFan(GerberProcessState& state, float radius, int stepsPerTurn, float startAngle, float endAngle,
                bool filled) {
    if (radius <= 0.0f)
        return;
    const float sweep = WrapAngle(endAngle - startAngle);
    const int count = TruncatedCount(std::ceil(sweep * inverseTurn * static_cast<float>(stepsPerTurn) - 0.5f));
    const uint32_t base = VertexCount(state);
    // First and last vertex lie on the two angles.
    const float step = sweep / static_cast<float>(count - 1);
    const uint8_t fill = filled ? 255 : 0;
    float angle = startAngle;
    for (int k = 0; k < count; ++k) {
        AppendVertex(state, state.currentX + radius * std::cos(angle), state.currentY + radius * std::sin(angle),
                     fill);
        angle += step;
    }
    for (int k = 0; k + 3 <= count; ++k)
        AppendTriangle(state, base, base + 1 + static_cast<uint32_t>(k), base + 2 + static_cast<uint32_t>(k));
}

void EmitCapsule(GerberProcessState& state, float radius, int stepsPerTurn, float startX, float startY,
                 float endX, float endY, bool filled) {
    const float direction = std::atan2(endY - startY, endX - startX);
    const float a = direction + quarterTurn;
    const float b = direction - quarterTurn;
    const uint32_t first = VertexCount(state);
    state.currentX = startX;
    state.currentY = startY;
    EmitArcFan(state, radius, stepsPerTurn, a, b, filled);
    const uint32_t second = VertexCount(state);
    state.currentX = endX;
    state.currentY = endY;
    EmitArcFan(state, radius, stepsPerTurn, b, a, filled);
    const uint32_t third = VertexCount(state);
    AppendTriangle(state, first, second - 1, second);
    AppendTriangle(state, first, second, third - 1);
}

void EmitArcBand(GerberProcessState& state, float radius, int stepsPerTurn, float startX, float startY,
                 float endX, float endY, float centreX, float centreY, bool filled) {
    const bool clockwise = state.interpolationMode == 2;
    const float toCentre = std::atan2(centreY - startY, centreX - startX);
    const float fromCentre = std::atan2(endY - centreY, endX - centreX);
    const float tangentStart = clockwise ? toCentre - quarterTurn : toCentre + quarterTurn;
    const float tangentEnd = clockwise ? fromCentre + quarterTurn : fromCentre - quarterTurn;
    float angle = WrapAngle(tangentStart);
    const float sweep = WrapAngle(clockwise ? tangentEnd - tangentStart : tangentStart - tangentEnd);
    // 64 segments per full turn whatever the radius.
    const int n = TruncatedCount(std::ceil(sweep * inverseTurn * 64.0f));

    state.currentX = startX;
    state.currentY = startY;
    EmitArcFan(state, radius, stepsPerTurn, tangentStart + quarterTurn, tangentStart - quarterTurn, filled);
    state.currentX = endX;
    state.currentY = endY;
    EmitArcFan(state, radius, stepsPerTurn, tangentEnd - quarterTurn, tangentEnd + quarterTurn, filled);

    const uint32_t base = VertexCount(state);
    const float startRadius = std::sqrt((startX - centreX) * (startX - centreX) + (startY - centreY) * (startY - centreY));
    const float endRadius = std::sqrt((endX - centreX) * (endX - centreX) + (endY - centreY) * (endY - centreY));
    const float step = sweep / static_cast<float>(n) * (clockwise ? 1.0f : -1.0f);
    for (int i = 0; i <= n; ++i) {
        const float t = static_cast<float>(i) / static_cast<float>(n);
        const float r = (1.0f - t) * startRadius + t * endRadius;
        const float s = std::sin(angle);
        const float c = std::cos(angle);
        AppendVertex(state, centreX - s * (r + radius), centreY + c * (r + radius), 255);
        AppendVertex(state, centreX - s * (r - radius), centreY + c * (r - radius), 255);
        angle += step;
    }
    for (int i = 0; i < n; ++i) {
        const uint32_t k = base + 2 * static_cast<uint32_t>(i);
        AppendTriangle(state, k, k + 2, k + 3);
        AppendTriangle(state, k, k + 3, k + 1);
    }
}

void Flash(GerberProcessState& state) {
    const Aperture& aperture = CurrentAperture(state);
    if (const auto* circle = std::get_if<CircleAperture>(&aperture)) {
        EmitDisc(state, circle->diameter / 2, 64, 0, true);
        EmitDisc(state, circle->holeDiameter / 2, 64, 0, false);
    } else if (const auto* polygon = std::get_if<PolygonAperture>(&aperture)) {
        EmitDisc(state, polygon->diameter / 2, polygon->vertexCount, polygon->rotation, true);
        EmitDisc(state, polygon->holeDiameter / 2, 64, 0, false);
    }
}

void PlotLine(GerberProcessState& state, float startX, float startY, float endX, float endY) {
    if (state.interpolationMode != 1)
        return;
    const Aperture& aperture = CurrentAperture(state);
    switch (aperture.index()) {
    case 0: EmitCapsule(state, std::get<0>(aperture).diameter / 2, 64, startX, startY, endX, endY, true); break;
    case 1: Log::Warn("unsupported: line plot using rectangle aperture"); break;
    case 2: Log::Warn("unsupported: line plot using oblong aperture"); break;
    default: Log::Warn("unsupported: line plot using polygon aperture"); break;
    }
}

void PlotArc(GerberProcessState& state, float startX, float startY, float endX, float endY, float centreX,
             float centreY) {
    if (state.interpolationMode != 2 && state.interpolationMode != 3)
        return;
    const Aperture& aperture = CurrentAperture(state);
    switch (aperture.index()) {
    case 0:
        EmitArcBand(state, std::get<0>(aperture).diameter / 2, 64, startX, startY, endX, endY, centreX, centreY,
                    true);
        break;
    // The arc warnings speak of a line plot too.
    case 1: Log::Warn("unsupported: line plot using rectangle aperture"); break;
    case 2: Log::Warn("unsupported: line plot using oblong aperture"); break;
    default: Log::Warn("unsupported: line plot using polygon aperture"); break;
    }
}

void ProcessAdC(GerberProcessState& state, GerberParser::AdCContext* ctx) {
    const int number = ApertureNumber(ctx->DCODE());
    const float diameter = OptionalLengthToMM(state, ctx->DECIMAL(0), 0);
    const float hole = OptionalLengthToMM(state, ctx->DECIMAL(1), 0);
    Assert(diameter >= 0, "circle diameter must be non-negative.");
    Assert(hole >= 0, "circular hole diameter must be non-negative.");
    state.apertures.insert_or_assign(number, CircleAperture{diameter, hole});
}

void ProcessAdR(GerberProcessState& state, GerberParser::AdRContext* ctx) {
    ApertureNumber(ctx->DCODE());
    const float xSize = OptionalLengthToMM(state, ctx->DECIMAL(0), 0);
    const float ySize = OptionalLengthToMM(state, ctx->DECIMAL(1), 0);
    const float hole = OptionalLengthToMM(state, ctx->DECIMAL(2), 0);
    Assert(xSize > 0 && ySize > 0, "rectangle size must be > 0.");
    // Required as it stands: a rectangle without a hole fails here, one with
    // a hole stays undefined.
    Assert(hole > 0, "circular hole diameter must be positive.");
}

void ProcessAdO(GerberProcessState& state, GerberParser::AdOContext* ctx) {
    ApertureNumber(ctx->DCODE());
    const float xSize = OptionalLengthToMM(state, ctx->DECIMAL(0), 0);
    const float ySize = OptionalLengthToMM(state, ctx->DECIMAL(1), 0);
    const float hole = OptionalLengthToMM(state, ctx->DECIMAL(2), 0);
    Assert(xSize > 0 && ySize > 0, "round oblong size must be > 0.");
    Assert(hole > 0, "circular hole diameter must be positive.");
}

void ProcessAdP(GerberProcessState& state, GerberParser::AdPContext* ctx) {
    const int number = ApertureNumber(ctx->DCODE());
    const float diameter = OptionalLengthToMM(state, ctx->DECIMAL(0), 0);
    antlr4::tree::TerminalNode* countNode = ctx->DECIMAL(1);
    if (!countNode)
        throw Error("encountered invalid numeric format");
    // A count goes through the length conversion too: under inches 6 becomes 152.
    const int vertexCount = ValueToMM<int>(state, DecimalToNum<int>(countNode->getText()));
    antlr4::tree::TerminalNode* rotationNode = ctx->DECIMAL(2);
    const int rotation = rotationNode ? DecimalToNum<int>(rotationNode->getText()) : 0;
    const float hole = OptionalLengthToMM(state, ctx->DECIMAL(3), 0);
    Assert(diameter > 0, "polygon size must be > 0.");
    Assert(vertexCount >= 3, "polygon vertex count must be >= 3.");
    Assert(hole >= 0, "circular hole diameter must be non-negative.");
    if (vertexCount > 12)
        Log::Warn("gerber: non-standard polygon vertex count > 12 was accepted");
    // The file's number is taken as radians, not degrees; kept on purpose.
    state.apertures.insert_or_assign(number,
                                     PolygonAperture{diameter, vertexCount, -static_cast<float>(rotation), hole});
}

void ProcessComAD(GerberProcessState& state, GerberParser::ComADContext* ctx) {
    GerberParser::AdContext* ad = ctx->ad();
    if (auto* c = dynamic_cast<GerberParser::AdCContext*>(ad))
        ProcessAdC(state, c);
    else if (auto* r = dynamic_cast<GerberParser::AdRContext*>(ad))
        ProcessAdR(state, r);
    else if (auto* o = dynamic_cast<GerberParser::AdOContext*>(ad))
        ProcessAdO(state, o);
    else if (auto* p = dynamic_cast<GerberParser::AdPContext*>(ad))
        ProcessAdP(state, p);
    else if (dynamic_cast<GerberParser::AdNamedContext*>(ad))
        throw Error("aperture macros are not yet implemented");
}

void ProcessComD01(GerberProcessState& state, GerberParser::ComD01Context* ctx) {
    GerberParser::D01Context* d01 = ctx->d01();
    if (!d01)
        return;
    const float startX = state.currentX;
    const float startY = state.currentY;
    float endX = startX;
    float endY = startY;
    size_t used = ApplyCoordinates(state, d01, endX, endY);
    if (state.interpolationMode == 1) {
        PlotLine(state, startX, startY, endX, endY);
    } else if (state.interpolationMode == 2 || state.interpolationMode == 3) {
        if (!d01->I())
            throw Error("D03 instruction must contain arc center information in circular mode");
        const float i = DCoordToNumber(state, d01->INTEGER(used++), CoordAxis::X);
        const float j = -DCoordToNumber(state, d01->INTEGER(used++), CoordAxis::Y);
        if (i == 0 && j == 0)
            throw Error("encountered illegal zero value as a center offset for arc");
        PlotArc(state, startX, startY, endX, endY, startX + i, startY + j);
    }
}

void ProcessCommand(GerberProcessState& state, GerberParser::ComContext* ctx) {
    if (auto* g04 = dynamic_cast<GerberParser::ComG04Context*>(ctx)) {
        const std::string text = g04->getStart()->getText();
        Log::Output(fmt::format("#{}", text.size() >= 4 ? text.substr(3, text.size() - 4) : std::string()));
    } else if (dynamic_cast<GerberParser::ComMOContext*>(ctx)) {
        const std::string text = ctx->getStart()->getText();
        const std::string unit = text.size() >= 5 ? text.substr(3, text.size() - 5) : std::string();
        if (unit == "MM") {
            Log::Success("gerber: using length unit MM (millimeters)");
            state.lengthUnit = 1;
        } else if (unit == "IN") {
            Log::Success("gerber: using length unit IN (inches)");
            state.lengthUnit = 2;
        }
    } else if (dynamic_cast<GerberParser::ComFSContext*>(ctx)) {
        // The lexer admits only "%FSLAXnnYnn*%", so the digits sit at fixed places.
        const std::string text = ctx->getStart()->getText();
        state.xIntegerDigits = text[6] - '0';
        state.xDecimalDigits = text[7] - '0';
        state.yIntegerDigits = text[9] - '0';
        state.yDecimalDigits = text[10] - '0';
        Log::Success(fmt::format("gerber: fs digit counts x[{}.{}] y[{}.{}]", state.xIntegerDigits,
                                 state.xDecimalDigits, state.yIntegerDigits, state.yDecimalDigits));
    } else if (dynamic_cast<GerberParser::ComLPContext*>(ctx)) {
        // Tracked only: clear objects are drawn like dark ones.
        if (ctx->getStart()->getText()[3] == 'D') {
            Log::Success("gerber: switched to dark polarity");
            state.polarity = 1;
        } else {
            Log::Success("gerber: switched to clear polarity");
            state.polarity = 2;
        }
    } else if (auto* ad = dynamic_cast<GerberParser::ComADContext*>(ctx)) {
        ProcessComAD(state, ad);
    } else if (auto* dnn = dynamic_cast<GerberParser::ComDNNContext*>(ctx)) {
        if (dnn->dnn())
            state.currentAperture = ApertureNumber(dnn->dnn()->DCODE());
    } else if (auto* d01 = dynamic_cast<GerberParser::ComD01Context*>(ctx)) {
        ProcessComD01(state, d01);
    } else if (auto* d02 = dynamic_cast<GerberParser::ComD02Context*>(ctx)) {
        MoveCurrentPoint(state, d02->d02());
    } else if (auto* d03 = dynamic_cast<GerberParser::ComD03Context*>(ctx)) {
        MoveCurrentPoint(state, d03->d03());
        Flash(state);
    } else if (dynamic_cast<GerberParser::ComG01Context*>(ctx)) {
        state.interpolationMode = 1;
    } else if (dynamic_cast<GerberParser::ComG02Context*>(ctx)) {
        state.interpolationMode = 2;
    } else if (dynamic_cast<GerberParser::ComG03Context*>(ctx)) {
        state.interpolationMode = 3;
    } else {
        antlr4::Token* first = ctx->getStart();
        Log::Warn(fmt::format("ignored unimplemented cmd {}", first ? first->getText() : std::string("(?)")));
    }
}

} // namespace gerber_impl

void ConvertGerberDataIntoVertices(GerberVertexData& out, std::string_view text) {
    // Invalid UTF-8 is rejected by the stream's decoder.
    antlr4::ANTLRInputStream input;
    input.load(std::string(text));
    GerberLexer lexer(&input);
    antlr4::CommonTokenStream tokens(&lexer);
    GerberParser parser(&tokens);
    gerber_impl::GerberProcessState state(out);
    GerberParser::GerbContext* gerb = parser.gerb();
    Log::Output("Processing Gerber file...\n");
    for (GerberParser::ComContext* command : gerb->com())
        gerber_impl::ProcessCommand(state, command);
}

} // namespace nrq
