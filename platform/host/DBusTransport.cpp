#include "DBusTransport.h"

#include "DBusLink.h"
#include "EventBus.h"
#include "OVPlatform.h"

#include <QDataStream>
#include <QIODevice>

namespace ovplatform {

DBusTransport::~DBusTransport() {
    stop();
}

void DBusTransport::start(Sink sink) {
    mpLink->setReceiver(DBusLink::EVENT, [sink](const std::string& topic, const QByteArray& first,
                                                const QByteArray&) {
        ES_Event event(topic);
        if (decodeProperties(first, &event))
            sink(event);
    });
}

void DBusTransport::stop() {
    mpLink->setReceiver(DBusLink::EVENT, DBusLink::Receiver());
}

int DBusTransport::listen(const std::string& topic) {
    return mpLink->listen(DBusLink::EVENT, topic);
}

void DBusTransport::unlisten(const std::string& topic) {
    mpLink->unlisten(DBusLink::EVENT, topic);
}

int DBusTransport::send(const ES_Event& event, bool listenedHere) {
    if (!mpLink->connected())
        return ES_ERR_BUS_DOWN;
    if (!listenedHere && !mpLink->hasListener(DBusLink::EVENT, event.getTopic()))
        return mpLink->connected() ? ES_ERR_NO_SUBSCRIBER : ES_ERR_BUS_DOWN;
    return mpLink->send(DBusLink::EVENT, event.getTopic(), encodeProperties(event.getProperties()));
}

QByteArray DBusTransport::encodeProperties(const ES_Event::PropertyMap& properties) {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_0);
    out << quint32(properties.size());
    for (const auto& entry : properties)
        out << QByteArray::fromStdString(entry.first) << QByteArray::fromStdString(entry.second);
    return bytes;
}

bool DBusTransport::decodeProperties(const QByteArray& bytes, ES_Event* event) {
    QDataStream in(bytes);
    in.setVersion(QDataStream::Qt_6_0);
    quint32 count = 0;
    in >> count;
    for (quint32 i = 0; i < count && in.status() == QDataStream::Ok; ++i) {
        QByteArray key, value;
        in >> key >> value;
        if (in.status() == QDataStream::Ok)
            event->setProperty(key.toStdString(), value.toStdString());
    }
    return in.status() == QDataStream::Ok && in.atEnd();
}

namespace {

bool useDBus(const std::string& address, std::string* reason) {
    std::string ignored;
    std::string& why = reason ? *reason : ignored;
    if (DBusLink* link = DBusLink::instance()) {
        why = "already connected to " + link->description();
        return false;
    }
    if (EventBus::exists()) {
        why = "the event bus is already in use in this process";
        return false;
    }
    DBusLink* link = DBusLink::connect(address, &why);
    if (!link)
        return false;
    if (!EventBus::install(std::unique_ptr<EventTransport>(new DBusTransport(link)))) {
        why = "the event bus was put to use while connecting";
        return false;
    }
    return true;
}

} // namespace

bool useSessionBus(std::string* reason) {
    return useDBus("", reason);
}

bool useBusAddress(const std::string& address, std::string* reason) {
    if (address.empty()) {
        if (reason)
            *reason = "no address given";
        return false;
    }
    return useDBus(address, reason);
}

std::string busName() {
    DBusLink* link = DBusLink::instance();
    return link ? link->description() : "loopback";
}

bool busConnected() {
    DBusLink* link = DBusLink::instance();
    return !link || link->connected();
}

} // namespace ovplatform
