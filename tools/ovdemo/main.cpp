// ovdemo: the road of a news item through the library, told step by step on a temporary
// device root. The library's own diagnostics go to a log file whose path is printed.
#include "Demo.h"
#include "OVPlatform.h"
#include "ToolSupport.h"

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(ovtool::err(), "usage: ovdemo DEVICE_ROOT\n");
        return 2;
    }
    std::string root = argv[1];
    ovplatform::setDeviceRoot(root);
    std::string logPath = root + "/ovdemo.log";
    std::printf("device root: %s\nlibrary diagnostics: %s\n", root.c_str(), logPath.c_str());
    if (!std::freopen(logPath.c_str(), "w", stderr)) {
        std::printf("cannot open the log file\n");
        return 1;
    }
    bool ok = demoAttrMap();
    ok = demoSettings(root) && ok;
    ok = demoTemplate() && ok;
    ok = demoEvents() && ok;
    ok = demoTimer() && ok;
    ok = demoDefaultContent() && ok;
    std::printf("\n%s\n", ok ? "every step went as expected"
                             : "a step did not go as expected; see above and the log");
    return ok ? 0 : 1;
}
