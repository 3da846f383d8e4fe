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

using tooltest::Step;

class OvSettings : public ::testing::Test {
protected:
    void runs(const std::vector<Step>& table) {
        tooltest::expectRuns(OVTOOL_OVSETTINGS, {mRoot.path()}, table);
    }
    // Creates the files and sets K to VALUE in group 9 (OVCore.UI).
    void init(const char* value = "v") {
        runs({{{"init"}, 0, std::nullopt, ""}, {{"set", "9", "K", value}, 0, "", ""}});
    }

    ovtest::TempDir mRoot;
    const std::string mSettings =
        mRoot.file("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg");
    const std::string mMenu = mRoot.file("/qbxlocal/download/appwrite/setup/wb_ovmenu_lang.cfg");
};

TEST_F(OvSettings, OnAFreshRootEveryCommandNamesTheMissingFileAndSuggestsInit) {
    auto missing = [this](const std::string& command, const std::string& file) {
        return "ovsettings: " + command + ": settings file not loaded: " + file +
               ": No such file or directory (create it with: ovsettings " + mRoot.path() +
               " init)\n";
    };
    runs({{{"get", "OVCore.UI", "K"}, 8, "", missing("get", mSettings)},
          {{"set", "9", "K", "v"}, 8, "", missing("set", mSettings)},
          {{"list", "9"}, 8, "", missing("list", mSettings)},
          {{"cat"}, 8, "", missing("cat", mSettings)},
          {{"get", "5", "K"}, 8, "", missing("get", mMenu)},
          {{"cat", "--menu"}, 8, "", missing("cat", mMenu)}});
    EXPECT_FALSE(ovtest::fileExists(mSettings)) << "a set did not create the file";
}

TEST_F(OvSettings, InitCreatesBothFilesOnceAndNeverClobbers) {
    runs({{{"init"}, 0, "created " + mSettings + "\ncreated " + mMenu + "\n", ""},
          {{"set", "OVCore.UI", "Greeting", "h\xc3\xa9llo w=rld"}, 0, "", ""},
          {{"set", "5", "Menu", "x"}, 0, "", ""}});
    const std::string settings = ovtest::readFile(mSettings);
    const std::string menu = ovtest::readFile(mMenu);
    EXPECT_TRUE(tooltest::contains(settings, "[OVCore.UI]\nGreeting=h\xc3\xa9llo w=rld\n"))
        << settings;
    EXPECT_TRUE(tooltest::contains(menu, "Menu=x\n")) << menu;
    runs({{{"init"}, 0, "kept " + mSettings + "\nkept " + mMenu + "\n", ""},
          {{"get", "9", "Greeting"}, 0, "h\xc3\xa9llo w=rld\n", ""},
          {{"get", "OVCore.Menu", "Menu"}, 0, "x\n", ""}});
    EXPECT_EQ(settings, ovtest::readFile(mSettings));
    EXPECT_EQ(menu, ovtest::readFile(mMenu));
}

TEST_F(OvSettings, ADirectoryWhereAFileBelongsIsNamedWithTheReason) {
    std::filesystem::create_directories(mSettings);
    runs({{{"init"},
           74,
           "created " + mMenu + "\n", // the menu file is still made
           "init: cannot create " + mSettings + ": Is a directory"},
          {{"get", "9", "K"},
           8,
           "",
           "ovsettings: get: settings file not loaded: " + mSettings + ": Is a directory\n"}});
}

// Integers are decimal and 32 bits when set; a typed get of text of another type exits 65,
// while what the library itself reads as a number or a boolean is one.
TEST_F(OvSettings, TypedValuesAreCheckedBothWays) {
    init();
    const std::string before = ovtest::readFile(mSettings);
    std::vector<Step> table;
    for (const char* value : {"99999999999", "2147483648", "-2147483649", "010", "0x10", "12abc",
                              "", " 5", "5 ", "+5", "-", "1e3"})
        table.push_back(
            {{"set", "9", "N", value, "--int"},
             64,
             "",
             std::string("ovsettings: set: not a 32-bit decimal integer: \"") + value + "\"\n"});
    runs(table);
    EXPECT_EQ(before, ovtest::readFile(mSettings));
    table.clear();
    for (const char* value : {"2147483647", "-2147483648", "0", "10"}) {
        table.push_back({{"set", "9", "N", value, "--int"}, 0, "", ""});
        table.push_back({{"get", "9", "N", "--int"}, 0, std::string(value) + "\n", ""});
    }
    runs(table);

    runs({{{"set", "9", "B", "yes", "--bool"}, 64, "", "ovsettings: set: "},
          {{"set", "9", "Word", "abc"}, 0, "", ""},
          {{"set", "9", "Big", "99999999999"}, 0, "", ""},
          {{"set", "9", "Hex", "0x1f"}, 0, "", ""},
          {{"set", "9", "Yes", "yes"}, 0, "", ""},
          {{"set", "9", "Flag", "true", "--bool"}, 0, "", ""},
          {{"get", "9", "Word", "--int"},
           65,
           "",
           "ovsettings: get: OVCore.UI: Word holds \"abc\", which is not an integer\n"},
          {{"get", "9", "Big", "--int"}, 65, "", "which is not an integer"},
          {{"get", "9", "Yes", "--bool"}, 65, "", "neither true nor false"},
          {{"get", "9", "Hex", "--int"}, 0, "31\n", ""},
          {{"get", "9", "Flag", "--bool"}, 0, "true\n", ""},
          {{"get", "9", "Nothing", "--int"}, 3, "", "ovsettings: get: "}});
}

// What would not read back as given is refused before anything is written, naming why; what
// would is stored and read back exactly; a write that never reaches the file exits 74.
TEST_F(OvSettings, SetStoresWhatItWasGivenOrRefuses) {
    init("old");
    const std::string before = ovtest::readFile(mSettings);
    const std::string refused = "ovsettings: set: OVCore.UI: refused: ";
    const std::string notUtf8 = refused + "the value is not UTF-8\n";
    const std::string lineEnd = refused + "the value holds a carriage return or a line feed\n";
    runs({{{"set", "9", "K", "caf\xe9"}, 65, "", notUtf8},
          {{"set", "9", "K", "\xc0\xaf"}, 65, "", notUtf8}, // an overlong '/'
          {{"set", "9", "", "v"}, 65, "", refused + "the key is empty\n"},
          {{"set", "9", "K ", "v"},
           65,
           "",
           refused + "the key ends in a space, which loading trims\n"},
          {{"set", "9", "K", " v"},
           65,
           "",
           refused + "the value begins with a space, which loading trims\n"},
          {{"set", "9", "K", "v\r"}, 65, "", lineEnd},
          {{"set", "9", "K", "two\nlines"}, 65, "", lineEnd},
          {{"set", "9", "K\xff", "v"}, 65, "", refused + "the key is not UTF-8\n"}});
    EXPECT_EQ(before, ovtest::readFile(mSettings));

    ovtest::ToolOptions full; // any file write fails (EFBIG), as on a full file system
    full.fileSizeLimit = 0;
    runs({{{"set", "9", "K", "new"},
           74,
           "",
           "ovsettings: set: " + mSettings +
               ": [OVCore.UI] K now holds \"old\", not \"new\": the write did not reach the file\n",
           full},
          {{"get", "9", "K"}, 0, "old\n", ""}});
    std::vector<Step> table;
    for (const char* value : {"caf\xc3\xa9", "tab\there", "trailing  ", "", "a=b"}) {
        table.push_back({{"set", "9", "K", value}, 0, "", ""});
        table.push_back({{"get", "9", "K"}, 0, std::string(value) + "\n", ""});
    }
    runs(table);
}

// A file the user may read but not write (immutable here, as root ignores modes): every
// reading command works; a set finds the file not loaded, as the library opens it for writing.
TEST_F(OvSettings, ReadingNeedsOnlyReadAccess) {
    init();
    ovtest::Immutable frozen(mSettings);
    if (!frozen.ok())
        GTEST_SKIP() << "the immutable flag cannot be set here";
    runs({{{"get", "9", "K"}, 0, "v\n", ""},
          {{"list", "9"}, 0, "K=v\n", ""},
          {{"cat"}, 0, std::nullopt, ""},
          {{"set", "9", "K", "w"},
           8,
           "",
           "ovsettings: set: settings file not loaded: " + mSettings +
               ": Operation not permitted\n"}});
}

// A failed write on standard output exits 74 whatever the command; the library's diagnostics
// show only with --verbose.
TEST_F(OvSettings, OutputAndDiagnostics) {
    init();
    ovtest::ToolOptions full;
    full.stdoutFile = "/dev/full";
    ovtest::ToolOptions closed;
    closed.closedStdout = true;
    std::vector<Step> table;
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"groups"}, {"get", "9", "K"}, {"list", "9"}, {"cat"}}) {
        table.push_back({args, 74, "",
                         "ovsettings: cannot write standard output: No space left on device\n",
                         full});
        table.push_back(
            {args, 74, "", "ovsettings: cannot write standard output: Broken pipe\n", closed});
    }
    runs(table);
    ovtest::ToolResult verbose =
        ovtest::runTool(OVTOOL_OVSETTINGS, {"--verbose", mRoot.path(), "set", "9", "K", "x"});
    EXPECT_EQ(0, verbose.exitCode);
    EXPECT_TRUE(tooltest::contains(verbose.err, "OrvelSetting publish setting change event"))
        << verbose.err;
}

} // namespace
