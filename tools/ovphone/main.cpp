// ovphone: shows and changes the simulated phone of a device root, and sends what a phone
// sends on its own (master clear and reset, a time change, the shut-down policy, a WAP push).
// A change is sent as a real phone sends it, as a system-channel message or a phone-client
// signal; with --bus that reaches the adapters of every process on the bus.
#include "ToolArgs.h"
#include "ToolBus.h"
#include "ToolSupport.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"

#include "ES_EventPublisher.h"
#include "OVPlatform.h"
#include "QCopChannel.h"
#include "SETUP_Utility.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

typedef OV_WBEventStatusAdapter Adapter;

const int EXIT_NOT_DONE = 1; // the change or message did not happen

void usage(FILE* out) {
    std::fprintf(
        out,
        "usage: ovphone [-v] [--bus WHERE] DEVICE_ROOT COMMAND ...\n"
        "\n"
        "commands:\n"
        "  show                           print every value of the phone\n"
        "  get NAME                       print one value\n"
        "  set NAME VALUE                 change a value; sends what a phone sends for it\n"
        "  master-clear | master-reset    send that message on QBX/System\n"
        "  time-changed PREVIOUS NEW [FLAGS]\n"
        "                                 send TimeInfoChanged: times in seconds since 1970,\n"
        "                                 FLAGS bits 1 date, 2 time (default), 4 zone\n"
        "  shutdown-policy POLICY         send KillingPolicy(int); 1 asks processes to stop\n"
        "  push [--dcd] [--content-type TYPE] [NAME=VALUE ...]\n"
        "                                 deliver a WAP push to the orvel agent (--dcd: the\n"
        "                                 DCD agent), with these properties; without\n"
        "                                 --content-type it carries none\n"
        "\n"
        "names and values:\n"
        "  flip open|closed       slider open|closed      battery ok|low\n"
        "  charger attached|detached                      roaming on|off\n"
        "  gprs on|off            nitz on|off             backlight BRIGHTNESS (0 dims it)\n"
        "  language CODE          languages CODE,CODE...  model TEXT\n"
        "  sw-version TEXT        own-number NUMBER       imsi DIGITS (\"\" for no SIM)\n"
        "  mnc-length 2|3         current-plmn DIGITS     home-carrier TEXT\n"
        "  current-carrier TEXT   display.PROPERTY NUMBER (screen-saver and dimming values)\n"
        "  home-plmn (read only: the IMSI's first digits)\n"
        "\n"
        "set creates a missing DEVICE_ROOT; the other commands need one that is there.\n"
        "\n"
        "exit status: 0 done, 1 not done (the state file cannot be written, or nobody\n"
        "received the message), 64 usage error, 66 DEVICE_ROOT is not a directory or\n"
        "is missing, 69 the bus cannot be reached or was lost.\n"
        "\n%s",
        ovtool::BUS_USAGE);
}

// ---- the values -----------------------------------------------------------------------

// A two-state value: its name, its key in the state file, the words for 1 and 0, its setter.
struct Flag {
    const char* name;
    const char* key;
    const char* on;
    const char* off;
    bool (*set)(bool);
};

const Flag kFlags[] = {
    {"flip", "flip_open", "open", "closed", ovplatform::setFlipOpen},
    {"slider", "slider_open", "open", "closed", ovplatform::setSliderOpen},
    {"battery", "low_battery", "low", "ok", ovplatform::setLowBattery},
    {"charger", "charger", "attached", "detached", ovplatform::setChargerAttached},
    {"roaming", "roaming", "on", "off", ovplatform::setRoaming},
    {"gprs", "gprs", "on", "off", ovplatform::setGprsAvailable},
    {"nitz", "nitz", "on", "off", ovplatform::setNitzAvailable},
};

bool anyText(const std::string&) {
    return true;
}

bool digits(const std::string& text, size_t low, size_t high) {
    return text.size() >= low && text.size() <= high &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

bool imsiText(const std::string& text) {
    return text.empty() || digits(text, 6, 16);
}

bool plmnText(const std::string& text) {
    return digits(text, 5, 6);
}

bool numberText(const std::string& text) {
    return text.size() <= 40 && text.find_first_not_of("0123456789+*#") == std::string::npos;
}

bool codeText(const std::string& text) {
    return !text.empty() && text.find_first_of(", \t") == std::string::npos;
}

// A new IMSI keeps the MNC length the phone has.
bool setImsiKeepingMnc(const std::string& imsi) {
    return ovplatform::setImsi(imsi, std::atoi(ovplatform::phoneValue("mnc_length").c_str()));
}

struct Text {
    const char* name;
    const char* key;
    bool (*valid)(const std::string&);
    bool (*set)(const std::string&);
};

const Text kTexts[] = {
    {"language", "language", codeText, ovplatform::setLanguageCode},
    {"model", "model", anyText, ovplatform::setPhoneModelId},
    {"sw-version", "sw_version", anyText, ovplatform::setPhoneSwVersion},
    {"own-number", "own_number", numberText, ovplatform::setOwnNumber},
    {"imsi", "imsi", imsiText, setImsiKeepingMnc},
    {"current-plmn", "current_plmn", plmnText, ovplatform::setCurrentPlmn},
    {"home-carrier", "home_carrier", anyText, ovplatform::setHomeCarrierName},
    {"current-carrier", "current_carrier", anyText, ovplatform::setCurrentCarrierName},
};

const char* const kDisplayProperties[] = {Adapter::SCREENSAVER_STATUS, Adapter::SCREENSAVER_TIMEOUT,
                                          Adapter::DISPLAY_TIMEOUT, Adapter::DIM_TIMEOUT,
                                          Adapter::DIM_INTENSITY};

const std::string kDisplayPrefix = "display.";
const std::string kBacklightKey = kDisplayPrefix + SETUP_LCD_BRIGHTNESS;

const Flag* findFlag(const std::string& name) {
    for (const Flag& flag : kFlags) {
        if (name == flag.name)
            return &flag;
    }
    return nullptr;
}

const Text* findText(const std::string& name) {
    for (const Text& text : kTexts) {
        if (name == text.name)
            return &text;
    }
    return nullptr;
}

bool isDisplayName(const std::string& name) {
    return name.size() > kDisplayPrefix.size() &&
           name.compare(0, kDisplayPrefix.size(), kDisplayPrefix) == 0;
}

std::string homePlmn() {
    std::string imsi = ovplatform::phoneValue("imsi");
    size_t length = ovplatform::phoneValue("mnc_length") == "3" ? 6 : 5;
    return imsi.size() >= length ? imsi.substr(0, length) : "";
}

// NAME's value as shown; false when there is no such name.
bool valueOf(const std::string& name, std::string* value) {
    if (const Flag* flag = findFlag(name))
        *value = ovplatform::phoneValue(flag->key) != "0" ? flag->on : flag->off;
    else if (const Text* text = findText(name))
        *value = ovplatform::phoneValue(text->key);
    else if (name == "backlight")
        *value = ovplatform::phoneValue(kBacklightKey);
    else if (name == "languages")
        *value = ovplatform::phoneValue("languages");
    else if (name == "mnc-length")
        *value = ovplatform::phoneValue("mnc_length");
    else if (name == "home-plmn")
        *value = homePlmn();
    else if (isDisplayName(name))
        *value = ovplatform::phoneValue(name, "(unset)");
    else
        return false;
    return true;
}

// Every name show lists: the phone's values, then the display values, the known ones and any
// other that set has stored.
std::vector<std::string> allNames() {
    std::vector<std::string> names;
    for (const Flag& flag : kFlags)
        names.push_back(flag.name);
    names.push_back("backlight");
    for (const Text& text : kTexts)
        names.push_back(text.name);
    names.push_back("languages");
    names.push_back("mnc-length");
    names.push_back("home-plmn");
    std::vector<std::string> display;
    for (const char* property : kDisplayProperties)
        display.push_back(kDisplayPrefix + property);
    for (const std::string& key : ovplatform::phoneValueKeys()) {
        if (isDisplayName(key) && key != kBacklightKey &&
            std::find(display.begin(), display.end(), key) == display.end())
            display.push_back(key);
    }
    names.insert(names.end(), display.begin(), display.end());
    return names;
}

std::vector<std::string> splitList(const std::string& list) {
    std::vector<std::string> items;
    std::string::size_type start = 0;
    while (start <= list.size()) {
        std::string::size_type comma = list.find(',', start);
        if (comma == std::string::npos)
            comma = list.size();
        items.push_back(list.substr(start, comma - start));
        start = comma + 1;
    }
    return items;
}

// Says why a setter failed and gives the exit status.
int setFailed(const std::string& name) {
    if (!ovplatform::busConnected()) {
        ovtool::error("%s: written, but the change could not be sent: the bus is lost",
                      name.c_str());
        return ovtool::EXIT_UNAVAILABLE;
    }
    ovtool::error("%s: cannot write %s", name.c_str(), ovplatform::phoneStatePath().c_str());
    return EXIT_NOT_DONE;
}

int badValue(const std::string& name, const std::string& value, const char* expected) {
    ovtool::error("%s: not %s: \"%s\"", name.c_str(), expected, value.c_str());
    return ovtool::EXIT_USAGE;
}

int set(const std::string& name, const std::string& value) {
    if (value.find('\n') != std::string::npos)
        return badValue(name, value, "a one-line value");
    bool ok;
    long number = 0;
    if (const Flag* flag = findFlag(name)) {
        if (value != flag->on && value != flag->off)
            return badValue(name, value, (std::string(flag->on) + " or " + flag->off).c_str());
        ok = flag->set(value == flag->on);
    } else if (const Text* text = findText(name)) {
        if (!text->valid(value))
            return badValue(name, value, "a valid value (see --help)");
        ok = text->set(value);
    } else if (name == "backlight") {
        if (!ovtool::parseNumber(value.c_str(), 0, INT_MAX, &number))
            return badValue(name, value, "a brightness from 0");
        ok = ovplatform::setLcdBrightness(int(number));
    } else if (name == "languages") {
        std::vector<std::string> codes = splitList(value);
        for (const std::string& code : codes) {
            if (!codeText(code))
                return badValue(name, value, "a list of language codes");
        }
        ok = ovplatform::setInstalledLanguages(codes);
    } else if (name == "mnc-length") {
        if (!ovtool::parseNumber(value.c_str(), 2, 3, &number))
            return badValue(name, value, "2 or 3");
        ok = ovplatform::setImsi(ovplatform::phoneValue("imsi"), int(number));
    } else if (isDisplayName(name) && name != kBacklightKey) {
        if (!ovtool::parseNumber(value.c_str(), INT_MIN, INT_MAX, &number))
            return badValue(name, value, "a number");
        ok = ovplatform::setPhoneValue(name, value);
    } else if (name == "home-plmn") {
        ovtool::error("home-plmn is read only: it is the first digits of the IMSI");
        return ovtool::EXIT_USAGE;
    } else {
        ovtool::error("no such value: %s (see 'show')", name.c_str());
        return ovtool::EXIT_USAGE;
    }
    return ok ? 0 : setFailed(name);
}

// ---- messages ---------------------------------------------------------------------------

// Exit status of a system-channel message that was sent (SENT) or not.
int messageResult(const char* what, bool sent) {
    if (sent)
        return 0;
    if (!ovplatform::busConnected()) {
        ovtool::error("%s: not sent: the bus is lost", what);
        return ovtool::EXIT_UNAVAILABLE;
    }
    ovtool::error("%s: nobody has " SYSTEM_CHANNEL " open%s", what, ovtool::busHint());
    return EXIT_NOT_DONE;
}

int push(int argc, char** argv) {
    std::string topic = Adapter::PUSH_TOPIC_ORVEL;
    ES_Event event;
    int at = 0;
    for (; at < argc && argv[at][0] == '-'; ++at) {
        if (std::strcmp(argv[at], "--dcd") == 0) {
            topic = Adapter::PUSH_TOPIC_DCD;
        } else if (std::strcmp(argv[at], "--content-type") == 0 && at + 1 < argc) {
            event.setProperty(Adapter::CONTENT_TYPE_PROPERTY, argv[++at]);
        } else if (std::strcmp(argv[at], "--content-type") == 0) {
            return ovtool::usageError("push: --content-type: missing TYPE");
        } else {
            return ovtool::usageError("push: unknown option: %s", argv[at]);
        }
    }
    for (; at < argc; ++at) {
        std::string name, value;
        if (!ovtool::parseProperty(argv[at], &name, &value))
            return ovtool::usageError("push: not NAME=VALUE: \"%s\"", argv[at]);
        event.setProperty(name, value);
    }
    event.setTopic(topic);
    int status = ES_EventPublisher::publish(event);
    if (status == ES_OK)
        return 0;
    if (status == ES_ERR_NO_SUBSCRIBER) {
        ovtool::error("push: nobody listens to %s%s", topic.c_str(), ovtool::busHint());
        return EXIT_NOT_DONE;
    }
    ovtool::error("push: not sent (bus status %d)", status);
    return ovtool::EXIT_UNAVAILABLE;
}

int timeChanged(int argc, char** argv) {
    long previous = 0, now = 0, flags = 2;
    if (argc < 2 || argc > 3 || !ovtool::parseNumber(argv[0], LONG_MIN, LONG_MAX, &previous) ||
        !ovtool::parseNumber(argv[1], LONG_MIN, LONG_MAX, &now) ||
        (argc == 3 && !ovtool::parseNumber(argv[2], 0, 7, &flags))) {
        return ovtool::usageError("time-changed needs PREVIOUS NEW (seconds since 1970) and "
                                  "optional FLAGS (0-7)");
    }
    return messageResult("time-changed",
                         ovplatform::sendTimeInfoChanged(int(flags), previous, now));
}

// What each command takes after its name: at least MIN arguments and at most MAX (-1: any).
struct Command {
    const char* name;
    int min;
    int max;
    const char* missing; // what the first missing argument is
};

const Command kCommands[] = {
    {"show", 0, 0, ""},
    {"get", 1, 1, "NAME"},
    {"set", 2, 2, "NAME VALUE"},
    {"master-clear", 0, 0, ""},
    {"master-reset", 0, 0, ""},
    {"time-changed", 2, 3, "PREVIOUS NEW"},
    {"shutdown-policy", 1, 1, "POLICY"},
    {"push", 0, -1, ""},
};

int run(int argc, char** argv) {
    if (int rc = ovtool::useBusOption(argc, argv))
        return rc;
    if (argc < 2)
        return ovtool::usageError("missing DEVICE_ROOT and COMMAND");
    if (argc < 3)
        return ovtool::usageError("missing COMMAND");
    const std::string command = argv[2];
    const int rest = argc - 3;
    char** args = argv + 3;
    const Command* known = nullptr;
    for (const Command& candidate : kCommands) {
        if (command == candidate.name)
            known = &candidate;
    }
    if (!known)
        return ovtool::usageError("unknown command: %s", command.c_str());
    if (rest < known->min)
        return ovtool::usageError("%s: missing %s", known->name, known->missing);
    if (known->max >= 0 && rest > known->max)
        return ovtool::usageError("%s: unexpected argument: %s", known->name, args[known->max]);
    // Only set writes the phone's state: the other commands need a phone that is there.
    if (int rc = ovtool::useDeviceRoot(argv[1], command == "set"))
        return rc;

    if (command == "show") {
        for (const std::string& name : allNames()) {
            std::string value;
            valueOf(name, &value);
            std::printf("%s %s\n", name.c_str(), value.c_str());
        }
        return 0;
    }
    if (command == "get") {
        std::string value;
        if (!valueOf(args[0], &value)) {
            ovtool::error("no such value: %s (see 'show')", args[0]);
            return ovtool::EXIT_USAGE;
        }
        std::printf("%s\n", value.c_str());
        return 0;
    }
    if (command == "set")
        return set(args[0], args[1]);
    if (command == "master-clear")
        return messageResult("master-clear", ovplatform::sendMasterClear());
    if (command == "master-reset")
        return messageResult("master-reset", ovplatform::sendMasterReset());
    if (command == "time-changed")
        return timeChanged(rest, args);
    if (command == "push")
        return push(rest, args);
    long policy = 0;
    if (!ovtool::parseNumber(args[0], INT_MIN, INT_MAX, &policy))
        return ovtool::usageError("shutdown-policy: not a 32-bit integer: %s", args[0]);
    return messageResult("shutdown-policy", ovplatform::sendKillingPolicy(int(policy)));
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
