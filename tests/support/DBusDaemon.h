// A private dbus-daemon for tests, never the user's own session bus: it listens on a socket in
// a temporary directory, with a configuration of its own, and is stopped when the object goes
// (and killed with the test process if that dies first). A machine without dbus-daemon makes
// start() fail with the reason, so that the test fails loudly instead of passing unseen.
#ifndef OVBASE_TESTS_SUPPORT_DBUSDAEMON_H
#define OVBASE_TESTS_SUPPORT_DBUSDAEMON_H

#include "support/ChildProcess.h"
#include "support/TempDir.h"

#include <string>

namespace ovtest {

class DBusDaemon {
public:
    // Starts the daemon; false, with the reason in *REASON, when it does not come up.
    bool start(std::string* reason);
    // The address clients connect to.
    const std::string& address() const { return mAddress; }
    // Kills the daemon as a crash would, and returns once it is gone.
    bool kill();

    // The daemon this test process is connected to: started and connected on first call
    // (creating the QCoreApplication), kept until exit. Null, with the reason in *REASON, when
    // either fails.
    static DBusDaemon* forThisProcess(std::string* reason);

private:
    TempDir mDir;
    ChildProcess mProcess;
    std::string mAddress;
};

} // namespace ovtest

#endif
