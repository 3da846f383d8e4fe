#include "dptemplate/TemplateParser.h"
#include "dptemplate/Component.h"
#include "dptemplate/StyleSheet.h"
#include "dptemplate/Template.h"

#include "EndlessBuffer.h"
#include "EngineOutput.h"
#include "FailingBuffer.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

using namespace DPTemplate;

namespace {

int parseText(const std::string& text, Template& target) {
    TemplateParser parser;
    std::istringstream in(text);
    return parser.parse(in, &target);
}

int stateOf(const std::string& text) {
    Template target;
    return parseText(text, target);
}

Component* onlyComponentOf(const Container& container) {
    if (container.getSequenceCount() != 1 || container.getSequence(0)->getComponentCount() != 1) {
        return nullptr;
    }
    return container.getSequence(0)->getComponent(0);
}

} // namespace

TEST(TemplateParser, NoTemplateGivesOneAndReadsNothing) {
    TemplateParser parser;
    std::istringstream in("<template/>");
    EXPECT_EQ(1, parser.parse(in, nullptr));
    EXPECT_EQ(0, in.tellg());
}

TEST(TemplateParser, EmptyStreamLeavesTheTemplateEmpty) {
    Template target;
    ovtest::StderrCapture capture;
    EXPECT_EQ(0, parseText("", target));
    EXPECT_TRUE(target.isEmpty());
    EXPECT_EQ("", engineOutput(capture.text()));
}

TEST(TemplateParser, ComponentInAContainerGetsARowOfItsOwn) {
    Template target;
    ASSERT_EQ(0,
              parseText("<template>\n"
                        "  <layout id=\"main\">\n"
                        "    <image id=\"pic\" model-property=\"image\" alt-image=\"dc:none\"/>\n"
                        "  </layout>\n"
                        "</template>\n",
                        target));
    ASSERT_EQ(1u, target.getLayoutCount());
    Layout* layout = target.getLayout(0);
    EXPECT_EQ(Component::LAYOUT, layout->getType());
    EXPECT_EQ("layout", layout->getTypeName());
    ASSERT_EQ(1u, layout->getSequenceCount());
    EXPECT_FALSE(layout->getSequence(0)->isColumn());
    Component* image = onlyComponentOf(*layout);
    ASSERT_NE(nullptr, image);
    EXPECT_EQ(Component::IMAGE, image->getType());
    EXPECT_EQ("pic", image->getId());
    EXPECT_EQ("image", image->getModelProperty());
    EXPECT_EQ("dc:none", static_cast<Content*>(image)->getAltImage());
    EXPECT_EQ(layout, target.getLayout("main"));
    EXPECT_EQ(nullptr, target.getLayout("other"));
}

TEST(TemplateParser, BuildsRowsColumnsAndNestedContainers) {
    Template target;
    ASSERT_EQ(0, parseText("<template><layout>"
                           "<row><text id=\"t\" col-span=\"2\"/><spacer/></row>"
                           "<col><box id=\"b\"><text/></box><scroller><image/></scroller></col>"
                           "</layout></template>",
                           target));
    Layout* layout = target.getLayout(0);
    ASSERT_EQ(2u, layout->getSequenceCount());

    Sequence* row = layout->getSequence(0);
    EXPECT_FALSE(row->isColumn());
    ASSERT_EQ(2u, row->getComponentCount());
    EXPECT_EQ(Component::TEXT, row->getComponent(0)->getType());
    EXPECT_EQ(Component::SPACER, row->getComponent(1)->getType());
    EXPECT_EQ(2, row->getComponent(0)->getColSpan());

    Sequence* column = layout->getSequence(1);
    EXPECT_TRUE(column->isColumn());
    ASSERT_EQ(2u, column->getComponentCount());
    Component* box = column->getComponent(0);
    Component* scroller = column->getComponent(1);
    EXPECT_EQ(Component::BOX, box->getType());
    EXPECT_EQ("b", box->getId());
    EXPECT_EQ(Component::SCROOLER, scroller->getType());
    EXPECT_EQ("scrooler", scroller->getTypeName());
    ASSERT_TRUE(scroller->isContainer());
    Component* inner = onlyComponentOf(*static_cast<Container*>(scroller));
    ASSERT_NE(nullptr, inner);
    EXPECT_EQ(Component::IMAGE, inner->getType());

    // Container::init ran at each end tag: the row is 2 + 1 columns wide, the column two rows
    // tall, stacked below it.
    EXPECT_EQ(3, layout->getGridColumns());
    EXPECT_EQ(3, layout->getGridRows());
    EXPECT_EQ(1, static_cast<Container*>(box)->getGridRows());
}

TEST(TemplateParser, StyleSheetsStylesAndBorders) {
    Template target;
    ASSERT_EQ(0, parseText("<template>"
                           "<stylesheet id=\"base\"><style selector=\"title\" font=\"bold 12pt\"/>"
                           "</stylesheet>"
                           "<stylesheet id=\"dark\" based-on=\"base\">"
                           "<style selector=\"body\"><border color=\"red\"/>"
                           "<border color=\"blue\" width=\"2\"/></style></stylesheet>"
                           "<layout id=\"a\" stylesheet=\"dark\"/><layout id=\"b\"/>"
                           "<layout id=\"c\" stylesheet=\"nowhere\"/>"
                           "</template>",
                           target));
    ASSERT_EQ(2u, target.getStyleSheetCount());
    StyleSheet* base = target.getStyleSheet("base");
    StyleSheet* dark = target.getStyleSheet("dark");
    ASSERT_NE(nullptr, base);
    ASSERT_NE(nullptr, dark);
    ASSERT_EQ(1u, base->getStyleCount());
    EXPECT_EQ("bold 12pt", base->getStyle(0)->getProperty("font"));

    // The second border replaced the first.
    Border* border = dark->getStyle(0)->getBorder();
    ASSERT_NE(nullptr, border);
    EXPECT_EQ("blue", border->getColor());
    EXPECT_EQ("2", border->getWidth());

    // Template::init ran at the end of the document.
    EXPECT_EQ(base, dark->getBase());
    EXPECT_EQ(nullptr, base->getBase());
    EXPECT_EQ(base->getStyle(0), dark->findStyle("title"));
    EXPECT_EQ(nullptr, base->findStyle("body"));
    EXPECT_EQ(dark, target.getLayout("a")->getStyleSheet());
    EXPECT_EQ(base, target.getLayout("b")->getStyleSheet());
    EXPECT_EQ(base, target.getLayout("c")->getStyleSheet());
}

TEST(TemplateParser, MisplacedOrUnknownElementsGiveTwo) {
    const char* const documents[] = {
        "<template><layout><row><row/></row></layout></template>",
        "<template><layout><col><row/></col></layout></template>",
        "<template><layout><image><text/></image></layout></template>",
        "<template><layout><text><spacer/></text></layout></template>",
        "<template><layout><spacer><box/></spacer></layout></template>",
        "<template><stylesheet><style><border><border/></border></style></stylesheet></template>",
        "<template><style/></template>",
        "<template><border/></template>",
        "<template><image/></template>",
        "<template><row/></template>",
        "<template><stylesheet><layout/></stylesheet></template>",
        "<template><stylesheet><text/></stylesheet></template>",
        "<template><stylesheet><style><style/></style></stylesheet></template>",
        "<template><stylesheet><style><image/></style></stylesheet></template>",
        "<template><layout><scrooler/></layout></template>",
        "<template><layout><stylesheet/></layout></template>",
        "<template><layout><row><layout/></row></layout></template>",
        "<template><Layout/></template>",
        "<layout/>",
    };
    for (const char* document : documents) {
        EXPECT_EQ(2, stateOf(document)) << document;
    }
}

TEST(TemplateParser, AfterAnErrorTheRestIsIgnored) {
    Template target;
    TemplateParser parser;
    std::istringstream in("<template><stylesheet id=\"s\"/><layout id=\"a\"/><style/>"
                          "<layout id=\"b\"/><stylesheet id=\"t\"/></template>");
    EXPECT_EQ(2, parser.parse(in, &target));
    EXPECT_EQ(2, parser.getErrorState());
    EXPECT_EQ(1u, target.getLayoutCount());
    EXPECT_EQ(1u, target.getStyleSheetCount());
    // Template::init did not run: the layout was never given the style sheet.
    EXPECT_EQ(nullptr, target.getLayout(0)->getStyleSheet());
    ASSERT_EQ(3u, parser.getCreatedElements().size());
    EXPECT_EQ(Element::TEMPLATE, parser.getCreatedElements()[0].mKind);
    EXPECT_EQ(Element::STYLESHEET, parser.getCreatedElements()[1].mKind);
    EXPECT_EQ(Element::CONTAINER, parser.getCreatedElements()[2].mKind);
}

TEST(TemplateParser, TemplateInsideABoxStartsATemplateContext) {
    Template target;
    ASSERT_EQ(0, parseText("<template><layout id=\"outer\"><box>"
                           "<template><layout id=\"inner\"/><stylesheet id=\"s\"/></template>"
                           "<text/></box></layout></template>",
                           target));
    ASSERT_EQ(2u, target.getLayoutCount());
    EXPECT_EQ("outer", target.getLayout(0)->getId());
    EXPECT_EQ("inner", target.getLayout(1)->getId());
    EXPECT_EQ(1u, target.getStyleSheetCount());
    // After the inner template closed, the box is the innermost element again.
    Component* box = onlyComponentOf(*target.getLayout(0));
    ASSERT_NE(nullptr, box);
    Component* text = onlyComponentOf(*static_cast<Container*>(box));
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(Component::TEXT, text->getType());

    // Where it stands is never checked, not even inside elements that hold nothing else.
    EXPECT_EQ(0, stateOf("<template><layout><image><template><stylesheet/></template></image>"
                         "</layout></template>"));
    EXPECT_EQ(0, stateOf("<template><stylesheet><style><border><template/></border></style>"
                         "</stylesheet></template>"));
}

TEST(TemplateParser, TextCommentsAndUnknownAttributesAreIgnored) {
    Template target;
    ASSERT_EQ(0, parseText("<template>words<!-- c --><layout x=\"1\"><![CDATA[<row/>]]>"
                           "</layout></template>",
                           target));
    ASSERT_EQ(1u, target.getLayoutCount());
    EXPECT_EQ(0u, target.getLayout(0)->getSequenceCount());
    EXPECT_EQ("1", target.getLayout(0)->getAttribute("x"));
}

TEST(TemplateParser, MalformedDocumentsEndEarlyWithAResult) {
    ovtest::StderrCapture capture;
    Template truncated;
    // Not well formed: the events stop, the state stays 0 and the template keeps what was built.
    EXPECT_EQ(0, parseText("<template><layout><image/>", truncated));
    EXPECT_EQ(1u, truncated.getLayoutCount());
    EXPECT_EQ(0, stateOf("<template><layout></row></template>"));
    EXPECT_EQ(0, stateOf(std::string("<templ\0ate>", 11)));
    EXPECT_EQ(0, stateOf("\xff\xfe<\x01"));
    EXPECT_EQ("", engineOutput(capture.text()));
}

TEST(TemplateParser, DeepNestingIsBadStructure) {
    // Layout, boxes and template: exactly the deepest stack that is accepted, then one more.
    for (unsigned int boxes : {TemplateParser::MAX_DEPTH - 2, TemplateParser::MAX_DEPTH - 1}) {
        std::string text = "<template><layout>";
        for (unsigned int i = 0; i < boxes; ++i) {
            text += "<box>";
        }
        for (unsigned int i = 0; i < boxes; ++i) {
            text += "</box>";
        }
        text += "</layout></template>";
        bool accepted = boxes + 2 <= TemplateParser::MAX_DEPTH;
        EXPECT_EQ(accepted ? 0 : 2, stateOf(text)) << boxes;
    }
    // Far deeper documents end the parse just as well, without building more than the limit.
    std::string text = "<template><layout>";
    for (int i = 0; i < 200000; ++i) {
        text += "<box>";
    }
    TemplateParser parser;
    Template target;
    std::istringstream in(text);
    EXPECT_EQ(2, parser.parse(in, &target));
    EXPECT_EQ(TemplateParser::MAX_DEPTH, parser.getCreatedElements().size());
}

TEST(TemplateParser, ManyElementsOnOneLine) {
    std::string text = "<template><layout><row>";
    for (int i = 0; i < 20000; ++i) {
        text += "<text id=\"t" + std::to_string(i) + "\"/>";
    }
    text += "</row></layout></template>";
    Template target;
    ASSERT_EQ(0, parseText(text, target));
    Sequence* row = target.getLayout(0)->getSequence(0);
    ASSERT_EQ(20000u, row->getComponentCount());
    EXPECT_EQ("t19999", row->getComponent(19999)->getId());
    EXPECT_EQ(20000, target.getLayout(0)->getGridColumns());
}

namespace {

// Fails inside a callback, as a parse that runs out of memory would.
class FailingTemplateParser : public TemplateParser {
public:
    bool mFail = true;

protected:
    void onComment(const MString&) override {
        if (mFail) {
            throw std::bad_alloc();
        }
    }
};

} // namespace

TEST(TemplateParser, FailureInACallbackBecomesTheResultAndTheParserIsReusable) {
    FailingTemplateParser parser;
    const std::string text = "<template><layout id=\"a\"/><!--x--><layout id=\"b\"/></template>";
    Template first;
    std::istringstream in(text);
    EXPECT_EQ(TemplateParser::BAD_STRUCTURE, parser.parse(in, &first));
    EXPECT_EQ(TemplateParser::BAD_STRUCTURE, parser.getErrorState());
    EXPECT_EQ(1u, first.getLayoutCount());

    parser.mFail = false;
    Template second;
    std::istringstream again(text);
    EXPECT_EQ(0, parser.parse(again, &second));
    EXPECT_EQ(2u, second.getLayoutCount());
    EXPECT_EQ(3u, parser.getCreatedElements().size());
}

TEST(TemplateParser, AFailingStreamGivesTwoInsteadOfRaising) {
    FailingBuffer buffer("<template>\n<layout id=\"a\"/>\n");
    std::istream in(&buffer);
    in.exceptions(std::ios::badbit);
    TemplateParser parser;
    Template target;
    EXPECT_EQ(TemplateParser::BAD_STRUCTURE, parser.parse(in, &target));
    EXPECT_EQ(1u, target.getLayoutCount());
}

TEST(TemplateParser, NothingIsReadAfterAnElementIsRefused) {
    // Well formed so far and never ending, as a pipe that keeps writing.
    EndlessBuffer buffer("<template><layout id=\"a\"/><style/>", "<layout id=\"b\"/>");
    std::istream in(&buffer);
    TemplateParser parser;
    Template target;
    EXPECT_EQ(2, parser.parse(in, &target));
    EXPECT_EQ(1u, target.getLayoutCount());
    EXPECT_LE(buffer.mHandedOut, 2u * 4096u);
}

TEST(TemplateParser, AStateTwoParseDoesNotSpoilTheNext) {
    TemplateParser parser;
    Template bad;
    std::istringstream in("<template><style/></template>");
    EXPECT_EQ(2, parser.parse(in, &bad));
    Template good;
    std::istringstream again("<template><layout/></template>");
    EXPECT_EQ(0, parser.parse(again, &good));
    EXPECT_EQ(1u, good.getLayoutCount());
}

TEST(Template, BasedOnCyclesAreNotLinked) {
    Template target;
    ASSERT_EQ(0, parseText("<template>"
                           "<stylesheet id=\"a\" based-on=\"b\"/>"
                           "<stylesheet id=\"b\" based-on=\"a\"/>"
                           "<stylesheet id=\"c\" based-on=\"c\"/>"
                           "</template>",
                           target));
    StyleSheet* a = target.getStyleSheet("a");
    StyleSheet* b = target.getStyleSheet("b");
    EXPECT_EQ(b, a->getBase());
    EXPECT_EQ(nullptr, b->getBase());
    EXPECT_EQ(nullptr, target.getStyleSheet("c")->getBase());
    EXPECT_EQ(nullptr, a->findStyle("missing"));
}

TEST(Component, SpansDefaultToOneUnlessPositiveDigits) {
    const char* const values[] = {"", "0", "-2", "x3", "99999999999999999999"};
    for (const char* value : values) {
        Content text(Component::TEXT);
        AttributeList attributes;
        attributes.add("row-span", value);
        text.setAttributes(attributes);
        EXPECT_EQ(1, text.getRowSpan()) << value;
    }
    Content text(Component::TEXT);
    AttributeList attributes;
    attributes.add("row-span", "4rows");
    text.setAttributes(attributes);
    EXPECT_EQ(4, text.getRowSpan());
}

namespace {

// "name=value ..." of every pair, in the order kept.
std::string pairsOf(const AttributeVector& attributes) {
    std::string out;
    for (const Attribute& attribute : attributes) {
        out += attribute.mName + "=" + attribute.mValue + " ";
    }
    return out;
}

} // namespace

// The parser hands each object the texts of its start tag without copying them; every kind of
// object, wherever it stands, must still end up with all its pairs, in order.
TEST(TemplateParser, EveryObjectKeepsEveryPairOfItsTag) {
    const std::string font = "bold 12pt/14pt Arial, 'Times New Roman', a name long enough";
    Template target;
    ASSERT_EQ(0, parseText("<template>\n"
                           "<stylesheet id=\"s\" based-on=\"\">\n"
                           "  <style selector=\"c\" font=\"" +
                               font +
                               "\">\n"
                               "    <border color=\"red\" width=\"1\"/>\n"
                               "  </style>\n"
                               "</stylesheet>\n"
                               "<layout id=\"l\" stylesheet=\"s\">\n"
                               "  <box id=\"b\" col-span=\"2\"><text id=\"t\"/></box>\n"
                               "  <row><image id=\"i\" alt-image=\"" +
                               font +
                               "\" row-span=\"3\"/></row>\n"
                               "</layout>\n"
                               "</template>\n",
                           target));
    ASSERT_EQ(1u, target.getStyleSheetCount());
    StyleSheet* sheet = target.getStyleSheet(0);
    EXPECT_EQ("id=s based-on= ", pairsOf(sheet->getAttributes()));
    ASSERT_EQ(1u, sheet->getStyleCount());
    EXPECT_EQ("selector=c font=" + font + " ", pairsOf(sheet->getStyle(0)->getAttributes()));
    ASSERT_NE(nullptr, sheet->getStyle(0)->getBorder());
    EXPECT_EQ("color=red width=1 ", pairsOf(sheet->getStyle(0)->getBorder()->getAttributes()));

    ASSERT_EQ(1u, target.getLayoutCount());
    Layout* layout = target.getLayout(0);
    EXPECT_EQ("id=l stylesheet=s ", pairsOf(layout->getAttributes()));
    EXPECT_EQ(sheet, layout->getStyleSheet());
    ASSERT_EQ(2u, layout->getSequenceCount());
    Component* box = layout->getSequence(0)->getComponent(0);
    EXPECT_EQ("id=b col-span=2 ", pairsOf(box->getAttributes()));
    EXPECT_EQ(2, box->getColSpan());
    Component* text = onlyComponentOf(static_cast<Container&>(*box));
    ASSERT_NE(nullptr, text);
    EXPECT_EQ("t", text->getId());
    Component* image = layout->getSequence(1)->getComponent(0);
    EXPECT_EQ(font, static_cast<Content*>(image)->getAltImage());
    EXPECT_EQ(3, image->getRowSpan());
}

// A list given by value and one given to be taken over leave the component the same.
TEST(Component, TakingAListOverKeepsWhatACopyKeeps) {
    AttributeList attributes;
    attributes.add("row-span", "2");
    attributes.add("model-property", "a property name longer than a short string");
    attributes.add("row-span", "7");
    attributes.add("col-span", "3");
    Content copied(Component::TEXT);
    copied.setAttributes(attributes);
    Content taken(Component::TEXT);
    taken.setAttributes(std::move(attributes));
    EXPECT_EQ(pairsOf(copied.getAttributes()), pairsOf(taken.getAttributes()));
    EXPECT_EQ("a property name longer than a short string", taken.getModelProperty());
    EXPECT_EQ(2, taken.getRowSpan());
    EXPECT_EQ(3, taken.getColSpan());
}

TEST(TemplateParser, ObjectsGetAttributeValuesDecoded) {
    Template target;
    ASSERT_EQ(0, parseText("<template><layout id=\"a&amp;b\">"
                           "<text id=\"&lt;&#x41;&#66;&gt;\" class=\"x&#38;#38;\"/>"
                           "</layout></template>",
                           target));
    ASSERT_EQ(1u, target.getLayoutCount());
    EXPECT_EQ("a&b", target.getLayout(0)->getId());
    EXPECT_EQ(target.getLayout(0), target.getLayout("a&b"));
    Component* text = onlyComponentOf(*target.getLayout(0));
    ASSERT_NE(nullptr, text);
    EXPECT_EQ("<AB>", text->getId());
    EXPECT_EQ("x&#38;", text->getAttribute("class"));
}
