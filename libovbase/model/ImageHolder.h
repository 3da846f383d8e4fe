// ImageHolder: a handle on one image resource by its content identity, as the templates receive
// it from NewsObject::getImage, and the store's answer to "is this image here".
//
// This is the smallest form the news objects need: a holder names the resource and its MIME
// type and decodes nothing. A "dc:" identity names default content and is present when
// NR_DefaultContentMgr finds it; any other identity is present exactly when the content cache
// has a file for it.
//
// Threads: the engine's thread, like the content cache it asks. Holders are plain values.
#ifndef OVBASE_MODEL_IMAGEHOLDER_H
#define OVBASE_MODEL_IMAGEHOLDER_H

#include "types/ovTypes.h"

class ImageHolder {
public:
    // A holder of the resource CONTEXTID of MIME type TYPE (which may be empty).
    static ImageHolder forID(const ovTypes::ID& contextId, const ovTypes::ID& type);

    // Whether the resource ID can be shown: default content for a "dc:" identity, otherwise a
    // file of the content cache.
    static bool imageExists(const ovTypes::ID& id);

    const ovTypes::ID& getID() const { return mID; }
    const ovTypes::ID& getType() const { return mType; }
    bool exists() const { return imageExists(mID); }

private:
    ImageHolder(const ovTypes::ID& id, const ovTypes::ID& type) : mID(id), mType(type) {}

    ovTypes::ID mID;
    ovTypes::ID mType;
};

#endif
