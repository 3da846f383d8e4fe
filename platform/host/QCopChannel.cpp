#include "QCopChannel.h"

#include <QMetaObject>
#include <mutex>
#include <vector>

namespace {

// Live channel objects. Never freed, so sends from late threads at exit find it intact.
struct ChannelRegistry {
    std::mutex mutex;
    std::vector<QCopChannel*> channels;
};

ChannelRegistry& registry() {
    static ChannelRegistry* r = new ChannelRegistry;
    return *r;
}

} // namespace

QCopChannel::QCopChannel(const QCString& channel, QObject* parent)
    : QObject(parent), mChannel(channel) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
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
}

bool QCopChannel::send(const QCString& channel, const QCString& msg, const QByteArray& data) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    bool any = false;
    for (QCopChannel* target : r.channels) {
        if (target->mChannel != channel)
            continue;
        // Posted to the target's thread; dropped by Qt if the target is deleted first.
        QMetaObject::invokeMethod(
            target, [target, msg, data] { emit target->received(msg, data); },
            Qt::QueuedConnection);
        any = true;
    }
    return any;
}

bool QCopChannel::send(const QCString& channel, const QCString& msg) {
    return send(channel, msg, QByteArray());
}

bool QCopChannel::isRegistered(const QCString& channel) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (QCopChannel* target : r.channels) {
        if (target->mChannel == channel)
            return true;
    }
    return false;
}

// The moc output for the header in platform/include, which AUTOMOC finds through this include.
#include "moc_QCopChannel.cpp"
