#include "QCopChannel.h"

#include "DBusLink.h"
#include "DBusWire.h"
#include "ES_Event.h"
#include "SystemMessages.h"

#include <QMetaObject>
#include <mutex>
#include <vector>

namespace {

using ovplatform::DBusLink;
namespace wire = ovplatform::wire;

// Live channel objects. Never freed, so sends from late threads at exit find it intact.
struct ChannelRegistry {
    // Held across the D-Bus calls that start and stop listening to a channel, so that a
    // channel object never exists unheard.
    std::mutex mutex;
    std::vector<QCopChannel*> channels;
};

ChannelRegistry& registry() {
    static ChannelRegistry* r = new ChannelRegistry;
    return *r;
}

// Call with the registry locked.
bool anyOn(const ChannelRegistry& r, const QCString& channel) {
    for (QCopChannel* target : r.channels) {
        if (target->channel() == channel)
            return true;
    }
    return false;
}

// Queues MSG with DATA for every object of this process on CHANNEL; false when none exists.
bool deliverHere(const QCString& channel, const QCString& msg, const QByteArray& data) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    bool any = false;
    for (QCopChannel* target : r.channels) {
        if (target->channel() != channel)
            continue;
        // Posted to the target's thread; dropped by Qt if the target is deleted first.
        QMetaObject::invokeMethod(
            target, [target, msg, data] { emit target->received(msg, data); },
            Qt::QueuedConnection);
        any = true;
    }
    return any;
}

// Over D-Bus a message travels as its channel and name (names on the wire) and its data.
std::string deliverFromBus(const QDBusMessage& signal) {
    const QList<QVariant> arguments = signal.arguments();
    deliverHere(QCString::fromStdString(wire::fromName(arguments.at(0).toString())),
                QCString::fromStdString(wire::fromName(arguments.at(1).toString())),
                arguments.at(2).toByteArray());
    return "";
}

} // namespace

QCopChannel::QCopChannel(const QCString& channel, QObject* parent)
    : QObject(parent), mChannel(channel) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    DBusLink* link = DBusLink::instance();
    if (link && !anyOn(r, channel)) {
        link->setReceiver(DBusLink::CHANNEL, deliverFromBus);
        link->listen(DBusLink::CHANNEL, channel.toStdString()); // a lost bus leaves it unheard
    }
    r.channels.push_back(this);
}

QCopChannel::~QCopChannel() {
    // Leaves the registry before QObject's destructor drops the calls already posted to us.
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto it = r.channels.begin(); it != r.channels.end(); ++it) {
        if (*it == this) {
            r.channels.erase(it);
            break;
        }
    }
    DBusLink* link = DBusLink::instance();
    if (link && !anyOn(r, mChannel))
        link->unlisten(DBusLink::CHANNEL, mChannel.toStdString());
}

namespace ovplatform {

SendResult sendChannelMessage(const QCString& channel, const QCString& msg,
                              const QByteArray& data) {
    DBusLink* link = DBusLink::instance();
    if (!link)
        return deliverHere(channel, msg, data) ? SENT : NO_RECEIVER;
    std::string key = channel.toStdString();
    if (!link->hasListener(DBusLink::CHANNEL, key))
        return link->connected() ? NO_RECEIVER : BUS_LOST;
    QDBusMessage signal = DBusLink::signal(DBusLink::CHANNEL);
    signal << wire::name(key) << wire::name(msg.toStdString()) << data;
    return link->send(signal) == ES_OK ? SENT : BUS_LOST;
}

} // namespace ovplatform

bool QCopChannel::send(const QCString& channel, const QCString& msg, const QByteArray& data) {
    return ovplatform::sendChannelMessage(channel, msg, data) == ovplatform::SENT;
}

bool QCopChannel::send(const QCString& channel, const QCString& msg) {
    return send(channel, msg, QByteArray());
}

bool QCopChannel::isRegistered(const QCString& channel) {
    {
        ChannelRegistry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        if (anyOn(r, channel))
            return true;
    }
    DBusLink* link = DBusLink::instance();
    return link && link->hasListener(DBusLink::CHANNEL, channel.toStdString());
}

// The moc output for the header in platform/include, which AUTOMOC finds through this include.
#include "moc_QCopChannel.cpp"
