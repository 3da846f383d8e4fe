// ovtemplate run as a user runs it: exit codes, what reaches standard output and standard error.
#include "ToolCheck.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using tooltest::exits;

const char* const OVTEMPLATE = OVTOOL_OVTEMPLATE;

const char* const GOOD =
    "<?xml version=\"1.0\"?>\n"
    "<template>\n"
    "  <stylesheet id=\"s\"><style selector=\"t\" font=\"bold 9pt\"/></stylesheet>\n"
    "  <layout id=\"a&amp;b\" stylesheet=\"s\"><text class=\"t\"/></layout>\n"
    "</template>\n";

class OvTemplate : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& text) {
        std::string path = mDir.file(name);
        EXPECT_TRUE(ovtest::writeFile(path, text));
        return path;
    }
    ovtest::ToolResult check(const std::string& path,
                             const ovtest::ToolOptions& options = ovtest::ToolOptions()) {
        return ovtest::runTool(OVTEMPLATE, {"check", path}, options);
    }

    ovtest::TempDir mDir;
};

} // namespace

TEST_F(OvTemplate, AcceptedTemplateAndItsTreeWithDecodedValues) {
    std::string path = write("good.xml", GOOD);
    ovtest::ToolResult run = check(path);
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ(path + ": accepted\n", run.out);
    EXPECT_EQ("", run.err);

    run = ovtest::runTool(OVTEMPLATE, {"check", "--tree", path});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("layout id=\"a&b\" stylesheet=\"s\"")) << run.out;
    EXPECT_NE(std::string::npos, run.out.find("uses stylesheet \"s\"")) << run.out;
}

TEST_F(OvTemplate, DocumentsThatAreNotWellFormedExitOneWithLibxml2sMessageAndLine) {
    struct Case {
        std::string name;
        std::string text;
        std::string expected; // in the message, after "not well formed: "
    };
    const Case cases[] = {
        {"empty", "", ": not well formed: the file is empty"},
        {"random", std::string("\x89\x13\xfe\x00\x7f garbage \x01\x02", 16),
         ":1: not well formed: "},
        {"truncated", "<template>\n<layout>\n<image/>",
         ":3: not well formed: Extra content at the end of the document (the file ends inside "
         "<layout>)"},
        {"mismatch", "<template>\n<layout>\n</template>\n",
         ":3: not well formed: Opening and ending tag mismatch"},
        {"two-roots", "<template/>\n<template/>\n", ":2: not well formed: Extra content"},
        {"undeclared", "<template>\n<layout id=\"&x;\"/>\n</template>\n",
         ":2: not well formed: Entity 'x' not defined"},
    };
    for (const Case& c : cases) {
        std::string path = write(c.name + ".xml", c.text);
        ovtest::ToolResult run = check(path);
        EXPECT_EQ(1, run.exitCode) << c.name;
        EXPECT_EQ("", run.out) << c.name;
        EXPECT_EQ(0u, run.err.find("ovtemplate: " + path + c.expected)) << run.err;
        EXPECT_EQ(std::string::npos, run.err.find("accepted")) << c.name;
    }
}

TEST_F(OvTemplate, NestingErrorsNameTheElementAndTheLine) {
    struct Case {
        std::string text;
        std::string expected;
    };
    const Case cases[] = {
        {"<template>\n  <layout>\n    <row><row/></row>\n  </layout>\n</template>\n",
         ":3: <row> may not stand inside <row> (error state 2)"},
        {"<template>\n\n<style/>\n</template>\n",
         ":3: <style> may not stand inside <template> (error state 2)"},
        {"<template><layout>\n<scrooler/></layout></template>",
         ":2: unknown element <scrooler> (error state 2)"},
        {"<layout/>", ":1: <layout> stands outside a <template> element (error state 2)"},
    };
    for (const Case& c : cases) {
        std::string path = write("nesting.xml", c.text);
        ovtest::ToolResult run = check(path);
        EXPECT_EQ(1, run.exitCode) << c.text;
        EXPECT_EQ("ovtemplate: " + path + c.expected + "\n", run.err);
        EXPECT_EQ("", run.out);
    }
    // Too deep: the element at which the limit was reached.
    std::string deep = "<template><layout>";
    for (int i = 0; i < 300; ++i)
        deep += "<box>";
    EXPECT_TRUE(
        exits(check(write("deep.xml", deep)), 1, ":1: <box> is nested deeper than 256 elements"));
}

TEST_F(OvTemplate, UnreadableFilesExit66WithTheReason) {
    std::vector<std::pair<std::string, std::string>> cases = {
        {mDir.file("missing.xml"), "No such file or directory"}, {mDir.path(), "Is a directory"}};
    if (::geteuid() != 0) { // root reads a file without read permission all the same
        cases.emplace_back(write("locked.xml", GOOD), "Permission denied");
        ASSERT_EQ(0, ::chmod(cases.back().first.c_str(), 0));
    }
    for (const auto& c : cases) {
        ovtest::ToolResult run = check(c.first);
        EXPECT_EQ(66, run.exitCode) << c.first;
        EXPECT_EQ("ovtemplate: cannot read " + c.first + ": " + c.second + "\n", run.err);
        EXPECT_EQ("", run.out);
    }
}

TEST_F(OvTemplate, EndlessOrStalledInputEndsAtTheFirstFatalError) {
    EXPECT_TRUE(exits(check("/dev/zero"), 1, "ovtemplate: /dev/zero:1: not well formed: "));

    // A writer that sent a broken start and then keeps the pipe open without writing more.
    ovtest::ToolOptions stalled;
    stalled.input = "<template>\n<layout></row>";
    stalled.holdInput = true;
    stalled.timeoutSeconds = 30;
    EXPECT_TRUE(
        exits(check("/dev/stdin", stalled), 1, ":2: not well formed: Opening and ending tag"));
    // The same once an element is refused: the rest cannot change the verdict.
    stalled.input = "<template>\n<style/>\n";
    ovtest::ToolResult refused = check("/dev/stdin", stalled);
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ("ovtemplate: /dev/stdin:2: <style> may not stand inside <template> (error state 2)\n",
              refused.err);
}

TEST_F(OvTemplate, AFailedWriteOnStandardOutputExits74) {
    ovtest::ToolOptions full;
    full.stdoutFile = "/dev/full";
    ovtest::ToolResult run = check(write("good.xml", GOOD), full);
    EXPECT_EQ(74, run.exitCode);
    EXPECT_EQ("ovtemplate: cannot write standard output: No space left on device\n", run.err);

    ovtest::ToolOptions closed;
    closed.closedStdout = true;
    closed.ignoreSigpipe = true;
    run = ovtest::runTool(OVTEMPLATE, {"font", "bold 12pt serif"}, closed);
    EXPECT_EQ(74, run.exitCode);
    EXPECT_EQ("ovtemplate: cannot write standard output: Broken pipe\n", run.err);
}

TEST_F(OvTemplate, LibraryDiagnosticsOnlyWithVerbose) {
    std::string path = write("good.xml", GOOD);
    EXPECT_EQ("", check(path).err);
    for (const char* option : {"-v", "--verbose"}) {
        ovtest::ToolResult verbose = ovtest::runTool(OVTEMPLATE, {option, "check", path});
        EXPECT_EQ(0, verbose.exitCode);
        EXPECT_TRUE(ovtest::hasDiagnostics(verbose.err)) << option;
        EXPECT_EQ(path + ": accepted\n", verbose.out);
    }
}
