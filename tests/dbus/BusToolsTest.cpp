// The bus tools against a private dbus-daemon: what ovevents prints for what ovphone,
// ovsettings and ovevents itself send, and the tools' exit statuses.
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

namespace {

const std::string kFlipTopic = "/kestrix/orvel/platform/flip_status_changed";
const std::string kPushTopic = "/kestrix/orvel/platform/sms_push";
const std::string kSettingTopic = "/kestrix/orvel/platform/orvel_setting_changed";

struct Result {
    int status; // the exit status, or -1 when the tool did not end normally in time
    std::string output;
};

class BusToolsTest : public ::testing::Test {
protected:
    void SetUp() override {
#ifndef OVTEST_TOOLS_DIR
        GTEST_SKIP() << "the tools are not built (OVBASE_TOOLS is off)";
#else
        std::string reason;
        ASSERT_TRUE(mDaemon.start(&reason)) << reason;
#endif
    }

    static std::string tool(const std::string& name) {
#ifdef OVTEST_TOOLS_DIR
        return std::string(OVTEST_TOOLS_DIR) + "/" + name;
#else
        return name;
#endif
    }

    // Starts NAME with ARGS, its standard error joined to its output.
    void start(ovtest::ChildProcess& process, const std::string& name,
               const std::vector<std::string>& args) {
        std::vector<std::string> argv{tool(name)};
        argv.insert(argv.end(), args.begin(), args.end());
        std::string reason;
        ASSERT_TRUE(process.start(argv, {}, ovtest::ChildProcess::TO_STDOUT, &reason)) << reason;
    }

    // Runs NAME with ARGS to its end.
    Result run(const std::string& name, const std::vector<std::string>& args) {
        ovtest::ChildProcess process;
        start(process, name, args);
        Result result{-1, ""};
        std::string line;
        while (process.readLine(&line, 20000))
            result.output += line + "\n";
        int status = process.wait(20000);
        if (status != -1 && WIFEXITED(status))
            result.status = WEXITSTATUS(status);
        return result;
    }

    // Starts a monitor of TOPICS and waits until it listens.
    void monitor(ovtest::ChildProcess& process, std::vector<std::string> args) {
        args.insert(args.begin(), {"--bus", mDaemon.address(), "listen"});
        start(process, "ovevents", args);
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
    EXPECT_EQ(run("ovphone", {"--bus", bus, root, "set", "flip", "open"}).status, 0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"" + kFlipTopic + "\",\"value\":1,\"properties\":{}}");

    EXPECT_EQ(run("ovphone", {"--bus", bus, root, "push", "body=hi"}).status, 0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"" + kPushTopic +
                        "\",\"value\":0,\"properties\":{\"Content-Type\":\"application/"
                        "vnd.kestrix.orvel+xml\",\"body\":\"hi\"}}");

    EXPECT_EQ(run("ovevents", {"--bus", bus, "publish", "/test/tools/odd", "--value", "-3",
                               "a b=x=y\\\"", "k=caf\xe9"})
                  .status,
              0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"/test/tools/odd\",\"value\":-3,\"properties\":{\"a b\":"
                    "\"x=y\\\\\\\"\",\"k\":\"caf\\u00e9\"}}");
    ASSERT_TRUE(plain.readLine(&line));
    EXPECT_EQ(line, "/test/tools/odd value=-3 a\\x20b=x\\x3dy\\x5c\" k=caf\\xe9");

    EXPECT_EQ(run("ovsettings", {"--bus", bus, root, "set", "OVCore.UI", "Foo", "9"}).status, 0);
    ASSERT_TRUE(json.readLine(&line));
    EXPECT_EQ(line, "{\"topic\":\"" + kSettingTopic +
                        "\",\"value\":0,\"properties\":{\"OVCore.UI.Foo\":\"9\"}}");

    // Both stop by themselves once they have their count.
    int status = json.wait();
    EXPECT_TRUE(status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0);
    status = plain.wait();
    EXPECT_TRUE(status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(BusToolsTest, PhoneValuesSetByOneRunAreSeenByTheNext) {
    const std::string& root = mRoot.path();
    EXPECT_EQ(run("ovphone", {root, "set", "imsi", "310410123456789"}).status, 0);
    EXPECT_EQ(run("ovphone", {root, "set", "mnc-length", "3"}).status, 0);
    EXPECT_EQ(run("ovphone", {root, "set", "languages", "en,fr"}).status, 0);
    EXPECT_EQ(run("ovphone", {root, "set", "backlight", "0"}).status, 0);
    EXPECT_EQ(run("ovphone", {root, "get", "home-plmn"}).output, "310410\n");
    EXPECT_EQ(run("ovphone", {root, "get", "imsi"}).output, "310410123456789\n");
    std::string shown = run("ovphone", {root, "show"}).output;
    EXPECT_NE(shown.find("\nlanguages en,fr\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\nbacklight 0\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("flip closed\n"), std::string::npos) << shown;
}

TEST_F(BusToolsTest, ExitStatusesTellWhatHappened) {
    const std::string& bus = mDaemon.address();
    const std::string& root = mRoot.path();
    const std::string nowhere = "unix:path=" + mRoot.file("no-daemon");

    Result unreachable = run("ovevents", {"--bus", nowhere, "listen"});
    EXPECT_EQ(unreachable.status, 69);
    EXPECT_NE(unreachable.output.find(nowhere), std::string::npos) << unreachable.output;
    EXPECT_EQ(run("ovsettings", {"--bus", nowhere, root, "groups"}).status, 69);
    EXPECT_EQ(run("ovphone", {"--bus"}).status, 64);
    EXPECT_EQ(run("ovphone", {"--bus", bus, root, "set", "flip", "sideways"}).status, 64);
    EXPECT_EQ(run("ovphone", {root, "set", "home-plmn", "12345"}).status, 64);
    EXPECT_EQ(run("ovevents", {"--bus", bus, "publish", "/test/tools/nobody", "novalue"}).status,
              64);

    // Sent, but nobody got it.
    Result nobody = run("ovevents", {"--bus", bus, "publish", "/test/tools/nobody"});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_NE(nobody.output.find("nobody listens to /test/tools/nobody"), std::string::npos);
    EXPECT_EQ(run("ovphone", {"--bus", bus, root, "master-clear"}).status, 1);
    Result alone = run("ovphone", {root, "push"});
    EXPECT_EQ(alone.status, 1);
    EXPECT_NE(alone.output.find("--bus"), std::string::npos) << "say how to reach others";

    Result help = run("ovevents", {"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.output.compare(0, 15, "usage: ovevents"), 0) << help.output;
    EXPECT_EQ(run("ovphone", {"--help"}).status, 0);
}

TEST_F(BusToolsTest, TheMonitorEndsWhenTheBusGoes) {
    ovtest::ChildProcess watcher;
    monitor(watcher, {"/test/tools/any"});
    ASSERT_TRUE(mDaemon.kill());
    std::string line;
    ASSERT_TRUE(watcher.waitForLine("ovevents: the bus", &line));
    EXPECT_NE(line.find("was lost"), std::string::npos) << line;
    int status = watcher.wait();
    EXPECT_TRUE(status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 69);
}

} // namespace
