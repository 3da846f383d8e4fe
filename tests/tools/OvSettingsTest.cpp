// ovsettings run as a user runs it, on a device root of its own: exit codes, messages, and what
// the settings files hold afterwards.
#include "ToolCheck.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

const char* const OVSETTINGS = OVTOOL_OVSETTINGS;

class OvSettings : public ::testing::Test {
protected:
    ovtest::ToolResult run(std::vector<std::string> args,
                           const ovtest::ToolOptions& options = ovtest::ToolOptions()) {
        args.insert(args.begin(), mRoot.path());
        return ovtest::runTool(OVSETTINGS, args, options);
    }
    std::string settingsFile() const {
        return mRoot.file("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg");
    }
    std::string menuFile() const {
        return mRoot.file("/qbxlocal/download/appwrite/setup/wb_ovmenu_lang.cfg");
    }
    // Creates the files and sets K to VALUE in group 9 (OVCore.UI).
    void init(const char* value = "v") {
        ASSERT_EQ(0, run({"init"}).exitCode);
        ASSERT_EQ(0, run({"set", "9", "K", value}).exitCode);
    }

    ovtest::TempDir mRoot;
};

using tooltest::contains;
using tooltest::exits;

} // namespace

TEST_F(OvSettings, OnAFreshRootEveryCommandNamesTheMissingFileAndSuggestsInit) {
    const std::string hint = "(create it with: ovsettings " + mRoot.path() + " init)";
    struct Case {
        std::vector<std::string> args;
        std::string file;
    };
    const Case cases[] = {
        {{"get", "OVCore.UI", "K"}, settingsFile()},
        {{"set", "9", "K", "v"}, settingsFile()},
        {{"list", "9"}, settingsFile()},
        {{"cat"}, settingsFile()},
        {{"get", "5", "K"}, menuFile()},
        {{"cat", "--menu"}, menuFile()},
    };
    for (const Case& c : cases) {
        ovtest::ToolResult result = run(c.args);
        EXPECT_EQ(8, result.exitCode) << c.args[0];
        EXPECT_EQ("ovsettings: " + c.args[0] + ": settings file not loaded: " + c.file +
                      ": No such file or directory " + hint + "\n",
                  result.err);
    }
    // A set did not create the file.
    EXPECT_FALSE(ovtest::fileExists(settingsFile()));
}

TEST_F(OvSettings, InitCreatesBothFilesOnceAndNeverClobbers) {
    ovtest::ToolResult first = run({"init"});
    EXPECT_EQ(0, first.exitCode);
    EXPECT_EQ("created " + settingsFile() + "\ncreated " + menuFile() + "\n", first.out);
    EXPECT_EQ("", ovtest::readFile(settingsFile()));
    EXPECT_TRUE(ovtest::fileExists(menuFile()));

    ASSERT_EQ(0, run({"set", "OVCore.UI", "Greeting", "h\xc3\xa9llo w=rld"}).exitCode);
    ASSERT_EQ(0, run({"set", "5", "Menu", "x"}).exitCode);
    const std::string settings = ovtest::readFile(settingsFile());
    const std::string menu = ovtest::readFile(menuFile());
    EXPECT_TRUE(contains(settings, "[OVCore.UI]\nGreeting=h\xc3\xa9llo w=rld\n")) << settings;

    ovtest::ToolResult again = run({"init"});
    EXPECT_EQ(0, again.exitCode);
    EXPECT_EQ("kept " + settingsFile() + "\nkept " + menuFile() + "\n", again.out);
    EXPECT_EQ(settings, ovtest::readFile(settingsFile()));
    EXPECT_EQ(menu, ovtest::readFile(menuFile()));

    ovtest::ToolResult get = run({"get", "9", "Greeting"});
    EXPECT_EQ(0, get.exitCode);
    EXPECT_EQ("h\xc3\xa9llo w=rld\n", get.out);
    EXPECT_EQ("x\n", run({"get", "OVCore.Menu", "Menu"}).out);
}

TEST_F(OvSettings, ADirectoryWhereAFileBelongsIsNamedWithTheReason) {
    std::filesystem::create_directories(settingsFile());
    ovtest::ToolResult init = run({"init"});
    EXPECT_TRUE(exits(init, 74, "init: cannot create " + settingsFile() + ": Is a directory"));
    EXPECT_TRUE(contains(init.out, "created " + menuFile())) << "the menu file is still made";
    ovtest::ToolResult get = run({"get", "9", "K"});
    EXPECT_EQ(8, get.exitCode);
    EXPECT_EQ("ovsettings: get: settings file not loaded: " + settingsFile() + ": Is a directory\n",
              get.err);
}

// Integers are decimal and 32 bits when set; a typed get of text of another type exits 65,
// while what the library itself reads as a number or a boolean is one.
TEST_F(OvSettings, TypedValuesAreCheckedBothWays) {
    init();
    ASSERT_EQ(0, run({"set", "9", "N", "7", "--int"}).exitCode);
    const std::string before = ovtest::readFile(settingsFile());
    for (const char* value : {"99999999999", "2147483648", "-2147483649", "010", "0x10", "12abc",
                              "", " 5", "5 ", "+5", "-", "1e3"}) {
        ovtest::ToolResult set = run({"set", "9", "N", value, "--int"});
        EXPECT_EQ(64, set.exitCode) << value;
        EXPECT_EQ(std::string("ovsettings: set: not a 32-bit decimal integer: \"") + value + "\"\n",
                  set.err);
        EXPECT_EQ(before, ovtest::readFile(settingsFile())) << value;
    }
    for (const char* value : {"2147483647", "-2147483648", "0", "10"}) {
        ASSERT_EQ(0, run({"set", "9", "N", value, "--int"}).exitCode) << value;
        EXPECT_EQ(std::string(value) + "\n", run({"get", "9", "N", "--int"}).out);
    }
    EXPECT_EQ(64, run({"set", "9", "B", "yes", "--bool"}).exitCode);

    const std::vector<std::vector<std::string>> sets = {{"Word", "abc"},
                                                        {"Big", "99999999999"},
                                                        {"Hex", "0x1f"},
                                                        {"Yes", "yes"},
                                                        {"Flag", "true", "--bool"}};
    for (std::vector<std::string> args : sets) {
        args.insert(args.begin(), {"set", "9"});
        ASSERT_EQ(0, run(args).exitCode) << args[2];
    }
    ovtest::ToolResult word = run({"get", "9", "Word", "--int"});
    EXPECT_EQ(65, word.exitCode);
    EXPECT_EQ("ovsettings: get: OVCore.UI: Word holds \"abc\", which is not an integer\n",
              word.err);
    EXPECT_EQ("", word.out);
    EXPECT_EQ(65, run({"get", "9", "Big", "--int"}).exitCode);
    EXPECT_TRUE(exits(run({"get", "9", "Yes", "--bool"}), 65, "neither true nor false"));
    EXPECT_EQ(65, run({"get", "9", "Word", "--bool"}).exitCode);
    ovtest::ToolResult hex = run({"get", "9", "Hex", "--int"});
    EXPECT_EQ(0, hex.exitCode);
    EXPECT_EQ("31\n", hex.out);
    EXPECT_EQ("true\n", run({"get", "9", "Flag", "--bool"}).out);
    EXPECT_EQ(3, run({"get", "9", "Nothing", "--int"}).exitCode);
}

// What would not read back as given is refused before anything is written, naming why; what
// would is stored and read back exactly; a write that never reaches the file exits 74.
TEST_F(OvSettings, SetStoresWhatItWasGivenOrRefuses) {
    init("old");
    const std::string before = ovtest::readFile(settingsFile());
    struct Refused {
        const char* key;
        const char* value;
        const char* reason;
    };
    const Refused refused[] = {
        {"K", "caf\xe9", "the value is not UTF-8"},
        {"K", "\xc0\xaf", "the value is not UTF-8"}, // an overlong '/'
        {"", "v", "the key is empty"},
        {"K ", "v", "the key ends in a space, which loading trims"},
        {"K", " v", "the value begins with a space, which loading trims"},
        {"K", "v\r", "the value holds a carriage return or a line feed"},
        {"K", "two\nlines", "the value holds a carriage return or a line feed"},
        {"K\xff", "v", "the key is not UTF-8"},
    };
    for (const Refused& r : refused) {
        ovtest::ToolResult set = run({"set", "9", r.key, r.value});
        EXPECT_EQ(65, set.exitCode) << r.reason;
        EXPECT_EQ(std::string("ovsettings: set: OVCore.UI: refused: ") + r.reason + "\n", set.err);
    }
    EXPECT_EQ(before, ovtest::readFile(settingsFile()));

    // Any file write fails (EFBIG), as on a full file system.
    ovtest::ToolOptions full;
    full.fileSizeLimit = 0;
    ovtest::ToolResult set = run({"set", "9", "K", "new"}, full);
    EXPECT_EQ(74, set.exitCode);
    EXPECT_EQ(
        "ovsettings: set: " + settingsFile() +
            ": [OVCore.UI] K now holds \"old\", not \"new\": the write did not reach the file\n",
        set.err);
    EXPECT_EQ("old\n", run({"get", "9", "K"}).out);

    for (const char* value : {"caf\xc3\xa9", "tab\there", "trailing  ", "", "a=b"}) {
        ASSERT_EQ(0, run({"set", "9", "K", value}).exitCode) << value;
        EXPECT_EQ(std::string(value) + "\n", run({"get", "9", "K"}).out);
    }
}

// A file the user may read but not write (immutable here, as root ignores modes): every
// reading command works; a set finds the file not loaded, as the library opens it for writing.
TEST_F(OvSettings, ReadingNeedsOnlyReadAccess) {
    init();
    ovtest::Immutable frozen(settingsFile());
    if (!frozen.ok())
        GTEST_SKIP() << "the immutable flag cannot be set here";
    EXPECT_EQ("v\n", run({"get", "9", "K"}).out);
    EXPECT_EQ(0, run({"get", "OVCore.UI", "K"}).exitCode);
    EXPECT_EQ("K=v\n", run({"list", "9"}).out);
    EXPECT_EQ(0, run({"cat"}).exitCode);
    ovtest::ToolResult set = run({"set", "9", "K", "w"});
    EXPECT_EQ(8, set.exitCode);
    EXPECT_EQ("ovsettings: set: settings file not loaded: " + settingsFile() +
                  ": Operation not permitted\n",
              set.err);
}

TEST_F(OvSettings, OutputAndDiagnostics) {
    init();
    // A failed write on standard output exits 74 whatever the command.
    ovtest::ToolOptions full;
    full.stdoutFile = "/dev/full";
    ovtest::ToolOptions closed;
    closed.closedStdout = true;
    closed.ignoreSigpipe = true;
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"groups"}, {"get", "9", "K"}, {"list", "9"}, {"cat"}}) {
        ovtest::ToolResult toFull = run(args, full);
        EXPECT_EQ(74, toFull.exitCode) << args[0];
        EXPECT_EQ("ovsettings: cannot write standard output: No space left on device\n",
                  toFull.err);
        ovtest::ToolResult toClosed = run(args, closed);
        EXPECT_EQ(74, toClosed.exitCode) << args[0];
        EXPECT_EQ("ovsettings: cannot write standard output: Broken pipe\n", toClosed.err);
    }

    // The library's diagnostics only with --verbose.
    ovtest::ToolResult quiet = run({"set", "9", "K", "w"});
    EXPECT_EQ(0, quiet.exitCode);
    EXPECT_EQ("", quiet.err);
    ovtest::ToolResult verbose =
        ovtest::runTool(OVSETTINGS, {"--verbose", mRoot.path(), "set", "9", "K", "x"});
    EXPECT_EQ(0, verbose.exitCode);
    EXPECT_TRUE(ovtest::hasDiagnostics(verbose.err));
    EXPECT_TRUE(contains(verbose.err, "OrvelSetting publish setting change event")) << verbose.err;
}
