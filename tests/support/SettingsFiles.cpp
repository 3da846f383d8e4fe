#include "support/SettingsFiles.h"

#include "OVPlatform.h"
#include "support/Files.h"

namespace ovtest {

std::string mainSettingsPath() {
    return ovplatform::devicePath("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg");
}

std::string menuSettingsPath() {
    return ovplatform::devicePath("/qbxlocal/download/appwrite/setup/wb_ovmenu_lang.cfg");
}

bool writeMainSettings(const std::string& content) {
    return writeFile(mainSettingsPath(), content);
}

bool writeMenuSettings(const std::string& content) {
    return writeFile(menuSettingsPath(), content);
}

} // namespace ovtest
