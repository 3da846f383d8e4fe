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

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

using namespace DPTemplate;

namespace {

const int EXIT_REFUSED = 1; // the parse returned non-zero
const int EXIT_USAGE = 2;   // bad arguments or an unreadable file

void usage() {
    std::fprintf(ovtool::err(),
                 "usage: ovtemplate check [--tree] FILE\n"
                 "       ovtemplate font TEXT\n"
                 "\n"
                 "check  parses a template file; exits 0 when the parser accepts it, 1 when\n"
                 "       it does not (the error state and libxml2's first message are\n"
                 "       printed), 2 when the file cannot be read. --tree prints the\n"
                 "       objects built.\n"
                 "font   prints the fields of the font TEXT describes (CSS font shorthand)\n"
                 "       and its classification.\n");
}

// Keeps libxml2's first complaint and where it was made; the engine itself stays silent.
class CheckingParser : public TemplateParser {
public:
    MString mMessage;
    int mLine = 0;

protected:
    void onError(const MString& message) override { keep(message); }
    void onFatalError(const MString& message) override { keep(message); }

private:
    void keep(const MString& message) {
        if (mMessage.empty()) {
            mMessage = message;
            mLine = getLineNumber();
            mMessage.rtrim();
        }
    }
};

const char* stateName(int state) {
    switch (state) {
    case TemplateParser::OK:
        return "accepted";
    case TemplateParser::NO_TEMPLATE:
        return "no template given";
    case TemplateParser::BAD_STRUCTURE:
        return "an element stands where it may not, or the parse failed";
    default:
        return "unknown";
    }
}

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
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(ovtool::err(), "ovtemplate: cannot open %s\n", file);
        return EXIT_USAGE;
    }
    CheckingParser parser;
    Template target;
    int state = parser.parse(in, &target);
    std::printf("%s: error state %d (%s)\n", file, state, stateName(state));
    if (!parser.mMessage.empty()) {
        std::printf("libxml2: line %d: %s\n", parser.mLine, parser.mMessage.c_str());
        if (state == TemplateParser::OK) {
            // The parser itself accepts what it saw; the document simply ended there.
            std::printf("note: not well formed; the template holds what came before\n");
        }
    }
    if (tree) {
        printTree(target);
    }
    return state == TemplateParser::OK ? 0 : EXIT_REFUSED;
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
    if (argc >= 2 && (!std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help"))) {
        usage();
        return 0;
    }
    if (argc == 3 && !std::strcmp(argv[1], "check")) {
        return check(argv[2], false);
    }
    if (argc == 4 && !std::strcmp(argv[1], "check") && !std::strcmp(argv[2], "--tree")) {
        return check(argv[3], true);
    }
    if (argc == 3 && !std::strcmp(argv[1], "font")) {
        return font(argv[2]);
    }
    usage();
    return EXIT_USAGE;
}

} // namespace

int main(int argc, char** argv) {
    ovtool::dropVerboseOptions(argc, argv);
    return ovtool::finish(run(argc, argv));
}
