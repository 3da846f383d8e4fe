#include "dptemplate/SaxParser.h"

#include "EngineTest.h"
#include "support/ChunkedBuffer.h"
#include "support/Files.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using DPTemplate::AttributeList;
using DPTemplate::SaxParser;
using DPTemplate::SaxParserException;

namespace {

// Writes every event it receives as one line, so a test compares the whole sequence at once.
class RecordingParser : public SaxParser {
public:
    explicit RecordingParser(bool useEntityHook = false) : SaxParser(useEntityHook) {}

    std::vector<std::string> mEvents;
    std::vector<std::string> mErrors; // errors and fatal errors, in order
    std::vector<int> mErrorLines;
    std::vector<std::string> mFatalErrors;
    std::string mThrowOnElement;
    int mEntityLookUps = 0;

protected:
    void onStartDocument() override { mEvents.push_back("start-document"); }
    void onEndDocument() override { mEvents.push_back("end-document"); }
    void onStartElement(const MString& name, const AttributeList& attributes) override {
        std::string event = "<" + name;
        for (const DPTemplate::Attribute& attribute : attributes)
            event += " " + attribute.mName + "=" + attribute.mValue;
        mEvents.push_back(event + ">");
        if (name == mThrowOnElement)
            throw std::runtime_error("refused " + name);
    }
    void onEndElement(const MString& name) override { mEvents.push_back("</" + name + ">"); }
    void onCharacters(const MString& text) override {
        // libxml2 may split a text run; join neighbouring pieces.
        if (!mEvents.empty() && mEvents.back().compare(0, 5, "text:") == 0)
            mEvents.back() += text;
        else
            mEvents.push_back("text:" + text);
    }
    void onComment(const MString& text) override { mEvents.push_back("comment:" + text); }
    void onCdataBlock(const MString& text) override { mEvents.push_back("cdata:" + text); }
    void onError(const MString& message) override { recordError(message); }
    void onFatalError(const MString& message) override {
        recordError(message);
        mFatalErrors.push_back(message);
    }
    _xmlEntity* onGetEntity(const MString&) override {
        ++mEntityLookUps;
        return nullptr;
    }

private:
    void recordError(const MString& message) {
        mErrors.push_back(message);
        mErrorLines.push_back(getLineNumber());
    }
};

// A reference written out as text stays text in an attribute value; the rest is the
// characters meant, whether entities are substituted or not.
const char* const DOCUMENT = "<?xml version=\"1.0\"?>\n"
                             "<root b=\"2\" a=\"1\" c=\"x&amp;y &#38;&#x26; &lt;&#65;&gt;\" "
                             "d=\"&amp;#38;\" e=\"&#38;amp;\" f=\"tab&#9;lf&#10;&#xe9;\" "
                             "g=\"&quot;&apos;&amp;&amp;\">\n"
                             "  <!--note-->\n"
                             "  <leaf>hi &amp; there</leaf>\n"
                             "  <![CDATA[x<y]]>\n"
                             "</root>\n";

const std::vector<std::string> EXPECTED_EVENTS = {
    "start-document",  "<root b=2 a=1 c=x&y && <A> d=&#38; e=&amp; f=tab\tlf\n\xc3\xa9 g=\"'&&>",
    "text:\n  ",       "comment:note",
    "text:\n  ",       "<leaf>",
    "text:hi & there", "</leaf>",
    "text:\n  ",       "cdata:x<y",
    "text:\n",         "</root>",
    "end-document"};

std::string joined(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines)
        all += line + "\n";
    return all;
}

enum class Path { Stream, Trickle, Memory, File, Chunks };

// Runs one parse of TEXT along PATH.
void parseAlong(Path path, SaxParser& parser, const std::string& text) {
    switch (path) {
    case Path::Stream: {
        std::istringstream in(text);
        parser.parseStream(in);
        break;
    }
    case Path::Trickle: {
        ovtest::ChunkedBuffer buffer(text, 1);
        std::istream in(&buffer);
        parser.parseStream(in);
        break;
    }
    case Path::Memory:
        parser.parseMemory(text);
        break;
    case Path::File: {
        ovtest::TempDir dir;
        std::string file = dir.file("doc.xml");
        ASSERT_TRUE(ovtest::writeFile(file, text));
        parser.parseFile(file);
        break;
    }
    case Path::Chunks:
        // Small uneven pieces cut through tags and texts.
        for (std::string::size_type at = 0; at < text.size(); at += 7)
            parser.parseChunk(text.substr(at, 7));
        parser.finishChunkParsing();
        break;
    }
}

class SaxParserPaths : public ::testing::TestWithParam<Path> {};

} // namespace

// A failure raised in a callback stops the parse and is raised after it; the same object then
// delivers every event in document order.
TEST_P(SaxParserPaths, DeliversEveryEventInDocumentOrder) {
    RecordingParser parser;
    parser.mThrowOnElement = "leaf";
    try {
        parseAlong(GetParam(), parser, DOCUMENT);
        FAIL() << "the failure raised in onStartElement was lost";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("refused leaf", failure.what());
    }
    // Nothing after it reached the parser.
    EXPECT_EQ(std::vector<std::string>(EXPECTED_EVENTS.begin(), EXPECTED_EVENTS.begin() + 6),
              parser.mEvents);

    parser.mThrowOnElement.clear();
    parser.mEvents.clear();
    parser.setSubstituteEntities(true);
    parseAlong(GetParam(), parser, DOCUMENT);
    EXPECT_EQ(EXPECTED_EVENTS, parser.mEvents);
    EXPECT_TRUE(parser.mErrors.empty());
}

INSTANTIATE_TEST_SUITE_P(AllContexts, SaxParserPaths,
                         ::testing::Values(Path::Stream, Path::Trickle, Path::Memory, Path::File,
                                           Path::Chunks));

// Errors reach the parser with their line, never standard error; fatal ones end the events.
// An unreadable file is raised, silently too.
TEST(SaxParser, ErrorsAreReportedToTheParserAndNothingIsPrinted) {
    const struct {
        std::string text;
        const char* error; // found in one of the errors
        int line;          // of the first error
        bool fatal;
        const char* lastEvent;
    } rows[] = {
        {"<root>\n<a>\n</b>\n</root>\n", "mismatch", 3, true, "text:\n"},
        // The external subset that might declare the entity is never read: not a fatal error.
        {"<!DOCTYPE r SYSTEM \"r.dtd\"><r>&e;</r>", "'e' not defined", 1, false, "end-document"},
    };
    ovtest::StderrCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        RecordingParser parser;
        std::istringstream in(row.text);
        parser.parseStream(in);
        ASSERT_FALSE(parser.mErrors.empty());
        EXPECT_NE(std::string::npos, joined(parser.mErrors).find(row.error));
        EXPECT_EQ(row.line, parser.mErrorLines.front());
        EXPECT_EQ(row.fatal, !parser.mFatalErrors.empty());
        if (row.fatal) {
            EXPECT_EQ(parser.mErrors.front(), parser.mFatalErrors.front());
        }
        EXPECT_EQ(row.lastEvent, parser.mEvents.back());
    }
    RecordingParser parser;
    std::istringstream in("<?xml version=\"1.0\" encoding=\"SHIFT_JIS\"?>\n<r>\x9b\xff\xfe</r>\n");
    parser.parseStream(in);
    EXPECT_NE(std::string::npos, joined(parser.mErrors).find("conversion failed"));
    parser.mEvents.clear(); // an unreadable file is raised
    EXPECT_THROW(parser.parseFile("/proc/self/no-such-file.xml"), SaxParserException);
    EXPECT_TRUE(parser.mEvents.empty());
    EXPECT_EQ("", engineOutput(capture.text()));

    parser.mErrors.clear(); // long messages are cut at 1024 bytes
    parser.parseMemory("<" + std::string(3000, 'n') + "></x>");
    ASSERT_FALSE(parser.mErrors.empty());
    EXPECT_EQ(1023u, parser.mErrors.front().size());
}

TEST(SaxParser, EntityHookOnlyWhenAskedFor) {
    const std::string text = "<!DOCTYPE r [<!ENTITY e \"v\">]><r>&e;</r>";
    RecordingParser withHook(true);
    withHook.parseMemory(text);
    EXPECT_GT(withHook.mEntityLookUps, 0);

    RecordingParser withoutHook(false);
    withoutHook.parseMemory(text);
    EXPECT_EQ(0, withoutHook.mEntityLookUps);
}

// The stream path delivers what the memory path delivers, however the bytes arrive: lines
// around the size of the pieces the stream is read in, with and without a last newline, and a
// document of several blocks cut inside tags, attribute values, references and text.
TEST(SaxParser, StreamEventsDoNotDependOnHowTheBytesArrive) {
    std::vector<std::string> texts;
    for (std::string::size_type length = 4090; length <= 4100; ++length)
        for (const char* end : {"", "\n"})
            texts.push_back("<r>" + std::string(length - 7, 'x') + "</r>" + end);
    std::string text = "<?xml version=\"1.0\"?>\n<r>\n";
    for (int i = 0; text.size() < 40 * 1024; ++i)
        text += "  <leaf n=\"" + std::to_string(i) + "\" v=\"a value &amp; more\">text " +
                std::to_string(i) + " &lt;here&gt;</leaf><!--c--><e/>\n";
    texts.push_back(text + "</r>");
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.size());
        RecordingParser fromMemory;
        parseAlong(Path::Memory, fromMemory, text);
        ASSERT_TRUE(fromMemory.mErrors.empty());
        RecordingParser fromStream;
        parseAlong(Path::Stream, fromStream, text);
        EXPECT_EQ(fromMemory.mEvents, fromStream.mEvents);
        for (std::string::size_type burst : {1u, 7u, 4096u, 16385u}) {
            ovtest::ChunkedBuffer buffer(text, burst);
            std::istream in(&buffer);
            RecordingParser fromBursts;
            fromBursts.parseStream(in);
            EXPECT_EQ(fromMemory.mEvents, fromBursts.mEvents) << burst;
        }
    }
}

TEST(SaxParser, NothingMoreIsReadOnceTheDocumentHasFailed) {
    const struct {
        std::string prefix, filler;
        const char* refusedElement;
    } rows[] = {
        {"", std::string(1, '\0'), ""}, // /dev/zero
        {"", "junk ", ""},              // not markup at all
        {"<r>\n<a>", "</b>", ""},       // fails after a well-formed start
        {"<r>", "<!-- - -- -->", ""},   // fails inside the content
        {"<r><a/>", "<b/>", "a"},       // a callback fails
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.filler);
        EndlessBuffer buffer(row.prefix, row.filler);
        std::istream in(&buffer);
        RecordingParser parser;
        parser.mThrowOnElement = row.refusedElement;
        if (*row.refusedElement) {
            EXPECT_THROW(parser.parseStream(in), std::runtime_error);
        } else {
            parser.parseStream(in);
            EXPECT_FALSE(parser.mFatalErrors.empty());
        }
        // The block that failed and at most what was already buffered with it.
        EXPECT_LE(buffer.mHandedOut, 2u * 4096u);
        EXPECT_EQ(0, parser.getLineNumber());
    }
}

// Every external resource goes through the one loader that these local files would reach.
TEST(SaxParser, NoExternalEntityOrDtdIsEverLoaded) {
    ovtest::TempDir dir;
    const std::string marker = "marker-of-a-local-file";
    const std::string local = dir.file("secret.txt");
    ASSERT_TRUE(ovtest::writeFile(local, marker));
    const std::string documents[] = {
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r a=\"&x;\">&x;</r>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"" + local + "\">]><r a=\"&x;\">&x;</r>",
        "<!DOCTYPE r SYSTEM \"" + local + "\"><r/>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"" + local + "\"> %p;]><r/>",
    };
    ovtest::StderrCapture capture;
    for (const std::string& document : documents) {
        for (int switches = 0; switches < 8; ++switches) {
            for (Path path : {Path::Stream, Path::Memory, Path::File}) {
                RecordingParser parser((switches & 1) != 0);
                parser.setSubstituteEntities((switches & 2) != 0);
                parser.setValidate((switches & 4) != 0);
                try {
                    parseAlong(path, parser, document);
                } catch (const SaxParserException&) {
                    // Validation errors are raised; what matters is what was read.
                }
                const std::string seen =
                    joined(parser.mEvents) + joined(parser.mErrors) + parser.getValidityErrors();
                EXPECT_EQ(std::string::npos, seen.find("root:")) << document << switches;
                EXPECT_EQ(std::string::npos, seen.find(marker)) << document << switches;
            }
        }
    }
    EXPECT_EQ("", engineOutput(capture.text()));
}
