#include "types/MString.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(MStringUtf8, ConvertsBetweenWideAndUtf8) {
    EXPECT_EQ(MString(std::wstring(L"A\u00E9\u20AC\U0010FFFF")),
              "A\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF");
    MString s;
    s.write(static_cast<wchar_t>(0x110000));
    s.write(static_cast<wchar_t>(-5));
    EXPECT_EQ(s, "");

    MString assigned("old");
    EXPECT_EQ(assigned = std::wstring(L"\u20AC"), "\xE2\x82\xAC");
    EXPECT_EQ(assigned.assign(std::wstring(L"x")), "x");

    // Back to wide: a round trip, stray bytes skipped, a cut sequence read byte by byte.
    std::wstring wide = L"k=\u00E9t\u00E9 \u4E2D\u6587 \U0001F600";
    EXPECT_EQ(MString(wide).toWide(), wide);
    EXPECT_EQ(MString("a\x80"
                      "b\xE2\x82")
                  .toWide(),
              L"ab\u00E2\u0082");
    EXPECT_EQ(MString(std::string("a\0b", 3)).toWide(), std::wstring(L"a\0b", 3));
}

TEST(MStringUtf8, ReadIsLenientAndNeverPassesTheEnd) {
    unsigned int length = 0;
    MString text("\x82\x82\xE2\x82\xAC!");
    EXPECT_EQ(text.read(text.data(), length), 0x20AC);
    EXPECT_EQ(length, 5u); // two skipped continuation bytes included
    EXPECT_EQ(text.read(text.data() + 5, length), '!');
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(text.read(text.data() + 6, length), -1);
    EXPECT_EQ(length, 0u);

    // Overlong forms are accepted; a sequence cut off by the end or a byte below 0x80 gives
    // each of its bytes, one call each.
    MString overlong("\xC1\x81");
    EXPECT_EQ(overlong.read(overlong.data(), length), 'A');
    MString cut("\xF0\x9F\x98\n\xE9");
    std::vector<int> decoded;
    for (size_t at = 0; at < cut.size(); at += length)
        decoded.push_back(cut.read(cut.data() + at, length));
    EXPECT_EQ(std::vector<int>({0xF0, 0x9F, 0x98, '\n', 0xE9}), decoded);

    // Bytes beyond Unicode's lead bytes still decode to a non-negative value.
    MString garbage("\xFF\xBF\xBF\xBF\xBF\xBF\xBF\xBF");
    EXPECT_GE(garbage.read(garbage.data(), length), 0);
    EXPECT_EQ(length, 8u);

    // A pointer outside the string is bounded by its NUL.
    const char* foreign = "\xE2\x82";
    EXPECT_EQ(text.read(foreign, length), 0xE2);
    EXPECT_EQ(length, 1u);
}

TEST(MStringConvert, HexIntReadsLeadingHexDigitsOnly) {
    const std::pair<const char*, int> rows[] = {
        {"1fz", 31}, {"z1", 0},  {"1z", 1},   {"ff  ", 255},        {" ff", 0},
        {"", 0},     {" \t", 0}, {"0x1f", 0}, {"FF00ff", 0xFF00FF}, {"1f 2", 31},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.second, MString(row.first).toHexInt()) << row.first;
}

TEST(MStringConvert, NumbersBoolsAndAssignments) {
    EXPECT_EQ(MString("123abc").toInt(), 123);
    EXPECT_EQ(MString("007").toInt(), 7);
    EXPECT_DOUBLE_EQ(MString("2.5").toDouble(), 2.5);
    EXPECT_TRUE(MString("1").toBool());
    EXPECT_FALSE(MString("0").toBool());
    EXPECT_FALSE(MString("true").toBool());

    // toTypeValue leaves the value as it was when the text does not read, and says true.
    int i = 42;
    EXPECT_TRUE(toTypeValue(MString("nope"), i));
    EXPECT_EQ(i, 42);
    EXPECT_TRUE(toTypeValue(MString("17"), i));
    EXPECT_EQ(i, 17);

    MString s;
    s = 1.5;
    EXPECT_EQ(s, "1.500000");
    EXPECT_EQ(s.assigni(255, "%04x"), "00ff");
    // The formatting buffer holds 62 characters and a NUL.
    s.assignd(1e80);
    EXPECT_EQ(s.size(), 62u);
}

// hasToken looks at the first occurrence only.
TEST(MStringQuery, TokensAndComparisons) {
    EXPECT_FALSE(MString::isSpace('\v'));
    EXPECT_FALSE(MString::isDigit('\0'));
    EXPECT_FALSE(MString("abcab").startsWith("b"));

    MString text("abc def");
    EXPECT_TRUE(text.hasToken("def"));
    EXPECT_FALSE(text.hasToken("de"));
    EXPECT_TRUE(text.hasToken("bc"));
    EXPECT_TRUE(MString("xdef").hasToken("def"));
    EXPECT_FALSE(MString("").hasToken(""));
    EXPECT_FALSE(MString("ab abc").hasToken("ab c"));
    EXPECT_FALSE(MString("abc\tdef").hasToken("abc")) << "only a space ends a token";
    // "de" first occurs followed by "f"; the later exact token is not tried.
    EXPECT_FALSE(MString("def de").hasToken("de"));

    // compare and comparei go to the end of both texts for the largest count.
    const unsigned int all = static_cast<unsigned int>(-1);
    EXPECT_EQ(MString("abcX").compare("abcY", 3), 0);
    EXPECT_LT(MString("abcX").compare("abcY", all), 0);
    EXPECT_EQ(MString("ABCx").comparei("abcy", 3), 0);
    EXPECT_NE(MString("ABCx").comparei("abcy", all), 0);
}

TEST(MStringEdit, SplitReplaceTrim) {
    std::string left, right;
    EXPECT_FALSE(MString("abc").split('=', left, right));
    EXPECT_TRUE(MString("k=v=w").split('=', left, right));
    EXPECT_EQ(left, "k");
    EXPECT_EQ(right, "v=w");

    MString s("aaa");
    EXPECT_EQ(s.replaceAll("a", "aa"), "aaaaaa");
    MString t("x.y.z");
    EXPECT_EQ(t.replaceAll(".", ""), "xyz");

    EXPECT_EQ(MString("\t a b \r\n").ltrim(), "a b \r\n");
    EXPECT_EQ(MString("\t a b \r\n").rtrim(), "\t a b");
    EXPECT_EQ(MString(" \t\n").atrim(), "");
    EXPECT_EQ(MString("xyaxy").atrims("xy"), "a");
    EXPECT_EQ(MString("--a--").rtrimc('-'), "--a");
}

TEST(MStringEdit, CaseAndTabs) {
    MString s("Ab\xC3\x89z");
    const MString& cs = s;
    EXPECT_EQ(cs.toUpper(), "AB\xC3\x89Z");
    EXPECT_EQ(s, "Ab\xC3\x89z"); // the const form copies
    s.toLower();
    EXPECT_EQ(s, "ab\xC3\x89z");

    EXPECT_EQ(MString("a\tb").tab2sp(4), "a   b");
    EXPECT_EQ(MString("\t").tab2sp(4), "    ");
    EXPECT_EQ(MString("abcd\tx").tab2sp(4), "abcd    x");
    EXPECT_EQ(MString("a\t\tb").tab2sp(3), "a     b");
    EXPECT_EQ(MString("a\tb").tab2sp(0), "a\tb");
}

TEST(MStringEdit, ReadAll) {
    std::string big(600, 'q');
    big += "end";
    std::istringstream in(big);
    MString s("pre:");
    EXPECT_TRUE(s.readall(in));
    EXPECT_EQ(s, "pre:" + big);
    EXPECT_FALSE(s.readall(in)); // the stream has ended
    EXPECT_EQ(s, "pre:" + big);

    std::istringstream exact(std::string(256, 'e'));
    MString e;
    EXPECT_TRUE(e.readall(exact));
    EXPECT_EQ(e.size(), 256u);
}

} // namespace
