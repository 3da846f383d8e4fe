// The stream form of news objects: the keys each object writes, their defaults, what is and
// is not read back, and streams that are garbage or cut short.
#include "ModelTest.h"

#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"

#include <gtest/gtest.h>

#include <climits>

#include <sstream>

using modeltest::attrsOf;
using modeltest::loadFrom;
using modeltest::streamOf;
using ovTypes::ID;
using ovTypes::String;

namespace {

// The keys of the default category, in stream order.
std::vector<std::string> keysOf(const AttrMap& attrs) {
    std::vector<std::string> keys;
    if (const AttrMap::KeyMap* category = attrs.defaultCategory()) {
        for (const auto& entry : *category)
            keys.push_back(entry.first);
    }
    return keys;
}

std::vector<std::string> keysStartingWith(const AttrMap& attrs, const std::string& prefix) {
    std::vector<std::string> keys;
    for (const std::string& key : keysOf(attrs)) {
        if (key.compare(0, prefix.size(), prefix) == 0)
            keys.push_back(key);
    }
    return keys;
}

// An item with every field away from its default.
void fill(Item& item) {
    item.getAttributes().putString("lang", L"fr");
    item.getAttributes().putString("source", L"wire");
    item.author.reset(new NewsObject::Author{L"Ann", L"http://a.example/", L"ann@a.example"});
    item.activationDate = 1170000000;
    item.contentMap.reset(new NewsObject::ContentMap);
    NewsObject::Content& image = (*item.contentMap)["image"];
    image.type = "image/gif";
    image.mode = "inline";
    image.name = "thumb";
    image.contextId = "img-1";
    image.href = L"http://a.example/1.gif";
    image.data = L"R0lG";
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

TEST(StreamForm, DefaultItemIsExactlyItsDefaultKeys) {
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
}

TEST(StreamForm, TypedValuesAndTheLinkRelationAreWrittenAsTheyAre) {
    Item item("i1");
    fill(item);
    AttrMap attrs = attrsOf(item);
    EXPECT_EQ(String(L"1170000000000"), attrs.getString("activationDate"));
    EXPECT_EQ(String(L"1170003600000"), attrs.getString("expirationDate"));
    EXPECT_EQ(String(L"1169990000"), attrs.getString("pubdate")); // a plain long, not millis
    EXPECT_EQ(String(L"Caf\u00e9, \u20ac and more"), attrs.getString("desc"));
    EXPECT_EQ(String(L"tpl-1"), attrs.getString("template"));
    EXPECT_EQ(String(L"2"), attrs.getString("link.rel"));
    EXPECT_EQ(String(L"wire"), attrs.getString("attrs.source"));
    EXPECT_EQ(String(L"true"), attrs.getString("visited"));
    EXPECT_EQ(String(L"false"), attrs.getString("displayInExcerpt"));
    // Text is UTF-8 and a comma inside it is escaped.
    EXPECT_NE(std::string::npos,
              streamOf(item).find("desc=Caf\xc3\xa9\\, \xe2\x82\xac and more\n"));
}

TEST(StreamForm, ContentMapsWriteOnlyTheFieldsThatAreSet) {
    Item item("i1");
    item.contentMap.reset(new NewsObject::ContentMap);
    (*item.contentMap)["image"].contextId = "img-1";
    item.excerptContentMap.reset(new NewsObject::ContentMap);
    AttrMap attrs = attrsOf(item);
    EXPECT_EQ(std::vector<std::string>{"contentMap.image.contextId"},
              keysStartingWith(attrs, "contentMap"));
    EXPECT_TRUE(keysStartingWith(attrs, "excerptContentMap").empty());

    Item loaded("i1");
    loadFrom(loaded, streamOf(item));
    ASSERT_TRUE(loaded.contentMap);
    EXPECT_EQ("img-1", loaded.contentMap->at("image").contextId);
    EXPECT_TRUE(loaded.contentMap->at("image").type.empty());
    EXPECT_FALSE(loaded.excerptContentMap); // an empty map reads back as none

    // Keys without a known field name give no entry; a map left with none is dropped.
    Item odd("i2");
    loadFrom(odd, "contentMap.image.colour=red\ncontentMap.image=x\nexcerptContentMap.p.href=u\n");
    EXPECT_FALSE(odd.contentMap);
    ASSERT_TRUE(odd.excerptContentMap);
    EXPECT_EQ(String(L"u"), odd.excerptContentMap->at("p").href);
}

TEST(StreamForm, OptionalPartsAreWrittenOnlyWhenPresent) {
    Item bare("i1");
    bare.getAttributes(); // an empty map has nothing to write
    AttrMap attrs = attrsOf(bare);
    EXPECT_TRUE(keysStartingWith(attrs, "attrs").empty());
    EXPECT_TRUE(keysStartingWith(attrs, "author").empty());
    EXPECT_TRUE(keysStartingWith(attrs, "link").empty());
    EXPECT_TRUE(keysStartingWith(attrs, "parentID").empty());

    Item loaded("i1");
    loadFrom(loaded, streamOf(bare));
    EXPECT_FALSE(loaded.attrs);
    EXPECT_FALSE(loaded.author);
    EXPECT_FALSE(loaded.link);
    EXPECT_FALSE(loaded.contentMap);

    // One author key is enough for a record; the others are empty.
    loadFrom(loaded, "author.url=http://b.example/\n");
    ASSERT_TRUE(loaded.author);
    EXPECT_TRUE(loaded.author->name.empty());
    EXPECT_EQ(String(L"http://b.example/"), loaded.author->url);
    EXPECT_TRUE(loaded.author->email.empty());
}

TEST(StreamForm, ALinkToTheSubscriptionPagePlaceholderLoadsEmpty) {
    Item loaded("i1");
    loadFrom(loaded, "link.href=SUBSCRIPTION_PAGE_PLACEHOLDER?x=1\nlink.type=text/html\n"
                     "link.rel=3\n");
    ASSERT_TRUE(loaded.link);
    EXPECT_TRUE(loaded.link->href.empty());
    EXPECT_EQ(String(L"text/html"), loaded.link->type);
    EXPECT_EQ(NewsObject::REL_ALTERNATE, loaded.link->rel);

    loadFrom(loaded, "link.href=http://x/SUBSCRIPTION_PAGE_PLACEHOLDER\n");
    ASSERT_TRUE(loaded.link);
    EXPECT_EQ(String(L"http://x/SUBSCRIPTION_PAGE_PLACEHOLDER"), loaded.link->href);

    // A type without an href makes no link.
    loadFrom(loaded, "link.type=text/html\n");
    EXPECT_FALSE(loaded.link);
}

TEST(StreamForm, ChannelsAndContainersListTheirChildrenInFeedOrder) {
    Channel channel("c1");
    channel.itemIDs = {"i3", "i1", "i2,x"};
    channel.itemTemplateID = "tpl-items"; // not streamed
    AttrMap attrs = attrsOf(channel);
    EXPECT_TRUE(keysStartingWith(attrs, "itemTemplate").empty());
    EXPECT_TRUE(keysStartingWith(attrs, "currentDisplayCount").empty());

    Channel loaded("c1");
    loaded.itemIDs = {"stale"};
    loadFrom(loaded, streamOf(channel));
    EXPECT_EQ((std::vector<ID>{"i3", "i1", "i2,x"}), loaded.itemIDs);
    EXPECT_TRUE(loaded.itemTemplateID.empty());

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

TEST(StreamForm, AnObjectStoresExactlyTheBytesOfItsMap) {
    Item item("i1");
    fill(item);
    EXPECT_EQ(mapBytesOf(item), streamOf(item));
    Channel channel("c1");
    channel.title = L"World, \\ [news]\t# = more\r"; // only a line feed is changed
    channel.itemIDs = {"i3", "i1,x"};
    EXPECT_EQ(mapBytesOf(channel), streamOf(channel));
    Container container("news");
    container.channelIDs = {"c1", "c2"};
    EXPECT_EQ(mapBytesOf(container), streamOf(container));
}

TEST(StreamForm, ALineFeedInATextCannotAddAKey) {
    Channel channel("c1");
    channel.title = L"News\nvisited=true";
    channel.description = L"x\npriority=0";
    channel.getAttributes().putString("k\nitemids", L"evil");
    channel.itemIDs = {"i1\nitemids=i9"};

    Channel loaded("c1");
    loadFrom(loaded, streamOf(channel));
    EXPECT_FALSE(loaded.isVisited());
    EXPECT_EQ(1000, loaded.priority);
    EXPECT_EQ(String(L"News visited=true"), loaded.title);
    EXPECT_EQ((std::vector<ID>{"i1 itemids=i9"}), loaded.itemIDs);
    EXPECT_EQ(String(L"evil"), loaded.getStringAttribute("k itemids"));
}

// A stored object with Latin-1 bytes loads every key: a byte that cuts a sequence short reads
// as itself, and storing the object again writes it in UTF-8.
TEST(StreamForm, Latin1BytesNeverSwallowTheNextKey) {
    Item item("i1");
    item.title = L"T";
    item.description = L"D";
    const std::string utf8 = streamOf(item);
    std::string latin1 = utf8;
    latin1.replace(latin1.find("title=T\n"), 8, "title=T\xff\xfe\n");
    Item loaded("i1");
    loadFrom(loaded, latin1);
    EXPECT_EQ(String(L"T\u00ff\u00fe"), loaded.title);
    std::string expected = utf8;
    expected.replace(expected.find("title=T\n"), 8, "title=T\xc3\xbf\xc3\xbe\n");
    EXPECT_EQ(expected, streamOf(loaded));
}

TEST(StreamForm, GarbageAndCutStreamsGiveTheDefaults) {
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
    Container garbageContainer("news");
    loadFrom(garbageContainer, bytes);
    EXPECT_TRUE(garbageContainer.channelIDs.empty());

    // A used object loaded from nothing is back at every default.
    Item used("i1");
    fill(used);
    used.setTransient(true);
    loadFrom(used, "");
    EXPECT_EQ(defaults, streamOf(used));
    EXPECT_TRUE(used.isTransient()); // set by the carousel, not by the stream

    // Cut anywhere, a stream loads without harm; cut after "desc" the later keys default.
    Item full("i1");
    fill(full);
    const std::string stored = streamOf(full);
    for (size_t length = 0; length <= stored.size(); ++length) {
        Item cut("i1");
        loadFrom(cut, stored.substr(0, length));
    }
    Item cut("i1");
    loadFrom(cut, stored.substr(0, stored.find("\ndisplayCountLimit=") + 1));
    EXPECT_EQ(full.description, cut.description);
    EXPECT_EQ(4, cut.currentDisplayCount);
    EXPECT_EQ(Item::DEFAULT_DISPLAY_COUNT_LIMIT, cut.displayCountLimit);
    EXPECT_EQ(1000, cut.priority);
    EXPECT_TRUE(cut.title.empty());
    EXPECT_EQ(NewsObject::NO_EXPIRATION_DATE, cut.expirationDate);
}

TEST(StreamForm, OutOfRangeNumbersAreClampedToThirtyTwoBits) {
    Item loaded("i1");
    loadFrom(loaded, "activationDate=99999999999999\npubdate=-99999999999\npriority=0x10\n"
                     "order=abc\n");
    EXPECT_EQ(INT32_MAX, loaded.activationDate);
    EXPECT_EQ(INT32_MIN, loaded.pubdate);
    EXPECT_EQ(16, loaded.priority);
    EXPECT_EQ(0, loaded.order); // present but not a number

    // The setters clamp as loading does, whatever the width of long.
    loaded.setActivationDate(LONG_MAX);
    loaded.setExpirationDate(LONG_MIN);
    EXPECT_EQ(INT32_MAX, loaded.activationDate);
    EXPECT_EQ(INT32_MIN, loaded.expirationDate);
}

TEST(ObjectTexts, PrintedFormAndPriority) {
    Item item("i1");
    item.title = L"Headline";
    item.description = L"Body";
    std::ostringstream printed;
    printed << item;
    EXPECT_EQ("Item NewsObject id=i1\ntitle = Headline\ndescr = Body\n", printed.str());
    Channel channel("c1");
    std::ostringstream printedChannel;
    printedChannel << channel;
    EXPECT_EQ("Channel NewsObject id=c1\ntitle = \ndescr = \n", printedChannel.str());
    EXPECT_EQ("i1", item.toString());

    EXPECT_FALSE(item.isHighPriority());
    item.priority = 999;
    EXPECT_TRUE(item.isHighPriority());
    channel.priority = 1;
    EXPECT_FALSE(channel.isHighPriority()); // only items are urgent
}
