// CFGOrvelSetting: a setting source over one configuration file holding an attribute map, the
// section being the setting group and the key the setting key. Reads come from the copy in
// memory; a write updates memory, rewrites the whole file and announces the change. Changes
// announced by other sources (other processes) are applied to memory only.
//
// Threads: the getters and setters may be called from any thread, and changes arrive on the
// bus's delivery thread; a lock of the source guards the map. Construction and init() come
// before any other use.
//
// Writers take turns. A write holds an exclusive flock(2) on the directory that holds the file
// while it reads the file as it is now, takes its values into memory, applies its one change,
// writes the file back and announces the change. So writers of different keys never undo each
// other's updates, whether they are sources in one process or in many, and announcements leave
// in the order of the writes. The lock is on the directory, not on the file: a write replaces
// the file by renaming a new one over it, so a lock on the file would stay with the replaced
// inode, and a writer that waited on it would then work on a file that is no longer there
// while the next writer locks the new one. The directory is never replaced. flock, not fcntl
// record locks: a flock belongs to the open descriptor, so two sources of one process exclude
// each other too, and closing some other descriptor of the directory does not release it. The
// lock is advisory (hand edits ignore it), and other files of the same directory (the menu
// file beside the main one) share it. When the directory cannot be opened or locked, the write
// goes on unlocked, as a single writer would.
//
// A symbolic link at the path is written through: the file it names is replaced in its own
// directory (that is also the directory locked), and the link stays. The new file keeps the
// old one's mode, and its owner and group as far as the writer may set them.
#ifndef OVBASE_SETTINGS_NR_CFGSETTING_H
#define OVBASE_SETTINGS_NR_CFGSETTING_H

#include "settings/NR_Setting.h"

#include <deque>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>

class AttrMap;

class CFGOrvelSetting : public OrvelSetting {
public:
    // Loads PATH (used as given) when it can be opened for reading and writing; a missing file
    // is not created and leaves the source not loaded.
    explicit CFGOrvelSetting(const char* path);
    // An empty source without a file; init() may load the main settings file later.
    CFGOrvelSetting();
    ~CFGOrvelSetting() override;

    void handleEvent(OV_Event& e) override;

    // 8 when not loaded, 3 when the key is absent, 0 and the value otherwise (1 for a null
    // group or key, here and in the setters).
    int getInt(const char* group, const char* key, int& value) override;
    int getString(const char* group, const char* key, char** value) override;
    int getString(const char* group, const char* key, ovTypes::String& value) override;
    int getBoolean(const char* group, const char* key, bool& value) override;
    // 8 when not loaded; 1 (nothing written, nothing announced) for a null group or key, a line
    // feed in the value, or a group and key that would not come back as themselves (see
    // canCarry); otherwise 0, also when the file could not be written (the old file then stays
    // whole, a diagnostic is written, and the value stays in memory and goes to the file with
    // the next write that succeeds).
    int setInt(const char* group, const char* key, int value) override;
    int setString(const char* group, const char* key, const char* value) override;
    int setString(const char* group, const char* key, const ovTypes::String& value) override;
    int setBoolean(const char* group, const char* key, bool value) override;

    // Loads the main settings file on the member stream and leaves the stream open; 1 when it
    // cannot be opened.
    virtual int init();

    bool isLoaded() const { return mLoaded; }
    const char* path() const { return mpPath; }

protected:
    // An empty source like CFGOrvelSetting(), whose deliveries a derived constructor starts.
    explicit CFGOrvelSetting(DeliverLater later);

    // The steps every getter shares: 8 when not loaded, 1 without group or key, 3 when GET
    // (reading the map and setting its found flag) finds nothing; VALUE changes only on 0.
    template <typename T, typename Get>
    int lookup(const char* group, const char* key, T& value, const Get& get);
    // The writing path of every setter: under the directory lock, memory takes the file's
    // values, PUT changes the map (section GROUP), the file is rewritten and TEXT is announced
    // for GROUP and KEY.
    int writeValue(const char* group, const char* key, const std::function<void(AttrMap&)>& put,
                   const std::string& text);
    // The dotted name a write of GROUP and KEY is announced under.
    virtual std::string announcedName(const char* group, const char* key);
    // True when a write of KEY in section GROUP comes back as that key in that section from a
    // load of the file. (A group without exactly one dot is stored and loaded as itself, but
    // the sources that receive its announcement split the name at its second dot and so file
    // it elsewhere; the setting groups all have one dot.) What the text form cannot carry back:
    // - in the section: ']' (the header ends at the first one), CR and LF (line ends; CRs are
    //   dropped on load), bytes above 0x7F that form a UTF-8 sequence (headers are written as
    //   raw bytes but read back as UTF-8, and narrowed again byte by byte: a lone byte such as
    //   0xE9 comes back as itself, the two bytes C3 A9 as the one byte E9);
    // - in the key: '=' (the key ends at the first one), CR and LF, '[' or '#' first (a header,
    //   a comment), a space last (trailing spaces are trimmed); in the default section, which is
    //   stored first without a header, white space first (skipped at the start of the file).
    // NUL cannot occur (the names are C strings); other bytes of a key survive.
    bool canCarry(const char* group, const char* key);
    // Applies a received "group.key" = value to memory under SECTION, unless it is the late
    // echo of a change this source announced itself and has since written again.
    void applyReceived(const std::string& name, const std::string& section, const std::string& key,
                       const std::string& value);
    // Takes a change NAME = VALUE off the announcements still expected back, if it is one of
    // them; true when it must be dropped because a newer write of NAME is still on its way.
    bool isStaleEcho(const std::string& name, const std::string& value);
    // Applies a setting-changed event to memory: section = the name up to its second dot, key =
    // the rest. No file write, no announcement.
    void applyChange(OV_Event& e);
    // Splits the first property of a setting-changed event; false (with the diagnostic) when
    // the event carries none.
    static bool firstProperty(OV_Event& e, std::string& name, std::string& value);
    // "OVCore.UI.Foo" into the group "OVCore.UI" and the key "Foo"; false without a second dot.
    static bool splitName(const std::string& name, std::string& group, std::string& key);
    // Memory takes every value the file TARGET holds now, except those of keys whose own
    // write has not reached the file yet. Nothing when it cannot be read.
    void takeFileValues(const std::string& target);
    // Stores the map into a temporary file beside TARGET, syncs it and renames it over TARGET,
    // so the file is always either the old or the new one.
    bool rewriteFile(const std::string& target);
    void setPath(const char* path);
    void loadFrom(std::istream& in);

    AttrMap* mpAttrMap;
    std::fstream mFileStream;
    char* mpPath;
    bool mLoaded;

    // Guards the map, the pending echoes and the unsaved keys: changes also arrive on the
    // bus's thread.
    std::recursive_mutex mLock;
    // Announcements of this source not yet seen coming back, as (name, value), oldest first.
    std::deque<std::pair<std::string, std::string>> mPendingEchoes;
    // (section, key) of writes whose file rewrite failed: memory holds their newest value.
    std::set<std::pair<std::string, std::string>> mUnsaved;
};

#endif
