#include "ModelTest.h"

#include "storage/NR_ContentCache.h"

#include <sstream>
#include <sys/stat.h>

namespace modeltest {

std::string streamOf(const Streamable& object) {
    std::ostringstream out;
    EXPECT_TRUE(object.store(out));
    return out.str();
}

void loadFrom(Streamable& object, const std::string& bytes) {
    std::istringstream in(bytes);
    object.load(in);
}

void CacheTest::SetUp() {
    mCacheDir = mRoot.file("cache/");
    ASSERT_EQ(0, mkdir(mCacheDir.c_str(), 0755));
    NR_ContentCache::setCachePath(mCacheDir);
}

void CacheTest::putResource(const std::string& id, const std::string& bytes,
                            const std::string& mimeType) {
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    std::ofstream* out = cache->getOutputStream(id, bytes.size());
    ASSERT_NE(nullptr, out);
    *out << bytes;
    ASSERT_EQ(0, cache->closeOutputStream(id, out, mimeType));
}

} // namespace modeltest
