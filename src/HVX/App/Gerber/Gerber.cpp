#include "HVX/App/Gerber.h"

#include "GerberLexer.h"
#include "GerberParser.h"
#include "GerberProcessing.h"

#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <exception>
#include <memory>
#include <source_location>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace nrq {
namespace gerber_impl {
namespace {

constexpr float fullTurn = 6.2831855f;
constexpr float quarterTurn = 1.5707964f;
constexpr float inverseTurn = 0.15915494f;

// Factors for 0 to 9 decimal digits; %FS allows no more.
constexpr float decimalScale[10] = {1.0f, 1e-1f, 1e-2f, 1e-3f, 1e-4f, 1e-5f, 1e-6f, 1e-7f, 1e-8f, 1e-9f};

using LogKind = DeferredLog::Kind;

// The deferral in force on this thread, if any.
thread_local DeferredLog* deferredLog = nullptr;

void WriteNow(LogKind kind, std::string_view line) {
    switch (kind) {
    case LogKind::Output: Log::Output(line); break;
    case LogKind::Success: Log::Success(line); break;
    case LogKind::Warn: Log::Warn(line); break;
    case LogKind::Error: Log::Error(line); break;
    }
}

void WriteLog(LogKind kind, std::string_view line) {
    if (deferredLog)
        deferredLog->Hold(kind, line);
    else
        WriteNow(kind, line);
}

void LogOutput(std::string_view line) { WriteLog(LogKind::Output, line); }
void LogSuccess(std::string_view line) { WriteLog(LogKind::Success, line); }
void LogWarn(std::string_view line) { WriteLog(LogKind::Warn, line); }

// Assert, with its log line held back like the others while deferring.
void Check(bool condition, std::string_view what, std::source_location where = std::source_location::current()) {
    if (condition)
        return;
    if (!deferredLog)
        Assert(condition, what, where);
    WriteLog(LogKind::Error, fmt::format("Assertion failed:\nWhat: {}\nWhere: {}", what, where.function_name()));
    throw Error(what, where);
}

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

// While a conversion of pure ASCII text runs, its text: a token's text is then
// a slice of it, which spares the round trip through the stream's code points.
thread_local std::string_view asciiText;

// The text of a token, either a slice of `asciiText` or a copy in `scratch`.
std::string_view TokenText(antlr4::Token* token, std::string& scratch) {
    const size_t start = token->getStartIndex();
    const size_t stop = token->getStopIndex();
    if (!asciiText.empty() && start <= stop && stop < asciiText.size())
        return asciiText.substr(start, stop - start + 1);
    scratch = token->getText();
    return scratch;
}

// dynamic_cast from a tree node to a context class, with the verdict kept per
// dynamic type: a failing cast walks the hierarchy comparing type names. The
// context classes derive from ParseTree without virtual bases, so the
// static_cast is the same conversion.
template <class Context>
Context* ContextCast(antlr4::tree::ParseTree* node) {
    struct Entry {
        const std::type_info* type;
        bool matches;
    };
    thread_local Entry known[32];
    thread_local size_t knownCount = 0;
    const std::type_info* type = &typeid(*node);
    for (size_t k = 0; k < knownCount; ++k)
        if (known[k].type == type)
            return known[k].matches ? static_cast<Context*>(node) : nullptr;
    Context* cast = dynamic_cast<Context*>(node);
    if (knownCount < std::size(known))
        known[knownCount++] = {type, cast != nullptr};
    return cast;
}

// getRuleContext<Context>(0) of the generated accessors.
template <class Context>
Context* FirstChild(antlr4::ParserRuleContext* ctx) {
    for (antlr4::tree::ParseTree* child : ctx->children)
        if (Context* cast = ContextCast<Context>(child))
            return cast;
    return nullptr;
}

// The tokens of a d01, d02 or d03 context, found in one walk instead of one
// search per accessor. These rules call no other rule, so every child is a
// terminal; counting matches the generated accessors, error nodes included.
struct OperationTokens {
    OperationText text;
    std::string scratch[4];

    explicit OperationTokens(antlr4::ParserRuleContext* ctx) {
        for (antlr4::tree::ParseTree* child : ctx->children) {
            auto* node = static_cast<antlr4::tree::TerminalNode*>(child);
            switch (node->getSymbol()->getType()) {
            case GerberParser::X: text.x = true; break;
            case GerberParser::Y: text.y = true; break;
            case GerberParser::I: text.i = true; break;
            case GerberParser::INTEGER: {
                const size_t k = text.integerCount++;
                if (k < 4)
                    text.integers[k] = TokenText(node->getSymbol(), scratch[k]);
                break;
            }
            default: break;
            }
        }
    }
};

// X and Y of a D01/D02/D03 applied to a point; returns how many INTEGER
// tokens they used.
size_t ApplyCoordinates(GerberProcessState& state, const OperationText& operation, float& x, float& y) {
    size_t used = 0;
    if (operation.x)
        x = CoordinateToNumber(state, operation.Integer(used++), CoordAxis::X);
    if (operation.y)
        y = -CoordinateToNumber(state, operation.Integer(used++), CoordAxis::Y);
    return used;
}

void MoveCurrentPoint(GerberProcessState& state, antlr4::ParserRuleContext* ctx) {
    if (ctx)
        MoveCurrentPoint(state, OperationTokens(ctx).text);
}

// The exact value of up to 18 decimal digits; other texts take the general
// conversion. Both round the same integer to the nearest float.
bool SmallDigitString(std::string_view digits, uint64_t& value) {
    if (digits.empty() || digits.size() > 18)
        return false;
    value = 0;
    for (char c : digits) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    return true;
}

// The DECIMAL tokens of a context, in order, as ctx->DECIMAL(k) finds them.
struct DefinitionTokens {
    ApertureText text;
    std::string scratch[5];

    DefinitionTokens(antlr4::tree::TerminalNode* dcode, const std::vector<antlr4::tree::TerminalNode*>& decimals) {
        if (dcode)
            text.dcode = TokenText(dcode->getSymbol(), scratch[4]);
        text.decimalCount = decimals.size();
        for (size_t k = 0; k < decimals.size() && k < 4; ++k)
            text.decimals[k] = TokenText(decimals[k]->getSymbol(), scratch[k]);
    }
};

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
    std::string owned;
    const std::string_view text = node ? TokenText(node->getSymbol(), owned) : std::string_view();
    return CoordinateToNumber(state, node ? &text : nullptr, axis);
}

float CoordinateToNumber(GerberProcessState& state, const std::string_view* token, CoordAxis axis) {
    if (!token)
        throw Error("encountered invalid numeric format");
    std::string_view text = *token;
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    const int integerDigits = axis == CoordAxis::X ? state.xIntegerDigits : state.yIntegerDigits;
    const int decimalDigits = axis == CoordAxis::X ? state.xDecimalDigits : state.yDecimalDigits;
    Check(integerDigits >= 0 && decimalDigits >= 0,
          "FS command must appear before a D01, D02 or D03 command.");

    // Leading zeros may be omitted, so the digits are right-aligned in a field
    // of the declared width. Digits beyond that width widen the field to the
    // left: they count as further integer digits rather than being dropped.
    float digits = 0.0f;
    uint64_t exact = 0;
    if (SmallDigitString(text, exact)) {
        digits = static_cast<float>(exact);
    } else {
        const size_t width = static_cast<size_t>(integerDigits + decimalDigits);
        std::string field(std::max(width, text.size()), '0');
        field.replace(field.size() - text.size(), text.size(), text);
        digits = DecimalToNum<float>(field);
    }
    float value = digits * decimalScale[decimalDigits];
    if (negative)
        value = -value;
    return ValueToMM<float>(state, value);
}

namespace {

float LengthToMM(GerberProcessState& state, const std::string_view* text, float fallback) {
    return text ? ValueToMM<float>(state, DecimalToNum<float>(*text)) : fallback;
}

int ApertureNumber(const std::string_view* text) {
    if (!text)
        throw Error("encountered invalid numeric format");
    return DecimalToNum<int>(text->substr(text->empty() ? 0 : 1));
}

} // namespace

float OptionalLengthToMM(GerberProcessState& state, antlr4::tree::TerminalNode* node, float fallback) {
    if (!node)
        return fallback;
    std::string owned;
    const std::string_view text = TokenText(node->getSymbol(), owned);
    return LengthToMM(state, &text, fallback);
}

int ApertureNumber(antlr4::tree::TerminalNode* node) {
    std::string owned;
    const std::string_view text = node ? TokenText(node->getSymbol(), owned) : std::string_view();
    return ApertureNumber(node ? &text : nullptr);
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
    // A sweep of at most a turn keeps count small: grow each array once and
    // write in place rather than checking capacity per value.
    const size_t vertices = static_cast<size_t>(std::max(count, 0));
    const size_t triangles = count >= 3 ? static_cast<size_t>(count - 2) : 0;
    std::vector<float>& xy = state.out.vertices;
    std::vector<uint32_t>& indices = state.out.indices;
    const size_t xyStart = xy.size();
    const size_t indexStart = indices.size();
    xy.resize(xyStart + 2 * vertices);
    state.out.fill.resize(state.out.fill.size() + vertices, fill);
    indices.resize(indexStart + 3 * triangles);
    float* point = xy.data() + xyStart;
    float angle = startAngle;
    for (size_t k = 0; k < vertices; ++k) {
        point[2 * k] = state.currentX + radius * std::cos(angle);
        point[2 * k + 1] = state.currentY + radius * std::sin(angle);
        angle += step;
    }
    uint32_t* index = indices.data() + indexStart;
    for (size_t k = 0; k < triangles; ++k) {
        index[3 * k] = base;
        index[3 * k + 1] = base + 1 + static_cast<uint32_t>(k);
        index[3 * k + 2] = base + 2 + static_cast<uint32_t>(k);
    }
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
    // n is at most 64: grow each array once and write in place.
    const size_t rows = static_cast<size_t>(n) + 1;
    std::vector<float>& xy = state.out.vertices;
    std::vector<uint32_t>& indices = state.out.indices;
    const size_t xyStart = xy.size();
    const size_t indexStart = indices.size();
    xy.resize(xyStart + 4 * rows);
    state.out.fill.resize(state.out.fill.size() + 2 * rows, 255);
    indices.resize(indexStart + 6 * static_cast<size_t>(n));
    float* point = xy.data() + xyStart;
    for (int i = 0; i <= n; ++i) {
        const float t = static_cast<float>(i) / static_cast<float>(n);
        const float r = (1.0f - t) * startRadius + t * endRadius;
        const float s = std::sin(angle);
        const float c = std::cos(angle);
        point[0] = centreX - s * (r + radius);
        point[1] = centreY + c * (r + radius);
        point[2] = centreX - s * (r - radius);
        point[3] = centreY + c * (r - radius);
        point += 4;
        angle += step;
    }
    uint32_t* index = indices.data() + indexStart;
    for (int i = 0; i < n; ++i) {
        const uint32_t k = base + 2 * static_cast<uint32_t>(i);
        index[0] = k;
        index[1] = k + 2;
        index[2] = k + 3;
        index[3] = k;
        index[4] = k + 3;
        index[5] = k + 1;
        index += 6;
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
    case 1: LogWarn("unsupported: line plot using rectangle aperture"); break;
    case 2: LogWarn("unsupported: line plot using oblong aperture"); break;
    default: LogWarn("unsupported: line plot using polygon aperture"); break;
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
    case 1: LogWarn("unsupported: line plot using rectangle aperture"); break;
    case 2: LogWarn("unsupported: line plot using oblong aperture"); break;
    default: LogWarn("unsupported: line plot using polygon aperture"); break;
    }
}

void DefineCircle(GerberProcessState& state, const ApertureText& definition) {
    const int number = ApertureNumber(definition.dcode ? &*definition.dcode : nullptr);
    const float diameter = LengthToMM(state, definition.Decimal(0), 0);
    const float hole = LengthToMM(state, definition.Decimal(1), 0);
    Check(diameter >= 0, "circle diameter must be non-negative.");
    Check(hole >= 0, "circular hole diameter must be non-negative.");
    state.apertures.insert_or_assign(number, CircleAperture{diameter, hole});
}

void DefineRectangle(GerberProcessState& state, const ApertureText& definition) {
    ApertureNumber(definition.dcode ? &*definition.dcode : nullptr);
    const float xSize = LengthToMM(state, definition.Decimal(0), 0);
    const float ySize = LengthToMM(state, definition.Decimal(1), 0);
    const float hole = LengthToMM(state, definition.Decimal(2), 0);
    Check(xSize > 0 && ySize > 0, "rectangle size must be > 0.");
    // Required as it stands: a rectangle without a hole fails here, one with
    // a hole stays undefined.
    Check(hole > 0, "circular hole diameter must be positive.");
}

void DefineOblong(GerberProcessState& state, const ApertureText& definition) {
    ApertureNumber(definition.dcode ? &*definition.dcode : nullptr);
    const float xSize = LengthToMM(state, definition.Decimal(0), 0);
    const float ySize = LengthToMM(state, definition.Decimal(1), 0);
    const float hole = LengthToMM(state, definition.Decimal(2), 0);
    Check(xSize > 0 && ySize > 0, "round oblong size must be > 0.");
    Check(hole > 0, "circular hole diameter must be positive.");
}

void DefinePolygon(GerberProcessState& state, const ApertureText& definition) {
    const int number = ApertureNumber(definition.dcode ? &*definition.dcode : nullptr);
    const float diameter = LengthToMM(state, definition.Decimal(0), 0);
    const std::string_view* count = definition.Decimal(1);
    if (!count)
        throw Error("encountered invalid numeric format");
    // A count goes through the length conversion too: under inches 6 becomes 152.
    const int vertexCount = ValueToMM<int>(state, DecimalToNum<int>(*count));
    const std::string_view* rotationText = definition.Decimal(2);
    const int rotation = rotationText ? DecimalToNum<int>(*rotationText) : 0;
    const float hole = LengthToMM(state, definition.Decimal(3), 0);
    Check(diameter > 0, "polygon size must be > 0.");
    Check(vertexCount >= 3, "polygon vertex count must be >= 3.");
    Check(hole >= 0, "circular hole diameter must be non-negative.");
    if (vertexCount > 12)
        LogWarn("gerber: non-standard polygon vertex count > 12 was accepted");
    // The file's number is taken as radians, not degrees; kept on purpose.
    state.apertures.insert_or_assign(number,
                                     PolygonAperture{diameter, vertexCount, -static_cast<float>(rotation), hole});
}

void DefineNamed() { throw Error("aperture macros are not yet implemented"); }

void ProcessAdC(GerberProcessState& state, GerberParser::AdCContext* ctx) {
    DefineCircle(state, DefinitionTokens(ctx->DCODE(), ctx->DECIMAL()).text);
}

void ProcessAdR(GerberProcessState& state, GerberParser::AdRContext* ctx) {
    DefineRectangle(state, DefinitionTokens(ctx->DCODE(), ctx->DECIMAL()).text);
}

void ProcessAdO(GerberProcessState& state, GerberParser::AdOContext* ctx) {
    DefineOblong(state, DefinitionTokens(ctx->DCODE(), ctx->DECIMAL()).text);
}

void ProcessAdP(GerberProcessState& state, GerberParser::AdPContext* ctx) {
    DefinePolygon(state, DefinitionTokens(ctx->DCODE(), ctx->DECIMAL()).text);
}

void ProcessComAD(GerberProcessState& state, GerberParser::ComADContext* ctx) {
    GerberParser::AdContext* ad = ctx->ad();
    if (!ad)
        return;
    // One type lookup instead of a chain of casts; the labelled contexts
    // have no subclasses, so equality is exact.
    const std::type_info& type = typeid(*ad);
    if (type == typeid(GerberParser::AdCContext))
        ProcessAdC(state, static_cast<GerberParser::AdCContext*>(ad));
    else if (type == typeid(GerberParser::AdRContext))
        ProcessAdR(state, static_cast<GerberParser::AdRContext*>(ad));
    else if (type == typeid(GerberParser::AdOContext))
        ProcessAdO(state, static_cast<GerberParser::AdOContext*>(ad));
    else if (type == typeid(GerberParser::AdPContext))
        ProcessAdP(state, static_cast<GerberParser::AdPContext*>(ad));
    else if (type == typeid(GerberParser::AdNamedContext))
        DefineNamed();
}

void MoveCurrentPoint(GerberProcessState& state, const OperationText& operation) {
    ApplyCoordinates(state, operation, state.currentX, state.currentY);
}

void ProcessOperationD01(GerberProcessState& state, const OperationText& operation) {
    const float startX = state.currentX;
    const float startY = state.currentY;
    float endX = startX;
    float endY = startY;
    size_t used = ApplyCoordinates(state, operation, endX, endY);
    if (state.interpolationMode == 1) {
        PlotLine(state, startX, startY, endX, endY);
    } else if (state.interpolationMode == 2 || state.interpolationMode == 3) {
        if (!operation.i)
            throw Error("D03 instruction must contain arc center information in circular mode");
        const float i = CoordinateToNumber(state, operation.Integer(used++), CoordAxis::X);
        const float j = -CoordinateToNumber(state, operation.Integer(used++), CoordAxis::Y);
        if (i == 0 && j == 0)
            throw Error("encountered illegal zero value as a center offset for arc");
        PlotArc(state, startX, startY, endX, endY, startX + i, startY + j);
    }
}

void ProcessComD01(GerberProcessState& state, GerberParser::ComD01Context* ctx) {
    if (GerberParser::D01Context* d01 = FirstChild<GerberParser::D01Context>(ctx))
        ProcessOperationD01(state, OperationTokens(d01).text);
}

void SelectAperture(GerberProcessState& state, const std::string_view* dcode) {
    state.currentAperture = ApertureNumber(dcode);
}

void ProcessComment(std::string_view token) {
    LogOutput(fmt::format("#{}", token.size() >= 4 ? token.substr(3, token.size() - 4) : std::string_view()));
}

void ProcessUnit(GerberProcessState& state, std::string_view token) {
    const std::string_view unit = token.size() >= 5 ? token.substr(3, token.size() - 5) : std::string_view();
    if (unit == "MM") {
        LogSuccess("gerber: using length unit MM (millimeters)");
        state.lengthUnit = 1;
    } else if (unit == "IN") {
        LogSuccess("gerber: using length unit IN (inches)");
        state.lengthUnit = 2;
    }
}

void ProcessFormat(GerberProcessState& state, std::string_view token) {
    // The lexer admits only "%FSLAXnnYnn*%", so the digits sit at fixed places.
    state.xIntegerDigits = token[6] - '0';
    state.xDecimalDigits = token[7] - '0';
    state.yIntegerDigits = token[9] - '0';
    state.yDecimalDigits = token[10] - '0';
    LogSuccess(fmt::format("gerber: fs digit counts x[{}.{}] y[{}.{}]", state.xIntegerDigits, state.xDecimalDigits,
                           state.yIntegerDigits, state.yDecimalDigits));
}

void ProcessPolarity(GerberProcessState& state, std::string_view token) {
    // Tracked only: clear objects are drawn like dark ones.
    if (token[3] == 'D') {
        LogSuccess("gerber: switched to dark polarity");
        state.polarity = 1;
    } else {
        LogSuccess("gerber: switched to clear polarity");
        state.polarity = 2;
    }
}

void IgnoreCommand(std::string_view firstToken) { LogWarn(fmt::format("ignored unimplemented cmd {}", firstToken)); }

void AnnounceConversion() { LogOutput("Processing Gerber file...\n"); }

namespace {

enum class ComKind { D01, D02, D03, DNN, G01, G02, G03, G04, MO, FS, LP, AD, Other };

ComKind KindOf(const std::type_info& type) {
    // The labelled contexts have no subclasses, so equality is exact.
    if (type == typeid(GerberParser::ComD01Context)) return ComKind::D01;
    if (type == typeid(GerberParser::ComD02Context)) return ComKind::D02;
    if (type == typeid(GerberParser::ComD03Context)) return ComKind::D03;
    if (type == typeid(GerberParser::ComDNNContext)) return ComKind::DNN;
    if (type == typeid(GerberParser::ComG01Context)) return ComKind::G01;
    if (type == typeid(GerberParser::ComG02Context)) return ComKind::G02;
    if (type == typeid(GerberParser::ComG03Context)) return ComKind::G03;
    if (type == typeid(GerberParser::ComG04Context)) return ComKind::G04;
    if (type == typeid(GerberParser::ComMOContext)) return ComKind::MO;
    if (type == typeid(GerberParser::ComFSContext)) return ComKind::FS;
    if (type == typeid(GerberParser::ComLPContext)) return ComKind::LP;
    if (type == typeid(GerberParser::ComADContext)) return ComKind::AD;
    return ComKind::Other;
}

// type_info equality falls back to comparing names when the objects differ,
// which a chain of tests pays on every miss; the objects themselves are
// fixed for the process, so remember the verdict per object.
ComKind CommandKind(GerberParser::ComContext* ctx) {
    struct Entry {
        const std::type_info* type;
        ComKind kind;
    };
    thread_local Entry known[32];
    thread_local size_t knownCount = 0;
    const std::type_info* type = &typeid(*ctx);
    for (size_t k = 0; k < knownCount; ++k)
        if (known[k].type == type)
            return known[k].kind;
    const ComKind kind = KindOf(*type);
    if (knownCount < std::size(known))
        known[knownCount++] = {type, kind};
    return kind;
}

} // namespace

void ProcessCommand(GerberProcessState& state, GerberParser::ComContext* ctx) {
    switch (CommandKind(ctx)) {
    case ComKind::D01:
        ProcessComD01(state, static_cast<GerberParser::ComD01Context*>(ctx));
        break;
    case ComKind::D02:
        MoveCurrentPoint(state, FirstChild<GerberParser::D02Context>(ctx));
        break;
    case ComKind::D03:
        MoveCurrentPoint(state, FirstChild<GerberParser::D03Context>(ctx));
        Flash(state);
        break;
    case ComKind::DNN: {
        auto* dnn = static_cast<GerberParser::ComDNNContext*>(ctx);
        if (dnn->dnn())
            state.currentAperture = ApertureNumber(dnn->dnn()->DCODE());
        break;
    }
    case ComKind::G01:
        state.interpolationMode = 1;
        break;
    case ComKind::G02:
        state.interpolationMode = 2;
        break;
    case ComKind::G03:
        state.interpolationMode = 3;
        break;
    case ComKind::G04:
        ProcessComment(ctx->getStart()->getText());
        break;
    case ComKind::MO:
        ProcessUnit(state, ctx->getStart()->getText());
        break;
    case ComKind::FS:
        ProcessFormat(state, ctx->getStart()->getText());
        break;
    case ComKind::LP:
        ProcessPolarity(state, ctx->getStart()->getText());
        break;
    case ComKind::AD:
        ProcessComAD(state, static_cast<GerberParser::ComADContext*>(ctx));
        break;
    case ComKind::Other: {
        antlr4::Token* first = ctx->getStart();
        IgnoreCommand(first ? first->getText() : std::string("(?)"));
        break;
    }
    }
}

namespace {

// Counts lexer errors instead of printing them; the plain path reports them.
class ErrorCounter : public antlr4::BaseErrorListener {
public:
    void syntaxError(antlr4::Recognizer*, antlr4::Token*, size_t, size_t, const std::string&,
                     std::exception_ptr) override {
        ++count;
    }
    size_t count = 0;
};

// Hands a parser the tokens of one piece, then an end of file.
class PieceTokenSource : public antlr4::TokenSource {
public:
    // Takes the tokens out of `pieceTokens` but leaves its storage for the next piece.
    PieceTokenSource(std::vector<std::unique_ptr<antlr4::Token>>& pieceTokens, antlr4::TokenSource& lexer)
        : tokens(pieceTokens), lexer(lexer) {}

    std::unique_ptr<antlr4::Token> nextToken() override {
        if (next < tokens.size())
            return std::move(tokens[next++]);
        return std::make_unique<antlr4::CommonToken>(antlr4::Token::EOF, "<EOF>");
    }
    size_t getLine() const override { return lexer.getLine(); }
    size_t getCharPositionInLine() override { return lexer.getCharPositionInLine(); }
    antlr4::CharStream* getInputStream() override { return lexer.getInputStream(); }
    std::string getSourceName() override { return lexer.getSourceName(); }
    antlr4::TokenFactory<antlr4::CommonToken>* getTokenFactory() override { return lexer.getTokenFactory(); }

private:
    std::vector<std::unique_ptr<antlr4::Token>>& tokens;
    size_t next = 0;
    antlr4::TokenSource& lexer;
};

// Tokens that only ever begin a command (or, inside a region, a contour
// step), so that outside blocks and regions a new top-level command starts
// there.
bool OnlyBeginsCommand(size_t type) {
    switch (type) {
    case GerberParser::G04: case GerberParser::MO: case GerberParser::FS: case GerberParser::AD:
    case GerberParser::AM: case GerberParser::G01: case GerberParser::G02: case GerberParser::G03:
    case GerberParser::G75: case GerberParser::LP: case GerberParser::LM: case GerberParser::LR:
    case GerberParser::LS: case GerberParser::G36: case GerberParser::TF: case GerberParser::TA:
    case GerberParser::TO: case GerberParser::TD:
        return true;
    default:
        return false;
    }
}

// Parses one piece (commands, then the file's end or a stand-in M02) with
// the fast prediction first and full LL only where that bails; false on a
// syntax error. Processes its commands unless an earlier one failed.
bool ParsePiece(GerberProcessState& state, std::vector<std::unique_ptr<antlr4::Token>>& pieceList,
                antlr4::TokenSource& lexer, bool last, std::exception_ptr& failure) {
    if (!last)
        pieceList.push_back(std::make_unique<antlr4::CommonToken>(GerberParser::M02, "M02*"));
    struct Clear {
        std::vector<std::unique_ptr<antlr4::Token>>& list;
        ~Clear() { list.clear(); }
    } clear{pieceList};
    PieceTokenSource source(pieceList, lexer);
    antlr4::CommonTokenStream tokens(&source);
    GerberParser parser(&tokens);
    parser.removeErrorListeners();
    parser.setErrorHandler(std::make_shared<antlr4::BailErrorStrategy>());
    auto* simulator = parser.getInterpreter<antlr4::atn::ParserATNSimulator>();
    simulator->setPredictionMode(antlr4::atn::PredictionMode::SLL);
    GerberParser::GerbContext* gerb = nullptr;
    try {
        gerb = parser.gerb();
    } catch (const antlr4::ParseCancellationException&) {
        parser.reset();
        simulator->setPredictionMode(antlr4::atn::PredictionMode::LL);
        try {
            gerb = parser.gerb();
        } catch (const antlr4::ParseCancellationException&) {
            return false;
        }
    }
    if (failure)
        return true;
    try {
        // gerb->com() without its two casts per child.
        for (antlr4::tree::ParseTree* child : gerb->children)
            if (auto* command = ContextCast<GerberParser::ComContext>(child))
                ProcessCommand(state, command);
    } catch (...) {
        // Raised only once the whole file is known to parse cleanly.
        failure = std::current_exception();
    }
    return true;
}

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The runtime's stream, filled directly when the text is pure ASCII, where
// the code points are the bytes. Its decoder would give the same, but sizes
// its buffer for the longest encoding first, five code points per byte, all
// zeroed: a gigabyte for a 50 MB file. Other text goes through the decoder,
// which also rejects invalid UTF-8.
class GerberInputStream : public antlr4::ANTLRInputStream {
public:
    GerberInputStream(std::string_view text, bool ascii) {
        if (ascii) {
            _data.assign(text.begin(), text.end());
            p = 0;
        } else {
            load(std::string(text));
        }
    }
};

// False, with `out` partly filled, when the file has a lexical or syntax
// error; nothing is logged then. `asciiOrEmpty` is the text if it is ASCII.
bool TryPieces(GerberVertexData& out, antlr4::ANTLRInputStream& input, std::string_view asciiOrEmpty,
               size_t pieceSize) {
    GerberLexer lexer(&input);
    ErrorCounter lexerErrors;
    lexer.removeErrorListeners();
    lexer.addErrorListener(&lexerErrors);

    DeferredLog log;
    struct ForgetText {
        ~ForgetText() { asciiText = {}; }
    } forget;
    asciiText = asciiOrEmpty;

    GerberProcessState state(out);
    AnnounceConversion();
    const OutputSizes start = SizesOf(out);
    bool estimated = false;
    std::exception_ptr failure;
    std::vector<std::unique_ptr<antlr4::Token>> piece;
    piece.reserve(pieceSize + 1);
    // Pieces start small so that a syntax error near the top costs little,
    // and double up to the full size.
    size_t limit = std::min<size_t>(pieceSize, 64);
    // Nesting of blocks and regions; a top-level command can start only at 0.
    int depth = 0;
    size_t previous = antlr4::Token::INVALID_TYPE;
    for (;;) {
        std::unique_ptr<antlr4::Token> token = lexer.nextToken();
        // Real files with an error mostly have it near the top: give up at once.
        if (lexerErrors.count)
            return false;
        const size_t type = token->getType();
        if (type == antlr4::Token::EOF) {
            piece.push_back(std::move(token));
            break;
        }
        const bool afterOperation =
            previous == GerberParser::D01 || previous == GerberParser::D02 || previous == GerberParser::D03;
        if (piece.size() >= limit && depth == 0 && (afterOperation || OnlyBeginsCommand(type))) {
            if (!ParsePiece(state, piece, lexer, false, failure))
                return false;
            // A quarter megabyte of text is enough to extrapolate from.
            if (!estimated && token->getStartIndex() >= (size_t(1) << 18)) {
                estimated = true;
                ReserveForRest(out, start, token->getStartIndex(), input.size());
            }
            limit = std::min(2 * limit, pieceSize);
        }
        if (type == GerberParser::G36)
            ++depth;
        else if (type == GerberParser::G37)
            --depth;
        else if ((previous == GerberParser::AB && type == GerberParser::DCODE) ||
                 (previous == GerberParser::SR && type == GerberParser::X))
            ++depth;
        else if ((previous == GerberParser::AB || previous == GerberParser::SR) && type == GerberParser::ASTERISK)
            --depth;
        previous = type;
        piece.push_back(std::move(token));
    }
    if (!ParsePiece(state, piece, lexer, true, failure))
        return false;
    log.Release();
    if (failure)
        std::rethrow_exception(failure);
    return true;
}

// The whole tree first, then the commands.
void ConvertWhole(GerberVertexData& out, antlr4::ANTLRInputStream& input) {
    GerberLexer lexer(&input);
    antlr4::CommonTokenStream tokens(&lexer);
    GerberParser parser(&tokens);
    GerberProcessState state(out);
    GerberParser::GerbContext* gerb = parser.gerb();
    AnnounceConversion();
    for (GerberParser::ComContext* command : gerb->com())
        ProcessCommand(state, command);
}

} // namespace

DeferredLog::DeferredLog() { deferredLog = this; }

DeferredLog::~DeferredLog() {
    if (deferredLog == this)
        deferredLog = nullptr;
}

void DeferredLog::Release() {
    if (deferredLog == this)
        deferredLog = nullptr;
    for (const auto& [kind, line] : lines)
        WriteNow(kind, line);
    lines.clear();
}

OutputSizes SizesOf(const GerberVertexData& out) { return {out.vertices.size(), out.indices.size(), out.fill.size()}; }

namespace {

// Grows `array` once for the rest of the file, with a tenth to spare; this
// saves the copies and page faults of repeated doubling. Never less than a
// doubling, so that many small files in a row still grow geometrically.
template <class T>
void ReserveForRest(std::vector<T>& array, size_t start, size_t done, size_t total) {
    const size_t grown = array.size() - start;
    if (grown == 0 || done == 0 || total <= done)
        return;
    const double expected = static_cast<double>(grown) * static_cast<double>(total - done) / static_cast<double>(done);
    const size_t wanted = array.size() + static_cast<size_t>(expected * 1.1);
    if (wanted > array.capacity() && wanted < array.max_size() / 2)
        array.reserve(std::max(wanted, 2 * array.capacity()));
}

} // namespace

void ReserveForRest(GerberVertexData& out, const OutputSizes& start, size_t done, size_t total) {
    ReserveForRest(out.vertices, start.vertices, done, total);
    ReserveForRest(out.indices, start.indices, done, total);
    ReserveForRest(out.fill, start.fill, done, total);
}

void Restore(GerberVertexData& out, const OutputSizes& sizes) {
    out.vertices.resize(sizes.vertices);
    out.indices.resize(sizes.indices);
    out.fill.resize(sizes.fill);
}

void ConvertText(GerberVertexData& out, std::string_view text, size_t pieceSize) {
    const bool ascii = IsAscii(text);
    GerberInputStream input(text, ascii);
    if (pieceSize > 0) {
        const OutputSizes before = SizesOf(out);
        if (TryPieces(out, input, ascii ? text : std::string_view(), pieceSize))
            return;
        // A lexical or syntax error: undo and take the plain path, whose error
        // reports and recovery are the ones that count.
        Restore(out, before);
        input.reset();
    }
    ConvertWhole(out, input);
}

} // namespace gerber_impl

void ConvertGerberDataIntoVertices(GerberVertexData& out, std::string_view text) {
    if (!gerber_impl::ConvertDirect(out, text))
        gerber_impl::ConvertText(out, text, gerber_impl::pieceTokens);
}

} // namespace nrq
