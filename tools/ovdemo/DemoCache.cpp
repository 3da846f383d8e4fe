// Demo step: news items from the server through the content cache. A channel and its items are
// built with their content maps, their template and images stored, the objects saved (the
// cache announces the storage status, which a subscriber receives), the cache filled until it
// evicts, and the objects read back and judged displayable against the template the template
// manager loads from the cache.
#include "Demo.h"
#include "OVPlatform.h"
#include "dptemplate/TemplateManager.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventHandler.h"
#include "model/Carousel.h"
#include "storage/NR_ContentCache.h"
#include "storage/NR_ContentCachePolicy.h"
#include "utility/NR_Constants.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

namespace {

// A small file system for the cache: it may use a tenth, 60 blocks of 4 KB.
const long kBlockSize = 4096;
const long kTotalBlocks = 600;

const char* const ITEM_TEMPLATE = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                  "<template>\n"
                                  "  <layout id=\"item\">\n"
                                  "    <row>\n"
                                  "      <image model-property=\"image\" width=\"32\"/>\n"
                                  "      <text model-property=\"title\"/>\n"
                                  "    </row>\n"
                                  "  </layout>\n"
                                  "</template>\n";

// Keeps the properties and the count of the events of one topic. Events arrive on the bus's
// delivery thread; the demo prints from its own thread after waiting for them.
class Watcher : public OV_EventHandler {
public:
    // Events come on the bus's thread: none reaches a half-built or half-destroyed watcher.
    explicit Watcher(const std::string& topic) : OV_EventHandler(topic, DeliverLater()) {
        startDelivery();
    }
    ~Watcher() override { endRegistration(); }

    void handleEvent(OV_Event& event) override {
        std::lock_guard<std::mutex> lock(mMutex);
        if (event.mPropMap != nullptr)
            mLast = *event.mPropMap;
        mValue = event.mValue;
        ++mCount;
        mArrived.notify_all();
    }

    // Waits (up to ten seconds) until COUNT events have arrived.
    bool waitFor(int count) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mArrived.wait_for(lock, std::chrono::seconds(10), [&] { return mCount >= count; });
    }
    int count() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCount;
    }
    std::string property(const std::string& key) {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLast.count(key) ? mLast[key] : std::string("?");
    }

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::map<const std::string, std::string> mLast;
    int mValue = 0;
    int mCount = 0;
};

bool storeResource(NR_ContentCache* cache, const std::string& id, const std::string& bytes,
                   const std::string& mimeType) {
    std::ofstream* out = cache->getOutputStream(id, bytes.size());
    if (!out)
        return false;
    out->write(bytes.data(), std::streamsize(bytes.size()));
    return cache->closeOutputStream(id, out, mimeType) == 0;
}

// An item of the demo channel with its template and image.
PtrRef<Item> makeItem(const std::string& id, const char* title, const std::string& imageID) {
    PtrRef<Item> item(new Item(id));
    item->title = ovTypes::String(ovTypes::ID(title));
    item->templateID = "itemtpl";
    item->contentMap.reset(new NewsObject::ContentMap);
    (*item->contentMap)["image"].contextId = imageID;
    (*item->contentMap)["image"].type = "image/gif";
    return item;
}

bool waitForStatus(Watcher& status, int count) {
    if (!status.waitFor(count)) {
        std::printf("  the storage status did not arrive\n");
        return false;
    }
    std::printf("  storage status received: total %s, used %s, free %s\n",
                status.property("total").c_str(), status.property("used").c_str(),
                status.property("free").c_str());
    return true;
}

} // namespace

bool demoCache() {
    std::printf("\n== content cache ==\n");
    std::string dir = NR_ContentCache::getCachePath();
    ovplatform::setSimulatedFileSystem(dir, kBlockSize, kTotalBlocks);
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    NR_ContentCachePolicy* policy = NR_ContentCachePolicy::getInstance();
    std::printf("  cache %s on a simulated file system of %ld blocks: the cache may use %ld "
                "blocks (%ld K)\n",
                dir.c_str(), kTotalBlocks, policy->maxCacheBlocks(), cache->cacheSize());

    // Kept for the life of the process: the facade keeps a handler that is not its topic's
    // only one even after it unsubscribes.
    Watcher& status = *new Watcher(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS);
    Watcher& errors = *new Watcher(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    int published = 0;

    // What the server sends: a template, images, then the objects that point to them.
    bool ok = storeResource(cache, "itemtpl", ITEM_TEMPLATE, "application/xhtml+xml") &&
              storeResource(cache, "chicon", std::string(300, 'c'), "image/x-png") &&
              storeResource(cache, "img1", std::string(2000, '1'), "image/gif") &&
              storeResource(cache, "img2", std::string(2000, '2'), "image/gif") &&
              storeResource(cache, "img4", std::string(2000, '4'), "image/gif");
    std::string name;
    cache->getFileName("itemtpl", name);
    std::printf("  stored the item template as %s and four images; img3 never came\n",
                name.c_str());

    // Each item with what the reader should make of it.
    struct Story {
        PtrRef<Item> item;
        bool displayable;
        const char* why;
    } stories[] = {
        {makeItem("item1", "Tram line approved", "img1"), true, ""},
        {makeItem("item2", "Yesterday's weather", "img2"), false, "expired a minute ago"},
        {makeItem("item3", "Photo on its way", "img3"), true, "with the channel's icon"},
        {makeItem("item4", "Shown often enough", "img4"), false, "shown as often as allowed"},
        {makeItem("item5", "New layout", "img1"), false, "its template never came"},
    };
    stories[1].item->setExpirationDate(long(std::time(nullptr)) - 60);
    stories[3].item->displayCountLimit = 2;
    stories[3].item->currentDisplayCount = 2;
    stories[4].item->templateID = "newtpl";
    PtrRef<Channel> channel(new Channel("city"));
    channel->title = L"City news";
    channel->contentMap.reset(new NewsObject::ContentMap);
    (*channel->contentMap)["image"].contextId = "chicon";
    PtrRef<Container> news(new Container("news"));
    news->channelIDs.push_back("city");
    for (const Story& story : stories) {
        channel->itemIDs.push_back(story.item->id);
        ok = cache->save(story.item->id, *story.item) == 0 && ok;
        ++published;
    }
    ok = cache->save("city", *channel) == 0 && ok;
    ok = cache->save("news", *news) == 0 && ok;
    published += 2;
    std::printf("  saved 5 items, the channel and the container: %ld of %ld blocks in use\n",
                policy->blocksUsed(), policy->maxCacheBlocks());
    ok = waitForStatus(status, published) && ok;

    // Photos nobody references fill the cache: making room takes them first.
    const int photos = 20;
    for (int i = 0; i < photos; ++i)
        ok = storeResource(cache, "photo" + std::to_string(i), std::string(9000, 'p'),
                           "image/jpeg") &&
             ok;
    int kept = 0;
    for (int i = 0; i < photos; ++i)
        kept += cache->getFileName("photo" + std::to_string(i), name) == 0;
    bool feedKept = true;
    for (const char* id : {"itemtpl", "chicon", "img1", "img2", "img4", "item1", "city", "news"})
        feedKept = cache->getFileName(id, name) == 0 && feedKept;
    std::printf("  stored %d unreferenced photos of 9000 bytes (3 blocks each): %d evicted to "
                "make room, %d kept; the feed's files %s\n",
                photos, photos - kept, kept, feedKept ? "are all still there" : "were evicted");
    ok = ok && kept < photos && feedKept && errors.count() == 0;
    std::printf("  storage full: %s\n", cache->isStorageFull() ? "yes"
                                                               : "no (nothing referenced "
                                                                 "had to go)");

    // Read back, the way the reader starts: sync, then the container, its channel and items.
    cache->sync();
    ++published;
    std::printf("  after sync:\n");
    ok = waitForStatus(status, published) && ok;
    PtrRef<Container> container(new Container("news"));
    ok = cache->get("news", *container) == 0 && ok;
    Carousel carousel(container);
    PtrRef<Channel> readChannel(new Channel(container->channelIDs.at(0)));
    ok = cache->get(readChannel->id, *readChannel) == 0 && ok;
    carousel.addChannel(readChannel);
    PtrRef<DPTemplate::Template> itemTemplate =
        DPTemplate::TemplateManager::getInstance()->get(MString("itemtpl"));
    std::printf("  template manager loaded \"itemtpl\" from the cache: %s\n",
                itemTemplate ? "yes" : "no");
    ok = ok && itemTemplate;
    for (const Story& story : stories) {
        PtrRef<Item> item(new Item(story.item->id));
        ok = cache->get(item->id, *item) == 0 && ok;
        carousel.addItem(*readChannel, item);
        bool displayable = item->isDisplayable();
        std::printf("  %s \"%s\": %s%s%s\n", item->id.c_str(), ovTypes::ID(item->title).c_str(),
                    displayable ? "displayable" : "not displayable", *story.why ? ", " : "",
                    story.why);
        ok = ok && displayable == story.displayable;
    }
    std::printf("cache: %s\n", ok ? "ok" : "FAILED");
    return ok;
}
