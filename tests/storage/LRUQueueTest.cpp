// The LRU queue: least recently added or used on top, key 0 above every used element, and a
// heap that stays whole through removals from the middle.
#include "storage/NR_LRUQueue.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

typedef NR_LRUQueue<std::string> Queue;

// The names of QUEUE in the order pops take them, emptying it.
std::string drain(Queue& queue) {
    std::string names;
    for (; !queue.empty(); queue.pop())
        names += (names.empty() ? "" : " ") + queue.top()->name;
    return names;
}

TEST(LRUQueue, LeastRecentlyAddedOrUsedComesFirst) {
    Queue queue;
    EXPECT_EQ(nullptr, queue.top());
    for (const char* name : {"a", "b", "c"})
        queue.push(name);
    EXPECT_TRUE(queue.touch("a"));
    EXPECT_FALSE(queue.touch("missing"));
    EXPECT_EQ(3u, queue.size());
    EXPECT_EQ("b c a", drain(queue));
    queue.pop(); // popping an empty queue does nothing
    EXPECT_TRUE(queue.empty());
}

TEST(LRUQueue, UnusedElementsGoBeforeUsedOnesUntilUsedAgain) {
    Queue queue;
    queue.push("old");
    queue.push("new");
    queue.push("stale", true);
    EXPECT_EQ(0, queue.find("stale")->key);
    EXPECT_EQ("stale", queue.top()->name);
    queue.push("stale"); // pushing a name again only gives it the new key
    EXPECT_EQ(3u, queue.size());
    EXPECT_EQ("old", queue.top()->name);
    EXPECT_TRUE(queue.setUnused("new"));
    EXPECT_EQ("new old stale", drain(queue));
}

// Of equal keys, the element nearer the top stays there: a new one does not rise past an
// equal parent, and the last element moved up by a pop does not sink below an equal child.
// An eviction passes over names it could not delete: the element of smallest key among the
// rest (nearer the top on equal keys), and the heap stays as it was.
TEST(LRUQueue, OnEqualKeysTheElementOnTopStays) {
    Queue queue;
    for (const char* name : {"first", "second", "third"})
        queue.push(name, true);
    EXPECT_EQ("first third second", drain(queue));

    for (const char* name : {"a", "b", "c", "d"})
        queue.push(name, true);
    queue.touch("a");
    EXPECT_EQ("b", queue.topExcept({})->name);
    EXPECT_EQ("d", queue.topExcept({"b"})->name); // heap: b, d, c, a
    EXPECT_EQ("a", queue.topExcept({"b", "c", "d"})->name);
    EXPECT_EQ(nullptr, queue.topExcept({"a", "b", "c", "d"}));
    EXPECT_EQ("b", queue.top()->name);
}

// Random pushes, uses, key resets and removals checked against a plain map of keys: the top is
// always an element with the smallest key, every element knows its heap index, and popping
// everything yields non-decreasing keys.
TEST(LRUQueue, HeapStaysConsistentUnderRandomChanges) {
    Queue queue;
    std::map<std::string, int32_t> keys;
    std::mt19937 random(7);
    for (int step = 0; step < 5000; ++step) {
        std::string name = "f" + std::to_string(random() % 200);
        switch (random() % 4) {
        case 0:
            queue.push(name, random() % 3 == 0);
            break;
        case 1:
            EXPECT_EQ(keys.count(name) != 0, queue.touch(name));
            break;
        case 2:
            EXPECT_EQ(keys.count(name) != 0, queue.setUnused(name));
            break;
        default:
            EXPECT_EQ(keys.count(name) != 0, queue.remove(name));
            keys.erase(name);
            break;
        }
        if (queue.contains(name))
            keys[name] = queue.find(name)->key;
        ASSERT_EQ(keys.size(), queue.size());
        if (!keys.empty()) {
            int32_t smallest = INT32_MAX;
            for (const auto& entry : keys)
                smallest = std::min(smallest, entry.second);
            ASSERT_EQ(smallest, queue.top()->key) << "step " << step;
        }
    }
    std::vector<const Queue::Element*> elements = queue.elements();
    for (size_t i = 0; i < elements.size(); ++i) {
        ASSERT_EQ(int32_t(i + 1), elements[i]->index);
        ASSERT_EQ(keys[elements[i]->name], elements[i]->key);
    }
}

} // namespace
