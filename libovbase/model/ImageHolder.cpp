#include "model/ImageHolder.h"

#include "storage/NR_ContentCache.h"

#include <string>

ImageHolder ImageHolder::forID(const ovTypes::ID& contextId, const ovTypes::ID& type) {
    return ImageHolder(contextId, type);
}

bool ImageHolder::imageExists(const ovTypes::ID& id) {
    // Default content cannot be asked yet: such an image is absent.
    if (id.isDefaultContentID())
        return false;
    std::string path;
    return NR_ContentCache::getInstance()->getPath(id, path) == 0;
}
