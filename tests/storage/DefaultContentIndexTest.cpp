// The index file as read and written: the layout byte by byte, the reader's quirks (white space
// before the magic, names cut at a zero byte, the later duplicate kept), and hostile files
// that must deliver nothing without costing more memory than the file itself.
#include "DefaultContentBytes.h"

#include "storage/NR_DefaultContentMgr.h"
#include "support/Files.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <new>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using dctest::be16;
using dctest::be32;
using dctest::entry;
using dctest::header;

// The captured text holds exactly one line of the index reader, the level-3 line of MESSAGE.
// Other threads (the timer thread) may write lines of their own meanwhile.
void expectReaderLine(const std::string& captured, const std::string& message) {
    const std::string head = "{3} NR_DefaultContentMgr.cpp:";
    std::vector<std::string> lines;
    for (size_t at = captured.find(head); at != std::string::npos; at = captured.find(head, at + 1))
        lines.push_back(captured.substr(at, captured.find('\n', at) + 1 - at));
    ASSERT_EQ(1u, lines.size()) << captured;
    const size_t tab = lines[0].find('\t');
    ASSERT_NE(std::string::npos, tab) << captured;
    const std::string number = lines[0].substr(head.size(), tab - head.size());
    EXPECT_FALSE(number.empty()) << captured;
    EXPECT_EQ(std::string::npos, number.find_first_not_of("0123456789")) << captured;
    EXPECT_EQ(message + "\n", lines[0].substr(tab + 1));
}

class DefaultContentIndexTest : public ::testing::Test {
protected:
    // Writes BYTES to a fresh index file and reads it.
    DefaultContentIndex load(const std::string& bytes) {
        EXPECT_TRUE(ovtest::writeFile(path(), bytes));
        return DefaultContentIndex(path());
    }

    // The resource NAME of the index file, or "<none>" when it is not delivered.
    std::string read(const DefaultContentIndex& index, const std::string& name) {
        const DefaultContentIndexItem* item = index.find(name);
        if (!item)
            return "<absent>";
        std::string bytes = "<none>";
        DefaultContentIndex::readResource(index.getPath(), *item, &bytes);
        return bytes;
    }

    std::string path() const { return mDir.file("dynport.dc"); }

    ovtest::TempDir mDir;
};

TEST_F(DefaultContentIndexTest, ThreeBytesAtOffset24) {
    const std::string file = std::string("dc\0\0\0\0\0\0\0\x01", 10) + be16(4) + "logo" + be32(3) +
                             be32(24) + std::string("\x07\x00\x09", 3);
    ASSERT_EQ(27u, file.size());
    DefaultContentIndex index = load(file);

    ASSERT_EQ(1u, index.getItems().size());
    const DefaultContentIndexItem* logo = index.find("logo");
    ASSERT_NE(nullptr, logo);
    EXPECT_EQ("logo", logo->mName);
    EXPECT_EQ(3, logo->mLength);
    EXPECT_EQ(24, logo->mOffset);
    EXPECT_EQ(std::string("\x07\x00\x09", 3), read(index, "logo"));
    EXPECT_EQ(path(), index.getPath());
}

TEST_F(DefaultContentIndexTest, WhiteSpaceBeforeTheMagicIsSkipped) {
    // Offsets still count from the start of the file, blank line included.
    const std::string lead = "\n \t\n";
    DefaultContentIndex index = load(lead + header(1) + entry("a", 2, 25) + "hi");
    EXPECT_EQ("hi", read(index, "a"));
}

TEST_F(DefaultContentIndexTest, UnreadableOrWrongFilesGiveAnEmptyIndexAndOneLine) {
    const std::pair<const char*, std::string> cases[] = {
        {"Couldn't open  def content", ""}, // no file
        {"magic error(d,C)", "dC" + be16(0) + be32(0) + be16(1) + entry("a", 0, 0)},
        {"magic error(?,?)", ""}};
    for (size_t i = 0; i < 3; ++i) {
        ovtest::StderrCapture capture;
        DefaultContentIndex index =
            i == 0 ? DefaultContentIndex(mDir.file("missing.dc")) : load(cases[i].second);
        EXPECT_TRUE(index.getItems().empty());
        expectReaderLine(capture.text(), cases[i].first);
    }
}

TEST_F(DefaultContentIndexTest, ZeroAndNegativeCountsGiveAnEmptyIndex) {
    const std::string one = entry("a", 1, 0);
    EXPECT_TRUE(load(header(0) + one).getItems().empty());
    EXPECT_TRUE(load(header(0x8001) + one).getItems().empty());
    EXPECT_TRUE(load(header(0xFFFF) + one).getItems().empty());
    EXPECT_EQ(1u, load(header(1) + one).getItems().size());
}

TEST_F(DefaultContentIndexTest, NamesEndAtTheirFirstZeroByte) {
    DefaultContentIndex index =
        load(header(2) + entry(std::string("ab\0c", 4), 1, 0) + entry(std::string("\0x", 2), 1, 1));
    EXPECT_NE(nullptr, index.find("ab"));
    EXPECT_EQ(nullptr, index.find(std::string("ab\0c", 4)));
    EXPECT_NE(nullptr, index.find(""));
    EXPECT_EQ(2u, index.getItems().size());
}

TEST_F(DefaultContentIndexTest, OfTwoEntriesWithOneNameTheLaterCounts) {
    const std::string directory =
        header(3) + entry("x", 3, 47) + entry("y", 1, 47) + entry(std::string("x\0old", 5), 2, 50);
    ASSERT_EQ(47u, directory.size());
    DefaultContentIndex index = load(directory + "abcde");
    EXPECT_EQ(2u, index.getItems().size());
    EXPECT_EQ("de", read(index, "x"));
    EXPECT_EQ("a", read(index, "y"));
}

TEST_F(DefaultContentIndexTest, BytesOutsideTheFileAreNeverDelivered) {
    // 142 directory bytes and 4 resource bytes: 146 in all.
    const uint32_t data = 142;
    const std::string directory =
        header(7) + entry("whole", 4, data) + entry("short", 5, data) + entry("past", 1, data + 4) +
        entry("negative length", 0xFFFFFFFF, data) + entry("negative offset", 1, 0x80000000) +
        entry("near 2^31", 0x7FFFFFFF, 0) + entry("sum wraps", 0x7FFFFFF0, 0x7FFFFFF0);
    ASSERT_EQ(data, directory.size());
    DefaultContentIndex index = load(directory + "data");

    EXPECT_EQ("data", read(index, "whole"));
    for (const char* name :
         {"short", "past", "negative length", "negative offset", "near 2^31", "sum wraps"})
        EXPECT_EQ("<none>", read(index, name)) << name;

    // An entry may end exactly at the end of the file, and an empty one may start there.
    DefaultContentIndexItem edge;
    EXPECT_EQ("", edge.mName);
    EXPECT_EQ(0, edge.mLength);
    EXPECT_EQ(0, edge.mOffset);
    edge.mOffset = 146;
    std::string bytes = "<none>";
    EXPECT_TRUE(DefaultContentIndex::readResource(path(), edge, &bytes));
    EXPECT_EQ("", bytes);
}

TEST_F(DefaultContentIndexTest, ADirectoryCutShortKeepsOnlyItsWholeEntries) {
    // The count promises far more entries than the file holds; the resource byte after the
    // first entry is read as the start of a second one, which ends with the file.
    DefaultContentIndex index = load(header(32767) + entry("a", 1, 21) + "Z");
    ASSERT_EQ(1u, index.getItems().size());
    EXPECT_EQ("Z", read(index, "a"));

    DefaultContentIndex cut = load(header(2) + entry("a", 0, 0) + be16(5) + "bc");
    EXPECT_EQ(1u, cut.getItems().size());
    EXPECT_EQ(nullptr, cut.find("bc"));
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OVBASE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OVBASE_SANITIZED 1
#endif
#endif

// Lowers the process's address-space limit to what it uses now and a margin, for as long as
// it lives, so that an allocation of a hostile length fails instead of passing unseen.
class AddressSpaceLimit {
public:
    explicit AddressSpaceLimit(size_t margin) {
        getrlimit(RLIMIT_AS, &mSaved);
        std::ifstream statm("/proc/self/statm");
        size_t pages = 0;
        statm >> pages;
        rlimit lowered = mSaved;
        lowered.rlim_cur = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + margin;
        mActive = pages > 0 && setrlimit(RLIMIT_AS, &lowered) == 0;
    }
    ~AddressSpaceLimit() { setrlimit(RLIMIT_AS, &mSaved); }
    bool active() const { return mActive; }

private:
    rlimit mSaved;
    bool mActive;
};

TEST_F(DefaultContentIndexTest, HostileLengthsCostNoMoreMemoryThanTheFile) {
#ifdef OVBASE_SANITIZED
    GTEST_SKIP() << "the sanitizers reserve address space of their own";
#else
    DefaultContentIndex index = load(header(2) + entry("huge", 0x7FFFFFFF, 0) +
                                     entry("wraps", 0x7FFFFFFF, 0x7FFFFFFF) + "tiny");
    const std::string path = index.getPath();
    bool delivered = true;
    {
        AddressSpaceLimit limit(256u << 20);
        ASSERT_TRUE(limit.active());
        try {
            std::string bytes;
            delivered = DefaultContentIndex::readResource(path, *index.find("huge"), &bytes) ||
                        DefaultContentIndex::readResource(path, *index.find("wraps"), &bytes);
            // Every index a count can promise, read under the same limit.
            DefaultContentIndex promised = load(header(32767) + entry("a", 1, 0));
            EXPECT_EQ(1u, promised.getItems().size());
        } catch (const std::bad_alloc&) {
            ADD_FAILURE() << "a hostile length was allocated";
        }
    }
    EXPECT_FALSE(delivered);
#endif
}

TEST(DefaultContentNumbersTest, BigEndianWithSignAndZerosPastTheEnd) {
    std::istringstream in(std::string("\x01\x02\xFF\xFE\x80\x00\x00\x00\x12\x34\x56\x78\xAB", 13));
    EXPECT_EQ(0x0102, readShort(in));
    EXPECT_EQ(-2, readShort(in));
    EXPECT_EQ(INT_MIN, readInt(in));
    EXPECT_EQ(0x12345678, readInt(in));
    EXPECT_TRUE(in.good());
    EXPECT_EQ(static_cast<int>(0xAB000000), readInt(in)) << "missing bytes read as 0";
    EXPECT_TRUE(in.fail());

    std::ostringstream out;
    writeShort(out, 0xBEEF);
    writeInt(out, -2);
    EXPECT_EQ(std::string("\xBE\xEF\xFF\xFF\xFF\xFE", 6), out.str());
}

TEST(DefaultContentWriterTest, WritesTheLayoutTheReaderReads) {
    const DefaultContentResources resources = {
        {"zeta.png", std::string("\x89PNG\0\x01", 6)}, {"alpha", ""}, {"a b", "text"}};
    std::ostringstream out;
    ASSERT_TRUE(writeDefaultContentIndex(out, resources));
    // The order given is kept, in the directory and in the bytes.
    EXPECT_EQ(dctest::index(
                  {{"zeta.png", std::string("\x89PNG\0\x01", 6)}, {"alpha", ""}, {"a b", "text"}}),
              out.str());
}

DefaultContentResources manyResources(int count) {
    DefaultContentResources resources;
    for (int i = 0; i < count; ++i)
        resources.emplace_back("r" + std::to_string(i), "");
    return resources;
}

TEST(DefaultContentWriterTest, RefusesWhatTheReaderCouldNotTellApart) {
    const std::vector<DefaultContentResources> refused = {
        {{"", "x"}},
        {{std::string("a\0b", 3), "x"}},
        {{"same", "1"}, {"other", "2"}, {"same", "3"}},
        {{std::string(65536, 'n'), "x"}},
        manyResources(32768),
    };
    for (size_t i = 0; i < refused.size(); ++i) {
        std::ostringstream out;
        EXPECT_FALSE(writeDefaultContentIndex(out, refused[i])) << i;
        EXPECT_TRUE(out.str().empty()) << i;
    }
    std::ostringstream longest;
    EXPECT_TRUE(writeDefaultContentIndex(longest, {{std::string(65535, 'n'), "x"}}));
    std::ostringstream most;
    EXPECT_TRUE(writeDefaultContentIndex(most, manyResources(32767)));
}

} // namespace
