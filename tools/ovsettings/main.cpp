// ovsettings: reads and writes the library's settings on a device root. A set goes through the
// setting manager, so the file is rewritten and the change announced like any other write.
#include "OVPlatform.h"
#include "ToolBus.h"
#include "ToolSupport.h"
#include "settings/NR_MenuCFGSetting.h"
#include "settings/NR_SettingMgr.h"
#include "types/AttrMap.h"
#include "types/UTF_8Util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

// The tool's own messages; the library's diagnostics go to stderr, which is discarded unless
// -v is given.
FILE* gErr = ovtool::err();

// Exit codes: the setting manager's result codes pass through unchanged (0 success, 1 no such
// group or source, 3 key absent, 8 settings file not loaded); 64 is a usage error.
const int kExitUsage = 64;

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: ovsettings [-v] [--bus WHERE] DEVICE_ROOT COMMAND ...\n"
                 "\n"
                 "commands:\n"
                 "  get GROUP KEY [--int|--bool]     print a value (as text unless a type is "
                 "given)\n"
                 "  set GROUP KEY VALUE [--int|--bool]\n"
                 "                                   write a value (as text unless a type is "
                 "given)\n"
                 "  list GROUP                       print the group's keys and values\n"
                 "  cat [--menu]                     print the settings file (or the menu file)\n"
                 "  groups                           print the group indices and names\n"
                 "\n"
                 "GROUP is a group index (0-10) or name, such as 9 or OVCore.UI. The menu\n"
                 "group (5, OVCore.Menu) reads and writes the phone's current language.\n"
                 "\n"
                 "-v shows the library's diagnostics on standard error.\n"
                 "\n"
                 "exit status: 0 success, 1 no such group or source, 3 key absent,\n"
                 "8 settings file not loaded, 64 usage error.\n");
    std::fprintf(out, "\n%s", ovtool::BUS_USAGE);
}

// The group index of an index or a name; -1 when it is neither.
int parseGroup(const char* text) {
    char* end = nullptr;
    long index = std::strtol(text, &end, 10);
    if (*text && !*end)
        return OrvelSettingMgr::groupName(int(index)) && index >= 0 ? int(index) : -1;
    for (int i = 0; i < OrvelSettingMgr::GROUP_COUNT; ++i) {
        if (std::strcmp(text, OrvelSettingMgr::groupName(i)) == 0)
            return i;
    }
    return -1;
}

// Command-line texts and the terminal are UTF-8; the settings hold code points.
ovTypes::String fromUtf8(const char* text) {
    // The reader skips white space before its first character, so it is given a lead byte
    // to skip past.
    std::istringstream in(std::string("x") + text);
    bool end = false;
    ovTypes::String decoded = UTF_8Util::getReader(in)->readLine(end);
    return decoded.empty() ? decoded : decoded.substr(1);
}

void printUtf8(const ovTypes::String& text) {
    std::fflush(stdout);
    auto writer = UTF_8Util::getWriter(std::cout);
    writer->write(text);
    writer->writeLine();
    writer->flush();
    std::cout.flush();
}

// "--int", "--bool" or absent (text); anything else is a usage error.
bool parseType(int argc, char** argv, int at, char& type) {
    type = 's';
    if (argc <= at)
        return true;
    if (argc > at + 1)
        return false;
    if (std::strcmp(argv[at], "--int") == 0)
        type = 'i';
    else if (std::strcmp(argv[at], "--bool") == 0)
        type = 'b';
    else
        return false;
    return true;
}

void report(int rc, const char* what) {
    if (rc == 3)
        std::fprintf(gErr, "ovsettings: %s: key absent\n", what);
    else if (rc == 8)
        std::fprintf(gErr, "ovsettings: %s: settings file not loaded\n", what);
    else if (rc != 0)
        std::fprintf(gErr, "ovsettings: %s: failed (%d)\n", what, rc);
}

int get(OrvelSettingMgr& mgr, int group, const char* key, char type) {
    int rc;
    if (type == 'i') {
        int value = 0;
        rc = mgr.getInt(group, key, value);
        if (rc == 0)
            std::printf("%d\n", value);
    } else if (type == 'b') {
        bool value = false;
        rc = mgr.getBoolean(group, key, value);
        if (rc == 0)
            std::printf("%s\n", value ? "true" : "false");
    } else {
        ovTypes::String value;
        rc = mgr.getString(group, key, value);
        if (rc == 0)
            printUtf8(value);
    }
    report(rc, "get");
    return rc;
}

int set(OrvelSettingMgr& mgr, int group, const char* key, const char* value, char type) {
    int rc;
    if (type == 'i') {
        char* end = nullptr;
        long number = std::strtol(value, &end, 0);
        if (!*value || *end) {
            std::fprintf(gErr, "ovsettings: not an integer: %s\n", value);
            return kExitUsage;
        }
        rc = mgr.setInt(group, key, int(number));
    } else if (type == 'b') {
        if (std::strcmp(value, "true") != 0 && std::strcmp(value, "false") != 0) {
            std::fprintf(gErr, "ovsettings: not true or false: %s\n", value);
            return kExitUsage;
        }
        rc = mgr.setBoolean(group, key, std::strcmp(value, "true") == 0);
    } else {
        rc = mgr.setString(group, key, fromUtf8(value));
    }
    report(rc, "set");
    return rc;
}

bool loadFile(const std::string& path, AttrMap& map) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    map.load(in);
    return true;
}

int list(OrvelSettingMgr& mgr, int group) {
    ovTypes::ID section = OrvelSettingMgr::groupName(group);
    std::string path = ovplatform::devicePath(OrvelSettingMgr::SETTING_FILE);
    if (group == OrvelSettingMgr::GROUP_MENU) {
        auto* menu = dynamic_cast<MenuCFGOrvelSetting*>(mgr.getSetting(group));
        if (!menu)
            return 1;
        section = ovTypes::ID(menu->languageCode());
        path = ovplatform::devicePath(MenuCFGOrvelSetting::MENU_FILE);
    }
    AttrMap map(false);
    if (!loadFile(path, map)) {
        report(8, "list");
        return 8;
    }
    // Print through a map holding the one section, so the lines are the file's own form.
    AttrMap one(false);
    if (const auto* keys = map.categoryAt(section)) {
        for (const auto& entry : *keys) {
            if (!entry.second.empty())
                one.putString(entry.first, entry.second.front());
        }
    }
    one.store(std::cout);
    std::cout.flush();
    return 0;
}

int cat(bool menu) {
    std::string path = ovplatform::devicePath(menu ? MenuCFGOrvelSetting::MENU_FILE
                                                   : OrvelSettingMgr::SETTING_FILE);
    AttrMap map(false);
    if (!loadFile(path, map)) {
        report(8, "cat");
        return 8;
    }
    map.store(std::cout);
    std::cout.flush();
    return 0;
}

int run(int argc, char** argv) {
    if (argc >= 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        usage(stdout);
        return 0;
    }
    ovtool::dropVerboseOptions(argc, argv);
    if (int rc = ovtool::useBusOption(argc, argv))
        return rc;
    if (argc < 3) {
        usage(gErr);
        return kExitUsage;
    }
    ovplatform::setDeviceRoot(argv[1]);
    std::string command = argv[2];

    if (command == "groups" && argc == 3) {
        for (int i = 0; i < OrvelSettingMgr::GROUP_COUNT; ++i)
            std::printf("%d %s\n", i, OrvelSettingMgr::groupName(i));
        return 0;
    }
    if (command == "cat" && (argc == 3 || (argc == 4 && std::strcmp(argv[3], "--menu") == 0)))
        return cat(argc == 4);

    if (argc < 4 || (command != "get" && command != "set" && command != "list")) {
        usage(gErr);
        return kExitUsage;
    }
    int group = parseGroup(argv[3]);
    if (group < 0) {
        std::fprintf(gErr, "ovsettings: no such group: %s (see 'groups')\n", argv[3]);
        return 1;
    }
    OrvelSettingMgr* mgr = OrvelSettingMgr::getSettingMgrInstance();
    char type;
    if (command == "list" && argc == 4)
        return list(*mgr, group);
    if (command == "get" && argc >= 5 && parseType(argc, argv, 5, type))
        return get(*mgr, group, argv[4], type);
    if (command == "set" && argc >= 6 && parseType(argc, argv, 6, type))
        return set(*mgr, group, argv[4], argv[5], type);
    usage(gErr);
    return kExitUsage;
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::finish(run(argc, argv));
}
