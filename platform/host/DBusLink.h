// The process's connection to a dbus-daemon, shared by the three things that cross process
// boundaries on a host: bus events, system-channel messages and phone-client signals. Each is
// one D-Bus signal of interface "org.ovbase.Platform" on path "/org/ovbase/Platform", whose
// arguments are in D-Bus's own types (org.ovbase.Platform.xml describes them; DBusWire.h
// writes names and values): "Event" (topic, value, properties), "Channel" (channel, message,
// data) and "Phone" (signal name, value). The link exports that description on the path.
//
// A process hears a key (a topic, a channel: the signal's first argument) only while it
// listens to it (a match rule on the key). While it listens it also owns the key's presence
// name, so that another process can tell whether anyone listens before it sends (hasListener).
//
// Arriving signals are handed to the kind's receiver in the order the daemon sent them, on one
// of the link's two threads: bus events on a thread of their own (the event bus's delivery
// thread, so that a slow handler holds up nothing else), everything else on the other. A
// signal whose arguments do not have the kind's types, or that its receiver refuses, is
// dropped with a level 3 diagnostic naming its sender. Every other call may come from any
// thread. Once the daemon goes away the link stays lost for the rest of the process: sends
// and listens fail, nothing arrives.
//
// The link is made once per process (connect) and never freed: threads still running at exit
// may use it. Qt's D-Bus module needs a QCoreApplication, which must exist before connect().
#ifndef OVPLATFORM_HOST_DBUSLINK_H
#define OVPLATFORM_HOST_DBUSLINK_H

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

class QThread;

namespace ovplatform {

class DBusLinkReceiver;

class DBusLink {
public:
    enum Kind { EVENT, CHANNEL, PHONE, KIND_COUNT };

    // Takes a signal of one kind whose arguments have the kind's types; runs on the link's
    // thread for that kind. Returns "" when it took the signal, otherwise what is wrong with
    // it (the link then drops it with a diagnostic).
    typedef std::function<std::string(const QDBusMessage& signal)> Receiver;

    // Connects to the daemon at ADDRESS ("" for the session bus) and makes this the process's
    // link. Null, with the reason in *REASON, when there is no QCoreApplication, the daemon
    // cannot be reached, or the process already has a link.
    static DBusLink* connect(const std::string& address, std::string* reason);
    // The process's link; null while the process has none.
    static DBusLink* instance();

    // Replaces the receiver of KIND (an empty function drops what arrives). Once it returns,
    // the previous receiver is not called again except by a call already under way.
    void setReceiver(Kind kind, Receiver receiver);

    // Starts hearing KIND signals for KEY ("" for every signal of KIND). When it returns ES_OK
    // the daemon routes every signal sent after that moment, from any process, to this one.
    // ES_ERR_BUS_DOWN when the link is lost. Listening twice to one key is not supported:
    // callers count their own users.
    int listen(Kind kind, const std::string& key);
    // Stops hearing KEY. Signals already on their way to the link's thread may still reach
    // the receiver; nothing sent later does.
    void unlisten(Kind kind, const std::string& key);

    // A signal of KIND, for the caller to add its arguments to and send().
    static QDBusMessage signal(Kind kind);
    // Sends SIGNAL to every process listening to its key (this one included). ES_OK or
    // ES_ERR_BUS_DOWN.
    int send(const QDBusMessage& signal);

    // Whether some process (this one included) listens to KEY. A "yes" comes from memory
    // kept current by the daemon's notices; a "no" is always checked with the daemon, so a
    // listener that has just started is never missed. False when the link is lost.
    bool hasListener(Kind kind, const std::string& key);

    // Returns once the daemon has received everything sent so far; false when it did not answer.
    bool flush();

    bool connected() const;
    // "session bus" or the address given to connect().
    const std::string& description() const { return mDescription; }

    // Called by the link's threads.
    void receive(Kind kind, const QDBusMessage& signal);
    void ownerChanged(const QString& name, bool owned);
    void lost();

private:
    DBusLink(const QDBusConnection& connection, const std::string& description);
    DBusLink(const DBusLink&) = delete;
    DBusLink& operator=(const DBusLink&) = delete;

    bool connectKey(Kind kind, const std::string& key, bool on);
    bool watchName(const QString& name);

    QDBusConnection mConnection;
    std::string mDescription;
    QThread* mpThread;
    DBusLinkReceiver* mpReceiver; // lives on mpThread
    QThread* mpEventThread;
    DBusLinkReceiver* mpEventReceiver; // lives on mpEventThread, receives EVENT only
    std::atomic<bool> mLost;

    std::mutex mMutex; // guards the receivers and the owners
    Receiver mReceivers[KIND_COUNT];
    // Presence names being watched: 1 owned, 0 not, -1 not known yet.
    std::map<QString, int> mOwners;
    std::mutex mQueryMutex; // one question to the daemon at a time
};

} // namespace ovplatform

#endif
