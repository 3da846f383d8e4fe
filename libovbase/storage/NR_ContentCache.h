// NR_ContentCache: the process-wide store of downloaded content in the cache directory. News
// objects (containers, channels, items) are kept as stream files ("x.cnt", "x.chn", "x.itm")
// and the resources they point to (images, pages, style sheets, templates) as raw files named
// by content ID and MIME type. Every write goes to "ID.tmp" first and is renamed to its final
// name when complete, so a file under its final name is always whole. Before a write the cache
// asks NR_ContentCachePolicy for room; it tells the policy which files it wrote and which
// resources each object references, and announces the storage state as events.
//
// Faults it meets on a phone: a save whose room cannot be made (files that cannot be deleted,
// a cache directory whose size cannot be measured) fails instead of writing past the limit or
// evicting to fit an unknown one; object files that are not regular files (a FIFO, a link) or
// are larger than NR_CacheDirectory::MAX_OBJECT_SIZE (4 MB) are damaged and not read; an
// unfinished ".tmp" file is locked by its writer, and sync leaves it alone while it is.
//
// Content IDs come from a server. One that would name a file outside the cache directory (empty,
// "." or "..", or holding '/' or a NUL byte) is refused by every operation with its failure
// result and a level-3 line.
//
// Threads: the engine's thread only. The singleton and its state take no lock, and the first
// getInstance() must happen before other threads could make it.
//
// Ownership: the streams returned by getInputStream and getOutputStream belong to the caller
// until handed back to closeInputStream or closeOutputStream, which delete them.
#ifndef OVBASE_STORAGE_NR_CONTENTCACHE_H
#define OVBASE_STORAGE_NR_CONTENTCACHE_H

#include "types/ovTypes.h"

#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

class Channel;
class Container;
class Item;
class NewsObject;
class NR_CacheDirectory;
class Streamable;

class NR_ContentCache {
public:
    // Made on first use and never destroyed; creates the cache directory when it is missing.
    static NR_ContentCache* getInstance();

    // Replaces the cache directory (used as given; a '/' is added when it lacks one). Call it
    // before the first getInstance(): the policy measures the directory it is first made for.
    static int setCachePath(const std::string& path);
    // The cache directory, ending in '/': the one set, else the default cache path under the
    // device root.
    static std::string getCachePath();

    // Writes the object under ID's ".itm", ".chn" or ".cnt" name and, when that worked,
    // registers its references; then rewrites "/tmp/ref.txt". 0 on success, -1 when the
    // object could not be written whole or room for it could not be made (an older file of
    // that name then stays as it was).
    int save(const ovTypes::ID& id, const Item& item);
    int save(const ovTypes::ID& id, const Channel& channel);
    int save(const ovTypes::ID& id, const Container& container);

    // Reads the object back from ID's file; 0 on success, -1 when there is no such file or it
    // is no stored object (see above; a level-3 line says why). A damaged file loads what it
    // holds, the rest at its defaults.
    int get(const ovTypes::ID& id, Item& item);
    int get(const ovTypes::ID& id, Channel& channel);
    int get(const ovTypes::ID& id, Container& container);

    // Deletes ID's ".cnt" file; 0, or -1 when it could not be deleted. The references the
    // container held stay until the next sync.
    int remove(const ovTypes::ID& id, Container& container);
    // Delete the object's file and withdraw the references the object holds.
    int remove(const ovTypes::ID& id, Channel& channel);
    int remove(const ovTypes::ID& id, Item& item);
    // Withdraws only the references of the channel's excerpt content.
    int removeChannelExcerptRefs(const ovTypes::ID& id, const Channel& channel);
    // Deletes every file of the cache directory and starts the accounting afresh; -1 when the
    // directory cannot be read or a file could not be deleted.
    int clear();

    // The file of ID: a "Z" extension at the end of the ID (logoZpng) must match the file's
    // extension, otherwise any extension matches; an unfinished ".tmp" file never does. Of
    // several matches the one the directory index learnt first wins. 0 and the name (without
    // directory) when found, else -1 and NAME unchanged.
    int getFileName(const ovTypes::ID& id, std::string& name);
    // The same with the cache directory in front; PATH is set empty on failure.
    int getPath(const ovTypes::ID& id, std::string& path);
    // The size in bytes of ID's file, or -1 when there is none.
    long getSize(const ovTypes::ID& id);

    // A new stream on ID's file, or null when there is none or it is not a regular file; the
    // file counts as just used.
    std::ifstream* getInputStream(const ovTypes::ID& id);
    // Closes and deletes STREAM; 0.
    int closeInputStream(std::ifstream* stream);
    // Makes room for SIZE bytes among the classes ID may displace (when nothing of those is
    // left, the write is tried anyway), then opens "ID.tmp" for writing, locked until it is
    // handed back; null when room could not be made (see above) or the file cannot be opened
    // (another process writing the same ID included). Hand the stream to closeOutputStream.
    std::ofstream* getOutputStream(const ovTypes::ID& id, unsigned long size);
    // Closes and deletes STREAM and renames the file to ID's final name for MIMETYPE (see
    // finalName), which the policy then accounts. 0, or -1 when the stream had failed or the
    // rename did not happen (the temporary file is then removed).
    int closeOutputStream(const ovTypes::ID& id, std::ofstream* stream, std::string mimeType);

    // The content class of ID, by the references registered so far: 4 template used by a
    // channel, 6 other template, 1 excerpt page, 8 excerpt style sheet, 5 channel image,
    // 7 image of an image-only item, 9 anything else.
    int getType(const ovTypes::ID& id) const;

    // Kilobyte figures of the policy: cacheUsed is the referenced use shown to the user.
    long cacheSize();
    long cacheUsed();
    long cacheRemaining();

    // Rebuilds the accounting and all references from the files on disk, sweeping unfinished
    // ".tmp" files that no writer holds unless SWEEPUNFINISHED is false (a tool that only looks),
    // and announces the storage status. 0, or -1 when the directory cannot be read (the
    // references of the objects that could be read are kept) or an unfinished file could not
    // be deleted; those files are added to UNDELETED when it is given, each with the errno of
    // its deletion.
    typedef std::vector<std::pair<std::string, int>> Undeleted;
    int sync(bool sweepUnfinished = true, Undeleted* undeleted = nullptr);

    // Publishes the storage-status event ("total", "used", "free", each "<n> K").
    void sendStorageStatus();
    // Publishes the storage-error event with FULL as its value and remembers FULL.
    void sendStorageEvent(bool full);
    bool isStorageFull() const { return isFull; }

    // Writes the policy's referenced-use total to "/tmp/ref.txt" under the device root.
    void saveRefUsed();

    // Reference registration: each object file (parent) tells the policy which resources or
    // objects (children) it points to, and the resource IDs join the sets getType reads. An
    // item references its effective template and every entry of its content map; a channel its
    // template, its item template, its images and its items' files; both their excerpt
    // content (style sheets by their "text/css" type); a container its channels' files.
    // Default-content ("dc:") IDs are not in the cache and are skipped.
    void addItemRefs(const Item& item);
    void addItemExcerptRefs(const Item& item);
    void addChannelRefs(const Channel& channel);
    void addChannelExcerptRefs(const Channel& channel);
    void addContainerRefs(const Container& container);

    // The name "closeOutputStream(id, ..., mimeType)" gives the finished file.
    std::string finalName(const ovTypes::ID& id, const std::string& mimeType) const;
    // The file extension of MIMETYPE, or "" when the table has none.
    std::string extensionOf(const std::string& mimeType) const;

    // The cache directory's files, for the policy and the tools.
    static NR_CacheDirectory& directory();

    // The cache's state, open to be read (by tools and diagnostics); only the cache changes it.
    // The cache directory, ending in '/': "" until setCachePath or the first getInstance, which
    // takes the default path under the device root.
    static std::string cache_dir;
    // Whether the storage-full event was last sent with true.
    static bool isFull;
    // The content IDs the references registered so far name, by their use; getType reads them.
    static std::set<std::string> templateIDs;     // templates of items and channels
    static std::set<std::string> chanTemplateIDs; // templates used by channels
    static std::set<std::string> chanImageIDs;    // images of channels
    static std::set<std::string> imageOnlyIDs;    // images of image-only items
    static std::set<std::string> excerptIDs;      // excerpt pages
    static std::set<std::string> excerptCSSIDs;   // style sheets of excerpts

private:
    NR_ContentCache();
    NR_ContentCache(const NR_ContentCache&) = delete;
    NR_ContentCache& operator=(const NR_ContentCache&) = delete;

    // Writes OBJECT under ID + SUFFIX through the temporary file; 0 on success.
    int save(const ovTypes::ID& id, const Streamable& object, const char* suffix);
    int get(const ovTypes::ID& id, Streamable& object, const char* suffix);
    // Deletes ID + SUFFIX and its accounting; 0, or -1 when it could not be deleted.
    int removeObjectFile(const ovTypes::ID& id, const char* suffix);
    // Evicts until BLOCKS are free or nothing can go: 0. -1 when the limit is unknown or files
    // that had to go could not be deleted.
    int clearSpace(int blocks);
    // Whether the policy knows the limit, measuring again when not; a level-3 line for
    // OPERATION when it does not.
    bool limitKnown(const char* operation);
    // After removeNext found nothing more to take: false, with a level-3 line for OPERATION,
    // when that is because files could not be deleted.
    bool roomMade(const char* operation);
    // Deletes the unfinished file NAME for sync unless a writer holds it; false when it could
    // not be deleted.
    bool sweep(const std::string& name);

    // PARENT (an object file) references the resource ID, which joins SET when given. Empty and
    // default-content IDs name nothing in the cache and are skipped.
    void addResourceRef(const std::string& parent, const ovTypes::ID& id,
                        std::set<std::string>* set);
    // PARENT references the object file ID + SUFFIX.
    void addObjectRef(const std::string& parent, const ovTypes::ID& id, const char* suffix);
    void addItemRefs(const Item& item, const std::string& parent);
    void addChannelRefs(const Channel& channel, const std::string& parent);
    void addContainerRefs(const Container& container, const std::string& parent);
    void addExcerptRefs(const NewsObject& object, const std::string& parent);
    // Forgets the ID sets and the policy's accounting and references.
    void resetReferences();

    // The queue the file NAME is accounted in: the classes getType leaves free for the cache's
    // own objects (containers 0, channels 2, items 3); a resource's class is that of the IDs
    // naming it. Eviction takes referenced files only from the writer's class upwards, so room
    // for an object takes resources first, a resource of class 4 or above never pushes out a
    // referenced object, and an excerpt page (class 1) may push out items and channels as the
    // class rule allows.
    int fileType(const std::string& name) const;
    // Has the policy account the file NAME in its queue. An object just WRITTEN, and a
    // container at any time, is then marked as used: a new item is not taken for unreferenced
    // before its channel is written, and the roots go last.
    void account(const std::string& name, bool written);
    // The directory's names in byte order; -1 when it cannot be read.
    int sortDir(std::vector<std::string>& names);

    std::map<std::string, std::string> mMimeTable; // MIME type -> extension
};

#endif
