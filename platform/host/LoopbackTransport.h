// The in-process transport: what is sent arrives in this process's own bus and nowhere else.
#ifndef OVPLATFORM_HOST_LOOPBACKTRANSPORT_H
#define OVPLATFORM_HOST_LOOPBACKTRANSPORT_H

#include "EventTransport.h"

#include <mutex>

namespace ovplatform {

class LoopbackTransport : public EventTransport {
public:
    void start(Sink sink) override;
    void stop() override;
    int listen(const std::string&) override { return ES_OK; }
    void unlisten(const std::string&) override {}
    int send(const ES_Event& event, bool listenedHere) override;

private:
    std::mutex mMutex;
    Sink mSink;
};

} // namespace ovplatform

#endif
