// The events step of the demo: handlers subscribe through the facade, an event published on
// the bus comes back to them on the bus's delivery thread, and flipping the simulated phone
// open arrives as a flip status event on the Qt event loop.
#include "Demo.h"

#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "eventstatuslib/OV_EventHandler.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"
#include "utility/NR_Constants.h"

#include "OVPlatform.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// Prints each event it receives and counts them.
class DemoHandler : public OV_EventHandler {
public:
    // Events come on the bus's thread: none reaches a half-built or half-destroyed handler.
    DemoHandler(const std::string& topic, const char* name)
        : OV_EventHandler(topic, DeliverLater()), mName(name) {
        startDelivery();
    }
    ~DemoHandler() override { endRegistration(); }

    void handleEvent(OV_Event& event) override {
        if (!mPrinting || (mOnlyValue >= 0 && event.mValue != mOnlyValue))
            return;
        std::string detail;
        if (event.mPropMap != nullptr) {
            for (const auto& entry : *event.mPropMap)
                detail += " " + entry.first + "=" + entry.second;
        }
        bool onMain = std::this_thread::get_id() == mMainThread;
        std::lock_guard<std::mutex> lock(mMutex);
        std::printf("  %s received %s value %d%s (%s)\n", mName, event.mEventType.c_str(),
                    static_cast<int>(event.mValue), detail.c_str(),
                    onMain ? "on the Qt event loop" : "on the bus's delivery thread");
        std::fflush(stdout);
        ++mCount;
    }

    int count() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCount;
    }

    std::atomic<bool> mPrinting{true};
    int mOnlyValue = -1; // when 0 or more, events of other values are passed over

private:
    const char* mName;
    std::thread::id mMainThread = std::this_thread::get_id();
    std::mutex mMutex;
    int mCount = 0;
};

// Runs the Qt event loop until every handler has COUNT events, or ten seconds pass.
bool waitForAll(const std::vector<DemoHandler*>& handlers, int count) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        bool all = true;
        for (DemoHandler* handler : handlers)
            all = all && handler->count() >= count;
        if (all)
            return true;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

} // namespace

bool demoEvents() {
    std::printf("\n== events and device status ==\n");
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "ovdemo";
        static char* argv[] = {name, nullptr};
        new QCoreApplication(argc, argv); // kept for the life of the process
    }
    bool ok = true;
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();

    // Two handlers on one topic stay registered with the facade even after they unsubscribe
    // (it removes only a topic's sole handler), so these two live as long as the process, and
    // fall silent after this step.
    DemoHandler& carousel = *new DemoHandler(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS, "carousel");
    DemoHandler& reader = *new DemoHandler(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS, "reader");
    std::printf("two handlers subscribed to %s\n",
                NR_Constants::EVENT_NOTIFY_STORAGE_STATUS.c_str());

    OV_Event status(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS);
    status.setProperty("total", "2048 K");
    status.setProperty("used", "512 K");
    status.setProperty("free", "1536 K");
    std::printf("publishing a storage status event; it comes back through the bus:\n");
    std::fflush(stdout);
    facade->publish(status);
    if (!waitForAll({&carousel, &reader}, 1)) {
        std::printf("  the storage status event did not come back\n");
        ok = false;
    }

    // The phone may have been left open (an earlier run, ovphone): closed first, and only the
    // opening counts.
    ovplatform::setFlipOpen(false);
    DemoHandler flip(OV_WBEventStatusAdapter::EVENT_FLIP_STATUS_CHANGED, "flip watcher");
    flip.mOnlyValue = 1;
    OV_FLIP_STATUS before = OV_FLIP_OPEN;
    facade->getFlipStatus(before);
    std::printf("flip is %s; opening the simulated phone (state in %s)\n",
                before == OV_FLIP_OPEN ? "open" : "closed", ovplatform::phoneStatePath().c_str());
    ovplatform::setFlipOpen(true);
    if (!waitForAll({&flip}, 1)) {
        std::printf("  the flip event did not arrive\n");
        ok = false;
    }
    OV_FLIP_STATUS after = OV_FLIP_CLOSED;
    facade->getFlipStatus(after);
    std::printf("flip is now %s\n", after == OV_FLIP_OPEN ? "open" : "closed");
    ok = ok && after == OV_FLIP_OPEN;

    ovTypes::String imsi, plmn;
    OV_ROAMING_STATUS roaming = OV_HOME_NETWORK;
    if (facade->getIMSI(imsi) == 0 && facade->getHomePLMN(plmn) == 0 &&
        facade->getRoamingStatus(roaming) == 0)
        std::printf("SIM IMSI %s, home PLMN %s, %s\n", ovTypes::ID(imsi).c_str(),
                    ovTypes::ID(plmn).c_str(), roaming == OV_ROAMING ? "roaming" : "at home");
    carousel.mPrinting = false;
    reader.mPrinting = false;
    std::printf("events: %s\n", ok ? "ok" : "FAILED");
    return ok;
}
