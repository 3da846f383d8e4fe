// Demo step for settings: a value read and written through the setting manager, the file
// rewritten, and the setting-changed event arriving back from the bus.
#include "Demo.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventHandler.h"
#include "settings/NR_Setting.h"
#include "settings/NR_SettingMgr.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

namespace {

// Waits for the first setting-changed event that the bus delivers.
class ChangeListener : public OV_EventHandler {
public:
    // Events come on the bus's thread: none reaches a half-built or half-destroyed listener.
    ChangeListener() : OV_EventHandler(OrvelSetting::SETTING_CHANGED_TOPIC, DeliverLater()) {
        startDelivery();
    }
    ~ChangeListener() override { endRegistration(); }

    void handleEvent(OV_Event& e) override {
        std::lock_guard<std::mutex> guard(mLock);
        if (e.mPropMap && !e.mPropMap->empty() && !mSeen) {
            mName = e.mPropMap->begin()->first;
            mValue = e.mPropMap->begin()->second;
            mSeen = true;
        }
        mArrived.notify_all();
    }

    bool wait(std::string& name, std::string& value) {
        std::unique_lock<std::mutex> guard(mLock);
        if (!mArrived.wait_for(guard, std::chrono::seconds(5), [this] { return mSeen; }))
            return false;
        name = mName;
        value = mValue;
        return true;
    }

private:
    std::mutex mLock;
    std::condition_variable mArrived;
    bool mSeen = false;
    std::string mName;
    std::string mValue;
};

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void printIndented(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line))
        std::printf("    | %s\n", line.c_str());
}

} // namespace

bool demoSettings(const std::string&) {
    std::printf("\n== settings ==\n");
    const std::string path = ovplatform::devicePath(OrvelSettingMgr::SETTING_FILE);
    if (!std::filesystem::exists(path)) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << "[OVCore.Service]\nDownloadOption=0\nLastUsedServer=dpp20\n"
                               "[OVCore.UI]\nScreenSaverTimeout=30\n";
        std::printf("wrote a settings file: %s\n", path.c_str());
    }

    OrvelSettingMgr* mgr = OrvelSettingMgr::getSettingMgrInstance();
    const int ui = OrvelSettingMgr::GROUP_UI;
    int timeout = 0;
    int rc = mgr->getInt(ui, "ScreenSaverTimeout", timeout);
    std::printf("OVCore.UI / ScreenSaverTimeout = %d (result %d)\n", timeout, rc);
    if (rc != 0)
        return false;

    // Kept for the life of the process: the facade keeps calling a handler that was not its
    // topic's only one even after it unsubscribes.
    ChangeListener& listener = *new ChangeListener();
    rc = mgr->setInt(ui, "ScreenSaverTimeout", timeout + 15);
    std::printf("set it to %d (result %d); the file now reads:\n", timeout + 15, rc);
    printIndented(readText(path));

    std::string name, value;
    if (!listener.wait(name, value)) {
        std::printf("no setting-changed event arrived\n");
        return false;
    }
    std::printf("setting-changed event arrived from the bus: %s = %s\n", name.c_str(),
                value.c_str());

    int again = 0;
    mgr->getInt(ui, "ScreenSaverTimeout", again);
    std::printf("read back: %d\n", again);
    return rc == 0 && again == timeout + 15 && name == "OVCore.UI.ScreenSaverTimeout";
}
