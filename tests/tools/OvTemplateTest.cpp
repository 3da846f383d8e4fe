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

using tooltest::Step;

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
    ovtest::TempDir mDir;
};

} // namespace

TEST_F(OvTemplate, AcceptedTemplateAndItsTreeWithDecodedValues) {
    std::string path = write("good.xml", GOOD);
    ovtest::ToolResult run = ovtest::runTool(OVTEMPLATE, {"check", path});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ(path + ": accepted\n", run.out);
    EXPECT_EQ("", run.err);

    run = ovtest::runTool(OVTEMPLATE, {"check", "--tree", path});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("layout id=\"a&b\" stylesheet=\"s\"")) << run.out;
    EXPECT_NE(std::string::npos, run.out.find("uses stylesheet \"s\"")) << run.out;
}

// A document that is not well formed exits 1 with libxml2's message and line; so does an element
// where it may not stand, named with its line, and a file that cannot be read exits 66 with
// the reason. Endless or stalled input ends at the first fatal error.
TEST_F(OvTemplate, EveryRefusalNamesTheFileTheLineAndTheReason) {
    const std::string wf = ": not well formed: ";
    auto broken = [&](const std::string& name, const std::string& text, const std::string& err) {
        const std::string path = write(name, text);
        return Step{{"check", path}, 1, "", "ovtemplate: " + path + err};
    };
    std::string deep = "<template><layout>";
    for (int i = 0; i < 300; ++i)
        deep += "<box>";
    ovtest::ToolOptions stalled; // a writer that sent a start and keeps the pipe open
    stalled.input = "<template>\n<layout></row>";
    stalled.holdInput = true;
    stalled.timeoutSeconds = 30;
    ovtest::ToolOptions refused = stalled; // the rest cannot change the verdict
    refused.input = "<template>\n<style/>\n";
    std::vector<Step> steps = {
        broken("empty.xml", "", ": not well formed: the file is empty"),
        broken("random.xml", std::string("\x89\x13\xfe\x00\x7f garbage \x01\x02", 16), ":1" + wf),
        broken("truncated.xml", "<template>\n<layout>\n<image/>",
               ":3" + wf +
                   "Extra content at the end of the document (the file ends inside <layout>)"),
        broken("undeclared.xml", "<template>\n<layout id=\"&x;\"/>\n</template>\n",
               ":2" + wf + "Entity 'x' not defined"),
        broken("style.xml", "<template>\n\n<style/>\n</template>\n",
               ":3: <style> may not stand inside <template> (error state 2)\n"),
        broken("unknown.xml", "<template><layout>\n<scrooler/></layout></template>",
               ":2: unknown element <scrooler> (error state 2)\n"),
        broken("outside.xml", "<layout/>",
               ":1: <layout> stands outside a <template> element (error state 2)\n"),
        // Too deep: the element at which the limit was reached.
        broken("deep.xml", deep, ":1: <box> is nested deeper than 256 elements"),
        {{"check", "/dev/zero"}, 1, "", "ovtemplate: /dev/zero:1" + wf},
        {{"check", "/dev/stdin"}, 1, "", ":2" + wf + "Opening and ending tag", stalled},
        {{"check", "/dev/stdin"},
         1,
         "",
         "ovtemplate: /dev/stdin:2: <style> may not stand inside <template> (error state 2)\n",
         refused},
        {{"check", mDir.file("missing.xml")},
         66,
         "",
         "ovtemplate: cannot read " + mDir.file("missing.xml") + ": No such file or directory\n"},
        {{"check", mDir.path()},
         66,
         "",
         "ovtemplate: cannot read " + mDir.path() + ": Is a directory\n"},
    };
    if (::geteuid() != 0) { // root reads a file without read permission all the same
        const std::string locked = write("locked.xml", GOOD);
        ASSERT_EQ(0, ::chmod(locked.c_str(), 0));
        steps.push_back({{"check", locked},
                         66,
                         "",
                         "ovtemplate: cannot read " + locked + ": Permission denied\n"});
    }
    tooltest::expectRuns(OVTEMPLATE, {}, steps);
}
