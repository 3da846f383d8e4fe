// The typed property bag: categories of key to list-of-text maps, typed get and put on top of
// text values, and a line-oriented UTF-8 stream form ("[category]" headers, key=value lines)
// that is both the settings file format and the stored form of news objects.
//
// Not synchronised for writers: a non-const call needs the map to itself. Const calls may run
// on several threads at once (the packed form load() keeps is turned into the map form once,
// under a lock). Copies share the packed form. Pointers into the map belong to it and last
// until the next load() or clear().
#ifndef OVBASE_TYPES_ATTRMAP_H
#define OVBASE_TYPES_ATTRMAP_H

#include "types/UTF_8Util.h"
#include "types/ovTypes.h"

#include <atomic>
#include <iosfwd>
#include <map>
#include <memory>
#include <vector>

class AttrMap {
public:
    typedef std::vector<ovTypes::String> Values;
    typedef std::map<ovTypes::ID, Values> KeyMap;
    typedef std::map<ovTypes::ID, KeyMap> CategoryMap;

    static const char* const DEFAULT_CATEGORY;  // "_default_"
    static const char* const NESTING_SEPARATOR; // "."

    // In list mode a value is a list of strings, streamed comma-separated; otherwise only the
    // first string of each value is streamed.
    explicit AttrMap(bool listMode);
    AttrMap(const AttrMap& other);
    AttrMap(AttrMap&& other) noexcept;
    AttrMap& operator=(const AttrMap& other);
    AttrMap& operator=(AttrMap&& other) noexcept;

    bool isListMode() const { return mListMode; }

    // Getters store in *FOUND (when given) whether the key is present in the category; DEF is
    // returned when it is absent, and for the typed getters also when its text is empty.
    ovTypes::String getString(const ovTypes::ID& key,
                              const ovTypes::String& def = ovTypes::String(), bool* found = nullptr,
                              const ovTypes::ID& category = DEFAULT_CATEGORY) const;
    // wcstol in base 0 ("0x" hexadecimal, leading "0" octal, garbage 0), clamped to int.
    int getInt(const ovTypes::ID& key, int def = 0, bool* found = nullptr,
               const ovTypes::ID& category = DEFAULT_CATEGORY) const;
    long getLong(const ovTypes::ID& key, long def = 0, bool* found = nullptr,
                 const ovTypes::ID& category = DEFAULT_CATEGORY) const;
    // Stored milliseconds read back as seconds.
    long getTimestamp(const ovTypes::ID& key, long def = 0, bool* found = nullptr,
                      const ovTypes::ID& category = DEFAULT_CATEGORY) const;
    // Exactly "true" is true; any other non-empty text is false.
    bool getBool(const ovTypes::ID& key, bool def = false, bool* found = nullptr,
                 const ovTypes::ID& category = DEFAULT_CATEGORY) const;
    // Appends every string of the key's list to OUT (not cleared first).
    void getIDs(const ovTypes::ID& key, std::vector<ovTypes::ID>& out, bool* found = nullptr,
                const ovTypes::ID& category = DEFAULT_CATEGORY) const;
    // Copies the entries KEY + "." + k of the category into OUT as k (OUT not cleared first).
    // FOUND tells whether any entry matched.
    void getAttrMap(const ovTypes::ID& key, AttrMap& out, bool* found = nullptr,
                    const ovTypes::ID& category = DEFAULT_CATEGORY) const;

    void putString(const ovTypes::ID& key, const ovTypes::String& value,
                   const ovTypes::ID& category = DEFAULT_CATEGORY);
    void putInt(const ovTypes::ID& key, int value, const ovTypes::ID& category = DEFAULT_CATEGORY);
    // Always writes into the default category; CATEGORY is ignored (getLong honours it). Kept
    // that way because stored objects depend on it.
    void putLong(const ovTypes::ID& key, long value,
                 const ovTypes::ID& category = DEFAULT_CATEGORY);
    // Stored as milliseconds: SECONDS followed by "000", or "0" for zero.
    void putTimestamp(const ovTypes::ID& key, long seconds,
                      const ovTypes::ID& category = DEFAULT_CATEGORY);
    void putBool(const ovTypes::ID& key, bool value,
                 const ovTypes::ID& category = DEFAULT_CATEGORY);
    // Appends to the key's list without clearing it.
    void putIDs(const ovTypes::ID& key, const std::vector<ovTypes::ID>& values,
                const ovTypes::ID& category = DEFAULT_CATEGORY);
    // Copies every entry k of SRC's category in as KEY + "." + k.
    void putAttrMap(const ovTypes::ID& key, const AttrMap& src,
                    const ovTypes::ID& category = DEFAULT_CATEGORY);

    // The category's keys, or null when it is absent. These and categories() give the map
    // form, building it from what load() packed when they are the first to need it; once
    // one of them was called, load() and assignment build the map form at once, so that what
    // they handed out sees the new entries as it always did.
    KeyMap* categoryAt(const ovTypes::ID& category);
    const KeyMap* categoryAt(const ovTypes::ID& category) const;
    KeyMap* defaultCategory();
    const KeyMap* defaultCategory() const;

    const CategoryMap& categories() const;
    void clear();

    void store(std::ostream& out) const;
    // Clears the map and reads the stream form. Accepts any bytes. What is read is kept packed
    // (a fraction of the map form's memory, built without an allocation per key) until a put,
    // store() or one of the accessors above needs the map form; the getters read either.
    void load(std::istream& in);

private:
    struct Packed;

    // Builds the map form from the packed one, if any and not yet done; const calls on
    // several threads may race to it.
    void unpack() const;
    // The map form alone, the packed one dropped: for non-const calls.
    void unpackToWrite();
    // The packed form while the map form is not built, else null.
    const Packed* packedOnly() const;
    // The category's keys in the map form (built as needed), or null.
    const KeyMap* keysOf(const ovTypes::ID& category) const;
    // Marks that a pointer or reference into the map form was handed out.
    void handOut() const { mHandedOut.store(true, std::memory_order_relaxed); }
    // The key's list, or null when absent: in the map, or copied from the packed form into
    // SCRATCH.
    const Values* find(const ovTypes::ID& key, bool* found, const ovTypes::ID& category,
                       Values& scratch) const;
    // The non-empty first string, or null.
    const ovTypes::String* text(const ovTypes::ID& key, bool* found, const ovTypes::ID& category,
                                Values& scratch) const;
    void storeEntries(std::ostream& out, const KeyMap& keys) const;

    // While mPacked is set, mCategories is empty until mUnpacked, then its map form.
    mutable CategoryMap mCategories;
    std::shared_ptr<const Packed> mPacked;
    mutable std::atomic<bool> mUnpacked{false};
    mutable std::atomic<bool> mHandedOut{false};
    bool mListMode;
};

#endif
