// MenuCFGOrvelSetting: the source of the menu group, over the menu-language file. The phone's
// current language, not the group, selects the section; a key missing there is looked up once
// more in "en-us". Every change is announced under the group "OVCore.Menu".
#ifndef OVBASE_SETTINGS_NR_MENUCFGSETTING_H
#define OVBASE_SETTINGS_NR_MENUCFGSETTING_H

#include "settings/NR_CFGSetting.h"

class MenuCFGOrvelSetting : public CFGOrvelSetting {
public:
    static const char* const MENU_FILE;        // the menu-language file (a device path)
    static const char* const DEFAULT_LANGUAGE; // "en-us"

    MenuCFGOrvelSetting();
    ~MenuCFGOrvelSetting() override;

    void handleEvent(OV_Event& e) override;

    // The group argument is ignored: the section is the current language.
    int getInt(const char* group, const char* key, int& value) override;
    int getString(const char* group, const char* key, char** value) override;
    int getString(const char* group, const char* key, ovTypes::String& value) override;
    int getBoolean(const char* group, const char* key, bool& value) override;
    int setInt(const char* group, const char* key, int value) override;
    int setString(const char* group, const char* key, const char* value) override;
    int setString(const char* group, const char* key, const ovTypes::String& value) override;
    int setBoolean(const char* group, const char* key, bool value) override;

    // Announces under "OVCore.Menu" whatever group it is given.
    void publishSettingChangeEvent(const char* group, const char* key, const char* value) override;

    // Reads the language, then loads the menu file; 0 when it was loaded, 1 otherwise.
    int init() override;

    // Decompresses the gzip file SOURCE into the plain file TARGET (paths used as given);
    // 0 on success, 1 when either cannot be opened.
    int unzipMenuCFGFile(const char* source, const char* target);

    const ovTypes::String& languageCode() const { return mLanguageCode; }

protected:
    std::string announcedName(const char* group, const char* key) override;

private:
    // Asks the facade for the phone's language; "en-us" when that fails.
    void readCurrentLanguageFromPhone();

    ovTypes::String mLanguageCode;
    char* mpNarrowLanguageCode;
};

#endif
