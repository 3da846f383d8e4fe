// A content cache on a temporary device root whose file system is simulated: 4096-byte blocks
// (the block size of the host's own file systems, so that what files occupy on disk agrees
// with what the policy counts) and a total chosen per test, so the cache's limit is known.
// The cache and its policy are process-wide singletons: one fixture per test process.
#ifndef OVBASE_TESTS_STORAGE_CACHEFIXTURE_H
#define OVBASE_TESTS_STORAGE_CACHEFIXTURE_H

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "model/Streamable.h"
#include "storage/NR_CacheDirectory.h"
#include "storage/NR_ContentCache.h"
#include "storage/NR_ContentCachePolicy.h"
#include "support/EventRecorder.h"
#include "support/Files.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"
#include "utility/NR_Constants.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace storagetest {

// The bytes OBJECT stores.
inline std::string streamOf(const Streamable& object) {
    std::ostringstream out;
    object.store(out);
    return out.str();
}

// Sets the content KEY of MAP, made when there is none yet, to the resource ID of TYPE.
inline void setContent(std::unique_ptr<NewsObject::ContentMap>& map, const std::string& key,
                       const std::string& id, const std::string& type = "image/gif") {
    if (!map)
        map.reset(new NewsObject::ContentMap);
    (*map)[key].contextId = id;
    (*map)[key].type = type;
}

// TEXT holds LINES in their order, each found after the one before.
inline ::testing::AssertionResult inOrder(const std::string& text,
                                          const std::vector<std::string>& lines) {
    size_t at = 0;
    for (const std::string& line : lines) {
        size_t found = text.find(line, at);
        if (found == std::string::npos)
            return ::testing::AssertionFailure() << "missing or out of order: " << line << "\n"
                                                 << text;
        at = found + line.size();
    }
    return ::testing::AssertionSuccess();
}

// ERRORS received exactly one storage-full event (value 1): a marker published behind it
// arrives next.
inline void expectOneFullEvent(ovtest::EventRecorder& errors) {
    OV_Event marker(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    marker.mValue = 99;
    OV_EventAndStatusFacade::instance()->publish(marker);
    ASSERT_TRUE(errors.waitFor(2));
    EXPECT_EQ(1, errors.events()[0].value);
    EXPECT_EQ(99, errors.events()[1].value);
}

// The cache directory under the current device root, without its final '/'.
inline std::string cacheDirUnderRoot() {
    std::string dir = ovplatform::devicePath(NR_Constants::DEFAULT_CACHE_PATH);
    dir.pop_back();
    return dir;
}

class CacheTest : public ::testing::Test {
protected:
    // TOTALBLOCKS of the simulated file system: the cache may use a tenth (100 blocks by default).
    explicit CacheTest(long totalBlocks = 1000) : mDir(cacheDirUnderRoot() + "/") {
        std::filesystem::create_directories(mDir);
        EXPECT_TRUE(ovplatform::setSimulatedFileSystem(mDir, 4096, totalBlocks));
    }
    void TearDown() override { OV_EventAndStatusFacade::destroy(); }

    // Made on first use, so a test can capture what the constructors write.
    NR_ContentCache* cache() { return NR_ContentCache::getInstance(); }
    NR_ContentCachePolicy* policy() {
        cache();
        return NR_ContentCachePolicy::getInstance();
    }

    std::string path(const std::string& name) const { return mDir + name; }
    // The file the cache finds for ID, or "<none>".
    std::string fileOf(const std::string& id) {
        std::string name;
        return cache()->getFileName(id, name) == 0 ? name : "<none>";
    }
    // The stream form of the T the cache reads for ID, or "<none>" when it reads none.
    template <class T> std::string readBack(const std::string& id) {
        T object(id);
        return cache()->get(id, object) == 0 ? streamOf(object) : "<none>";
    }
    bool exists(const std::string& name) const { return ovtest::fileExists(path(name)); }

    std::set<std::string> names() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mDir))
            names.insert(entry.path().filename().string());
        return names;
    }
    // The names in the cache directory, sorted, separated by spaces.
    std::string listing() const {
        std::string text;
        for (const std::string& name : names())
            text += (text.empty() ? "" : " ") + name;
        return text;
    }

    // The blocks the policy counts in all and as referenced.
    std::string usage() {
        return std::to_string(policy()->blocksUsed()) + " used, " +
               std::to_string(policy()->referencedUsed()) + " referenced";
    }

    // Stores BYTES as the resource ID of MIMETYPE through the cache's output stream; the
    // closeOutputStream result.
    int putResource(const std::string& id, const std::string& bytes,
                    const std::string& mimeType = "image/gif") {
        std::ofstream* out = cache()->getOutputStream(id, bytes.size());
        if (!out)
            return -2;
        out->write(bytes.data(), std::streamsize(bytes.size()));
        return cache()->closeOutputStream(id, out, mimeType);
    }

    // Writes NAME straight into the directory, as another process would, and accounts it in
    // queue TYPE (FRESH is the third argument of addDiskUsage).
    void account(const std::string& name, int type, size_t size = 100, bool fresh = false) {
        ASSERT_TRUE(ovtest::writeFile(path(name), std::string(size, 'x')));
        ASSERT_EQ(0, policy()->addDiskUsage(name, type, fresh));
    }

    // Evicts the next file for a caller of class TYPE: "unreferenced NAME" when NAME went as an
    // unreferenced queue top (key 0), "referenced NAME" when it went as the top of a class,
    // "none" when none could. NAME is left out when no file left the directory.
    std::string evict(int type = 0) {
        const std::set<std::string> before = names();
        bool referenced = false;
        if (policy()->removeNext(type, referenced) != 0)
            return "none";
        std::string result = referenced ? "referenced" : "unreferenced";
        for (const std::string& name : before) {
            if (!exists(name))
                result += " " + name;
        }
        return result;
    }

    // "NAME:QUEUE" for each of NAMES as the policy holds it, "+" after the queue of a referenced
    // file, "NAME:none" for a file it does not hold; separated by spaces.
    std::string classes(const std::vector<std::string>& names) {
        std::string text;
        for (const std::string& name : names) {
            int type = -1;
            bool referenced = false;
            std::string held = policy()->queueOf(name, type, referenced)
                                   ? std::to_string(type) + (referenced ? "+" : "")
                                   : "none";
            text += (text.empty() ? "" : " ") + name + ":" + held;
        }
        return text;
    }

    // The key of NAME in queue TYPE of the policy, or -1 when it is not there.
    int keyOf(int type, const std::string& name) {
        const lru_element<std::string>* element = policy()->queue(type).find(name);
        return element ? element->key : -1;
    }

    ovtest::TempDeviceRoot mRoot;
    std::string mDir; // ends in '/'
};

} // namespace storagetest

#endif
