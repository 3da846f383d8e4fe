#include "dptemplate/CSSFont.h"
#include "dptemplate/TokenEnumeration.h"

#include "EngineTest.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using DPTemplate::CSSFont;
using DPTemplate::CSSFontParser;
using DPTemplate::StringArrayMB;
using DPTemplate::TokenEnumeration;

namespace {

std::string joined(const StringArrayMB& items) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i)
        out += (i ? "," : "") + items[i];
    return out;
}

// "style|variant|weight|decorations|size/line-height|families|size range and classes", the
// classes as B(old) I(talic) U(nderlined) S(ystem) P(roportional) M(onospaced).
std::string describe(const PtrRef<CSSFont>& font) {
    if (font == nullptr)
        return "null";
    const int sizes[] = {1, 2, 3};
    std::string classes = std::to_string(font->getSizeRange(sizes));
    const bool flags[] = {font->isBold(),   font->isItalic(),       font->isUnderlined(),
                          font->isSystem(), font->isProportional(), font->isMonospaced()};
    for (int i = 0; i < 6; ++i)
        classes += flags[i] ? "BIUSPM"[i] : '-';
    return font->getFontStyle() + "|" + font->getFontVariant() + "|" + font->getFontWeight() + "|" +
           joined(font->getDecorations()) + "|" + font->getFontSize() + "/" +
           font->getLineHeight() + "|" + joined(font->getFontFamilies()) + "|" + classes;
}

const char* const FALLBACK = "||||8pt/10pt|sans-serif|1---SP-";

} // namespace

TEST(CSSFontParser, MatchLooksOnlyAtTheFirstOccurrence) {
    EXPECT_TRUE(CSSFontParser::match("900", CSSFontParser::WEIGHTS));
    for (const char* token : {"bol", "Bold", "", "bold.bolder", "."})
        EXPECT_FALSE(CSSFontParser::match(token, CSSFontParser::WEIGHTS)) << token;
    // ".small" first occurs inside ".small-caps", so the later ".small." is never seen.
    EXPECT_FALSE(CSSFontParser::match("small", ".small-caps.small."));
    // ".xx-small" does not hold ".x-small", so x-small is found in its own place.
    EXPECT_TRUE(CSSFontParser::match("x-small", CSSFontParser::SIZES));
    // A token that runs to the end of a set without a closing full stop does not match.
    EXPECT_FALSE(CSSFontParser::match("end", ".end"));

    EXPECT_EQ(CSSFontParser::STYLE, CSSFontParser::category("oblique"));
    EXPECT_EQ(CSSFontParser::VARIANT, CSSFontParser::category("small-caps"));
    EXPECT_EQ(CSSFontParser::WEIGHT, CSSFontParser::category("normal"));
    EXPECT_EQ(CSSFontParser::DECORATION, CSSFontParser::category("blink"));
    EXPECT_EQ(CSSFontParser::NONE, CSSFontParser::category("12pt"));
}

TEST(CSSFontParser, KeywordAndFamilyClasses) {
    const struct {
        bool (*is)(const MString&);
        std::vector<const char*> yes, no;
    } classes[] = {
        {CSSFontParser::isBold, {"600", "bold"}, {"500", "lighter"}},
        {CSSFontParser::isItalic, {"oblique"}, {"normal"}},
        {CSSFontParser::isSize, {"medium", "7whatever"}, {"pt12", ""}},
        // Leading zeros and runs of digits too long for an int.
        {CSSFontParser::isSmall,
         {"9pt", "x-small", "small", "0009pt"},
         {"10pt", "99999999999999999999pt", "medium", "larger", "smaller", "12", ""}},
        {CSSFontParser::isLarge,
         {"14px", "xx-large", "99999999999999999999pt"},
         {"13px", "medium", "larger", "smaller", "12", ""}},
        {CSSFontParser::isSystem, {"sans-serif", "Helvetica Neue", "MyHELVETICA"}, {"Sans-Serif"}},
        {CSSFontParser::isProportional,
         {"serif", "sans-serif", "Times New Roman"},
         {"Arial", "Serif"}},
        {CSSFontParser::isMonospaced, {"monospace", "Courier New"}, {"Monospace"}},
    };
    for (const auto& c : classes) {
        for (const char* token : c.yes)
            EXPECT_TRUE(c.is(token)) << token;
        for (const char* token : c.no)
            EXPECT_FALSE(c.is(token)) << token;
    }
}

// Words before the size must be keywords; later keywords replace earlier ones; the size and
// everything after it are families too; an unclosed quote runs to the end; the classes of a
// font look at its first family only, but at every decoration. A text that cannot be read
// decodes to the fallback.
TEST(CSSFont, ParseAndDecode) {
    const struct {
        const char* text;
        const char* font; // as parse() reads it, "null" where decode() falls back
    } rows[] = {
        {"", "||||/||2------"},
        {"bold 12pt/14pt Arial, 'Times New Roman'",
         "||bold||12pt/14pt|Arial,Times New Roman|2B-----"},
        {"italic small-caps 300 overline underline blink x-large \"Courier\"",
         "italic|small-caps|300|overline,underline,blink|x-large/|Courier|3-IU--M"},
        {"blink overline 12pt x", "|||blink,overline|12pt/|x|2------"},
        {"12pt", "||||12pt/|12pt|2------"},
        {"bold bold 9pt", "||bold||9pt/|9pt|1B-----"},
        {"12pt/", "||||12pt/|/|2------"},
        {"bold normal oblique italic 10pt x", "italic||normal||10pt/|x|2-I----"},
        {"12pt 'Courier New'", "||||12pt/|Courier New|2-----M"},
        {"12pt , bold,serif, 'Open Sans", "||||12pt/|bold,serif,Open Sans|2------"},
        {"12pt Arial, '', serif", "||||12pt/|Arial,,serif|2------"},
        {"14px serif", "||||14px/|serif|3----P-"},
        {"large x", "||||large/|x|3------"},
        {"medium x", "||||medium/|x|2------"},
        {"12pt Arial, monospace", "||||12pt/|Arial,monospace|2------"},
        {"12pt Helvetica, monospace", "||||12pt/|Helvetica,monospace|2---S--"},
        {"italic Arial", "null"},
        {"Bold 12pt arial", "null"},
        {"normal normal Arial 12pt", "null"},
        {"bold '' 12pt", "null"}, // an empty quoted word is not a size
    };
    ovtest::StderrCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.font, describe(CSSFontParser::parse(row.text)));
        bool parsed = std::string(row.font) != "null";
        EXPECT_EQ(parsed ? row.font : FALLBACK, describe(CSSFont::decode(row.text)));
    }
    EXPECT_EQ("", engineOutput(capture.text()));
    // Each fallback is a font of its own; the default font is made once.
    EXPECT_NE(CSSFont::decode("x"), CSSFont::decode("x"));
    EXPECT_EQ(CSSFont::getDefaultFont(), CSSFont::getDefaultFont());
    EXPECT_EQ("||||8pt/|sans-serif|1---SP-", describe(CSSFont::getDefaultFont()));
}

// Calls nextToken ('t') or nextElement ('e') as CALLS says; what they give, each followed by '|'.
std::string walk(TokenEnumeration& tokens, const char* calls) {
    std::string out;
    for (const char* call = calls; *call; ++call)
        out += (*call == 't' ? tokens.nextToken() : tokens.nextElement()) + "|";
    return out;
}

TEST(TokenEnumeration, TokensElementsAndQuotes) {
    // Separators are tokens of their own; an unclosed quote runs to the end of the text.
    TokenEnumeration tokens(" a,\t'b c'/d \"e", " \t\n,/");
    tokens.setQuotes("'\"");
    EXPECT_EQ("a|,|b c|/|d|e||", walk(tokens, "ttttete"));
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_FALSE(tokens.hasMoreElements());

    // White space that is not a separator is skipped only before tokens.
    TokenEnumeration elements("\r x,y", ",");
    EXPECT_EQ("\r x|y|", walk(elements, "ee"));
    TokenEnumeration again("\r x,y", ",");
    EXPECT_EQ("x|", walk(again, "t"));

    // Without quote characters a quote is an ordinary character.
    TokenEnumeration plain("'a b'");
    EXPECT_EQ("'a|b'|", walk(plain, "te"));
}
