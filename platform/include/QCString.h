// The platform toolkit's byte string.
#ifndef OVPLATFORM_QCSTRING_H
#define OVPLATFORM_QCSTRING_H

#include <QByteArray>

typedef QByteArray QCString;

#endif
