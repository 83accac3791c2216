// A conversion in pieces must be indistinguishable from parsing the whole
// file first: same triangles, log, console messages and errors.
#include "HVX/App/Gerber.h"
#include "HVX/Base/Error.h"
#include "HVX/Base/Log.h"
#include "HVX/Filesystem/Filesystem.h"

#include "HVX/App/Gerber/GerberProcessing.h"
#include "support/GerberOutcome.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace nrq {
namespace {

using Outcome = test::GerberOutcome;

// Starts from `before`, so that accumulation is covered too.
Outcome Capture(const std::string& text, size_t pieceSize, const GerberVertexData& before = {}) {
    return test::CaptureGerber([&](GerberVertexData& data) { gerber_impl::ConvertText(data, text, pieceSize); },
                               before);
}

void ExpectSame(const Outcome& whole, const Outcome& pieces, const std::string& what) {
    test::ExpectSameGerberOutcome(whole, pieces, what);
}

// Whole, tiny pieces (a piece ends at nearly every command), middling pieces
// and the size of ConvertGerberDataIntoVertices all agree.
void ExpectSameForAllSizes(const std::string& text, const std::string& what, const GerberVertexData& before = {}) {
    const Outcome whole = Capture(text, 0, before);
    for (size_t size : {size_t(1), size_t(3), size_t(17), size_t(256), gerber_impl::pieceTokens})
        ExpectSame(whole, Capture(text, size, before), what + " in pieces of " + std::to_string(size));
}

class GerberPiecesTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(std::string(fs::GetUserSaveDataDirectory()));
        Log::Init();
    }
};

const std::string header = "%MOMM*%\n%FSLAX24Y24*%\n";

TEST_F(GerberPiecesTest, RealSamplesGiveTheSameResult) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    const std::filesystem::path root = test::GerberSamples();
    size_t files = 0;
    size_t converted = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const std::string text = test::ReadFileBytes(entry.path());
        const Outcome whole = Capture(text, 0);
        converted += whole.error == "(no error)" && !whole.data.indices.empty();
        ++files;
        for (size_t size : {size_t(3), size_t(64), gerber_impl::pieceTokens})
            ExpectSame(whole, Capture(text, size), entry.path().string() + " in pieces of " + std::to_string(size));
    }
    EXPECT_GT(files, 100u);
    // Some real files do convert to triangles, so the comparison is not empty.
    EXPECT_GT(converted, 0u);
}

TEST_F(GerberPiecesTest, BlocksRegionsAndStepRepeatsAreNotSplit) {
    const std::string text = header +
                             "%ADD10C,0.5*%\nD10*\nG01*\nX0Y0D02*\nX10000Y0D01*\n"
                             "%ABD11*%\nG01*\nX0Y0D03*\n%ABD12*%\nX1Y1D03*\n%AB*%\nG75*\n%AB*%\n"
                             "X20000Y0D01*\nG36*\nX0Y0D02*\nG01*\nX1Y1D01*\nX0Y0D02*\nX2Y2D01*\nG37*\n"
                             "%SRX2Y2I1.0J1.0*%\nG01*\nX5Y5D03*\n%SR*%\nX30000Y10000D01*\nG04 the end*\nM02*\n";
    ExpectSameForAllSizes(text, "nested commands");
    const Outcome whole = Capture(text, 0);
    EXPECT_EQ(whole.error, "(no error)");
    EXPECT_FALSE(whole.data.indices.empty());
}

TEST_F(GerberPiecesTest, SyntaxErrorsFallBackToTheWholeFile) {
    const std::vector<std::string> texts = {
        // No M02 at the end.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nG01*\nX1Y1D01*\n",
        // A syntax error late in the file, after output and log lines.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nG01*\nX1Y1D01*\nG04 c*\nX2Y2D01*\n%TF*%\nX3Y3D03*\nM02*\n",
        // An unknown command early.
        header + "G54*\n%ADD10C,0.5*%\nD10*\nX0Y0D03*\nM02*\n",
        // A lexical error (a blank) that the parser does not notice.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0 D03*\nG01*\nX1Y1D01*\nM02*\n",
        // M02 in the middle.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nM02*\nX1Y1D03*\nM02*\n",
        // A block that is never closed.
        header + "%ADD10C,0.5*%\nD10*\n%ABD11*%\nX0Y0D03*\nG01*\nX1Y1D01*\nM02*\n",
        // A region closed twice, then drawing.
        header + "%ADD10C,0.5*%\nD10*\nG36*\nX0Y0D02*\nX1Y1D01*\nG37*\nG37*\nG01*\nX1Y1D01*\nM02*\n",
    };
    for (const std::string& text : texts) {
        ExpectSameForAllSizes(text, text);
        EXPECT_FALSE(Capture(text, 1).console.empty()) << text;
    }
}

TEST_F(GerberPiecesTest, ProcessingErrorsKeepTheirPlaceInTheLog) {
    const std::vector<std::string> texts = {
        // The library's error in the middle, after some output and log lines.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nG04 before*\nG01*\nX1Y1D01*\nD99*\nX2Y2D03*\nG04 after*\nM02*\n",
        // An assertion, which logs its own line.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nG04 before*\n%ADD11R,1X2*%\nG04 after*\nX2Y2D03*\nM02*\n",
        // A processing error followed by a syntax error: the syntax error wins the order.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nD99*\nX2Y2D03*\nG04 after*\nG54*\nM02*\n",
        // Coordinates before the format.
        "%MOMM*%\n%ADD10C,0.5*%\nD10*\nG04 x*\nX0Y0D03*\nM02*\n",
    };
    for (const std::string& text : texts)
        ExpectSameForAllSizes(text, text);
    EXPECT_NE(Capture(texts[1], 1).log.find("Assertion failed"), std::string::npos);
}

TEST_F(GerberPiecesTest, AccumulatesBehindEarlierData) {
    GerberVertexData before;
    ConvertGerberDataIntoVertices(before, header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nM02*\n");
    ASSERT_FALSE(before.indices.empty());
    ExpectSameForAllSizes(header + "%ADD10C,0.5*%\nD10*\nX1Y1D03*\nG01*\nX2Y2D01*\nM02*\n", "second file", before);
    // The undo of a failed attempt in pieces leaves the earlier data alone.
    ExpectSameForAllSizes(header + "%ADD10C,0.5*%\nD10*\nX1Y1D03*\nG54*\nM02*\n", "second file with error", before);
}

TEST_F(GerberPiecesTest, NonAsciiTextGivesTheSameResult) {
    ExpectSameForAllSizes(header + "G04 Größe µm*\n%ADD10C,0.5*%\nD10*\nX1Y1D03*\n%TF.Part,Ä*%\nM02*\n", "non-ASCII");
    ExpectSameForAllSizes(header + "G04 Größe µm*\n%ADD10C,0.5*%\nD10*\nX1Y1D03*\nM02*\n", "non-ASCII");
}

TEST_F(GerberPiecesTest, AsciiTextMatchesTheDecoder) {
    // A byte order mark sends the text through the stream's UTF-8 decoder,
    // which drops the mark; without it ASCII text takes the direct way.
    const std::string text = header + "G04 pads*\n%ADD10C,0.5X0.2*%\nD10*\nX1Y1D03*\nG01*\nX20000Y1D01*\n"
                                      "G03*\nX0Y0I10000J0D01*\nM02*\n";
    for (size_t size : {size_t(0), size_t(2), gerber_impl::pieceTokens}) {
        const Outcome plain = Capture(text, size);
        EXPECT_EQ(plain.error, "(no error)");
        EXPECT_FALSE(plain.data.indices.empty());
        ExpectSame(plain, Capture("\xEF\xBB\xBF" + text, size), "with a byte order mark");
    }
}

} // namespace
} // namespace nrq
