// The phone message client: signals of the telephony and power services. Each signal reaches
// the receiver on the Qt event loop of the thread it lives in: every receiver of this process,
// and over D-Bus (ovplatform::useBusAddress) those of every process on the same daemon.
#ifndef OVPLATFORM_PHONE_ASYNCMSGRECEIVER_H
#define OVPLATFORM_PHONE_ASYNCMSGRECEIVER_H

#include "TAPI.h"

#include <QObject>

class PHONE_AsyncMsgReceiver : public QObject {
    Q_OBJECT
public:
    explicit PHONE_AsyncMsgReceiver(QObject* parent = nullptr);
    ~PHONE_AsyncMsgReceiver() override;

    // Host side: queue a signal for every live receiver. False when the D-Bus connection is
    // lost.
    static bool postGprsService(bool available);
    static bool postRoamingState(TAPI_NETWORK_ROAM_E state);
    static bool postLowBatteryStatusChanged();
    static bool postChargeStatus(TAPI_CHARGER_STATUS_E status);

signals:
    void signalGprsService(bool available);
    void signalRoamingState(TAPI_NETWORK_ROAM_E state);
    void signalLowBatteryStatusChanged();
    void signalChargeStatus(TAPI_CHARGER_STATUS_E status);
};

#endif
