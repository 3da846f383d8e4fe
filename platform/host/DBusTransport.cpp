#include "DBusTransport.h"

#include "DBusLink.h"
#include "DBusWire.h"
#include "EventBus.h"
#include "OVPlatform.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <cerrno>
#include <cstdlib>

namespace ovplatform {
namespace {

// The property in which the library's events carry their value; on D-Bus it travels as the
// signal's integer argument, so that other clients see and send a number.
const char* const kValueProperty = "__OV_Event__mValue";

// Whether TEXT is a 32-bit integer written as the library writes it (std::to_string), which
// the integer then gives back unchanged; if so, *VALUE holds it.
bool plainInteger(const std::string& text, int32_t* value) {
    if (text.empty() || text.size() > 11)
        return false;
    errno = 0;
    char* end = nullptr;
    long long number = std::strtoll(text.c_str(), &end, 10);
    if (errno || *end || number < INT32_MIN || number > INT32_MAX || std::to_string(number) != text)
        return false;
    *value = int32_t(number);
    return true;
}

} // namespace

DBusTransport::~DBusTransport() {
    stop();
}

void DBusTransport::start(Sink sink) {
    mpLink->setReceiver(DBusLink::EVENT, [sink](const QDBusMessage& signal) {
        ES_Event event;
        std::string wrong = decode(signal, &event);
        if (wrong.empty())
            sink(event);
        return wrong;
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
    QDBusMessage signal = DBusLink::signal(DBusLink::EVENT);
    encode(event, &signal);
    return mpLink->send(signal);
}

void DBusTransport::encode(const ES_Event& event, QDBusMessage* signal) {
    int32_t value = 0;
    QVariantMap properties;
    for (const auto& entry : event.getProperties()) {
        // A value that the integer cannot give back exactly travels as it is, in the map.
        if (entry.first == kValueProperty && plainInteger(entry.second, &value))
            continue;
        properties.insert(wire::name(entry.first), wire::value(entry.second));
    }
    *signal << wire::name(event.getTopic()) << value << properties;
}

std::string DBusTransport::decode(const QDBusMessage& signal, ES_Event* event) {
    const QList<QVariant> arguments = signal.arguments();
    event->setTopic(wire::fromName(arguments.at(0).toString()));
    event->setProperty(kValueProperty, std::to_string(arguments.at(1).toInt()));
    bool texts = signal.signature().endsWith(QLatin1String("{ss}"));
    const QDBusArgument properties = arguments.at(2).value<QDBusArgument>();
    std::string wrong;
    properties.beginMap();
    while (wrong.empty() && !properties.atEnd()) {
        QString name;
        QVariant value;
        properties.beginMapEntry();
        properties >> name;
        if (texts) {
            QString text;
            properties >> text;
            value = text;
        } else {
            QDBusVariant variant;
            properties >> variant;
            value = variant.variant();
        }
        properties.endMapEntry();
        std::string bytes;
        if (wire::fromValue(value, &bytes))
            event->setProperty(wire::fromName(name), bytes);
        else
            wrong = "property \"" + name.toStdString() + "\" holds a value of type " +
                    wire::signature(value) + ", not s or ay";
    }
    properties.endMap(); // also when left early, or Qt's reader of the map leaks
    return wrong;
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
