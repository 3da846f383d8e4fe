// A named system channel of the toolkit. Every QCopChannel object on a channel receives the
// messages sent to it: the objects of this process, and over D-Bus (ovplatform::useBusAddress)
// those of every process on the same daemon. The signal reaches the object on the Qt event
// loop of the thread the object lives in, never inside send().
//
// Messages of "QBX/System" and their data (QDataStream, version Qt_6_0):
//   "master clear", "master reset"        no data
//   "FlipOpened", "FlipClosed"            no data
//   "sliderOpened", "sliderClosed"        no data
//   "DPL_BKLGT_RESTORED", "DPL_BKLGT_DIMMED"  no data
//   "TimeInfoChanged"                     qint32 change flags (1 date, 2 time, 4 zone),
//                                         QDateTime previous, QDateTime new
//   "KillingPolicy(int)"                  qint32 policy (1: the process is to shut down)
#ifndef OVPLATFORM_QCOPCHANNEL_H
#define OVPLATFORM_QCOPCHANNEL_H

#include "QCString.h"

#include <QObject>

#define SYSTEM_CHANNEL "QBX/System"

class QCopChannel : public QObject {
    Q_OBJECT
public:
    explicit QCopChannel(const QCString& channel, QObject* parent = nullptr);
    ~QCopChannel() override;

    QCString channel() const { return mChannel; }

    // Queues MSG with DATA for every object on CHANNEL; false when none exists, or when the
    // D-Bus connection is lost.
    static bool send(const QCString& channel, const QCString& msg, const QByteArray& data);
    static bool send(const QCString& channel, const QCString& msg);
    // Whether an object on CHANNEL exists. Over D-Bus, another process's object may still
    // count for a moment after it was deleted.
    static bool isRegistered(const QCString& channel);

signals:
    void received(const QCString& msg, const QByteArray& data);

private:
    QCString mChannel;
};

#endif
