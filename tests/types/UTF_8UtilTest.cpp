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

TEST(LineReader, EndProtocolAndCodePoints) {
    std::istringstream in("a\nb");
    UTF_8Util::LineReader reader(in);
    // Each line, then "$" where the end flag is set: the line that meets the end has it clear.
    String seen;
    for (int i = 0; i < 4; ++i) {
        bool end = i % 2 == 0;
        String line = reader.readLine(end);
        seen += line + (end ? L"$|" : L"|");
    }
    EXPECT_EQ(seen, L"a|b|$|$|");

    // read() gives code points, then -1 for good, as it does on a stream that has failed.
    std::istringstream text("x\xE2\x82\xAC");
    UTF_8Util::LineReader points(text);
    for (int expected : {int('x'), 0x20AC, -1, -1})
        EXPECT_EQ(points.read(), expected);
    std::istringstream failed("abc");
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(UTF_8Util::LineReader(failed).read(), -1);
}

// Lines as read whole and a byte at a time, joined by '|'.
TEST(LineReader, LinesOfAnyBytes) {
    const struct {
        std::string bytes;
        String lines;
    } rows[] = {
        {"a\n", L"a|"}, // a final line feed leaves one empty line before the end
        {"", L""},
        // The start skips white space and a byte-order mark, whose two bytes after EF are
        // dropped unchecked; later blank lines are kept.
        {"\xEF\xBB\xBFk=v\n", L"k=v|"},
        {"\n\n  \tk=v\nx", L"k=v|x"},
        {"\xEF"
         "abk=v",
         L"k=v"},
        {"a\n\nb", L"a||b"},
        {"a\rb\r\nc\r", L"ab|c"}, // carriage returns are dropped anywhere
        {"caf\xC3\xA9\r\n\xE4\xB8\xAD\xE6\x96\x87\n\xF0\x9F\x98\x80 end",
         L"caf\u00E9|\u4E2D\u6587|\U0001F600 end"},
        // Stray continuation bytes are skipped, NUL is kept, a sequence the end cuts short
        // gives each of its bytes.
        {std::string("a\x80\xBF"
                     "b\0c\n\xE2\x82",
                     9),
         String(L"ab\0c|\u00E2\u0082", 7)},
        // Lines end at the line feed code point: an overlong one ends a line. A byte below 0x80
        // is never a continuation byte: a sequence it cuts short gives each of its bytes (bytes
        // of 0x80 and above inside it are taken unchecked), and it is read afresh.
        {"a\xC0\x8A"
         "b\nc\xE2\n\x41"
         "d\n\xF0\xC3\xA9x\xFF\xFE\ne\xC3\xA9",
         L"a|b|c\u00E2|Ad|\u00F0\u00C3\u00A9x\u00FF\u00FE|e\u00E9"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        for (std::size_t burst : {row.bytes.size() + 1, std::size_t(1)}) {
            ovtest::ChunkedBuffer buffer(row.bytes, burst);
            std::istream in(&buffer);
            bool ended = false;
            std::vector<String> lines = readAll(in, &ended);
            String joined;
            for (size_t i = 0; i < lines.size(); ++i)
                joined += (i ? L"|" : L"") + lines[i];
            EXPECT_EQ(row.lines, joined);
            EXPECT_TRUE(ended);
        }
    }
}

// Lines are the whole text decoded at once, split at line feeds (overlong ones included),
// without carriage returns: the reader's fast paths over the buffer (ASCII words, inline two-
// and three-byte units) must give exactly that, wherever the buffer's ends fall.
TEST(LineReader, LinesAreTheWholeTextDecodedAndSplit) {
    // What the texts are made of, between '|'s: ASCII runs, line ends, whole sequences of each
    // length, overlong line feeds and others, stray and cut-short bytes, leads beyond Unicode.
    const std::string alphabet = "a|plain ascii text|\r|\n|\r\n|\xC3\xA9|\xD0\x96|\xE4\xB8\xAD|"
                                 "\xF0\x9F\x98\x80|\xC0\x8A|\xC0\x8D|\xE0\x80\x8A|\xC1\xBF|\x80|"
                                 "\xBF|\xC3|\xE2\x82|\xF0\x9F|\xFF\xFE|\xFC\x80\x80\x80\x80\x81";
    std::vector<std::string> pieces;
    std::istringstream split(alphabet);
    for (std::string piece; std::getline(split, piece, '|');)
        pieces.push_back(piece);
    std::mt19937 random(20);
    for (int round = 0; round < 400; ++round) {
        std::string bytes = "x"; // nothing for the constructor to skip
        for (int n = random() % 40; n > 0; --n)
            bytes += pieces[random() % pieces.size()];
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

// Code points go out as UTF-8 and those beyond Unicode are dropped; a text longer than the
// writer's encoding block, with sequences across its edge, reads back whole.
TEST(LineWriter, EncodesAndRoundTripsThroughTheReader) {
    std::ostringstream bounds;
    UTF_8Util::LineWriter(bounds).write(String(L"a\u007F\u0080\u07FF\u0800\uFFFF\U00010000") +
                                        static_cast<wchar_t>(0x110000) + static_cast<wchar_t>(-1) +
                                        L"\U0010FFFF");
    EXPECT_EQ(bounds.str(),
              "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");

    String text;
    for (int i = 0; i < 3000; ++i)
        text += (i % 3 == 0) ? L'\u4E2D' : (i % 3 == 1 ? L'a' : L'\U0001F600');
    std::stringstream io;
    std::unique_ptr<UTF_8Util::LineWriter> writer = UTF_8Util::getWriter(io);
    writer->write(text);
    writer->write(L'\u00E9');
    writer->writeLine();
    writer->flush();
    EXPECT_EQ("\xC3\xA9\n", io.str().substr(io.str().size() - 3));
    std::unique_ptr<UTF_8Util::LineReader> reader = UTF_8Util::getReader(io);
    bool end = false;
    EXPECT_EQ(reader->readLine(end), text + L'\u00E9');
    EXPECT_FALSE(end);
}

} // namespace
