#include "PHONE_AsyncMsgReceiver.h"

#include <QMetaObject>
#include <mutex>
#include <vector>

namespace {

struct ReceiverRegistry {
    std::mutex mutex;
    std::vector<PHONE_AsyncMsgReceiver*> receivers;
};

ReceiverRegistry& registry() {
    static ReceiverRegistry* r = new ReceiverRegistry;
    return *r;
}

// Queues CALL(receiver) on each receiver's own thread.
template <typename Call> void postToAll(Call call) {
    ReceiverRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (PHONE_AsyncMsgReceiver* target : r.receivers)
        QMetaObject::invokeMethod(
            target, [target, call] { call(target); }, Qt::QueuedConnection);
}

} // namespace

PHONE_AsyncMsgReceiver::PHONE_AsyncMsgReceiver(QObject* parent) : QObject(parent) {
    ReceiverRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
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
}

void PHONE_AsyncMsgReceiver::postGprsService(bool available) {
    postToAll([available](PHONE_AsyncMsgReceiver* r) { emit r->signalGprsService(available); });
}

void PHONE_AsyncMsgReceiver::postRoamingState(TAPI_NETWORK_ROAM_E state) {
    postToAll([state](PHONE_AsyncMsgReceiver* r) { emit r->signalRoamingState(state); });
}

void PHONE_AsyncMsgReceiver::postLowBatteryStatusChanged() {
    postToAll([](PHONE_AsyncMsgReceiver* r) { emit r->signalLowBatteryStatusChanged(); });
}

void PHONE_AsyncMsgReceiver::postChargeStatus(TAPI_CHARGER_STATUS_E status) {
    postToAll([status](PHONE_AsyncMsgReceiver* r) { emit r->signalChargeStatus(status); });
}

// The moc output for the header in platform/include, which AUTOMOC finds through this include.
#include "moc_PHONE_AsyncMsgReceiver.cpp"
