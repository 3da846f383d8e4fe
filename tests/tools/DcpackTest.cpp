// dcpack run as a content integrator runs it: folders packed and unpacked again byte for byte,
// the checks of verify, and errors that name the file and leave existing files whole.
#include "ToolCheck.h"

#include "storage/DefaultContentBytes.h"
#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using dctest::entry;
using tooltest::exits;

ovtest::ToolResult dcpack(const std::vector<std::string>& args,
                          const ovtest::ToolOptions& options = ovtest::ToolOptions()) {
    return ovtest::runTool(OVTOOL_DCPACK, args, options);
}

// Names of the files in FOLDER, of any kind.
std::vector<std::string> listing(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Every test starts from a resources folder "res" and the name of an index beside it.
class Dcpack : public ::testing::Test {
protected:
    void SetUp() override {
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

    ovtest::ToolResult create(const ovtest::ToolOptions& options = ovtest::ToolOptions()) {
        return dcpack({"create", mIndex, mWork.file("res")}, options);
    }

    ovtest::TempDir mWork;
    ovtest::TempDir mOutput;
    const std::string mIndex = mWork.file("dynport.dc");
    std::vector<std::pair<std::string, std::string>> mFiles;
};

TEST_F(Dcpack, AFolderComesBackByteForByte) {
    // The library's diagnostics stay off the terminal.
    tooltest::expectRuns(OVTOOL_DCPACK, {},
                         {{{"create", mIndex, mWork.file("res")}, 0, "", ""},
                          {{"list", mIndex},
                           0,
                           "        98       3000  default-channel-icon.png\n"
                           "      3098          0  empty\n"
                           "      3098         19  with space.txt\n"
                           "      3117          5  zeros\n",
                           ""},
                          {{"verify", mIndex}, 0, mIndex + ": 4 entries, ok\n", ""},
                          {{"extract", mIndex, "dc:zeros"}, 0, std::string(5, '\0'), ""}});

    ASSERT_TRUE(exits(dcpack({"extract", mIndex, "--all", mWork.file("again")}), 0));
    EXPECT_EQ(listing(mWork.file("res")), listing(mWork.file("again")));
    for (const auto& file : mFiles)
        EXPECT_EQ(file.second, ovtest::readFile(mWork.file("again/" + file.first)));

    // An index inside its own folder is not packed again.
    const std::string inside = mWork.file("res/dynport.dc");
    ASSERT_EQ(0, dcpack({"create", inside, mWork.file("res")}).exitCode);
    const std::string first = ovtest::readFile(inside);
    ASSERT_EQ(0, dcpack({"create", inside, mWork.file("res")}).exitCode);
    EXPECT_EQ(first, ovtest::readFile(inside));
}

TEST_F(Dcpack, ErrorsNameTheFileAndLeaveFilesWhole) {
    ASSERT_EQ(0, create().exitCode);
    const std::string good = ovtest::readFile(mIndex);

    EXPECT_TRUE(exits(dcpack({"list", mWork.file("none.dc")}), 66,
                      mWork.file("none.dc") + ": cannot read"));
    const std::string noFolder = mWork.file("no/such/dir/x.dc");
    EXPECT_TRUE(exits(dcpack({"create", noFolder, mWork.file("res")}), 73, noFolder));

    // A full disk, or a folder inside the resources, stops the packing; the old index stays
    // as it was and no temporary file is left behind.
    ASSERT_TRUE(ovtest::writeFile(mWork.file("res/more"), std::string(20000, 'm')));
    ovtest::ToolOptions full;
    full.fileSizeLimit = 4096;
    EXPECT_TRUE(exits(create(full), 74, mIndex + ": cannot write"));
    ASSERT_TRUE(fs::create_directory(mWork.file("res/nested")));
    EXPECT_TRUE(exits(create(), 65, mWork.file("res/nested")));
    EXPECT_EQ(good, ovtest::readFile(mIndex));
    EXPECT_EQ((std::vector<std::string>{"dynport.dc", "res"}), listing(mWork.path()));

    EXPECT_TRUE(exits(dcpack({"extract", mIndex, "dc:nothing", mOutput.file("nothing")}), 1,
                      "\"nothing\""));
    EXPECT_FALSE(ovtest::fileExists(mOutput.file("nothing")));

    ASSERT_TRUE(ovtest::writeFile(mWork.file("text.dc"), "plain text"));
    EXPECT_TRUE(exits(dcpack({"extract", mWork.file("text.dc"), "x"}), 65,
                      mWork.file("text.dc") + ": not an index"));
}

// An output named through a link is written to the link's target, which is replaced whole and
// keeps its mode; a FIFO or a device is written directly, never replaced.
TEST_F(Dcpack, OutputsAreWrittenThroughWhatTheUserNamed) {
    ASSERT_EQ(0, create().exitCode);
    ASSERT_EQ(0, ::chmod(mIndex.c_str(), 0640));
    ASSERT_EQ(0, create().exitCode);
    struct stat st;
    ASSERT_EQ(0, ::stat(mIndex.c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777) << "an existing index keeps its mode";

    ASSERT_TRUE(ovtest::writeFile(mOutput.file("target"), "old"));
    fs::create_symlink(mOutput.file("target"), mOutput.file("link"));
    fs::create_symlink("/dev/null", mOutput.file("null"));
    ASSERT_EQ(0, ::mkfifo(mOutput.file("fifo").c_str(), 0644));
    std::string fromFifo;
    std::thread reader([&] { fromFifo = ovtest::readFile(mOutput.file("fifo")); });
    for (const char* out : {"link", "null", "fifo"})
        EXPECT_EQ(0, dcpack({"extract", mIndex, "with space.txt", mOutput.file(out)}).exitCode)
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
    ASSERT_TRUE(ovtest::writeFile(mIndex, dctest::header(3) + entry("a", 2, 32) +
                                              entry("b", 1, 34) + std::string("\0\0AB", 4)));
    ovtest::ToolResult list = dcpack({"list", mIndex});
    EXPECT_EQ(0, list.exitCode);
    EXPECT_EQ("        32          2  a\n        34          1  b\n", list.out);
    EXPECT_EQ("dcpack: warning: " + mIndex +
                  ": the directory ends after 2 of 3 entries; the phone serves the entries read "
                  "whole\n",
              list.err);

    ASSERT_TRUE(ovtest::writeFile(mIndex, dctest::header(-2) + entry("a", 1, 10)));
    ovtest::ToolResult negative = dcpack({"list", mIndex});
    EXPECT_TRUE(exits(negative, 65, "negative entry count -2"));
    EXPECT_EQ("", negative.out);
}

// Links out of the folder are packed only when asked; names that can be no file are flagged.
TEST_F(Dcpack, CreateStaysInItsFolderAndVerifyFlagsNamesThatAreNoFiles) {
    ASSERT_TRUE(ovtest::writeFile(mOutput.file("secret"), "outside"));
    fs::create_symlink(mOutput.file("secret"), mWork.file("res/outside"));
    fs::create_symlink("zeros", mWork.file("res/inside"));
    EXPECT_TRUE(exits(create(), 65, mWork.file("res/outside") + ": a link to a file outside"));
    EXPECT_FALSE(ovtest::fileExists(mIndex));
    ASSERT_EQ(0, dcpack({"create", "--follow-links", mIndex, mWork.file("res")}).exitCode);
    EXPECT_EQ("outside", dcpack({"extract", mIndex, "outside"}).out);

    ASSERT_TRUE(ovtest::writeFile(
        mIndex, dctest::index({{"../up", "x"}, {std::string(300, 'n'), "y"}, {"icons/ok", "z"}})));
    ovtest::ToolResult verified = dcpack({"verify", mIndex});
    EXPECT_TRUE(exits(verified, 65, "\"../up\": no file name"));
    EXPECT_TRUE(exits(verified, 65, "nnn\": no file name"));
    EXPECT_FALSE(tooltest::contains(verified.err, "icons/ok")) << verified.err;
}

TEST_F(Dcpack, VerifyTellsEveryProblemTheReaderWouldHide) {
    // Directory: 10 + 11 + 11 + 16 + 11 + 11 + 13 = 83 bytes, then 10 resource bytes.
    const std::string file = dctest::header(6) + entry("a", 4, 83) + entry("b", 4, 85) +
                             entry(std::string("c\0tail", 6), 2, 89) + entry("a", 1, 91) +
                             entry("d", 5, 91) + entry("dir", 4, 40) + "0123456789";
    ASSERT_EQ(93u, file.size());
    ASSERT_TRUE(ovtest::writeFile(mIndex, file));
    ovtest::ToolResult verified = dcpack({"verify", mIndex});
    EXPECT_EQ("", verified.out);
    for (const char* problem :
         {"entries 0 \"a\" and 1 \"b\" overlap", "holds a zero byte; the reader cuts it there",
          "entry 3 \"a\": the name of entry 0 again",
          "entry 4 \"d\": bytes 91 to 96 lie outside the file of 93 bytes",
          "entry 5 \"dir\": its bytes start inside the directory"})
        EXPECT_TRUE(exits(verified, 65, problem));

    ASSERT_TRUE(ovtest::writeFile(mIndex, dctest::header(0x8000)));
    EXPECT_EQ(65, dcpack({"verify", mIndex}).exitCode);
    ASSERT_TRUE(
        ovtest::writeFile(mIndex, dctest::header(3) + entry("a", 0, 0) + std::string(1, '\0')));
    EXPECT_TRUE(exits(dcpack({"verify", mIndex}), 65, "the directory ends after 1 of 3 entries"));
}

TEST_F(Dcpack, ExtractingEverythingNeverWritesOutsideTheFolder) {
    ASSERT_TRUE(ovtest::writeFile(
        mIndex,
        dctest::index({{"../escaped", "x"}, {"sub/file", "y"}, {"..", "z"}, {"fine", "ok"}})));
    EXPECT_TRUE(exits(dcpack({"extract", mIndex, "--all", mWork.file("out")}), 65,
                      "\"../escaped\" is no file name"));
    EXPECT_EQ((std::vector<std::string>{"fine", "sub"}), listing(mWork.file("out")));
    EXPECT_EQ("y", ovtest::readFile(mWork.file("out/sub/file"))) << "names with folders are served";
    EXPECT_FALSE(ovtest::fileExists(mWork.file("escaped")));
    // Nor through a link that is already in the folder.
    fs::remove(mWork.file("out/fine"));
    fs::create_symlink(mWork.file("victim"), mWork.file("out/fine"));
    EXPECT_EQ(65, dcpack({"extract", mIndex, "--all", mWork.file("out")}).exitCode);
    EXPECT_FALSE(ovtest::fileExists(mWork.file("victim")));
}

} // namespace
