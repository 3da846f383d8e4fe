// Sending on the system channel with the outcome the simulated phone needs: whether anyone
// got the message, or the D-Bus connection is lost (which a plain bool cannot tell apart).
#ifndef OVPLATFORM_HOST_SYSTEMMESSAGES_H
#define OVPLATFORM_HOST_SYSTEMMESSAGES_H

#include "QCString.h"

namespace ovplatform {

enum SendResult {
    SENT,        // queued for every channel object of CHANNEL, in this or another process
    NO_RECEIVER, // no process has a channel object of CHANNEL
    BUS_LOST     // the D-Bus connection is gone
};

SendResult sendChannelMessage(const QCString& channel, const QCString& msg, const QByteArray& data);

} // namespace ovplatform

#endif
