#include "settings/NR_MenuCFGSetting.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "types/FnLog.h"

#include <cstring>
#include <zlib.h>

namespace {

const char* const kMenuGroup = "OVCore.Menu";

} // namespace

const char* const MenuCFGOrvelSetting::MENU_FILE =
    "/qbxlocal/download/appwrite/setup/wb_ovmenu_lang.cfg";
const char* const MenuCFGOrvelSetting::DEFAULT_LANGUAGE = "en-us";

MenuCFGOrvelSetting::MenuCFGOrvelSetting()
    : CFGOrvelSetting(DeliverLater()), mpNarrowLanguageCode(nullptr) {
    init();
    startDelivery();
}

MenuCFGOrvelSetting::~MenuCFGOrvelSetting() {
    endRegistration();
    delete[] mpNarrowLanguageCode;
}

void MenuCFGOrvelSetting::readCurrentLanguageFromPhone() {
    ovTypes::String code;
    if (OV_EventAndStatusFacade::instance()->getCurrentLanguageCode(code) != 0) {
        mLanguageCode = ovTypes::String(ovTypes::ID(DEFAULT_LANGUAGE));
        OV_LOG(2, "get OS currLang fail, use default %S\n\n", mLanguageCode.c_str());
    } else {
        mLanguageCode = code;
        OV_LOG(5, "OS current language code %S\n\n", mLanguageCode.c_str());
    }
    ovTypes::ID narrow(mLanguageCode);
    delete[] mpNarrowLanguageCode;
    mpNarrowLanguageCode = new char[narrow.size() + 1];
    std::memcpy(mpNarrowLanguageCode, narrow.c_str(), narrow.size() + 1);
}

int MenuCFGOrvelSetting::init() {
    readCurrentLanguageFromPhone();
    std::string path = ovplatform::devicePath(MENU_FILE);
    setPath(path.c_str());
    if (mFileStream.is_open())
        mFileStream.close();
    mFileStream.clear();
    mFileStream.open(path, std::ios::in | std::ios::out | std::ios::binary);
    if (mFileStream.is_open()) {
        loadFrom(mFileStream);
        mFileStream.close();
        mLoaded = true;
        return 0;
    }
    OV_LOG(3, "No menu language config file exist %s\n\n", path.c_str());
    mLoaded = false;
    return 1;
}

int MenuCFGOrvelSetting::getInt(const char*, const char* key, int& value) {
    int rc = CFGOrvelSetting::getInt(mpNarrowLanguageCode, key, value);
    if (rc == SETTING_KEY_ABSENT)
        rc = CFGOrvelSetting::getInt(DEFAULT_LANGUAGE, key, value);
    return rc;
}

int MenuCFGOrvelSetting::getString(const char*, const char* key, char** value) {
    int rc = CFGOrvelSetting::getString(mpNarrowLanguageCode, key, value);
    if (rc == SETTING_KEY_ABSENT)
        rc = CFGOrvelSetting::getString(DEFAULT_LANGUAGE, key, value);
    return rc;
}

int MenuCFGOrvelSetting::getString(const char*, const char* key, ovTypes::String& value) {
    int rc = CFGOrvelSetting::getString(mpNarrowLanguageCode, key, value);
    if (rc == SETTING_KEY_ABSENT)
        rc = CFGOrvelSetting::getString(DEFAULT_LANGUAGE, key, value);
    return rc;
}

int MenuCFGOrvelSetting::getBoolean(const char*, const char* key, bool& value) {
    int rc = CFGOrvelSetting::getBoolean(mpNarrowLanguageCode, key, value);
    if (rc == SETTING_KEY_ABSENT)
        rc = CFGOrvelSetting::getBoolean(DEFAULT_LANGUAGE, key, value);
    return rc;
}

int MenuCFGOrvelSetting::setInt(const char*, const char* key, int value) {
    return CFGOrvelSetting::setInt(mpNarrowLanguageCode, key, value);
}

int MenuCFGOrvelSetting::setString(const char*, const char* key, const char* value) {
    return CFGOrvelSetting::setString(mpNarrowLanguageCode, key, value);
}

int MenuCFGOrvelSetting::setString(const char*, const char* key, const ovTypes::String& value) {
    return CFGOrvelSetting::setString(mpNarrowLanguageCode, key, value);
}

int MenuCFGOrvelSetting::setBoolean(const char*, const char* key, bool value) {
    return CFGOrvelSetting::setBoolean(mpNarrowLanguageCode, key, value);
}

std::string MenuCFGOrvelSetting::announcedName(const char*, const char* key) {
    return std::string(kMenuGroup) + "." + key;
}

void MenuCFGOrvelSetting::publishSettingChangeEvent(const char*, const char* key,
                                                    const char* value) {
    std::string name = announcedName(kMenuGroup, key);
    OV_LOG(5, "Publish OV setting change event %s, %s\n\n", name.c_str(), value);
    publishSettingEvent(name, value);
}

void MenuCFGOrvelSetting::handleEvent(OV_Event& e) {
    OV_LOG(5, "MenuCFGOrvelSetting:handleEvent called.\n\n");
    applyChange(e);
}

int MenuCFGOrvelSetting::unzipMenuCFGFile(const char* source, const char* target) {
    gzFile in = source ? gzopen(source, "rb") : nullptr;
    if (!in)
        return 1;
    FILE* out = target ? std::fopen(target, "wb") : nullptr;
    if (!out) {
        gzclose(in);
        return 1;
    }
    char block[128];
    int n;
    while ((n = gzread(in, block, sizeof block)) > 0)
        std::fwrite(block, 1, size_t(n), out);
    gzclose(in);
    std::fclose(out);
    return 0;
}
