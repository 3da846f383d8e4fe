// LRUCache<K, V>: a map of at most a fixed number of entries that drops the entry used least
// recently when a new one would not fit. The default-content manager keeps its index lists per
// language code in one.
//
// Threads: none of its own and no locking; a cache shared between threads is guarded by its
// owner. Values are copied in and out, so a value type that shares ownership (PtrRef) keeps an
// evicted entry alive for as long as a caller holds a copy.
#ifndef OVBASE_STORAGE_LRUCACHE_H
#define OVBASE_STORAGE_LRUCACHE_H

#include <cstddef>
#include <list>
#include <map>
#include <utility>

template <class K, class V> class LRUCache {
public:
    // CAPACITY below 1 is taken as 1.
    explicit LRUCache(size_t capacity) : mCapacity(capacity ? capacity : 1) {}

    LRUCache(const LRUCache&) = delete;
    LRUCache& operator=(const LRUCache&) = delete;

    // True and *VALUE set when KEY is held; the entry becomes the most recently used.
    bool get(const K& key, V* value) {
        typename Index::iterator found = mIndex.find(key);
        if (found == mIndex.end())
            return false;
        mEntries.splice(mEntries.begin(), mEntries, found->second);
        *value = found->second->second;
        return true;
    }

    // Holds VALUE under KEY as the most recently used entry, replacing one held before and
    // dropping the least recently used entry when the cache is full.
    void put(const K& key, const V& value) {
        typename Index::iterator found = mIndex.find(key);
        if (found != mIndex.end()) {
            found->second->second = value;
            mEntries.splice(mEntries.begin(), mEntries, found->second);
            return;
        }
        if (mEntries.size() == mCapacity) {
            mIndex.erase(mEntries.back().first);
            mEntries.pop_back();
        }
        mEntries.emplace_front(key, value);
        mIndex[key] = mEntries.begin();
    }

    void erase(const K& key) {
        typename Index::iterator found = mIndex.find(key);
        if (found == mIndex.end())
            return;
        mEntries.erase(found->second);
        mIndex.erase(found);
    }

    void clear() {
        mIndex.clear();
        mEntries.clear();
    }

    size_t size() const { return mEntries.size(); }
    size_t capacity() const { return mCapacity; }

private:
    typedef std::list<std::pair<K, V>> Entries; // most recently used first
    typedef std::map<K, typename Entries::iterator> Index;

    size_t mCapacity;
    Entries mEntries;
    Index mIndex;
};

#endif
