// The direct reading of plain drawings must be indistinguishable from the
// generated parser's: what it accepts has to parse without a single error
// report and convert to the same triangles, log lines and errors; what it
// does not accept it must leave untouched.
#include "HVX/App/Gerber.h"
#include "HVX/Base/Log.h"
#include "HVX/Filesystem/Filesystem.h"

#include "HVX/App/Gerber/GerberProcessing.h"
#include "support/GerberOutcome.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace nrq {
namespace {

using test::GerberOutcome;

// The general path: the whole tree first, then the commands.
GerberOutcome ConvertWhole(const std::string& text, const GerberVertexData& before = {}) {
    return test::CaptureGerber([&](GerberVertexData& data) { gerber_impl::ConvertText(data, text, 0); }, before);
}

struct DirectOutcome {
    bool accepted = false;
    // Whether the log was as before when the direct reading declined.
    bool logUntouchedWhenDeclined = true;
    bool untouchedWhenDeclined = true;
    GerberOutcome outcome;
};

// ConvertGerberDataIntoVertices, step by step.
DirectOutcome ConvertDirect(const std::string& text, const GerberVertexData& before = {}) {
    DirectOutcome result;
    result.outcome = test::CaptureGerber(
        [&](GerberVertexData& data) {
            const std::string logBefore = test::LogWithoutTimeStamps();
            // Declining never raises: an error means the text was taken.
            result.accepted = true;
            if (gerber_impl::ConvertDirect(data, text))
                return;
            result.accepted = false;
            result.logUntouchedWhenDeclined = test::LogWithoutTimeStamps() == logBefore;
            result.untouchedWhenDeclined = test::SameGerberBytes(data.vertices, before.vertices) &&
                                           test::SameGerberBytes(data.indices, before.indices) &&
                                           test::SameGerberBytes(data.fill, before.fill);
            gerber_impl::ConvertText(data, text, gerber_impl::pieceTokens);
        },
        before);
    return result;
}

// Accepted, error-free for the parser, and the same in every respect.
void ExpectAcceptedAndSame(const std::string& text, const GerberVertexData& before = {}) {
    const GerberOutcome whole = ConvertWhole(text, before);
    const DirectOutcome direct = ConvertDirect(text, before);
    EXPECT_TRUE(direct.accepted) << text;
    EXPECT_EQ(whole.console, "") << text;
    test::ExpectSameGerberOutcome(whole, direct.outcome, text);
}

// Declined without a trace, and the general path's result all the same.
void ExpectDeclined(const std::string& text) {
    const DirectOutcome direct = ConvertDirect(text);
    EXPECT_FALSE(direct.accepted) << text;
    EXPECT_TRUE(direct.logUntouchedWhenDeclined) << text;
    EXPECT_TRUE(direct.untouchedWhenDeclined) << text;
    test::ExpectSameGerberOutcome(ConvertWhole(text), direct.outcome, text);
}

class GerberDirectTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(std::string(fs::GetUserSaveDataDirectory()));
        Log::Init();
    }
};

const std::string header = "%MOMM*%\n%FSLAX24Y24*%\n";

TEST_F(GerberDirectTest, PlainDrawingsAreReadDirectly) {
    const std::vector<std::string> texts = {
        "M02*",
        "\r\n\nM02*\r\n\n",
        "G04*\nG04 a comment\nover two lines, with: D01 X1 G01 #$&()*\nM02*\n",
        header + "%LPD*%\n%LPC*%\n%LMN*%\n%LMXY*%\n%LMX*%\n%LMY*%\nG75*\nM02*\n",
        "%MOIN*%\n%FSLAX36Y36*%\n%ADD10C,0.01X0.004*%\nD10*\nX1000Y-2000D03*\nG01*\nX+3000Y0D01*\nM02*\n",
        // Every combination of coordinates, and operations without any.
        header + "%ADD10C,0.5*%\nD10*\nG01*\nX1D02*\nY2D01*\nX3Y4D01*\nD01*\nD02*\nD03*\nX0Y0D03*\nM02*\n",
        // Leading zeros, signs, more digits than the format holds, and more
        // digits than an exact integer holds.
        header + "%ADD0010C,.5*%\nD00010*\nG01*\nX000001Y-0D02*\nX-123456789Y+12D01*\n"
                 "X12345678901234567890123Y1D01*\nM02*\n",
        // Line ends between any two tokens.
        header + "%AD\nD11\nP\n,\n1.5\nX\n6\nX\n-2\nX\n0.2\n*\n%\nD11\r\n*\nX\n5\r\nY\n6\nD03*\nM02*\n",
        // Arcs both ways, with I and J alone and with X and Y.
        header + "%ADD10C,0.2*%\nD10*\nX10000Y0D02*\nG03*\nX0Y10000I-10000J0D01*\nG02*\nI0J-5000D01*\n"
                 "X-1Y-1\nI1\nJ1\nD01*\nM02*\n",
        // Regions are announced only; the modes inside them do not count.
        header + "%ADD10C,0.2*%\nD10*\nG01*\nG36*\nX0Y0D02*\nG02*\nX1Y1I1J0D01*\nG03*\nD01*\nX5Y5D02*\n"
                 "G01*\nX6Y6D01*\nG37*\nX10000Y10000D01*\nM02*\n",
        "G36*\nD02*\nG37*\nM02*\n",
        // Polygons with every optional part, over 12 vertices, and under inches.
        header + "%ADD12P,1X6*%\n%ADD13P,1X8X2*%\n%ADD14P,1.5X16X-3X0.5*%\nD12*\nX1Y1D03*\nD13*\nX2Y2D03*\nD14*\n"
                 "X3Y3D03*\nM02*\n",
        "%MOIN*%\n%FSLAX24Y24*%\n%ADD12P,0.1X6*%\nD12*\nX1Y1D03*\nM02*\n",
        // A later definition replaces an earlier one; a hole disc; a zero disc.
        header + "%ADD10C,0.5*%\n%ADD10C,0.8X0.3*%\nD10*\nX1Y1D03*\n%ADD11C,0*%\nD11*\nX2Y2D03*\nG01*\n"
                 "X3Y3D01*\nM02*\n",
        // A D-code of D01 with the asterisk on the next line selects aperture 1.
        header + "%ADD1C,0.5*%\nD01\n*\nX1Y1D03*\nM02*\n",
        // Mirrored arc band of a full turn: NaN coordinates compare as bytes.
        header + "%ADD10C,0.5*%\nD10*\nX1000Y0D02*\nG02*\nX1000Y0I-1000J0D01*\nM02*\n",
    };
    for (const std::string& text : texts)
        ExpectAcceptedAndSame(text);
}

TEST_F(GerberDirectTest, ConversionErrorsComeAfterTheWholeFileIsRead) {
    const std::vector<std::string> texts = {
        // Undefined aperture, with log lines before and after.
        header + "G04 before*\n%ADD10C,0.5*%\nD10*\nX0Y0D03*\nD99*\nX1Y1D03*\nG04 after*\nM02*\n",
        // Assertions, which log their own line.
        header + "%ADD11R,1X2*%\nM02*\n",
        header + "%ADD11O,1X2X0.5*%\nD11*\nX1Y1D03*\nM02*\n",
        header + "%ADD11R,1X0X0.5*%\nM02*\n",
        header + "%ADD10C,-0.5*%\nM02*\n",
        header + "%ADD12P,1X2*%\nM02*\n",
        header + "%ADD12P,0X6*%\nM02*\n",
        // Numbers that only the conversion rejects.
        header + "%ADD12P,1X6X45.0*%\nM02*\n",
        header + "%ADD13P,1X3.0*%\nM02*\n",
        header + "%ADD10C,+0.5*%\nM02*\n",
        header + "%ADD99999999999C,0.5*%\nM02*\n",
        header + "D99999999999*\nM02*\n",
        // Named templates are macros.
        header + "%ADD11MYSHAPE,1X2X3*%\nM02*\n",
        header + "%ADD12RECT,1*%\nM02*\n",
        header + "%ADD13CIRCLE*%\nM02*\n",
        header + "%ADD14.X*%\nM02*\n",
        // Arcs without a centre, or with a zero one.
        header + "%ADD10C,0.5*%\nD10*\nG02*\nX1Y1D01*\nM02*\n",
        header + "%ADD10C,0.5*%\nD10*\nG03*\nX1Y1I0J0D01*\nM02*\n",
        // Lines through polygons warn and go on.
        header + "%ADD12P,1X6*%\nD12*\nG01*\nX1Y1D01*\nG03*\nX2Y2I1J1D01*\nM02*\n",
        // Coordinates before the format, lengths before the unit.
        "%MOMM*%\n%ADD10C,0.5*%\nD10*\nX0Y0D03*\nM02*\n",
        "%FSLAX24Y24*%\nX0Y0D02*\nM02*\n",
        "%FSLAX24Y24*%\n%ADD10C,0.5*%\nM02*\n",
        // An error in the middle; everything after it is only read.
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nD11*\nX1Y1D03*\nG01*\nX5Y5D01*\nG04 never*\nM02*\n",
    };
    for (const std::string& text : texts)
        ExpectAcceptedAndSame(text);
}

TEST_F(GerberDirectTest, AccumulatesBehindEarlierData) {
    GerberVertexData before;
    ConvertGerberDataIntoVertices(before, header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\nM02*\n");
    ASSERT_FALSE(before.indices.empty());
    ExpectAcceptedAndSame(header + "%ADD10C,0.5*%\nD10*\nX1Y1D03*\nG01*\nX2Y2D01*\nM02*\n", before);
    ExpectAcceptedAndSame(header + "%ADD10C,0.5*%\nD10*\nX1Y1D03*\nD11*\nX2Y2D03*\nM02*\n", before);
}

TEST_F(GerberDirectTest, AnythingElseIsLeftToTheParser) {
    const std::vector<std::string> texts = {
        // Valid, but not read directly.
        header + "%AMDONUT*1,1,$1,0,0*%\nM02*\n",
        header + "%TF.Part,Single*%\n%TA.AperFunction,Conductor*%\n%TO.N,GND*%\n%TD*%\nM02*\n",
        header + "%SRX2Y2I1.0J1.0*%\nX5Y5D03*\n%SR*%\nM02*\n",
        header + "%ABD11*%\nX1Y1D03*\n%AB*%\nM02*\n",
        header + "%LR45*%\n%LS0.5*%\nM02*\n",
        header + "G04 Größe*\nM02*\n",
        "\xEF\xBB\xBF" + header + "M02*\n",
        // Not valid at all.
        "",
        header,
        header + "%ADD10C,0.5*%\nD10*\nX0Y0D03*\n",
        header + "M02*\nX0Y0D03*\nM02*\n",
        header + "M02*\nG04 trailing*\n",
        header + "M02* \n",
        header + " M02*\n",
        header + "X0Y0 D03*\nM02*\n",
        header + "X1D03*\tM02*\n",
        header + "D0*\nM02*\n",
        header + "D10\nM02*\n",
        header + "G01\n*\nM02*\n",
        header + "G01X1Y1D01*\nM02*\n",
        header + "G54D10*\nM02*\n",
        header + "G04 unterminated\nM02",
        header + "G04 with a % sign*\nM02*\n",
        header + "X1Y1I1J1D02*\nM02*\n",
        header + "X1Y1I1J1D03*\nM02*\n",
        header + "Y1X1D02*\nM02*\n",
        header + "X1X1D02*\nM02*\n",
        header + "X1Y1I1D01*\nM02*\n",
        header + "J1I1D01*\nM02*\n",
        header + "X+D02*\nM02*\n",
        header + "X1Y1D04*\nM02*\n",
        header + "X1Y1D10*\nM02*\n",
        header + "X1Y1*\nM02*\n",
        header + "12*\nM02*\n",
        header + "*\nM02*\n",
        header + "%\nM02*\n",
        header + "G36*\nG37*\nM02*\n",
        header + "G36*\nX1Y1D01*\nG37*\nM02*\n",
        header + "G36*\nG01*\nX1Y1D02*\nG37*\nM02*\n",
        header + "G36*\nX1Y1D02*\nX1Y1D03*\nG37*\nM02*\n",
        header + "G36*\nX1Y1D02*\nD10*\nG37*\nM02*\n",
        header + "G36*\nX1Y1D02*\nM02*\n",
        header + "G37*\nM02*\n",
        header + "%MOCM*%\nM02*\n",
        "%FSLAX2Y24*%\nM02*\n",
        "%FSTAX24Y24*%\nM02*\n",
        "%FSLAX24Y24*\nM02*\n",
        header + "%LPX*%\nM02*\n",
        header + "%LMZ*%\nM02*\n",
        header + "%ADD10C*%\nM02*\n",
        header + "%ADD10C,*%\nM02*\n",
        header + "%ADD10C,1X2X3*%\nM02*\n",
        header + "%ADD10C,1Y2*%\nM02*\n",
        header + "%ADD10C,1.*%\nM02*\n",
        header + "%ADD10C,-.5*%\nM02*\n",
        header + "%ADD10C,1.5.5*%\nM02*\n",
        header + "%ADD10C,1*\nM02*\n",
        header + "%ADD10R,1*%\nM02*\n",
        header + "%ADD10R,1X2X3X4*%\nM02*\n",
        header + "%ADD10P,1*%\nM02*\n",
        header + "%ADD10P,1X2X3X4X5*%\nM02*\n",
        header + "%ADD0C,1*%\nM02*\n",
        header + "%ADD10,1*%\nM02*\n",
        header + "%ADD10C 1*%\nM02*\n",
        header + "%AD10C,1*%\nM02*\n",
    };
    for (const std::string& text : texts)
        ExpectDeclined(text);
}

TEST_F(GerberDirectTest, RealSamplesGiveTheSameResult) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    const std::filesystem::path root = test::GerberSamples();
    size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const std::string text = test::ReadFileBytes(entry.path());
        const GerberOutcome whole = ConvertWhole(text);
        const DirectOutcome direct = ConvertDirect(text);
        if (direct.accepted)
            EXPECT_EQ(whole.console, "") << entry.path();
        else
            EXPECT_TRUE(direct.logUntouchedWhenDeclined) << entry.path();
        test::ExpectSameGerberOutcome(whole, direct.outcome, entry.path().string());
        ++files;
    }
    EXPECT_GT(files, 100u);
}

// Random drawings of every command the direct reading knows, with line ends
// strewn between tokens.
class DrawingGenerator {
public:
    explicit DrawingGenerator(unsigned seed) : random(seed) {}

    std::string Next() {
        std::string text = Pick(4) == 0 ? "%MOIN*%" : "%MOMM*%";
        Break(text);
        text += "%FSLAX" + std::to_string(Pick(7)) + std::to_string(Pick(7)) + "Y" + std::to_string(Pick(7)) +
                std::to_string(Pick(7)) + "*%";
        const int commands = 5 + Pick(60);
        for (int k = 0; k < commands; ++k) {
            Break(text);
            Command(text);
        }
        Break(text);
        text += "M02*";
        Break(text);
        return text;
    }

private:
    std::mt19937 random;

    int Pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); }

    void Break(std::string& text) {
        static const char* const breaks[] = {"", "", "", "\n", "\r\n", "\n\n\r"};
        text += breaks[Pick(6)];
    }

    std::string Digits(int most) {
        std::string digits;
        const int count = 1 + Pick(most);
        for (int k = 0; k < count; ++k)
            digits += static_cast<char>('0' + (k == 0 && Pick(3) == 0 ? 0 : Pick(10)));
        return digits;
    }

    std::string Integer() {
        static const char* const signs[] = {"", "", "-", "+"};
        return signs[Pick(4)] + Digits(Pick(8) == 0 ? 24 : 9);
    }

    std::string Decimal() {
        static const char* const signs[] = {"", "", "", "-"};
        switch (Pick(4)) {
        case 0: return signs[Pick(4)] + Digits(2);
        case 1: return "." + Digits(3);
        default: return signs[Pick(4)] + Digits(2) + "." + Digits(4);
        }
    }

    std::string DCode() { return "D" + std::string(Pick(3), '0') + std::to_string(10 + Pick(6)); }

    void Token(std::string& text, const std::string& token) {
        Break(text);
        text += token;
    }

    void Operation(std::string& text, bool arcs, const char* code) {
        if (Pick(4) != 0) {
            Token(text, "X");
            Token(text, Integer());
        }
        if (Pick(4) != 0) {
            Token(text, "Y");
            Token(text, Integer());
        }
        if (arcs && Pick(3) != 0) {
            Token(text, "I");
            Token(text, Pick(6) == 0 ? "0" : Integer());
            Token(text, "J");
            Token(text, Pick(6) == 0 ? "0" : Integer());
        }
        Token(text, code);
    }

    void Definition(std::string& text) {
        static const char* const templates[] = {"C", "C", "C", "P", "P", "R", "O", "OVAL"};
        static const int fewest[] = {1, 1, 1, 2, 2, 2, 2, 0};
        static const int most[] = {2, 2, 2, 4, 4, 3, 3, 3};
        const int kind = Pick(8);
        text += "%AD";
        Token(text, DCode());
        Token(text, templates[kind]);
        const int count = fewest[kind] + Pick(most[kind] - fewest[kind] + 1);
        for (int k = 0; k < count; ++k) {
            Token(text, k == 0 ? "," : "X");
            // Polygon counts and rotations are mostly whole numbers.
            const bool whole = kind >= 3 && kind <= 4 && (k == 1 || k == 2) && Pick(8) != 0;
            Token(text, whole ? std::to_string(k == 1 ? 3 + Pick(14) : Pick(7) - 3) : Decimal());
        }
        Token(text, "*");
        Token(text, "%");
    }

    void Command(std::string& text) {
        switch (Pick(16)) {
        case 0: Definition(text); break;
        case 1: text += DCode(); Token(text, "*"); break;
        case 2: text += "G01*"; break;
        case 3: text += Pick(2) ? "G02*" : "G03*"; break;
        case 4: text += "G04 note " + Integer() + "\nmore*"; break;
        case 5: text += Pick(2) ? "%LPD*%" : "%LMXY*%"; break;
        case 6: text += "G75*"; break;
        case 7:
            text += "G36*";
            Operation(text, false, "D02*");
            for (int k = Pick(4); k > 0; --k) {
                Break(text);
                if (Pick(3) == 0)
                    text += "G01*";
                else
                    Operation(text, true, "D01*");
            }
            Token(text, "G37*");
            break;
        case 8: case 9: Operation(text, false, Pick(2) ? "D02*" : "D03*"); break;
        default: Operation(text, true, "D01*"); break;
        }
    }
};

TEST_F(GerberDirectTest, GeneratedDrawingsMatch) {
    DrawingGenerator generator(20261121);
    for (int k = 0; k < 300; ++k) {
        // Every file gets the same apertures first, so that most drawing acts.
        std::string text = generator.Next();
        const size_t format = text.find("*%", text.find("%FS")) + 2;
        text.insert(format, "%ADD10C,0.1*%%ADD11C,0.2X0.1*%%ADD12P,0.3X5*%%ADD13P,0.3X7X1X0.1*%D10*");
        ExpectAcceptedAndSame(text);
        if (HasFailure())
            break;
    }
}

// Small edits of valid drawings: whatever the direct reading still accepts
// must be valid for the parser and convert the same.
TEST_F(GerberDirectTest, EditedDrawingsAreAcceptedOnlyWhenValid) {
    const std::vector<std::string> seeds = {
        header + "%ADD10C,0.5X0.2*%\n%ADD12P,1X6X2*%\nD10*\nG01*\nX100Y200D02*\nX-300Y400D01*\nG03*\n"
                 "X0Y0I100J-100D01*\nD12*\nX5Y5D03*\nG04 note*\n%LPD*%\nG36*\nX0Y0D02*\nX1Y1D01*\nG37*\nM02*\n",
        "%MOIN*%\n%FSLAX36Y36*%\n%ADD10C,.01*%\nD10*\nG02*\nX1000Y1000I500J0D01*\n%LMX*%\nG75*\nD03*\nM02*\n",
    };
    // Digits and line ends most often, as they keep a drawing valid.
    const std::string alphabet = "0123456789012345678901234567890123456789\n\n\n\nXYIJDGMC+-.,*%\r OPRL";
    std::mt19937 random(7);
    size_t accepted = 0;
    size_t declined = 0;
    for (int k = 0; k < 2000 && !HasFailure(); ++k) {
        std::string text = seeds[static_cast<size_t>(k) % seeds.size()];
        for (int edits = 1 + static_cast<int>(random() % 2); edits > 0; --edits) {
            const size_t at = random() % text.size();
            const char c = alphabet[random() % alphabet.size()];
            switch (random() % 3) {
            case 0: text[at] = c; break;
            case 1: text.insert(at, 1, c); break;
            default: text.erase(at, 1); break;
            }
        }
        GerberVertexData probe;
        bool accepts = true;
        test::CaptureGerber([&](GerberVertexData& data) { accepts = gerber_impl::ConvertDirect(data, text); }, probe);
        if (accepts) {
            ++accepted;
            ExpectAcceptedAndSame(text);
        } else {
            ++declined;
            ExpectDeclined(text);
        }
    }
    // Both kinds of edit occur often enough for the test to mean something.
    EXPECT_GT(accepted, 300u);
    EXPECT_GT(declined, 300u);
}

} // namespace
} // namespace nrq
