// The cache that keeps the default-content manager's index lists per language.
#include "storage/LRUCache.h"
#include "thread/PtrRef.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(LRUCacheTest, DropsTheEntryUsedLeastRecently) {
    LRUCache<std::string, int> cache(2);
    cache.put("de", 1);
    cache.put("fr", 2);
    int value = 0;
    ASSERT_TRUE(cache.get("de", &value)); // "fr" is now the least recently used
    EXPECT_EQ(1, value);
    cache.put("en", 3);

    EXPECT_FALSE(cache.get("fr", &value));
    EXPECT_TRUE(cache.get("de", &value));
    EXPECT_TRUE(cache.get("en", &value));
    EXPECT_EQ(2u, cache.size());

    // Replacing a value refreshes the entry without growing the cache.
    cache.put("de", 4); // "en" is now the least recently used
    cache.put("it", 5);
    EXPECT_FALSE(cache.get("en", &value));
    ASSERT_TRUE(cache.get("de", &value));
    EXPECT_EQ(4, value);

    cache.erase("de");
    EXPECT_FALSE(cache.get("de", &value));
    cache.clear();
    EXPECT_EQ(0u, cache.size());
    EXPECT_FALSE(cache.get("it", &value));
}

TEST(LRUCacheTest, AnEvictedSharedValueLivesWhileACopyIsHeld) {
    LRUCache<std::string, PtrRef<std::string>> cache(0); // taken as 1
    EXPECT_EQ(1u, cache.capacity());
    cache.put("de", PtrRef<std::string>(new std::string("lists")));
    PtrRef<std::string> held;
    ASSERT_TRUE(cache.get("de", &held));
    EXPECT_EQ(2, held.refCount());
    cache.put("fr", PtrRef<std::string>(new std::string("other")));
    EXPECT_EQ(1, held.refCount());
    EXPECT_EQ("lists", *held);
}

} // namespace
