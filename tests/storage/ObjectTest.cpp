// News objects in the cache: stream files under their suffixes, the references they register
// and the classes getType gives, the class rule and the storage-full event when room is made,
// removal, and sync rebuilding everything from the files.
#include "CacheFixture.h"

namespace {

using namespace storagetest;

// An item with its own template and image.
std::unique_ptr<Item> makeItem(const std::string& id, const std::string& templateID = "",
                               const std::string& imageID = "") {
    std::unique_ptr<Item> item(new Item(id));
    item->title = ovTypes::String(ovTypes::ID("title of " + id));
    item->templateID = templateID;
    if (!imageID.empty())
        setContent(item->contentMap, "image", imageID);
    return item;
}

// Bytes of a stored resource, or an item's description, that count BLOCKS blocks.
std::string ofBlocks(int blocks) {
    return std::string(size_t(blocks - 1) * 4096 + 100, 'b');
}

using ObjectTest = CacheTest;

// An item listed by a channel listed by the root container: saved, read back, the referenced
// total written, removed, and everything cleared.
TEST_F(ObjectTest, ObjectsAreSavedReadBackRemovedAndCleared) {
    std::unique_ptr<Item> item = makeItem("x", "tpl", "img");
    item->currentDisplayCount = 3;
    ovtest::StderrCapture capture;
    ASSERT_EQ(0, cache()->save("x", *item));
    EXPECT_EQ("x.itm", listing());
    EXPECT_TRUE(inOrder(capture.text(),
                        {"\tNR_ContentCache.save(): Size of x is 1\n\n",
                         "\tsend storage used to UI\n\n", "\tsend Storage Status\n\n",
                         "\tNR_ContentCache.addItemRefs(): Template ID is tpl\n\n",
                         "\tNR_ContentCache.addItemRefs(): Image ID is img\n\n",
                         "\tNR_ContentCache::saveRefUsed(): mReferencedUsed is saved 0\n\n"}));

    EXPECT_EQ(streamOf(*item), readBack<Item>("x"));
    EXPECT_EQ("<none>", readBack<Channel>("x"));

    ASSERT_EQ(0, putResource("img", "i"));
    Channel channel("ch");
    channel.itemIDs = {"x", "y"};
    setContent(channel.contentMap, "image", "chimg");
    setContent(channel.excerptContentMap, "primaryxhtml", "page", "application/xhtml+xml");
    Container news("news");
    news.channelIDs = {"ch"};
    ASSERT_EQ(0, cache()->save("ch", channel));
    ASSERT_EQ(0, cache()->save("news", news));
    EXPECT_EQ(streamOf(channel) + streamOf(news),
              readBack<Channel>("ch") + readBack<Container>("news"));
    // The channel listed by the container, the item by its channel.
    EXPECT_EQ("news.cnt:0 ch.chn:2+ x.itm:3+ img.gif:9+",
              classes({"news.cnt", "ch.chn", "x.itm", "img.gif"}));
    long before = policy()->blocksUsed();
    // Another process that opens the cache writes its own 0 to "/tmp/ref.txt", or the file goes
    // with /tmp: every save writes the total again, even when it did not change, failed or not.
    const std::string refFile = ovplatform::devicePath("/tmp/ref.txt");
    ASSERT_TRUE(ovtest::writeFile(refFile, "0\n"));
    ASSERT_EQ(0, cache()->save("news", news));
    EXPECT_EQ("3\n", ovtest::readFile(refFile));
    ASSERT_EQ(0, std::remove(refFile.c_str()));
    EXPECT_EQ(-1, cache()->save("..", news));
    EXPECT_EQ("3\n", ovtest::readFile(refFile));

    EXPECT_EQ(0, cache()->remove("x", *item));
    EXPECT_EQ("img.gif:9", classes({"img.gif"}));
    EXPECT_EQ(before - 1, policy()->blocksUsed());
    EXPECT_EQ(-1, cache()->remove("x", *item)) << "already gone";
    // The excerpt's references alone.
    EXPECT_EQ(0, cache()->removeChannelExcerptRefs("ch", channel));
    EXPECT_TRUE(policy()->parentsOf("page").empty());
    EXPECT_FALSE(policy()->parentsOf("chimg").empty());
    // A container goes with its file only; what it lists stays referenced until a sync.
    EXPECT_EQ(0, cache()->remove("news", news));
    EXPECT_EQ("ch.chn:2+", classes({"ch.chn"}));
    EXPECT_EQ(0, cache()->remove("ch", channel));
    EXPECT_EQ("img.gif", listing());
    EXPECT_EQ(before - 3, policy()->blocksUsed());

    ASSERT_EQ(0, cache()->save("x", *item));
    ASSERT_EQ(6, cache()->getType("tpl"));
    ASSERT_TRUE(ovtest::writeFile(path("foreign.bin"), "f"));
    EXPECT_EQ(0, cache()->clear());
    EXPECT_EQ("", listing());
    EXPECT_EQ("0 used, 0 referenced", usage());
    EXPECT_EQ(9, cache()->getType("tpl"));
    EXPECT_EQ("<none>", fileOf("img"));
}

// A resource takes its class whether it is stored before the object that references it (the
// channel image here) or after it (the template).
TEST_F(ObjectTest, ReferencesGiveTheClassesOfResources) {
    ASSERT_EQ(0, putResource("chimg", "c"));
    EXPECT_EQ("chimg.gif:9", classes({"chimg.gif"}));
    Channel channel("ch");
    channel.templateID = "shared";
    channel.itemTemplateID = "itemtpl";
    setContent(channel.contentMap, "image", "chimg");
    setContent(channel.excerptContentMap, "primaryxhtml", "page", "application/xhtml+xml");
    setContent(channel.excerptContentMap, "style", "sheet", "text/css");
    ASSERT_EQ(0, cache()->save("ch", channel));
    std::unique_ptr<Item> imageOnly = makeItem("only", "owntpl", "onlyimg");
    imageOnly->entryType = NR_Constants::ENTRY_TYPE_IMAGE_ONLY;
    ASSERT_EQ(0, cache()->save("plain", *makeItem("plain", "shared", "plainimg")));
    ASSERT_EQ(0, cache()->save("only", *imageOnly));

    const std::pair<const char*, int> types[] = {
        {"shared", 4}, // template of a channel (and of an item)
        {"itemtpl", 6}, {"owntpl", 6},  {"page", 1},     {"sheet", 8},
        {"chimg", 5},   {"onlyimg", 7}, {"plainimg", 9}, // an image of an image-and-text item
        {"unknown", 9}};
    for (const auto& c : types)
        EXPECT_EQ(c.second, cache()->getType(c.first)) << c.first;

    // Resources land in the queue of their class, counted as referenced.
    ASSERT_EQ(0, putResource("shared", "<template/>", "application/xhtml+xml"));
    EXPECT_EQ("chimg.gif:5+ shared.xhtml:4+", classes({"chimg.gif", "shared.xhtml"}));
    EXPECT_EQ(std::set<std::string>({"ch.chn", "plain.itm"}), policy()->parentsOf("shared"));
    // Default content is not in the cache: no reference to it.
    EXPECT_TRUE(policy()->parentsOf("dc:default-channel-icon.png").empty());
}

// Channel images (class 5) fill the cache. A resource of class 9 may push out only classes 9
// and 10, where nothing is: room-making stops and the write goes ahead. A channel image may push
// out the unreferenced file first, then channel images (until more blocks are free than it
// needs), but not the channel (class 2). The first referenced file to go sends the storage-full
// event; later ones send nothing more.
TEST_F(ObjectTest, AResourceDisplacesOnlyClassesItMay) {
    ovtest::EventRecorder errors(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    Channel channel("ch");
    for (int i = 0; i < 51; ++i)
        setContent(channel.contentMap, "image" + std::to_string(i), "ci" + std::to_string(i));
    ASSERT_EQ(0, cache()->save("ch", channel));
    for (int i = 0; i < 49; ++i)
        ASSERT_EQ(0, putResource("ci" + std::to_string(i), std::string(5000, 'c')));
    EXPECT_EQ("ci0.gif:5+ ch.chn:2", classes({"ci0.gif", "ch.chn"}));
    EXPECT_EQ(99, policy()->blocksUsed()); // with ch.chn

    ASSERT_EQ(0, putResource("other", std::string(5000, 'o')));
    EXPECT_EQ(101, policy()->blocksUsed()) << "nothing went";
    EXPECT_FALSE(cache()->isStorageFull());

    ovtest::StderrCapture capture;
    ASSERT_EQ(0, putResource("ci49", std::string(5000, 'c')));
    EXPECT_EQ("other.gif:none ci0.gif:none ci1.gif:5+ ch.chn:2",
              classes({"other.gif", "ci0.gif", "ci1.gif", "ch.chn"}));
    EXPECT_TRUE(cache()->isStorageFull());
    ASSERT_EQ(0, putResource("ci50", "c")); // 1 block, and 1 free: one more must go
    EXPECT_EQ("ci1.gif:none ci2.gif:5+", classes({"ci1.gif", "ci2.gif"}));
    EXPECT_EQ(1u, capture.count("\tContent cache just filled up by storing image\n\n"));
    expectOneFullEvent(errors);
}

// A save that needs room: the unreferenced file goes first, then referenced files from the
// highest class down, oldest first, and no more than the save needs; the storage-full event
// goes out with the first referenced file, once.
TEST_F(ObjectTest, ASaveMakesJustEnoughRoomInClassOrder) {
    ovtest::EventRecorder errors(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    Channel channel("ch");
    channel.itemIDs = {"a", "b"};
    setContent(channel.contentMap, "image", "ci");
    ASSERT_EQ(0, cache()->save("ch", channel));
    ASSERT_EQ(0, cache()->save("a", *makeItem("a", "", "ia")));
    ASSERT_EQ(0, cache()->save("b", *makeItem("b", "", "ib")));
    for (const auto& r : {std::make_pair("ci", 30), {"ia", 20}, {"ib", 20}, {"loose", 20}})
        ASSERT_EQ(0, putResource(r.first, ofBlocks(r.second)));
    ASSERT_EQ(93, policy()->blocksUsed());

    auto saveBig = [this](const std::string& id, int blocks) {
        Item item(id);
        item.description = ovTypes::String(ovTypes::ID(ofBlocks(blocks)));
        return cache()->save(id, item);
    };
    ASSERT_EQ(0, saveBig("big1", 27)); // 7 free: exactly 27 once loose goes
    EXPECT_EQ("a.itm b.itm big1.itm ch.chn ci.gif ia.gif ib.gif", listing());
    EXPECT_FALSE(cache()->isStorageFull());
    ASSERT_EQ(100, policy()->blocksUsed());

    ASSERT_EQ(0, saveBig("big2", 21)); // item images, oldest first
    EXPECT_EQ("a.itm b.itm big1.itm big2.itm ch.chn ci.gif", listing());
    EXPECT_TRUE(cache()->isStorageFull());

    ASSERT_EQ(0, saveBig("big3", 30)); // then the channel image
    EXPECT_EQ("a.itm b.itm big1.itm big2.itm big3.itm ch.chn", listing());
    EXPECT_EQ(81, policy()->blocksUsed());
    expectOneFullEvent(errors);
}

// A cache as a previous run left it: the feed reachable from "news", an item no channel lists
// any more, an image nothing references, and a file that was being written.
TEST_F(ObjectTest, SyncRebuildsReferencesAndAccountingFromDisk) {
    Container news("news");
    news.channelIDs = {"ch", "gone"};
    Channel channel("ch");
    channel.itemIDs = {"x"};
    channel.templateID = "chtpl";
    ASSERT_EQ(0, cache()->save("news", news));
    ASSERT_EQ(0, cache()->save("ch", channel));
    ASSERT_EQ(0, cache()->save("x", *makeItem("x", "tpl", "img")));
    ASSERT_EQ(0, cache()->save("stale", *makeItem("stale", "tpl", "staleimg")));
    ASSERT_EQ(0, putResource("img", std::string(5000, 'i')));
    ASSERT_EQ(0, putResource("staleimg", "s"));
    ASSERT_EQ(0, putResource("chtplZxhtml", "<t/>", "application/xhtml+xml"));
    ASSERT_EQ(0, putResource("orphan", "o"));
    ASSERT_TRUE(ovtest::writeFile(path("half.tmp"), "partial"));
    long blocks = policy()->blocksUsed();
    // A tool looking at a cache another process writes leaves its unfinished files alone.
    EXPECT_EQ(0, cache()->sync(false));
    EXPECT_TRUE(exists("half.tmp"));
    EXPECT_EQ(blocks, policy()->blocksUsed()) << "only finished files are accounted";

    ovtest::EventRecorder status(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS);
    ovtest::StderrCapture capture;
    EXPECT_EQ(0, cache()->sync());
    const std::string sync = "\tNR_ContentCache.sync(): ";
    std::string text = capture.text();
    EXPECT_TRUE(inOrder(
        text,
        {"\tAbout to loop through containers\n\n", "\tAbout to get container news\n\n",
         sync + "Loop through chanList ch\n\n", sync + "Got channel ch\n\n",
         sync + "Got item x\n\n", sync + "About to get references of x\n\n",
         sync + "Loop through chanList gone\n\n", sync + "found channel ch.chn\n\n",
         sync + "found misc object img.gif\n\n", sync + "found container news.cnt\n\n",
         sync + "found item x.itm\n\n", sync + "Adding unreferenced stuff\n\n",
         sync + "First, the items\n\n", sync + "Finally, the images\n\n",
         "\tCacheUsed 20K, CacheSize 400K\n\n", "\tsend storage status to UI after sync\n\n",
         "\tsend Storage Status\n\n", "\tsend event\n\n", "\tsend Storage Status Finished\n\n"}));
    EXPECT_EQ(std::string::npos, text.find("Got channel gone"));
    // In kilobytes: the referenced use as the total file holds it, and what is free of it.
    ASSERT_TRUE(status.waitFor(1));
    const std::map<std::string, std::string> figures = {
        {"total", "400 K"}, {"used", "20 K"}, {"free", "380 K"}};
    EXPECT_EQ(figures, status.events()[0].properties);

    EXPECT_FALSE(exists("half.tmp")) << "unfinished writes are swept";
    EXPECT_EQ(blocks, policy()->blocksUsed());
    EXPECT_EQ("img.gif:9+ chtpl.xhtml:4+ stale.itm:3 staleimg.gif:9",
              classes({"img.gif", "chtpl.xhtml", "stale.itm", "staleimg.gif"}));
    EXPECT_EQ("5\n", ovtest::readFile(ovplatform::devicePath("/tmp/ref.txt")));

    // What nothing references goes first: the stale item and the unreferenced resources,
    // before anything of the feed. The root container, which nothing references, is marked as
    // used whenever it is accounted, so it is not among them.
    EXPECT_EQ("unreferenced stale.itm", evict());
    EXPECT_EQ("unreferenced orphan.gif", evict());
    EXPECT_EQ("unreferenced staleimg.gif", evict());
    EXPECT_EQ("referenced img.gif", evict());
}

} // namespace
