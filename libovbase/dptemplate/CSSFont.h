// Fonts written in the manner of the CSS "font" shorthand ("bold 12pt/14pt Arial, serif"), and
// the questions the drawing code asks of them: bold, italic, underlined, size class and family
// class. Fonts are shared through PtrRef and do not change once decoded.
#ifndef OVBASE_DPTEMPLATE_CSSFONT_H
#define OVBASE_DPTEMPLATE_CSSFONT_H

#include "thread/PtrRef.h"
#include "types/MString.h"

#include <vector>

namespace DPTemplate {

typedef std::vector<MString> StringArrayMB;

class CSSFont {
public:
    CSSFont() {}
    CSSFont(const MString& fontStyle, const MString& fontVariant, const MString& fontWeight,
            const StringArrayMB& decorations, const MString& fontSize, const MString& lineHeight,
            const StringArrayMB& fontFamilies);
    virtual ~CSSFont() {}

    // The font TEXT describes, or the fallback font (8pt, line height 10pt, sans-serif) when it
    // cannot be read. Never null.
    static PtrRef<CSSFont> decode(const MString& text);
    // The engine's default font, "8pt sans-serif": made on first use, kept for the process.
    static PtrRef<CSSFont> getDefaultFont();

    virtual bool isBold() const;
    virtual bool isItalic() const;
    virtual bool isUnderlined() const;
    // SIZES holds the values for a small, a normal and a large font; the one for this font.
    virtual int getSizeRange(const int* sizes) const;
    // Family classes of the first family; false when there is no family.
    virtual bool isSystem() const;
    virtual bool isProportional() const;
    virtual bool isMonospaced() const;

    const MString& getFontStyle() const { return mFontStyle; }
    const MString& getFontVariant() const { return mFontVariant; }
    const MString& getFontWeight() const { return mFontWeight; }
    const StringArrayMB& getDecorations() const { return mDecorations; }
    const MString& getFontSize() const { return mFontSize; }
    const MString& getLineHeight() const { return mLineHeight; }
    const StringArrayMB& getFontFamilies() const { return mFontFamilies; }

    // For fonts built by hand.
    void setFontStyle(const MString& value) { mFontStyle = value; }
    void setFontVariant(const MString& value) { mFontVariant = value; }
    void setFontWeight(const MString& value) { mFontWeight = value; }
    void setDecorations(const StringArrayMB& value) { mDecorations = value; }
    void setFontSize(const MString& value) { mFontSize = value; }
    void setLineHeight(const MString& value) { mLineHeight = value; }
    void setFontFamilies(const StringArrayMB& value) { mFontFamilies = value; }

private:
    MString mFontStyle;
    MString mFontVariant;
    MString mFontWeight;
    StringArrayMB mDecorations;
    MString mFontSize;
    MString mLineHeight;
    StringArrayMB mFontFamilies;
};

// The keyword sets and the reading of font texts. Every set is a text in which each keyword
// stands between two full stops; membership is exact (case matters).
class CSSFontParser {
public:
    static const char* const STYLES;
    static const char* const ITALIC_STYLES;
    static const char* const VARIANTS;
    static const char* const WEIGHTS;
    static const char* const BOLD_WEIGHTS;
    static const char* const DECORATIONS;
    static const char* const UNDERLINE_DECORATIONS;
    static const char* const SIZES;
    static const char* const SMALL_SIZES;
    static const char* const LARGE_SIZES;
    static const char* const MONOSPACED_FAMILIES;
    static const char* const PROPORTIONAL_FAMILIES;
    static const char* const SYSTEM_FAMILIES;
    static const char* const FONT_FAMILY_SEPARATOR;
    static const char* const LINE_HEIGHT_SEPARATOR;

    // What category() says of a keyword.
    enum Category { NONE = 0, STYLE = 1, VARIANT = 2, WEIGHT = 3, DECORATION = 4 };

    // Only the first occurrence of "." + TOKEN in SET is looked at; it matches when a full stop
    // follows it. An empty token, or one holding a full stop, never matches.
    static bool match(const MString& token, const MString& set);
    static int category(const MString& token);

    static bool isSize(const MString& token);
    // Numeric sizes below 10 are small, above 13 large; the value is that of the leading digits.
    static bool isSmall(const MString& token);
    static bool isLarge(const MString& token);

    static bool isSystem(const MString& family);
    static bool isProportional(const MString& family);
    static bool isMonospaced(const MString& family);

    static bool isBold(const MString& token);
    static bool isItalic(const MString& token);
    static bool isUnderlined(const MString& token);

    // Keywords and the size first, families after; null when a word before the families is
    // neither a keyword nor a size.
    static PtrRef<CSSFont> parse(const MString& text);
};

} // namespace DPTemplate

#endif
