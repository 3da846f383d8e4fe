// ovevents: watches events as a bus monitor does, and publishes one from the command line.
// Listening goes through the library's event facade, so the platform topics arrive as the
// library's handlers see them (phone changes from the system channel and the phone client,
// pushes renamed to the internal push topic).
#include "ToolArgs.h"
#include "ToolBus.h"
#include "ToolSupport.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventHandler.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"
#include "settings/NR_Setting.h"
#include "utility/NR_Constants.h"

#include "ES_EventPublisher.h"
#include "OVPlatform.h"

#include <QCoreApplication>
#include <QTimer>
#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

typedef OV_WBEventStatusAdapter Adapter;

const int EXIT_NOBODY = 1; // a published event that no process listens to

void usage(FILE* out) {
    std::fprintf(
        out,
        "usage: ovevents [-v] [--bus WHERE] listen [--json] [--count N] [TOPIC ...]\n"
        "       ovevents [-v] [--bus WHERE] publish TOPIC [--value N] [NAME=VALUE ...]\n"
        "\n"
        "listen   prints each event of the TOPICs (every topic of the library when none is\n"
        "         given) as it arrives, one line each: the topic, value=N, then NAME=VALUE\n"
        "         for each property. Spaces, '=', '\\' and bytes that are not printable\n"
        "         ASCII are written as \\xNN. --json prints one JSON object per line instead\n"
        "         (bytes above 127 as \\u00NN). --count N stops after N events. It runs until\n"
        "         interrupted, and ends with status 69 when the bus is lost.\n"
        "publish  publishes one event with its value (0 unless given) and properties. The\n"
        "         phone's own topics (flip, battery, master clear, ...) travel as phone\n"
        "         messages or on the system channel, not on the event bus: ovphone sends\n"
        "         them, and publish names its command.\n"
        "\n"
        "exit status: 0 done, 1 no process listens to TOPIC or TOPIC is not carried by\n"
        "the event bus, 64 usage error, 69 the bus cannot be reached or was lost, 74\n"
        "standard output cannot be written.\n"
        "\n%s",
        ovtool::BUS_USAGE);
}

// ---- printing ---------------------------------------------------------------------------

std::string plain(const std::string& text) {
    static const char hex[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : text) {
        if (c > ' ' && c < 127 && c != '=' && c != '\\') {
            out += char(c);
        } else {
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

// A JSON string; bytes are read as ISO 8859-1, as the library widens them.
std::string json(const std::string& text) {
    static const char hex[] = "0123456789abcdef";
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c >= ' ' && c < 127) {
            out += char(c);
        } else {
            out += "\\u00";
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out + "\"";
}

std::string describe(const OV_Event& event, bool asJson) {
    std::string line;
    if (asJson) {
        line = "{\"topic\":" + json(event.mEventType) +
               ",\"value\":" + std::to_string(event.mValue) + ",\"properties\":{";
        bool first = true;
        if (event.mPropMap != nullptr) {
            for (const auto& entry : *event.mPropMap) {
                line += (first ? "" : ",") + json(entry.first) + ":" + json(entry.second);
                first = false;
            }
        }
        return line + "}}";
    }
    line = plain(event.mEventType) + " value=" + std::to_string(event.mValue);
    if (event.mPropMap != nullptr) {
        for (const auto& entry : *event.mPropMap)
            line += " " + plain(entry.first) + "=" + plain(entry.second);
    }
    return line;
}

// What the handlers share: the output, the count and the limit. Handlers run on the bus's
// delivery thread and on the Qt event loop's, so all of it is under the lock.
struct Output {
    std::mutex mutex;
    bool json = false;
    long limit = 0; // 0: no limit
    long printed = 0;
    bool failed = false;
    bool stopped = false; // set once listening ends
};

class PrintingHandler : public OV_EventHandler {
public:
    // Events come on the bus's thread: none reaches a half-built or half-destroyed handler.
    PrintingHandler(const std::string& topic, Output& output)
        : OV_EventHandler(topic, DeliverLater()), mOutput(output) {
        startDelivery();
    }
    ~PrintingHandler() override { endRegistration(); }

    void handleEvent(OV_Event& event) override {
        std::string line = describe(event, mOutput.json) + "\n";
        std::lock_guard<std::mutex> lock(mOutput.mutex);
        if (mOutput.stopped || (mOutput.limit && mOutput.printed >= mOutput.limit))
            return;
        // Line by line, so that a pipe sees each event as it comes.
        if (std::fputs(line.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
            mOutput.failed = true;
        if (++mOutput.printed == mOutput.limit || mOutput.failed)
            QMetaObject::invokeMethod(QCoreApplication::instance(), "quit", Qt::QueuedConnection);
    }

private:
    Output& mOutput;
};

std::vector<std::string> libraryTopics() {
    return {
        NR_Constants::EVENT_INITIATE_MANUAL_REFRESH,
        NR_Constants::EVENT_ABORT_MANUAL_REFRESH,
        NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_STATUS,
        NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_COMPLETED,
        NR_Constants::EVENT_NOTIFY_STORAGE_STATUS,
        NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_STARTED,
        NR_Constants::EVENT_NOTIFY_NETWORK_AVAILABLE,
        NR_Constants::EVENT_NOTIFY_NETWORK_ERROR,
        NR_Constants::EVENT_NOTIFY_STORAGE_ERROR,
        NR_Constants::EVENT_NOTIFY_NETWORK_ACTIVITY_STATUS,
        NR_Constants::EVENT_CONTAINER_ACTIVATE_STATUS,
        NR_Constants::EVENT_CONTAINER_DEACTIVATE_STATUS,
        NR_Constants::EVENT_NOTIFY_QUEUE_IN_PROGRESS_ERROR,
        NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_CANCELLED,
        NR_Constants::EVENT_NAVIGATE,
        NR_Constants::EVENT_LAUNCH_DETAIL_VIEW,
        NR_Constants::EVENT_ENDKEY_ON_DETAIL_VIEW,
        NR_Constants::EVENT_EXCERPT_LOAD,
        NR_Constants::EVENT_EXCERPT_STATUS,
        NR_Constants::EVENT_EXCERPT_SHUTDOWN,
        Adapter::EVENT_MASTER_CLEAR,
        Adapter::EVENT_MASTER_RESET,
        Adapter::EVENT_SMS_PUSH,
        Adapter::EVENT_BACKLIGHT_STATUS_CHANGED,
        Adapter::EVENT_USER_ACTIVITY_STATUS_CHANGED,
        Adapter::EVENT_DATA_NW_STATUS_CHANGED,
        Adapter::EVENT_ROAMING_STATUS_CHANGED,
        Adapter::EVENT_LOW_BATTERY_STATUS_CHANGED,
        Adapter::EVENT_FLIP_STATUS_CHANGED,
        Adapter::EVENT_SLIDER_STATUS_CHANGED,
        Adapter::EVENT_CHARGER_STATUS_CHANGED,
        Adapter::EVENT_SYSTEM_TIME_CHANGED,
        OrvelSetting::SETTING_CHANGED_TOPIC,
        Adapter::EVENT_SYSTEM_SHUTDOWN,
    };
}

volatile std::sig_atomic_t gStop = 0;

void onStopSignal(int) {
    gStop = 1;
}

int listen(int argc, char** argv) {
    Output output;
    int at = 0;
    for (; at < argc && argv[at][0] == '-'; ++at) {
        if (std::strcmp(argv[at], "--json") == 0) {
            output.json = true;
        } else if (std::strcmp(argv[at], "--count") == 0) {
            if (at + 1 >= argc)
                return ovtool::usageError("listen: --count: missing N");
            if (!ovtool::parseNumber(argv[at + 1], 1, LONG_MAX, &output.limit))
                return ovtool::usageError("listen: --count: not a number from 1: %s", argv[at + 1]);
            ++at;
        } else {
            return ovtool::usageError("listen: unknown option: %s", argv[at]);
        }
    }
    // Handlers keep a reference to their topic: the texts live in a deque, which never moves
    // them, for as long as the handlers. One handler per topic, as the facade keeps a topic's
    // handlers registered until the last of them leaves.
    std::deque<std::string> topics;
    for (; at < argc; ++at) {
        if (std::find(topics.begin(), topics.end(), argv[at]) == topics.end())
            topics.push_back(argv[at]);
    }
    if (topics.empty()) {
        for (const std::string& topic : libraryTopics())
            topics.push_back(topic);
    }
    if (!QCoreApplication::instance()) {
        static int qtArgc = 1;
        static char name[] = "ovevents";
        static char* qtArgv[] = {name, nullptr};
        new QCoreApplication(qtArgc, qtArgv); // system-channel events need its event loop
    }
    std::vector<std::unique_ptr<PrintingHandler>> handlers;
    for (const std::string& topic : topics)
        handlers.emplace_back(new PrintingHandler(topic, output));
    if (!ovplatform::busConnected()) {
        ovtool::error("the bus was lost while subscribing");
        return ovtool::EXIT_UNAVAILABLE;
    }
    std::fprintf(ovtool::err(), "ovevents: listening to %zu topic%s on %s\n", topics.size(),
                 topics.size() == 1 ? "" : "s", ovplatform::busName().c_str());
    std::fflush(ovtool::err());

    std::signal(SIGINT, onStopSignal);
    std::signal(SIGTERM, onStopSignal);
    bool lost = false;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&lost] {
        lost = !ovplatform::busConnected();
        if (gStop || lost)
            QCoreApplication::quit();
    });
    watch.start(100);
    QCoreApplication::exec();

    std::lock_guard<std::mutex> lock(output.mutex);
    output.stopped = true; // deliveries still under way print nothing more
    if (lost) {
        ovtool::error("the bus %s was lost", ovplatform::busName().c_str());
        return ovtool::EXIT_UNAVAILABLE;
    }
    return output.failed ? ovtool::EXIT_IOERR : 0;
}

// The ovphone command that sends TOPIC, for the topics that travel as phone messages or on the
// system channel; null for the others.
const char* phoneCommandFor(const std::string& topic) {
    static const std::pair<const std::string*, const char*> kSentByThePhone[] = {
        {&Adapter::EVENT_DATA_NW_STATUS_CHANGED, "set gprs on|off"},
        {&Adapter::EVENT_ROAMING_STATUS_CHANGED, "set roaming on|off"},
        {&Adapter::EVENT_LOW_BATTERY_STATUS_CHANGED, "set battery low|ok"},
        {&Adapter::EVENT_CHARGER_STATUS_CHANGED, "set charger attached|detached"},
        {&Adapter::EVENT_BACKLIGHT_STATUS_CHANGED, "set backlight BRIGHTNESS"},
        {&Adapter::EVENT_USER_ACTIVITY_STATUS_CHANGED, "set backlight BRIGHTNESS"},
        {&Adapter::EVENT_FLIP_STATUS_CHANGED, "set flip open|closed"},
        {&Adapter::EVENT_SLIDER_STATUS_CHANGED, "set slider open|closed"},
        {&Adapter::EVENT_SYSTEM_TIME_CHANGED, "time-changed PREVIOUS NEW"},
        {&Adapter::EVENT_MASTER_CLEAR, "master-clear"},
        {&Adapter::EVENT_MASTER_RESET, "master-reset"},
        {&Adapter::EVENT_SYSTEM_SHUTDOWN, "shutdown-policy 1"},
        {&Adapter::EVENT_SMS_PUSH, "push [NAME=VALUE ...]"},
    };
    for (const auto& entry : kSentByThePhone) {
        if (topic == *entry.first)
            return entry.second;
    }
    return nullptr;
}

int publish(int argc, char** argv) {
    if (argc < 1)
        return ovtool::usageError("publish: missing TOPIC");
    if (!*argv[0])
        return ovtool::usageError("publish: the TOPIC is empty");
    if (const char* command = phoneCommandFor(argv[0])) {
        ovtool::error("%s travels as a phone message or on the system channel, not on the event "
                      "bus; send it with: ovphone DEVICE_ROOT %s",
                      argv[0], command);
        return EXIT_NOBODY;
    }
    OV_Event event(argv[0]);
    int at = 1;
    long value = 0;
    if (at < argc && std::strcmp(argv[at], "--value") == 0) {
        if (at + 1 >= argc)
            return ovtool::usageError("publish: --value: missing N");
        if (!ovtool::parseNumber(argv[at + 1], INT32_MIN, INT32_MAX, &value))
            return ovtool::usageError("publish: --value: not a 32-bit integer: %s", argv[at + 1]);
        at += 2;
    }
    event.mValue = int32_t(value);
    for (; at < argc; ++at) {
        std::string name, value;
        if (!ovtool::parseProperty(argv[at], &name, &value))
            return ovtool::usageError("publish: not NAME=VALUE: \"%s\"", argv[at]);
        event.setProperty(name, value);
    }
    // Straight onto the bus in the library's wire form, to learn what became of it.
    ES_Event platformEvent;
    Adapter::toPlatformEvent(event, &platformEvent);
    int status = ES_EventPublisher::publish(platformEvent);
    if (status == ES_OK)
        return 0;
    if (status == ES_ERR_NO_SUBSCRIBER) {
        ovtool::error("nobody listens to %s%s", argv[0], ovtool::busHint());
        return EXIT_NOBODY;
    }
    ovtool::error("%s: not published (bus status %d)", argv[0], status);
    return ovtool::EXIT_UNAVAILABLE;
}

int run(int argc, char** argv) {
    if (int rc = ovtool::useBusOption(argc, argv))
        return rc;
    if (argc >= 2 && std::strcmp(argv[1], "listen") == 0)
        return listen(argc - 2, argv + 2);
    if (argc >= 2 && std::strcmp(argv[1], "publish") == 0)
        return publish(argc - 2, argv + 2);
    if (argc < 2)
        return ovtool::usageError("missing COMMAND (listen or publish)");
    return ovtool::usageError("unknown command: %s", argv[1]);
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
