#include "PHONE_AsyncMsgReceiver.h"

#include "DBusLink.h"
#include "ES_Event.h"

#include <QMetaObject>
#include <mutex>
#include <vector>

namespace {

using ovplatform::DBusLink;

struct ReceiverRegistry {
    // Held across the D-Bus calls that start and stop listening, as for the system channel.
    std::mutex mutex;
    std::vector<PHONE_AsyncMsgReceiver*> receivers;
};

ReceiverRegistry& registry() {
    static ReceiverRegistry* r = new ReceiverRegistry;
    return *r;
}

// Queues CALL(receiver) on each receiver's own thread.
template <typename Call> void postHere(Call call) {
    ReceiverRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (PHONE_AsyncMsgReceiver* target : r.receivers)
        QMetaObject::invokeMethod(
            target, [target, call] { call(target); }, Qt::QueuedConnection);
}

void postGprsHere(bool available) {
    postHere([available](PHONE_AsyncMsgReceiver* r) { emit r->signalGprsService(available); });
}

void postRoamingHere(TAPI_NETWORK_ROAM_E state) {
    postHere([state](PHONE_AsyncMsgReceiver* r) { emit r->signalRoamingState(state); });
}

void postLowBatteryHere() {
    postHere([](PHONE_AsyncMsgReceiver* r) { emit r->signalLowBatteryStatusChanged(); });
}

void postChargeHere(TAPI_CHARGER_STATUS_E status) {
    postHere([status](PHONE_AsyncMsgReceiver* r) { emit r->signalChargeStatus(status); });
}

// Over D-Bus a signal travels as its name and its value.
std::string receiveFromBus(const QDBusMessage& signal) {
    const QList<QVariant> arguments = signal.arguments();
    QString name = arguments.at(0).toString();
    int value = arguments.at(1).toInt();
    if (name == QLatin1String("GprsService"))
        postGprsHere(value != 0);
    else if (name == QLatin1String("RoamingState"))
        postRoamingHere(static_cast<TAPI_NETWORK_ROAM_E>(value));
    else if (name == QLatin1String("LowBatteryStatusChanged"))
        postLowBatteryHere();
    else if (name == QLatin1String("ChargeStatus"))
        postChargeHere(static_cast<TAPI_CHARGER_STATUS_E>(value));
    else
        return "the phone has no signal named \"" + name.toStdString() + "\"";
    return "";
}

// Sends the signal NAME with VALUE to every process, or posts it here with POSTHERE.
template <typename PostHere> bool post(const char* name, int value, PostHere postHere) {
    DBusLink* link = DBusLink::instance();
    if (!link) {
        postHere();
        return true;
    }
    QDBusMessage signal = DBusLink::signal(DBusLink::PHONE);
    signal << QString::fromLatin1(name) << value;
    return link->send(signal) == ES_OK;
}

} // namespace

PHONE_AsyncMsgReceiver::PHONE_AsyncMsgReceiver(QObject* parent) : QObject(parent) {
    ReceiverRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    DBusLink* link = DBusLink::instance();
    if (link && r.receivers.empty()) {
        link->setReceiver(DBusLink::PHONE, receiveFromBus);
        link->listen(DBusLink::PHONE, ""); // a lost bus leaves it unheard
    }
    r.receivers.push_back(this);
}

PHONE_AsyncMsgReceiver::~PHONE_AsyncMsgReceiver() {
    ReceiverRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (auto it = r.receivers.begin(); it != r.receivers.end(); ++it) {
        if (*it == this) {
            r.receivers.erase(it);
            break;
        }
    }
    DBusLink* link = DBusLink::instance();
    if (link && r.receivers.empty())
        link->unlisten(DBusLink::PHONE, "");
}

bool PHONE_AsyncMsgReceiver::postGprsService(bool available) {
    return post("GprsService", available, [available] { postGprsHere(available); });
}

bool PHONE_AsyncMsgReceiver::postRoamingState(TAPI_NETWORK_ROAM_E state) {
    return post("RoamingState", state, [state] { postRoamingHere(state); });
}

bool PHONE_AsyncMsgReceiver::postLowBatteryStatusChanged() {
    return post("LowBatteryStatusChanged", 0, [] { postLowBatteryHere(); });
}

bool PHONE_AsyncMsgReceiver::postChargeStatus(TAPI_CHARGER_STATUS_E status) {
    return post("ChargeStatus", status, [status] { postChargeHere(status); });
}

// The moc output for the header in platform/include, which AUTOMOC finds through this include.
#include "moc_PHONE_AsyncMsgReceiver.cpp"
