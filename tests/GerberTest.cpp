#include "HVX/App/Gerber.h"
#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Filesystem/Filesystem.h"

#include "HVX/App/Gerber/GerberProcessing.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <string>

namespace nrq {
namespace {

constexpr uint32_t none = 0xFFFFFFFFu;
constexpr double pi = std::numbers::pi;

// Format 2.4 in millimetres: "X10000" is 1 mm.
const std::string header = "%MOMM*%\n%FSLAX24Y24*%\n";

GerberVertexData Convert(const std::string& text) {
    GerberVertexData data;
    ConvertGerberDataIntoVertices(data, text);
    return data;
}

// The message of the Error raised by the conversion, without its "(line) ".
std::string ErrorOf(const std::string& text, GerberVertexData* data = nullptr) {
    GerberVertexData local;
    try {
        ConvertGerberDataIntoVertices(data ? *data : local, text);
    } catch (const Error& error) {
        const std::string what = error.what();
        const size_t close = what.find(") ");
        return close == std::string::npos ? what : what.substr(close + 2);
    }
    return "(no error)";
}

size_t Vertices(const GerberVertexData& data) { return data.vertices.size() / 2; }
size_t Triangles(const GerberVertexData& data) { return data.indices.size() / 3; }

void ExpectVertex(const GerberVertexData& data, size_t k, double x, double y, double tolerance = 2e-6) {
    ASSERT_LT(k, Vertices(data));
    EXPECT_NEAR(data.vertices[2 * k], x, tolerance) << "vertex " << k;
    EXPECT_NEAR(data.vertices[2 * k + 1], y, tolerance) << "vertex " << k;
}

void ExpectTriangle(const GerberVertexData& data, size_t t, uint32_t a, uint32_t b, uint32_t c) {
    ASSERT_LT(t, Triangles(data));
    EXPECT_EQ(data.indices[3 * t], a) << "triangle " << t;
    EXPECT_EQ(data.indices[3 * t + 1], b) << "triangle " << t;
    EXPECT_EQ(data.indices[3 * t + 2], c) << "triangle " << t;
}

// A fan of `count` vertices from `base` on: (base, base+1+k, base+2+k).
void ExpectFan(const GerberVertexData& data, size_t firstTriangle, uint32_t base, uint32_t count) {
    for (uint32_t k = 0; k + 3 <= count; ++k)
        ExpectTriangle(data, firstTriangle + k, base, base + 1 + k, base + 2 + k);
}

class GerberTest : public ::testing::Test {
protected:
    void SetUp() override {
        // A fresh log per test; the data folder is made by HVXInit otherwise.
        std::filesystem::create_directories(std::string(fs::GetUserSaveDataDirectory()));
        Log::Init();
    }
    std::string LogText() { return test::LogWithoutTimeStamps(); }
};

TEST_F(GerberTest, CircleFlashIsADiscOf64Vertices) {
    const auto data = Convert(header + "%ADD10C,0.5*%\nD10*\nX10000Y20000D03*\nM02*\n");
    ASSERT_EQ(Vertices(data), 64u);
    ASSERT_EQ(Triangles(data), 62u);
    ASSERT_EQ(data.fill.size(), 64u);
    // Centre (1, -2): y is mirrored. Radius 0.25, angles 2*pi*k/64.
    ExpectVertex(data, 0, 1.25, -2.0);
    ExpectVertex(data, 16, 1.0, -1.75);
    ExpectVertex(data, 32, 0.75, -2.0);
    ExpectVertex(data, 48, 1.0, -2.25);
    for (size_t k = 0; k < 64; ++k) {
        ExpectVertex(data, k, 1.0 + 0.25 * std::cos(2 * pi * k / 64), -2.0 + 0.25 * std::sin(2 * pi * k / 64), 1e-5);
        EXPECT_EQ(data.fill[k], 255);
    }
    ExpectFan(data, 0, 0, 64);
}

TEST_F(GerberTest, CircleWithHoleAddsADarkDisc) {
    const auto data = Convert(header + "%ADD10C,0.5X0.2*%\nD10*\nD03*\nM02*\n");
    ASSERT_EQ(Vertices(data), 128u);
    ASSERT_EQ(Triangles(data), 124u);
    ExpectVertex(data, 64, 0.1, 0.0);
    ExpectVertex(data, 96, -0.1, 0.0);
    for (size_t k = 0; k < 64; ++k) {
        EXPECT_EQ(data.fill[k], 255);
        EXPECT_EQ(data.fill[64 + k], 0);
    }
    ExpectFan(data, 0, 0, 64);
    ExpectFan(data, 62, 64, 64);
}

TEST_F(GerberTest, PolygonFlashHexagon) {
    const auto data = Convert(header + "%ADD12P,1X6*%\nD12*\nD03*\nM02*\n");
    const float expected[6][2] = {{0.5f, 0.0f},          {0.25f, 0.4330127f},  {-0.25f, 0.4330127f},
                                  {-0.5f, 0.0f},         {-0.25f, -0.4330127f}, {0.25f, -0.4330127f}};
    ASSERT_EQ(Vertices(data), 6u);
    for (size_t k = 0; k < 6; ++k) {
        ExpectVertex(data, k, expected[k][0], expected[k][1]);
        EXPECT_EQ(data.fill[k], 255);
    }
    ASSERT_EQ(data.indices, (std::vector<uint32_t>{0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5}));
}

TEST_F(GerberTest, PolygonRotationIsTakenAsNegatedRadians) {
    // Rotation 45 turns by -45 rad: first vertex at 0.5 (cos -45, sin -45).
    const auto data = Convert(header + "%ADD12P,1X6X45*%\nD12*\nD03*\nM02*\n");
    ASSERT_EQ(Vertices(data), 6u);
    ExpectVertex(data, 0, 0.26266099, -0.42545176, 1e-5);
    // Four corners turned by -1 rad, with a hole of diameter 0.2.
    const auto square = Convert(header + "%ADD13P,1X4X1X0.2*%\nD13*\nD03*\nM02*\n");
    ASSERT_EQ(Vertices(square), 4u + 64u);
    ExpectVertex(square, 0, 0.27015115, -0.42073549);
    ExpectVertex(square, 1, 0.42073549, 0.27015115, 1e-5);
    EXPECT_EQ(square.fill[3], 255);
    EXPECT_EQ(square.fill[4], 0);
    EXPECT_EQ(square.indices[0], 0u);
    ExpectTriangle(square, 1, 0, 2, 3);
    ExpectTriangle(square, 2, 4, 5, 6);
}

TEST_F(GerberTest, RectangleAndOblongAreNeverStored) {
    // Without a hole the definition fails; with one the number stays undefined.
    EXPECT_EQ(ErrorOf(header + "%ADD11R,1X2*%\nM02*\n"), "circular hole diameter must be positive.");
    EXPECT_EQ(ErrorOf(header + "%ADD11O,1X2*%\nM02*\n"), "circular hole diameter must be positive.");
    GerberVertexData data;
    EXPECT_EQ(ErrorOf(header + "%ADD11R,1X2X0.3*%\nD11*\nD03*\nM02*\n", &data),
              "Failed to flash: no aperture specified or aperture has not been defined");
    EXPECT_TRUE(data.vertices.empty());
    EXPECT_TRUE(data.indices.empty());
    EXPECT_EQ(ErrorOf(header + "%ADD11O,1X2X0.3*%\nD11*\nD03*\nM02*\n", &data),
              "Failed to flash: no aperture specified or aperture has not been defined");
    EXPECT_EQ(ErrorOf(header + "%ADD11R,0X2X0.3*%\nM02*\n"), "rectangle size must be > 0.");
    EXPECT_EQ(ErrorOf(header + "%ADD11O,1X0X0.3*%\nM02*\n"), "round oblong size must be > 0.");
    EXPECT_NE(LogText().find("Error: Assertion failed:\nWhat: round oblong size must be > 0.\nWhere: "),
              std::string::npos);
}

TEST_F(GerberTest, LineIsACapsule) {
    const auto data = Convert(header + "%ADD10C,0.2*%\nD10*\nG01*\nX0Y0D02*\nX10000Y0D01*\nM02*\n");
    // Two half-discs of 32 vertices: at the start from pi/2 through pi to
    // -pi/2, at the end from -pi/2 through 0 to pi/2, in steps of pi/31.
    ASSERT_EQ(Vertices(data), 64u);
    ASSERT_EQ(Triangles(data), 62u);
    ExpectVertex(data, 0, 0.0, 0.1);
    ExpectVertex(data, 31, 0.0, -0.1);
    ExpectVertex(data, 32, 1.0, -0.1);
    ExpectVertex(data, 63, 1.0, 0.1);
    for (size_t k = 0; k < 32; ++k) {
        ExpectVertex(data, k, -0.1 * std::sin(k * pi / 31), 0.1 * std::cos(k * pi / 31));
        ExpectVertex(data, 32 + k, 1.0 + 0.1 * std::sin(k * pi / 31), -0.1 * std::cos(k * pi / 31));
        EXPECT_EQ(data.fill[k], 255);
    }
    ExpectFan(data, 0, 0, 32);
    ExpectFan(data, 30, 32, 32);
    ExpectTriangle(data, 60, 0, 31, 32);
    ExpectTriangle(data, 61, 0, 32, 63);
}

TEST_F(GerberTest, CounterClockwiseArcBandStartsAtTheStart) {
    // From (1, 0) to (0, 1) around the origin; mirrored: (1, 0) to (0, -1).
    const auto data = Convert(header + "%ADD10C,0.2*%\nD10*\nG03*\nX10000Y0D02*\nX0Y10000I-10000J0D01*\nM02*\n");
    // Caps of 32 vertices each. The band sweeps pi/2 from angle 3pi/2; in
    // 32-bit arithmetic sweep / 2pi * 64 comes to 16.000002, so 17 segments.
    ASSERT_EQ(Vertices(data), 64u + 2 * 18u);
    ASSERT_EQ(Triangles(data), 60u + 2 * 17u);
    ExpectVertex(data, 0, 1.1, 0.0);   // start cap from angle 2pi ...
    ExpectVertex(data, 31, 0.9, 0.0);  // ... to 3pi
    ExpectVertex(data, 32, 0.0, -0.9); // end cap from -3pi/2 ...
    ExpectVertex(data, 63, 0.0, -1.1); // ... to -pi/2
    ExpectFan(data, 0, 0, 32);
    ExpectFan(data, 30, 32, 32);
    // Band: outer then inner vertex, angle falling from 3pi/2 to pi.
    ExpectVertex(data, 64, 1.1, 0.0);
    ExpectVertex(data, 65, 0.9, 0.0);
    ExpectVertex(data, 98, 0.0, -1.1);
    ExpectVertex(data, 99, 0.0, -0.9);
    for (uint32_t i = 0; i <= 17; ++i) {
        const double a = 1.5 * pi - i * (pi / 2) / 17;
        ExpectVertex(data, 64 + 2 * i, -std::sin(a) * 1.1, std::cos(a) * 1.1, 1e-5);
        ExpectVertex(data, 65 + 2 * i, -std::sin(a) * 0.9, std::cos(a) * 0.9, 1e-5);
    }
    for (uint32_t i = 0; i < 17; ++i) {
        const uint32_t k = 64 + 2 * i;
        ExpectTriangle(data, 60 + 2 * i, k, k + 2, k + 3);
        ExpectTriangle(data, 61 + 2 * i, k, k + 3, k + 1);
    }
    for (uint8_t fill : data.fill)
        EXPECT_EQ(fill, 255);
}

TEST_F(GerberTest, ClockwiseArcBandIsPointMirroredThroughTheCentre) {
    // From (0, 1) to (1, 0) around the origin; mirrored: (0, -1) to (1, 0).
    const auto data = Convert(header + "%ADD10C,0.2*%\nD10*\nG02*\nX0Y10000D02*\nX10000Y0I0J-10000D01*\nM02*\n");
    // sweep pi/2 gives exactly 16 segments here.
    ASSERT_EQ(Vertices(data), 64u + 2 * 17u);
    ASSERT_EQ(Triangles(data), 60u + 2 * 16u);
    ExpectVertex(data, 0, 0.0, -0.9);  // start cap from pi/2 ...
    ExpectVertex(data, 31, 0.0, -1.1); // ... to 3pi/2
    ExpectVertex(data, 32, 1.1, 0.0);  // end cap from 0 ...
    ExpectVertex(data, 63, 0.9, 0.0);  // ... to pi
    // Band from angle 0 rising to pi/2: it starts at (0, 1), the start
    // point mirrored through the centre, and ends at (-1, 0).
    ExpectVertex(data, 64, 0.0, 1.1);
    ExpectVertex(data, 65, 0.0, 0.9);
    ExpectVertex(data, 96, -1.1, 0.0);
    ExpectVertex(data, 97, -0.9, 0.0);
    for (uint32_t i = 0; i <= 16; ++i) {
        const double a = i * (pi / 2) / 16;
        ExpectVertex(data, 64 + 2 * i, -std::sin(a) * 1.1, std::cos(a) * 1.1, 1e-5);
        ExpectVertex(data, 65 + 2 * i, -std::sin(a) * 0.9, std::cos(a) * 0.9, 1e-5);
    }
    for (uint32_t i = 0; i < 16; ++i) {
        const uint32_t k = 64 + 2 * i;
        ExpectTriangle(data, 60 + 2 * i, k, k + 2, k + 3);
        ExpectTriangle(data, 61 + 2 * i, k, k + 3, k + 1);
    }
}

TEST_F(GerberTest, ArcRadiusBlendsFromStartToEnd) {
    // Start radius 1 at (1, 0), end radius 2 at (0, -2): the band's last pair
    // sits at radius 2 +- 0.1.
    const auto data = Convert(header + "%ADD10C,0.2*%\nD10*\nG03*\nX10000Y0D02*\nX0Y20000I-10000J0D01*\nM02*\n");
    const size_t last = Vertices(data) - 2;
    ExpectVertex(data, last, 0.0, -2.1, 1e-5);
    ExpectVertex(data, last + 1, 0.0, -1.9, 1e-5);
}

TEST_F(GerberTest, ArcBackToItsStartHasNoBand) {
    const auto data = Convert(header + "%ADD10C,0.2*%\nD10*\nG03*\nX10000Y0D02*\nX10000Y0I-10000J0D01*\nM02*\n");
    // Both caps, then one pair of band vertices with undefined coordinates.
    ASSERT_EQ(Vertices(data), 66u);
    EXPECT_EQ(Triangles(data), 60u);
    EXPECT_TRUE(std::isnan(data.vertices[2 * 64]));
    EXPECT_EQ(data.fill.size(), 66u);
}

TEST_F(GerberTest, ArcErrors) {
    EXPECT_EQ(ErrorOf(header + "%ADD10C,0.2*%\nD10*\nG02*\nX10000Y0D01*\nM02*\n"),
              "D03 instruction must contain arc center information in circular mode");
    EXPECT_EQ(ErrorOf(header + "%ADD10C,0.2*%\nD10*\nG03*\nX10000Y0I0J0D01*\nM02*\n"),
              "encountered illegal zero value as a center offset for arc");
}

TEST_F(GerberTest, PlotBeforeAnyModeDrawsNothingAndDoesNotMove) {
    const auto data = Convert(header + "%ADD10C,0.2*%\nD10*\nX10000Y0D01*\nG01*\nX20000Y0D01*\nM02*\n");
    ASSERT_EQ(Vertices(data), 64u);
    ExpectVertex(data, 0, 0.0, 0.1);  // the line still starts at the origin
    ExpectVertex(data, 32, 2.0, -0.1);
}

TEST_F(GerberTest, LineThroughPolygonWarnsAndDoesNotMove) {
    const auto data = Convert(header + "%ADD10C,0.2*%\n%ADD12P,1X6*%\nD12*\nG01*\nX10000Y0D01*\nD10*\nX20000Y0D01*\nM02*\n");
    ASSERT_EQ(Vertices(data), 64u);
    ExpectVertex(data, 0, 0.0, 0.1);
    ExpectVertex(data, 32, 2.0, -0.1);
    EXPECT_NE(LogText().find("Warning: unsupported: line plot using polygon aperture\n"), std::string::npos);
}

TEST_F(GerberTest, ArcThroughPolygonWarnsWithTheLineText) {
    const auto data = Convert(header + "%ADD12P,1X6*%\nD12*\nG02*\nX10000Y0I5000J0D01*\nM02*\n");
    EXPECT_TRUE(data.vertices.empty());
    EXPECT_NE(LogText().find("Warning: unsupported: line plot using polygon aperture\n"), std::string::npos);
}

TEST_F(GerberTest, CoordinatesNeedFormatAndUnit) {
    EXPECT_EQ(ErrorOf("%MOMM*%\n%ADD10C,0.2*%\nD10*\nX5Y5D02*\nM02*\n"),
              "FS command must appear before a D01, D02 or D03 command.");
    EXPECT_EQ(ErrorOf("%MOMM*%\n%ADD10C,0.2*%\nD10*\nX5Y5D03*\nM02*\n"),
              "FS command must appear before a D01, D02 or D03 command.");
    EXPECT_EQ(ErrorOf("%FSLAX24Y24*%\nX5Y5D02*\nM02*\n"), "a length value was defined but length unit is unknown");
    EXPECT_EQ(ErrorOf("%FSLAX24Y24*%\nX5Y5D03*\nM02*\n"), "a length value was defined but length unit is unknown");
    // No length is read here, so no unit is needed.
    const auto data = Convert("%FSLAX24Y24*%\nG01*\nD02*\nG04 fine*\nM02*\n");
    EXPECT_TRUE(data.vertices.empty());
}

TEST_F(GerberTest, ApertureBeforeUnitFails) {
    EXPECT_EQ(ErrorOf("%FSLAX24Y24*%\n%ADD10C,0.5*%\nM02*\n"), "a length value was defined but length unit is unknown");
}

TEST_F(GerberTest, OmittedLeadingZeros) {
    // 2.4: "5" is 0.0005 on both axes, y negated.
    const auto data = Convert(header + "%ADD10C,0.002*%\nD10*\nX5Y5D03*\nM02*\n");
    ExpectVertex(data, 0, 0.0015, -0.0005, 1e-8);
    ExpectVertex(data, 32, -0.0005, -0.0005, 1e-8);
}

TEST_F(GerberTest, SignedAndOverlongCoordinates) {
    // A signed coordinate; and one with more digits than 2.4 allows, which
    // widens the field to the left: 1234567 is 123.4567.
    const auto data = Convert(header + "%ADD12P,2X4*%\nD12*\nX-20000Y+30000D03*\nX1234567Y0D03*\nM02*\n");
    ASSERT_EQ(Vertices(data), 8u);
    ExpectVertex(data, 0, -1.0, -3.0);
    ExpectVertex(data, 4, 124.4567, 0.0, 1e-4);
}

TEST_F(GerberTest, ZeroCircleFlashesNothingButALineMoves) {
    const auto data = Convert(header + "%ADD10C,0*%\n%ADD11C,0.2*%\nD10*\nD03*\nG01*\nX10000Y0D01*\nD11*\nD03*\nM02*\n");
    // The line gives two degenerate triangles around the empty vertex range.
    ASSERT_EQ(Triangles(data), 2u + 62u);
    ExpectTriangle(data, 0, 0, none, 0);
    ExpectTriangle(data, 1, 0, 0, none);
    ASSERT_EQ(Vertices(data), 64u);
    ExpectVertex(data, 0, 1.1, 0.0); // the flash sits at the line's end
}

TEST_F(GerberTest, PolygonErrors) {
    EXPECT_EQ(ErrorOf(header + "%ADD12P,1X6X45.0*%\nM02*\n"), "encountered invalid numeric format");
    EXPECT_EQ(ErrorOf(header + "%ADD13P,1X3.0*%\nM02*\n"), "encountered invalid numeric format");
    EXPECT_EQ(ErrorOf(header + "%ADD13P,0X3*%\nM02*\n"), "polygon size must be > 0.");
    EXPECT_EQ(ErrorOf(header + "%ADD13P,1X2*%\nM02*\n"), "polygon vertex count must be >= 3.");
    EXPECT_EQ(ErrorOf(header + "%ADD13P,1X3X0X-1*%\nM02*\n"), "circular hole diameter must be non-negative.");
    EXPECT_EQ(ErrorOf(header + "%ADD13C,-1*%\nM02*\n"), "circle diameter must be non-negative.");
    EXPECT_EQ(ErrorOf(header + "%ADD13C,1X-1*%\nM02*\n"), "circular hole diameter must be non-negative.");
}

TEST_F(GerberTest, LeadingPlusInADecimalIsInvalid) {
    EXPECT_EQ(ErrorOf(header + "%ADD10C,+0.5*%\nM02*\n"), "encountered invalid numeric format");
}

TEST_F(GerberTest, InchesScaleLengthsAndCounts) {
    // 0.1 in is 2.54 mm; a count of 6 becomes 152 (6 * 25.4 cut).
    const auto disc = Convert("%MOIN*%\n%FSLAX24Y24*%\n%ADD10C,0.1*%\nD10*\nX10000Y0D03*\nM02*\n");
    ExpectVertex(disc, 0, 25.4 + 1.27, 0.0, 1e-4);
    const auto polygon = Convert("%MOIN*%\n%FSLAX24Y24*%\n%ADD12P,0.1X6*%\nD12*\nD03*\nM02*\n");
    EXPECT_EQ(Vertices(polygon), 152u);
    EXPECT_EQ(Triangles(polygon), 150u);
    EXPECT_NE(LogText().find("Warning: gerber: non-standard polygon vertex count > 12 was accepted\n"),
              std::string::npos);
    EXPECT_NE(LogText().find("gerber: using length unit IN (inches)\n"), std::string::npos);
}

TEST_F(GerberTest, LaterDefinitionReplacesEarlier) {
    const auto data = Convert(header + "%ADD10P,1X3*%\n%ADD10C,0.5*%\nD10*\nD03*\nM02*\n");
    EXPECT_EQ(Vertices(data), 64u);
    const auto back = Convert(header + "%ADD10C,0.5*%\n%ADD10P,1X3*%\nD10*\nD03*\nM02*\n");
    EXPECT_EQ(Vertices(back), 3u);
}

TEST_F(GerberTest, TwoFilesAccumulate) {
    GerberVertexData data;
    ConvertGerberDataIntoVertices(data, header + "%ADD12P,1X3*%\nD12*\nD03*\nM02*\n");
    ConvertGerberDataIntoVertices(data, header + "%ADD12P,1X4*%\nD12*\nD03*\nM02*\n");
    ASSERT_EQ(Vertices(data), 7u);
    EXPECT_EQ(data.indices, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 3, 5, 6}));
    EXPECT_EQ(data.fill.size(), 7u);
}

TEST_F(GerberTest, FailureKeepsWhatWasAppended) {
    GerberVertexData data;
    EXPECT_EQ(ErrorOf(header + "%ADD12P,1X3*%\nD12*\nD03*\nD13*\nD03*\nM02*\n", &data),
              "Failed to flash: no aperture specified or aperture has not been defined");
    EXPECT_EQ(Vertices(data), 3u);
}

TEST_F(GerberTest, NamedApertureEndsTheConversion) {
    EXPECT_EQ(ErrorOf(header + "%AMDONUT*1,1,$1,0,0*%\n%ADD11DONUT,1*%\nM02*\n"),
              "aperture macros are not yet implemented");
}

TEST_F(GerberTest, LogLinesOfTheHandledCommands) {
    Convert("G04 hello*\n%MOMM*%\n%FSLAX36Y25*%\n%LPC*%\n%LPD*%\nG75*\n%LMXY*%\n%TD*%\nM02*\n");
    const std::string log = LogText();
    EXPECT_NE(log.find("[T] Processing Gerber file...\n\n"), std::string::npos);
    EXPECT_NE(log.find("[T] # hello\n"), std::string::npos);
    EXPECT_NE(log.find("[T] gerber: using length unit MM (millimeters)\n"), std::string::npos);
    EXPECT_NE(log.find("[T] gerber: fs digit counts x[3.6] y[2.5]\n"), std::string::npos);
    EXPECT_NE(log.find("[T] gerber: switched to clear polarity\n"), std::string::npos);
    EXPECT_NE(log.find("[T] gerber: switched to dark polarity\n"), std::string::npos);
    EXPECT_NE(log.find("[T] Warning: ignored unimplemented cmd G75*\n"), std::string::npos);
    EXPECT_NE(log.find("[T] Warning: ignored unimplemented cmd %LMXY*%\n"), std::string::npos);
    EXPECT_NE(log.find("[T] Warning: ignored unimplemented cmd %TD\n"), std::string::npos);
}

TEST_F(GerberTest, NestedCommandsAreNeverVisited) {
    // The flash inside the block and the region's contour are not drawn.
    const auto data = Convert(header + "%ADD10C,0.5*%\nD10*\n%ABD12*%\nD03*\n%AB*%\n"
                                       "G36*\nX0Y0D02*\nG01*\nX10000Y0D01*\nG37*\nM02*\n");
    EXPECT_TRUE(data.vertices.empty());
    const std::string log = LogText();
    EXPECT_NE(log.find("Warning: ignored unimplemented cmd %AB\n"), std::string::npos);
    EXPECT_NE(log.find("Warning: ignored unimplemented cmd G36*\n"), std::string::npos);
}

TEST_F(GerberTest, ClearPolarityDrawsLikeDark) {
    const auto data = Convert(header + "%LPC*%\n%ADD12P,1X3*%\nD12*\nD03*\nM02*\n");
    ASSERT_EQ(data.fill.size(), 3u);
    EXPECT_EQ(data.fill[0], 255);
}

TEST_F(GerberTest, InvalidUtf8IsRejected) {
    GerberVertexData data;
    EXPECT_THROW(ConvertGerberDataIntoVertices(data, "G04 \xff\xfe*\nM02*\n"), std::exception);
}

TEST(GerberNumbers, DecimalConversions) {
    using namespace gerber_impl;
    EXPECT_EQ(DecimalToNum<int>("-42"), -42);
    EXPECT_EQ(DecimalToNum<int>("0012"), 12);
    EXPECT_THROW(DecimalToNum<int>(""), Error);
    EXPECT_THROW(DecimalToNum<int>("+1"), Error);
    EXPECT_THROW(DecimalToNum<int>("2147483648"), Error);
    EXPECT_EQ(DecimalToNum<int>("2147483647"), 2147483647);
    EXPECT_THROW(DecimalToNum<int>("1.0"), Error);
    EXPECT_FLOAT_EQ(DecimalToNum<float>("0.25"), 0.25f);
    EXPECT_FLOAT_EQ(DecimalToNum<float>(".5"), 0.5f);
    EXPECT_THROW(DecimalToNum<float>("1e3"), Error);
    EXPECT_THROW(DecimalToNum<float>("+0.5"), Error);
    EXPECT_THROW(DecimalToNum<float>("0.5x"), Error);
}

TEST(GerberNumbers, UnitConversion) {
    using namespace gerber_impl;
    GerberVertexData data;
    GerberProcessState state(data);
    EXPECT_THROW(ValueToMM<float>(state, 1.0f), Error);
    state.lengthUnit = 1;
    EXPECT_EQ(ValueToMM<int>(state, 6), 6);
    state.lengthUnit = 2;
    EXPECT_EQ(ValueToMM<int>(state, 6), 152);
    EXPECT_EQ(ValueToMM<float>(state, 1.0f), 1.0f * 0.0254f * 1000.0f);
}

std::string ReadSample(const std::string& relative) {
    return test::ReadFileBytes(test::GerberSamples() / relative);
}

TEST_F(GerberTest, RealOutlineLayerConverts) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    const std::string text = ReadSample("boards/clockblock/clockblock-Edge_Cuts.gbr");
    ASSERT_FALSE(text.empty());
    GerberVertexData data;
    ConvertGerberDataIntoVertices(data, text);
    EXPECT_GT(Triangles(data), 0u);
    EXPECT_EQ(data.fill.size(), Vertices(data));
    for (uint32_t index : data.indices)
        EXPECT_LT(index, Vertices(data));
}

TEST_F(GerberTest, RealFilesOutsideTheSubsetFailCleanly) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    // A copper layer with rectangle pads ends in the library's own error.
    const std::string text = ReadSample("boards/clockblock/clockblock-F_Cu.gbr");
    ASSERT_FALSE(text.empty());
    GerberVertexData data;
    EXPECT_THROW(ConvertGerberDataIntoVertices(data, text), Error);
}

} // namespace
} // namespace nrq
