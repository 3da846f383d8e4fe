// ovtemplate run as a user runs it: exit codes, what reaches standard output and standard error.
#include "support/Files.h"
#include "support/TempDir.h"
#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

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

TEST_F(OvTemplate, HelpGoesToStandardOutputAndUsageErrorsExit64) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--help"}, {"-h"}, {"-v", "--help"}}) {
        ovtest::ToolResult run = ovtest::runTool(OVTEMPLATE, args);
        EXPECT_EQ(0, run.exitCode) << args.back();
        EXPECT_NE(std::string::npos, run.out.find("usage: ovtemplate")) << args.back();
        EXPECT_NE(std::string::npos, run.out.find("exit status")) << args.back();
        EXPECT_EQ(args.size() == 1, run.err.empty()) << args.back(); // -v shows diagnostics
    }
}

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
    ovtest::ToolResult run = check(write("deep.xml", deep));
    EXPECT_EQ(1, run.exitCode);
    EXPECT_NE(std::string::npos, run.err.find(":1: <box> is nested deeper than 256 elements"))
        << run.err;
}

TEST_F(OvTemplate, UnreadableFilesExit66WithTheReason) {
    ovtest::ToolResult missing = check(mDir.file("missing.xml"));
    EXPECT_EQ(66, missing.exitCode);
    EXPECT_EQ("ovtemplate: cannot read " + mDir.file("missing.xml") +
                  ": No such file or directory\n",
              missing.err);

    ovtest::ToolResult directory = check(mDir.path());
    EXPECT_EQ(66, directory.exitCode);
    EXPECT_EQ("ovtemplate: cannot read " + mDir.path() + ": Is a directory\n", directory.err);
    EXPECT_EQ("", directory.out);

    if (::geteuid() == 0) {
        GTEST_SKIP() << "running as root: a file without read permission is still readable";
    }
    std::string locked = write("locked.xml", GOOD);
    ASSERT_EQ(0, ::chmod(locked.c_str(), 0));
    ovtest::ToolResult denied = check(locked);
    EXPECT_EQ(66, denied.exitCode);
    EXPECT_EQ("ovtemplate: cannot read " + locked + ": Permission denied\n", denied.err);
}

TEST_F(OvTemplate, EndlessOrStalledInputEndsAtTheFirstFatalError) {
    ovtest::ToolResult zero = check("/dev/zero");
    EXPECT_FALSE(zero.timedOut);
    EXPECT_EQ(1, zero.exitCode);
    EXPECT_EQ(0u, zero.err.find("ovtemplate: /dev/zero:1: not well formed: ")) << zero.err;

    // A writer that sent a broken start and then keeps the pipe open without writing more.
    ovtest::ToolOptions stalled;
    stalled.input = "<template>\n<layout></row>";
    stalled.holdInput = true;
    stalled.timeoutSeconds = 30;
    ovtest::ToolResult pipe = check("/dev/stdin", stalled);
    EXPECT_FALSE(pipe.timedOut);
    EXPECT_EQ(1, pipe.exitCode);
    EXPECT_NE(std::string::npos, pipe.err.find(":2: not well formed: Opening and ending tag"))
        << pipe.err;
    // The same once an element is refused: the rest cannot change the verdict.
    stalled.input = "<template>\n<style/>\n";
    ovtest::ToolResult refused = check("/dev/stdin", stalled);
    EXPECT_FALSE(refused.timedOut);
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ("ovtemplate: /dev/stdin:2: <style> may not stand inside <template> (error state 2)\n",
              refused.err);
}

TEST_F(OvTemplate, AFailedWriteOnStandardOutputExits74) {
    std::string path = write("good.xml", GOOD);
    ovtest::ToolOptions full;
    full.stdoutFile = "/dev/full";
    ovtest::ToolResult run = check(path, full);
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
    ovtest::ToolResult quiet = check(path);
    EXPECT_FALSE(ovtest::hasDiagnostics(quiet.err)) << quiet.err;
    EXPECT_EQ("", quiet.err);
    for (const char* option : {"-v", "--verbose"}) {
        ovtest::ToolResult verbose = ovtest::runTool(OVTEMPLATE, {option, "check", path});
        EXPECT_EQ(0, verbose.exitCode);
        EXPECT_TRUE(ovtest::hasDiagnostics(verbose.err)) << option;
        EXPECT_EQ(path + ": accepted\n", verbose.out);
    }
}
