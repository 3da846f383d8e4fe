// Default content: the resources that ship on the phone before anything is downloaded (channel
// icons, the default template, ...), named by identities that begin with "dc:".
// NR_DefaultContentMgr finds such a resource in packed index files ("dynport.dc") chosen by
// the current operator profile and the phone's language, and failing that in a plain file of
// the default-content directory.
//
// The index file. Integers are big-endian (a 16-bit value is the first byte times 256 plus the
// second); the magic is read skipping white space, so text before it is tolerated.
//
//   offset 0  "dc"                 magic
//          2  16-bit               ignored (written as 0)
//          4  32-bit               ignored (written as 0)
//          8  16-bit signed N      number of entries; 0 or negative: an empty index
//         10  N entries            16-bit name length L, L name bytes (the name ends at its
//                                  first zero byte), 32-bit length, 32-bit offset from the
//                                  start of the file
//             resource bytes       anywhere after the entries
//
// Of two entries with one name the later one counts. An entry whose bytes do not lie wholly
// inside the file is never delivered, nor is anything of an entry the directory ends inside.
//
// Where a content integrator puts the files. With
//   R  the default-content directory: the text setting OVCore.Storage / DefaultContent when it
//      names a directory that opens, else "/qbxlocal/download/appwrite/orvel/def-content"
//      under the device root (setting values are used as given, never under the device root);
//   P  the profile directory: the text setting OVCore.Storage / Dynportdc, taken under R when
//      it is relative; R/profiles when that setting is absent or empty;
//   F  the current operator profile: the text setting OVCore.InitSetting / CurrentProfile;
//   L  the phone's language code as the facade reports it (for example "en"), "en-us" when
//      the facade cannot tell,
// a look-up searches, in this order, those of these that exist as regular files:
//   1. P/F/L/dynport.dc   for one profile in one language
//   2. P/F/dynport.dc     for one profile in every language
//   3. R/L/dynport.dc     for every profile in one language
//   4. R/dynport.dc       for every profile and language
// and when none holds the name, the plain file R/NAME, which may lie in a folder of R
// ("dc:icons/news.png" is R/icons/news.png). A profile or language code that is empty, "." or
// ".." or holds a '/' leaves out the files named with it. An empty name is never served (nor an
// index entry without a name); a name that begins with '/', has a ".." component or holds a zero
// byte is never looked for as a plain file.
// tools/dcpack packs a folder into an index file and checks one.
//
// The list of index files for a language is built on its first look-up and kept (a few
// languages at a time). A change of the profile drops the lists: every look-up compares the
// profile setting with the one its lists were built for, and ProfileChangedHandler drops them
// as soon as a change of that setting arrives from the bus. So the next look-up after a change
// reads the new profile's files. Each index file read is remembered by its identity (device,
// inode, size, modification time): a look-up that finds another file under its path (a content
// update renamed over it) reads that file's directory again, and resource bytes are delivered
// only from the very file the directory was read from.
//
// Threads: exists, get and dispose may be called from any thread, concurrently; the module's
// state is guarded by one lock, which is not held while resource bytes are read. The handler
// runs on the thread that delivers bus events.
#ifndef OVBASE_STORAGE_NR_DEFAULTCONTENTMGR_H
#define OVBASE_STORAGE_NR_DEFAULTCONTENTMGR_H

#include "eventstatuslib/OV_EventHandler.h"
#include "thread/PtrRef.h"
#include "types/ovTypes.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

// The big-endian readers of the index file. Each byte is taken with an unformatted
// single-character read; bytes past the end of IN read as 0 and leave IN failed.
short readShort(std::istream& in);
int readInt(std::istream& in);

// Their writing counterparts.
void writeShort(std::ostream& out, int value);
void writeInt(std::ostream& out, int32_t value);

// One entry of an index file.
class DefaultContentIndexItem {
public:
    // Empty name, length 0, offset 0.
    DefaultContentIndexItem() : mLength(0), mOffset(0) {}
    // Reads one entry at IN's position; IN is left failed when the entry ends early.
    explicit DefaultContentIndexItem(std::istream& in);

    ovTypes::ID mName;
    int32_t mLength; // bytes of the resource
    int32_t mOffset; // of its first byte from the start of the file
};

// One index file's directory, read once in the constructor; the file is opened again for
// each resource read from it.
class DefaultContentIndex {
public:
    typedef std::map<ovTypes::ID, DefaultContentIndexItem> ItemMap;

    // What tells one file from another that took its path: device, inode, size and
    // modification time.
    struct FileIdentity {
        dev_t device = 0;
        unsigned long long inode = 0;
        long long size = -1;
        long long modifiedSeconds = 0;
        long modifiedNanoseconds = 0;
        bool operator==(const FileIdentity& other) const;
        bool operator!=(const FileIdentity& other) const { return !(*this == other); }
    };

    // Reads the directory of the index file PATH (used as given). A file that cannot be opened
    // or lacks the magic gives an empty index and a diagnostic line.
    explicit DefaultContentIndex(std::string path);

    const std::string& getPath() const { return mPath; }
    const ItemMap& getItems() const { return mItems; }
    // The file the directory was read from (size -1 when none could be opened).
    const FileIdentity& getIdentity() const { return mIdentity; }
    // Whether the file under the path is still the one the directory was read from.
    bool isCurrent() const;
    // The entry named NAME, or null. Valid as long as the index.
    const DefaultContentIndexItem* find(const ovTypes::ID& name) const;

    // Reads ITEM's bytes from the index file PATH into *BYTES. False, with *BYTES untouched,
    // unless every byte lies inside the file and could be read, and, when EXPECTED is given,
    // the file read is that one; nothing larger than the file is ever allocated.
    static bool readResource(const std::string& path, const DefaultContentIndexItem& item,
                             std::string* bytes, const FileIdentity* expected = nullptr);

private:
    // Reads the magic, the count and the entries.
    void readDirectory(std::istream& in);

    ItemMap mItems;
    std::string mPath;
    FileIdentity mIdentity;
};

// One resource for writeDefaultContentIndex: its name and its bytes.
typedef std::vector<std::pair<ovTypes::ID, std::string>> DefaultContentResources;

// Writes an index file holding RESOURCES to OUT: the directory in the order given, then the
// bytes in the same order. False, with nothing written, when the resources cannot be told apart
// or addressed by the format: an empty name, a name holding a zero byte or longer than 65535
// bytes, a name given twice, more than 32767 resources, or a file past 2^31 - 1 bytes. A
// failed OUT is the caller's to check.
bool writeDefaultContentIndex(std::ostream& out, const DefaultContentResources& resources);

// Drops the manager's index lists when the current operator profile changes. Made by the
// manager on its first look-up and released by NR_DefaultContentMgr::dispose().
class ProfileChangedHandler : public OV_EventHandler {
public:
    ProfileChangedHandler();
    ~ProfileChangedHandler() override;
    // Reacts to a setting-changed event of OVCore.InitSetting.CurrentProfile.
    void handleEvent(OV_Event& event) override;
};

class NR_DefaultContentMgr {
public:
    // The index file name, and the default-content directory under the device root.
    static const char* const INDEX_FILE_NAME;
    static const char* const DEFAULT_RESOURCE_PATH;

    // Whether the resource ID ("dc:" and a name; an ID without the prefix is taken whole as
    // the name) is in an index file or a plain file of the default-content directory.
    static bool exists(const ovTypes::ID& id);

    // Writes the bytes of resource ID to OUT. True when all of them were written; false, with
    // nothing written, when the resource is absent, its bytes cannot all be read, or (after a
    // partial write) OUT failed. An unreadable plain file is reported as a level-3 line.
    static bool get(const ovTypes::ID& id, std::iostream& out);

    // Forgets the default-content directory and every index list and releases the profile
    // handler; the next look-up resolves and reads them again. Not from inside a handler.
    static void dispose();

private:
    friend class ProfileChangedHandler;

    // Where a name was found: an index file's entry, or the plain file to try.
    struct Location;

    static bool locate(const ovTypes::ID& id, Location* found);
    // Resolves the default-content directory (the lock is held).
    static void open();
    // Builds the list of index files for PROFILE and LANGUAGE (the lock is held).
    static void addIndex(const std::string& profile, const std::string& language,
                         std::vector<PtrRef<DefaultContentIndex>>* list);
    static void profileChanged();
};

#endif
