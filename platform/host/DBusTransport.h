// The event bus's transport between processes: each event is a D-Bus signal through the
// process's DBusLink, heard by every process listening to its topic, this one included (its
// own events come back through the daemon, in order with everyone else's). The signal holds
// the topic, the event's value (its "__OV_Event__mValue" property) as an integer and its other
// properties as a dictionary, so that any D-Bus client can read and send events
// (org.ovbase.Platform.xml).
#ifndef OVPLATFORM_HOST_DBUSTRANSPORT_H
#define OVPLATFORM_HOST_DBUSTRANSPORT_H

#include "EventTransport.h"

#include <QDBusMessage>

namespace ovplatform {

class DBusLink;

class DBusTransport : public EventTransport {
public:
    // LINK is not owned; it outlives the transport (links are never freed).
    explicit DBusTransport(DBusLink* link) : mpLink(link) {}
    ~DBusTransport() override;

    // Events arrive on the link's event thread, which thereby delivers them.
    bool deliversOnItsThread() const override { return true; }
    void start(Sink sink) override;
    void stop() override;
    int listen(const std::string& topic) override;
    void unlisten(const std::string& topic) override;
    int send(const ES_Event& event, bool listenedHere) override;

    // EVENT's arguments added to SIGNAL, and back: "" when SIGNAL's arguments (of the
    // types the link checks) made *EVENT, otherwise what is wrong with them.
    static void encode(const ES_Event& event, QDBusMessage* signal);
    static std::string decode(const QDBusMessage& signal, ES_Event* event);

private:
    DBusLink* mpLink;
};

} // namespace ovplatform

#endif
