// ovdemo run as a user runs it: help, usage errors, and where the library's diagnostics go.
#include "support/Files.h"
#include "support/TempDir.h"
#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

const char* const OVDEMO = OVTOOL_OVDEMO;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(OvDemo, HelpIsHelpNotADeviceRoot) {
    ovtest::TempDir cwd;
    ovtest::ToolOptions inCwd;
    inCwd.workDir = cwd.path();
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--help"}, {"-h"}, {"-v", "--help"}}) {
        ovtest::ToolResult help = ovtest::runTool(OVDEMO, args, inCwd);
        EXPECT_EQ(0, help.exitCode) << args.back();
        EXPECT_TRUE(contains(help.out, "usage: ovdemo [-v] [--bus WHERE] DEVICE_ROOT")) << help.out;
        EXPECT_FALSE(contains(help.out, "device root:")) << help.out;
    }
    // Nothing was written where the demo would have put its device root.
    EXPECT_TRUE(std::filesystem::is_empty(cwd.path()));
}

TEST(OvDemo, AnUnwritableLogOrStandardOutputExits74) {
    ovtest::TempDir dir;
    std::filesystem::create_directories(dir.file("ovdemo.log"));
    ovtest::ToolResult noLog = ovtest::runTool(OVDEMO, {dir.path()});
    EXPECT_EQ(74, noLog.exitCode);
    EXPECT_EQ("ovdemo: cannot write the log file " + dir.path() + "/ovdemo.log: Is a directory\n",
              noLog.err);

    ovtest::ToolOptions closed;
    closed.closedStdout = true;
    ovtest::ToolResult gone = ovtest::runTool(OVDEMO, {dir.file("root")}, closed);
    EXPECT_EQ(74, gone.exitCode) << "signal " << gone.signal;
    EXPECT_NE(std::string::npos, gone.err.find("cannot write standard output")) << gone.err;

    ovtest::ToolOptions full;
    full.stdoutFile = "/dev/full";
    ovtest::ToolResult help = ovtest::runTool(OVDEMO, {"--help"}, full);
    EXPECT_EQ(74, help.exitCode);
    EXPECT_EQ("ovdemo: cannot write standard output: No space left on device\n", help.err);
}

// Each run waits for the demo's timer, about five seconds. The phone is left open first, as
// an earlier run or ovphone leaves it: the demo puts it in the state it needs.
TEST(OvDemoSlow, DiagnosticsGoToTheLogUnlessVerbose) {
    ovtest::TempDir root;
    ASSERT_EQ(0, ovtest::runTool(OVTOOL_OVPHONE, {root.path(), "set", "flip", "open"}).exitCode);
    ovtest::ToolResult quiet = ovtest::runTool(OVDEMO, {root.path()});
    EXPECT_EQ(0, quiet.exitCode) << quiet.out;
    EXPECT_EQ("", quiet.err);
    EXPECT_TRUE(contains(quiet.out, "library diagnostics: " + root.path() + "/ovdemo.log"));
    EXPECT_TRUE(contains(quiet.out, "every step went as expected")) << quiet.out;
    EXPECT_TRUE(ovtest::hasDiagnostics(ovtest::readFile(root.file("ovdemo.log"))));

    ovtest::TempDir verboseRoot;
    ovtest::ToolResult verbose = ovtest::runTool(OVDEMO, {"-v", verboseRoot.path()});
    EXPECT_EQ(0, verbose.exitCode) << verbose.out;
    EXPECT_TRUE(ovtest::hasDiagnostics(verbose.err));
    EXPECT_TRUE(contains(verbose.out, "library diagnostics: standard error"));
    EXPECT_FALSE(ovtest::fileExists(verboseRoot.file("ovdemo.log")));
}
