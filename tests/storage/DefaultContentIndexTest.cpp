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
#include <regex>
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
    const std::regex line("\\{3\\} NR_DefaultContentMgr\\.cpp:[0-9]+\\t(.*)\\n");
    std::vector<std::string> messages;
    for (std::sregex_iterator it(captured.begin(), captured.end(), line), end; it != end; ++it)
        messages.push_back((*it)[1]);
    EXPECT_EQ(std::vector<std::string>{message}, messages) << captured;
}

class DefaultContentIndexTest : public ::testing::Test {
protected:
    // Writes BYTES to a fresh index file and reads it.
    DefaultContentIndex load(const std::string& bytes) {
        EXPECT_TRUE(ovtest::writeFile(path(), bytes));
        return DefaultContentIndex(path());
    }

    // Every entry of the index read from BYTES as "name=bytes" in name order, "<none>" for the
    // bytes of an entry that delivers nothing.
    std::string contents(const std::string& bytes) {
        DefaultContentIndex index = load(bytes);
        std::string text;
        for (const auto& entry : index.getItems()) {
            std::string delivered = "<none>";
            DefaultContentIndex::readResource(index.getPath(), entry.second, &delivered);
            text += (text.empty() ? "" : " ") + entry.first + "=" + delivered;
        }
        return text;
    }

    std::string path() const { return mDir.file("dynport.dc"); }

    ovtest::TempDir mDir;
};

TEST_F(DefaultContentIndexTest, DirectoriesAndTheBytesTheyDeliver) {
    const std::string one = entry("a", 1, 0);
    // 142 directory bytes and 4 resource bytes: 146 in all.
    const std::string outside =
        header(7) + entry("whole", 4, 142) + entry("short", 5, 142) + entry("past", 1, 146) +
        entry("negative length", 0xFFFFFFFF, 142) + entry("negative offset", 1, 0x80000000) +
        entry("near 2^31", 0x7FFFFFFF, 0) + entry("sum wraps", 0x7FFFFFF0, 0x7FFFFFF0) + "data";
    const struct {
        const char* rule;
        std::string file;
        std::string contents;
    } cases[] = {
        {"three bytes at offset 24",
         std::string("dc\0\0\0\0\0\0\0\x01", 10) + be16(4) + "logo" + be32(3) + be32(24) +
             std::string("\x07\x00\x09", 3),
         std::string("logo=\x07\x00\x09", 8)},
        // Offsets still count from the start of the file, blank line included.
        {"white space before the magic", "\n \t\n" + header(1) + entry("a", 2, 25) + "hi", "a=hi"},
        {"count 1", header(1) + one, "a=d"},
        {"count 0", header(0) + one, ""},
        {"negative count", header(0x8001) + one, ""},
        {"count -1", header(0xFFFF) + one, ""},
        {"names end at their first zero byte",
         header(2) + entry(std::string("ab\0c", 4), 1, 0) + entry(std::string("\0x", 2), 1, 1),
         "=c ab=d"},
        {"of two entries with one name the later counts",
         header(3) + entry("x", 3, 47) + entry("y", 1, 47) +
             entry(std::string("x\0old", 5), 2, 50) + "abcde",
         "x=de y=a"},
        // The resource byte after the first entry is read as the start of a second one, which
        // ends with the file.
        {"a count far above the entries", header(32767) + entry("a", 1, 21) + "Z", "a=Z"},
        {"an entry cut short", header(2) + entry("a", 0, 0) + be16(5) + "bc", "a="},
        {"bytes outside the file", outside,
         "near 2^31=<none> negative length=<none> negative offset=<none> past=<none> "
         "short=<none> sum wraps=<none> whole=data"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.contents, contents(c.file)) << c.rule;

    // An entry may end exactly at the end of the file, and an empty one may start there.
    DefaultContentIndexItem edge;
    edge.mOffset = 146;
    std::string bytes = "<none>";
    EXPECT_TRUE(DefaultContentIndex::readResource(path(), edge, &bytes));
    EXPECT_EQ("", bytes);
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
