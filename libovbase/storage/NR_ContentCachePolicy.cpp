#include "storage/NR_ContentCachePolicy.h"

#include "OVPlatform.h"
#include "storage/NR_CacheDirectory.h"
#include "storage/NR_ContentCache.h"
#include "types/FnLog.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

int32_t NR_ContentCachePolicy::mPercentSize = 10;
int32_t NR_ContentCachePolicy::mBlockSize = 0;
int32_t NR_ContentCachePolicy::mMaxCacheSize = 0;
int32_t NR_ContentCachePolicy::mCacheUsed = 0;
int32_t NR_ContentCachePolicy::mReferencedUsed = 0;
int32_t NR_ContentCachePolicy::blockMultiplier = 1;
std::map<std::string, std::set<std::string>> NR_ContentCachePolicy::references;
std::map<std::string, std::set<std::string>> NR_ContentCachePolicy::mChildren;
std::map<std::string, NR_ContentCachePolicy::FileRecord> NR_ContentCachePolicy::mFiles;
std::multimap<std::string, std::string> NR_ContentCachePolicy::mFilesByName;
NR_LRUQueue<std::string> NR_ContentCachePolicy::mQueueArr[NR_ContentCachePolicy::QUEUE_COUNT];
NR_ContentCachePolicy* NR_ContentCachePolicy::mInstance = nullptr;
bool NR_ContentCachePolicy::mMeasured = false;
std::set<std::string> NR_ContentCachePolicy::mUndeletable;

namespace {

const char* const kRefFile = "/tmp/ref.txt";
// A pass of room-making gives up after this many files that could not be deleted: a directory
// that refuses one deletion most likely refuses them all.
const size_t kMaxUndeletable = 4;
// The block size files are counted in while the file system is not measured.
const int32_t kStandInBlockSize = 4096;

// "/tmp/ref.txt", kept open between uses: it is read and rewritten on every save. A file that
// was deleted or replaced since (no links left) is opened again by its path.
struct RefFile {
    std::string path;
    int fd = -1;
    bool writable = false;
};
RefFile gRefFile;

// The descriptor of "/tmp/ref.txt": for writing when WRITE is true (the file and its directory
// are then made when missing), else for reading at least (a process that may only read it
// still shows the figure). -1 with errno when it cannot be had.
int refFile(bool write) {
    std::string path = ovplatform::devicePath(kRefFile);
    struct stat st;
    if (gRefFile.fd >= 0 && (path != gRefFile.path || (write && !gRefFile.writable) ||
                             ::fstat(gRefFile.fd, &st) != 0 || st.st_nlink == 0)) {
        ::close(gRefFile.fd);
        gRefFile.fd = -1;
    }
    if (gRefFile.fd >= 0)
        return gRefFile.fd;
    const int flags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    int fd = ::open(path.c_str(), O_RDWR | flags | (write ? O_CREAT : 0), 0644);
    if (fd < 0 && errno == ENOENT && write) { // the directory is made only when missing
        std::error_code ignored;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
        fd = ::open(path.c_str(), O_RDWR | O_CREAT | flags, 0644);
    }
    bool writable = fd >= 0;
    if (fd < 0 && !write)
        fd = ::open(path.c_str(), O_RDONLY | flags);
    if (fd >= 0 && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        ::close(fd);
        fd = -1;
        errno = EINVAL;
    }
    gRefFile = RefFile{path, fd, writable};
    return fd;
}

long clampKilobytes(long long blocks, long long blockSize) {
    return long(std::min<long long>(blocks * blockSize / 1024, INT32_MAX));
}

} // namespace

NR_ContentCachePolicy* NR_ContentCachePolicy::getInstance() {
    if (!mInstance)
        mInstance = new NR_ContentCachePolicy();
    return mInstance;
}

NR_ContentCachePolicy::NR_ContentCachePolicy() {
    long totalBlocks = 0;
    measure(&totalBlocks);
    writeRefUsed();
    OV_LOG(5,
           "[e13361] NR_ContentCachePolicy::NR_ContentCachePolicy(): write mReferencedUsed %ld to "
           "/tmp/ref.txt\n\n",
           long(mReferencedUsed));
    OV_LOG(5,
           "NR_ContentCachePolicy: Total size = %ld blocks, Max cache size = %ld blocks, Block "
           "size = %d bytes\n\n",
           totalBlocks, long(mMaxCacheSize), int(mBlockSize));
}

bool NR_ContentCachePolicy::measure(long* totalBlocksOut) {
    if (mMeasured)
        return true;
    std::string dir = NR_ContentCache::getCachePath();
    std::error_code ignored;
    std::filesystem::create_directories(dir, ignored);
    long blockSize = 0, totalBlocks = 0;
    if (!ovplatform::fileSystemSize(dir, blockSize, totalBlocks) || blockSize <= 0) {
        OV_LOG(3, "NR_ContentCachePolicy: cannot measure the file system of %s: %s\n\n",
               dir.c_str(), std::strerror(errno));
        if (mBlockSize <= 0) { // a stand-in, so that files can be counted meanwhile
            mBlockSize = kStandInBlockSize;
            blockMultiplier = kStandInBlockSize / 512;
        }
        return false;
    }
    mBlockSize = int32_t(std::min<long>(blockSize, INT32_MAX));
    blockMultiplier = std::max<int32_t>(1, mBlockSize / 512);
    // Whole percent steps: the total is divided by 100 first.
    mMaxCacheSize =
        int32_t(std::min<long long>((long long)mPercentSize * (totalBlocks / 100), INT32_MAX));
    mMeasured = true;
    if (totalBlocksOut)
        *totalBlocksOut = totalBlocks;
    // Files accounted before, with the stand-in block size, count what this one gives them.
    for (auto& entry : mFiles) {
        FileRecord& record = entry.second;
        int blocks = blocksFor(record.size);
        mCacheUsed += blocks - record.blocks;
        if (record.referenced)
            mReferencedUsed += blocks - record.blocks;
        record.blocks = blocks;
    }
    return true;
}

long NR_ContentCachePolicy::cacheSize() const {
    return clampKilobytes(mMaxCacheSize, mBlockSize);
}

long NR_ContentCachePolicy::cacheFree() const {
    return clampKilobytes((long long)mMaxCacheSize - mCacheUsed, mBlockSize);
}

long NR_ContentCachePolicy::cacheRemaining() const {
    return clampKilobytes((long long)mMaxCacheSize - mReferencedUsed, mBlockSize);
}

long NR_ContentCachePolicy::cacheBlocksFree() const {
    OV_LOG(5, "mMaxCacheSize = %ld, mCacheUsed = %ld\n\n", long(mMaxCacheSize), long(mCacheUsed));
    return std::max<long>(0, long(mMaxCacheSize) - mCacheUsed);
}

long NR_ContentCachePolicy::cacheUsed() const {
    long refUsed = 0;
    int fd = refFile(false);
    if (fd >= 0) {
        char text[32] = {0};
        if (::pread(fd, text, sizeof text - 1, 0) > 0)
            refUsed = std::strtol(text, nullptr, 10);
    }
    OV_LOG(5, "NR_ContentCachePolicy::cacheUsed read refUsed %d\n\n", int(refUsed));
    return clampKilobytes(std::min<long>(refUsed, mMaxCacheSize), mBlockSize);
}

int NR_ContentCachePolicy::blocksFor(uint64_t size) const {
    return int(std::min<uint64_t>(size / uint64_t(mBlockSize) + 1, INT32_MAX));
}

void NR_ContentCachePolicy::changeRefUsed(int blocks, bool add) {
    mReferencedUsed += add ? blocks : -blocks;
    OV_LOG(5, "[e13361] mReferencedUsed is changed to %ld\n\n", long(mReferencedUsed));
}

int NR_ContentCachePolicy::addDiskUsage(const std::string& name, int type, bool /*fresh*/) {
    if (type < 0 || type >= QUEUE_COUNT)
        return -1;
    struct stat st;
    // A directory is no file of the cache: it could never be evicted.
    if (::lstat(NR_ContentCache::directory().pathOf(name).c_str(), &st) != 0 || S_ISDIR(st.st_mode))
        return 0;
    return accountFile(name, type, uint64_t(st.st_size));
}

int NR_ContentCachePolicy::accountFile(const std::string& name, int type, uint64_t size) {
    if (type < 0 || type >= QUEUE_COUNT)
        return -1;
    if (mFiles.count(name))
        delDiskUsage(name, type);
    bool referenced = hasReferences(name, type);
    mQueueArr[type].push(name, !referenced);
    int blocks = blocksFor(size);
    mFiles[name] = FileRecord{type, blocks, size, referenced};
    for (const std::string& key : NR_CacheDirectory::namesOf(name))
        mFilesByName.emplace(key, name);
    OV_LOG(5, "NR_ContentCachePolicy.addDiskUsage(): Target = %s, target used = %d\n\n",
           name.c_str(), blocks);
    mCacheUsed += blocks;
    if (referenced)
        changeRefUsed(blocks, true);
    OV_LOG(5, "In addDiskUsage(): Target = %s cache used = %ld, referenced used = %ld\n\n",
           name.c_str(), long(mCacheUsed), long(mReferencedUsed));
    return 0;
}

int NR_ContentCachePolicy::delDiskUsage(const std::string& name, int /*type*/) {
    auto it = mFiles.find(name);
    if (it == mFiles.end())
        return -1;
    mCacheUsed -= it->second.blocks;
    if (it->second.referenced)
        mReferencedUsed -= it->second.blocks;
    forget(name);
    OV_LOG(5, "In delDiskUsage(): Target = %s cache used = %ld, referenced used = %ld\n\n",
           name.c_str(), long(mCacheUsed), long(mReferencedUsed));
    OV_LOG(5, "delDiskUsage(): mReferencedUsed = %ld\n\n", long(mReferencedUsed));
    return 0;
}

void NR_ContentCachePolicy::addRef(const std::string& parent, const std::string& child) {
    auto it = references.find(child);
    if (it != references.end()) {
        OV_LOG(5, "addRef(): Child %s was referenced earlier\n\n", child.c_str());
        if (it->second.count(parent)) {
            OV_LOG(5, "addRef(): Parent %s found\n\n", parent.c_str());
            return;
        }
    }
    bool first = it == references.end();
    references[child].insert(parent);
    mChildren[parent].insert(child);
    OV_LOG(5, "addRef(): Parent %s added\n\n", parent.c_str());
    if (first)
        updateReferenced(child);
}

void NR_ContentCachePolicy::delRef(const std::string& parent, const std::string& child,
                                   int /*type*/) {
    auto it = references.find(child);
    if (it == references.end() || it->second.erase(parent) == 0)
        return;
    auto children = mChildren.find(parent);
    if (children != mChildren.end()) {
        children->second.erase(child);
        if (children->second.empty())
            mChildren.erase(children);
    }
    if (it->second.empty()) {
        references.erase(it);
        updateReferenced(child);
    }
}

void NR_ContentCachePolicy::delRefsOf(const std::string& parent) {
    for (const std::string& child : childrenOf(parent))
        delRef(parent, child, 0);
}

bool NR_ContentCachePolicy::hasReferences(const std::string& name, int /*type*/) {
    if (isReferenced(name))
        return true;
    OV_LOG(5, "NR_ContentCachePolicy.hasReferences(): Has no references\n\n");
    return false;
}

std::set<std::string> NR_ContentCachePolicy::childrenOf(const std::string& parent) const {
    auto it = mChildren.find(parent);
    return it == mChildren.end() ? std::set<std::string>() : it->second;
}

std::set<std::string> NR_ContentCachePolicy::parentsOf(const std::string& child) const {
    auto it = references.find(child);
    return it == references.end() ? std::set<std::string>() : it->second;
}

bool NR_ContentCachePolicy::isReferenced(const std::string& name) const {
    for (const std::string& key : NR_CacheDirectory::namesOf(name)) {
        if (references.count(key))
            return true;
    }
    return false;
}

void NR_ContentCachePolicy::updateReferenced(const std::string& child) {
    auto range = mFilesByName.equal_range(child);
    for (auto named = range.first; named != range.second; ++named) {
        const std::string& name = named->second;
        FileRecord& record = mFiles.at(name);
        bool referenced = isReferenced(name);
        if (referenced == record.referenced)
            continue;
        record.referenced = referenced;
        changeRefUsed(record.blocks, referenced);
        if (referenced)
            mQueueArr[record.type].touch(name);
        else
            mQueueArr[record.type].setUnused(name);
    }
}

std::vector<std::string> NR_ContentCachePolicy::filesNamed(const std::string& id) const {
    std::vector<std::string> names;
    auto range = mFilesByName.equal_range(id);
    for (auto named = range.first; named != range.second; ++named)
        names.push_back(named->second);
    return names;
}

void NR_ContentCachePolicy::setQueue(const std::string& name, int type) {
    auto it = mFiles.find(name);
    if (it == mFiles.end() || type < 0 || type >= QUEUE_COUNT || it->second.type == type)
        return;
    mQueueArr[it->second.type].remove(name);
    mQueueArr[type].push(name, !it->second.referenced);
    it->second.type = type;
}

void NR_ContentCachePolicy::accessedCacheObj(const std::string& name) {
    auto it = mFiles.find(name);
    if (it != mFiles.end())
        mQueueArr[it->second.type].touch(name);
}

void NR_ContentCachePolicy::beginRoomMaking() {
    mUndeletable.clear();
}

int NR_ContentCachePolicy::removeNext(int type, bool& evictedReferenced) {
    evictedReferenced = true;
    for (int queue = 0; queue < QUEUE_COUNT; ++queue) {
        const lru_element<std::string>* top;
        while ((top = candidate(queue)) && top->key == 0) {
            std::string name = top->name;
            if (!evict(name))
                continue;
            OV_LOG(5, "found unreferenced object %s on queue %d\n\n", name.c_str(), queue);
            evictedReferenced = false;
            return 0;
        }
    }
    if (type >= QUEUE_COUNT)
        return -1;
    for (int queue = QUEUE_COUNT - 1; queue >= std::max(type, 0); --queue) {
        while (const lru_element<std::string>* top = candidate(queue)) {
            std::string name = top->name;
            if (!evict(name))
                continue;
            OV_LOG(5, "removing referenced object %s from queue %d\n\n", name.c_str(), queue);
            return 0;
        }
    }
    return -1;
}

bool NR_ContentCachePolicy::roomMakingStuck() const {
    return !mUndeletable.empty();
}

const lru_element<std::string>* NR_ContentCachePolicy::candidate(int queue) const {
    if (mUndeletable.size() >= kMaxUndeletable)
        return nullptr;
    return mQueueArr[queue].topExcept(mUndeletable);
}

bool NR_ContentCachePolicy::evict(const std::string& name) {
    if (removeFile(name) == 0)
        return true;
    if (errno == ENOENT) { // deleted behind the cache's back: its accounting goes too
        delDiskUsage(name, 0);
        delRefsOf(name);
        return true;
    }
    mUndeletable.insert(name); // it keeps its place and its blocks
    return false;
}

int NR_ContentCachePolicy::removeFile(std::string name) {
    NR_CacheDirectory& dir = NR_ContentCache::directory();
    if (!NR_CacheDirectory::isSafeID(name)) {
        errno = EINVAL;
        return -1;
    }
    if (!dir.unlink(name)) {
        int error = errno;
        if (error != ENOENT)
            OV_LOG(3, "NR_ContentCachePolicy.removeFile(): cannot delete %s: %s\n\n", name.c_str(),
                   std::strerror(error));
        errno = error;
        return -1;
    }
    // Exactly what was counted in for the file, whatever it occupies on disk now.
    auto it = mFiles.find(name);
    if (it != mFiles.end()) {
        int blocks = it->second.blocks;
        if (hasReferences(name, 11))
            mReferencedUsed -= blocks;
        mCacheUsed -= blocks;
        forget(name);
    }
    // A file that is gone references nothing.
    delRefsOf(name);
    return 0;
}

bool NR_ContentCachePolicy::queueOf(const std::string& name, int& type, bool& referenced) const {
    auto it = mFiles.find(name);
    if (it == mFiles.end())
        return false;
    type = it->second.type;
    referenced = it->second.referenced;
    return true;
}

void NR_ContentCachePolicy::forget(const std::string& name) {
    auto it = mFiles.find(name);
    if (it == mFiles.end())
        return;
    mQueueArr[it->second.type].remove(name);
    mFiles.erase(it);
    for (const std::string& key : NR_CacheDirectory::namesOf(name)) {
        auto range = mFilesByName.equal_range(key);
        for (auto named = range.first; named != range.second; ++named) {
            if (named->second == name) {
                mFilesByName.erase(named);
                break;
            }
        }
    }
}

void NR_ContentCachePolicy::reset() {
    mCacheUsed = 0;
    mReferencedUsed = 0;
    references.clear();
    mChildren.clear();
    mFiles.clear();
    mFilesByName.clear();
    mUndeletable.clear();
    for (NR_LRUQueue<std::string>& queue : mQueueArr)
        queue.clear();
}

int NR_ContentCachePolicy::writeRefUsed() const {
    // Every time, even when the total did not change: another process that opens the cache
    // writes its own 0 there, and /tmp may have been emptied.
    // In place, the new line first and what is left of the old text cut off after it: a reader
    // in another process sees the old number or the new one, each ending at a line feed.
    char text[32];
    int length = std::snprintf(text, sizeof text, "%ld\n", long(mReferencedUsed));
    int fd = refFile(true);
    if (fd < 0 || ::pwrite(fd, text, size_t(length), 0) != length || ::ftruncate(fd, length) != 0) {
        OV_LOG(3, "NR_ContentCachePolicy: cannot write %s: %s\n\n",
               ovplatform::devicePath(kRefFile).c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

void NR_ContentCachePolicy::dump() {
    OV_LOG(5, "Cache usage, referenced = %ld, total = %ld\n\n", long(mReferencedUsed),
           long(mCacheUsed));
    dumpReferences();
    dumpPriorityQueues();
}

void NR_ContentCachePolicy::dumpReferences() {
    OV_LOG(5, "---Reference table---\n\n");
    for (const auto& entry : references) {
        OV_LOG(5, "Parents of %s:\n", entry.first.c_str());
        for (const std::string& parent : entry.second)
            OV_LOG(5, "%s \n", parent.c_str());
        OV_LOG(5, "\n");
    }
}

void NR_ContentCachePolicy::dumpPriorityQueues() {
    OV_LOG(5, "---Priority queues---\n\n");
    for (int queue = 0; queue < QUEUE_COUNT; ++queue) {
        OV_LOG(5, "Queue %d\n", queue);
        for (const lru_element<std::string>* element : mQueueArr[queue].elements())
            OV_LOG(5, "%s key=%d index=%d\n", element->name.c_str(), int(element->key),
                   int(element->index));
    }
}
