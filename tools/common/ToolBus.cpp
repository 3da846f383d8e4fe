#include "ToolBus.h"

#include "OVPlatform.h"
#include "ToolSupport.h"

#include <QCoreApplication>
#include <cstring>
#include <string>

namespace ovtool {

const char* const BUS_USAGE =
    "--bus WHERE  carry events and phone messages over D-Bus, to every process on that bus:\n"
    "             WHERE is \"session\" or an address such as unix:path=/tmp/ovbus/socket.\n"
    "             Without it they stay inside this program. Exit status 69 when the bus\n"
    "             cannot be reached.\n";

namespace {

bool gOnBus = false;

} // namespace

int useBusOption(int& argc, char** argv) {
    std::string where;
    bool given = false;
    int at = 1;
    for (; at < argc && argv[at][0] == '-' && std::strcmp(argv[at], "--") != 0; ++at) {
        if (std::strcmp(argv[at], "--bus") == 0) {
            if (at + 1 >= argc) {
                error("--bus needs a value: \"session\" or a D-Bus address");
                return EXIT_USAGE;
            }
            where = argv[at + 1];
            given = true;
            break;
        }
        if (std::strncmp(argv[at], "--bus=", 6) == 0) {
            where = argv[at] + 6;
            given = true;
            break;
        }
    }
    if (!given)
        return 0;
    int taken = std::strcmp(argv[at], "--bus") == 0 ? 2 : 1;
    for (int i = at; i + taken <= argc; ++i)
        argv[i] = argv[i + taken];
    argc -= taken;
    if (where.empty()) {
        error("--bus needs a value: \"session\" or a D-Bus address");
        return EXIT_USAGE;
    }

    if (!QCoreApplication::instance()) {
        static int qtArgc = 1;
        static char* qtArgv[] = {argv[0], nullptr};
        new QCoreApplication(qtArgc, qtArgv); // kept until exit, as the bus needs it
    }
    std::string reason;
    bool ok = where == "session" ? ovplatform::useSessionBus(&reason)
                                 : ovplatform::useBusAddress(where, &reason);
    if (!ok) {
        error("cannot use the bus %s: %s", where.c_str(), reason.c_str());
        return EXIT_UNAVAILABLE;
    }
    gOnBus = true;
    return 0;
}

const char* busHint() {
    return gOnBus ? "" : " in this program (--bus reaches other processes)";
}

} // namespace ovtool
