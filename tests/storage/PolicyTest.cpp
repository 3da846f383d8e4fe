// The cache policy: its limit from the file system, block counting, eviction order with the
// class rule, the referenced total as files gain and lose parents, and the kilobyte figures;
// and its LRU queue: least recently added or used on top, key 0 above every used element, and
// a heap that stays whole through removals from the middle.
#include "CacheFixture.h"

#include "storage/NR_LRUQueue.h"

#include <map>
#include <random>

namespace {

using namespace storagetest;

class PolicySizing : public CacheTest {
protected:
    PolicySizing() : CacheTest(12345) {}
};

TEST_F(PolicySizing, TenPercentInWholePercentSteps) {
    ovtest::StderrCapture capture;
    NR_ContentCachePolicy* p = policy();
    EXPECT_EQ(4096, p->getBlockSize());
    EXPECT_EQ(1230, p->maxCacheBlocks()); // 10 x (12345 / 100)
    EXPECT_EQ(1230 * 4, p->cacheSize());
    EXPECT_EQ(1230 * 4, p->cacheFree());
    EXPECT_EQ(1230 * 4, p->cacheRemaining());
    EXPECT_EQ(1230, p->cacheBlocksFree());
    EXPECT_EQ("0\n", ovtest::readFile(ovplatform::devicePath("/tmp/ref.txt")));
    EXPECT_TRUE(inOrder(capture.text(),
                        {"\t[e13361] NR_ContentCachePolicy::NR_ContentCachePolicy(): write "
                         "mReferencedUsed 0 to /tmp/ref.txt\n\n",
                         "\tNR_ContentCachePolicy: Total size = 12345 blocks, Max cache size = "
                         "1230 blocks, Block size = 4096 bytes\n\n"}));
}

class Policy : public CacheTest {
protected:
    void SetUp() override { p = policy(); }

    NR_ContentCachePolicy* p = nullptr;
};

TEST_F(Policy, AFileCountsOneBlockMoreThanItsSizeFills) {
    for (auto c : {std::make_pair(0, 1), {4095, 1}, {4096, 2}, {2 * 4096 + 1, 3}})
        EXPECT_EQ(c.second, p->blocksFor(c.first)) << c.first;
    account("exact", 9, 4096);
    account("small", 9, 10);
    EXPECT_EQ(3, p->blocksUsed());
    EXPECT_EQ(97, p->cacheBlocksFree());
    EXPECT_EQ(97 * 4, p->cacheFree());
    // Accounting a name again replaces its earlier figure; a file that is not there is not
    // accounted.
    account("small", 9, 5000);
    EXPECT_EQ(0, p->addDiskUsage("absent", 9, false));
    EXPECT_EQ(4, p->blocksUsed());
    EXPECT_EQ(-1, p->addDiskUsage("small", 11, false));
}

// What goes out for a file is what came in for it, whatever it occupies on disk when it goes:
// an exact multiple of the block size (counted one more), a sparse file (occupying nothing), a
// file that grew behind the cache's back.
TEST_F(Policy, RemovingAFileTakesWhatWasCountedIn) {
    account("other", 9, 100);
    p->addRef("x.itm", "exact");
    account("exact", 9, 4096);
    ASSERT_TRUE(ovtest::writeFile(path("sparse"), ""));
    std::filesystem::resize_file(path("sparse"), 100ul << 20);
    ASSERT_EQ(0, p->addDiskUsage("sparse", 9, false));
    account("grown", 9, 100);
    ASSERT_TRUE(ovtest::writeFile(path("grown"), std::string(40000, 'g')));
    EXPECT_EQ("25605 used, 2 referenced", usage()); // 1 + 2 + 25601 + 1
    EXPECT_EQ(0, p->cacheBlocksFree()) << "never below 0";

    EXPECT_EQ(0, p->removeFile("exact"));
    EXPECT_EQ(0, p->referencedUsed());
    ovtest::StderrCapture capture;
    EXPECT_EQ(0, p->removeFile("sparse"));
    EXPECT_TRUE(
        inOrder(capture.text(), {"\tNR_ContentCachePolicy.hasReferences(): Has no references\n\n"}))
        << "the referenced total is reduced only after asking";
    EXPECT_EQ(0, p->removeFile("grown"));
    EXPECT_EQ(-1, p->removeFile("exact"));
    EXPECT_EQ("other", listing());
    EXPECT_EQ(1, p->blocksUsed());
    EXPECT_EQ(0, p->delDiskUsage("other", 9));
    EXPECT_EQ(0, p->blocksUsed());
    EXPECT_TRUE(exists("other")) << "delDiskUsage only withdraws the accounting";
    EXPECT_EQ(-1, p->delDiskUsage("other", 9));
}

// While nothing references a file it carries key 0, whatever the third argument of
// addDiskUsage said, so the first pass of eviction finds it on top of its queue (queue 0 too)
// before any referenced file of a lower class. Its first parent gives it the counter; a used
// file no longer carries key 0, so an older referenced one goes before it.
TEST_F(Policy, UnreferencedFilesCarryKeyZeroAndGoFirstFromAnyQueue) {
    p->addRef("x.itm", "ref1");
    account("ref1.gif", 1, 100, true);
    account("loose.gif", 9, 100, true);
    account("plain.gif", 9, 100, false);
    EXPECT_GT(keyOf(1, "ref1.gif"), 0);
    EXPECT_EQ(0, keyOf(9, "loose.gif"));
    EXPECT_EQ(0, keyOf(9, "plain.gif"));

    ovtest::StderrCapture capture;
    EXPECT_EQ("unreferenced loose.gif", evict());
    account("zero.gif", 0, 100, true);
    EXPECT_EQ("unreferenced zero.gif", evict());
    EXPECT_TRUE(inOrder(capture.text(), {"\tfound unreferenced object loose.gif on queue 9\n\n",
                                         "\tfound unreferenced object zero.gif on queue 0\n\n"}));

    p->addRef("y.itm", "plain");
    EXPECT_GT(keyOf(9, "plain.gif"), 0);
    EXPECT_EQ("referenced plain.gif", evict()) << "the highest class goes first";
    EXPECT_EQ("referenced ref1.gif", evict());
    EXPECT_EQ("none", evict());
    EXPECT_EQ("0 used, 0 referenced", usage());

    p->addRef("x.itm", "kept");
    account("kept.gif", 9);
    account("used.gif", 9);
    p->accessedCacheObj("used.gif");
    EXPECT_EQ("referenced kept.gif", evict());
}

TEST_F(Policy, ReferencedFilesGoOnlyFromClassesTheCallerMayDisplace) {
    for (const char* id : {"t4", "i5", "t6", "i7"})
        p->addRef("x.itm", id);
    account("t4.xhtml", 4);
    account("i5.gif", 5);
    account("t6.xhtml", 6);
    account("i7.gif", 7);
    for (int type : {9, 8, 11})
        EXPECT_EQ("none", evict(type)) << type;

    // Highest class first, and no lower than the caller's; any caller takes an unreferenced
    // top, even one above 10.
    EXPECT_EQ("referenced i7.gif", evict(6));
    EXPECT_EQ("referenced t6.xhtml", evict(6));
    EXPECT_EQ("none", evict(6));
    EXPECT_EQ("referenced i5.gif", evict(0));
    account("loose.gif", 9);
    EXPECT_EQ("unreferenced loose.gif", evict(11));
    EXPECT_EQ("t4.xhtml", listing());
}

TEST_F(Policy, ReferencedTotalFollowsParentsBeforeAndAfterTheFile) {
    // Reference first, file later: counted as referenced when it arrives.
    p->addRef("a.itm", "logoZpng");
    account("logo.png", 9, 5000); // 2 blocks
    EXPECT_EQ(2, p->referencedUsed());
    // File first, reference later, under another ID that finds the same file.
    account("pic.gif", 9);
    EXPECT_EQ(2, p->referencedUsed());
    p->addRef("a.itm", "pic");
    EXPECT_EQ(3, p->referencedUsed());
    p->addRef("b.itm", "pic"); // a second parent changes nothing
    EXPECT_EQ(3, p->referencedUsed());
    EXPECT_EQ(4 * 1000 / 10 - 3 * 4, p->cacheRemaining());
    // The used figure, in kilobytes, is the total as the file holds it, written when asked.
    const std::string refFile = ovplatform::devicePath("/tmp/ref.txt");
    EXPECT_EQ(0, p->cacheUsed());
    ASSERT_EQ(0, p->writeRefUsed());
    EXPECT_EQ("3\n", ovtest::readFile(refFile));
    EXPECT_EQ(12, p->cacheUsed());
    // Another process's larger figure is shown no larger than the limit.
    ASSERT_TRUE(ovtest::writeFile(refFile, "999999\n"));
    EXPECT_EQ(400, p->cacheUsed());
    ASSERT_TRUE(ovtest::writeFile(refFile, "garbage"));
    EXPECT_EQ(0, p->cacheUsed());

    p->delRef("a.itm", "pic", 0);
    EXPECT_EQ(3, p->referencedUsed());
    p->delRef("b.itm", "pic", 0);
    EXPECT_EQ(2, p->referencedUsed());
    EXPECT_EQ("pic.gif:9", classes({"pic.gif"}));
    EXPECT_EQ(0, p->queue(9).top()->key) << "a file that lost its last parent goes first";

    p->delRefsOf("a.itm");
    EXPECT_TRUE(p->childrenOf("a.itm").empty());
    EXPECT_EQ("3 used, 0 referenced", usage());
}

// An evicted parent no longer protects what it referenced. One deleted behind the cache's back
// leaves the accounting, and the references it held, when eviction comes to it: the cache is
// not left fuller than it is until the next sync.
TEST_F(Policy, AnEvictedOrVanishedParentNoLongerProtectsWhatItReferenced) {
    p->addRef("a.itm", "img");
    p->addRef("b.itm", "img");
    p->addRef("a.itm", "tpl");
    account("a.itm", 9);
    account("tpl.xhtml", 6);
    account("img.gif", 7);
    EXPECT_EQ(2, p->referencedUsed());
    ASSERT_EQ(0, std::remove(path("a.itm").c_str()));
    EXPECT_EQ("unreferenced", evict()); // a.itm, the only unreferenced file
    EXPECT_EQ("2 used, 1 referenced", usage()) << "the template lost its only parent";
    EXPECT_TRUE(p->childrenOf("a.itm").empty());
    EXPECT_EQ(std::set<std::string>({"b.itm"}), p->parentsOf("img"));
    EXPECT_EQ("unreferenced tpl.xhtml", evict());
}

TEST_F(Policy, ReferenceTableLinesAndDumps) {
    ovtest::StderrCapture capture;
    p->addRef("a.itm", "img");
    p->addRef("a.itm", "img");
    p->addRef("b.itm", "img");
    EXPECT_TRUE(p->hasReferences("img", 0));
    EXPECT_FALSE(p->hasReferences("other", 0));
    EXPECT_EQ(std::set<std::string>({"a.itm", "b.itm"}), p->parentsOf("img"));
    account("img.gif", 5);
    p->dump();
    EXPECT_TRUE(inOrder(
        capture.text(),
        {"\taddRef(): Parent a.itm added\n\n", "\taddRef(): Child img was referenced earlier\n\n",
         "\taddRef(): Parent a.itm found\n\n", "\taddRef(): Parent b.itm added\n\n",
         "\tNR_ContentCachePolicy.hasReferences(): Has no references\n\n",
         "\tNR_ContentCachePolicy.addDiskUsage(): Target = img.gif, target used = 1\n\n",
         "\tIn addDiskUsage(): Target = img.gif cache used = 1, referenced used = 1\n\n",
         "\tCache usage, referenced = 1, total = 1\n\n", "\t---Reference table---\n\n",
         "\tParents of img:\n", "\ta.itm \n", "\tb.itm \n", "\t---Priority queues---\n\n",
         "\tQueue 0\n", "\tQueue 5\n", "\timg.gif key=", "\tQueue 10\n"}));
}

// ---- The LRU queue

typedef NR_LRUQueue<std::string> Queue;

// The names of QUEUE in the order pops take them, emptying it.
std::string drain(Queue& queue) {
    std::string names;
    for (; !queue.empty(); queue.pop())
        names += (names.empty() ? "" : " ") + queue.top()->name;
    return names;
}

// Least recently added or used on top; an element pushed unused (key 0), or set unused again,
// goes before every used one until it is used again.
TEST(LRUQueue, LeastRecentlyUsedFirstAndUnusedBeforeUsed) {
    Queue queue;
    EXPECT_EQ(nullptr, queue.top());
    for (const char* name : {"a", "b", "c"})
        queue.push(name);
    EXPECT_TRUE(queue.touch("a"));
    EXPECT_FALSE(queue.touch("missing"));
    queue.push("stale", true);
    EXPECT_EQ(0, queue.find("stale")->key);
    EXPECT_EQ("stale", queue.top()->name);
    queue.push("stale"); // pushing a name again only gives it the new key
    EXPECT_EQ(4u, queue.size());
    EXPECT_TRUE(queue.setUnused("c"));
    EXPECT_EQ("c b a stale", drain(queue));
    queue.pop(); // popping an empty queue does nothing
    EXPECT_TRUE(queue.empty());
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
        const std::string name = "f" + std::to_string(random() % 200);
        const bool held = keys.count(name) != 0;
        const int change = random() % 4;
        bool found = held;
        if (change == 0)
            queue.push(name, random() % 3 == 0);
        else if (change == 1)
            found = queue.touch(name);
        else if (change == 2)
            found = queue.setUnused(name);
        else
            found = queue.remove(name);
        EXPECT_EQ(held, found) << "step " << step;
        if (change == 3)
            keys.erase(name);
        if (queue.contains(name))
            keys[name] = queue.find(name)->key;
        ASSERT_EQ(keys.size(), queue.size());
        auto smallest = std::min_element(keys.begin(), keys.end(),
                                         [](auto& a, auto& b) { return a.second < b.second; });
        if (smallest != keys.end()) {
            ASSERT_EQ(smallest->second, queue.top()->key) << "step " << step;
        }
    }
    std::vector<const Queue::Element*> elements = queue.elements();
    for (size_t i = 0; i < elements.size(); ++i) {
        ASSERT_EQ(int32_t(i + 1), elements[i]->index);
        ASSERT_EQ(keys[elements[i]->name], elements[i]->key);
    }
    for (int32_t last = -1; !queue.empty(); queue.pop()) {
        ASSERT_GE(queue.top()->key, last);
        last = queue.top()->key;
    }
}

} // namespace
