#include "settings/NR_SettingMgr.h"

#include "OVPlatform.h"
#include "settings/NR_CFGSetting.h"
#include "settings/NR_MenuCFGSetting.h"
#include "settings/NR_OpProfile.h"
#include "types/FnLog.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

const char* const kGroupNames[OrvelSettingMgr::GROUP_COUNT] = {
    "OVCore.ConnectionProfiles",
    "OVCore.DCD",
    "OVCore.EngineeringMenu",
    "OVCore.HttpTransport",
    "OVCore.InitSetting",
    "OVCore.Menu",
    "OVCore.Service",
    "OVCore.Storage",
    "OVCore.System",
    "OVCore.UI",
    "OVNewsReader.UI",
};

} // namespace

const char* const OrvelSettingMgr::SETTING_FILE =
    "/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg";
const char* const OrvelSettingMgr::PHONE_PROCESS = "/usr/SYSqtapp/phone/phone";

OrvelSettingMgr* OrvelSettingMgr::mpMgrInstance = nullptr;

OrvelSettingMgr* OrvelSettingMgr::getSettingMgrInstance() {
    if (!mpMgrInstance)
        mpMgrInstance = new OrvelSettingMgr();
    return mpMgrInstance;
}

OrvelSettingMgr::OrvelSettingMgr() : mPhoneProcess(false) {
    for (int i = 0; i < GROUP_COUNT; ++i)
        mpSettings[i] = nullptr;

    const char* name = getProcessName();
    mPhoneProcess = name && std::strcmp(name, PHONE_PROCESS) == 0;
    delete[] name;

    if (mPhoneProcess) {
        NR_OpProfile profile;
        profile.checkInstall();
    }
}

OrvelSettingMgr::~OrvelSettingMgr() {
    // Ten entries share one source: delete each distinct object once.
    for (int i = 0; i < GROUP_COUNT; ++i) {
        OrvelSetting* source = mpSettings[i];
        if (!source)
            continue;
        for (int j = i; j < GROUP_COUNT; ++j) {
            if (mpSettings[j] == source)
                mpSettings[j] = nullptr;
        }
        delete source;
    }
}

const char* OrvelSettingMgr::groupName(int group) {
    if (group < 0 || group >= GROUP_COUNT)
        return nullptr;
    return kGroupNames[group];
}

OrvelSetting* OrvelSettingMgr::getSetting(int group) {
    if (group < 0 || group >= GROUP_COUNT)
        return nullptr;
    if (mpSettings[group])
        return mpSettings[group];
    if (group == GROUP_MENU) {
        mpSettings[GROUP_MENU] = new MenuCFGOrvelSetting();
        return mpSettings[GROUP_MENU];
    }
    OrvelSetting* shared = new CFGOrvelSetting(ovplatform::devicePath(SETTING_FILE).c_str());
    for (int i = 0; i < GROUP_COUNT; ++i) {
        if (i != GROUP_MENU)
            mpSettings[i] = shared;
    }
    return shared;
}

int OrvelSettingMgr::getInt(int group, const char* key, int& value) {
    OrvelSetting* source = getSetting(group);
    return source ? source->getInt(kGroupNames[group], key, value) : 1;
}

int OrvelSettingMgr::getString(int group, const char* key, ovTypes::String& value) {
    OrvelSetting* source = getSetting(group);
    return source ? source->getString(kGroupNames[group], key, value) : 1;
}

int OrvelSettingMgr::getBoolean(int group, const char* key, bool& value) {
    OrvelSetting* source = getSetting(group);
    return source ? source->getBoolean(kGroupNames[group], key, value) : 1;
}

int OrvelSettingMgr::setInt(int group, const char* key, int value) {
    OrvelSetting* source = getSetting(group);
    return source ? source->setInt(kGroupNames[group], key, value) : 1;
}

int OrvelSettingMgr::setString(int group, const char* key, const ovTypes::String& value) {
    OrvelSetting* source = getSetting(group);
    return source ? source->setString(kGroupNames[group], key, value) : 1;
}

int OrvelSettingMgr::setBoolean(int group, const char* key, bool value) {
    OrvelSetting* source = getSetting(group);
    return source ? source->setBoolean(kGroupNames[group], key, value) : 1;
}

int OrvelSettingMgr::getInt(int group, const char* key, int* value) {
    return value ? getInt(group, key, *value) : 1;
}

int OrvelSettingMgr::getString(int group, const char* key, ovTypes::String* value) {
    return value ? getString(group, key, *value) : 1;
}

int OrvelSettingMgr::getBoolean(int group, const char* key, bool* value) {
    return value ? getBoolean(group, key, *value) : 1;
}

int OrvelSettingMgr::getCategory(ovTypes::String name) {
    // The category is the name up to its second dot, or up to its first dot when there is
    // no second one.
    ovTypes::String category;
    size_t first = name.find(L'.');
    if (first != ovTypes::String::npos) {
        size_t second = name.find(L'.', first + 1);
        category = name.substr(0, second == ovTypes::String::npos ? first : second);
    } else {
        category = name;
    }
    // Compared wide: narrowing first would let a character above 255 pass for its low byte.
    for (int i = 0; i < GROUP_COUNT; ++i) {
        if (category == ovTypes::String(ovTypes::ID(kGroupNames[i])))
            return i;
    }
    return NO_CATEGORY;
}

char* OrvelSettingMgr::convertDMPathToOrvelSettingItemID(const char* path) {
    if (!path)
        return nullptr;
    // The first two slashes lead into the tree; the item starts at the last slash after them.
    int slashes = 0;
    const char* start = path;
    for (const char* p = path; *p; ++p) {
        if (*p != '/')
            continue;
        if (slashes < 2)
            ++slashes;
        else
            start = p;
    }
    size_t length = std::strlen(start);
    char* item = new char[length + 1];
    std::memcpy(item, start, length + 1);
    return item;
}

const char* OrvelSettingMgr::getProcessName() {
    int pid = getpid();
    OV_LOG(5, "getpid() returns %d\n\n", pid);
    char procPath[64];
    std::snprintf(procPath, sizeof procPath, "/proc/%d/cmdline", pid);
    char* name = nullptr;
    if (FILE* file = std::fopen(procPath, "r")) {
        name = new char[128];
        // The command line stops at its first NUL, so this reads the program path.
        if (!std::fgets(name, 128, file))
            name[0] = '\0';
        std::fclose(file);
    }
    OV_LOG(5, "Process full path is %s\n\n", name ? name : "(null)");
    return name;
}
