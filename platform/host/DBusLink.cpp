#include "DBusLink.h"

#include "DBusInterfaceXml.h"
#include "DBusWire.h"
#include "ES_Event.h"
#include "types/FnLog.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDBusError>
#include <QDBusVirtualObject>
#include <QObject>
#include <QStringList>
#include <QThread>
#include <cstdlib>

namespace ovplatform {

// Lives on the link's thread and hands what Qt's D-Bus delivers there to the link.
class DBusLinkReceiver : public QObject {
    Q_OBJECT
public:
    explicit DBusLinkReceiver(DBusLink* link) : mpLink(link) {}

public slots:
    // Taking the whole message, they get every signal that matches, whatever its arguments.
    void onEvent(const QDBusMessage& signal) { mpLink->receive(DBusLink::EVENT, signal); }
    void onChannel(const QDBusMessage& signal) { mpLink->receive(DBusLink::CHANNEL, signal); }
    void onPhone(const QDBusMessage& signal) { mpLink->receive(DBusLink::PHONE, signal); }
    void onNameOwnerChanged(const QString& name, const QString&, const QString& newOwner) {
        mpLink->ownerChanged(name, !newOwner.isEmpty());
    }
    void onDisconnected() { mpLink->lost(); }

private:
    DBusLink* mpLink;
};

namespace {

const char* const kConnectionName = "ovplatform";
const char* const kPath = "/org/ovbase/Platform";
const char* const kInterface = "org.ovbase.Platform";
// The name that the processes on a bus queue for, so that one of them answers questions about
// the interface.
const char* const kServiceName = "org.ovbase.Platform";
const char* const kMembers[DBusLink::KIND_COUNT] = {"Event", "Channel", "Phone"};
// The argument types of each kind, as org.ovbase.Platform.xml gives them; an event's
// properties may also come as a{ss}, which is what dbus-send can write.
const char* const kSignatures[DBusLink::KIND_COUNT] = {"sia{sv}", "ssay", "si"};
const char* const kSlots[DBusLink::KIND_COUNT] = {
    SLOT(onEvent(QDBusMessage)),
    SLOT(onChannel(QDBusMessage)),
    SLOT(onPhone(QDBusMessage)),
};
const char* const kPresencePrefix[DBusLink::KIND_COUNT] = {
    "org.ovbase.Listen.E", "org.ovbase.Listen.C", "org.ovbase.Listen.P"};

const char* const kDaemonService = "org.freedesktop.DBus";
const char* const kDaemonPath = "/org/freedesktop/DBus";
const char* const kDaemonInterface = "org.freedesktop.DBus";

// Long enough for a busy machine, short enough that a daemon that stopped answering does not
// hold a caller (and the bus lock it may hold) for long.
const int kCallTimeoutMs = 5000;
const int kExitFlushTimeoutMs = 2000;

std::mutex gLinkMutex;
std::atomic<DBusLink*> gLink{nullptr};

bool acceptedSignature(DBusLink::Kind kind, const QString& signature) {
    return signature == QLatin1String(kSignatures[kind]) ||
           (kind == DBusLink::EVENT && signature == QLatin1String("sia{ss}"));
}

// The interface's description, from the file built into the library, for introspection.
class Description : public QDBusVirtualObject {
public:
    Description() {
        // Qt wraps what introspect() returns in a node of its own: only the interface goes.
        QString xml = QString::fromUtf8(kInterfaceXml);
        qsizetype begin = xml.indexOf(QLatin1String("<interface"));
        qsizetype end = xml.lastIndexOf(QLatin1String("</interface>"));
        if (begin >= 0 && end > begin)
            mInterface = xml.mid(begin, end - begin) + QLatin1String("</interface>\n");
    }
    QString introspect(const QString&) const override { return mInterface; }
    bool handleMessage(const QDBusMessage&, const QDBusConnection&) override { return false; }

private:
    QString mInterface;
};

// A bus name for KEY that only listeners own. Hashed, since bus names allow few characters.
QString presenceName(DBusLink::Kind kind, const std::string& key) {
    QByteArray hash =
        QCryptographicHash::hash(QByteArray::fromStdString(key), QCryptographicHash::Sha1);
    return QString::fromLatin1(kPresencePrefix[kind]) + QString::fromLatin1(hash.toHex());
}

QDBusMessage daemonCall(const char* method, const QList<QVariant>& arguments) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(kDaemonService, kDaemonPath, kDaemonInterface, method);
    call.setArguments(arguments);
    return call;
}

// What is still queued on the connection leaves before the process does.
void flushAtExit() {
    if (DBusLink* link = gLink.load())
        link->flush();
}

} // namespace

DBusLink* DBusLink::connect(const std::string& address, std::string* reason) {
    std::string ignored;
    std::string& why = reason ? *reason : ignored;
    std::lock_guard<std::mutex> lock(gLinkMutex);
    if (DBusLink* link = gLink.load()) {
        why = "already connected to " + link->description();
        return nullptr;
    }
    if (!QCoreApplication::instance()) {
        why = "the program has no QCoreApplication, which Qt's D-Bus module needs";
        return nullptr;
    }
    QDBusConnection connection =
        address.empty()
            ? QDBusConnection::connectToBus(QDBusConnection::SessionBus, kConnectionName)
            : QDBusConnection::connectToBus(QString::fromStdString(address), kConnectionName);
    if (!connection.isConnected()) {
        why = connection.lastError().message().toStdString();
        if (why.empty())
            why = "cannot connect";
        QDBusConnection::disconnectFromBus(kConnectionName);
        return nullptr;
    }
    // Never freed: late threads at exit may still use it.
    DBusLink* link = new DBusLink(connection, address.empty() ? "session bus" : address);
    gLink.store(link);
    std::atexit(flushAtExit);
    return link;
}

DBusLink* DBusLink::instance() {
    return gLink.load();
}

DBusLink::DBusLink(const QDBusConnection& connection, const std::string& description)
    : mConnection(connection), mDescription(description), mpThread(new QThread),
      mpReceiver(new DBusLinkReceiver(this)), mpEventThread(new QThread),
      mpEventReceiver(new DBusLinkReceiver(this)), mLost(false) {
    mpThread->setObjectName("ovplatform-dbus");
    mpReceiver->moveToThread(mpThread);
    mpThread->start();
    mpEventThread->setObjectName("ovplatform-bus");
    mpEventReceiver->moveToThread(mpEventThread);
    mpEventThread->start();
    mConnection.connect(QString(), "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                        "Disconnected", mpReceiver, SLOT(onDisconnected()));
    // Never freed, as the link. The name is only asked for: the daemon queues the request
    // while another process holds it, and the answer is of no use.
    mConnection.registerVirtualObject(kPath, new Description);
    mConnection.send(daemonCall("RequestName", {QString(kServiceName), 0u}));
}

void DBusLink::setReceiver(Kind kind, Receiver receiver) {
    std::lock_guard<std::mutex> lock(mMutex);
    mReceivers[kind] = std::move(receiver);
}

void DBusLink::receive(Kind kind, const QDBusMessage& signal) {
    Receiver receiver;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        receiver = mReceivers[kind];
    }
    if (!receiver)
        return;
    std::string wrong;
    if (!acceptedSignature(kind, signal.signature()))
        wrong = "its arguments are (" + signal.signature().toStdString() + "), not (" +
                kSignatures[kind] + ")";
    else
        wrong = receiver(signal);
    if (!wrong.empty())
        OV_LOG(3, "Dropped a malformed %s.%s signal from %s: %s\n\n", kInterface, kMembers[kind],
               signal.service().toUtf8().constData(), wrong.c_str());
}

QDBusMessage DBusLink::signal(Kind kind) {
    return QDBusMessage::createSignal(kPath, kInterface, kMembers[kind]);
}

bool DBusLink::connectKey(Kind kind, const std::string& key, bool on) {
    QStringList match;
    if (!key.empty())
        match << wire::name(key);
    DBusLinkReceiver* receiver = kind == EVENT ? mpEventReceiver : mpReceiver;
    if (on)
        return mConnection.connect(QString(), kPath, kInterface, kMembers[kind], match, QString(),
                                   receiver, kSlots[kind]);
    return mConnection.disconnect(QString(), kPath, kInterface, kMembers[kind], match, QString(),
                                  receiver, kSlots[kind]);
}

int DBusLink::listen(Kind kind, const std::string& key) {
    if (!connected() || !connectKey(kind, key, true))
        return ES_ERR_BUS_DOWN;
    // The match rule went out first on this connection, and the daemon handles a connection's
    // messages in order: once the name is answered, the rule is in place.
    QDBusMessage reply = mConnection.call(daemonCall("RequestName", {presenceName(kind, key), 0u}),
                                          QDBus::Block, kCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        connectKey(kind, key, false);
        return ES_ERR_BUS_DOWN;
    }
    return ES_OK;
}

void DBusLink::unlisten(Kind kind, const std::string& key) {
    connectKey(kind, key, false);
    if (connected()) // the answer is of no use: send without waiting
        mConnection.send(daemonCall("ReleaseName", {presenceName(kind, key)}));
}

int DBusLink::send(const QDBusMessage& signal) {
    if (!connected())
        return ES_ERR_BUS_DOWN;
    return mConnection.send(signal) ? ES_OK : ES_ERR_BUS_DOWN;
}

bool DBusLink::watchName(const QString& name) {
    return mConnection.connect(kDaemonService, kDaemonPath, kDaemonInterface, "NameOwnerChanged",
                               QStringList(name), QString(), mpReceiver,
                               SLOT(onNameOwnerChanged(QString, QString, QString)));
}

bool DBusLink::hasListener(Kind kind, const std::string& key) {
    QString name = presenceName(kind, key);
    bool watched;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mOwners.find(name);
        if (it != mOwners.end() && it->second == 1)
            return connected();
        watched = it != mOwners.end();
    }
    if (!connected())
        return false;
    std::lock_guard<std::mutex> query(mQueryMutex);
    if (!watched) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            watched = !mOwners.emplace(name, -1).second;
        }
        // Watched before asking, so that no change after the answer goes unnoticed.
        if (!watched && !watchName(name))
            return false;
    }
    QDBusMessage reply =
        mConnection.call(daemonCall("NameHasOwner", {name}), QDBus::Block, kCallTimeoutMs);
    bool owned = reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool();
    // A notice handled meanwhile may be newer than the answer, so the answer only fills in
    // what no notice has told yet.
    std::lock_guard<std::mutex> lock(mMutex);
    int& known = mOwners[name];
    if (known == -1 && reply.type() == QDBusMessage::ReplyMessage)
        known = owned ? 1 : 0;
    return owned;
}

void DBusLink::ownerChanged(const QString& name, bool owned) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mOwners.find(name);
    if (it != mOwners.end())
        it->second = owned ? 1 : 0;
}

bool DBusLink::flush() {
    if (!connected())
        return false;
    QDBusMessage reply =
        mConnection.call(daemonCall("GetId", {}), QDBus::Block, kExitFlushTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

bool DBusLink::connected() const {
    return !mLost.load() && mConnection.isConnected();
}

void DBusLink::lost() {
    mLost.store(true);
}

} // namespace ovplatform

// The moc output for the receiver class above.
#include "DBusLink.moc"
