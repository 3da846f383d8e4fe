// OrvelSettingMgr: the process-wide entry to every setting. Callers name a value by group
// index and key; the manager finds the group's source (created on first use) and forwards the
// call with the group's name. One configuration-file source serves the ten non-menu groups;
// the menu group has a source of its own.
#ifndef OVBASE_SETTINGS_NR_SETTINGMGR_H
#define OVBASE_SETTINGS_NR_SETTINGMGR_H

#include "types/ovTypes.h"

class OrvelSetting;

class OrvelSettingMgr {
public:
    // Group indices, in the order of the group name table.
    enum {
        GROUP_CONNECTION_PROFILES = 0,
        GROUP_DCD = 1,
        GROUP_ENGINEERING_MENU = 2,
        GROUP_HTTP_TRANSPORT = 3,
        GROUP_INIT_SETTING = 4,
        GROUP_MENU = 5,
        GROUP_SERVICE = 6,
        GROUP_STORAGE = 7,
        GROUP_SYSTEM = 8,
        GROUP_UI = 9,
        GROUP_NEWSREADER_UI = 10,
        GROUP_COUNT = 11,
    };

    // Answer of getCategory for a name of no group: one past the first invalid index.
    static const int NO_CATEGORY = 12;

    static const char* const SETTING_FILE;  // the main settings file (a device path)
    static const char* const PHONE_PROCESS; // command line of the phone application

    // The instance, created on first call. Not guarded: the first call must come from one
    // thread.
    static OrvelSettingMgr* getSettingMgrInstance();

    // Builds a manager of its own; processes use getSettingMgrInstance(). On the phone process
    // it installs the operator profile that matches the SIM.
    OrvelSettingMgr();
    // Frees the sources; the shared configuration-file source once.
    virtual ~OrvelSettingMgr();

    OrvelSettingMgr(const OrvelSettingMgr&) = delete;
    OrvelSettingMgr& operator=(const OrvelSettingMgr&) = delete;

    // The group's source, created on first use; null for a group above 10.
    OrvelSetting* getSetting(int group);

    // 1 for a group above 10 or without a source; otherwise the source's result.
    int getInt(int group, const char* key, int& value);
    int getString(int group, const char* key, ovTypes::String& value);
    int getBoolean(int group, const char* key, bool& value);
    int setInt(int group, const char* key, int value);
    int setString(int group, const char* key, const ovTypes::String& value);
    int setBoolean(int group, const char* key, bool value);

    // Pointer forms of the getters, for callers that pass their output by address; a null
    // output gives 1.
    int getInt(int group, const char* key, int* value);
    int getString(int group, const char* key, ovTypes::String* value);
    int getBoolean(int group, const char* key, bool* value);

    // The group index of a dotted setting name ("OVCore.UI.Foo" gives 9); 12 for none.
    int getCategory(ovTypes::String name);
    // The setting item of a device-management path: from its last slash after the first two,
    // or the whole path. Allocated with new[]; null for a null path.
    char* convertDMPathToOrvelSettingItemID(const char* path);
    // The program path from "/proc/<pid>/cmdline", allocated with new[]; null when unreadable.
    const char* getProcessName();

    // The group's name, or null for an index outside the table.
    static const char* groupName(int group);

    bool isPhoneProcess() const { return mPhoneProcess; }

private:
    static OrvelSettingMgr* mpMgrInstance;

    OrvelSetting* mpSettings[GROUP_COUNT];
    bool mPhoneProcess;
};

#endif
