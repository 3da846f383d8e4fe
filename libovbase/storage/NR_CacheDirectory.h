// NR_CacheDirectory: the files of the content cache's directory and how content IDs name them.
//
// Naming: a file's name is an ID followed by a suffix. An ID may carry its own extension after
// a capital "Z" (logoZpng names logo.png) when the text after its last "Z" is an extension of
// the MIME table. A lookup for an ID matches a file whose name, cut at its last '.', is the
// ID's stem or the whole ID, with the ID's extension if it names one and any extension
// otherwise. Unfinished ".tmp" files never match.
//
// Lookups use an index of the directory's names kept in step with the changes the cache makes
// through this class, so they do not read the whole directory. A change made behind the
// cache's back (another process, a person) is noticed through the directory's modification
// time, and the index is read afresh. File systems stamp times in steps (whole seconds on some,
// two on others), so a modification time is trusted to reveal every later change only when it
// is at least 2 seconds older than the clock was when the stamp was taken (the stamp is then
// settled). While the stamp is unsettled (taken by the first lookup after changes of the
// cache's own, or soon after a change of another process), a lookup that finds nothing reads
// the directory again before it answers, and the first lookup after the stamp has settled reads
// it once more. So another
// process's finished file is always found; a file it deleted within that window can still be
// named by a lookup, and then fails to open.
//
// Writers hold an exclusive advisory lock (flock) on the unfinished file they write, from its
// creation until it is renamed to its final name or deleted, so that removeUnfinished (sync) in
// any process leaves it alone. Object files are read without following a link and without
// blocking, only when they are regular files of at most MAX_OBJECT_SIZE bytes.
//
// Threads: the engine's thread only; nothing here locks.
#ifndef OVBASE_STORAGE_NR_CACHEDIRECTORY_H
#define OVBASE_STORAGE_NR_CACHEDIRECTORY_H

#include <cstdint>
#include <ctime>
#include <iosfwd>
#include <string>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

class NR_CacheDirectory {
public:
    struct MimeType {
        const char* type;
        const char* extension;
    };
    // The MIME types the cache names files after, in table order. "image/png" is not among them
    // on purpose: only "image/x-png" gives "png".
    static const MimeType MIME_TABLE[];
    static const size_t MIME_TABLE_SIZE;
    // The largest object file read: 4 MB, far beyond any container, channel or item (a few
    // kilobytes; a channel listing a thousand items some tens). A larger one is damaged.
    static const unsigned long MAX_OBJECT_SIZE = 4ul << 20;

    // Whether EXT (without '.') is an extension of the MIME table.
    static bool isTableExtension(const std::string& ext);
    // Splits a "Z" extension off ID: true, with STEM and EXT, when the text after the last 'Z'
    // is a table extension.
    static bool splitExtension(const std::string& id, std::string& stem, std::string& ext);
    // Whether ID can name a file inside the directory: not empty, not "." or "..", and without
    // '/' or NUL.
    static bool isSafeID(const std::string& id);
    // Whether a lookup of ID matches the file NAME (".tmp" files never match).
    static bool names(const std::string& id, const std::string& name);
    // Every text that refers to the file NAME: the name itself, and the IDs whose lookup
    // matches it (at most two).
    static std::vector<std::string> namesOf(const std::string& name);

    NR_CacheDirectory() = default;
    ~NR_CacheDirectory();
    NR_CacheDirectory(const NR_CacheDirectory&) = delete;
    NR_CacheDirectory& operator=(const NR_CacheDirectory&) = delete;

    // The directory, ending in '/'. Setting it forgets the index.
    void setPath(const std::string& dir);
    const std::string& path() const { return mPath; }
    std::string pathOf(const std::string& name) const { return mPath + name; }

    // The first file, in the order the index learnt the names, that a lookup of ID matches: 0
    // and its NAME, or -1 (also when the directory cannot be read).
    int find(const std::string& id, std::string& name);
    // Reads the whole directory: every entry but "." and "..", in directory order, and
    // renews the index. -1 when it cannot be opened.
    int list(std::vector<std::string>& names);

    // Changes made by the cache. Each keeps the index in step.
    // Opens NAME (truncating it) for writing and locks it until it is renamed or deleted here;
    // false with errno when it cannot be opened or another writer holds it.
    bool create(const std::string& name, std::ofstream& out);
    // Writes DATA to TEMP (locked meanwhile) and renames it over NAME, so that NAME is always
    // whole. False with errno when it did not happen: TEMP is then removed and NAME stays as
    // it was.
    bool writeFile(const std::string& temp, const std::string& name, const std::string& data);
    // Renames FROM to TO, replacing TO; false with errno when it did not happen.
    bool rename(const std::string& from, const std::string& to);
    // Deletes NAME; false with errno when it did not happen.
    bool unlink(const std::string& name);
    // Deletes the unfinished file NAME unless a writer (of any process) holds it: 1 when it is
    // gone, 0 when a writer holds it, -1 with errno when it could not be deleted.
    int removeUnfinished(const std::string& name);

    // Reads the object file NAME whole into BYTES. False with errno when it cannot: ENOENT
    // when there is none, EINVAL when it is a link, a FIFO, a device or a directory, EFBIG when
    // it is larger than MAX_OBJECT_SIZE.
    bool readObject(const std::string& name, std::string& bytes);
    // Whether NAME is a regular file (a link is not followed); false with errno otherwise.
    bool isRegularFile(const std::string& name) const;

private:
    struct Entry {
        std::string name;
        uint64_t order;
    };
    struct Stamp {
        dev_t device = 0;
        unsigned long long inode = 0;
        long long modifiedSeconds = 0;
        long modifiedNanoseconds = 0;
        bool settled = false; // the modification time was old enough to reveal every later change
        // Compares the directory and its modification time only.
        bool operator==(const Stamp& other) const;
    };

    // The directory's stamp now; false when it cannot be read.
    bool stamp(Stamp& out);
    void closeDirectory();
    // Makes the index current, reading the directory again when it changed; false when the
    // directory cannot be read.
    bool current();
    // The entry a lookup of ID finds in the index, or null.
    const Entry* lookup(const std::string& id) const;
    // Follows a change of the cache's own in the index, when there is one; the directory's new
    // stamp is taken by the next lookup.
    void endChange(const std::string& added, const std::string& removed);
    // NAME opened for writing (created when missing, not truncated) and locked; -1 with errno.
    // FRESH tells whether it was made by this call (and so is empty).
    int openLocked(const std::string& name, bool* fresh);
    // Lets go of the lock on NAME, if this process holds one.
    void release(const std::string& name);
    void indexAdd(const std::string& name);
    void indexRemove(const std::string& name);

    std::string mPath;
    int mFd = -1; // the directory, open for stamps
    bool mIndexed = false;
    Stamp mStamp;
    bool mStampPending = false; // changed by the cache since mStamp was taken
    uint64_t mNextOrder = 0;
    // File names by their part before the last '.' (the whole name when it has none).
    std::unordered_map<std::string, std::vector<Entry>> mByBase;
    std::unordered_map<std::string, int> mLocks; // unfinished files written, by name
};

#endif
