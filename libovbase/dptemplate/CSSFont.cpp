#include "dptemplate/CSSFont.h"

#include "dptemplate/TokenEnumeration.h"

namespace DPTemplate {

CSSFont::CSSFont(const MString& fontStyle, const MString& fontVariant, const MString& fontWeight,
                 const StringArrayMB& decorations, const MString& fontSize,
                 const MString& lineHeight, const StringArrayMB& fontFamilies)
    : mFontStyle(fontStyle), mFontVariant(fontVariant), mFontWeight(fontWeight),
      mDecorations(decorations), mFontSize(fontSize), mLineHeight(lineHeight),
      mFontFamilies(fontFamilies) {}

PtrRef<CSSFont> CSSFont::decode(const MString& text) {
    PtrRef<CSSFont> font = CSSFontParser::parse(text);
    if (font == nullptr) {
        font = PtrRef<CSSFont>(new CSSFont("", "", "", StringArrayMB(), "8pt", "10pt",
                                           StringArrayMB(1, MString("sans-serif"))));
    }
    return font;
}

PtrRef<CSSFont> CSSFont::getDefaultFont() {
    // Made once; the first use must happen on one thread, as for every lazy singleton here.
    static PtrRef<CSSFont> defaultFont = decode("8pt sans-serif");
    return defaultFont;
}

bool CSSFont::isBold() const {
    return CSSFontParser::isBold(mFontWeight);
}

bool CSSFont::isItalic() const {
    return CSSFontParser::isItalic(mFontStyle);
}

bool CSSFont::isUnderlined() const {
    for (StringArrayMB::const_reverse_iterator it = mDecorations.rbegin();
         it != mDecorations.rend(); ++it) {
        if (CSSFontParser::isUnderlined(*it)) {
            return true;
        }
    }
    return false;
}

int CSSFont::getSizeRange(const int* sizes) const {
    if (CSSFontParser::isSmall(mFontSize)) {
        return sizes[0];
    }
    if (CSSFontParser::isLarge(mFontSize)) {
        return sizes[2];
    }
    return sizes[1];
}

bool CSSFont::isSystem() const {
    return !mFontFamilies.empty() && CSSFontParser::isSystem(mFontFamilies.front());
}

bool CSSFont::isProportional() const {
    return !mFontFamilies.empty() && CSSFontParser::isProportional(mFontFamilies.front());
}

bool CSSFont::isMonospaced() const {
    return !mFontFamilies.empty() && CSSFontParser::isMonospaced(mFontFamilies.front());
}

const char* const CSSFontParser::STYLES = ".italic.oblique.";
const char* const CSSFontParser::ITALIC_STYLES = ".italic.oblique.";
const char* const CSSFontParser::VARIANTS = ".small-caps.";
const char* const CSSFontParser::WEIGHTS =
    ".normal.bold.bolder.lighter.100.200.300.400.500.600.700.800.900.";
const char* const CSSFontParser::BOLD_WEIGHTS = ".bold.bolder.600.700.800.900.";
const char* const CSSFontParser::DECORATIONS = ".underline.overline.line-through.blink.";
const char* const CSSFontParser::UNDERLINE_DECORATIONS = ".underline.";
const char* const CSSFontParser::SIZES =
    ".xx-small.x-small.small.medium.large.x-large.xx-large.larger.smaller.";
const char* const CSSFontParser::SMALL_SIZES = ".xx-small.x-small.small.";
const char* const CSSFontParser::LARGE_SIZES = ".large.x-large.xx-large.";
const char* const CSSFontParser::MONOSPACED_FAMILIES = ".monospace.";
const char* const CSSFontParser::PROPORTIONAL_FAMILIES = ".serif.sans-serif.cursive.fantasy.";
const char* const CSSFontParser::SYSTEM_FAMILIES = ".sans-serif.";
const char* const CSSFontParser::FONT_FAMILY_SEPARATOR = ",";
const char* const CSSFontParser::LINE_HEIGHT_SEPARATOR = "/";

namespace {

// The separators of a font text: blank, tab, newline, the family and line-height separators.
const char* const FONT_SEPARATORS = " \t\n,/";
const char* const FONT_QUOTES = "'\"";

bool startsWithDigit(const MString& token) {
    return !token.empty() && MString::isDigit(token[0]);
}

// The value of the leading digits. toInt() extracts into an int, so a run too long for one is
// judged by its length instead: it is certainly more than 13.
long leadingValue(const MString& token) {
    std::string::size_type digits = 0;
    while (digits < token.size() && MString::isDigit(token[digits])) {
        ++digits;
    }
    std::string::size_type first = token.find_first_not_of('0');
    if (first == std::string::npos || first >= digits) {
        return 0;
    }
    if (digits - first > 9) {
        return 1000000000L;
    }
    return token.toInt();
}

bool containsIgnoringCase(const MString& name, const char* word) {
    return name.toLower().find(word) != std::string::npos;
}

} // namespace

bool CSSFontParser::match(const MString& token, const MString& set) {
    if (token.empty() || token.find('.') != std::string::npos) {
        return false;
    }
    std::string::size_type at = set.find("." + token);
    if (at == std::string::npos) {
        return false;
    }
    std::string::size_type behind = at + 1 + token.size();
    return behind < set.size() && set[behind] == '.';
}

int CSSFontParser::category(const MString& token) {
    if (match(token, STYLES)) {
        return STYLE;
    }
    if (match(token, VARIANTS)) {
        return VARIANT;
    }
    if (match(token, WEIGHTS)) {
        return WEIGHT;
    }
    if (match(token, DECORATIONS)) {
        return DECORATION;
    }
    return NONE;
}

bool CSSFontParser::isSize(const MString& token) {
    return match(token, SIZES) || startsWithDigit(token);
}

bool CSSFontParser::isSmall(const MString& token) {
    return match(token, SMALL_SIZES) || (startsWithDigit(token) && leadingValue(token) < 10);
}

bool CSSFontParser::isLarge(const MString& token) {
    return match(token, LARGE_SIZES) || (startsWithDigit(token) && leadingValue(token) > 13);
}

bool CSSFontParser::isSystem(const MString& family) {
    return match(family, SYSTEM_FAMILIES) || containsIgnoringCase(family, "helvetica");
}

bool CSSFontParser::isProportional(const MString& family) {
    return match(family, PROPORTIONAL_FAMILIES) || containsIgnoringCase(family, "times");
}

bool CSSFontParser::isMonospaced(const MString& family) {
    return match(family, MONOSPACED_FAMILIES) || containsIgnoringCase(family, "courier");
}

bool CSSFontParser::isBold(const MString& token) {
    return match(token, BOLD_WEIGHTS);
}

bool CSSFontParser::isItalic(const MString& token) {
    return match(token, ITALIC_STYLES);
}

bool CSSFontParser::isUnderlined(const MString& token) {
    return match(token, UNDERLINE_DECORATIONS);
}

PtrRef<CSSFont> CSSFontParser::parse(const MString& text) {
    TokenEnumeration tokens(text, FONT_SEPARATORS);
    tokens.setQuotes(FONT_QUOTES);

    MString style, variant, weight, size, lineHeight;
    StringArrayMB decorations, families;
    MString token;
    bool sizeSeen = false;
    for (;;) {
        if (token.empty()) {
            if (!tokens.hasMoreElements()) {
                break;
            }
            // An empty quoted element ('') is taken as it is: no size before the families, an
            // empty family after them.
            token = tokens.nextElement();
        }
        if (sizeSeen) {
            if (token != FONT_FAMILY_SEPARATOR) {
                families.push_back(token);
            }
            token.clear();
            continue;
        }
        switch (category(token)) {
        case STYLE:
            style = token;
            token.clear();
            continue;
        case VARIANT:
            variant = token;
            token.clear();
            continue;
        case WEIGHT:
            weight = token;
            token.clear();
            continue;
        case DECORATION:
            decorations.push_back(token);
            token.clear();
            continue;
        default:
            break;
        }
        if (!isSize(token)) {
            return PtrRef<CSSFont>();
        }
        size = token;
        sizeSeen = true;
        // A size that ends the text stays the current token and so becomes a family as well;
        // so does a "/" that ends it. Both are the expected reading, not slips.
        if (!tokens.hasMoreTokens()) {
            continue;
        }
        token = tokens.nextToken();
        if (token != LINE_HEIGHT_SEPARATOR) {
            continue;
        }
        if (tokens.hasMoreElements()) {
            lineHeight = tokens.nextElement();
            token.clear();
        }
    }
    return PtrRef<CSSFont>(
        new CSSFont(style, variant, weight, decorations, size, lineHeight, families));
}

} // namespace DPTemplate
