// Resources through the cache's streams: names on disk, lookups and the uses they count, the
// policy's accounting of what was written. And how content IDs name files: the "Z" extension rule,
// the MIME table with its missing "image/png", the final name of a stored resource, lookups that
// ignore the extension unless the ID names one, and the IDs that may never name a file.
#include "CacheFixture.h"

#include <iterator>

namespace {

using namespace storagetest;

using ResourceTest = CacheTest;

TEST_F(ResourceTest, StoredUnderTheirFinalNamesAndNothingOfAFailedStream) {
    ovtest::StderrCapture capture;
    // A stream that failed, as a failed write leaves it, stores nothing.
    std::ofstream* broken = cache()->getOutputStream("broken", 10);
    ASSERT_NE(nullptr, broken);
    broken->setstate(std::ios::badbit);
    EXPECT_EQ(-1, cache()->closeOutputStream("broken", broken, "image/gif"));
    EXPECT_EQ(-1, cache()->closeOutputStream("broken", nullptr, "image/gif"));
    ASSERT_EQ(0, putResource("logoZpng", "bytes", "image/x-png"));
    ASSERT_EQ(0, putResource("pic.gif", "bytes"));
    ASSERT_EQ(0, putResource("raw", "bytes", "image/png"));
    EXPECT_EQ("logo.png pic.gif raw.dat", listing());
    // Stream lines are of level 4; the name is told before the move is tried.
    EXPECT_TRUE(inOrder(capture.text(),
                        {"{4} NR_ContentCache.cpp:", "\tNew path:" + path("broken.gif") + "\n\n",
                         "\tCloseOutputStream : logoZpng, with type:image/x-png\n\n",
                         "\tNew path:" + path("logo.png") + "\n\n"}));
    // Every file written is accounted under its name on disk, unreferenced (key 0), so it can be
    // evicted, in the heap's order of equal keys.
    EXPECT_EQ(3, policy()->blocksUsed());
    for (const char* name : {"logo.png", "raw.dat", "pic.gif"})
        EXPECT_EQ("unreferenced " + std::string(name), evict());
}

TEST_F(ResourceTest, LookupsFindTheFileWithOrWithoutItsExtension) {
    ASSERT_EQ(0, putResource("logoZpng", "PNG-BYTES", "image/x-png"));
    ASSERT_EQ(0, putResource("second", "2"));
    policy()->addRef("x.itm", "logo");
    policy()->addRef("x.itm", "second");
    EXPECT_EQ("logo.png", fileOf("logo"));
    std::string name = "kept", where;
    EXPECT_EQ(-1, cache()->getFileName("logoZgif", name));
    EXPECT_EQ("kept", name) << "unchanged on failure";
    EXPECT_EQ(0, cache()->getPath("logoZpng", where));
    EXPECT_EQ(path("logo.png"), where);
    EXPECT_EQ(-1, cache()->getPath("missing", where));
    EXPECT_EQ("", where);
    EXPECT_EQ(9, cache()->getSize("logo"));
    EXPECT_EQ(-1, cache()->getSize("missing"));

    std::ifstream* in = cache()->getInputStream("logo");
    ASSERT_NE(nullptr, in);
    EXPECT_EQ("PNG-BYTES", std::string(std::istreambuf_iterator<char>(*in), {}));
    EXPECT_EQ(0, cache()->closeInputStream(in));
    EXPECT_EQ(nullptr, cache()->getInputStream("missing"));
    // Reading the older file made the other the least recently used; no other lookup counts.
    EXPECT_EQ("referenced second.gif", evict());

    // Another process adds and removes files; the directory's time tells the cache.
    ASSERT_TRUE(ovtest::writeFile(path("b.gif"), "B"));
    ASSERT_EQ(0, std::remove(path("logo.png").c_str()));
    EXPECT_EQ("b.gif", fileOf("b"));
    EXPECT_EQ("<none>", fileOf("logo"));
    // The cache's own writes keep the index in step without reading the directory.
    ASSERT_EQ(0, putResource("c", "C", "text/css"));
    EXPECT_EQ("c.css", fileOf("c"));
}

// ---- Naming

TEST(CacheNaming, SplitsAZExtensionOnlyWhenTheTableHasIt) {
    // Only the text after the last Z counts, and it must be a table extension as it stands.
    const struct {
        const char* id;
        const char* split; // "stem ext", or "-" when the ID has no Z extension
    } cases[] = {{"logoZpng", "logo png"}, {"aZbZgif", "aZb gif"}, {"Zmpa2", " mpa2"},
                 {"logoZpngZ", "-"},       {"logoZPNG", "-"},      {"logozpng", "-"},
                 {"logoZdat", "-"},        {"logoZitm", "-"},      {"logo.png", "-"}};
    for (const auto& c : cases) {
        std::string stem, ext;
        const bool split = NR_CacheDirectory::splitExtension(c.id, stem, ext);
        EXPECT_EQ(c.split, split ? stem + " " + ext : "-") << c.id;
    }
}

TEST(CacheNaming, LookupsIgnoreTheExtensionUnlessTheIDNamesOne) {
    const struct {
        const char* id;
        const char* name;
        bool matches;
    } cases[] = {
        {"logo", "logo.png", true},
        {"logoZpng", "logo.png", true},
        {"logoZpng", "logoZpng.png", true},
        {"logoZgif", "logo.png", false},
        {"logoZpng", "logo.dat", false},
        {"logo", "logo.dat", true},
        {"x", "x.itm", true},
        {"noext", "noext", true},
        {"logo", "logo2.png", false},
        {"a.b", "a.b.png", true}, // the name is cut at its last dot only
        {"a", "a.b.png", false},
        {"pic.gif", "pic.gif", false},
        {"x", "x.tmp", false}, // a file still being written is never an answer
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.matches, NR_CacheDirectory::names(c.id, c.name)) << c.id << " " << c.name;

    typedef std::vector<std::string> Names;
    EXPECT_EQ(Names({"logo.png", "logo", "logoZpng"}), NR_CacheDirectory::namesOf("logo.png"));
    EXPECT_EQ(Names({"x.itm", "x"}), NR_CacheDirectory::namesOf("x.itm"));
    // The ID aZgif names only .gif files.
    EXPECT_EQ(Names({"aZgif.png", "aZgifZpng"}), NR_CacheDirectory::namesOf("aZgif.png"));
}

TEST(CacheNaming, IDsThatCouldLeaveTheDirectoryAreUnsafe) {
    for (const std::string& bad :
         {std::string(), std::string("."), std::string(".."), std::string("../x"),
          std::string("a/b"), std::string("/"), std::string("x\0y", 3)})
        EXPECT_FALSE(NR_CacheDirectory::isSafeID(bad)) << bad;
    for (const char* good : {"x", "...", ".hidden", "a..b", "logoZpng", "dc:icon.png"})
        EXPECT_TRUE(NR_CacheDirectory::isSafeID(good)) << good;
}

// The table in its order without "image/png", as the constructor logs it, and the final name of
// a stored resource.
TEST_F(ResourceTest, FinalNameOfAStoredResource) {
    ovtest::StderrCapture capture;
    cache();
    const std::string suffix = "NR_ContentCache: ";
    std::string text = capture.text();
    EXPECT_TRUE(inOrder(text, {suffix + "application/xhtml+xml type will have suffix of xhtml\n\n",
                               suffix + "image/x-png type will have suffix of png\n\n",
                               suffix + "application/x-tcl type will have suffix of tcl\n\n"}));
    EXPECT_EQ(std::string::npos, text.find("image/png type"));
    EXPECT_NE(std::string::npos, text.find("{5} NR_ContentCache.cpp:"));
    ASSERT_EQ(35u, NR_CacheDirectory::MIME_TABLE_SIZE);
    EXPECT_STREQ("image/x-png", NR_CacheDirectory::MIME_TABLE[8].type);

    const struct {
        const char* id;
        const char* type;
        const char* name;
    } cases[] = {
        {"logoZpng", "image/x-png", "logo.png"},
        {"logoZpng", "image/png", "logo.png"},
        {"logo", "image/png", "logo.dat"},
        {"logo", "image/x-png", "logo.png"},
        {"pic.gif", "image/gif", "pic.gif"},
        {"picZgif", "image/gif", "pic.gif"},
        {"gif", "image/gif", "gif.gif"},
        {"Zgif", "image/gif", ".gif"},
        {"aZjpg", "image/gif", "aZjpg.gif"},
        {"page", "application/xhtml+xml", "page.xhtml"},
        {"s", "text/css", "s.css"},
        {"x", "", "x.dat"},
        {"tZtxt", "", "t.txt"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.name, cache()->finalName(c.id, c.type)) << c.id << " " << c.type;
}

} // namespace
