#include "DBusWire.h"

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusMetaType>

namespace ovplatform {
namespace wire {
namespace {

// The length of the UTF-8 sequence at P (LEFT bytes remain) when it is a character a D-Bus
// string may hold; 0 otherwise.
size_t textLength(const unsigned char* p, size_t left) {
    unsigned char c = p[0];
    if (c < 0x80)
        return c != 0;
    size_t length;
    unsigned char low = 0x80, high = 0xBF; // the range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
        if (c == 0xE0)
            low = 0xA0; // no overlong forms
        else if (c == 0xED)
            high = 0x9F; // no surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
        if (c == 0xF0)
            low = 0x90;
        else if (c == 0xF4)
            high = 0x8F; // nothing above U+10FFFF
    } else {
        return 0;
    }
    if (left < length || p[1] < low || p[1] > high)
        return 0;
    for (size_t i = 2; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
    }
    return length;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

bool isText(const std::string& bytes) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t left = bytes.size();
    while (left > 0) {
        size_t length = textLength(p, left);
        if (length == 0)
            return false;
        p += length;
        left -= length;
    }
    return true;
}

QString name(const std::string& bytes) {
    static const char hex[] = "0123456789ABCDEF";
    std::string out; // made only once a byte needs writing as %XX, as few names do
    bool escaped = false;
    const unsigned char* start = reinterpret_cast<const unsigned char*>(bytes.data());
    const unsigned char* p = start;
    size_t left = bytes.size();
    while (left > 0) {
        size_t length = textLength(p, left);
        if (length == 0 || *p == '%' || *p == '\'') {
            if (!escaped)
                out.assign(bytes, 0, p - start);
            escaped = true;
            out += '%';
            out += hex[*p >> 4];
            out += hex[*p & 15];
            length = 1;
        } else if (escaped) {
            out.append(reinterpret_cast<const char*>(p), length);
        }
        p += length;
        left -= length;
    }
    return QString::fromStdString(escaped ? out : bytes);
}

std::string fromName(const QString& name) {
    std::string text = name.toStdString();
    if (text.find('%') == std::string::npos)
        return text;
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        int high, low;
        if (text[i] == '%' && i + 2 < text.size() && (high = hexDigit(text[i + 1])) >= 0 &&
            (low = hexDigit(text[i + 2])) >= 0) {
            out += char(high * 16 + low);
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

QVariant value(const std::string& bytes) {
    if (isText(bytes))
        return QString::fromStdString(bytes);
    return QByteArray::fromStdString(bytes);
}

bool fromValue(const QVariant& value, std::string* bytes) {
    if (value.metaType() == QMetaType::fromType<QString>()) {
        *bytes = value.toString().toStdString();
        return true;
    }
    if (value.metaType() == QMetaType::fromType<QByteArray>()) {
        *bytes = value.toByteArray().toStdString();
        return true;
    }
    return false;
}

std::string signature(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<QDBusArgument>())
        return value.value<QDBusArgument>().currentSignature().toStdString();
    const char* type = QDBusMetaType::typeToSignature(value.metaType());
    return type ? type : value.typeName();
}

} // namespace wire
} // namespace ovplatform
