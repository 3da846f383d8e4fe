// The bus tools against a private dbus-daemon: what ovevents prints for what ovphone,
// ovsettings, ovevents itself and the standard D-Bus tools send, and the tools' exit statuses.
#include "ToolCheck.h"

#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/Files.h"
#include "support/TempDir.h"
#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string kFlipTopic = "/kestrix/orvel/platform/flip_status_changed";
const std::string kPushTopic = "/kestrix/orvel/platform/sms_push";
const std::string kSettingTopic = "/kestrix/orvel/platform/orvel_setting_changed";

const char* const OVEVENTS = OVTOOL_OVEVENTS;
const char* const OVPHONE = OVTOOL_OVPHONE;
const char* const OVSETTINGS = OVTOOL_OVSETTINGS;

using tooltest::contains;

bool exitedWith(int status, int code) {
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == code;
}

// Where PROGRAM is found on the PATH; "" when it is not.
std::string onPath(const std::string& program) {
    std::istringstream path(std::getenv("PATH") ? std::getenv("PATH") : "");
    for (std::string dir; std::getline(path, dir, ':');) {
        if (::access((dir + "/" + program).c_str(), X_OK) == 0)
            return dir + "/" + program;
    }
    return "";
}

// Reads PROCESS's lines until one holds PART; all of them, that one last, each ended by a line
// feed, in *LINES.
bool readUntil(ovtest::ChildProcess& process, const std::string& part, std::string* lines) {
    for (std::string line; process.readLine(&line);) {
        *lines += line + "\n";
        if (contains(line, part))
            return true;
    }
    return false;
}

class BusToolsTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string reason;
        ASSERT_TRUE(mDaemon.start(&reason)) << reason;
    }

    // Starts a monitor with ARGS after "listen", its standard error joined to its output, and
    // waits until it listens.
    void monitor(ovtest::ChildProcess& process, std::vector<std::string> args) {
        args.insert(args.begin(), {OVEVENTS, "--bus", mDaemon.address(), "listen"});
        std::string reason;
        ASSERT_TRUE(process.start(args, {}, ovtest::ChildProcess::TO_STDOUT, &reason)) << reason;
        ASSERT_TRUE(process.waitForLine("ovevents: listening to "));
    }

    ovtest::DBusDaemon mDaemon;
    ovtest::TempDir mRoot;
};

TEST_F(BusToolsTest, TheMonitorPrintsWhatOtherToolsSend) {
    ovtest::ChildProcess json, plain;
    monitor(json,
            {"--json", "--count", "4", kFlipTopic, kPushTopic, "/test/tools/odd", kSettingTopic});
    monitor(plain, {"--count", "1", "/test/tools/odd"});
    ASSERT_TRUE(ovtest::writeFile(
        mRoot.file("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg"), "[OVCore.UI]\n"));
    const std::string& bus = mDaemon.address();
    const std::string& root = mRoot.path();
    std::string line;

    // One tool at a time, each line read before the next tool runs: the monitor prints bus
    // events and phone signals from different threads.
    EXPECT_EQ(ovtest::runTool(OVPHONE, {"--bus", bus, root, "set", "flip", "open"}).exitCode, 0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"" + kFlipTopic + "\",\"value\":1,\"properties\":{}}");

    EXPECT_EQ(ovtest::runTool(OVPHONE, {"--bus", bus, root, "push", "body=hi"}).exitCode, 0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"" + kPushTopic +
                        "\",\"value\":0,\"properties\":{\"Content-Type\":\"application/"
                        "vnd.kestrix.orvel+xml\",\"body\":\"hi\"}}");

    EXPECT_EQ(ovtest::runTool(OVEVENTS, {"--bus", bus, "publish", "/test/tools/odd", "--value",
                                         "-3", "a b=x=y\\\"", "k=caf\xe9"})
                  .exitCode,
              0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"/test/tools/odd\",\"value\":-3,\"properties\":{\"a b\":"
                    "\"x=y\\\\\\\"\",\"k\":\"caf\\u00e9\"}}");
    ASSERT_TRUE(plain.readLine(&line));
    EXPECT_EQ(line, "/test/tools/odd value=-3 a\\x20b=x\\x3dy\\x5c\" k=caf\\xe9");

    EXPECT_EQ(
        ovtest::runTool(OVSETTINGS, {"--bus", bus, root, "set", "OVCore.UI", "Foo", "9"}).exitCode,
        0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"" + kSettingTopic +
                        "\",\"value\":0,\"properties\":{\"OVCore.UI.Foo\":\"9\"}}");

    // Both stop by themselves once they have their count.
    EXPECT_TRUE(exitedWith(json.wait(), 0));
    EXPECT_TRUE(exitedWith(plain.wait(), 0));
}

TEST_F(BusToolsTest, StandardToolsSendReadAndDescribeEvents) {
    const std::string dbusSend = onPath("dbus-send"), gdbus = onPath("gdbus");
    for (const char* program : {"dbus-send", "dbus-monitor", "gdbus"}) {
        if (onPath(program).empty())
            GTEST_SKIP() << program << " is not installed (scripts/bootstrap installs it)";
    }
    const std::string& bus = mDaemon.address();
    ovtest::ChildProcess listener, wire;
    monitor(listener, {"--count", "2", "/x/probe"});
    std::string reason;
    ASSERT_TRUE(wire.start(
        {"dbus-monitor", "--address", bus, "type='signal',interface='org.ovbase.Platform'"}, {},
        ovtest::ChildProcess::TO_STDOUT, &reason))
        << reason;
    std::string shown;
    ASSERT_TRUE(readUntil(wire, "member=NameLost", &shown)) << "dbus-monitor did not start";

    // The listening process describes the interface.
    ovtest::ToolResult described =
        ovtest::runTool(gdbus, {"introspect", "--address", bus, "--dest", "org.ovbase.Platform",
                                "--object-path", "/org/ovbase/Platform"});
    EXPECT_EQ(described.exitCode, 0) << described.err;
    for (const char* part :
         {"interface org.ovbase.Platform {", "Event(s topic,", "i value,", "a{sv} properties);",
          "Channel(s channel,", "s message,", "ay data);", "Phone(s signal,"})
        EXPECT_TRUE(contains(described.out, part)) << part << " in\n" << described.out;

    // An event from dbus-send, which writes properties as a{ss}.
    EXPECT_EQ(ovtest::runTool(dbusSend, {"--bus=" + bus, "--type=signal", "/org/ovbase/Platform",
                                         "org.ovbase.Platform.Event", "string:/x/probe", "int32:7",
                                         "dict:string:string:name,va"})
                  .exitCode,
              0);
    std::string line;
    ASSERT_TRUE(listener.waitForLine("/x/probe ", &line));
    EXPECT_EQ(line, "/x/probe value=7 name=va");

    // An event from the library, as the monitor shows it.
    EXPECT_EQ(ovtest::runTool(OVEVENTS, {"--bus", bus, "publish", "/x/probe", "--value", "8",
                                         "name=vb", "bin=\xff"})
                  .exitCode,
              0);
    ASSERT_TRUE(listener.waitForLine("/x/probe ", &line));
    EXPECT_EQ(line, "/x/probe value=8 bin=\\xff name=vb");
    EXPECT_TRUE(exitedWith(listener.wait(), 0));
    shown.clear();
    ASSERT_TRUE(readUntil(wire, "string \"vb\"", &shown));
    size_t at = shown.find("   string \"/x/probe\"\n   int32 8\n   array [\n");
    ASSERT_NE(at, std::string::npos) << shown;
    for (const char* part :
         {"string \"bin\"\n", "variant ", "array of bytes [\n", " ff\n", "string \"name\"\n"})
        EXPECT_NE(shown.find(part, at), std::string::npos) << part << " in\n" << shown;
}

TEST_F(BusToolsTest, PhoneValuesSetByOneRunAreSeenByTheNext) {
    tooltest::expectRuns(OVPHONE, {mRoot.path()},
                         {{{"set", "imsi", "310410123456789"}, 0, "", ""},
                          {{"set", "mnc-length", "3"}, 0, "", ""},
                          {{"set", "languages", "en,fr"}, 0, "", ""},
                          {{"set", "backlight", "0"}, 0, "", ""},
                          {{"get", "home-plmn"}, 0, "310410\n", ""},
                          {{"get", "imsi"}, 0, "310410123456789\n", ""}});
    auto phone = [this](std::vector<std::string> args) {
        args.insert(args.begin(), mRoot.path());
        return ovtest::runTool(OVPHONE, args);
    };
    ovtest::ToolResult shown = phone({"show"});
    EXPECT_TRUE(contains(shown.out, "\nlanguages en,fr\n")) << shown.out;
    EXPECT_TRUE(contains(shown.out, "\nbacklight 0\n")) << shown.out;
    EXPECT_EQ(shown.out.compare(0, 12, "flip closed\n"), 0) << shown.out;
    EXPECT_EQ("", shown.err);

    // Every value set accepts is shown; the state file keeps its owner and mode.
    EXPECT_EQ(phone({"set", "display.Custom", "7"}).exitCode, 0);
    EXPECT_TRUE(contains(phone({"show"}).out, "\ndisplay.Custom 7\n"));
    const std::string state = mRoot.file("/qbxlocal/simphone/phone.state");
    ASSERT_EQ(::chmod(state.c_str(), 0600), 0);
    bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(state.c_str(), 65534, 65534), 0);
    }
    EXPECT_EQ(phone({"set", "flip", "open"}).exitCode, 0);
    struct stat st;
    ASSERT_EQ(::stat(state.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    if (root) {
        EXPECT_EQ(st.st_uid, 65534u);
    }
}

TEST_F(BusToolsTest, ExitStatusesTellWhatHappened) {
    const std::string& bus = mDaemon.address();
    const std::string& root = mRoot.path();
    const std::string nowhere = "unix:path=" + mRoot.file("no-daemon");
    const struct {
        const char* tool;
        std::vector<std::string> args;
        int code;
        std::string err; // a part of standard error
    } runs[] = {
        // The reason comes from the D-Bus library.
        {OVEVENTS,
         {"--bus", nowhere, "listen"},
         69,
         "cannot use the bus " + nowhere + ": Failed to connect to socket "},
        {OVSETTINGS, {"--bus", nowhere, root, "groups"}, 69, ""},
        {OVPHONE, {"--bus"}, 64, ""},
        {OVPHONE, {"--bus", bus, root, "set", "flip", "sideways"}, 64, ""},
        {OVPHONE, {root, "set", "home-plmn", "12345"}, 64, ""},
        {OVEVENTS, {"--bus", bus, "publish", "/test/tools/nobody", "novalue"}, 64, ""},
        // A topic the phone sends itself is not published: the tool that sends it is named.
        {OVEVENTS,
         {"publish", kFlipTopic},
         1,
         "travels as a phone message or on the system channel, not on the event bus; send it "
         "with: ovphone DEVICE_ROOT set flip open|closed"},
        // Sent, but nobody got it; alone, the way to reach others is told.
        {OVEVENTS, {"--bus", bus, "publish", "/test/tools/nobody"}, 1, "nobody listens to "},
        {OVPHONE, {"--bus", bus, root, "master-clear"}, 1, ""},
        {OVPHONE, {root, "push"}, 1, "--bus"},
    };
    for (const auto& run : runs)
        EXPECT_TRUE(tooltest::exits(ovtest::runTool(run.tool, run.args), run.code, run.err));
}

TEST_F(BusToolsTest, TheMonitorEndsWhenTheBusGoes) {
    ovtest::ChildProcess watcher;
    monitor(watcher, {"/test/tools/any"});
    ASSERT_TRUE(mDaemon.kill());
    std::string line;
    ASSERT_TRUE(watcher.waitForLine("ovevents: the bus", &line));
    EXPECT_TRUE(contains(line, "was lost")) << line;
    EXPECT_TRUE(exitedWith(watcher.wait(), 69));
}

} // namespace
