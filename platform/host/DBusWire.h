// How the bytes of the host's names and values travel in D-Bus's own types, whose strings must
// be valid UTF-8 without NUL. org.ovbase.Platform.xml, beside this file, describes the signals
// and these forms for other clients:
// - a name (topic, property name, channel, message) is a string holding its bytes, with '%',
//   the apostrophe (which match rules cannot hold), NUL and every byte outside valid UTF-8
//   written %XX;
// - a value is a string when its bytes are text, an array of bytes otherwise.
// Pure functions, callable from any thread.
#ifndef OVPLATFORM_HOST_DBUSWIRE_H
#define OVPLATFORM_HOST_DBUSWIRE_H

#include <QString>
#include <QVariant>
#include <string>

namespace ovplatform {
namespace wire {

// Whether BYTES can stand in a D-Bus string as they are: valid UTF-8 (no overlong forms, no
// surrogates, nothing above U+10FFFF) without NUL, as D-Bus strings must be.
bool isText(const std::string& bytes);

// The name form of BYTES, and back. fromName(name(b)) == b for any bytes b; a '%' of NAME
// that is not followed by two hex digits is read as itself.
QString name(const std::string& bytes);
std::string fromName(const QString& name);

// The value form of BYTES: a QString when they are text, a QByteArray otherwise.
QVariant value(const std::string& bytes);
// Reads a value form into *BYTES; false when VALUE holds neither a string nor bytes.
bool fromValue(const QVariant& value, std::string* bytes);
// The D-Bus type of what a variant received holds ("i", "as", ...), for diagnostics.
std::string signature(const QVariant& value);

} // namespace wire
} // namespace ovplatform

#endif
