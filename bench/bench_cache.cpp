// The content cache: saving items into a cache that must evict, against writing the same bytes
// through ".tmp" files without any accounting; sync of 1,000 and 10,000 files; a resource
// lookup in a directory of 10,000 files, by the cache's index and by reading the directory;
// loading a channel with its 100 items; one eviction.
//
// System calls per save: strace -f -c ./bench_cache --benchmark_filter=BM_SaveItemsEvicting
// (and BM_SaveItemsBaseline/2000 for the baseline), each count divided by the 10,000 saves.
// TMPDIR=/dev/shm runs it on tmpfs, where the file system's own costs vary least.
#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "storage/NR_CacheDirectory.h"
#include "storage/NR_ContentCache.h"
#include "storage/NR_ContentCachePolicy.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// The cache may hold 2,000 blocks (4 KB each): saving 10,000 one-block items evicts.
const long kTotalBlocks = 20000;

// A device root with a content cache on a simulated file system; removed at exit.
class CacheFixture {
public:
    CacheFixture() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "ovbase-bench-XXXXXX").string();
        mRoot = ::mkdtemp(pattern.data()) ? pattern : std::string();
        ovplatform::setDeviceRoot(mRoot);
        mBaselineDir = mRoot + "/baseline/";
        std::filesystem::create_directories(mBaselineDir);
        std::string dir = NR_ContentCache::getCachePath();
        std::filesystem::create_directories(dir);
        ovplatform::setSimulatedFileSystem(dir, 4096, kTotalBlocks);
        mCache = NR_ContentCache::getInstance();
    }
    ~CacheFixture() {
        OV_EventAndStatusFacade::destroy();
        std::error_code ignored;
        std::filesystem::remove_all(mRoot, ignored);
    }

    NR_ContentCache* cache() { return mCache; }
    std::string cacheDir() const { return NR_ContentCache::getCachePath(); }
    const std::string& baselineDir() const { return mBaselineDir; }

    // Empties both directories and the accounting.
    void reset() {
        mCache->clear();
        std::error_code ignored;
        std::filesystem::remove_all(mBaselineDir, ignored);
        std::filesystem::create_directories(mBaselineDir);
    }

private:
    std::string mRoot;
    std::string mBaselineDir;
    NR_ContentCache* mCache;
};

CacheFixture& fixture() {
    static CacheFixture f;
    return f;
}

// An item as a feed sends it: texts, an image and an excerpt page.
std::unique_ptr<Item> makeItem(const std::string& id) {
    std::unique_ptr<Item> item(new Item(id));
    item->title = L"Council approves the new tram line after a long debate";
    item->description = std::wstring(200, L'd');
    item->templateID = "itemtpl";
    item->contentMap.reset(new NewsObject::ContentMap);
    (*item->contentMap)["image"].contextId = "img-" + id;
    (*item->contentMap)["image"].type = "image/gif";
    item->excerptContentMap.reset(new NewsObject::ContentMap);
    (*item->excerptContentMap)["primaryxhtml"].contextId = "page-" + id;
    item->pubdate = 1170000000;
    return item;
}

void BM_SaveItemsEvicting(benchmark::State& state) {
    CacheFixture& f = fixture();
    f.reset();
    std::vector<std::unique_ptr<Item>> items;
    for (int i = 0; i < state.max_iterations; ++i)
        items.push_back(makeItem("item" + std::to_string(i)));
    long i = 0;
    for (auto _ : state) {
        const Item& item = *items[size_t(i++)];
        int rc = f.cache()->save(item.id, item);
        benchmark::DoNotOptimize(rc);
    }
    state.counters["evicted"] =
        double(i - long(NR_ContentCachePolicy::getInstance()->queue(3).size()));
    f.reset();
}
BENCHMARK(BM_SaveItemsEvicting)->Iterations(10000)->Unit(benchmark::kMicrosecond);

// The same bytes through ".tmp" files renamed to their final names, nothing else. With an
// argument N, the oldest file is also deleted once N are there, as the cache must: what the
// file system itself spends on files deleted and made in turn.
void BM_SaveItemsBaseline(benchmark::State& state) {
    CacheFixture& f = fixture();
    f.reset();
    std::ostringstream text;
    makeItem("item")->store(text);
    const std::string bytes = text.str();
    const long keep = long(state.range(0));
    long i = 0;
    for (auto _ : state) {
        std::string temp = f.baselineDir() + "item" + std::to_string(i) + ".tmp";
        std::ofstream out(temp, std::ios::out | std::ios::trunc | std::ios::binary);
        out.write(bytes.data(), std::streamsize(bytes.size()));
        out.close();
        int rc = std::rename(temp.c_str(),
                             (f.baselineDir() + "item" + std::to_string(i) + ".itm").c_str());
        if (keep > 0 && i >= keep)
            rc |=
                std::remove((f.baselineDir() + "item" + std::to_string(i - keep) + ".itm").c_str());
        ++i;
        benchmark::DoNotOptimize(rc);
    }
    f.reset();
}
BENCHMARK(BM_SaveItemsBaseline)
    ->Arg(0)
    ->Arg(2000)
    ->Iterations(10000)
    ->Unit(benchmark::kMicrosecond);

// A cache of COUNT files as a feed leaves it: a container, channels of 100 items, and an image
// for every item.
void fillFeed(CacheFixture& f, int count) {
    f.reset();
    const int items = count / 2;
    Container news("news");
    for (int c = 0; c * 100 < items; ++c) {
        Channel channel("ch" + std::to_string(c));
        for (int i = c * 100; i < std::min(items, (c + 1) * 100); ++i)
            channel.itemIDs.push_back("item" + std::to_string(i));
        std::ofstream out(f.cacheDir() + channel.id + ".chn");
        channel.store(out);
        news.channelIDs.push_back(channel.id);
    }
    std::ofstream out(f.cacheDir() + "news.cnt");
    news.store(out);
    out.close();
    for (int i = 0; i < items; ++i) {
        std::string id = "item" + std::to_string(i);
        std::ofstream item(f.cacheDir() + id + ".itm");
        makeItem(id)->store(item);
        std::ofstream(f.cacheDir() + "img-" + id + ".gif") << "GIF89a";
    }
}

void BM_Sync(benchmark::State& state) {
    CacheFixture& f = fixture();
    fillFeed(f, int(state.range(0)));
    for (auto _ : state) {
        int rc = f.cache()->sync();
        benchmark::DoNotOptimize(rc);
    }
    state.SetComplexityN(state.range(0));
    f.reset();
}
BENCHMARK(BM_Sync)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Complexity();

// 10,000 resource files written behind the cache's back, then looked up.
void fillResources(CacheFixture& f) {
    f.reset();
    for (int i = 0; i < 10000; ++i)
        std::ofstream(f.cacheDir() + "res" + std::to_string(i) + ".gif") << "GIF89a";
}

void BM_GetPathIndexed(benchmark::State& state) {
    CacheFixture& f = fixture();
    fillResources(f);
    std::string path;
    f.cache()->getPath("res0", path); // the first lookup reads the directory once
    long i = 0;
    for (auto _ : state) {
        int rc = f.cache()->getPath("res" + std::to_string((i++ * 7919) % 10000), path);
        benchmark::DoNotOptimize(rc);
    }
    f.reset();
}
BENCHMARK(BM_GetPathIndexed)->Unit(benchmark::kMicrosecond);

// The lookup as a directory scan: every entry read until the first match.
void BM_GetPathByScan(benchmark::State& state) {
    CacheFixture& f = fixture();
    fillResources(f);
    const std::string dirPath = f.cacheDir();
    long i = 0;
    for (auto _ : state) {
        std::string id = "res" + std::to_string((i++ * 7919) % 10000);
        std::string found;
        DIR* dir = ::opendir(dirPath.c_str());
        while (struct dirent* entry = ::readdir(dir)) {
            if (NR_CacheDirectory::names(id, entry->d_name)) {
                found = entry->d_name;
                break;
            }
        }
        ::closedir(dir);
        benchmark::DoNotOptimize(found);
    }
    f.reset();
}
BENCHMARK(BM_GetPathByScan)->Unit(benchmark::kMicrosecond);

void BM_LoadChannelWith100Items(benchmark::State& state) {
    CacheFixture& f = fixture();
    fillFeed(f, 200);
    for (auto _ : state) {
        Channel channel("ch0");
        int rc = f.cache()->get("ch0", channel);
        for (const ovTypes::ID& id : channel.itemIDs) {
            Item item(id);
            rc |= f.cache()->get(id, item);
        }
        benchmark::DoNotOptimize(rc);
    }
    f.reset();
}
BENCHMARK(BM_LoadChannelWith100Items)->Unit(benchmark::kMicrosecond);

// One removeNext on a cache of 2,000 referenced files, rebuilt untimed when it runs low.
void BM_OneEviction(benchmark::State& state) {
    CacheFixture& f = fixture();
    NR_ContentCachePolicy* policy = NR_ContentCachePolicy::getInstance();
    for (auto _ : state) {
        if (policy->blocksUsed() < 1000) {
            state.PauseTiming();
            fillFeed(f, 2000);
            f.cache()->sync();
            state.ResumeTiming();
        }
        bool evictedReferenced = false;
        int rc = policy->removeNext(0, evictedReferenced);
        benchmark::DoNotOptimize(rc);
    }
    f.reset();
}
BENCHMARK(BM_OneEviction)->Unit(benchmark::kMicrosecond);

} // namespace
