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
#include <sys/stat.h>
#include <thread>
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

// An output named through a link is written to the link's target, which is replaced whole and
// keeps its mode; a FIFO or a device is written directly, never replaced.
TEST_F(Dcpack, OutputsAreWrittenThroughWhatTheUserNamed) {
    makeResources();
    const std::string index = mWork.file("dynport.dc");
    ASSERT_EQ(0, dcpack({"create", index, mWork.file("res")}).exitCode);
    ASSERT_EQ(0, ::chmod(index.c_str(), 0640));
    ASSERT_EQ(0, dcpack({"create", index, mWork.file("res")}).exitCode);
    struct stat st;
    ASSERT_EQ(0, ::stat(index.c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777) << "an existing index keeps its mode";

    ASSERT_TRUE(ovtest::writeFile(mOutput.file("target"), "old"));
    fs::create_symlink(mOutput.file("target"), mOutput.file("link"));
    fs::create_symlink("/dev/null", mOutput.file("null"));
    ASSERT_EQ(0, ::mkfifo(mOutput.file("fifo").c_str(), 0644));
    std::string fromFifo;
    std::thread reader([&] { fromFifo = ovtest::readFile(mOutput.file("fifo")); });
    for (const char* out : {"link", "null", "fifo"})
        EXPECT_EQ(0, dcpack({"extract", index, "with space.txt", mOutput.file(out)}).exitCode)
            << out;
    reader.join();
    EXPECT_TRUE(fs::is_symlink(mOutput.file("link")));
    EXPECT_EQ("a name with a blank", ovtest::readFile(mOutput.file("target")));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_EQ("a name with a blank", fromFifo);
    EXPECT_TRUE(fs::is_fifo(mOutput.file("fifo")));
}

// list and extract read as the phone does: a directory cut short serves the entries read whole
// (with a warning); a negative count serves nothing, and list says so with a failure.
TEST_F(Dcpack, ListShowsWhatThePhoneServes) {
    using dctest::entry;
    const std::string index = mWork.file("cut.dc");
    ASSERT_TRUE(ovtest::writeFile(index, dctest::header(3) + entry("a", 2, 32) + entry("b", 1, 34) +
                                             std::string("\0\0AB", 4)));
    ovtest::ToolResult list = dcpack({"list", index});
    EXPECT_EQ(0, list.exitCode);
    EXPECT_EQ("        32          2  a\n        34          1  b\n", list.out);
    EXPECT_EQ("dcpack: warning: " + index +
                  ": the directory ends after 2 of 3 entries; the phone serves the entries read "
                  "whole\n",
              list.err);
    EXPECT_EQ("A", dcpack({"extract", index, "b"}).out);

    ASSERT_TRUE(ovtest::writeFile(index, dctest::header(-2) + entry("a", 1, 10)));
    ovtest::ToolResult negative = dcpack({"list", index});
    EXPECT_EQ(65, negative.exitCode);
    EXPECT_EQ("", negative.out);
    EXPECT_NE(std::string::npos, negative.err.find("negative entry count -2")) << negative.err;
}

// Links out of the folder are packed only when asked; names that can be no file are flagged.
TEST_F(Dcpack, CreateStaysInItsFolderAndVerifyFlagsNamesThatAreNoFiles) {
    makeResources();
    ASSERT_TRUE(ovtest::writeFile(mOutput.file("secret"), "outside"));
    fs::create_symlink(mOutput.file("secret"), mWork.file("res/outside"));
    fs::create_symlink("zeros", mWork.file("res/inside"));
    const std::string index = mWork.file("dynport.dc");
    ovtest::ToolResult refused = dcpack({"create", index, mWork.file("res")});
    EXPECT_EQ(65, refused.exitCode);
    EXPECT_NE(std::string::npos, refused.err.find(mWork.file("res/outside") + ": a link to a file "
                                                                              "outside"))
        << refused.err;
    EXPECT_FALSE(ovtest::fileExists(index));
    ASSERT_EQ(0, dcpack({"create", "--follow-links", index, mWork.file("res")}).exitCode);
    EXPECT_EQ("outside", dcpack({"extract", index, "outside"}).out);

    ASSERT_TRUE(ovtest::writeFile(
        index, dctest::index({{"../up", "x"}, {std::string(300, 'n'), "y"}, {"icons/ok", "z"}})));
    ovtest::ToolResult verified = dcpack({"verify", index});
    EXPECT_EQ(65, verified.exitCode);
    EXPECT_NE(std::string::npos, verified.err.find("\"../up\": no file name")) << verified.err;
    EXPECT_NE(std::string::npos, verified.err.find("nnn\": no file name")) << verified.err;
    EXPECT_EQ(std::string::npos, verified.err.find("icons/ok")) << verified.err;
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
    EXPECT_EQ((std::vector<std::string>{"fine", "sub"}), listing(mWork.file("out")));
    EXPECT_EQ("y", ovtest::readFile(mWork.file("out/sub/file"))) << "names with folders are served";
    EXPECT_FALSE(ovtest::fileExists(mWork.file("escaped")));
    // Nor through a link that is already in the folder.
    fs::remove(mWork.file("out/fine"));
    fs::create_symlink(mWork.file("victim"), mWork.file("out/fine"));
    EXPECT_EQ(65, dcpack({"extract", index, "--all", mWork.file("out")}).exitCode);
    EXPECT_FALSE(ovtest::fileExists(mWork.file("victim")));
}

} // namespace
