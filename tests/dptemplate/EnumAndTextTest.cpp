#include "dptemplate/EnumAndText.h"
#include "dptemplate/AttributeList.h"
#include "dptemplate/Component.h"
#include "dptemplate/TemplateParser.h"

#include <gtest/gtest.h>

using DPTemplate::AttributeList;
using DPTemplate::Component;
using DPTemplate::EnumAndText;
using DPTemplate::TemplateParser;

// Keywords count from one; entry 0 is the empty text and never compared; two blanks make an
// empty keyword; unknown texts give the default and indexes outside the table the empty entry.
TEST(EnumAndText, LookUpsBothWays) {
    EnumAndText table("alpha  gamma", -1);
    ASSERT_EQ(4u, table.size());
    const char* const texts[] = {"", "alpha", "", "gamma", "", ""};
    for (unsigned int i = 0; i < 6; ++i)
        EXPECT_EQ(texts[i], table.lookUpText(i)) << i;
    EXPECT_EQ("", table.lookUpText(static_cast<unsigned int>(-1)));
    for (int i = 1; i <= 3; ++i)
        EXPECT_EQ(i, table.lookUpValue(texts[i])) << i;
    for (const char* unknown : {"delta", "alph", "alphabet", "Alpha"})
        EXPECT_EQ(-1, table.lookUpValue(unknown)) << unknown;
    EXPECT_EQ(-1, EnumAndText("a b", -1).lookUpValue(""));
    EXPECT_EQ(7, EnumAndText("a b", 7).lookUpValue("c"));

    const char* const words[] = {"box", "image", "layout"};
    EnumAndText fromArray(words, 3);
    ASSERT_EQ(4u, fromArray.size());
    EXPECT_EQ("layout", fromArray.lookUpText(3));
    EXPECT_EQ(2, fromArray.lookUpValue("image"));
}

TEST(EnumAndText, EngineTablesKeepTheirPositionsAndSpellings) {
    const EnumAndText& elements = TemplateParser::mTransType;
    EXPECT_EQ(1, elements.lookUpValue("template"));
    EXPECT_EQ(4, elements.lookUpValue("row"));
    EXPECT_EQ(7, elements.lookUpValue("scroller"));
    EXPECT_EQ(12, elements.lookUpValue("border"));
    EXPECT_EQ(-1, elements.lookUpValue("scrooler"));

    const EnumAndText& components = Component::mTransType;
    EXPECT_EQ(4, components.lookUpValue("scrooler"));
    EXPECT_EQ(-1, components.lookUpValue("scroller"));
    EXPECT_EQ(6, components.lookUpValue("text"));
    EXPECT_EQ("spacer", components.lookUpText(5));
}

// Document order is kept; the first of two names wins; absent and empty look the same; names
// are compared exactly.
TEST(AttributeList, KeepsDocumentOrderAndTheFirstOfTwoNames) {
    AttributeList list;
    list.add("id", "first");
    list.add("class", "");
    list.add("id", "second");
    list.add("Width", "x");
    ASSERT_EQ(4u, list.size());
    EXPECT_EQ("second", list[2].mValue);
    EXPECT_EQ("first", list.getAttribute("id"));
    EXPECT_EQ("", list.getAttribute("class"));
    EXPECT_EQ("", list.getAttribute("missing"));
    EXPECT_EQ("", list.getAttribute("width"));
}
