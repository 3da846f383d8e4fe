#include "model/ImageHolder.h"

#include "storage/NR_ContentCache.h"
#include "storage/NR_DefaultContentMgr.h"

#include <string>

ImageHolder ImageHolder::forID(const ovTypes::ID& contextId, const ovTypes::ID& type) {
    return ImageHolder(contextId, type);
}

bool ImageHolder::imageExists(const ovTypes::ID& id) {
    if (id.isDefaultContentID())
        return NR_DefaultContentMgr::exists(id);
    std::string path;
    return NR_ContentCache::getInstance()->getPath(id, path) == 0;
}
