// Settings files for tests: where the main settings file and the menu-language file lie under
// the current device root, and writing them there (the text form as it is, the directories
// created; false on failure).
#ifndef OVBASE_TESTS_SUPPORT_SETTINGSFILES_H
#define OVBASE_TESTS_SUPPORT_SETTINGSFILES_H

#include "OVPlatform.h"
#include "support/Files.h"

#include <string>

namespace ovtest {

inline std::string mainSettingsPath() {
    return ovplatform::devicePath("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg");
}

inline std::string menuSettingsPath() {
    return ovplatform::devicePath("/qbxlocal/download/appwrite/setup/wb_ovmenu_lang.cfg");
}

inline bool writeMainSettings(const std::string& content) {
    return writeFile(mainSettingsPath(), content);
}

inline bool writeMenuSettings(const std::string& content) {
    return writeFile(menuSettingsPath(), content);
}

} // namespace ovtest

#endif
