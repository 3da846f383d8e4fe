// ovsettings: reads and writes the library's settings on a device root. A set goes through the
// setting manager, so the file is rewritten and the change announced like any other write;
// the tool then reads the file back, since the library does not report a failed write.
#include "OVPlatform.h"
#include "ToolBus.h"
#include "ToolSupport.h"
#include "settings/NR_MenuCFGSetting.h"
#include "settings/NR_SettingMgr.h"
#include "types/AttrMap.h"
#include "types/MString.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Exit statuses besides the shared ones: the setting manager's result codes pass through.
const int EXIT_REFUSED = 1;                       // no such group, or the library refused the write
const int EXIT_ABSENT = 3;                        // the key is absent
const int EXIT_NOT_LOADED = 8;                    // the settings file could not be loaded
const int EXIT_WRONG_TYPE = ovtool::EXIT_DATAERR; // get --int/--bool of text of another type

const char* gRoot = ""; // the device root, as given

void usage(FILE* out) {
    std::fprintf(
        out,
        "usage: ovsettings [-v] [--bus WHERE] DEVICE_ROOT COMMAND ...\n"
        "\n"
        "commands:\n"
        "  init                             create the empty settings and menu files where the\n"
        "                                   library looks for them (an existing file is kept)\n"
        "  get GROUP KEY [--int|--bool]     print a value (as text unless a type is given);\n"
        "                                   reading needs only read access to the file\n"
        "  set GROUP KEY VALUE [--int|--bool]\n"
        "                                   write a value (as text unless a type is given) and\n"
        "                                   check that the file holds it afterwards\n"
        "  list GROUP                       print the group's keys and values\n"
        "  cat [--menu]                     print the settings file (or the menu file)\n"
        "  groups                           print the group indices and names\n"
        "\n"
        "GROUP is a group index (0-10) or name, such as 9 or OVCore.UI. The menu\n"
        "group (5, OVCore.Menu) reads and writes the phone's current language.\n"
        "A value for --int is a decimal integer of 32 bits: an optional '-' and digits\n"
        "without a leading zero (no octal, no 0x); for --bool it is true or false.\n"
        "A key and a text value must read back from the file exactly as given: they\n"
        "are UTF-8, the key is not empty and does not end in a space, the value does\n"
        "not begin with one, and neither holds a carriage return or a line feed.\n"
        "A missing DEVICE_ROOT is created by init and set only.\n"
        "\n"
        "-v shows the library's diagnostics on standard error.\n"
        "\n"
        "example: ovsettings /tmp/root init && ovsettings /tmp/root set OVCore.UI Timeout 30 "
        "--int\n"
        "\n"
        "exit status:\n"
        "  0   success\n"
        "  1   no such group, or the library refused the key or value\n"
        "  3   the key is absent\n"
        "  8   the settings file is not loaded (missing or unreadable; see init)\n"
        "  64  usage error, including a --int or --bool value of the wrong form\n"
        "  65  get --int or --bool of a value that is not of that type, or a set key or\n"
        "      value that would not read back as given\n"
        "  66  DEVICE_ROOT is not a directory, or is missing for a command that reads\n"
        "  74  the file does not hold the value after a set, init could not create a file,\n"
        "      or standard output could not be written\n");
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

// A --int value: decimal, optional '-', no leading zero, within 32 bits.
bool parseDecimal(const char* text, int& value) {
    const char* digits = *text == '-' ? text + 1 : text;
    if (*digits < '0' || *digits > '9' || (digits[0] == '0' && digits[1] != '\0'))
        return false;
    errno = 0;
    char* end = nullptr;
    long long number = std::strtoll(text, &end, 10);
    if (*end || errno == ERANGE || number < INT_MIN || number > INT_MAX)
        return false;
    value = int(number);
    return true;
}

// Whether the library's integer reading (wcstol in base 0) takes all of TEXT, within 32 bits.
bool readsAsInteger(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    long long number = std::strtoll(text.c_str(), &end, 0);
    return !text.empty() && end != text.c_str() && !*end && errno != ERANGE && number >= INT_MIN &&
           number <= INT_MAX;
}

// Command-line texts and the terminal are UTF-8; the settings hold code points.
ovTypes::String fromUtf8(const char* text) {
    return MString(text).toWide();
}

std::string toUtf8(const ovTypes::String& text) {
    return MString(text);
}

// The settings file or the menu file, under the device root.
std::string filePath(bool menu) {
    return ovplatform::devicePath(menu ? MenuCFGOrvelSetting::MENU_FILE
                                       : OrvelSettingMgr::SETTING_FILE);
}

// The file that serves GROUP.
std::string fileOf(int group) {
    return filePath(group == OrvelSettingMgr::GROUP_MENU);
}

// The section GROUP's values live in: the group's name, or the current language for the menu.
ovTypes::ID sectionOf(OrvelSettingMgr& mgr, int group) {
    if (group == OrvelSettingMgr::GROUP_MENU) {
        if (auto* menu = dynamic_cast<MenuCFGOrvelSetting*>(mgr.getSetting(group)))
            return ovTypes::ID(menu->languageCode());
    }
    return OrvelSettingMgr::groupName(group);
}

// Why PATH cannot be opened as the library opens it (for reading, and for writing when WRITE):
// an errno value, or 0 when it can.
int openError(const std::string& path, bool write) {
    int fd = ::open(path.c_str(), (write ? O_RDWR : O_RDONLY) | O_CLOEXEC);
    if (fd < 0)
        return errno;
    struct stat st;
    bool directory = ::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode);
    ::close(fd);
    return directory ? EISDIR : 0;
}

void reportNotLoaded(const char* what, const std::string& path, bool write) {
    int error = openError(path, write);
    if (error == ENOENT) {
        ovtool::error("%s: settings file not loaded: %s: %s (create it with: ovsettings %s init)",
                      what, path.c_str(), std::strerror(error), gRoot);
    } else {
        ovtool::error("%s: settings file not loaded: %s: %s", what, path.c_str(),
                      error ? std::strerror(error)
                            : "it could not be read when the command started");
    }
}

int report(int rc, const char* what, int group, const char* key) {
    if (rc == EXIT_ABSENT)
        ovtool::error("%s: %s: key absent: %s", what, OrvelSettingMgr::groupName(group), key);
    else if (rc == EXIT_NOT_LOADED)
        reportNotLoaded(what, fileOf(group), true);
    else if (rc == EXIT_REFUSED)
        ovtool::error("%s: %s: the library refused key %s or its value (result 1)", what,
                      OrvelSettingMgr::groupName(group), key);
    else if (rc != 0)
        ovtool::error("%s: %s: %s: failed (result %d)", what, OrvelSettingMgr::groupName(group),
                      key, rc);
    return rc;
}

bool loadFile(const std::string& path, AttrMap& map) {
    if (openError(path, false) != 0)
        return false;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    map.load(in);
    return true;
}

// GROUP's KEY as the library reads it (the menu group falls back to "en-us"), from the file
// opened for reading only; 0, EXIT_ABSENT or EXIT_NOT_LOADED.
int readSetting(OrvelSettingMgr& mgr, int group, const char* key, ovTypes::String* value) {
    AttrMap map(false);
    if (!loadFile(fileOf(group), map))
        return EXIT_NOT_LOADED;
    bool found = false;
    *value = map.getString(key, ovTypes::String(), &found, sectionOf(mgr, group));
    if (!found && group == OrvelSettingMgr::GROUP_MENU)
        *value = map.getString(key, ovTypes::String(), &found, "en-us");
    return found ? 0 : EXIT_ABSENT;
}

int get(OrvelSettingMgr& mgr, int group, const char* key, char type) {
    // Read as text first, so that a value of another type is told apart from a number.
    ovTypes::String value;
    int rc = readSetting(mgr, group, key, &value);
    if (rc == EXIT_NOT_LOADED) {
        reportNotLoaded("get", fileOf(group), false);
        return rc;
    }
    if (rc != 0)
        return report(rc, "get", group, key);
    std::string text = toUtf8(value);
    if (type == 'i') {
        if (!readsAsInteger(text)) {
            ovtool::error("get: %s: %s holds \"%s\", which is not an integer",
                          OrvelSettingMgr::groupName(group), key, text.c_str());
            return EXIT_WRONG_TYPE;
        }
        // The library's reading: wide wcstol in base 0, as AttrMap::getInt does.
        AttrMap one(false);
        one.putString("v", value);
        std::printf("%d\n", one.getInt("v"));
    } else if (type == 'b') {
        if (text != "true" && text != "false") {
            ovtool::error("get: %s: %s holds \"%s\", which is neither true nor false",
                          OrvelSettingMgr::groupName(group), key, text.c_str());
            return EXIT_WRONG_TYPE;
        }
        std::printf("%s\n", text.c_str());
    } else {
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fputc('\n', stdout);
    }
    return 0;
}

// Whether TEXT is well-formed UTF-8 (no overlong forms, no surrogates, nothing past U+10FFFF):
// what the file holds is decoded and encoded again, and only such text comes back unchanged.
bool isUtf8(const std::string& text) {
    for (size_t i = 0; i < text.size();) {
        unsigned char lead = static_cast<unsigned char>(text[i]);
        int count = lead < 0x80   ? 0
                    : lead < 0xC2 ? -1
                    : lead < 0xE0 ? 1
                    : lead < 0xF0 ? 2
                    : lead < 0xF5 ? 3
                                  : -1;
        if (count < 0 || text.size() - i <= size_t(count))
            return false;
        uint32_t cp = count == 0 ? lead : lead & (0x3F >> count);
        for (int k = 1; k <= count; ++k) {
            unsigned char c = static_cast<unsigned char>(text[i + k]);
            if ((c & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (c & 0x3F);
        }
        static const uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
        if (cp < kSmallest[count] || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF)
            return false;
        i += size_t(count) + 1;
    }
    return true;
}

// Why KEY or VALUE would not read back from the file exactly as given; null when they would.
const char* unreadableReason(const std::string& key, const std::string& value) {
    if (key.empty())
        return "the key is empty";
    if (!isUtf8(key))
        return "the key is not UTF-8";
    if (key.back() == ' ')
        return "the key ends in a space, which loading trims";
    if (key.find_first_of("\r\n") != std::string::npos)
        return "the key holds a carriage return or a line feed";
    if (!isUtf8(value))
        return "the value is not UTF-8";
    if (!value.empty() && value.front() == ' ')
        return "the value begins with a space, which loading trims";
    if (value.find_first_of("\r\n") != std::string::npos)
        return "the value holds a carriage return or a line feed";
    return nullptr;
}

int set(OrvelSettingMgr& mgr, int group, const char* key, const char* value, char type) {
    if (const char* reason = unreadableReason(key, type == 's' ? value : "")) {
        ovtool::error("set: %s: refused: %s", OrvelSettingMgr::groupName(group), reason);
        return ovtool::EXIT_DATAERR;
    }
    int rc;
    ovTypes::String expected;
    if (type == 'i') {
        int number = 0;
        if (!parseDecimal(value, number)) {
            ovtool::error("set: not a 32-bit decimal integer: \"%s\"", value);
            return ovtool::EXIT_USAGE;
        }
        rc = mgr.setInt(group, key, number);
        expected = fromUtf8(std::to_string(number).c_str());
    } else if (type == 'b') {
        if (std::strcmp(value, "true") != 0 && std::strcmp(value, "false") != 0) {
            ovtool::error("set: not true or false: \"%s\"", value);
            return ovtool::EXIT_USAGE;
        }
        rc = mgr.setBoolean(group, key, std::strcmp(value, "true") == 0);
        expected = fromUtf8(value);
    } else {
        expected = fromUtf8(value);
        rc = mgr.setString(group, key, expected);
    }
    if (rc != 0)
        return report(rc, "set", group, key);
    // The library does not report a write that failed: the file tells.
    std::string path = fileOf(group);
    ovTypes::ID section = sectionOf(mgr, group);
    AttrMap map(false);
    if (!loadFile(path, map)) {
        int error = openError(path, false);
        ovtool::error("set: %s cannot be read back after the write: %s", path.c_str(),
                      error ? std::strerror(error) : "read failed");
        return ovtool::EXIT_IOERR;
    }
    bool found = false;
    ovTypes::String held = map.getString(key, ovTypes::String(), &found, section);
    if (!found || held != expected) {
        std::string now = found ? "\"" + toUtf8(held) + "\"" : std::string("no value for it");
        ovtool::error("set: %s: [%s] %s now holds %s, not \"%s\": the write did not reach the file",
                      path.c_str(), section.c_str(), key, now.c_str(), toUtf8(expected).c_str());
        return ovtool::EXIT_IOERR;
    }
    return 0;
}

int list(OrvelSettingMgr& mgr, int group) {
    std::string path = fileOf(group);
    AttrMap map(false);
    if (!loadFile(path, map)) {
        reportNotLoaded("list", path, false);
        return EXIT_NOT_LOADED;
    }
    // Print through a map holding the one section, so the lines are the file's own form.
    AttrMap one(false);
    if (const auto* keys = map.categoryAt(sectionOf(mgr, group))) {
        for (const auto& entry : *keys) {
            if (!entry.second.empty())
                one.putString(entry.first, entry.second.front());
        }
    }
    one.store(std::cout);
    return 0;
}

int cat(bool menu) {
    std::string path = filePath(menu);
    AttrMap map(false);
    if (!loadFile(path, map)) {
        reportNotLoaded("cat", path, false);
        return EXIT_NOT_LOADED;
    }
    map.store(std::cout);
    return 0;
}

// Creates PATH empty, with its directories, unless a file is already there.
bool createEmpty(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) {
        ovtool::error("init: cannot create the directory of %s: %s", path.c_str(),
                      error.message().c_str());
        return false;
    }
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    int failure = fd < 0 ? errno : ::close(fd) == 0 ? 0 : errno;
    if (fd >= 0 && failure == 0) {
        std::printf("created %s\n", path.c_str());
        return true;
    }
    // An existing file is kept, as long as the library can use it.
    if (failure == EEXIST && (failure = openError(path, true)) == 0) {
        std::printf("kept %s\n", path.c_str());
        return true;
    }
    ovtool::error("init: cannot create %s: %s", path.c_str(), std::strerror(failure));
    return false;
}

int init() {
    bool ok = createEmpty(filePath(false));
    ok = createEmpty(filePath(true)) && ok;
    return ok ? 0 : ovtool::EXIT_IOERR;
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

int run(int argc, char** argv) {
    if (int rc = ovtool::useBusOption(argc, argv))
        return rc;
    if (argc < 2)
        return ovtool::usageError("missing DEVICE_ROOT and COMMAND");
    if (argc < 3)
        return ovtool::usageError("missing COMMAND");
    gRoot = argv[1];
    const std::string command = argv[2];
    const int rest = argc - 3;
    if (command != "groups" && command != "init" && command != "cat" && command != "get" &&
        command != "set" && command != "list")
        return ovtool::usageError("unknown command: %s", command.c_str());
    // What each command needs after its name: GROUP, KEY, VALUE, in this order.
    static const char* const kNeeds[] = {"GROUP", "KEY", "VALUE"};
    const int needs = command == "get" ? 2 : command == "set" ? 3 : command == "list" ? 1 : 0;
    if (rest < needs)
        return ovtool::usageError("%s: missing %s", command.c_str(), kNeeds[rest]);
    char type = 's';
    bool menu = false;
    if (command == "cat" && rest == 1 && std::strcmp(argv[3], "--menu") == 0)
        menu = true;
    else if ((command == "get" || command == "set") && !parseType(argc, argv, 3 + needs, type))
        return ovtool::usageError("%s: unexpected argument: %s (--int or --bool)", command.c_str(),
                                  argv[3 + needs]);
    else if (command != "get" && command != "set" && rest > needs)
        return ovtool::usageError("%s: unexpected argument: %s", command.c_str(), argv[3 + needs]);

    if (int rc = ovtool::useDeviceRoot(argv[1], command == "init" || command == "set"))
        return rc;
    if (command == "groups") {
        for (int i = 0; i < OrvelSettingMgr::GROUP_COUNT; ++i)
            std::printf("%d %s\n", i, OrvelSettingMgr::groupName(i));
        return 0;
    }
    if (command == "init")
        return init();
    if (command == "cat")
        return cat(menu);
    int group = parseGroup(argv[3]);
    if (group < 0) {
        ovtool::error("no such group: %s (see 'groups')", argv[3]);
        return EXIT_REFUSED;
    }
    OrvelSettingMgr* mgr = OrvelSettingMgr::getSettingMgrInstance();
    if (command == "list")
        return list(*mgr, group);
    if (command == "get")
        return get(*mgr, group, argv[4], type);
    return set(*mgr, group, argv[4], argv[5], type);
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
