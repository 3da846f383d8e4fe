// Resources through the cache's streams: names on disk, lookups, the policy's accounting of
// what was written, the class rule when room is made for a resource, and the events.
#include "CacheFixture.h"

#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "support/EventRecorder.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <iterator>

namespace {

using storagetest::CacheTest;

std::string readAll(std::ifstream* in) {
    return std::string(std::istreambuf_iterator<char>(*in), std::istreambuf_iterator<char>());
}

class ResourceTest : public CacheTest {
protected:
    ResourceTest() : CacheTest(1000) {} // 100 blocks
    void TearDown() override { OV_EventAndStatusFacade::destroy(); }
};

TEST_F(ResourceTest, StoredUnderTheirFinalNamesWithoutTemporaryFiles) {
    ovtest::StderrCapture capture;
    ASSERT_EQ(0, putResource("logoZpng", "PNG", "image/x-png"));
    ASSERT_EQ(0, putResource("pic.gif", "GIF", "image/gif"));
    ASSERT_EQ(0, putResource("raw", "RAW", "image/png"));
    ASSERT_EQ(0, putResource("iconZpng", "ICO", "image/png"));
    EXPECT_TRUE(exists("logo.png"));
    EXPECT_TRUE(exists("pic.gif"));
    EXPECT_TRUE(exists("raw.dat"));
    EXPECT_TRUE(exists("icon.png"));
    for (const char* leftover : {"logoZpng.tmp", "pic.gif.tmp", "raw.tmp", "iconZpng.tmp"})
        EXPECT_FALSE(exists(leftover)) << leftover;
    std::string text = capture.text();
    EXPECT_NE(std::string::npos,
              text.find("{4} NR_ContentCache.cpp:")); // the stream lines are level 4
    EXPECT_NE(std::string::npos,
              text.find("\tCloseOutputStream : logoZpng, with type:image/x-png\n\n"));
    EXPECT_NE(std::string::npos, text.find("\tNew path:" + path("logo.png") + "\n\n"));

    // Every file written is accounted under its name on disk, so it can be evicted.
    NR_ContentCachePolicy* p = policy();
    EXPECT_EQ(4, p->blocksUsed());
    for (const char* name : {"logo.png", "pic.gif", "raw.dat", "icon.png"}) {
        int type = -1;
        bool referenced = true;
        EXPECT_TRUE(p->queueOf(name, type, referenced)) << name;
        EXPECT_EQ(9, type);
        EXPECT_FALSE(referenced);
    }
    bool evictedReferenced = true;
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(0, p->removeNext(0, evictedReferenced));
    EXPECT_FALSE(exists("raw.dat"));
    EXPECT_FALSE(exists("icon.png"));
    EXPECT_EQ(0, p->blocksUsed());
}

TEST_F(ResourceTest, LookupsFindTheFileWithOrWithoutItsExtension) {
    ASSERT_EQ(0, putResource("logoZpng", "PNG-BYTES", "image/x-png"));
    std::string name, where;
    EXPECT_EQ(0, cache()->getFileName("logo", name));
    EXPECT_EQ("logo.png", name);
    EXPECT_EQ(0, cache()->getFileName("logoZpng", name));
    EXPECT_EQ("logo.png", name);
    EXPECT_EQ(-1, cache()->getFileName("logoZgif", name));
    EXPECT_EQ("logo.png", name) << "unchanged on failure";
    EXPECT_EQ(0, cache()->getPath("logoZpng", where));
    EXPECT_EQ(path("logo.png"), where);
    EXPECT_EQ(-1, cache()->getPath("missing", where));
    EXPECT_EQ("", where);
    EXPECT_EQ(9, cache()->getSize("logo"));
    EXPECT_EQ(-1, cache()->getSize("missing"));

    std::ifstream* in = cache()->getInputStream("logo");
    ASSERT_NE(nullptr, in);
    EXPECT_EQ("PNG-BYTES", readAll(in));
    EXPECT_EQ(0, cache()->closeInputStream(in));
    EXPECT_EQ(nullptr, cache()->getInputStream("missing"));
}

TEST_F(ResourceTest, LookupsSeeFilesChangedBehindTheCachesBack) {
    ASSERT_EQ(0, putResource("a", "A"));
    std::string name;
    ASSERT_EQ(0, cache()->getFileName("a", name));
    // Another process adds and removes files; the directory's time tells the cache.
    ASSERT_TRUE(ovtest::writeFile(path("b.gif"), "B"));
    ASSERT_EQ(0, std::remove(path("a.gif").c_str()));
    EXPECT_EQ(0, cache()->getFileName("b", name));
    EXPECT_EQ("b.gif", name);
    EXPECT_EQ(-1, cache()->getFileName("a", name));
    // The cache's own writes keep the index in step without reading the directory.
    ASSERT_EQ(0, putResource("c", "C", "text/css"));
    EXPECT_EQ(0, cache()->getFileName("c", name));
    EXPECT_EQ("c.css", name);
}

TEST_F(ResourceTest, AnInputStreamCountsAsAUse) {
    ASSERT_EQ(0, putResource("first", "1"));
    ASSERT_EQ(0, putResource("second", "2"));
    NR_ContentCachePolicy* p = policy();
    p->addRef("x.itm", "first");
    p->addRef("x.itm", "second");
    // first is the older; reading it makes second the least recently used.
    cache()->closeInputStream(cache()->getInputStream("first"));
    bool evictedReferenced = false;
    ASSERT_EQ(0, p->removeNext(0, evictedReferenced));
    EXPECT_TRUE(exists("first.gif"));
    EXPECT_FALSE(exists("second.gif"));
}

TEST_F(ResourceTest, StatusEventCarriesKilobyteFigures) {
    ovtest::EventRecorder status(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS);
    NR_ContentCachePolicy* p = policy();
    p->addRef("x.itm", "img");
    ASSERT_EQ(0, putResource("img", std::string(5000, 'i'))); // 2 referenced blocks
    ASSERT_EQ(0, putResource("loose", "l"));                  // 1 unreferenced block
    cache()->saveRefUsed();
    ovtest::StderrCapture capture;
    cache()->sendStorageStatus();
    ASSERT_TRUE(status.waitFor(1));
    ovtest::RecordedEvent event = status.events()[0];
    EXPECT_EQ("400 K", event.properties.at("total"));
    EXPECT_EQ("8 K", event.properties.at("used"));
    EXPECT_EQ("392 K", event.properties.at("free"));
    EXPECT_EQ(3u, event.properties.size());
    EXPECT_EQ(388, p->cacheFree());
    std::string text = capture.text();
    size_t begin = text.find("\tsend Storage Status\n\n");
    size_t sent = text.find("\tsend event\n\n");
    size_t end = text.find("\tsend Storage Status Finished\n\n");
    ASSERT_NE(std::string::npos, begin);
    ASSERT_NE(std::string::npos, sent);
    ASSERT_NE(std::string::npos, end);
    EXPECT_LT(begin, sent);
    EXPECT_LT(sent, end);
}

// A cache full of referenced files: making room for more evicts referenced ones, and the first
// such eviction sends the storage-full event, once.
TEST_F(ResourceTest, StorageFullIsSentOnce) {
    ovtest::EventRecorder errors(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    NR_ContentCachePolicy* p = policy();
    for (int i = 0; i < 49; ++i) {
        std::string id = "img" + std::to_string(i);
        p->addRef("c.chn", id);
        ASSERT_EQ(0, putResource(id, std::string(5000, 'c'))); // 2 blocks each
    }
    EXPECT_EQ(98, p->blocksUsed());
    EXPECT_FALSE(cache()->isStorageFull());

    // Room for a 2-block file means more than 2 free blocks: the first took an image, each
    // later one the unreferenced file stored just before it.
    ovtest::StderrCapture capture;
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(0, putResource("late" + std::to_string(i), std::string(5000, 'l')));
    EXPECT_TRUE(cache()->isStorageFull());
    EXPECT_FALSE(exists("img0.gif"));
    EXPECT_TRUE(exists("img1.gif"));
    EXPECT_FALSE(exists("late0.gif"));
    EXPECT_FALSE(exists("late1.gif"));
    EXPECT_TRUE(exists("late2.gif"));
    EXPECT_EQ(98, p->blocksUsed());
    std::string text = capture.text();
    const std::string line = "\tContent cache just filled up by storing image\n\n";
    size_t first = text.find(line);
    ASSERT_NE(std::string::npos, first);
    EXPECT_EQ(std::string::npos, text.find("filled up", first + line.size())) << "sent once";

    // A marker behind the event shows that no second one was published.
    OV_Event marker(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    marker.mValue = 99;
    OV_EventAndStatusFacade::instance()->publish(marker);
    ASSERT_TRUE(errors.waitFor(2));
    std::vector<ovtest::RecordedEvent> events = errors.events();
    EXPECT_EQ(1, events[0].value);
    EXPECT_EQ(99, events[1].value);
}

TEST_F(ResourceTest, AFailedStreamLeavesNoFile) {
    std::ofstream* out = cache()->getOutputStream("broken", 10);
    ASSERT_NE(nullptr, out);
    out->setstate(std::ios::badbit); // as a failed write leaves it
    ovtest::StderrCapture capture;
    EXPECT_EQ(-1, cache()->closeOutputStream("broken", out, "image/gif"));
    EXPECT_NE(std::string::npos, capture.text().find("\tNew path:" + path("broken.gif") + "\n\n"))
        << "the name is told before the move is tried";
    EXPECT_FALSE(exists("broken.gif"));
    EXPECT_FALSE(exists("broken.tmp"));
    EXPECT_EQ(-1, cache()->closeOutputStream("broken", nullptr, "image/gif"));
    EXPECT_EQ(0, policy()->blocksUsed());
}

} // namespace
