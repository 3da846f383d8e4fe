#include "LoopbackTransport.h"

namespace ovplatform {

void LoopbackTransport::start(Sink sink) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSink = sink;
}

void LoopbackTransport::stop() {
    std::lock_guard<std::mutex> lock(mMutex);
    mSink = nullptr;
}

int LoopbackTransport::send(const ES_Event& event, bool listenedHere) {
    if (!listenedHere)
        return ES_ERR_NO_SUBSCRIBER;
    Sink sink;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        sink = mSink;
    }
    if (!sink)
        return ES_ERR_BUS_DOWN;
    sink(event);
    return ES_OK;
}

} // namespace ovplatform
