#include "storage/NR_ContentCache.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "storage/NR_CacheDirectory.h"
#include "storage/NR_ContentCachePolicy.h"
#include "types/FnLog.h"
#include "utility/NR_Constants.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>

std::string NR_ContentCache::cache_dir;
bool NR_ContentCache::isFull = false;
std::set<std::string> NR_ContentCache::templateIDs;
std::set<std::string> NR_ContentCache::chanTemplateIDs;
std::set<std::string> NR_ContentCache::chanImageIDs;
std::set<std::string> NR_ContentCache::imageOnlyIDs;
std::set<std::string> NR_ContentCache::excerptIDs;
std::set<std::string> NR_ContentCache::excerptCSSIDs;

namespace {

NR_ContentCache* gInstance = nullptr;

const char* const kContainerSuffix = ".cnt";
const char* const kChannelSuffix = ".chn";
const char* const kItemSuffix = ".itm";
const char* const kTempSuffix = ".tmp";
const char* const kRootContainer = "news";
const char* const kStyleSheetType = "text/css";

// Every operation checks its ID with this first: an ID that could name a file outside the
// cache directory is refused.
bool checkID(const std::string& id, const char* operation) {
    if (NR_CacheDirectory::isSafeID(id))
        return true;
    OV_LOG(3, "NR_ContentCache.%s(): refused content ID \"%s\": it names no file of the cache\n\n",
           operation, id.c_str());
    return false;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The suffix of a stream file (".cnt", ".chn", ".itm"), or null for any other file.
const char* objectSuffix(const std::string& name) {
    for (const char* suffix : {kContainerSuffix, kChannelSuffix, kItemSuffix}) {
        if (endsWith(name, suffix))
            return suffix;
    }
    return nullptr;
}

NR_ContentCachePolicy* policy() {
    return NR_ContentCachePolicy::getInstance();
}

} // namespace

NR_ContentCache* NR_ContentCache::getInstance() {
    if (!gInstance) {
        gInstance = new NR_ContentCache();
        NR_ContentCachePolicy::getInstance(); // measures the directory just made
    }
    return gInstance;
}

int NR_ContentCache::setCachePath(const std::string& path) {
    cache_dir = path;
    if (cache_dir.empty() || cache_dir.back() != '/')
        cache_dir += '/';
    directory().setPath(cache_dir);
    if (gInstance) {
        std::error_code ignored;
        std::filesystem::create_directories(cache_dir, ignored);
    }
    return 0;
}

std::string NR_ContentCache::getCachePath() {
    return cache_dir.empty() ? ovplatform::devicePath(NR_Constants::DEFAULT_CACHE_PATH) : cache_dir;
}

NR_CacheDirectory& NR_ContentCache::directory() {
    static NR_CacheDirectory* dir = new NR_CacheDirectory(); // outlives static destruction
    if (dir->path().empty())
        dir->setPath(getCachePath());
    return *dir;
}

NR_ContentCache::NR_ContentCache() {
    std::string dir = getCachePath();
    cache_dir = dir;
    directory().setPath(dir);
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (error)
        OV_LOG(3, "NR_ContentCache: cannot create the cache directory %s: %s\n\n", dir.c_str(),
               error.message().c_str());
    for (size_t i = 0; i < NR_CacheDirectory::MIME_TABLE_SIZE; ++i) {
        const NR_CacheDirectory::MimeType& entry = NR_CacheDirectory::MIME_TABLE[i];
        mMimeTable[entry.type] = entry.extension;
        OV_LOG(5, "NR_ContentCache: %s type will have suffix of %s\n\n", entry.type,
               entry.extension);
    }
}

// --- Objects

int NR_ContentCache::save(const ovTypes::ID& id, const Item& item) {
    int rc = save(id, item, kItemSuffix);
    if (rc == 0)
        addItemRefs(item, id + kItemSuffix);
    saveRefUsed();
    return rc;
}

int NR_ContentCache::save(const ovTypes::ID& id, const Channel& channel) {
    int rc = save(id, channel, kChannelSuffix);
    if (rc == 0)
        addChannelRefs(channel, id + kChannelSuffix);
    saveRefUsed();
    return rc;
}

int NR_ContentCache::save(const ovTypes::ID& id, const Container& container) {
    int rc = save(id, container, kContainerSuffix);
    if (rc == 0)
        addContainerRefs(container, id + kContainerSuffix);
    saveRefUsed();
    return rc;
}

int NR_ContentCache::save(const ovTypes::ID& id, const Streamable& object, const char* suffix) {
    if (!checkID(id, "save"))
        return -1;
    std::ostringstream text;
    if (!object.store(text))
        return -1;
    const std::string bytes = text.str();
    int blocks = policy()->blocksFor(bytes.size());
    OV_LOG(5, "NR_ContentCache.save(): Size of %s is %d\n\n", id.c_str(), blocks);
    if (clearSpace(blocks) != 0)
        return -1;

    NR_CacheDirectory& dir = directory();
    const std::string name = id + suffix;
    if (!dir.writeFile(id + kTempSuffix, name, bytes)) {
        OV_LOG(3, "NR_ContentCache.save(): cannot write %s: %s\n\n", dir.pathOf(name).c_str(),
               std::strerror(errno));
        return -1;
    }
    // Accounted by the size just written: nothing to ask the file system.
    policy()->accountFile(name, fileType(name), bytes.size());
    policy()->accessedCacheObj(name);
    OV_LOG(5, "send storage used to UI\n\n");
    sendStorageStatus();
    return 0;
}

int NR_ContentCache::get(const ovTypes::ID& id, Item& item) {
    return get(id, item, kItemSuffix);
}

int NR_ContentCache::get(const ovTypes::ID& id, Channel& channel) {
    return get(id, channel, kChannelSuffix);
}

int NR_ContentCache::get(const ovTypes::ID& id, Container& container) {
    return get(id, container, kContainerSuffix);
}

int NR_ContentCache::get(const ovTypes::ID& id, Streamable& object, const char* suffix) {
    if (!checkID(id, "get"))
        return -1;
    const std::string name = id + suffix;
    std::string bytes;
    if (!directory().readObject(name, bytes)) {
        if (errno != ENOENT)
            OV_LOG(3, "NR_ContentCache.get(): %s is not a stored object: %s\n\n",
                   directory().pathOf(name).c_str(), std::strerror(errno));
        return -1;
    }
    std::istringstream in(bytes);
    object.load(in);
    return 0;
}

int NR_ContentCache::removeObjectFile(const ovTypes::ID& id, const char* suffix) {
    if (!checkID(id, "remove"))
        return -1;
    const std::string name = id + suffix;
    bool removed = directory().unlink(name);
    if (removed || errno == ENOENT)
        policy()->delDiskUsage(name, 0);
    return removed ? 0 : -1;
}

int NR_ContentCache::remove(const ovTypes::ID& id, Container& /*container*/) {
    return removeObjectFile(id, kContainerSuffix);
}

int NR_ContentCache::remove(const ovTypes::ID& id, Channel& /*channel*/) {
    int rc = removeObjectFile(id, kChannelSuffix);
    if (NR_CacheDirectory::isSafeID(id))
        policy()->delRefsOf(id + kChannelSuffix);
    return rc;
}

int NR_ContentCache::remove(const ovTypes::ID& id, Item& /*item*/) {
    int rc = removeObjectFile(id, kItemSuffix);
    if (NR_CacheDirectory::isSafeID(id))
        policy()->delRefsOf(id + kItemSuffix);
    return rc;
}

int NR_ContentCache::removeChannelExcerptRefs(const ovTypes::ID& id, const Channel& channel) {
    if (!checkID(id, "removeChannelExcerptRefs"))
        return -1;
    if (channel.excerptContentMap) {
        for (const auto& entry : *channel.excerptContentMap)
            policy()->delRef(id + kChannelSuffix, entry.second.contextId, 0);
    }
    return 0;
}

int NR_ContentCache::clear() {
    NR_CacheDirectory& dir = directory();
    std::vector<std::string> names;
    if (dir.list(names) != 0) {
        OV_LOG(3, "NR_ContentCache.clear(): cannot read %s: %s\n\n", dir.path().c_str(),
               std::strerror(errno));
        return -1;
    }
    int rc = 0;
    std::vector<std::string> kept;
    for (const std::string& name : names) {
        if (!dir.unlink(name)) {
            OV_LOG(3, "NR_ContentCache.clear(): cannot delete %s: %s\n\n", dir.pathOf(name).c_str(),
                   std::strerror(errno));
            rc = -1;
            if (!endsWith(name, kTempSuffix))
                kept.push_back(name);
        }
    }
    resetReferences();
    // What could not be deleted is still on disk and stays counted, as sync would count it.
    for (const std::string& name : kept)
        account(name, false);
    saveRefUsed();
    return rc;
}

// --- Resources

int NR_ContentCache::getFileName(const ovTypes::ID& id, std::string& name) {
    if (!checkID(id, "getFileName"))
        return -1;
    return directory().find(id, name);
}

int NR_ContentCache::getPath(const ovTypes::ID& id, std::string& path) {
    std::string name;
    if (getFileName(id, name) != 0) {
        path.clear();
        return -1;
    }
    path = directory().pathOf(name);
    return 0;
}

long NR_ContentCache::getSize(const ovTypes::ID& id) {
    std::string path;
    struct stat st;
    if (getPath(id, path) != 0 || ::stat(path.c_str(), &st) != 0)
        return -1;
    return long(st.st_size);
}

std::ifstream* NR_ContentCache::getInputStream(const ovTypes::ID& id) {
    std::string name;
    if (getFileName(id, name) != 0)
        return nullptr;
    std::string path = directory().pathOf(name);
    // A FIFO or a link to a device under a resource's name would hang or flood the reader.
    std::ifstream* in = directory().isRegularFile(name)
                            ? new std::ifstream(path, std::ios::in | std::ios::binary)
                            : new std::ifstream();
    if (!in->is_open()) {
        OV_LOG(3, "NR_ContentCache.getInputStream(): cannot open %s: %s\n\n", path.c_str(),
               std::strerror(errno));
        delete in;
        return nullptr;
    }
    policy()->accessedCacheObj(name);
    OV_LOG(5, "NR_ContentCache.getInputStream(): retrieved path %s\n\n", path.c_str());
    return in;
}

int NR_ContentCache::closeInputStream(std::ifstream* stream) {
    if (stream)
        stream->close();
    delete stream;
    return 0;
}

std::ofstream* NR_ContentCache::getOutputStream(const ovTypes::ID& id, unsigned long size) {
    if (!checkID(id, "getOutputStream") || !limitKnown("getOutputStream"))
        return nullptr;
    NR_ContentCachePolicy* p = policy();
    int need = p->blocksFor(size);
    int type = getType(id);
    p->beginRoomMaking();
    while (p->cacheBlocksFree() <= need) {
        bool evictedReferenced = false;
        // Stops when nothing the ID may displace is left: the write is tried anyway, as save
        // does, instead of waiting for room that cannot come.
        if (p->removeNext(type, evictedReferenced) != 0) {
            if (!roomMade("getOutputStream"))
                return nullptr;
            break;
        }
        if (evictedReferenced && !isFull) {
            OV_LOG(5, "Content cache just filled up by storing image\n\n");
            sendStorageEvent(true);
        }
    }
    std::ofstream* out = new std::ofstream();
    if (!directory().create(id + kTempSuffix, *out)) {
        OV_LOG(3, "NR_ContentCache.getOutputStream(): cannot open %s: %s\n\n",
               directory().pathOf(id + kTempSuffix).c_str(), std::strerror(errno));
        delete out;
        return nullptr;
    }
    return out;
}

int NR_ContentCache::closeOutputStream(const ovTypes::ID& id, std::ofstream* stream,
                                       std::string mimeType) {
    OV_LOG(4, "CloseOutputStream : %s, with type:%s\n\n", id.c_str(), mimeType.c_str());
    if (!stream)
        return -1;
    bool written = stream->good();
    stream->close();
    written = written && !stream->fail();
    delete stream;
    if (!checkID(id, "closeOutputStream"))
        return -1;
    NR_CacheDirectory& dir = directory();
    const std::string temp = id + kTempSuffix;
    const std::string name = finalName(id, mimeType);
    OV_LOG(4, "New path:%s\n\n", dir.pathOf(name).c_str());
    written = written && dir.rename(temp, name);
    if (!written) {
        OV_LOG(3, "NR_ContentCache.closeOutputStream(): cannot write %s: %s\n\n",
               dir.pathOf(name).c_str(), std::strerror(errno));
        dir.unlink(temp);
        return -1;
    }
    policy()->addDiskUsage(name, getType(id), true);
    return 0;
}

std::string NR_ContentCache::extensionOf(const std::string& mimeType) const {
    auto it = mMimeTable.find(mimeType);
    return it == mMimeTable.end() ? std::string() : it->second;
}

std::string NR_ContentCache::finalName(const ovTypes::ID& id, const std::string& mimeType) const {
    std::string ext = extensionOf(mimeType);
    if (ext.empty()) {
        std::string stem, own;
        if (NR_CacheDirectory::splitExtension(id, stem, own))
            return stem + "." + own;
        return id + ".dat";
    }
    if (id.size() <= ext.size())
        return id + "." + ext;
    if (endsWith(id, "Z" + ext) || endsWith(id, "." + ext))
        return id.substr(0, id.size() - ext.size() - 1) + "." + ext;
    return id + "." + ext;
}

int NR_ContentCache::getType(const ovTypes::ID& id) const {
    bool isTemplate = templateIDs.count(id) != 0;
    if (isTemplate && chanTemplateIDs.count(id))
        return 4;
    if (isTemplate)
        return 6;
    if (excerptIDs.count(id))
        return 1;
    if (excerptCSSIDs.count(id))
        return 8;
    if (chanImageIDs.count(id))
        return 5;
    if (imageOnlyIDs.count(id))
        return 7;
    return 9;
}

// --- Accounting and status

long NR_ContentCache::cacheSize() {
    return policy()->cacheSize();
}

long NR_ContentCache::cacheUsed() {
    return policy()->cacheUsed();
}

long NR_ContentCache::cacheRemaining() {
    return policy()->cacheRemaining();
}

int NR_ContentCache::clearSpace(int blocks) {
    if (!limitKnown("save"))
        return -1;
    NR_ContentCachePolicy* p = policy();
    p->beginRoomMaking();
    for (;;) {
        long free = p->cacheBlocksFree();
        if (free >= blocks)
            return 0;
        OV_LOG(5, "NR_ContentCache.save(): cache free=%ld, size=%d\n\n", free * p->getBlockSize(),
               blocks);
        bool evictedReferenced = false;
        if (p->removeNext(0, evictedReferenced) == -1) {
            if (!roomMade("save"))
                return -1;
            OV_LOG(5, "NR_ContentCache.save(): Nothing to remove\n\n");
            return 0;
        }
        if (evictedReferenced && !isFull) {
            OV_LOG(5, "NR_ContentCache.save(): Content cache just filled up\n\n");
            sendStorageEvent(true);
        }
    }
}

bool NR_ContentCache::limitKnown(const char* operation) {
    if (policy()->measure())
        return true;
    OV_LOG(3, "NR_ContentCache.%s(): the size of %s is unknown: nothing is evicted or written\n\n",
           operation, getCachePath().c_str());
    return false;
}

bool NR_ContentCache::roomMade(const char* operation) {
    if (!policy()->roomMakingStuck())
        return true;
    OV_LOG(3, "NR_ContentCache.%s(): no room: files of %s could not be deleted\n\n", operation,
           getCachePath().c_str());
    return false;
}

void NR_ContentCache::sendStorageStatus() {
    OV_LOG(5, "send Storage Status\n\n");
    auto kilobytes = [](long value) { return std::to_string(value) + " K"; };
    OV_Event event(NR_Constants::EVENT_NOTIFY_STORAGE_STATUS);
    event.setProperty("total", kilobytes(cacheSize()));
    event.setProperty("used", kilobytes(cacheUsed()));
    event.setProperty("free", kilobytes(cacheRemaining()));
    OV_EventAndStatusFacade::instance()->publish(event);
    OV_LOG(5, "send event\n\n");
    OV_LOG(5, "send Storage Status Finished\n\n");
}

void NR_ContentCache::sendStorageEvent(bool full) {
    isFull = full;
    OV_Event event(NR_Constants::EVENT_NOTIFY_STORAGE_ERROR);
    event.mValue = full;
    OV_EventAndStatusFacade::instance()->publish(event);
}

void NR_ContentCache::saveRefUsed() {
    policy()->writeRefUsed();
    OV_LOG(5, "NR_ContentCache::saveRefUsed(): mReferencedUsed is saved %ld\n\n",
           policy()->referencedUsed());
}

// --- References

void NR_ContentCache::addResourceRef(const std::string& parent, const ovTypes::ID& id,
                                     std::set<std::string>* set) {
    if (id.empty() || id.isDefaultContentID() || !checkID(id, "addRef"))
        return;
    policy()->addRef(parent, id);
    if (!set || !set->insert(id).second)
        return;
    // A resource already in the cache takes the class this reference gives it, so the order
    // of downloads never decides what is evicted.
    for (const std::string& name : policy()->filesNamed(id))
        policy()->setQueue(name, fileType(name));
}

void NR_ContentCache::addObjectRef(const std::string& parent, const ovTypes::ID& id,
                                   const char* suffix) {
    if (!id.empty() && checkID(id, "addRef"))
        policy()->addRef(parent, id + suffix);
}

void NR_ContentCache::addItemRefs(const Item& item) {
    addItemRefs(item, item.id + kItemSuffix);
}

void NR_ContentCache::addItemExcerptRefs(const Item& item) {
    addExcerptRefs(item, item.id + kItemSuffix);
}

void NR_ContentCache::addChannelRefs(const Channel& channel) {
    addChannelRefs(channel, channel.id + kChannelSuffix);
}

void NR_ContentCache::addChannelExcerptRefs(const Channel& channel) {
    addExcerptRefs(channel, channel.id + kChannelSuffix);
}

void NR_ContentCache::addContainerRefs(const Container& container) {
    addContainerRefs(container, container.id + kContainerSuffix);
}

void NR_ContentCache::addItemRefs(const Item& item, const std::string& parent) {
    ovTypes::ID templateID = item.getEffectiveTemplateID();
    OV_LOG(5, "NR_ContentCache.addItemRefs(): Template ID is %s\n\n", templateID.c_str());
    addResourceRef(parent, templateID, &templateIDs);
    if (item.contentMap) {
        for (const auto& entry : *item.contentMap) {
            OV_LOG(5, "NR_ContentCache.addItemRefs(): Image ID is %s\n\n",
                   entry.second.contextId.c_str());
            addResourceRef(parent, entry.second.contextId,
                           item.isImageOnly() ? &imageOnlyIDs : nullptr);
        }
    }
    addExcerptRefs(item, parent);
}

void NR_ContentCache::addChannelRefs(const Channel& channel, const std::string& parent) {
    OV_LOG(5, "NR_ContentCache.addChannelRefs(): Template ID is %s\n\n",
           channel.templateID.c_str());
    addResourceRef(parent, channel.templateID, &templateIDs);
    addResourceRef(parent, channel.templateID, &chanTemplateIDs);
    addResourceRef(parent, channel.itemTemplateID, &templateIDs);
    if (channel.contentMap) {
        for (const auto& entry : *channel.contentMap) {
            OV_LOG(5, "NR_ContentCache.addChannelRefs(): Image ID is %s\n\n",
                   entry.second.contextId.c_str());
            addResourceRef(parent, entry.second.contextId, &chanImageIDs);
        }
    }
    addExcerptRefs(channel, parent);
    for (const ovTypes::ID& itemID : channel.itemIDs)
        addObjectRef(parent, itemID, kItemSuffix);
}

void NR_ContentCache::addContainerRefs(const Container& container, const std::string& parent) {
    for (const ovTypes::ID& channelID : container.channelIDs)
        addObjectRef(parent, channelID, kChannelSuffix);
}

void NR_ContentCache::addExcerptRefs(const NewsObject& object, const std::string& parent) {
    if (!object.excerptContentMap)
        return;
    for (const auto& entry : *object.excerptContentMap) {
        const NewsObject::Content& content = entry.second;
        addResourceRef(parent, content.contextId,
                       content.type == kStyleSheetType ? &excerptCSSIDs : &excerptIDs);
    }
}

void NR_ContentCache::resetReferences() {
    for (std::set<std::string>* set : {&templateIDs, &chanTemplateIDs, &chanImageIDs, &imageOnlyIDs,
                                       &excerptIDs, &excerptCSSIDs})
        set->clear();
    policy()->reset();
}

// --- Rebuilding

int NR_ContentCache::fileType(const std::string& name) const {
    const char* suffix = objectSuffix(name);
    if (suffix == kContainerSuffix)
        return 0;
    if (suffix == kChannelSuffix)
        return 2;
    if (suffix == kItemSuffix)
        return 3;
    for (const std::string& id : NR_CacheDirectory::namesOf(name)) {
        int type = getType(id);
        if (type != 9)
            return type;
    }
    return 9;
}

void NR_ContentCache::account(const std::string& name, bool written) {
    policy()->addDiskUsage(name, fileType(name), written);
    const char* suffix = objectSuffix(name);
    if ((written && suffix) || suffix == kContainerSuffix)
        policy()->accessedCacheObj(name);
}

int NR_ContentCache::sync(bool sweepUnfinished, Undeleted* undeleted) {
    resetReferences();

    OV_LOG(5, "About to loop through containers\n\n");
    Container news(kRootContainer);
    OV_LOG(5, "About to get container %s\n\n", kRootContainer);
    if (get(kRootContainer, news) == 0) {
        addContainerRefs(news, std::string(kRootContainer) + kContainerSuffix);
        for (const ovTypes::ID& channelID : news.channelIDs) {
            OV_LOG(5, "NR_ContentCache.sync(): Loop through chanList %s\n\n", channelID.c_str());
            Channel channel(channelID);
            if (get(channelID, channel) != 0)
                continue;
            OV_LOG(5, "NR_ContentCache.sync(): Got channel %s\n\n", channelID.c_str());
            addChannelRefs(channel, channelID + kChannelSuffix);
            for (const ovTypes::ID& itemID : channel.itemIDs) {
                Item item(itemID);
                if (get(itemID, item) != 0)
                    continue;
                OV_LOG(5, "NR_ContentCache.sync(): Got item %s\n\n", itemID.c_str());
                OV_LOG(5, "NR_ContentCache.sync(): About to get references of %s\n\n",
                       itemID.c_str());
                addItemRefs(item, itemID + kItemSuffix);
            }
        }
    }

    int rc = 0;
    std::vector<std::string> names;
    if (sortDir(names) != 0) {
        OV_LOG(3, "sync(): sortDir returns -1\n\n");
        rc = -1;
    }
    // Referenced files are accounted as they are found; the rest after them.
    std::vector<std::string> objects, others;
    for (const std::string& name : names) {
        if (endsWith(name, kTempSuffix)) {
            if (sweepUnfinished && !sweep(name)) {
                if (undeleted)
                    undeleted->emplace_back(name, errno);
                rc = -1;
            }
            continue;
        }
        const char* suffix = objectSuffix(name);
        if (suffix == kContainerSuffix)
            OV_LOG(5, "NR_ContentCache.sync(): found container %s\n\n", name.c_str());
        else if (suffix == kChannelSuffix)
            OV_LOG(5, "NR_ContentCache.sync(): found channel %s\n\n", name.c_str());
        else if (suffix == kItemSuffix)
            OV_LOG(5, "NR_ContentCache.sync(): found item %s\n\n", name.c_str());
        else
            OV_LOG(5, "NR_ContentCache.sync(): found misc object %s\n\n", name.c_str());
        if (policy()->hasReferences(name, 0))
            account(name, false);
        else
            (suffix ? objects : others).push_back(name);
    }

    OV_LOG(5, "NR_ContentCache.sync(): Adding unreferenced stuff\n\n");
    OV_LOG(5, "NR_ContentCache.sync(): First, the items\n\n");
    for (const std::string& name : objects)
        account(name, false);
    OV_LOG(5, "NR_ContentCache.sync(): Finally, the images\n\n");
    for (const std::string& name : others)
        account(name, false);
    saveRefUsed();

    OV_LOG(5, "CacheUsed %dK, CacheSize %dK\n\n", int(cacheUsed()), int(cacheSize()));
    OV_LOG(5, "send storage status to UI after sync\n\n");
    sendStorageStatus();
    return rc;
}

bool NR_ContentCache::sweep(const std::string& name) {
    switch (directory().removeUnfinished(name)) {
    case 1:
        OV_LOG(4, "NR_ContentCache.sync(): removing unfinished %s\n\n", name.c_str());
        return true;
    case 0:
        OV_LOG(4, "NR_ContentCache.sync(): %s is being written: kept\n\n", name.c_str());
        return true;
    default:
        OV_LOG(3, "NR_ContentCache.sync(): cannot delete unfinished %s: %s\n\n",
               directory().pathOf(name).c_str(), std::strerror(errno));
        return false;
    }
}

int NR_ContentCache::sortDir(std::vector<std::string>& names) {
    if (directory().list(names) != 0)
        return -1;
    std::sort(names.begin(), names.end());
    return 0;
}
