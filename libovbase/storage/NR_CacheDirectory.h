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
// time and the index is read afresh; one made in the same clock tick as a change of the cache's
// own can go unnoticed until the next list() (sync reads the directory through it).
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
    NR_CacheDirectory(const NR_CacheDirectory&) = delete;
    NR_CacheDirectory& operator=(const NR_CacheDirectory&) = delete;

    // The directory, ending in '/'. Setting it forgets the index.
    void setPath(const std::string& dir);
    const std::string& path() const { return mPath; }
    std::string pathOf(const std::string& name) const { return mPath + name; }

    // The first file, in the order the index learnt the names, that a lookup of ID matches: 0
    // and its NAME, or -1 (also when the directory cannot be read).
    int find(const std::string& id, std::string& name);
    // Every file the ID's lookup matches, and the file named exactly ID if there is one.
    std::vector<std::string> filesNamedBy(const std::string& id);
    // Reads the whole directory: every entry but "." and "..", in directory order, and
    // renews the index. -1 when it cannot be opened.
    int list(std::vector<std::string>& names);

    // Changes made by the cache. Each keeps the index in step.
    // Opens NAME (truncating it) for writing; false when it cannot be opened.
    bool create(const std::string& name, std::ofstream& out);
    // Renames FROM to TO, replacing TO; false with errno when it did not happen.
    bool rename(const std::string& from, const std::string& to);
    // Deletes NAME; false with errno when it did not happen.
    bool unlink(const std::string& name);

private:
    struct Entry {
        std::string name;
        uint64_t order;
    };
    struct Stamp {
        dev_t device = 0;
        ino_t inode = 0;
        timespec modified = {0, 0};
        bool operator==(const Stamp& other) const;
    };

    // The directory's stamp now; false when it cannot be read.
    bool stamp(Stamp& out) const;
    // Makes the index current, reading the directory again when it changed; false when the
    // directory cannot be read.
    bool current();
    // Bracket a change of the cache's own: the index follows it only when it was in step
    // before the change (beginChange tells whether it was).
    bool beginChange();
    void endChange(bool wasCurrent, const std::string& added, const std::string& removed);
    void indexAdd(const std::string& name);
    void indexRemove(const std::string& name);

    std::string mPath;
    bool mIndexed = false;
    Stamp mStamp;
    uint64_t mNextOrder = 0;
    // File names by their part before the last '.' (the whole name when it has none).
    std::unordered_map<std::string, std::vector<Entry>> mByBase;
};

#endif
