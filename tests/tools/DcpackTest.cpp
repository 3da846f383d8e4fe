// dcpack run as a content integrator runs it: folders packed and unpacked again byte for byte,
// the checks of verify, and errors that name the file and leave existing files whole.
#include "storage/DefaultContentBytes.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/Files.h"
#include "support/TempDir.h"
#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const char* const DCPACK = OVTOOL_DCPACK;

class Dcpack : public ::testing::Test {
protected:
    static ovtest::ToolResult dcpack(const std::vector<std::string>& args,
                                     const ovtest::ToolOptions& options = ovtest::ToolOptions()) {
        return ovtest::runTool(DCPACK, args, options);
    }

    // The resources folder every round trip starts from.
    void makeResources() {
        std::string binary;
        for (int i = 0; i < 3000; ++i)
            binary += static_cast<char>((i * 37) % 256);
        mFiles = {{"default-channel-icon.png", binary},
                  {"empty", ""},
                  {"with space.txt", "a name with a blank"},
                  {"zeros", std::string(5, '\0')}};
        for (const auto& file : mFiles)
            ASSERT_TRUE(ovtest::writeFile(mWork.file("res/" + file.first), file.second));
    }

    // Names of the files in FOLDER, of any kind.
    static std::vector<std::string> listing(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    ovtest::TempDir mWork;
    ovtest::TempDir mOutput;
    std::vector<std::pair<std::string, std::string>> mFiles;
};

TEST_F(Dcpack, HelpAndUsage) {
    ovtest::ToolResult help = dcpack({"--help"});
    EXPECT_EQ(0, help.exitCode);
    EXPECT_EQ(0u, help.out.find("usage: dcpack")) << help.out;
    EXPECT_EQ("", help.err);

    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{}, {"frobnicate", "x"}, {"list"}, {"create", "only-one"}}) {
        ovtest::ToolResult usage = dcpack(wrong);
        EXPECT_EQ(64, usage.exitCode);
        EXPECT_EQ("", usage.out);
        EXPECT_NE(std::string::npos, usage.err.find("usage: dcpack")) << usage.err;
    }
}

TEST_F(Dcpack, AFolderComesBackByteForByte) {
    makeResources();
    const std::string index = mWork.file("dynport.dc");
    ovtest::ToolResult created = dcpack({"create", index, mWork.file("res")});
    ASSERT_EQ(0, created.exitCode) << created.err;
    EXPECT_EQ("", created.err) << "the library's diagnostics stay off the terminal";
    ovtest::ToolResult verbose = dcpack({"-v", "list", index});
    EXPECT_TRUE(ovtest::hasDiagnostics(verbose.err)) << verbose.err;

    // The library's reader sees every file under its name.
    DefaultContentIndex read(index);
    ASSERT_EQ(mFiles.size(), read.getItems().size());
    for (const auto& file : mFiles) {
        const DefaultContentIndexItem* item = read.find(file.first);
        ASSERT_NE(nullptr, item) << file.first;
        std::string bytes;
        EXPECT_TRUE(DefaultContentIndex::readResource(index, *item, &bytes));
        EXPECT_EQ(file.second, bytes) << file.first;
    }

    ovtest::ToolResult listed = dcpack({"list", index});
    EXPECT_EQ(0, listed.exitCode);
    EXPECT_EQ("        98       3000  default-channel-icon.png\n"
              "      3098          0  empty\n"
              "      3098         19  with space.txt\n"
              "      3117          5  zeros\n",
              listed.out);

    ovtest::ToolResult verified = dcpack({"verify", index});
    EXPECT_EQ(0, verified.exitCode) << verified.err;
    EXPECT_EQ(index + ": 4 entries, ok\n", verified.out);

    ovtest::ToolResult toStdout = dcpack({"extract", index, "dc:zeros"});
    EXPECT_EQ(0, toStdout.exitCode);
    EXPECT_EQ(std::string(5, '\0'), toStdout.out);
    ovtest::ToolResult toFile =
        dcpack({"extract", index, "default-channel-icon.png", mOutput.file("icon")});
    EXPECT_EQ(0, toFile.exitCode) << toFile.err;
    EXPECT_EQ(mFiles[0].second, ovtest::readFile(mOutput.file("icon")));

    ovtest::ToolResult all = dcpack({"extract", index, "--all", mWork.file("again")});
    ASSERT_EQ(0, all.exitCode) << all.err;
    EXPECT_EQ(listing(mWork.file("res")), listing(mWork.file("again")));
    for (const auto& file : mFiles)
        EXPECT_EQ(file.second, ovtest::readFile(mWork.file("again/" + file.first)));
}

TEST_F(Dcpack, AnIndexInsideItsFolderIsNotPackedAgain) {
    makeResources();
    const std::string index = mWork.file("res/dynport.dc");
    ASSERT_EQ(0, dcpack({"create", index, mWork.file("res")}).exitCode);
    const std::string first = ovtest::readFile(index);
    ASSERT_EQ(0, dcpack({"create", index, mWork.file("res")}).exitCode);
    EXPECT_EQ(first, ovtest::readFile(index));
}

TEST_F(Dcpack, ErrorsNameTheFileAndLeaveFilesWhole) {
    makeResources();
    const std::string index = mWork.file("dynport.dc");
    ASSERT_EQ(0, dcpack({"create", index, mWork.file("res")}).exitCode);
    const std::string good = ovtest::readFile(index);

    ovtest::ToolResult missing = dcpack({"list", mWork.file("none.dc")});
    EXPECT_EQ(66, missing.exitCode);
    EXPECT_NE(std::string::npos, missing.err.find(mWork.file("none.dc") + ": cannot read"))
        << missing.err;

    ovtest::ToolResult noFolder =
        dcpack({"create", mWork.file("no/such/dir/x.dc"), mWork.file("res")});
    EXPECT_EQ(73, noFolder.exitCode);
    EXPECT_NE(std::string::npos, noFolder.err.find(mWork.file("no/such/dir/x.dc"))) << noFolder.err;

    // A folder inside the resources stops the packing; the old index stays as it was.
    ASSERT_TRUE(fs::create_directory(mWork.file("res/nested")));
    ovtest::ToolResult nested = dcpack({"create", index, mWork.file("res")});
    EXPECT_EQ(65, nested.exitCode);
    EXPECT_NE(std::string::npos, nested.err.find(mWork.file("res/nested"))) << nested.err;
    EXPECT_EQ(good, ovtest::readFile(index));
    EXPECT_EQ((std::vector<std::string>{"dynport.dc", "res"}), listing(mWork.path()))
        << "no temporary file is left behind";

    ovtest::ToolResult unknown = dcpack({"extract", index, "dc:nothing", mOutput.file("nothing")});
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_NE(std::string::npos, unknown.err.find("\"nothing\"")) << unknown.err;
    EXPECT_FALSE(ovtest::fileExists(mOutput.file("nothing")));

    ASSERT_TRUE(ovtest::writeFile(mWork.file("text.dc"), "plain text"));
    ovtest::ToolResult notIndex = dcpack({"extract", mWork.file("text.dc"), "x"});
    EXPECT_EQ(65, notIndex.exitCode);
    EXPECT_NE(std::string::npos, notIndex.err.find(mWork.file("text.dc") + ": not an index"))
        << notIndex.err;
}

TEST_F(Dcpack, AFullDiskLeavesTheOldIndexWhole) {
    makeResources();
    const std::string index = mWork.file("dynport.dc");
    ASSERT_EQ(0, dcpack({"create", index, mWork.file("res")}).exitCode);
    const std::string good = ovtest::readFile(index);
    ASSERT_TRUE(ovtest::writeFile(mWork.file("res/more"), std::string(20000, 'm')));

    ovtest::ToolOptions full;
    full.fileSizeLimit = 4096;
    ovtest::ToolResult failed = dcpack({"create", index, mWork.file("res")}, full);
    EXPECT_EQ(74, failed.exitCode);
    EXPECT_NE(std::string::npos, failed.err.find(index + ": cannot write")) << failed.err;
    EXPECT_EQ(good, ovtest::readFile(index));
    EXPECT_EQ((std::vector<std::string>{"dynport.dc", "res"}), listing(mWork.path()));

    ovtest::ToolResult extract = dcpack({"extract", index, "default-channel-icon.png", "-"}, [] {
        ovtest::ToolOptions options;
        options.stdoutFile = "/dev/full";
        return options;
    }());
    EXPECT_EQ(74, extract.exitCode);
}

TEST_F(Dcpack, VerifyTellsEveryProblemTheReaderWouldHide) {
    using dctest::entry;
    // Directory: 10 + 11 + 11 + 16 + 11 + 11 + 13 = 83 bytes, then 10 resource bytes.
    const std::string file = dctest::header(6) + entry("a", 4, 83) + entry("b", 4, 85) +
                             entry(std::string("c\0tail", 6), 2, 89) + entry("a", 1, 91) +
                             entry("d", 5, 91) + entry("dir", 4, 40) + "0123456789";
    ASSERT_EQ(93u, file.size());
    const std::string index = mWork.file("bad.dc");
    ASSERT_TRUE(ovtest::writeFile(index, file));

    ovtest::ToolResult verified = dcpack({"verify", index});
    EXPECT_EQ(65, verified.exitCode);
    EXPECT_EQ("", verified.out);
    for (const char* problem :
         {"entries 0 \"a\" and 1 \"b\" overlap", "holds a zero byte; the reader cuts it there",
          "entry 3 \"a\": the name of entry 0 again",
          "entry 4 \"d\": bytes 91 to 96 lie outside the file of 93 bytes",
          "entry 5 \"dir\": its bytes start inside the directory"})
        EXPECT_NE(std::string::npos, verified.err.find(problem)) << problem << "\n" << verified.err;

    ASSERT_TRUE(ovtest::writeFile(index, dctest::header(0x8000)));
    EXPECT_EQ(65, dcpack({"verify", index}).exitCode);
    ASSERT_TRUE(
        ovtest::writeFile(index, dctest::header(3) + entry("a", 0, 0) + std::string(1, '\0')));
    ovtest::ToolResult cut = dcpack({"verify", index});
    EXPECT_EQ(65, cut.exitCode);
    EXPECT_NE(std::string::npos, cut.err.find("the directory ends after 1 of 3 entries"))
        << cut.err;
}

TEST_F(Dcpack, ExtractingEverythingNeverWritesOutsideTheFolder) {
    const std::string index = mWork.file("hostile.dc");
    ASSERT_TRUE(ovtest::writeFile(
        index,
        dctest::index({{"../escaped", "x"}, {"sub/file", "y"}, {"..", "z"}, {"fine", "ok"}})));
    ovtest::ToolResult all = dcpack({"extract", index, "--all", mWork.file("out")});
    EXPECT_EQ(65, all.exitCode);
    EXPECT_NE(std::string::npos, all.err.find("\"../escaped\" is no file name")) << all.err;
    EXPECT_EQ(std::vector<std::string>{"fine"}, listing(mWork.file("out")));
    EXPECT_FALSE(ovtest::fileExists(mWork.file("escaped")));
}

} // namespace
