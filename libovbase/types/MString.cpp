#include "types/MString.h"

#include "types/Utf8Codec.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <istream>
#include <sstream>
#include <strings.h>

namespace {

const char* const kWhiteSpace = "\t \r\n";

const std::string& decimalDigits() {
    static const std::string digits = "0123456789";
    return digits;
}

const std::string& hexDigits() {
    static const std::string digits = "ABCDEFabcdef0123456789";
    return digits;
}

bool inSet(const std::string& set, char c) {
    return set.find(c) != std::string::npos;
}

} // namespace

MString::MString(const std::wstring& text) {
    assign(text);
}

MString& MString::operator=(const std::wstring& text) {
    return assign(text);
}

MString& MString::operator=(char c) {
    std::string::assign(1, c);
    return *this;
}

MString& MString::operator=(int value) {
    return assigni(value);
}

MString& MString::operator=(double value) {
    return assignd(value);
}

MString& MString::assign(const std::wstring& text) {
    clear();
    reserve(text.size());
    for (wchar_t c : text)
        write(c);
    return *this;
}

MString& MString::assigni(int value, const char* format) {
    char buf[63];
    std::snprintf(buf, sizeof buf, format, value);
    std::string::assign(buf);
    return *this;
}

MString& MString::assignd(double value, const char* format) {
    char buf[63];
    std::snprintf(buf, sizeof buf, format, value);
    std::string::assign(buf);
    return *this;
}

MString& MString::assignb(bool value) {
    std::string::assign(value ? "true" : "false");
    return *this;
}

void MString::write(wchar_t codePoint) {
    char bytes[4];
    int n = utf8codec::encode(static_cast<uint32_t>(codePoint), bytes);
    append(bytes, n);
}

namespace {

// Whether the byte at P, inside [BEGIN, END), belongs to a sequence that begins before it and
// is cut short: such a byte stands for itself. Decided by decoding from the nearest byte below
// 0x80 before P (the start of every unit after it), or from BEGIN.
bool insideCutSequence(const unsigned char* begin, const unsigned char* p,
                       const unsigned char* end) {
    const unsigned char* q = p;
    while (q > begin && q[-1] >= 0x80)
        --q;
    while (q < p) {
        uint32_t unit[utf8codec::kMaxUnit];
        int count = 0;
        size_t used = utf8codec::decodeUnit(q, end, false, unit, &count);
        bool cut = count > 1 || (count == 1 && used == 1 && *q >= 0x80);
        if (q + used > p)
            return cut;
        q += used;
    }
    return false;
}

} // namespace

int MString::read(const char* p, unsigned int& length) const {
    // Never read past the text: its own end when P lies inside it, else the terminating NUL.
    std::less_equal<const char*> le;
    const bool inside = le(data(), p) && le(p, data() + size());
    const char* end = inside ? data() + size() : p + std::strlen(p);
    const unsigned char* at = reinterpret_cast<const unsigned char*>(p);
    const unsigned char* stop = reinterpret_cast<const unsigned char*>(end);
    if (inside && at < stop &&
        insideCutSequence(reinterpret_cast<const unsigned char*>(data()), at, stop)) {
        length = 1;
        return *at;
    }
    while (at < stop && utf8codec::isContinuation(*at))
        ++at;
    if (at == stop) {
        length = static_cast<unsigned int>(at - reinterpret_cast<const unsigned char*>(p));
        return -1;
    }
    // Of a cut sequence only the lead is taken here; the next call gives the byte after it.
    uint32_t unit[utf8codec::kMaxUnit];
    int count = 0;
    size_t used = utf8codec::decodeUnit(at, stop, false, unit, &count);
    at += count > 1 ? 1 : used;
    length = static_cast<unsigned int>(at - reinterpret_cast<const unsigned char*>(p));
    return static_cast<int>(unit[0]);
}

std::wstring MString::toWide() const {
    std::wstring out;
    out.reserve(size());
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data());
    const unsigned char* end = p + size();
    while (p < end) {
        uint32_t unit[utf8codec::kMaxUnit];
        int count = 0;
        p += utf8codec::decodeUnit(p, end, false, unit, &count);
        out.append(unit, unit + count);
    }
    return out;
}

MString& MString::add(const char* bytes, unsigned int length) {
    append(bytes, length);
    return *this;
}

MString& MString::add(char c) {
    push_back(c);
    return *this;
}

MString& MString::add(std::string& first, std::string& second) {
    append(first);
    append(second);
    return *this;
}

int MString::toInt() const {
    size_t digits = 0;
    while (digits < size() && isDigit((*this)[digits]))
        ++digits;
    int value = 0;
    std::istringstream in(substr(0, digits));
    in >> value;
    return value;
}

double MString::toDouble() const {
    double value = 0;
    std::istringstream in(*this);
    in >> value;
    return value;
}

bool MString::toBool() const {
    bool value = false;
    std::istringstream in(*this);
    in >> value;
    return value;
}

int MString::toHexInt() const {
    MString copy(*this);
    copy.atrim();
    if (copy.empty())
        return 0;
    size_t bad = find_first_not_of(hexDigits());
    if (bad == 0)
        return 0;
    if (bad != npos && bad < copy.size())
        copy.erase(bad);
    unsigned int value = 0;
    if (std::sscanf(copy.c_str(), "%X", &value) != 1)
        return 0;
    return static_cast<int>(value);
}

bool MString::isSpace(char c) {
    return c == '\n' || c == ' ' || c == '\t' || c == '\r';
}

bool MString::isDigit(char c) {
    return c != '\0' && inSet(decimalDigits(), c);
}

bool MString::isHexDigit(char c) {
    return c != '\0' && inSet(hexDigits(), c);
}

bool MString::isPercentage() const {
    return find('%') != npos;
}

bool MString::startsWith(const MString& prefix) const {
    return find(prefix) == 0;
}

int MString::compare(const std::string& other, unsigned int n) const {
    if (n == static_cast<unsigned int>(-1))
        return std::strcmp(c_str(), other.c_str());
    return std::strncmp(c_str(), other.c_str(), n);
}

int MString::comparei(const std::string& other, unsigned int n) const {
    if (n == static_cast<unsigned int>(-1))
        return strcasecmp(c_str(), other.c_str());
    return strncasecmp(c_str(), other.c_str(), n);
}

bool MString::hasToken(const MString& token) const {
    if (empty())
        return false;
    size_t pos = find(token);
    if (pos == npos)
        return false;
    size_t end = pos + token.size();
    return end == size() || (*this)[end] == ' ';
}

bool MString::split(char c, std::string& left, std::string& right) const {
    size_t pos = find(c);
    if (pos == npos)
        return false;
    left = substr(0, pos);
    right = substr(pos + 1);
    return true;
}

MString& MString::replaceAll(const std::string& from, const std::string& to) {
    if (from.empty())
        return *this;
    size_t pos = find(from);
    while (pos != npos) {
        replace(pos, from.size(), to);
        pos = find(from, pos + to.size());
    }
    return *this;
}

MString& MString::ltrim() {
    return ltrims(kWhiteSpace);
}

MString& MString::rtrim() {
    return rtrims(kWhiteSpace);
}

MString& MString::atrim() {
    return atrims(kWhiteSpace);
}

MString& MString::ltrims(const std::string& set) {
    erase(0, find_first_not_of(set));
    return *this;
}

MString& MString::rtrims(const std::string& set) {
    size_t last = find_last_not_of(set);
    erase(last == npos ? 0 : last + 1);
    return *this;
}

MString& MString::atrims(const std::string& set) {
    return rtrims(set).ltrims(set);
}

MString& MString::ltrimc(char c) {
    return ltrims(std::string(1, c));
}

MString& MString::rtrimc(char c) {
    return rtrims(std::string(1, c));
}

MString& MString::atrimc(char c) {
    return atrims(std::string(1, c));
}

MString& MString::toLower() {
    for (char& c : *this)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return *this;
}

MString& MString::toUpper() {
    for (char& c : *this)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return *this;
}

MString MString::toLower() const {
    MString copy(*this);
    return copy.toLower();
}

MString MString::toUpper() const {
    MString copy(*this);
    return copy.toUpper();
}

MString& MString::tab2sp(unsigned int width) {
    // A width of 0 has no next multiple: the text is left as it is.
    if (width == 0 || find('\t') == npos)
        return *this;
    std::string out;
    out.reserve(size());
    for (char c : *this) {
        if (c == '\t')
            out.append(width - out.size() % width, ' ');
        else
            out.push_back(c);
    }
    std::string::assign(out);
    return *this;
}

MString& MString::quote(const std::string& open, const std::string& close) {
    insert(0, open);
    append(close);
    return *this;
}

bool MString::readall(std::istream& in) {
    if (in.fail() || in.eof())
        return false;
    char block[256];
    do {
        in.read(block, sizeof block);
        append(block, static_cast<size_t>(in.gcount()));
    } while (in.gcount() == static_cast<std::streamsize>(sizeof block));
    return true;
}

template <typename T> bool toTypeValue(const MString& text, T& value) {
    std::istringstream in(text);
    T read{};
    if (in >> read)
        value = read;
    return true;
}

template bool toTypeValue<int>(const MString&, int&);
template bool toTypeValue<bool>(const MString&, bool&);
template bool toTypeValue<double>(const MString&, double&);
