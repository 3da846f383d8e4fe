// A cursor that splits one narrow text into tokens. Separator characters come back as tokens of
// their own from nextToken() and are skipped by nextElement(); a quote character opens an
// element that runs to the same quote character (or to the end of the text).
#ifndef OVBASE_DPTEMPLATE_TOKENENUMERATION_H
#define OVBASE_DPTEMPLATE_TOKENENUMERATION_H

#include "types/MString.h"

#include <string>

namespace DPTemplate {

class TokenEnumeration {
public:
    // Blank, tab, carriage return and line feed: skipped before a token.
    static const char* const WHITESPACE;

    // Separates at whitespace.
    explicit TokenEnumeration(const MString& text);
    TokenEnumeration(const MString& text, const MString& separators);

    void setQuotes(const MString& quotes) { mQuotes = quotes; }
    const MString& getQuotes() const { return mQuotes; }

    // Whitespace is skipped; true when characters remain.
    bool hasMoreTokens();
    // A separator alone, or else an element; "" when nothing remains.
    MString nextToken();
    // Separators are skipped; true when characters remain.
    bool hasMoreElements();
    // The next element, or "" when none remains.
    MString nextElement();

    bool isSeparator(char c) const { return mSeparators.find(c) != std::string::npos; }

private:
    bool isWhitespace(char c) const;
    bool isQuote(char c) const { return mQuotes.find(c) != std::string::npos; }
    MString readElement();

    MString mText;
    std::string::size_type mPosition;
    std::string::size_type mEnd;
    MString mSeparators;
    MString mQuotes;
};

} // namespace DPTemplate

#endif
