#include "dptemplate/CSSFont.h"
#include "dptemplate/TokenEnumeration.h"

#include "EngineOutput.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using DPTemplate::CSSFont;
using DPTemplate::CSSFontParser;
using DPTemplate::StringArrayMB;
using DPTemplate::TokenEnumeration;

namespace {

StringArrayMB list(std::initializer_list<const char*> items) {
    StringArrayMB result;
    for (const char* item : items) {
        result.push_back(item);
    }
    return result;
}

void expectFallback(const PtrRef<CSSFont>& font) {
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("", font->getFontStyle());
    EXPECT_EQ("", font->getFontWeight());
    EXPECT_EQ("8pt", font->getFontSize());
    EXPECT_EQ("10pt", font->getLineHeight());
    EXPECT_EQ(list({"sans-serif"}), font->getFontFamilies());
}

} // namespace

TEST(CSSFontParser, MatchLooksOnlyAtTheFirstOccurrence) {
    EXPECT_TRUE(CSSFontParser::match("bold", CSSFontParser::WEIGHTS));
    EXPECT_TRUE(CSSFontParser::match("900", CSSFontParser::WEIGHTS));
    EXPECT_FALSE(CSSFontParser::match("bol", CSSFontParser::WEIGHTS));
    EXPECT_FALSE(CSSFontParser::match("Bold", CSSFontParser::WEIGHTS));
    EXPECT_FALSE(CSSFontParser::match("", CSSFontParser::WEIGHTS));
    EXPECT_FALSE(CSSFontParser::match("bold.bolder", CSSFontParser::WEIGHTS));
    EXPECT_FALSE(CSSFontParser::match(".", CSSFontParser::WEIGHTS));
    // ".small" first occurs inside ".small-caps", so the later ".small." is never seen.
    EXPECT_FALSE(CSSFontParser::match("small", ".small-caps.small."));
    EXPECT_TRUE(CSSFontParser::match("small", CSSFontParser::SMALL_SIZES));
    // ".xx-small" does not hold ".x-small", so x-small is found in its own place.
    EXPECT_TRUE(CSSFontParser::match("x-small", CSSFontParser::SIZES));
    // A token that runs to the end of a set without a closing full stop does not match.
    EXPECT_FALSE(CSSFontParser::match("end", ".end"));
}

TEST(CSSFontParser, CategoriesAndKeywordClasses) {
    EXPECT_EQ(CSSFontParser::STYLE, CSSFontParser::category("oblique"));
    EXPECT_EQ(CSSFontParser::VARIANT, CSSFontParser::category("small-caps"));
    EXPECT_EQ(CSSFontParser::WEIGHT, CSSFontParser::category("normal"));
    EXPECT_EQ(CSSFontParser::DECORATION, CSSFontParser::category("blink"));
    EXPECT_EQ(CSSFontParser::NONE, CSSFontParser::category("12pt"));
    EXPECT_TRUE(CSSFontParser::isItalic("oblique"));
    EXPECT_TRUE(CSSFontParser::isBold("600"));
    EXPECT_FALSE(CSSFontParser::isBold("500"));
    EXPECT_FALSE(CSSFontParser::isBold("lighter"));
    EXPECT_TRUE(CSSFontParser::isUnderlined("underline"));
    EXPECT_FALSE(CSSFontParser::isUnderlined("overline"));
}

TEST(CSSFontParser, SizeClasses) {
    EXPECT_TRUE(CSSFontParser::isSize("medium"));
    EXPECT_TRUE(CSSFontParser::isSize("7whatever"));
    EXPECT_FALSE(CSSFontParser::isSize("pt12"));
    EXPECT_FALSE(CSSFontParser::isSize(""));

    EXPECT_TRUE(CSSFontParser::isSmall("9pt"));
    EXPECT_FALSE(CSSFontParser::isSmall("10pt"));
    EXPECT_FALSE(CSSFontParser::isLarge("13px"));
    EXPECT_TRUE(CSSFontParser::isLarge("14px"));
    EXPECT_TRUE(CSSFontParser::isSmall("x-small"));
    EXPECT_TRUE(CSSFontParser::isLarge("xx-large"));
    for (const char* neither : {"medium", "larger", "smaller", "12", ""}) {
        EXPECT_FALSE(CSSFontParser::isSmall(neither)) << neither;
        EXPECT_FALSE(CSSFontParser::isLarge(neither)) << neither;
    }
    // Leading zeros and runs of digits too long for an int.
    EXPECT_TRUE(CSSFontParser::isSmall("0009pt"));
    EXPECT_TRUE(CSSFontParser::isLarge("99999999999999999999pt"));
    EXPECT_FALSE(CSSFontParser::isSmall("99999999999999999999pt"));
}

TEST(CSSFontParser, FamilyClassesByKeywordOrName) {
    EXPECT_TRUE(CSSFontParser::isSystem("sans-serif"));
    EXPECT_TRUE(CSSFontParser::isSystem("Helvetica Neue"));
    EXPECT_TRUE(CSSFontParser::isSystem("MyHELVETICA"));
    EXPECT_FALSE(CSSFontParser::isSystem("Sans-Serif"));
    EXPECT_TRUE(CSSFontParser::isProportional("serif"));
    EXPECT_TRUE(CSSFontParser::isProportional("sans-serif"));
    EXPECT_TRUE(CSSFontParser::isProportional("Times New Roman"));
    EXPECT_FALSE(CSSFontParser::isProportional("Arial"));
    EXPECT_TRUE(CSSFontParser::isMonospaced("monospace"));
    EXPECT_TRUE(CSSFontParser::isMonospaced("Courier New"));
    EXPECT_FALSE(CSSFontParser::isMonospaced("Monospace"));
}

TEST(CSSFontParser, FullShorthand) {
    PtrRef<CSSFont> font = CSSFontParser::parse("bold 12pt/14pt Arial, 'Times New Roman'");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("bold", font->getFontWeight());
    EXPECT_EQ("12pt", font->getFontSize());
    EXPECT_EQ("14pt", font->getLineHeight());
    EXPECT_EQ(list({"Arial", "Times New Roman"}), font->getFontFamilies());
    EXPECT_TRUE(font->isBold());
    EXPECT_FALSE(font->isItalic());
    EXPECT_FALSE(font->isProportional());

    font = CSSFontParser::parse("italic small-caps 300 underline overline x-large \"Courier\"");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("italic", font->getFontStyle());
    EXPECT_EQ("small-caps", font->getFontVariant());
    EXPECT_EQ("300", font->getFontWeight());
    EXPECT_EQ(list({"underline", "overline"}), font->getDecorations());
    EXPECT_EQ("x-large", font->getFontSize());
    EXPECT_EQ(list({"Courier"}), font->getFontFamilies());
    EXPECT_TRUE(font->isItalic());
    EXPECT_TRUE(font->isUnderlined());
    EXPECT_TRUE(font->isMonospaced());
}

TEST(CSSFontParser, SizeAndSlashAtTheEndAlsoBecomeFamilies) {
    PtrRef<CSSFont> font = CSSFontParser::parse("12pt");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("12pt", font->getFontSize());
    EXPECT_EQ(list({"12pt"}), font->getFontFamilies());

    font = CSSFontParser::parse("bold bold 9pt");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("bold", font->getFontWeight());
    EXPECT_EQ(list({"9pt"}), font->getFontFamilies());
    EXPECT_TRUE(CSSFontParser::isSmall(font->getFontSize()));

    font = CSSFontParser::parse("12pt/");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("12pt", font->getFontSize());
    EXPECT_EQ("", font->getLineHeight());
    EXPECT_EQ(list({"/"}), font->getFontFamilies());
}

TEST(CSSFontParser, LaterKeywordsReplaceEarlierOnes) {
    PtrRef<CSSFont> font = CSSFontParser::parse("bold normal oblique italic 10pt x");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("normal", font->getFontWeight());
    EXPECT_EQ("italic", font->getFontStyle());
    EXPECT_FALSE(font->isBold());
}

TEST(CSSFontParser, FamiliesAfterTheSize) {
    PtrRef<CSSFont> font = CSSFontParser::parse("12pt 'Courier New'");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ(list({"Courier New"}), font->getFontFamilies());
    EXPECT_TRUE(font->isMonospaced());

    // Keywords after the size are families too; an unclosed quote runs to the end.
    font = CSSFontParser::parse("12pt , bold,serif, 'Open Sans");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("", font->getFontWeight());
    EXPECT_EQ(list({"bold", "serif", "Open Sans"}), font->getFontFamilies());

    // An empty quoted family is kept as an empty name.
    font = CSSFontParser::parse("12pt Arial, '', serif");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ(list({"Arial", "", "serif"}), font->getFontFamilies());

    font = CSSFontParser::parse("14px serif");
    ASSERT_TRUE(font != nullptr);
    EXPECT_TRUE(CSSFontParser::isLarge(font->getFontSize()));
    EXPECT_TRUE(font->isProportional());
    EXPECT_FALSE(font->isSystem());
}

TEST(CSSFontParser, WordsBeforeTheSizeMustBeKeywords) {
    EXPECT_TRUE(CSSFontParser::parse("italic Arial") == nullptr);
    EXPECT_TRUE(CSSFontParser::parse("Bold 12pt arial") == nullptr);
    EXPECT_TRUE(CSSFontParser::parse("normal normal Arial 12pt") == nullptr);
    // An empty quoted word is a word like any other: not a size.
    EXPECT_TRUE(CSSFontParser::parse("bold '' 12pt") == nullptr);
}

TEST(CSSFont, EmptyTextGivesAnEmptyFont) {
    PtrRef<CSSFont> font = CSSFont::decode("");
    ASSERT_TRUE(font != nullptr);
    EXPECT_EQ("", font->getFontSize());
    EXPECT_EQ("", font->getLineHeight());
    EXPECT_TRUE(font->getFontFamilies().empty());
    const int sizes[] = {1, 2, 3};
    EXPECT_EQ(2, font->getSizeRange(sizes));
    EXPECT_FALSE(font->isSystem());
    EXPECT_FALSE(font->isProportional());
    EXPECT_FALSE(font->isMonospaced());
    EXPECT_FALSE(font->isBold());
    EXPECT_FALSE(font->isUnderlined());
}

TEST(CSSFont, UnreadableTextsGiveTheFallbackSilently) {
    ovtest::StderrCapture capture;
    expectFallback(CSSFont::decode("italic Arial"));
    expectFallback(CSSFont::decode("Bold 12pt arial"));
    EXPECT_EQ("", engineOutput(capture.text()));
    // Each fallback is a font of its own.
    EXPECT_NE(CSSFont::decode("x"), CSSFont::decode("x"));
}

TEST(CSSFont, SizeRangePicksByClass) {
    const int sizes[] = {10, 20, 30};
    EXPECT_EQ(10, CSSFont::decode("9pt x")->getSizeRange(sizes));
    EXPECT_EQ(20, CSSFont::decode("12pt x")->getSizeRange(sizes));
    EXPECT_EQ(30, CSSFont::decode("large x")->getSizeRange(sizes));
    EXPECT_EQ(20, CSSFont::decode("medium x")->getSizeRange(sizes));
}

TEST(CSSFont, FamilyClassesLookAtTheFirstFamilyOnly) {
    PtrRef<CSSFont> font = CSSFont::decode("12pt Arial, monospace");
    EXPECT_FALSE(font->isMonospaced());
    font = CSSFont::decode("12pt Helvetica, monospace");
    EXPECT_TRUE(font->isSystem());
}

TEST(CSSFont, UnderlinedLooksAtEveryDecoration) {
    CSSFont font;
    font.setDecorations(list({"underline", "blink"}));
    EXPECT_TRUE(font.isUnderlined());
    font.setDecorations(list({"blink", "overline"}));
    EXPECT_FALSE(font.isUnderlined());
}

TEST(CSSFont, DefaultFontIsMadeOnce) {
    PtrRef<CSSFont> first = CSSFont::getDefaultFont();
    PtrRef<CSSFont> second = CSSFont::getDefaultFont();
    EXPECT_EQ(first, second);
    EXPECT_EQ("8pt", first->getFontSize());
    EXPECT_EQ("", first->getLineHeight());
    EXPECT_EQ(list({"sans-serif"}), first->getFontFamilies());
    EXPECT_TRUE(first->isSystem());
}

TEST(TokenEnumeration, TokensElementsAndQuotes) {
    TokenEnumeration tokens(" a,\t'b c'/d \"e", " \t\n,/");
    tokens.setQuotes("'\"");
    EXPECT_EQ("'\"", tokens.getQuotes());
    ASSERT_TRUE(tokens.hasMoreTokens());
    EXPECT_EQ("a", tokens.nextToken());
    EXPECT_EQ(",", tokens.nextToken());
    EXPECT_EQ("b c", tokens.nextToken());
    EXPECT_EQ("/", tokens.nextToken());
    EXPECT_TRUE(tokens.hasMoreElements());
    EXPECT_EQ("d", tokens.nextElement());
    // An unclosed quote runs to the end of the text.
    EXPECT_TRUE(tokens.hasMoreTokens());
    EXPECT_EQ("e", tokens.nextToken());
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_FALSE(tokens.hasMoreElements());
    EXPECT_EQ("", tokens.nextElement());
}

TEST(TokenEnumeration, WhitespaceThatIsNotASeparatorIsSkippedOnlyBeforeTokens) {
    TokenEnumeration tokens("\r x,y", ",");
    EXPECT_EQ("\r x", tokens.nextElement());
    EXPECT_EQ("y", tokens.nextElement());

    TokenEnumeration again("\r x,y", ",");
    EXPECT_EQ("x", again.nextToken());
    EXPECT_TRUE(again.isSeparator(','));
    EXPECT_FALSE(again.isSeparator(' '));

    // Without quote characters a quote is an ordinary character.
    TokenEnumeration plain("'a b'");
    EXPECT_EQ("'a", plain.nextToken());
    EXPECT_EQ("b'", plain.nextElement());
}
