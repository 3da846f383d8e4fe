// ovdemo run as a user runs it: output it cannot write, and where the library's diagnostics go.
#include "ToolCheck.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

const char* const OVDEMO = OVTOOL_OVDEMO;

using tooltest::contains;

} // namespace

TEST(OvDemo, AnUnwritableLogExits74) {
    ovtest::TempDir dir;
    std::filesystem::create_directories(dir.file("ovdemo.log"));
    ovtest::ToolResult noLog = ovtest::runTool(OVDEMO, {dir.path()});
    EXPECT_EQ(74, noLog.exitCode);
    EXPECT_EQ("ovdemo: cannot write the log file " + dir.path() + "/ovdemo.log: Is a directory\n",
              noLog.err);
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
