#include "types/UTF_8Util.h"

#include "support/ChunkedBuffer.h"
#include "types/MString.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <streambuf>
#include <vector>

using ovTypes::String;

namespace {

// Every line up to and including the first one with the end flag set.
std::vector<String> readAll(std::istream& in, bool* endedProperly = nullptr) {
    UTF_8Util::LineReader reader(in);
    std::vector<String> lines;
    bool end = false;
    for (int guard = 0; guard < 100000; ++guard) {
        String line = reader.readLine(end);
        if (end) {
            if (endedProperly)
                *endedProperly = line.empty();
            return lines;
        }
        lines.push_back(line);
    }
    ADD_FAILURE() << "reader never reported the end";
    return lines;
}

std::vector<String> readAll(const std::string& bytes) {
    std::istringstream in(bytes);
    return readAll(in);
}

std::string written(const String& text) {
    std::ostringstream out;
    UTF_8Util::LineWriter writer(out);
    writer.write(text);
    return out.str();
}

TEST(LineReader, EndProtocol) {
    std::istringstream in("a\nb");
    UTF_8Util::LineReader reader(in);
    bool end = true;
    EXPECT_EQ(reader.readLine(end), L"a");
    EXPECT_FALSE(end);
    EXPECT_EQ(reader.readLine(end), L"b"); // meets the end: still clear
    EXPECT_FALSE(end);
    EXPECT_EQ(reader.readLine(end), L"");
    EXPECT_TRUE(end);
    EXPECT_EQ(reader.readLine(end), L"");
    EXPECT_TRUE(end);

    // A final line feed leaves one empty line before the end.
    EXPECT_EQ(readAll("a\n"), (std::vector<String>{L"a", L""}));
    EXPECT_EQ(readAll(""), (std::vector<String>{L""}));
}

TEST(LineReader, StartSkipsWhiteSpaceAndByteOrderMark) {
    EXPECT_EQ(readAll("\xEF\xBB\xBFk=v\n")[0], L"k=v");
    EXPECT_EQ(readAll("\n\n  \tk=v\nx")[0], L"k=v");
    // The two bytes after EF are dropped unchecked.
    EXPECT_EQ(readAll("\xEF"
                      "abk=v")[0],
              L"k=v");
    // Later blank lines are kept.
    EXPECT_EQ(readAll("a\n\nb"), (std::vector<String>{L"a", L"", L"b"}));
}

TEST(LineReader, CarriageReturnsDroppedAnywhere) {
    EXPECT_EQ(readAll("a\rb\r\nc\r"), (std::vector<String>{L"ab", L"c"}));
}

TEST(LineReader, DecodesMultiByteAcrossBufferBoundaries) {
    std::string text = "caf\xC3\xA9\r\n\xE4\xB8\xAD\xE6\x96\x87\n\xF0\x9F\x98\x80 end";
    std::vector<String> expected{L"caf\u00E9", L"\u4E2D\u6587", L"\U0001F600 end"};
    EXPECT_EQ(readAll(text), expected);
    ovtest::ChunkedBuffer trickle(text, 1);
    std::istream in(&trickle);
    bool ended = false;
    EXPECT_EQ(readAll(in, &ended), expected);
    EXPECT_TRUE(ended);
}

TEST(LineReader, AcceptsAnyBytes) {
    // Stray continuation bytes are skipped, NUL is kept, a sequence the end cuts short gives
    // each of its bytes.
    std::vector<String> lines = readAll(std::string("a\x80\xBF"
                                                    "b\0c\n\xE2\x82",
                                                    9));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], String(std::wstring(L"ab\0c", 4)));
    EXPECT_EQ(lines[1], L"\u00E2\u0082");

    // Lines end at the line feed code point: an overlong one ends a line. A byte below 0x80
    // is never a continuation byte: a sequence it cuts short gives each of its bytes (bytes of
    // 0x80 and above inside it are taken unchecked), and it is read afresh.
    const std::string tricky = "a\xC0\x8A"
                               "b\n"
                               "c\xE2\n\x41"
                               "d\n"
                               "\xF0\xC3\xA9x\xFF\xFE\n"
                               "e\xC3\xA9";
    const std::vector<String> expected{
        L"a", L"b", L"c\u00E2", L"Ad", L"\u00F0\u00C3\u00A9x\u00FF\u00FE", L"e\u00E9"};
    EXPECT_EQ(readAll(tricky), expected);
    ovtest::ChunkedBuffer trickle(tricky, 1);
    std::istream trickleIn(&trickle);
    EXPECT_EQ(readAll(trickleIn), expected);
    std::istringstream bytes(tricky);
    UTF_8Util::LineReader reader(bytes);
    std::vector<int> read;
    for (int cp; (cp = reader.read()) != -1;)
        read.push_back(cp);
    EXPECT_EQ(std::vector<int>({'a', '\n', 'b', '\n', 'c', 0xE2, '\n', 'A', 'd', '\n', 0xF0, 0xC3,
                                0xA9, 'x', 0xFF, 0xFE, '\n', 'e', 0xE9}),
              read);

    std::string huge(3 << 20, 'x');
    huge[1000] = '\xC3';
    huge[1001] = '\xA9';
    std::vector<String> big = readAll(huge);
    ASSERT_EQ(big.size(), 1u);
    EXPECT_EQ(big[0].size(), huge.size() - 1);
    EXPECT_EQ(big[0][1000], L'\u00E9');
}

// Lines are the whole text decoded at once, split at line feeds (overlong ones included),
// without carriage returns: the reader's fast paths over the buffer (ASCII words, inline two-
// and three-byte units) must give exactly that, wherever the buffer's ends fall.
TEST(LineReader, LinesAreTheWholeTextDecodedAndSplit) {
    const char* const pieces[] = {"a",
                                  "plain ascii text",
                                  "\r",
                                  "\n",
                                  "\r\n",
                                  "\xC3\xA9",
                                  "\xD0\x96",
                                  "\xE4\xB8\xAD",
                                  "\xF0\x9F\x98\x80",
                                  "\xC0\x8A",
                                  "\xC0\x8D",
                                  "\xE0\x80\x8A",
                                  "\xC1\xBF",
                                  "\x80",
                                  "\xBF",
                                  "\xC3",
                                  "\xE2\x82",
                                  "\xF0\x9F",
                                  "\xFF\xFE",
                                  "\xFC\x80\x80\x80\x80\x81"};
    std::mt19937 random(20);
    for (int round = 0; round < 400; ++round) {
        std::string bytes = "x"; // nothing for the constructor to skip
        for (int n = random() % 40; n > 0; --n)
            bytes += pieces[random() % (sizeof pieces / sizeof pieces[0])];
        std::vector<String> expected(1);
        for (wchar_t c : MString(bytes).toWide()) {
            if (c == L'\n')
                expected.emplace_back();
            else if (c != L'\r')
                expected.back().push_back(c);
        }
        EXPECT_EQ(readAll(bytes), expected) << round;
        ovtest::ChunkedBuffer chunks(bytes, 1 + random() % 12);
        std::istream in(&chunks);
        EXPECT_EQ(readAll(in), expected) << round;
    }
}

TEST(LineReader, ReadGivesCodePointsThenMinusOne) {
    std::istringstream in("x\xE2\x82\xAC");
    UTF_8Util::LineReader reader(in);
    EXPECT_EQ(reader.read(), 'x');
    EXPECT_EQ(reader.read(), 0x20AC);
    EXPECT_EQ(reader.read(), -1);
    EXPECT_EQ(reader.read(), -1);

    std::istringstream failed("abc");
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(UTF_8Util::LineReader(failed).read(), -1);
}

TEST(LineWriter, EncodesAndDropsBeyondUnicode) {
    EXPECT_EQ(written(L"\u20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(written(std::wstring(1, static_cast<wchar_t>(0x110000))), "");
    EXPECT_EQ(written(std::wstring(1, static_cast<wchar_t>(-1))), "");
    EXPECT_EQ(written(L"a\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"),
              "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");

    std::ostringstream out;
    std::unique_ptr<UTF_8Util::LineWriter> writer = UTF_8Util::getWriter(out);
    writer->write(L'\u00E9');
    writer->writeLine();
    writer->flush();
    EXPECT_EQ(out.str(), "\xC3\xA9\n");
}

TEST(LineWriter, LongTextRoundTripsThroughTheReader) {
    // Longer than the writer's encoding block, with sequences across its edge.
    String text;
    for (int i = 0; i < 3000; ++i)
        text += (i % 3 == 0) ? L'\u4E2D' : (i % 3 == 1 ? L'a' : L'\U0001F600');
    std::stringstream io;
    UTF_8Util::LineWriter writer(io);
    writer.write(text);
    writer.writeLine();
    std::unique_ptr<UTF_8Util::LineReader> reader = UTF_8Util::getReader(io);
    bool end = false;
    EXPECT_EQ(reader->readLine(end), text);
    EXPECT_FALSE(end);
}

} // namespace
