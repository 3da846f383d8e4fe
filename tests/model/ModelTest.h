// A fixture of the news-object tests: it puts the content cache in a directory of its own on a
// temporary device root.
#ifndef OVBASE_TESTS_MODEL_MODELTEST_H
#define OVBASE_TESTS_MODEL_MODELTEST_H

#include "storage/NR_ContentCache.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <sys/stat.h>

namespace modeltest {

class CacheTest : public ::testing::Test {
protected:
    void SetUp() override {
        mCacheDir = mRoot.file("cache/");
        ASSERT_EQ(0, mkdir(mCacheDir.c_str(), 0755));
        NR_ContentCache::setCachePath(mCacheDir);
    }

    // Stores BYTES as the resource ID of MIMETYPE through the cache.
    void putResource(const std::string& id, const std::string& bytes,
                     const std::string& mimeType = "image/gif") {
        NR_ContentCache* cache = NR_ContentCache::getInstance();
        std::ofstream* out = cache->getOutputStream(id, bytes.size());
        ASSERT_NE(nullptr, out);
        *out << bytes;
        ASSERT_EQ(0, cache->closeOutputStream(id, out, mimeType));
    }
    std::string cacheFile(const std::string& name) const { return mCacheDir + name; }

    ovtest::TempDeviceRoot mRoot;
    std::string mCacheDir;
};

} // namespace modeltest

#endif
