#include "types/AttrMap.h"

#include <cerrno>
#include <climits>
#include <cwchar>
#include <ostream>
#include <tuple>
#include <utility>

using ovTypes::ID;
using ovTypes::String;

const char* const AttrMap::DEFAULT_CATEGORY = "_default_";
const char* const AttrMap::NESTING_SEPARATOR = ".";

namespace {

long wideToLong(const String& text) {
    return std::wcstol(text.c_str(), nullptr, 0);
}

// The list of the key that LINE holds before "=" (LENGTH characters), created in KEYS when
// missing. The key loses its trailing spaces (leading ones stay) and is narrowed to bytes like
// any ID, on the stack when short, and built straight in the map's node. Files are mostly
// written in key order, so the end is the hint: a key beyond the last one goes in unsearched.
AttrMap::Values& valuesFor(AttrMap::KeyMap& keys, const String& line, size_t length) {
    while (length > 0 && line[length - 1] == L' ')
        --length;
    char small[64];
    std::string large;
    char* bytes = small;
    if (length > sizeof small) {
        large.resize(length);
        bytes = &large[0];
    }
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(static_cast<uint32_t>(line[i]) & 0xFF);
    AttrMap::Values& values =
        keys.emplace_hint(keys.end(), std::piecewise_construct,
                          std::forward_as_tuple(bytes, length), std::forward_as_tuple())
            ->second;
    // Most keys hold one string: room for it without the vector's general growth path.
    if (values.empty())
        values.reserve(1);
    return values;
}

} // namespace

AttrMap::AttrMap(bool listMode) : mListMode(listMode) {}

const AttrMap::Values* AttrMap::find(const ID& key, bool* found, const ID& category) const {
    const Values* values = nullptr;
    const KeyMap* keys = categoryAt(category);
    if (keys) {
        KeyMap::const_iterator it = keys->find(key);
        if (it != keys->end())
            values = &it->second;
    }
    if (found)
        *found = values != nullptr;
    return values;
}

const String* AttrMap::text(const ID& key, bool* found, const ID& category) const {
    const Values* values = find(key, found, category);
    if (!values || values->empty() || values->front().empty())
        return nullptr;
    return &values->front();
}

String AttrMap::getString(const ID& key, const String& def, bool* found, const ID& category) const {
    const Values* values = find(key, found, category);
    // A key made by an empty putIDs has no first string: it reads as the default.
    if (!values || values->empty())
        return def;
    return values->front();
}

int AttrMap::getInt(const ID& key, int def, bool* found, const ID& category) const {
    const String* value = text(key, found, category);
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
    const String* value = text(key, found, category);
    return value ? wideToLong(*value) : def;
}

long AttrMap::getTimestamp(const ID& key, long def, bool* found, const ID& category) const {
    const String* value = text(key, found, category);
    return value ? ovTypes::fromMillisSinceEpoch(*value) : def;
}

bool AttrMap::getBool(const ID& key, bool def, bool* found, const ID& category) const {
    const String* value = text(key, found, category);
    return value ? *value == L"true" : def;
}

void AttrMap::getIDs(const ID& key, std::vector<ID>& out, bool* found, const ID& category) const {
    const Values* values = find(key, found, category);
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
    const KeyMap* keys = categoryAt(category);
    if (!keys) {
        if (found)
            *found = false;
        return;
    }
    KeyMap& target = out.mCategories[category];
    const ID prefix = key + NESTING_SEPARATOR;
    bool matched = false;
    for (KeyMap::const_iterator it = keys->lower_bound(prefix);
         it != keys->end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
        target[ID(it->first.substr(prefix.size()))] = it->second;
        matched = true;
    }
    if (found)
        *found = matched;
}

void AttrMap::putString(const ID& key, const String& value, const ID& category) {
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
    const KeyMap* keys = src.categoryAt(category);
    if (!keys)
        return;
    KeyMap& target = mCategories[category];
    for (const KeyMap::value_type& entry : *keys)
        target[key + NESTING_SEPARATOR + entry.first] = entry.second;
}

AttrMap::KeyMap* AttrMap::categoryAt(const ID& category) {
    CategoryMap::iterator it = mCategories.find(category);
    return it == mCategories.end() ? nullptr : &it->second;
}

const AttrMap::KeyMap* AttrMap::categoryAt(const ID& category) const {
    CategoryMap::const_iterator it = mCategories.find(category);
    return it == mCategories.end() ? nullptr : &it->second;
}

AttrMap::KeyMap* AttrMap::defaultCategory() {
    return categoryAt(DEFAULT_CATEGORY);
}

const AttrMap::KeyMap* AttrMap::defaultCategory() const {
    return categoryAt(DEFAULT_CATEGORY);
}

void AttrMap::storeEntries(UTF_8Util::LineWriter& writer, const KeyMap& keys) const {
    String value;
    for (const KeyMap::value_type& entry : keys) {
        writer.write(String(entry.first));
        writer.write(L'=');
        const Values& values = entry.second;
        if (mListMode) {
            // Commas inside a string are escaped; backslashes are not.
            value.clear();
            for (size_t i = 0; i < values.size(); ++i) {
                if (i > 0)
                    value.push_back(L',');
                for (wchar_t c : values[i]) {
                    if (c == L',')
                        value.push_back(L'\\');
                    value.push_back(c);
                }
            }
            writer.write(value);
        } else if (!values.empty()) {
            writer.write(values.front());
        }
        writer.writeLine();
    }
}

void AttrMap::store(std::ostream& out) const {
    UTF_8Util::LineWriter writer(out);
    if (const KeyMap* keys = defaultCategory())
        storeEntries(writer, *keys);
    for (const CategoryMap::value_type& category : mCategories) {
        if (category.first == DEFAULT_CATEGORY)
            continue;
        // Category names go out as raw bytes, not through the UTF-8 writer.
        out << '[' << static_cast<const std::string&>(category.first) << ']' << '\n';
        storeEntries(writer, category.second);
    }
}

void AttrMap::loadLine(const String& line, ID& category, KeyMap*& keys) {
    if (line.empty() || line[0] == L'#')
        return;
    if (line[0] == L'[') {
        size_t close = line.find(L']', 1);
        category = ID(String(line.substr(1, close == String::npos ? String::npos : close - 1)));
        keys = nullptr;
        return;
    }
    size_t equals = line.find(L'=');
    if (equals == String::npos)
        return;
    size_t valueStart = equals + 1;
    while (valueStart < line.size() && line[valueStart] == L' ')
        ++valueStart;
    if (!keys)
        keys = &mCategories[category];
    Values& values = valuesFor(*keys, line, equals);
    if (!mListMode || line.find(L',', valueStart) == String::npos) {
        values.emplace_back(line.data() + valueStart, line.size() - valueStart);
        return;
    }
    // Split at commas not preceded by a backslash; an escaped comma loses its backslash.
    String piece;
    for (size_t i = valueStart; i < line.size(); ++i) {
        wchar_t c = line[i];
        if (c != L',') {
            piece.push_back(c);
        } else if (!piece.empty() && piece.back() == L'\\') {
            piece.back() = L',';
        } else {
            values.push_back(std::move(piece));
            piece.clear();
        }
    }
    values.push_back(std::move(piece));
}

void AttrMap::load(std::istream& in) {
    mCategories.clear();
    ID category = DEFAULT_CATEGORY;
    KeyMap* keys = nullptr;
    UTF_8Util::LineReader reader(in);
    String line;
    bool end = false;
    for (;;) {
        reader.readLine(line, end);
        if (end)
            break;
        loadLine(line, category, keys);
    }
}
