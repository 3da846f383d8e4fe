#include "dptemplate/TemplateParser.h"
#include "dptemplate/Component.h"
#include "dptemplate/StyleSheet.h"
#include "dptemplate/Template.h"

#include "EngineTest.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

using namespace DPTemplate;

namespace {

int parseText(const std::string& text, Template& target) {
    TemplateParser parser;
    std::istringstream in(text);
    return parser.parse(in, &target);
}

// "(name=value ...)" of every pair, in the order kept.
std::string pairsOf(const AttributeVector& attributes) {
    std::string out;
    for (const Attribute& attribute : attributes)
        out += (out.empty() ? "" : " ") + attribute.mName + "=" + attribute.mValue;
    return "(" + out + ")";
}

// A component as "type(pairs)", then its spans when not 1x1 and, for a container, its grid
// size and its sequences: "layout() 3x1 row[text(col-span=2):2x1 spacer()]".
std::string describe(const Component& component) {
    std::string out = component.getTypeName() + pairsOf(component.getAttributes());
    if (component.getColSpan() != 1 || component.getRowSpan() != 1)
        out += ":" + std::to_string(component.getColSpan()) + "x" +
               std::to_string(component.getRowSpan());
    if (!component.isContainer())
        return out;
    const Container& container = static_cast<const Container&>(component);
    out += " " + std::to_string(container.getGridColumns()) + "x" +
           std::to_string(container.getGridRows());
    for (unsigned int i = 0; i < container.getSequenceCount(); ++i) {
        const Sequence& sequence = *container.getSequence(i);
        out += sequence.isColumn() ? " col[" : " row[";
        for (unsigned int j = 0; j < sequence.getComponentCount(); ++j)
            out += (j ? " " : "") + describe(*sequence.getComponent(j));
        out += "]";
    }
    return out;
}

// One line per style sheet ("<base" when linked to one, then its styles and their borders),
// then one per layout ("=>sheet" when it was given one).
std::string describe(const Template& target) {
    std::string out;
    for (unsigned int i = 0; i < target.getStyleSheetCount(); ++i) {
        const StyleSheet& sheet = *target.getStyleSheet(i);
        out += "sheet" + pairsOf(sheet.getAttributes());
        if (sheet.getBase())
            out += "<" + sheet.getBase()->getId();
        for (unsigned int j = 0; j < sheet.getStyleCount(); ++j) {
            const Style& style = *sheet.getStyle(j);
            out += " style" + pairsOf(style.getAttributes());
            if (style.getBorder())
                out += "[border" + pairsOf(style.getBorder()->getAttributes()) + "]";
        }
        out += "\n";
    }
    for (unsigned int i = 0; i < target.getLayoutCount(); ++i) {
        const Layout& layout = *target.getLayout(i);
        out += describe(layout);
        if (layout.getStyleSheet())
            out += " =>" + layout.getStyleSheet()->getId();
        out += "\n";
    }
    return out;
}

const std::string FONT = "bold 12pt/14pt Arial, 'Times New Roman', a name long enough";

} // namespace

// What a document builds: every object keeps every pair of its tag in order (decoded, never
// copied short), a component in a container gets a row of its own, containers are laid out at
// their end tag, the template links style sheets at its end, text, comments and CDATA are
// ignored, and a template may start anywhere. A document that is not well formed ends early
// with state 0 and keeps what was built; elements that stand where they may not give 2.
TEST(TemplateParser, StatesAndWhatIsBuilt) {
    const struct {
        std::string text;
        int state;
        std::string built; // not checked when empty
    } rows[] = {
        {"", 0, ""},
        {"<template>\n  <layout id=\"main\">\n    <image id=\"pic\" model-property=\"image\" "
         "alt-image=\"dc:none\"/>\n  </layout>\n</template>\n",
         0, "layout(id=main) 1x1 row[image(id=pic model-property=image alt-image=dc:none)]\n"},
        {"<template><layout><row><text id=\"t\" col-span=\"2\"/><spacer/></row>"
         "<col><box id=\"b\"><text/></box><scroller><image/></scroller></col></layout></template>",
         0,
         "layout() 3x3 row[text(id=t col-span=2):2x1 spacer()] "
         "col[box(id=b) 1x1 row[text()] scrooler() 1x1 row[image()]]\n"},
        {"<template><stylesheet id=\"base\"><style selector=\"title\" font=\"bold 12pt\"/>"
         "</stylesheet><stylesheet id=\"dark\" based-on=\"base\"><style selector=\"body\">"
         "<border color=\"red\"/><border color=\"blue\" width=\"2\"/></style></stylesheet>"
         "<layout id=\"a\" stylesheet=\"dark\"/><layout id=\"b\"/>"
         "<layout id=\"c\" stylesheet=\"nowhere\"/></template>",
         0,
         "sheet(id=base) style(selector=title font=bold 12pt)\n"
         "sheet(id=dark based-on=base)<base style(selector=body)[border(color=blue width=2)]\n"
         "layout(id=a stylesheet=dark) 0x0 =>dark\nlayout(id=b) 0x0 =>base\n"
         "layout(id=c stylesheet=nowhere) 0x0 =>base\n"},
        {"<template><stylesheet id=\"a\" based-on=\"b\"/><stylesheet id=\"b\" based-on=\"a\"/>"
         "<stylesheet id=\"c\" based-on=\"c\"/></template>",
         0, "sheet(id=a based-on=b)<b\nsheet(id=b based-on=a)\nsheet(id=c based-on=c)\n"},
        {"<template>\n<stylesheet id=\"s\" based-on=\"\">\n  <style selector=\"c\" font=\"" + FONT +
             "\">\n    <border color=\"red\" width=\"1\"/>\n  </style>\n</stylesheet>\n"
             "<layout id=\"l\" stylesheet=\"s\">\n  <box id=\"b\" col-span=\"2\"><text id=\"t\"/>"
             "</box>\n  <row><image id=\"i\" alt-image=\"" +
             FONT + "\" row-span=\"3\"/></row>\n</layout>\n</template>\n",
         0,
         "sheet(id=s based-on=) style(selector=c font=" + FONT +
             ")[border(color=red width=1)]\nlayout(id=l stylesheet=s) 2x4 row[box(id=b "
             "col-span=2):2x1 1x1 row[text(id=t)]] row[image(id=i alt-image=" +
             FONT + " row-span=3):1x3] =>s\n"},
        {"<template><layout id=\"a&amp;b\"><text id=\"&lt;&#x41;&#66;&gt;\" class=\"x&#38;#38;\"/>"
         "</layout></template>",
         0, "layout(id=a&b) 1x1 row[text(id=<AB> class=x&#38;)]\n"},
        {"<template>words<!-- c --><layout x=\"1\"><![CDATA[<row/>]]></layout></template>", 0,
         "layout(x=1) 0x0\n"},
        {"<template><layout id=\"outer\"><box><template><layout id=\"inner\"/>"
         "<stylesheet id=\"s\"/></template><text/></box></layout></template>",
         0,
         "sheet(id=s)\nlayout(id=outer) 1x1 row[box() 1x1 row[text()]] =>s\n"
         "layout(id=inner) 0x0 =>s\n"},
        {"<template><layout><image><template><stylesheet/></template></image></layout></template>",
         0, ""},
        {"<template><layout><image/>", 0, "layout() 0x0 row[image()]\n"},
        {"<template><layout></row></template>", 0, ""},
        {std::string("<templ\0ate>", 11), 0, ""},
        {"\xff\xfe<\x01", 0, ""},
        {"<template><stylesheet id=\"s\"/><layout id=\"a\"/><style/><layout id=\"b\"/>"
         "<stylesheet id=\"t\"/></template>",
         2, "sheet(id=s)\nlayout(id=a) 0x0\n"}, // the rest ignored, never linked
        {"<template><layout><row><row/></row></layout></template>", 2, ""},
        {"<template><layout><image><text/></image></layout></template>", 2, ""},
        {"<template><stylesheet><style><border><border/></border></style></stylesheet></template>",
         2, ""},
        {"<template><style/></template>", 2, ""},
        {"<template><row/></template>", 2, ""},
        {"<template><stylesheet><text/></stylesheet></template>", 2, ""},
        {"<template><stylesheet><style><style/></style></stylesheet></template>", 2, ""},
        {"<template><layout><scrooler/></layout></template>", 2, ""},
        {"<template><layout><stylesheet/></layout></template>", 2, ""},
        {"<template><Layout/></template>", 2, ""},
        {"<layout/>", 2, ""},
    };
    ovtest::StderrCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Template target;
        EXPECT_EQ(row.state, parseText(row.text, target));
        if (!row.built.empty() || row.text.empty()) {
            EXPECT_EQ(row.built, describe(target));
        }
    }
    EXPECT_EQ("", engineOutput(capture.text()));
}

TEST(TemplateParser, LookUpsAndStylesFollowTheBaseSheet) {
    Template target;
    ASSERT_EQ(0, parseText("<template><stylesheet id=\"base\"><style selector=\"title\"/>"
                           "</stylesheet><stylesheet id=\"dark\" based-on=\"base\"/>"
                           "<stylesheet id=\"a\" based-on=\"b\"/><stylesheet id=\"b\" "
                           "based-on=\"a\"/><layout id=\"main\"/></template>",
                           target));
    StyleSheet* base = target.getStyleSheet("base");
    ASSERT_NE(nullptr, base);
    EXPECT_EQ(base->getStyle(0), target.getStyleSheet("dark")->findStyle("title"));
    EXPECT_EQ(nullptr, base->findStyle("body"));
    EXPECT_EQ(nullptr, target.getStyleSheet("a")->findStyle("missing")); // no endless loop
    EXPECT_EQ(target.getLayout(0), target.getLayout("main"));
    EXPECT_EQ(nullptr, target.getLayout("other"));
    EXPECT_EQ(nullptr, target.getStyleSheet("other"));
}

TEST(TemplateParser, NoTemplateGivesOneAndReadsNothing) {
    TemplateParser parser;
    std::istringstream in("<template/>");
    EXPECT_EQ(1, parser.parse(in, nullptr));
    EXPECT_EQ(0, in.tellg());
}

// Layout, boxes and template: exactly the deepest stack that is accepted, then one more, which
// ends the parse without building more than the limit.
TEST(TemplateParser, DeepNestingIsBadStructure) {
    for (unsigned int boxes : {TemplateParser::MAX_DEPTH - 2, TemplateParser::MAX_DEPTH - 1}) {
        std::string text = "<template><layout>";
        for (unsigned int i = 0; i < boxes; ++i)
            text += "<box>";
        for (unsigned int i = 0; i < boxes; ++i)
            text += "</box>";
        TemplateParser parser;
        Template target;
        std::istringstream in(text + "</layout></template>");
        const bool tooDeep = boxes + 2 > TemplateParser::MAX_DEPTH;
        EXPECT_EQ(tooDeep ? 2 : 0, parser.parse(in, &target)) << boxes;
        EXPECT_EQ(tooDeep ? TemplateParser::MAX_DEPTH : boxes + 2,
                  parser.getCreatedElements().size());
    }
}

namespace {

// Fails inside a callback, as a parse that runs out of memory would.
class FailingTemplateParser : public TemplateParser {
public:
    bool mFail = true;

protected:
    void onComment(const MString&) override {
        if (mFail)
            throw std::bad_alloc();
    }
};

} // namespace

// A refused element, a failure of a callback or of the stream ends the parse with state 2:
// what was built stays, nothing more is built or read, and no context is left behind, so the
// parser is still usable.
TEST(TemplateParser, AfterAnErrorNothingMoreIsBuiltOrRead) {
    FailingTemplateParser parser;
    // Well formed so far and never ending, as a pipe that keeps writing.
    EndlessBuffer endless("<template><layout id=\"a\"/><style/>", "<layout id=\"b\"/>");
    std::istream pipe(&endless);
    Template refused;
    EXPECT_EQ(2, parser.parse(pipe, &refused));
    EXPECT_EQ(1u, refused.getLayoutCount());
    EXPECT_LE(endless.mHandedOut, 2u * 4096u);

    const std::string text = "<template><layout id=\"a\"/><!--x--><layout id=\"b\"/></template>";
    Template first;
    std::istringstream in(text);
    EXPECT_EQ(TemplateParser::BAD_STRUCTURE, parser.parse(in, &first));
    EXPECT_EQ(1u, first.getLayoutCount());

    EndlessBuffer buffer("<template>\n<layout id=\"a\"/>\n", "");
    std::istream failing(&buffer);
    failing.exceptions(std::ios::badbit);
    Template second;
    EXPECT_EQ(TemplateParser::BAD_STRUCTURE, parser.parse(failing, &second));
    EXPECT_EQ(1u, second.getLayoutCount());
    EXPECT_EQ(0, parser.getLineNumber());

    parser.mFail = false;
    Template third;
    std::istringstream again(text);
    EXPECT_EQ(0, parser.parse(again, &third));
    EXPECT_EQ(2u, third.getLayoutCount());
    EXPECT_EQ(3u, parser.getCreatedElements().size());
}

TEST(Component, SpansDefaultToOneUnlessPositiveDigits) {
    for (const char* value : {"", "0", "-2", "x3", "99999999999999999999", "4rows"}) {
        Content text(Component::TEXT);
        AttributeList attributes;
        attributes.add("row-span", value);
        text.setAttributes(attributes);
        EXPECT_EQ(value == std::string("4rows") ? 4 : 1, text.getRowSpan()) << value;
    }
}
