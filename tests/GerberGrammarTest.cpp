#include "GerberLexer.h"
#include "GerberParser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Lexed {
    std::vector<size_t> types;
    std::vector<std::string> texts;
    size_t errors = 0;
};

Lexed Lex(const std::string& text) {
    antlr4::ANTLRInputStream input(text);
    GerberLexer lexer(&input);
    lexer.removeErrorListeners();
    Lexed result;
    for (auto token = lexer.nextToken(); token->getType() != antlr4::Token::EOF; token = lexer.nextToken()) {
        result.types.push_back(token->getType());
        result.texts.push_back(token->getText());
    }
    result.errors = lexer.getNumberOfSyntaxErrors();
    return result;
}

// Keeps the objects alive that the tree points into.
struct Parsed {
    explicit Parsed(const std::string& text) : input(text), lexer(&input), tokens(&lexer), parser(&tokens) {
        lexer.removeErrorListeners();
        parser.removeErrorListeners();
        tree = parser.gerb();
    }
    size_t Errors() { return lexer.getNumberOfSyntaxErrors() + parser.getNumberOfSyntaxErrors(); }

    antlr4::ANTLRInputStream input;
    GerberLexer lexer;
    antlr4::CommonTokenStream tokens;
    GerberParser parser;
    GerberParser::GerbContext* tree = nullptr;
};

TEST(GerberGrammar, TokenTypesFollowTheRuleOrder) {
    const std::vector<std::pair<size_t, const char*>> expected = {
        {GerberLexer::MO, "MO"}, {GerberLexer::FS, "FS"}, {GerberLexer::AD, "AD"}, {GerberLexer::AM, "AM"},
        {GerberLexer::D01, "D01"}, {GerberLexer::D02, "D02"}, {GerberLexer::D03, "D03"},
        {GerberLexer::DCODE, "DCODE"}, {GerberLexer::G01, "G01"}, {GerberLexer::G02, "G02"},
        {GerberLexer::G03, "G03"}, {GerberLexer::G04, "G04"}, {GerberLexer::G75, "G75"},
        {GerberLexer::G36, "G36"}, {GerberLexer::G37, "G37"}, {GerberLexer::LP, "LP"}, {GerberLexer::LM, "LM"},
        {GerberLexer::LR, "LR"}, {GerberLexer::LS, "LS"}, {GerberLexer::AB, "AB"}, {GerberLexer::SR, "SR"},
        {GerberLexer::TF, "TF"}, {GerberLexer::TA, "TA"}, {GerberLexer::TO, "TO"}, {GerberLexer::TD, "TD"},
        {GerberLexer::M02, "M02"}, {GerberLexer::X, "X"}, {GerberLexer::Y, "Y"}, {GerberLexer::I, "I"},
        {GerberLexer::J, "J"}, {GerberLexer::INTEGER, "INTEGER"}, {GerberLexer::ASTERISK, "ASTERISK"},
        {GerberLexer::END, "END"}, {GerberLexer::NEWLINE, "NEWLINE"}, {GerberLexer::SEP, "SEP"},
        {GerberLexer::MACRO_VARIABLE, "MACRO_VARIABLE"}, {GerberLexer::DECIMAL, "DECIMAL"},
        {GerberLexer::COM_NEWLINE, "COM_NEWLINE"}, {GerberLexer::STRING, "STRING"},
        {GerberLexer::STRING_NEWLINE, "STRING_NEWLINE"}, {GerberLexer::AD_NEWLINE, "AD_NEWLINE"},
        {GerberLexer::AD_C, "AD_C"}, {GerberLexer::AD_R, "AD_R"}, {GerberLexer::AD_O, "AD_O"},
        {GerberLexer::AD_P, "AD_P"}, {GerberLexer::NAME, "NAME"}, {GerberLexer::AD1_NEWLINE, "AD1_NEWLINE"},
        {GerberLexer::CO_NEWLINE, "CO_NEWLINE"}, {GerberLexer::AM_NEWLINE, "AM_NEWLINE"},
        {GerberLexer::PRIMID0, "PRIMID0"}, {GerberLexer::PRIMID1, "PRIMID1"}, {GerberLexer::PRIMID20, "PRIMID20"},
        {GerberLexer::PRIMID21, "PRIMID21"}, {GerberLexer::PRIMID4, "PRIMID4"}, {GerberLexer::PRIMID5, "PRIMID5"},
        {GerberLexer::PRIMID7, "PRIMID7"}, {GerberLexer::MACSTART_NEWLINE, "MACSTART_NEWLINE"},
        {GerberLexer::ASSIGN, "ASSIGN"}, {GerberLexer::ADD, "ADD"}, {GerberLexer::SUB, "SUB"},
        {GerberLexer::MUL, "MUL"}, {GerberLexer::DIV, "DIV"}, {GerberLexer::PARENL, "PARENL"},
        {GerberLexer::PARENR, "PARENR"}, {GerberLexer::MAC_NEWLINE, "MAC_NEWLINE"},
        {GerberLexer::FILE_ATTRIBUTE_BUILTIN, "FILE_ATTRIBUTE_BUILTIN"},
        {GerberLexer::APERTURE_ATTRIBUTE_BUILTIN, "APERTURE_ATTRIBUTE_BUILTIN"},
        {GerberLexer::OBJECT_ATTRIBUTE_BUILTIN, "OBJECT_ATTRIBUTE_BUILTIN"}, {GerberLexer::USER_NAME, "USER_NAME"},
        {GerberLexer::TX_NEWLINE, "TX_NEWLINE"}, {GerberLexer::FIELD, "FIELD"},
        {GerberLexer::FIELD_NEWLINE, "FIELD_NEWLINE"},
    };
    ASSERT_EQ(expected.size(), 72u);
    antlr4::ANTLRInputStream input("");
    GerberLexer lexer(&input);
    const antlr4::dfa::Vocabulary& vocabulary = lexer.getVocabulary();
    EXPECT_EQ(vocabulary.getMaxTokenType(), 72u);
    for (size_t k = 0; k < expected.size(); ++k) {
        EXPECT_EQ(expected[k].first, k + 1) << expected[k].second;
        EXPECT_EQ(vocabulary.getSymbolicName(k + 1), expected[k].second);
    }
    // The parser sees the same numbering.
    EXPECT_EQ(size_t(GerberParser::DECIMAL), 37u);
    EXPECT_EQ(size_t(GerberParser::FIELD_NEWLINE), 72u);
}

TEST(GerberGrammar, LexerHasAllRulesAndModes) {
    antlr4::ANTLRInputStream input("");
    GerberLexer lexer(&input);
    EXPECT_EQ(lexer.getRuleNames().size(), 101u);
    EXPECT_EQ(lexer.getRuleNames().front(), "MO");
    EXPECT_EQ(lexer.getRuleNames().back(), "SIGN");
    EXPECT_EQ(lexer.getModeNames(),
              (std::vector<std::string>{"DEFAULT_MODE", "COMMAND", "MODE_STRING", "MODE_AD", "MODE_AD1", "COORD",
                                        "MODE_AM", "MACRO_BODY_START", "MACRO_BODY", "TX", "FIELDS"}));
}

TEST(GerberGrammar, ParserRulesInOrder) {
    antlr4::ANTLRInputStream input("");
    GerberLexer lexer(&input);
    antlr4::CommonTokenStream tokens(&lexer);
    GerberParser parser(&tokens);
    EXPECT_EQ(parser.getRuleNames(),
              (std::vector<std::string>{"gerb", "com", "ad", "am", "macro_line", "expr", "dnn", "d01", "d02", "d03",
                                        "lr", "ls", "region_statement", "contour", "sr_open", "sr_close", "tf", "ta",
                                        "to", "td", "file_attribute_name", "aperture_attribute_name",
                                        "object_attribute_name", "any_attribute_name"}));
}

TEST(GerberGrammar, FormatIsOneTokenWithTwoDigitsPerSide) {
    const Lexed ok = Lex("%FSLAX36Y36*%");
    EXPECT_EQ(ok.types, (std::vector<size_t>{GerberLexer::FS}));
    EXPECT_EQ(ok.texts[0], "%FSLAX36Y36*%");
    EXPECT_EQ(ok.errors, 0u);
    for (const char* bad : {"%FSTAX36Y36*%", "%FSLIX36Y36*%", "%FSLAX3Y36*%", "%FSLAX36Y6*%"}) {
        const Lexed lexed = Lex(bad);
        EXPECT_GT(lexed.errors, 0u) << bad;
        for (size_t type : lexed.types)
            EXPECT_NE(type, size_t(GerberLexer::FS)) << bad;
    }
}

TEST(GerberGrammar, LoadMirroringForms) {
    for (const char* good : {"%LMXY*%", "%LMX*%", "%LMY*%", "%LMN*%"}) {
        const Lexed lexed = Lex(good);
        EXPECT_EQ(lexed.types, (std::vector<size_t>{GerberLexer::LM})) << good;
        EXPECT_EQ(lexed.errors, 0u) << good;
    }
    const Lexed bad = Lex("%LMZ*%");
    EXPECT_GT(bad.errors, 0u);
    for (size_t type : bad.types)
        EXPECT_NE(type, size_t(GerberLexer::LM));
}

TEST(GerberGrammar, ApertureSelectionNeedsANonZeroDigit) {
    const Lexed zero = Lex("D0*");
    EXPECT_TRUE(zero.types.empty() || zero.types[0] != size_t(GerberLexer::DCODE));
    EXPECT_GT(zero.errors, 0u);

    const Lexed padded = Lex("D00012*");
    EXPECT_EQ(padded.types, (std::vector<size_t>{GerberLexer::DCODE, GerberLexer::ASTERISK}));
    EXPECT_EQ(padded.texts[0], "D00012");

    // With the asterisk the operation codes win by length.
    EXPECT_EQ(Lex("D02*").types, (std::vector<size_t>{GerberLexer::D02}));
    EXPECT_EQ(Lex("D010*").types, (std::vector<size_t>{GerberLexer::DCODE, GerberLexer::ASTERISK}));
    EXPECT_EQ(Lex("D1*").types, (std::vector<size_t>{GerberLexer::DCODE, GerberLexer::ASTERISK}));
}

TEST(GerberGrammar, ApertureDefinitionModes) {
    const Lexed lexed = Lex("%ADD10C,0.5X0.2*%");
    EXPECT_EQ(lexed.types, (std::vector<size_t>{GerberLexer::AD, GerberLexer::DCODE, GerberLexer::AD_C,
                                                GerberLexer::SEP, GerberLexer::DECIMAL, GerberLexer::X,
                                                GerberLexer::DECIMAL, GerberLexer::ASTERISK, GerberLexer::END}));
    EXPECT_EQ(lexed.errors, 0u);
}

TEST(GerberGrammar, CommentRunsToTheFirstAsteriskAcrossLines) {
    const Lexed lexed = Lex("G04 first\nsecond*\nG01*");
    EXPECT_EQ(lexed.types, (std::vector<size_t>{GerberLexer::G04, GerberLexer::G01}));
    EXPECT_EQ(lexed.texts[0], "G04 first\nsecond*");
}

TEST(GerberGrammar, BlanksAreErrorsOutsideText) {
    EXPECT_GT(Lex("G01* G02*").errors, 0u);
    EXPECT_EQ(Lex("G04 a b c*").errors, 0u);
}

TEST(GerberGrammar, AttributeDeleteWithoutNameIsAccepted) {
    Parsed parsed("%TD*%\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    ASSERT_EQ(parsed.tree->com().size(), 1u);
    EXPECT_NE(dynamic_cast<GerberParser::ComTDContext*>(parsed.tree->com(0)), nullptr);
}

TEST(GerberGrammar, FileAttributeNeedsAName) {
    Parsed parsed("%TF*%\nM02*\n");
    EXPECT_GT(parsed.parser.getNumberOfSyntaxErrors(), 0u);
    Parsed named("%TF.FileFunction,Copper,L1,Top*%\nM02*\n");
    EXPECT_EQ(named.Errors(), 0u);
}

TEST(GerberGrammar, MissingEndIsReportedAndEarlierCommandsStay) {
    Parsed parsed("%MOMM*%\nG01*\nD10*\n");
    EXPECT_GT(parsed.parser.getNumberOfSyntaxErrors(), 0u);
    ASSERT_EQ(parsed.tree->com().size(), 3u);
    EXPECT_NE(dynamic_cast<GerberParser::ComMOContext*>(parsed.tree->com(0)), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::ComG01Context*>(parsed.tree->com(1)), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::ComDNNContext*>(parsed.tree->com(2)), nullptr);
}

TEST(GerberGrammar, NamedTemplates) {
    Parsed parsed("%ADD11MYSHAPE,1X2X3*%\n%ADD12RECT,1*%\n%ADD13R,1X2*%\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    ASSERT_EQ(parsed.tree->com().size(), 3u);
    auto adOf = [&](size_t k) { return dynamic_cast<GerberParser::ComADContext*>(parsed.tree->com(k))->ad(); };
    auto* shape = dynamic_cast<GerberParser::AdNamedContext*>(adOf(0));
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(shape->NAME()->getText(), "MYSHAPE");
    EXPECT_EQ(shape->DECIMAL().size(), 3u);
    auto* rect = dynamic_cast<GerberParser::AdNamedContext*>(adOf(1));
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(rect->NAME()->getText(), "RECT");
    EXPECT_NE(dynamic_cast<GerberParser::AdRContext*>(adOf(2)), nullptr);
}

TEST(GerberGrammar, MacroNeedsAtLeastOneLine) {
    Parsed donut("%AMDONUT*1,1,$1,0,0*%\nM02*\n");
    EXPECT_EQ(donut.Errors(), 0u);
    ASSERT_EQ(donut.tree->com().size(), 1u);
    EXPECT_NE(dynamic_cast<GerberParser::ComAMContext*>(donut.tree->com(0)), nullptr);

    Parsed empty("%AMDONUT*%\nM02*\n");
    EXPECT_GT(empty.parser.getNumberOfSyntaxErrors(), 0u);
}

TEST(GerberGrammar, MacroCommentAndVariables) {
    Parsed parsed("%AMBOX*0 a comment, with commas*$2=$1x2*21,1,$2,$1,0,0,0*%\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    auto* am = dynamic_cast<GerberParser::ComAMContext*>(parsed.tree->com(0))->am();
    ASSERT_EQ(am->macro_line().size(), 3u);
    EXPECT_NE(dynamic_cast<GerberParser::Prim0Context*>(am->macro_line(0)), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::VardefContext*>(am->macro_line(1)), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::Prim21Context*>(am->macro_line(2)), nullptr);
}

TEST(GerberGrammar, LeadingSignTakesInTheBinaryOperationsToItsRight) {
    Parsed parsed("%AMT*$1=-2x3+1*%\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    auto* am = dynamic_cast<GerberParser::ComAMContext*>(parsed.tree->com(0))->am();
    auto* vardef = dynamic_cast<GerberParser::VardefContext*>(am->macro_line(0));
    ASSERT_NE(vardef, nullptr);
    auto* negation = dynamic_cast<GerberParser::ExprUnContext*>(vardef->expr());
    ASSERT_NE(negation, nullptr);
    auto* sum = dynamic_cast<GerberParser::ExprBinContext*>(negation->expr());
    ASSERT_NE(sum, nullptr);
    EXPECT_NE(sum->ADD(), nullptr);
    auto* product = dynamic_cast<GerberParser::ExprBinContext*>(sum->expr(0));
    ASSERT_NE(product, nullptr);
    EXPECT_NE(product->MUL(), nullptr);
}

TEST(GerberGrammar, MultiplicationBindsTighterAndIsLeftAssociative) {
    Parsed parsed("%AMT*$1=1-2-3x4*%\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    auto* am = dynamic_cast<GerberParser::ComAMContext*>(parsed.tree->com(0))->am();
    auto* top = dynamic_cast<GerberParser::ExprBinContext*>(
        dynamic_cast<GerberParser::VardefContext*>(am->macro_line(0))->expr());
    ASSERT_NE(top, nullptr);
    EXPECT_NE(top->SUB(), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::ExprBinContext*>(top->expr(0)), nullptr); // (1-2)
    auto* right = dynamic_cast<GerberParser::ExprBinContext*>(top->expr(1));          // 3x4
    ASSERT_NE(right, nullptr);
    EXPECT_NE(right->MUL(), nullptr);
}

bool ContainsRegionStatement(antlr4::tree::ParseTree* node) {
    if (dynamic_cast<GerberParser::Region_statementContext*>(node))
        return true;
    for (antlr4::tree::ParseTree* child : node->children)
        if (ContainsRegionStatement(child))
            return true;
    return false;
}

TEST(GerberGrammar, RegionsAreSpelledOutInCom) {
    Parsed parsed("G36*\nX0Y0D02*\nG01*\nX100Y0D01*\nX100Y100D01*\nX0Y0D01*\nG37*\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    ASSERT_EQ(parsed.tree->com().size(), 1u);
    auto* region = dynamic_cast<GerberParser::ComREGIONContext*>(parsed.tree->com(0));
    ASSERT_NE(region, nullptr);
    EXPECT_EQ(region->contour().size(), 1u);
    EXPECT_FALSE(ContainsRegionStatement(parsed.tree));
}

TEST(GerberGrammar, BlocksAndStepRepeatNestCommands) {
    Parsed parsed("%ABD12*%\nG01*\n%AB*%\n%SRX2Y3I1.5J2.0*%\nD03*\n%SR*%\n%LR45*%\n%LS0.5*%\n%LPC*%\nM02*\n");
    EXPECT_EQ(parsed.Errors(), 0u);
    ASSERT_EQ(parsed.tree->com().size(), 5u);
    auto* block = dynamic_cast<GerberParser::ComABContext*>(parsed.tree->com(0));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->com().size(), 1u);
    auto* repeat = dynamic_cast<GerberParser::ComSRContext*>(parsed.tree->com(1));
    ASSERT_NE(repeat, nullptr);
    EXPECT_EQ(repeat->com().size(), 1u);
    EXPECT_NE(dynamic_cast<GerberParser::ComLRContext*>(parsed.tree->com(2)), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::ComLSContext*>(parsed.tree->com(3)), nullptr);
    EXPECT_NE(dynamic_cast<GerberParser::ComLPContext*>(parsed.tree->com(4)), nullptr);
}

TEST(GerberGrammar, ObsoleteCodesHaveNoToken) {
    EXPECT_GT(Lex("G54D10*").errors, 0u);
    EXPECT_GT(Lex("%IPPOS*%").errors, 0u);
    EXPECT_GT(Lex("M00*").errors, 0u);
}

} // namespace
