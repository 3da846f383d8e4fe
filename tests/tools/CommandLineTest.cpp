// What every tool shares on its command line: help on standard output, a usage error told in one
// line with the way to the help, one answer for a device root that is no folder or is missing,
// and a failed write on standard output.
#include "support/Files.h"
#include "support/TempDir.h"
#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

struct Tool {
    const char* name;
    const char* path;
    bool onBus; // takes --bus
};

const Tool kTools[] = {
    {"ovsettings", OVTOOL_OVSETTINGS, true},  {"ovphone", OVTOOL_OVPHONE, true},
    {"ovcache", OVTOOL_OVCACHE, false},       {"ovdemo", OVTOOL_OVDEMO, true},
    {"ovevents", OVTOOL_OVEVENTS, true},      {"dcpack", OVTOOL_DCPACK, false},
    {"ovtemplate", OVTOOL_OVTEMPLATE, false},
};

const char* pathOf(const std::string& name) {
    for (const Tool& tool : kTools) {
        if (name == tool.name)
            return tool.path;
    }
    return nullptr;
}

// Help is help, not a device root: nothing is written in the working directory.
TEST(CommandLine, HelpListsTheExitStatusesOnStandardOutput) {
    ovtest::TempDir cwd;
    ovtest::ToolOptions inCwd;
    inCwd.workDir = cwd.path();
    for (const Tool& tool : kTools) {
        for (const std::vector<std::string>& args :
             {std::vector<std::string>{"--help"}, {"-h"}, {"-v", "--help"}}) {
            SCOPED_TRACE(std::string(tool.name) + " " + args.back());
            ovtest::ToolResult help = ovtest::runTool(tool.path, args, inCwd);
            EXPECT_EQ(0, help.exitCode);
            EXPECT_EQ(0u, help.out.find(std::string("usage: ") + tool.name)) << help.out;
            EXPECT_NE(std::string::npos, help.out.find("exit status"));
            EXPECT_EQ(tool.onBus, help.out.find("--bus WHERE") != std::string::npos);
            EXPECT_EQ(std::string::npos, help.out.find("device root:"));
            if (args.size() == 1) {
                EXPECT_EQ("", help.err);
            }
        }
        ovtest::ToolOptions full = inCwd;
        full.stdoutFile = "/dev/full";
        ovtest::ToolResult toFull = ovtest::runTool(tool.path, {"--help"}, full);
        EXPECT_EQ(74, toFull.exitCode) << tool.name;
        EXPECT_EQ(std::string(tool.name) +
                      ": cannot write standard output: No space left on device\n",
                  toFull.err);
    }
    EXPECT_TRUE(std::filesystem::is_empty(cwd.path()));
}

// The reason in one line, then the way to the help; nothing on standard output. "ROOT" stands
// for an existing device root.
TEST(CommandLine, AUsageErrorSaysWhatWasWrongInOneLine) {
    ovtest::TempDir root;
    struct Case {
        const char* tool;
        std::vector<std::string> args;
        const char* reason;
    };
    const Case cases[] = {
        {"ovsettings", {}, "missing DEVICE_ROOT and COMMAND"},
        {"ovsettings", {"ROOT", "bogus"}, "unknown command: bogus"},
        {"ovsettings", {"ROOT", "get", "9"}, "get: missing KEY"},
        {"ovsettings", {"ROOT", "set", "9", "K"}, "set: missing VALUE"},
        {"ovsettings",
         {"ROOT", "get", "9", "K", "--float"},
         "get: unexpected argument: --float (--int or --bool)"},
        {"ovsettings", {"ROOT", "cat", "--all"}, "cat: unexpected argument: --all"},
        {"ovphone", {"ROOT"}, "missing COMMAND"},
        {"ovphone", {"ROOT", "set", "flip"}, "set: missing NAME VALUE"},
        {"ovphone", {"ROOT", "show", "x"}, "show: unexpected argument: x"},
        {"ovphone", {"ROOT", "push", "--bogus"}, "push: unknown option: --bogus"},
        {"ovcache", {"ROOT", "frobnicate"}, "unknown command: frobnicate"},
        {"ovcache", {"ROOT", "show"}, "show: missing ID"},
        {"ovcache", {"--cache-dir"}, "--cache-dir: missing DIR"},
        {"ovdemo", {}, "missing DEVICE_ROOT"},
        {"ovdemo", {"ROOT", "extra"}, "unexpected argument: extra"},
        {"ovevents", {"listen", "--count"}, "listen: --count: missing N"},
        {"ovevents", {"publish"}, "publish: missing TOPIC"},
        {"ovevents",
         {"publish", "/t", "--value", "x"},
         "publish: --value: not a 32-bit integer: x"},
        {"dcpack", {"create", "only-one"}, "create: missing DIR"},
        {"dcpack", {"list"}, "list: missing INDEX"},
        {"ovtemplate", {"check", "--tree"}, "check: missing FILE"},
        {"ovtemplate", {"lint"}, "unknown command: lint"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = c.args;
        for (std::string& arg : args) {
            if (arg == "ROOT")
                arg = root.path();
        }
        ovtest::ToolResult run = ovtest::runTool(pathOf(c.tool), args);
        EXPECT_EQ(64, run.exitCode) << c.tool << ": " << c.reason;
        EXPECT_EQ(std::string(c.tool) + ": " + c.reason + "\nTry '" + c.tool +
                      " --help' for more information.\n",
                  run.err);
        EXPECT_EQ("", run.out) << c.tool;
    }
}

// A plain file is no device root for any command; a missing root is made only by the commands
// that create things, and a reading command on it exits 66 without making it.
TEST(CommandLine, ADeviceRootIsAFolderAndOnlyCreatingCommandsMakeIt) {
    ovtest::TempDir dir;
    const std::string file = dir.file("plain");
    ASSERT_TRUE(ovtest::writeFile(file, "not a folder"));
    const std::string missing = dir.file("missing");
    struct Case {
        const char* tool;
        std::vector<std::string> args; // after the root
        bool creates;
    };
    const Case cases[] = {
        {"ovsettings", {"init"}, true},
        {"ovsettings", {"set", "9", "K", "v"}, true},
        {"ovsettings", {"get", "9", "K"}, false},
        {"ovsettings", {"list", "9"}, false},
        {"ovsettings", {"cat"}, false},
        {"ovphone", {"show"}, false},
        {"ovphone", {"get", "flip"}, false},
        {"ovphone", {"set", "flip", "open"}, true},
        {"ovcache", {"list"}, false},
        {"ovcache", {"sync"}, false},
        {"ovdemo", {}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.tool) + " " + (c.args.empty() ? "" : c.args[0]));
        std::vector<std::string> args = c.args;
        args.insert(args.begin(), file);
        ovtest::ToolResult onFile = ovtest::runTool(pathOf(c.tool), args);
        EXPECT_EQ(66, onFile.exitCode);
        EXPECT_EQ(std::string(c.tool) + ": " + file +
                      ": not a directory; a device root is a folder\n",
                  onFile.err);
        EXPECT_EQ("", onFile.out);
        if (c.args.empty())
            continue; // the demo makes its root
        args[0] = missing;
        ovtest::ToolResult onMissing = ovtest::runTool(pathOf(c.tool), args);
        EXPECT_EQ(c.creates, std::filesystem::is_directory(missing));
        EXPECT_EQ(!c.creates, onMissing.exitCode == 66) << onMissing.err;
        EXPECT_EQ(!c.creates,
                  onMissing.err.find(missing + ": no such device root") != std::string::npos)
            << onMissing.err;
        std::filesystem::remove_all(missing);
    }
}

} // namespace
