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
// What is counted out for a file is exactly what was counted in for it, whatever the file
// occupies on disk by the time it goes (a sparse file, one that grew behind the cache's back).
// A file that cannot be deleted keeps its place in its queue and its blocks; eviction passes
// over it to the next candidate until the cache's room-making pass ends, and gives up after a
// few such files. So a directory that is briefly unwritable leaves the accounting as it was.
//
// The limit is 10 percent of the file system that holds the cache directory, as
// ovplatform::fileSystemSize reports it, in whole percent steps of its blocks. The directory is
// made before it is measured; while it cannot be measured the limit is unknown (figures of 0),
// every room-making pass measures again, and nothing is evicted to fit an unknown limit.
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
#include <vector>

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
    int blocksFor(uint64_t size) const;
    // Whether the cache directory's file system has been measured, measuring it (and making
    // the directory) when it has not; TOTALBLOCKS, when given, gets its size in blocks.
    bool measure(long* totalBlocks = nullptr);

    void changeRefUsed(int blocks, bool add);

    // Accounts the file NAME of the cache directory in queue TYPE (0 to 10), withdrawing an
    // earlier accounting of the same name first: with key 0 while nothing references it, the
    // queue's counter otherwise. The third argument (the cache passes true for what it has
    // just written) does not change that. A file whose status cannot be read is not
    // accounted, nor is a directory. 0, or -1 for a TYPE out of range.
    int addDiskUsage(const std::string& name, int type, bool);
    // The same for a file of SIZE bytes the caller has just written, without asking the file
    // system again.
    int accountFile(const std::string& name, int type, uint64_t size);
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

    // The accounted files a lookup of ID finds.
    std::vector<std::string> filesNamed(const std::string& id) const;
    // Moves the accounted file NAME into queue TYPE (0 to 10), as just used when it is
    // referenced and with key 0 otherwise; nothing when it is there already.
    void setQueue(const std::string& name, int type);

    // Marks NAME as just used.
    void accessedCacheObj(const std::string& name);
    // Starts a pass of room-making: forgets which files could not be deleted in the last one.
    void beginRoomMaking();
    // Evicts one file: the first unreferenced queue top of queues 0 to 10, else the top of the
    // highest non-empty queue from 10 down to TYPE. A file that cannot be deleted stays where
    // it is, and the one after it in its queue is tried in its place for the rest of the pass.
    // EVICTEDREFERENCED tells which way it went (true also when nothing went). 0 when a file
    // went, -1 when none could.
    int removeNext(int type, bool& evictedReferenced);
    // Whether files could not be deleted in this pass: a -1 of removeNext then means that
    // room could not be made, not that nothing was left to take.
    bool roomMakingStuck() const;
    // Deletes NAME and withdraws its accounting (the blocks it was accounted with) and the
    // references it held as a parent. -1 with errno when it cannot be deleted (ENOENT when it
    // is not there); nothing is withdrawn then.
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
        int blocks;    // as counted in
        uint64_t size; // as accounted, to count again when the block size becomes known
        bool referenced;
    };

    NR_ContentCachePolicy();
    NR_ContentCachePolicy(const NR_ContentCachePolicy&) = delete;
    NR_ContentCachePolicy& operator=(const NR_ContentCachePolicy&) = delete;

    // Whether any text naming the file NAME is a child in the reference table.
    bool isReferenced(const std::string& name) const;
    // Brings the referenced state of the accounted files CHILD names up to date.
    void updateReferenced(const std::string& child);
    // The file removeNext would take from QUEUE, passing over those that could not be
    // deleted in this pass; null when none is left or the pass has given up.
    const lru_element<std::string>* candidate(int queue) const;
    // removeFile for the candidate NAME that removeNext takes; true when it went. One already
    // deleted behind the cache's back leaves the counters and the reference table all the
    // same; one that cannot be deleted is remembered for the rest of the pass.
    bool evict(const std::string& name);
    // Drops NAME from its queue and from the records.
    void forget(const std::string& name);

    static std::map<std::string, std::set<std::string>> mChildren; // parent -> children
    static std::map<std::string, FileRecord> mFiles;               // accounted files
    // Accounted files by every text that refers to them (NR_CacheDirectory::namesOf).
    static std::multimap<std::string, std::string> mFilesByName;
    static bool mMeasured;                     // the limit is known
    static std::set<std::string> mUndeletable; // files this room-making pass could not delete
};

#endif
