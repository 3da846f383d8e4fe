// The event bus's transport between processes: each event is a D-Bus signal through the
// process's DBusLink, heard by every process listening to its topic, this one included (its
// own events come back through the daemon, in order with everyone else's).
#ifndef OVPLATFORM_HOST_DBUSTRANSPORT_H
#define OVPLATFORM_HOST_DBUSTRANSPORT_H

#include "EventTransport.h"

#include <QByteArray>

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

    // The wire form of an event's properties; decoding is false for bytes not made by encode.
    static QByteArray encodeProperties(const ES_Event::PropertyMap& properties);
    static bool decodeProperties(const QByteArray& bytes, ES_Event* event);

private:
    DBusLink* mpLink;
};

} // namespace ovplatform

#endif
