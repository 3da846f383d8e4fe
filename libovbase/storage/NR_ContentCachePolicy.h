// NR_ContentCachePolicy: how large the content cache may grow and which file goes when room is
// needed. It counts disk use in file-system blocks (a file of SIZE bytes counts SIZE / block + 1
// blocks, one more even for an exact multiple), keeps every accounted file in one of eleven
// least-recently-used queues chosen by its content class, keeps the reference table that says
// which object files (parents) point to which resources or objects (children), and evicts files
// that nothing references before referenced ones.
//
// Files are accounted under the names they have on disk. A file counts as referenced when the
// reference table holds its name or an ID whose lookup finds it (logo, logoZpng for logo.png),
// so references registered before or after the file arrives both count. A file carries key 0
// in its queue while nothing references it, which puts it on top where the first pass of
// removeNext looks; its first parent or a use gives it the queue's counter, and losing its
// last parent gives it 0 again. The cache's own objects use the classes resources never
// have (containers 0, channels 2, items 3) and the cache marks them as used when it writes
// them, and the containers whenever it accounts them: a new item is not taken for
// unreferenced before its channel is written, and the roots go only when every other queue
// is empty.
//
// The limit is 10 percent of the file system that holds the cache directory, as
// ovplatform::fileSystemSize reports it, in whole percent steps of its blocks.
//
// Threads: the engine's thread only; a singleton with static state and no lock. NR_ContentCache
// is its only client and makes it after its own directory exists.
#ifndef OVBASE_STORAGE_NR_CONTENTCACHEPOLICY_H
#define OVBASE_STORAGE_NR_CONTENTCACHEPOLICY_H

#include "storage/NR_LRUQueue.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

class NR_ContentCachePolicy {
public:
    static const int QUEUE_COUNT = 11;

    static NR_ContentCachePolicy* getInstance();

    int getBlockSize() const { return mBlockSize; }
    // Kilobyte figures, each at most 2147483647: the limit, the limit less all use, the limit
    // less the referenced use.
    long cacheSize() const;
    long cacheFree() const;
    long cacheRemaining() const;
    // Blocks left before the limit, never below 0.
    long cacheBlocksFree() const;
    // The referenced use as the cache last wrote it to "/tmp/ref.txt" (so every process shows
    // the engine's figure), at most the limit, in kilobytes.
    long cacheUsed() const;
    // Blocks of all accounted files, and of the referenced ones.
    long blocksUsed() const { return mCacheUsed; }
    long referencedUsed() const { return mReferencedUsed; }
    long maxCacheBlocks() const { return mMaxCacheSize; }
    // The blocks a file of SIZE bytes counts: SIZE / block size + 1.
    int blocksFor(unsigned long size) const;

    void changeRefUsed(int blocks, bool add);

    // Accounts the file NAME of the cache directory in queue TYPE (0 to 10), withdrawing an
    // earlier accounting of the same name first: with key 0 while nothing references it, the
    // queue's counter otherwise. The third argument (the cache passes true for what it has
    // just written) does not change that. A file whose status cannot be read is not
    // accounted. 0, or -1 for a TYPE out of range.
    int addDiskUsage(const std::string& name, int type, bool);
    // Withdraws NAME's accounting (the queue is the one it was accounted in; TYPE is not
    // needed). 0, or -1 when NAME is not accounted.
    int delDiskUsage(const std::string& name, int type);

    // PARENT (an object file) references CHILD (a resource ID or an object file name).
    void addRef(const std::string& parent, const std::string& child);
    // Withdraws one reference; TYPE is not needed.
    void delRef(const std::string& parent, const std::string& child, int type);
    // Withdraws every reference PARENT holds.
    void delRefsOf(const std::string& parent);
    // Whether NAME, or an ID whose lookup finds the file NAME, is a child in the reference
    // table; a line is logged when not. TYPE is not needed.
    bool hasReferences(const std::string& name, int type);
    // The children PARENT references.
    std::set<std::string> childrenOf(const std::string& parent) const;
    // The parents of CHILD.
    std::set<std::string> parentsOf(const std::string& child) const;

    // Marks NAME as just used.
    void accessedCacheObj(const std::string& name);
    // Evicts one file: the first unreferenced queue top of queues 0 to 10, else the top of the
    // highest non-empty queue from 10 down to TYPE. EVICTEDREFERENCED tells which way it went
    // (true also when nothing went). 0 when a file went, -1 when none could.
    int removeNext(int type, bool& evictedReferenced);
    // Deletes NAME and its accounting, counting the blocks the file occupies on disk (for a
    // size that is an exact multiple of the block size, one less than addDiskUsage counted:
    // that block stays counted until the next sync), and withdraws the references NAME held as
    // a parent. -1 when its status cannot be read or it cannot be deleted.
    int removeFile(std::string name);

    // Where an accounted file is: its queue and whether it counts as referenced. False when
    // NAME is not accounted.
    bool queueOf(const std::string& name, int& type, bool& referenced) const;
    // The accounted files in queue TYPE, top first down the heap, with their keys.
    const NR_LRUQueue<std::string>& queue(int type) const { return mQueueArr[type]; }

    // Forgets all accounting and references (the limit stays).
    void reset();
    // Writes the referenced-use total and "\n" to "/tmp/ref.txt" under the device root; 0, or
    // -1 when it could not be written.
    int writeRefUsed() const;

    void dump();
    void dumpReferences();
    void dumpPriorityQueues();

    // The policy's state, open to be read (by tools and diagnostics); only the policy changes
    // it. Sizes are in file-system blocks.
    static int32_t mPercentSize;    // share of the file system the cache may use: 10
    static int32_t mBlockSize;      // bytes per block
    static int32_t mMaxCacheSize;   // the limit
    static int32_t mCacheUsed;      // all accounted files
    static int32_t mReferencedUsed; // the referenced ones
    static int32_t blockMultiplier; // 512-byte units of a file's status per block
    // The reference table: child (resource ID or object file) -> its parents (object files).
    static std::map<std::string, std::set<std::string>> references;
    static NR_LRUQueue<std::string> mQueueArr[QUEUE_COUNT];
    static NR_ContentCachePolicy* mInstance;

private:
    struct FileRecord {
        int type;
        int blocks;
        bool referenced;
    };

    NR_ContentCachePolicy();
    NR_ContentCachePolicy(const NR_ContentCachePolicy&) = delete;
    NR_ContentCachePolicy& operator=(const NR_ContentCachePolicy&) = delete;

    // Whether any text naming the file NAME is a child in the reference table.
    bool isReferenced(const std::string& name) const;
    // Brings the referenced state of the accounted files CHILD names up to date.
    void updateReferenced(const std::string& child);
    // removeFile for the top NAME that removeNext takes. One already deleted behind the
    // cache's back leaves the counters and the reference table all the same; one that cannot
    // be deleted stays counted (it still occupies its blocks) until the next sync.
    void evict(const std::string& name);
    // Drops NAME from its queue and from the records.
    void forget(const std::string& name);

    static std::map<std::string, std::set<std::string>> mChildren; // parent -> children
    static std::map<std::string, FileRecord> mFiles;               // accounted files
    // Accounted files by every text that refers to them (NR_CacheDirectory::namesOf).
    static std::multimap<std::string, std::string> mFilesByName;
};

#endif
