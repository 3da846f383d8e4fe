// Settings files for tests: writes the main settings file or the menu-language file at its
// place under the current device root.
#ifndef OVBASE_TESTS_SUPPORT_SETTINGSFILES_H
#define OVBASE_TESTS_SUPPORT_SETTINGSFILES_H

#include <string>

namespace ovtest {

// Where the built-in settings files lie under the current device root.
std::string mainSettingsPath();
std::string menuSettingsPath();

// Writes CONTENT (the file's text form, as it is) there, creating the directories; false on
// failure.
bool writeMainSettings(const std::string& content);
bool writeMenuSettings(const std::string& content);

} // namespace ovtest

#endif
