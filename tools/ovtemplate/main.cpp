// ovtemplate: checks template files and reads font texts with the library's template engine.
//
//   ovtemplate check [--tree] FILE   parse FILE; exit 0 when the parser accepts it
//   ovtemplate font TEXT             show the font TEXT describes and how it is classified
#include "ToolSupport.h"
#include "dptemplate/CSSFont.h"
#include "dptemplate/Component.h"
#include "dptemplate/StyleSheet.h"
#include "dptemplate/Template.h"
#include "dptemplate/TemplateParser.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <istream>
#include <streambuf>
#include <string>
#include <unistd.h>
#include <vector>

using namespace DPTemplate;

namespace {

const int EXIT_REFUSED = 1; // not well formed, or an element where it may not stand

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: ovtemplate [-v] check [--tree] FILE\n"
                 "       ovtemplate [-v] font TEXT\n"
                 "\n"
                 "check  parses the template FILE with the library's template parser and\n"
                 "       prints \"FILE: accepted\" when the parser accepts it. Otherwise it\n"
                 "       says why on standard error: \"not well formed\" with libxml2's first\n"
                 "       message and its line, or the element that stands where it may not\n"
                 "       and its line. --tree prints the objects built.\n"
                 "font   prints the fields of the font TEXT describes (CSS font shorthand)\n"
                 "       and its classification.\n"
                 "\n"
                 "-v shows the library's diagnostics on standard error.\n"
                 "\n"
                 "exit status: 0 accepted (or the font was shown), 1 the template is not well\n"
                 "formed or an element stands where it may not, 64 usage error, 66 FILE cannot\n"
                 "be read, 74 standard output cannot be written.\n");
}

// Reads a file descriptor for the parser and keeps what went wrong: the parser reads a stream
// and takes a failed read for its end, while the tool must tell an unreadable file from a
// short document.
class FileBuffer : public std::streambuf {
public:
    explicit FileBuffer(int fd) : mFd(fd), mBuffer(64 * 1024) {}

    int error() const { return mError; }
    bool ended() const { return mEnded; }
    unsigned long long bytesRead() const { return mBytesRead; }

protected:
    int_type underflow() override {
        ssize_t count;
        do {
            count = ::read(mFd, mBuffer.data(), mBuffer.size());
        } while (count < 0 && errno == EINTR);
        if (count <= 0) {
            mError = count < 0 ? errno : 0;
            mEnded = true;
            return traits_type::eof();
        }
        mBytesRead += static_cast<unsigned long long>(count);
        setg(mBuffer.data(), mBuffer.data(), mBuffer.data() + count);
        return traits_type::to_int_type(mBuffer[0]);
    }

private:
    int mFd;
    std::vector<char> mBuffer;
    int mError = 0;
    bool mEnded = false;
    unsigned long long mBytesRead = 0;
};

// A template parser that also keeps what a user needs to hear: libxml2's first fatal error and
// first other error with their lines, and which element the nesting rules refused and where.
class CheckingParser : public TemplateParser {
public:
    explicit CheckingParser(const FileBuffer& input) : mInput(input) {}

    MString mFatal;
    int mFatalLine = 0;
    MString mError;
    int mErrorLine = 0;
    std::string mRefusal;
    int mRefusalLine = 0;

protected:
    void onError(const MString& message) override { keep(message, mError, mErrorLine); }
    void onFatalError(const MString& message) override {
        bool first = mFatal.empty();
        keep(message, mFatal, mFatalLine);
        if (first && mInput.ended() && !mOpen.empty()) {
            // libxml2 only says that the document did not end where the input did.
            mFatal += " (the file ends inside <" + mOpen.back() + ">)";
        }
    }

    void onStartElement(const MString& name, const AttributeList& attributes) override {
        bool accepting = getErrorState() == OK;
        TemplateParser::onStartElement(name, attributes);
        if (accepting && getErrorState() != OK) {
            mRefusal = refusal(name);
            mRefusalLine = getLineNumber();
        }
        mOpen.push_back(name);
    }

    void onEndElement(const MString& name) override {
        TemplateParser::onEndElement(name);
        if (!mOpen.empty()) {
            mOpen.pop_back();
        }
    }

private:
    void keep(const MString& message, MString& first, int& line) {
        if (first.empty()) {
            first = message;
            first.rtrim();
            line = getLineNumber();
        }
    }

    std::string refusal(const MString& name) const {
        const std::string element = "<" + name + ">";
        if (mTransType.lookUpValue(name) < 0) {
            return "unknown element " + element;
        }
        if (mOpen.size() >= MAX_DEPTH) {
            return element + " is nested deeper than " + std::to_string(MAX_DEPTH) + " elements";
        }
        if (mOpen.empty()) {
            return element + " stands outside a <template> element";
        }
        return element + " may not stand inside <" + mOpen.back() + ">";
    }

    const FileBuffer& mInput;
    std::vector<std::string> mOpen; // names of the open elements, innermost last
};

void printAttributes(const AttributeVector& attributes) {
    for (const Attribute& attribute : attributes) {
        std::printf(" %s=\"%s\"", attribute.mName.c_str(), attribute.mValue.c_str());
    }
}

void indent(int depth) {
    std::printf("%*s", depth * 2, "");
}

void printComponent(const Component& component, int depth);

void printContainer(const Container& container, int depth) {
    for (unsigned int s = 0; s < container.getSequenceCount(); ++s) {
        const Sequence* sequence = container.getSequence(s);
        indent(depth);
        std::printf("%s\n", sequence->isColumn() ? "col" : "row");
        for (unsigned int c = 0; c < sequence->getComponentCount(); ++c) {
            printComponent(*sequence->getComponent(c), depth + 1);
        }
    }
}

void printComponent(const Component& component, int depth) {
    indent(depth);
    std::printf("%s", component.getTypeName().c_str());
    printAttributes(component.getAttributes());
    if (component.isContainer()) {
        const Container& container = static_cast<const Container&>(component);
        std::printf("  [grid %d x %d]\n", container.getGridRows(), container.getGridColumns());
        printContainer(container, depth + 1);
    } else {
        std::printf("\n");
    }
}

void printTree(const Template& target) {
    std::printf("template\n");
    for (unsigned int i = 0; i < target.getStyleSheetCount(); ++i) {
        const StyleSheet* sheet = target.getStyleSheet(i);
        std::printf("  stylesheet");
        printAttributes(sheet->getAttributes());
        if (sheet->getBase()) {
            std::printf("  [based on \"%s\"]", sheet->getBase()->getId().c_str());
        }
        std::printf("\n");
        for (unsigned int j = 0; j < sheet->getStyleCount(); ++j) {
            const Style* style = sheet->getStyle(j);
            std::printf("    style");
            printAttributes(style->getAttributes());
            std::printf("\n");
            if (style->getBorder()) {
                std::printf("      border");
                printAttributes(style->getBorder()->getAttributes());
                std::printf("\n");
            }
        }
    }
    for (unsigned int i = 0; i < target.getLayoutCount(); ++i) {
        const Layout* layout = target.getLayout(i);
        printComponent(*layout, 1);
        if (layout->getStyleSheet()) {
            std::printf("    uses stylesheet \"%s\"\n", layout->getStyleSheet()->getId().c_str());
        }
    }
}

int check(const char* file, bool tree) {
    int fd = ::open(file, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        ovtool::error("cannot read %s: %s", file, std::strerror(errno));
        return ovtool::EXIT_NOINPUT;
    }
    FileBuffer buffer(fd);
    std::istream in(&buffer);
    CheckingParser parser(buffer);
    Template target;
    int state = parser.parse(in, &target);
    ::close(fd);
    if (buffer.error()) {
        // A directory ends up here too: it opens, and its first read fails.
        ovtool::error("cannot read %s: %s", file, std::strerror(buffer.error()));
        return ovtool::EXIT_NOINPUT;
    }
    if (tree) {
        printTree(target);
    }
    // A refused element comes first: after a fatal error libxml2 delivers no more elements.
    if (state == TemplateParser::BAD_STRUCTURE) {
        if (parser.mRefusal.empty()) {
            ovtool::error("%s: the parse failed (error state 2)", file);
        } else {
            ovtool::error("%s:%d: %s (error state 2)", file, parser.mRefusalLine,
                          parser.mRefusal.c_str());
        }
    }
    bool wellFormed = parser.mFatal.empty();
    if (!wellFormed && buffer.bytesRead() == 0) {
        ovtool::error("%s: not well formed: the file is empty", file);
    } else if (!wellFormed) {
        ovtool::error("%s:%d: not well formed: %s", file, parser.mFatalLine, parser.mFatal.c_str());
    }
    if (!wellFormed || state != TemplateParser::OK) {
        return EXIT_REFUSED;
    }
    if (!parser.mError.empty()) {
        // Not fatal to the document, but worth knowing.
        ovtool::error("%s:%d: libxml2: %s", file, parser.mErrorLine, parser.mError.c_str());
    }
    std::printf("%s: accepted\n", file);
    return 0;
}

void printList(const char* label, const StringArrayMB& items) {
    std::printf("%-14s", label);
    for (size_t i = 0; i < items.size(); ++i) {
        std::printf("%s\"%s\"", i ? ", " : "", items[i].c_str());
    }
    std::printf("\n");
}

const char* yesNo(bool value) {
    return value ? "yes" : "no";
}

int font(const char* text) {
    bool parsed = CSSFontParser::parse(text) != nullptr;
    PtrRef<CSSFont> font = CSSFont::decode(text);
    std::printf("text          \"%s\"%s\n", text, parsed ? "" : "  (not readable: fallback font)");
    std::printf("style         \"%s\"\n", font->getFontStyle().c_str());
    std::printf("variant       \"%s\"\n", font->getFontVariant().c_str());
    std::printf("weight        \"%s\"\n", font->getFontWeight().c_str());
    printList("decorations", font->getDecorations());
    std::printf("size          \"%s\"\n", font->getFontSize().c_str());
    std::printf("line height   \"%s\"\n", font->getLineHeight().c_str());
    printList("families", font->getFontFamilies());
    std::printf("bold          %s\n", yesNo(font->isBold()));
    std::printf("italic        %s\n", yesNo(font->isItalic()));
    std::printf("underlined    %s\n", yesNo(font->isUnderlined()));
    const int sizes[] = {0, 1, 2};
    const char* const sizeClasses[] = {"small", "normal", "large"};
    std::printf("size class    %s\n", sizeClasses[font->getSizeRange(sizes)]);
    const char* family = font->isSystem()         ? "system"
                         : font->isProportional() ? "proportional"
                         : font->isMonospaced()   ? "monospaced"
                                                  : "none";
    std::printf("family class  %s (system %s, proportional %s, monospaced %s)\n", family,
                yesNo(font->isSystem()), yesNo(font->isProportional()),
                yesNo(font->isMonospaced()));
    return 0;
}

int run(int argc, char** argv) {
    if (argc < 2)
        return ovtool::usageError("missing COMMAND (check or font)");
    const std::string command = argv[1];
    if (command == "check") {
        bool tree = argc >= 3 && !std::strcmp(argv[2], "--tree");
        int file = tree ? 3 : 2;
        if (argc <= file)
            return ovtool::usageError("check: missing FILE");
        if (argc > file + 1)
            return ovtool::usageError("check: unexpected argument: %s", argv[file + 1]);
        return check(argv[file], tree);
    }
    if (command == "font") {
        if (argc < 3)
            return ovtool::usageError("font: missing TEXT");
        if (argc > 3)
            return ovtool::usageError("font: unexpected argument: %s (quote the font text)",
                                      argv[3]);
        return font(argv[2]);
    }
    return ovtool::usageError("unknown command: %s", argv[1]);
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
