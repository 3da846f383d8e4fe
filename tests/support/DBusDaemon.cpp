#include "support/DBusDaemon.h"

#include "support/Files.h"
#include "support/QtLoop.h"

#include "OVPlatform.h"

#include <csignal>
#include <memory>

namespace ovtest {

bool DBusDaemon::start(std::string* reason) {
    std::string config = mDir.file("bus.conf");
    // Anyone may send, receive and own any name: the tests' processes are all one user's.
    bool written = writeFile(config, "<busconfig>\n"
                                     "  <listen>unix:dir=" +
                                         mDir.path() +
                                         "</listen>\n"
                                         "  <auth>EXTERNAL</auth>\n"
                                         "  <policy context=\"default\">\n"
                                         "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                                         "    <allow eavesdrop=\"true\"/>\n"
                                         "    <allow own=\"*\"/>\n"
                                         "  </policy>\n"
                                         "</busconfig>\n");
    if (!written) {
        *reason = "cannot write " + config;
        return false;
    }
    if (!mProcess.start({"dbus-daemon", "--config-file=" + config, "--nofork", "--nopidfile",
                         "--print-address=1"},
                        {}, ChildProcess::TO_STDOUT, reason))
        return false;
    // Its complaints (such as a file limit it may not raise) come first on the same pipe.
    if (!mProcess.waitForLine("unix:", &mAddress, 20000)) {
        *reason = "dbus-daemon printed no address";
        for (const std::string& line : mProcess.skipped())
            *reason += "; it said: " + line;
        return false;
    }
    return true;
}

bool DBusDaemon::kill() {
    if (!mProcess.kill(SIGKILL))
        return false;
    return mProcess.wait() != -1;
}

DBusDaemon* DBusDaemon::forThisProcess(std::string* reason) {
    // Made before the connection, so freed (the daemon stopped, its directory removed) only
    // after the bus has shut down at exit.
    static std::unique_ptr<DBusDaemon> daemon;
    static std::string failure;
    if (!daemon && failure.empty()) {
        ensureQtApp();
        auto started = std::make_unique<DBusDaemon>();
        if (!started->start(&failure))
            failure = "cannot start a private dbus-daemon: " + failure;
        else if (!ovplatform::useBusAddress(started->address(), &failure))
            failure = "cannot connect to " + started->address() + ": " + failure;
        else
            daemon = std::move(started);
    }
    if (!daemon)
        *reason = failure;
    return daemon.get();
}

} // namespace ovtest
