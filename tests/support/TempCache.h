// A content cache for tests: a temporary device root whose "cache/" folder the content cache
// uses for as long as it lives, and resources stored through the cache as a download would.
#ifndef OVBASE_TESTS_SUPPORT_TEMPCACHE_H
#define OVBASE_TESTS_SUPPORT_TEMPCACHE_H

#include "storage/NR_ContentCache.h"
#include "support/TempDir.h"

#include <fstream>
#include <string>
#include <sys/stat.h>

namespace ovtest {

class TempCache : public TempDeviceRoot {
public:
    TempCache() {
        ::mkdir(cacheFile("").c_str(), 0755);
        NR_ContentCache::setCachePath(cacheFile(""));
    }

    // NAME's place in the cache folder.
    std::string cacheFile(const std::string& name) const { return file("cache/" + name); }

    // Stores BYTES as the resource ID of MIMETYPE; its path, or "" when that fails.
    std::string put(const std::string& id, const std::string& bytes,
                    const std::string& mimeType = "image/gif") const {
        NR_ContentCache* cache = NR_ContentCache::getInstance();
        std::ofstream* out = cache->getOutputStream(id, bytes.size());
        if (!out)
            return "";
        *out << bytes;
        std::string path;
        if (cache->closeOutputStream(id, out, mimeType) != 0 || cache->getPath(id, path) != 0)
            return "";
        return path;
    }
};

} // namespace ovtest

#endif
