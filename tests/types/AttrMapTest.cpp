#include "types/AttrMap.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <sstream>
#include <thread>

using ovTypes::ID;
using ovTypes::String;

namespace {

std::string stored(const AttrMap& map) {
    std::ostringstream out;
    map.store(out);
    return out.str();
}

AttrMap loaded(const std::string& bytes, bool listMode) {
    AttrMap map(listMode);
    std::istringstream in(bytes);
    map.load(in);
    return map;
}

AttrMap::Values values(const AttrMap& map, const ID& key,
                       const ID& category = AttrMap::DEFAULT_CATEGORY) {
    const AttrMap::KeyMap* keys = map.categoryAt(category);
    if (!keys || keys->find(key) == keys->end())
        return {L"<absent>"};
    return keys->at(key);
}

// What the getters give for KEY in CATEGORY: the string and whether it was found, the IDs, and
// the nested map as stored and whether it was found.
std::wstring probe(const AttrMap& map, const ID& category, const ID& key) {
    bool found = false;
    std::wstring out = map.getString(key, L"-", &found, category) + (found ? L"+" : L"-");
    std::vector<ID> ids;
    map.getIDs(key, ids, nullptr, category);
    for (const ID& id : ids)
        out += L"," + String(id);
    AttrMap nested(true);
    map.getAttrMap(key, nested, &found, category);
    return out + (found ? L"+" : L"-") + String(ID(stored(nested)));
}

TEST(AttrMapStore, DefaultCategoryFirstThenOthersInByteOrder) {
    AttrMap map(false);
    map.putString("k", L"v", "zeta");
    map.putString("k", L"v", "Alpha");
    map.putString("k", L"v", "_");
    map.putString("z", L"1");
    map.putString("a", L"2");
    EXPECT_EQ(stored(map), "a=2\nz=1\n[Alpha]\nk=v\n[_]\nk=v\n[zeta]\nk=v\n");
}

TEST(AttrMapStore, EscapingAndEncodingRules) {
    AttrMap list(true);
    list.putIDs("k", {ID("a\\"), ID("b")});
    list.putIDs("empty", {});
    list.putString("\xE9", L"\u20AC"); // key bytes are widened, then written as UTF-8
    list.putString("x", L"1", "\xE9"); // category bytes are written raw
    // Four bytes for U+1F600; nothing for a code point beyond Unicode.
    list.putString("z", String(L"\U0001F600,") + static_cast<wchar_t>(0x110000));
    EXPECT_EQ(stored(list),
              "empty=\nk=a\\,b\nz=\xF0\x9F\x98\x80\\,\n\xC3\xA9=\xE2\x82\xAC\n[\xE9]\nx=1\n");

    AttrMap plain(false);
    plain.putIDs("k", {ID("a,b"), ID("c")});
    EXPECT_EQ(stored(plain), "k=a,b\n"); // first string only, nothing escaped

    AttrMap back = loaded(stored(list), true);
    // Keys and texts read back as written, and the raw category byte E9, a sequence the "]"
    // cuts short, as itself.
    EXPECT_EQ(stored(back), stored(list));
    // Backslashes are not escaped, so a string ending in one swallows the separator.
    EXPECT_EQ(values(back, "k"), (AttrMap::Values{L"a,b"}));
    EXPECT_EQ(values(back, "empty"), (AttrMap::Values{L""}));
}

TEST(AttrMapLoad, LineRules) {
    AttrMap map = loaded("#comment=1\r\n"
                         "  k  =  v  \r\n"
                         "t\t=tab\n"
                         "novalue\n"
                         "\n"
                         "=anonymous\n"
                         "[sec]trailing\n"
                         "a=b=c\n"
                         "[x\n"
                         "y=1\n"
                         "[\n"
                         "z=2",
                         false);
    // Comments and lines without "=" are dropped, only spaces are trimmed from the end of a key,
    // and a header ends at "]" or at the end of its line.
    EXPECT_EQ(stored(map), "=anonymous\n  k=v  \nt\t=tab\n[]\nz=2\n[sec]\na=b=c\n[x]\ny=1\n");
}

TEST(AttrMapLoad, RepeatedKeysListsAndClearing) {
    AttrMap plain = loaded("k=first\nk=second,third\n", false);
    EXPECT_EQ(values(plain, "k"), (AttrMap::Values{L"first", L"second,third"}));
    EXPECT_EQ(plain.getString("k"), L"first");

    AttrMap list = loaded("t=a,,b,\ne=\nesc=\\,x\\\\,y\nk=1\nk=2,3\n", true);
    EXPECT_EQ(values(list, "t"), (AttrMap::Values{L"a", L"", L"b", L""}));
    EXPECT_EQ(values(list, "e"), (AttrMap::Values{L""}));
    EXPECT_EQ(values(list, "esc"), (AttrMap::Values{L",x\\,y"}));
    EXPECT_EQ(values(list, "k"), (AttrMap::Values{L"1", L"2", L"3"}));

    // A header alone creates no category; load replaces what was there.
    std::istringstream in("[only]\n");
    list.load(in);
    const AttrMap::CategoryMap& held = list.categories();
    EXPECT_TRUE(held.empty());
    // What categories() handed out sees every later load and assignment.
    std::istringstream again("k=v\n[c]\nx=y\n");
    list.load(again);
    EXPECT_EQ(held.size(), 2u);
    list = loaded("a=b\n", true);
    EXPECT_EQ(held.size(), 1u);
    // Const calls on several threads at once, the first of them building the map form.
    const AttrMap shared = loaded("a=1\n[c]\nb=2\n", false);
    std::vector<std::thread> readers;
    std::vector<std::string> seen(4);
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&shared, &seen, i] {
            seen[i] = i % 2 ? stored(shared) : ID(shared.getString("b", L"", nullptr, "c"));
        });
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(seen, (std::vector<std::string>{"2", "a=1\n[c]\nb=2\n", "2", "a=1\n[c]\nb=2\n"}));
}

TEST(AttrMapLoad, KeysOfAnyLengthOrderAndScript) {
    // Keys around the length where narrowing moves off the stack, non-ASCII keys narrowed to
    // their low bytes, and keys out of order, repeated after others.
    const std::string k64(64, 'k'), k65(65, 'k'), k300(300, 'q');
    AttrMap map = loaded("z=1\n" + k65 + "  =b\n" + k64 + "=a\nm\xC3\xA9=c\n\xE4\xBB\x8A=d\n" +
                             k300 + "=e\nz=2\na=3\n",
                         false);
    const std::pair<ID, AttrMap::Values> rows[] = {
        {"z", {L"1", L"2"}}, {k64, {L"a"}},    {k65, {L"b"}}, {k300, {L"e"}},
        {"m\xE9", {L"c"}},   {"\xCA", {L"d"}}, {"a", {L"3"}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(values(map, row.first), row.second) << row.first;
    EXPECT_EQ(map.defaultCategory()->size(), 7u);
}

TEST(AttrMapLoad, AnyBytesAreAccepted) {
    // NUL kept, a sequence cut off at the end read byte by byte, forms beyond Unicode read as
    // the numbers they spell: all of it kept in the packed form as read.
    AttrMap map =
        loaded(std::string("k=v\0w\n", 6) +
                   "big=\xF4\x90\x80\x80\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF\n" + "k3=\xC3",
               false);
    EXPECT_EQ(map.getString("k"), String(std::wstring(L"v\0w", 3)));
    EXPECT_EQ(map.getString("big"),
              String(std::wstring{static_cast<wchar_t>(0x110000), static_cast<wchar_t>(0x200000),
                                  static_cast<wchar_t>(0x7FFFFFFF)}));
    bool found = false;
    EXPECT_EQ(map.getString("k3", L"def", &found), L"\u00C3");
    EXPECT_TRUE(found);

    // Loaded text is kept packed until the map form is asked for: the getters read both
    // alike, and loading never leaves a key without a string.
    std::mt19937 random(7);
    const ID probes[] = {"", "a", "a.", "k", "_default_", "\xE9"};
    for (int round = 0; round < 300; ++round) {
        std::string bytes(random() % 400, '\0');
        for (char& c : bytes)
            c = static_cast<char>(random() % 4 == 0 ? "\n=[],\\a.k# "[random() % 11] : random());
        for (bool listMode : {false, true}) {
            const AttrMap packed = loaded(bytes, listMode);
            AttrMap map = packed;
            for (const ID& category : probes)
                EXPECT_EQ(probe(packed, category, "k"), probe(map, category, "k"));
            for (const auto& category : map.categories()) {
                std::vector<ID> keys(std::begin(probes), std::end(probes));
                for (const auto& entry : category.second) {
                    EXPECT_FALSE(entry.second.empty());
                    keys.push_back(entry.first);
                }
                for (const ID& key : keys)
                    EXPECT_EQ(probe(packed, category.first, key), probe(map, category.first, key));
            }
            EXPECT_EQ(stored(packed), stored(map));
        }
    }
}

TEST(AttrMapGet, NumbersClampLikeWcstol) {
    // getLong clamps to long, like wcstol: 64 bits on a 64-bit host, 32 on the phone.
    const bool longIs64 = sizeof(long) == 8;
    const struct {
        const wchar_t* text;
        int asInt;
        long asLong; // both read with the default 5
    } rows[] = {
        {L"010", 8, 8},
        {L"0x1F", 31, 31},
        {L"abc", 0, 0},
        {L"", 5, 5},
        {L"99999999999", INT_MAX, longIs64 ? 99999999999L : LONG_MAX},
        {L"-99999999999", INT_MIN, longIs64 ? -99999999999L : LONG_MIN},
        {L"99999999999999999999999", INT_MAX, LONG_MAX},
    };
    for (const auto& row : rows) {
        AttrMap map(false);
        map.putString("k", row.text);
        bool found = false;
        EXPECT_EQ(row.asInt, map.getInt("k", 5, &found)) << ID(String(row.text));
        EXPECT_TRUE(found);
        EXPECT_EQ(row.asLong, map.getLong("k", 5)) << ID(String(row.text));
    }
}

TEST(AttrMapGet, BoolsAndTimestamps) {
    AttrMap map(false);
    map.putBool("t", true);
    map.putBool("f", false);
    map.putString("upper", L"TRUE");
    map.putString("empty", L"");
    EXPECT_TRUE(map.getBool("t"));
    EXPECT_FALSE(map.getBool("f", true));
    EXPECT_FALSE(map.getBool("upper", true));
    EXPECT_TRUE(map.getBool("empty", true));
    EXPECT_TRUE(map.getBool("absent", true));

    map.putTimestamp("five", 5);
    map.putTimestamp("zero", 0);
    map.putTimestamp("neg", -2);
    EXPECT_EQ(stored(map), "empty=\nf=false\nfive=5000\nneg=-2000\nt=true\nupper=TRUE\nzero=0\n");
    EXPECT_EQ(map.getTimestamp("five"), 5);
    EXPECT_EQ(map.getTimestamp("zero", 9), 0);
    EXPECT_EQ(map.getTimestamp("neg"), -2);
    EXPECT_EQ(map.getTimestamp("absent", 9), 9);
}

TEST(AttrMapPut, ReplacingAppendingAndTheLongQuirk) {
    AttrMap map(true);
    map.putIDs("ids", {ID("a")});
    map.putIDs("ids", {ID("b"), ID("\xE9")});
    std::vector<ID> out{ID("pre")};
    bool found = false;
    map.getIDs("ids", out, &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(out, (std::vector<ID>{ID("pre"), ID("a"), ID("b"), ID("\xE9")}));
    map.getIDs("none", out, &found);
    EXPECT_FALSE(found);
    EXPECT_EQ(out.size(), 4u);

    map.putString("ids", L"only");
    map.putInt("n", -42, "c");
    map.putLong("l", 7, "c"); // a long goes to the default category, whatever the one named
    map.putIDs("emptylist", {});
    EXPECT_EQ(stored(map), "emptylist=\nids=only\nl=7\n[c]\nn=-42\n");
    EXPECT_EQ(map.getString("emptylist", L"def", &found), L"def");
    EXPECT_TRUE(found);
}

TEST(AttrMapNested, PutAndGetAttrMap) {
    AttrMap inner(true);
    inner.putIDs("x", {ID("1"), ID("2")});
    inner.putString("y", L"3");
    inner.putString("other", L"4", "c");

    AttrMap outer(true);
    outer.putString("img", L"keep");
    outer.putString("imgz", L"not nested");
    outer.putAttrMap("img", inner);
    outer.putAttrMap("img", inner, "absent"); // inner lacks it: nothing
    EXPECT_EQ(stored(outer), "img=keep\nimg.x=1,2\nimg.y=3\nimgz=not nested\n");

    AttrMap back(true);
    back.putString("old", L"stays");
    bool found = false;
    outer.getAttrMap("img", back, &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(stored(back), "old=stays\nx=1,2\ny=3\n");

    // The category exists but nothing matches: OUT gets the empty category, found is false.
    AttrMap none(true);
    outer.getAttrMap("nothing", none, &found);
    EXPECT_FALSE(found);
    ASSERT_NE(none.categoryAt(AttrMap::DEFAULT_CATEGORY), nullptr);
    EXPECT_EQ(stored(none), ""); // the default category never gets a header
    AttrMap header(true);
    outer.putString("k", L"v", "sec");
    outer.getAttrMap("nothing", header, &found, "sec");
    EXPECT_EQ(stored(header), "[sec]\n"); // an empty category still does

    // A map nested into itself takes the entries it had before the call.
    AttrMap self(true);
    self.putString("a", L"1");
    self.putString("b", L"2");
    self.putAttrMap("a", self);
    EXPECT_EQ(stored(self), "a=1\na.a=1\na.b=2\nb=2\n");
    AttrMap flat(true);
    flat.putString("n.n.x", L"1");
    flat.getAttrMap("n", flat);
    EXPECT_EQ(stored(flat), "n.n.x=1\nn.x=1\n"); // "n.x" is not nested again

    // The category is absent: OUT is untouched.
    AttrMap untouched(true);
    found = true;
    outer.getAttrMap("img", untouched, &found, "c");
    EXPECT_FALSE(found);
    EXPECT_TRUE(untouched.categories().empty());
}

} // namespace
