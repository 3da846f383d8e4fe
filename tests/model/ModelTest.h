// Helpers of the news-object tests: stream forms as text and maps, and a fixture that puts
// the content cache in a directory of its own on a temporary device root.
#ifndef OVBASE_TESTS_MODEL_MODELTEST_H
#define OVBASE_TESTS_MODEL_MODELTEST_H

#include "model/Streamable.h"
#include "support/TempDir.h"
#include "types/AttrMap.h"

#include <gtest/gtest.h>

#include <string>

namespace modeltest {

// The bytes OBJECT stores.
std::string streamOf(const Streamable& object);
// Loads OBJECT from BYTES.
void loadFrom(Streamable& object, const std::string& bytes);

class CacheTest : public ::testing::Test {
protected:
    void SetUp() override;

    // Stores BYTES as the resource ID of MIMETYPE through the cache.
    void putResource(const std::string& id, const std::string& bytes,
                     const std::string& mimeType = "image/gif");
    std::string cacheFile(const std::string& name) const { return mCacheDir + name; }

    ovtest::TempDeviceRoot mRoot;
    std::string mCacheDir;
};

} // namespace modeltest

#endif
