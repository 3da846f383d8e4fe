#include "dptemplate/TokenEnumeration.h"

#include <cstring>

namespace DPTemplate {

const char* const TokenEnumeration::WHITESPACE = " \t\r\n";

TokenEnumeration::TokenEnumeration(const MString& text)
    : mText(text), mPosition(0), mEnd(text.size()), mSeparators(WHITESPACE) {}

TokenEnumeration::TokenEnumeration(const MString& text, const MString& separators)
    : mText(text), mPosition(0), mEnd(text.size()), mSeparators(separators) {}

bool TokenEnumeration::isWhitespace(char c) const {
    return c != '\0' && std::strchr(WHITESPACE, c) != nullptr;
}

bool TokenEnumeration::hasMoreTokens() {
    while (mPosition < mEnd && isWhitespace(mText[mPosition])) {
        ++mPosition;
    }
    return mPosition < mEnd;
}

MString TokenEnumeration::nextToken() {
    if (!hasMoreTokens()) {
        return MString();
    }
    char c = mText[mPosition];
    if (isSeparator(c)) {
        ++mPosition;
        return MString(std::string(1, c));
    }
    return readElement();
}

bool TokenEnumeration::hasMoreElements() {
    while (mPosition < mEnd && isSeparator(mText[mPosition])) {
        ++mPosition;
    }
    return mPosition < mEnd;
}

MString TokenEnumeration::nextElement() {
    if (!hasMoreElements()) {
        return MString();
    }
    return readElement();
}

MString TokenEnumeration::readElement() {
    char first = mText[mPosition];
    if (isQuote(first)) {
        std::string::size_type start = mPosition + 1;
        std::string::size_type close = mText.find(first, start);
        if (close == std::string::npos || close >= mEnd) {
            mPosition = mEnd;
            return MString(mText.substr(start, mEnd - start));
        }
        mPosition = close + 1;
        return MString(mText.substr(start, close - start));
    }
    std::string::size_type start = mPosition;
    while (mPosition < mEnd && !isSeparator(mText[mPosition])) {
        ++mPosition;
    }
    return MString(mText.substr(start, mPosition - start));
}

} // namespace DPTemplate
