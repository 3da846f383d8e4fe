// ovdemo: the road of a news item through the library, told step by step on a temporary
// device root. The library's own diagnostics go to a log file whose path is printed, or with
// -v to standard error.
#include "Demo.h"
#include "OVPlatform.h"
#include "ToolBus.h"
#include "ToolSupport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

void usage(FILE* out) {
    std::fprintf(out, "usage: ovdemo [-v] [--bus WHERE] DEVICE_ROOT\n"
                      "\n"
                      "Tells the road of a news item through the library on DEVICE_ROOT, a\n"
                      "directory that stands for the phone's file system (files are written\n"
                      "below it; it is made when missing). Each step first puts the simulated\n"
                      "phone in the state it needs, so the demo runs again on the same root.\n"
                      "The library's diagnostics go to DEVICE_ROOT/ovdemo.log; -v shows them on\n"
                      "standard error instead.\n"
                      "\n"
                      "exit status: 0 every step went as expected, 1 a step did not, 64 usage\n"
                      "error, 66 DEVICE_ROOT is not a directory, 74 the log file or standard\n"
                      "output cannot be written.\n");
    std::fprintf(out, "\n%s", ovtool::BUS_USAGE);
}

int run(int argc, char** argv) {
    if (int rc = ovtool::useBusOption(argc, argv))
        return rc;
    if (argc < 2)
        return ovtool::usageError("missing DEVICE_ROOT");
    if (argv[1][0] == '-')
        return ovtool::usageError("unknown option: %s", argv[1]);
    if (argc > 2)
        return ovtool::usageError("unexpected argument: %s", argv[2]);
    std::string root = argv[1];
    if (int rc = ovtool::useDeviceRoot(argv[1], true))
        return rc;
    std::printf("device root: %s\n", root.c_str());
    if (ovtool::verbose()) {
        std::printf("library diagnostics: standard error\n");
    } else {
        std::string logPath = root + "/ovdemo.log";
        if (!std::freopen(logPath.c_str(), "w", stderr)) {
            ovtool::error("cannot write the log file %s: %s", logPath.c_str(),
                          std::strerror(errno));
            return ovtool::EXIT_IOERR;
        }
        std::printf("library diagnostics: %s\n", logPath.c_str());
    }
    bool ok = demoAttrMap();
    ok = demoSettings(root) && ok;
    ok = demoTemplate() && ok;
    ok = demoCache() && ok;
    ok = demoEvents() && ok;
    ok = demoEngine() && ok;
    ok = demoTimer() && ok;
    ok = demoDefaultContent() && ok;
    std::printf("\n%s\n", ok ? "every step went as expected"
                             : "a step did not go as expected; see above and the log");
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
