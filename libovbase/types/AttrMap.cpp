#include "types/AttrMap.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cwchar>
#include <mutex>
#include <ostream>
#include <string_view>
#include <utility>

using ovTypes::ID;
using ovTypes::String;

const char* const AttrMap::DEFAULT_CATEGORY = "_default_";
const char* const AttrMap::NESTING_SEPARATOR = ".";

namespace {

long wideToLong(const String& text) {
    return std::wcstol(text.c_str(), nullptr, 0);
}

// Appends bytes to a string through a block on the stack, so the string is called once a
// block rather than once a byte.
class Appender {
public:
    explicit Appender(std::string& out) : mOut(out) {}
    ~Appender() { flush(); }

    size_t size() const { return mOut.size() + mUsed; }
    char& back() { return mUsed > 0 ? mBlock[mUsed - 1] : mOut.back(); }
    void put(char c) {
        if (mUsed == sizeof mBlock)
            flush();
        mBlock[mUsed++] = c;
    }
    // UTF-8 of any code point the line reader gives (up to 31 bits), beyond Unicode too: in
    // the five- and six-byte forms, which the shared decoder reads back exactly.
    void putCodePoint(uint32_t cp) {
        if (cp < 0x80) {
            put(static_cast<char>(cp));
            return;
        }
        if (mUsed + 6 > sizeof mBlock)
            flush();
        int count = cp < 0x800 ? 1 : cp < 0x10000 ? 2 : cp < 0x200000 ? 3 : cp < 0x4000000 ? 4 : 5;
        for (int i = count; i > 0; --i, cp >>= 6)
            mBlock[mUsed + i] = static_cast<char>(0x80 | (cp & 0x3F));
        mBlock[mUsed] = static_cast<char>(((0xFF00u >> (count + 1)) & 0xFF) | cp);
        mUsed += static_cast<size_t>(count + 1);
    }
    void flush() {
        mOut.append(mBlock, mUsed);
        mUsed = 0;
    }

private:
    std::string& mOut;
    char mBlock[256];
    size_t mUsed = 0;
};

// The bytes a load reserves up front: what the stream says it holds, within reason (a sparse
// or endless file must not reserve its size).
size_t expectedBytes(std::istream& in) {
    std::streamsize avail = in.rdbuf() ? in.rdbuf()->in_avail() : 0;
    return avail > 0 ? static_cast<size_t>(std::min<std::streamsize>(avail, 4 << 20)) : 0;
}

// Serialises the building of map forms by const calls (once a map, so one lock serves all).
std::mutex gUnpackLock;

} // namespace

// What load() read, packed into one string of bytes, and per category its entries, one per
// string of a list: the key's bytes followed by the string in UTF-8. Entries are sorted by key
// (file order among equal keys, so a key's entries are its list). Never changed once built.
struct AttrMap::Packed {
    struct Entry {
        size_t at;
        size_t keyLength;
        size_t textLength;
    };
    typedef std::vector<Entry> Entries;

    std::map<ID, Entries> categories;
    std::string bytes;

    std::string_view keyOf(const Entry& entry) const {
        return std::string_view(bytes.data() + entry.at, entry.keyLength);
    }
    String stringOf(const Entry& entry) const;
    const Entries* entriesOf(const ID& category) const {
        std::map<ID, Entries>::const_iterator it = categories.find(category);
        return it == categories.end() ? nullptr : &it->second;
    }
    // The first entry whose key is not below KEY.
    Entries::const_iterator lowerBound(const Entries& entries, std::string_view key) const {
        return std::lower_bound(
            entries.begin(), entries.end(), key,
            [this](const Entry& entry, std::string_view k) { return keyOf(entry) < k; });
    }
    // The end of the entries of the key that FIRST begins, at most LAST.
    Entries::const_iterator keyEnd(Entries::const_iterator first,
                                   Entries::const_iterator last) const {
        Entries::const_iterator it = first;
        while (it != last && keyOf(*it) == keyOf(*first))
            ++it;
        return it;
    }
    // The entries of KEY in CATEGORY, as [FIRST, LAST); false when there are none.
    bool find(const ID& key, const ID& category, Entries::const_iterator& first,
              Entries::const_iterator& last) const {
        const Entries* entries = entriesOf(category);
        if (!entries)
            return false;
        first = lowerBound(*entries, key);
        if (first == entries->end() || keyOf(*first) != std::string_view(key))
            return false;
        last = keyEnd(first, entries->end());
        return true;
    }
    // One line of the stream form into CATEGORY and ENTRIES (the current category's, made
    // when its first entry comes).
    void addLine(const String& line, bool listMode, ID& category, Entries*& entries);
    // Sorts each category's entries by key.
    void finish();
};

String AttrMap::Packed::stringOf(const Entry& entry) const {
    const unsigned char* p =
        reinterpret_cast<const unsigned char*>(bytes.data() + entry.at + entry.keyLength);
    const unsigned char* end = p + entry.textLength;
    // Every code point has one byte that is no continuation byte: the exact size up front.
    size_t count = 0;
    for (const unsigned char* q = p; q < end; ++q)
        count += !utf8codec::isContinuation(*q);
    String out;
    out.resize(count);
    wchar_t* o = &out[0];
    while (p < end) {
        if (*p < 0x80) {
            *o++ = static_cast<wchar_t>(*p++);
            continue;
        }
        // Whole units written by Appender::putCodePoint: one code point each.
        uint32_t unit[utf8codec::kMaxUnit];
        int units = 0;
        p += utf8codec::decodeUnit(p, end, false, unit, &units);
        *o++ = static_cast<wchar_t>(unit[0]);
    }
    return out;
}

void AttrMap::Packed::addLine(const String& line, bool listMode, ID& category, Entries*& entries) {
    if (line.empty() || line[0] == L'#')
        return;
    if (line[0] == L'[') {
        size_t close = line.find(L']', 1);
        category = ID(String(line.substr(1, close == String::npos ? String::npos : close - 1)));
        entries = nullptr;
        return;
    }
    size_t equals = line.find(L'=');
    if (equals == String::npos)
        return;
    size_t valueStart = equals + 1;
    while (valueStart < line.size() && line[valueStart] == L' ')
        ++valueStart;
    // The key loses its trailing spaces (leading ones stay) and is narrowed like any ID.
    size_t keyLength = equals;
    while (keyLength > 0 && line[keyLength - 1] == L' ')
        --keyLength;
    if (!entries)
        entries = &categories[category];
    // An entry for each string: the key narrowed like any ID, then the string.
    Appender out(bytes);
    Entry entry{0, keyLength, 0};
    auto begin = [&] {
        entry.at = out.size();
        for (size_t i = 0; i < keyLength; ++i)
            out.put(static_cast<char>(static_cast<uint32_t>(line[i]) & 0xFF));
    };
    auto end = [&] {
        entry.textLength = out.size() - entry.at - keyLength;
        entries->push_back(entry);
    };
    begin();
    const bool split = listMode && line.find(L',', valueStart) != String::npos;
    for (size_t i = valueStart; i < line.size(); ++i) {
        wchar_t c = line[i];
        if (c != L',' || !split) {
            out.putCodePoint(static_cast<uint32_t>(c));
        } else if (out.size() > entry.at + keyLength && out.back() == '\\') {
            // In list mode an escaped comma loses its backslash; any other comma ends a string.
            out.back() = ',';
        } else {
            end();
            begin();
        }
    }
    end();
}

void AttrMap::Packed::finish() {
    for (std::map<ID, Entries>::value_type& category : categories) {
        Entries& entries = category.second;
        auto byKey = [this](const Entry& a, const Entry& b) { return keyOf(a) < keyOf(b); };
        // Files are mostly written in key order; a stable sort keeps a key's list in order.
        if (!std::is_sorted(entries.begin(), entries.end(), byKey))
            std::stable_sort(entries.begin(), entries.end(), byKey);
        entries.shrink_to_fit();
    }
}

AttrMap::AttrMap(bool listMode) : mListMode(listMode) {}

// A new map can have handed nothing out: it shares the packed form, if any.
AttrMap::AttrMap(const AttrMap& other) : mPacked(other.mPacked), mListMode(other.mListMode) {
    if (!mPacked)
        mCategories = other.mCategories;
}

AttrMap::AttrMap(AttrMap&& other) noexcept : AttrMap(other.mListMode) {
    *this = std::move(other);
}

AttrMap& AttrMap::operator=(const AttrMap& other) {
    if (this != &other) {
        AttrMap copy(other);
        *this = std::move(copy);
    }
    return *this;
}

// What was handed out sees OTHER's entries: then the map form is taken, not the packed one.
// OTHER is left empty, as a moved map is.
AttrMap& AttrMap::operator=(AttrMap&& other) noexcept {
    if (this == &other)
        return *this;
    if (mHandedOut.load(std::memory_order_relaxed))
        other.unpackToWrite();
    mCategories = std::move(other.mCategories);
    other.mCategories.clear();
    mPacked = std::move(other.mPacked);
    mUnpacked.store(false, std::memory_order_relaxed);
    other.mUnpacked.store(false, std::memory_order_relaxed);
    mListMode = other.mListMode;
    return *this;
}

void AttrMap::unpack() const {
    if (!mPacked || mUnpacked.load(std::memory_order_acquire))
        return;
    std::lock_guard<std::mutex> guard(gUnpackLock);
    if (mUnpacked.load(std::memory_order_relaxed))
        return;
    // Both are in order: every insertion goes in at the end, unsearched.
    const Packed& packed = *mPacked;
    for (const auto& category : packed.categories) {
        KeyMap& keys =
            mCategories.emplace_hint(mCategories.end(), category.first, KeyMap())->second;
        const Packed::Entries& entries = category.second;
        for (Packed::Entries::const_iterator it = entries.begin(); it != entries.end();) {
            Packed::Entries::const_iterator last = packed.keyEnd(it, entries.end());
            std::string_view key = packed.keyOf(*it);
            Values& values =
                keys.emplace_hint(keys.end(), ID(key.data(), key.size()), Values())->second;
            values.reserve(static_cast<size_t>(last - it));
            for (; it != last; ++it)
                values.push_back(packed.stringOf(*it));
        }
    }
    mUnpacked.store(true, std::memory_order_release);
}

void AttrMap::unpackToWrite() {
    unpack();
    mPacked.reset();
    mUnpacked.store(false, std::memory_order_relaxed);
}

const AttrMap::Packed* AttrMap::packedOnly() const {
    return mPacked && !mUnpacked.load(std::memory_order_acquire) ? mPacked.get() : nullptr;
}

const AttrMap::KeyMap* AttrMap::keysOf(const ID& category) const {
    unpack();
    CategoryMap::const_iterator it = mCategories.find(category);
    return it == mCategories.end() ? nullptr : &it->second;
}

const AttrMap::Values* AttrMap::find(const ID& key, bool* found, const ID& category,
                                     Values& scratch) const {
    const Values* values = nullptr;
    if (const Packed* packed = packedOnly()) {
        Packed::Entries::const_iterator first, last;
        if (packed->find(key, category, first, last)) {
            for (; first != last; ++first)
                scratch.push_back(packed->stringOf(*first));
            values = &scratch;
        }
    } else if (const KeyMap* keys = keysOf(category)) {
        KeyMap::const_iterator it = keys->find(key);
        if (it != keys->end())
            values = &it->second;
    }
    if (found)
        *found = values != nullptr;
    return values;
}

const String* AttrMap::text(const ID& key, bool* found, const ID& category, Values& scratch) const {
    const Values* values = find(key, found, category, scratch);
    if (!values || values->empty() || values->front().empty())
        return nullptr;
    return &values->front();
}

String AttrMap::getString(const ID& key, const String& def, bool* found, const ID& category) const {
    Values scratch;
    const Values* values = find(key, found, category, scratch);
    // A key made by an empty putIDs has no first string: it reads as the default.
    if (!values || values->empty())
        return def;
    return values->front();
}

int AttrMap::getInt(const ID& key, int def, bool* found, const ID& category) const {
    Values scratch;
    const String* value = text(key, found, category, scratch);
    if (!value)
        return def;
    // The device's long is 32 bits: wcstol's clamping happens at the int range there.
    long n = wideToLong(*value);
    if (n > INT_MAX)
        return INT_MAX;
    if (n < INT_MIN)
        return INT_MIN;
    return static_cast<int>(n);
}

long AttrMap::getLong(const ID& key, long def, bool* found, const ID& category) const {
    Values scratch;
    const String* value = text(key, found, category, scratch);
    return value ? wideToLong(*value) : def;
}

long AttrMap::getTimestamp(const ID& key, long def, bool* found, const ID& category) const {
    Values scratch;
    const String* value = text(key, found, category, scratch);
    return value ? ovTypes::fromMillisSinceEpoch(*value) : def;
}

bool AttrMap::getBool(const ID& key, bool def, bool* found, const ID& category) const {
    Values scratch;
    const String* value = text(key, found, category, scratch);
    return value ? *value == L"true" : def;
}

void AttrMap::getIDs(const ID& key, std::vector<ID>& out, bool* found, const ID& category) const {
    Values scratch;
    const Values* values = find(key, found, category, scratch);
    if (!values)
        return;
    for (const String& value : *values)
        out.push_back(ID(value));
}

void AttrMap::getAttrMap(const ID& key, AttrMap& out, bool* found, const ID& category) const {
    // Read into itself, the loop below would meet the entries it adds.
    if (&out == this) {
        const AttrMap copy(*this);
        copy.getAttrMap(key, out, found, category);
        return;
    }
    // OUT gains the category when this map has it, matched or not.
    const ID prefix = key + NESTING_SEPARATOR;
    bool matched = false;
    if (const Packed* packed = packedOnly()) {
        if (const Packed::Entries* entries = packed->entriesOf(category)) {
            out.unpackToWrite();
            KeyMap& target = out.mCategories[category];
            Packed::Entries::const_iterator it = packed->lowerBound(*entries, prefix);
            while (it != entries->end() && packed->keyOf(*it).substr(0, prefix.size()) == prefix) {
                std::string_view rest = packed->keyOf(*it).substr(prefix.size());
                Values& values = target[ID(rest.data(), rest.size())];
                values.clear();
                for (Packed::Entries::const_iterator last = packed->keyEnd(it, entries->end());
                     it != last; ++it)
                    values.push_back(packed->stringOf(*it));
                matched = true;
            }
        }
    } else if (const KeyMap* keys = keysOf(category)) {
        out.unpackToWrite();
        KeyMap& target = out.mCategories[category];
        for (KeyMap::const_iterator it = keys->lower_bound(prefix);
             it != keys->end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
            target[ID(it->first.substr(prefix.size()))] = it->second;
            matched = true;
        }
    }
    if (found)
        *found = matched;
}

void AttrMap::putString(const ID& key, const String& value, const ID& category) {
    unpackToWrite();
    Values& values = mCategories[category][key];
    values.clear();
    values.push_back(value);
}

void AttrMap::putInt(const ID& key, int value, const ID& category) {
    putString(key, std::to_wstring(value), category);
}

void AttrMap::putLong(const ID& key, long value, const ID&) {
    putString(key, std::to_wstring(value), DEFAULT_CATEGORY);
}

void AttrMap::putTimestamp(const ID& key, long seconds, const ID& category) {
    String millis = std::to_wstring(seconds);
    if (seconds != 0)
        millis += L"000";
    putString(key, millis, category);
}

void AttrMap::putBool(const ID& key, bool value, const ID& category) {
    putString(key, value ? L"true" : L"false", category);
}

void AttrMap::putIDs(const ID& key, const std::vector<ID>& values, const ID& category) {
    unpackToWrite();
    Values& list = mCategories[category][key];
    for (const ID& id : values)
        list.push_back(String(id));
}

void AttrMap::putAttrMap(const ID& key, const AttrMap& src, const ID& category) {
    // Nested into itself, the new entries would be met again by the loop below without end.
    if (&src == this) {
        const AttrMap copy(src);
        putAttrMap(key, copy, category);
        return;
    }
    const KeyMap* keys = src.keysOf(category);
    if (!keys)
        return;
    unpackToWrite();
    KeyMap& target = mCategories[category];
    for (const KeyMap::value_type& entry : *keys)
        target[key + NESTING_SEPARATOR + entry.first] = entry.second;
}

AttrMap::KeyMap* AttrMap::categoryAt(const ID& category) {
    unpackToWrite();
    handOut();
    CategoryMap::iterator it = mCategories.find(category);
    return it == mCategories.end() ? nullptr : &it->second;
}

const AttrMap::KeyMap* AttrMap::categoryAt(const ID& category) const {
    handOut();
    return keysOf(category);
}

AttrMap::KeyMap* AttrMap::defaultCategory() {
    return categoryAt(DEFAULT_CATEGORY);
}

const AttrMap::KeyMap* AttrMap::defaultCategory() const {
    return categoryAt(DEFAULT_CATEGORY);
}

const AttrMap::CategoryMap& AttrMap::categories() const {
    handOut();
    unpack();
    return mCategories;
}

void AttrMap::clear() {
    mCategories.clear();
    mPacked.reset();
    mUnpacked.store(false, std::memory_order_relaxed);
}

void AttrMap::storeEntries(std::ostream& out, const KeyMap& keys) const {
    // Each line is encoded into one buffer with room for four bytes a character (the most a
    // code point, a widened key byte or an escaped comma takes), as the bytes a line writer
    // would give (code points beyond Unicode dropped), and goes to the stream in one call.
    std::string line;
    for (const KeyMap::value_type& entry : keys) {
        const Values& values = entry.second;
        const size_t stored = mListMode ? values.size() : std::min<size_t>(values.size(), 1);
        size_t most = entry.first.size() + stored + 2; // with separators, "=" and line feed
        for (size_t i = 0; i < stored; ++i)
            most += values[i].size();
        most *= 4;
        if (line.size() < most)
            line.resize(most);
        char* p = &line[0];
        auto put = [&p](uint32_t cp) {
            if (cp < 0x80)
                *p++ = static_cast<char>(cp);
            else
                p += utf8codec::encode(cp, p);
        };
        for (char c : entry.first) // widened like any ID
            put(static_cast<unsigned char>(c));
        *p++ = '=';
        if (mListMode) {
            // Commas inside a string are escaped; backslashes are not.
            for (size_t i = 0; i < values.size(); ++i) {
                if (i > 0)
                    *p++ = ',';
                for (wchar_t c : values[i]) {
                    if (c == L',')
                        *p++ = '\\';
                    put(static_cast<uint32_t>(c));
                }
            }
        } else if (!values.empty()) {
            for (wchar_t c : values.front())
                put(static_cast<uint32_t>(c));
        }
        *p++ = '\n';
        out.write(line.data(), p - line.data());
    }
}

void AttrMap::store(std::ostream& out) const {
    // keysOf builds the map form the loop below walks.
    if (const KeyMap* keys = keysOf(DEFAULT_CATEGORY))
        storeEntries(out, *keys);
    for (const CategoryMap::value_type& category : mCategories) {
        if (category.first == DEFAULT_CATEGORY)
            continue;
        // Category names go out as raw bytes, not UTF-8 encoded.
        out << '[' << static_cast<const std::string&>(category.first) << ']' << '\n';
        storeEntries(out, category.second);
    }
}

void AttrMap::load(std::istream& in) {
    clear();
    std::shared_ptr<Packed> packed = std::make_shared<Packed>();
    packed->bytes.reserve(expectedBytes(in));
    ID category = DEFAULT_CATEGORY;
    Packed::Entries* entries = nullptr;
    UTF_8Util::LineReader reader(in);
    String line;
    bool end = false;
    for (;;) {
        reader.readLine(line, end);
        if (end)
            break;
        packed->addLine(line, mListMode, category, entries);
    }
    if (!packed->categories.empty()) {
        packed->finish();
        mPacked = std::move(packed);
        // Whoever holds the map form expects the loaded entries in it.
        if (mHandedOut.load(std::memory_order_relaxed))
            unpackToWrite();
    }
}
