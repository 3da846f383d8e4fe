// A narrow string (UTF-8 or plain ASCII) with the parsing, trimming, conversion and UTF-8
// helpers that the settings and template code need.
#ifndef OVBASE_TYPES_MSTRING_H
#define OVBASE_TYPES_MSTRING_H

#include <iosfwd>
#include <string>

class MString : public std::string {
public:
    MString() {}
    MString(const MString& other) : std::string(other) {}
    MString(MString&& other) noexcept : std::string(std::move(other)) {}
    MString(const std::string& text) : std::string(text) {}
    MString(const char* text) : std::string(text) {}
    MString(const char* text, size_t length) : std::string(text, length) {}
    // The UTF-8 form of the wide text.
    MString(const std::wstring& text);

    MString& operator=(const MString& other) {
        std::string::operator=(other);
        return *this;
    }
    MString& operator=(MString&& other) noexcept {
        std::string::operator=(std::move(other));
        return *this;
    }
    MString& operator=(const std::string& text) {
        std::string::operator=(text);
        return *this;
    }
    MString& operator=(const char* text) {
        std::string::operator=(text);
        return *this;
    }
    MString& operator=(const std::wstring& text);
    // The string becomes that one byte.
    MString& operator=(char c);
    // "%d" of the value.
    MString& operator=(int value);
    // "%f" of the value.
    MString& operator=(double value);

    using std::string::assign;
    MString& assign(const std::wstring& text);
    MString& assigni(int value, const char* format = "%d");
    MString& assignd(double value, const char* format = "%f");
    MString& assignb(bool value);

    // UTF-8 of one code point; 0x110000 and above are dropped.
    void write(wchar_t codePoint);
    // Decodes one code point at P as UTF_8Util::LineReader::read does, skipping stray
    // continuation bytes first; LENGTH receives the bytes consumed, skipped ones included. -1
    // when the text ends first. Decoding stops at this string's end when P points into it,
    // otherwise at the first NUL byte. Of a sequence cut short by a byte below 0x80 (or the
    // end) each byte is a code point of the same value, one call each: when P points into this
    // string, a byte of such a sequence begun before P is recognised as one.
    int read(const char* p, unsigned int& length) const;
    std::wstring toWide() const;

    MString& add(const char* bytes, unsigned int length);
    MString& add(char c);
    MString& add(std::string& first, std::string& second);

    // The leading run of ASCII digits; callers check for a digit first.
    int toInt() const;
    double toDouble() const;
    // Stream extraction: "0" or "1".
    bool toBool() const;
    int toHexInt() const;

    static bool isSpace(char c);
    static bool isDigit(char c);
    static bool isHexDigit(char c);
    bool isPercentage() const;
    bool startsWith(const MString& prefix) const;

    // strncmp/strcmp of at most N bytes (npos: whole strings); comparei ignores ASCII case.
    using std::string::compare;
    int compare(const std::string& other, unsigned int n) const;
    int comparei(const std::string& other, unsigned int n = static_cast<unsigned int>(-1)) const;

    // Only the first occurrence counts; it must end the text or be followed by a space.
    bool hasToken(const MString& token) const;
    bool split(char c, std::string& left, std::string& right) const;
    MString& replaceAll(const std::string& from, const std::string& to);

    MString& ltrim();
    MString& rtrim();
    MString& atrim();
    MString& ltrims(const std::string& set);
    MString& rtrims(const std::string& set);
    MString& atrims(const std::string& set);
    MString& ltrimc(char c);
    MString& rtrimc(char c);
    MString& atrimc(char c);

    MString& toLower();
    MString& toUpper();
    MString toLower() const;
    MString toUpper() const;

    MString& tab2sp(unsigned int width);
    MString& quote(const std::string& open, const std::string& close);
    // Appends the remaining input; false when the stream has already failed or ended.
    bool readall(std::istream& in);
};

// Stream extraction of the text into VALUE, which keeps its value when extraction fails.
// Always true.
template <typename T> bool toTypeValue(const MString& text, T& value);

extern template bool toTypeValue<int>(const MString&, int&);
extern template bool toTypeValue<bool>(const MString&, bool&);
extern template bool toTypeValue<double>(const MString&, double&);

#endif
