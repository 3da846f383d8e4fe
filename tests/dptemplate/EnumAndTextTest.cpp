#include "dptemplate/EnumAndText.h"
#include "dptemplate/AttributeList.h"
#include "dptemplate/Component.h"
#include "dptemplate/TemplateParser.h"

#include <gtest/gtest.h>

using DPTemplate::AttributeList;
using DPTemplate::Component;
using DPTemplate::EnumAndText;
using DPTemplate::TemplateParser;

TEST(EnumAndText, KeywordsCountFromOneAndUnknownGivesDefault) {
    EnumAndText table("alpha beta gamma", -1);
    EXPECT_EQ(4u, table.size());
    EXPECT_EQ(1, table.lookUpValue("alpha"));
    EXPECT_EQ(3, table.lookUpValue("gamma"));
    EXPECT_EQ(-1, table.lookUpValue("delta"));
    // Prefixes and extensions of a keyword are not the keyword.
    EXPECT_EQ(-1, table.lookUpValue("alph"));
    EXPECT_EQ(-1, table.lookUpValue("alphabet"));
    EXPECT_EQ(-1, table.lookUpValue("Alpha"));
    // Entry 0 is never compared, so the empty text is unknown here.
    EXPECT_EQ(-1, table.lookUpValue(""));
    EXPECT_EQ(7, EnumAndText("a b", 7).lookUpValue("c"));
}

TEST(EnumAndText, TwoBlanksMakeAnEmptyKeyword) {
    EnumAndText table("first  second", -1);
    ASSERT_EQ(4u, table.size());
    EXPECT_EQ("", table.lookUpText(0));
    EXPECT_EQ("first", table.lookUpText(1));
    EXPECT_EQ("", table.lookUpText(2));
    EXPECT_EQ("second", table.lookUpText(3));
    EXPECT_EQ(2, table.lookUpValue(""));
    EXPECT_EQ(3, table.lookUpValue("second"));
}

TEST(EnumAndText, LookUpTextOutsideTheTableGivesTheEmptyEntry) {
    EnumAndText table("one two", -1);
    EXPECT_EQ("two", table.lookUpText(2));
    EXPECT_EQ("", table.lookUpText(3));
    EXPECT_EQ("", table.lookUpText(static_cast<unsigned int>(-1)));
}

TEST(EnumAndText, BuiltFromAnArrayMatchesTheTextForm) {
    const char* const words[] = {"box", "image", "layout"};
    EnumAndText fromArray(words, 3);
    EnumAndText fromText("box image layout");
    ASSERT_EQ(fromText.size(), fromArray.size());
    for (unsigned int i = 0; i < fromText.size(); ++i) {
        EXPECT_EQ(fromText.lookUpText(i), fromArray.lookUpText(i));
    }
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

TEST(AttributeList, KeepsDocumentOrderAndTheFirstOfTwoNames) {
    AttributeList list;
    list.add("id", "first");
    list.add("width", "10");
    list.add("id", "second");
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ("first", list.getAttribute("id"));
    EXPECT_EQ("width", list[1].mName);
    EXPECT_EQ("second", list[2].mValue);
}

TEST(AttributeList, AbsentAndEmptyLookTheSame) {
    AttributeList list;
    list.add("class", "");
    EXPECT_EQ("", list.getAttribute("class"));
    EXPECT_EQ("", list.getAttribute("missing"));
    // Names are compared exactly.
    list.add("Id", "x");
    EXPECT_EQ("", list.getAttribute("id"));
}
