// The stream form of news objects: the keys each object writes, their defaults, what is and
// is not read back, and streams that are garbage or empty.
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"

#include <gtest/gtest.h>

#include <climits>

#include <sstream>

using ovTypes::ID;
using ovTypes::String;

namespace {

// The bytes OBJECT stores.
std::string streamOf(const Streamable& object) {
    std::ostringstream out;
    EXPECT_TRUE(object.store(out));
    return out.str();
}

void loadFrom(Streamable& object, const std::string& bytes) {
    std::istringstream in(bytes);
    object.load(in);
}

// The lines of OBJECT's stream that a fresh item does not have.
std::string changedLines(const Item& item) {
    const std::string fresh = "\n" + streamOf(Item("i1"));
    std::istringstream lines(streamOf(item));
    std::string out;
    for (std::string line; std::getline(lines, line);) {
        if (fresh.find("\n" + line + "\n") == std::string::npos)
            out += line + "\n";
    }
    return out;
}

// An item with every field away from its default.
void fill(Item& item) {
    item.getAttributes().putString("lang", L"fr");
    item.getAttributes().putString("source", L"wire");
    item.author.reset(new NewsObject::Author{L"Ann", L"http://a.example/", L"ann@a.example"});
    item.activationDate = 1170000000;
    item.contentMap.reset(new NewsObject::ContentMap);
    (*item.contentMap)["image"] = {
        "image/gif", "inline", "thumb", "img-1", L"http://a.example/1.gif", L"R0lG"};
    item.excerptContentMap.reset(new NewsObject::ContentMap);
    (*item.excerptContentMap)["page.main"].contextId = "page-1";
    item.description = L"Caf\u00e9, \u20ac and more";
    item.setDisplayInExcerpt(false);
    item.entryType = "csio";
    item.excerpt = L"short";
    item.expirationDate = 1170003600;
    item.link.reset(
        new NewsObject::Link{L"http://a.example/story", L"text/html", NewsObject::REL_SELF});
    item.order = -3;
    item.parentID = "chan-1";
    item.priority = 7;
    item.pubdate = 1169990000;
    item.setShowExcerpt(false);
    item.templateID = "tpl-1";
    item.templateHref = L"http://a.example/tpl";
    item.title = L"Headline";
    item.flags |= NewsObject::FLAG_VISITED;
    item.currentDisplayCount = 4;
    item.displayCountLimit = 9;
    item.displayTime = 15;
}

// What storeIntoAttrs gives, written by the map itself.
std::string mapBytesOf(const Streamable& object) {
    AttrMap attrs(true);
    object.storeIntoAttrs(attrs);
    std::ostringstream out;
    attrs.store(out);
    return out.str();
}

} // namespace

TEST(StreamForm, DefaultItemIsExactlyItsDefaultKeysAndOptionalPartsWhenPresent) {
    Item item("i1");
    EXPECT_EQ("activationDate=-2147483648000\n"
              "currentDisplayCount=0\n"
              "desc=\n"
              "displayCountLimit=2147483647\n"
              "displayInExcerpt=true\n"
              "displayTime=-1\n"
              "entryType=cs\n"
              "excerpt=\n"
              "expirationDate=2147483647000\n"
              "order=0\n"
              "priority=1000\n"
              "pubdate=-2147483648\n"
              "showExcerpt=true\n"
              "template=\n"
              "templateHref=\n"
              "title=\n"
              "visited=false\n",
              streamOf(item));
    EXPECT_EQ(streamOf(item).size(), item.getStreamLength());

    // Optional parts are written only when present: an empty attribute or content map is not.
    item.getAttributes();
    item.excerptContentMap.reset(new NewsObject::ContentMap);
    EXPECT_EQ("", changedLines(item));
}

// Every field read back gives the same stream again, but for the link relation, which is not
// read (it comes back as alternate), and the id, which is the file's name.
TEST(StreamForm, EveryFieldSurvivesStoreAndLoad) {
    Item item("i1");
    fill(item);
    std::string stored = streamOf(item);
    Item loaded("other");
    loadFrom(loaded, stored);
    EXPECT_EQ("other", loaded.id);
    EXPECT_EQ(NewsObject::REL_ALTERNATE, loaded.link->rel);
    EXPECT_FALSE(loaded.isTransient()); // never streamed
    std::string expected = stored;
    expected.replace(expected.find("link.rel=2"), 10,
                     "link.rel=" + std::to_string(NewsObject::REL_ALTERNATE));
    EXPECT_EQ(expected, streamOf(loaded));

    // Dates in milliseconds but pubdate a plain long; attributes under "attrs.".
    for (const char* line : {"activationDate=1170000000000", "expirationDate=1170003600000",
                             "pubdate=1169990000", "attrs.source=wire", "visited=true"})
        EXPECT_NE(std::string::npos, ("\n" + stored).find("\n" + std::string(line) + "\n")) << line;
}

// What a stream gives once loaded, as the lines the object then writes beyond the defaults.
TEST(StreamForm, LoadingKeepsOnlyWhatMakesAPart) {
    const struct {
        const char* stream;
        const char* written;
    } rows[] = {
        // A content entry writes only the fields that are set.
        {"contentMap.image.contextId=img-1\n", "contentMap.image.contextId=img-1\n"},
        // Keys without a known field name give no entry; a map left with none is dropped.
        {"contentMap.image.colour=red\ncontentMap.image=x\nexcerptContentMap.p.href=u\n",
         "excerptContentMap.p.href=u\n"},
        // One author key is enough for a record; the others are empty.
        {"author.url=http://b.example/\n",
         "author.email=\nauthor.name=\nauthor.url=http://b.example/\n"},
        // A link to the subscription page placeholder loads empty; the relation is not read.
        {"link.href=SUBSCRIPTION_PAGE_PLACEHOLDER?x=1\nlink.type=text/html\nlink.rel=3\n",
         "link.href=\nlink.rel=0\nlink.type=text/html\n"},
        {"link.href=http://x/SUBSCRIPTION_PAGE_PLACEHOLDER\n",
         "link.href=http://x/SUBSCRIPTION_PAGE_PLACEHOLDER\nlink.rel=0\nlink.type=\n"},
        {"link.type=text/html\n", ""}, // a type without an href makes no link
        // Numbers out of range are clamped to 32 bits; one that is not a number reads as 0.
        {"activationDate=99999999999999\npubdate=-99999999999\npriority=0x10\norder=abc\n",
         "activationDate=2147483647000\npriority=16\n"},
    };
    for (const auto& row : rows) {
        Item loaded("i1");
        loadFrom(loaded, "order=5\n"); // nothing of an earlier load is left
        loadFrom(loaded, row.stream);
        EXPECT_EQ(row.written, changedLines(loaded)) << row.stream;
    }
}

TEST(StreamForm, ChannelsAndContainersListTheirChildrenInFeedOrder) {
    Channel channel("c1");
    channel.title = L"World, \\ [news]\t# = more\r";
    channel.itemIDs = {"i3", "i1", "i2,x"};
    // An object stores exactly the bytes of its map.
    EXPECT_EQ(mapBytesOf(channel), streamOf(channel));
    channel.itemTemplateID = "tpl-items"; // not streamed
    EXPECT_EQ(std::string::npos, streamOf(channel).find("itemTemplate"));
    EXPECT_EQ(std::string::npos, streamOf(channel).find("currentDisplayCount"));

    Channel loaded("c1");
    loaded.itemIDs = {"stale"};
    loadFrom(loaded, streamOf(channel));
    EXPECT_EQ((std::vector<ID>{"i3", "i1", "i2,x"}), loaded.itemIDs);

    // An empty list reads back empty, not as one empty identity.
    channel.itemIDs.clear();
    loadFrom(loaded, streamOf(channel));
    EXPECT_TRUE(loaded.itemIDs.empty());

    Container container("news");
    container.channelIDs = {"c2", "c1"};
    EXPECT_EQ("channelIDs=c2,c1\n", streamOf(container));
    Container back("news");
    back.channelIDs = {"stale"};
    loadFrom(back, "channelIDs=c2,,c1\n");
    EXPECT_EQ((std::vector<ID>{"c2", "c1"}), back.channelIDs);
}

TEST(StreamForm, ALineFeedInATextCannotAddAKey) {
    Channel channel("c1");
    channel.title = L"News\nvisited=true";
    channel.description = L"x\npriority=0";
    channel.getAttributes().putString("k\nitemids", L"evil");
    channel.itemIDs = {"i1\nitemids=i9"};

    // Each line feed is stored as a space: what was stored reads back as itself, with no key
    // added (visited, priority, item IDs).
    Channel loaded("c1");
    loadFrom(loaded, streamOf(channel));
    EXPECT_EQ(String(L"News visited=true"), loaded.title);
    EXPECT_EQ(String(L"evil"), loaded.getStringAttribute("k itemids"));
    EXPECT_EQ(streamOf(channel), streamOf(loaded));
}

TEST(StreamForm, GarbageAndEmptyStreamsGiveTheDefaults) {
    const std::string defaults = streamOf(Item("i1"));

    Item garbage("i1");
    std::string bytes;
    for (int i = 0; i < 4096; ++i)
        bytes.push_back(static_cast<char>(i * 7919 % 256));
    loadFrom(garbage, bytes);
    EXPECT_EQ(defaults, streamOf(garbage));
    Channel garbageChannel("c1");
    loadFrom(garbageChannel, bytes);
    EXPECT_EQ(streamOf(Channel("c1")), streamOf(garbageChannel));

    // A used object loaded from nothing is back at every default.
    Item used("i1");
    fill(used);
    used.setTransient(true);
    loadFrom(used, "");
    EXPECT_EQ(defaults, streamOf(used));
    EXPECT_TRUE(used.isTransient()); // set by the carousel, not by the stream
}

TEST(ObjectTexts, PrintedFormPriorityAndClampingSetters) {
    Item item("i1");
    // The setters clamp as loading does, whatever the width of long.
    item.setActivationDate(LONG_MAX);
    item.setExpirationDate(LONG_MIN);
    EXPECT_EQ(INT32_MAX, item.activationDate);
    EXPECT_EQ(INT32_MIN, item.expirationDate);
    item.title = L"Headline";
    item.description = L"Body";
    Channel channel("c1");
    std::ostringstream printed;
    printed << item << channel;
    EXPECT_EQ("Item NewsObject id=i1\ntitle = Headline\ndescr = Body\n"
              "Channel NewsObject id=c1\ntitle = \ndescr = \n",
              printed.str());

    EXPECT_FALSE(item.isHighPriority());
    item.priority = 999;
    EXPECT_TRUE(item.isHighPriority());
    channel.priority = 1;
    EXPECT_FALSE(channel.isHighPriority()); // only items are urgent
}
