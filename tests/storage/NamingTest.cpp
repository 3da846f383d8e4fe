// How content IDs name files: the "Z" extension rule, the MIME table with its missing
// "image/png", the final name of a stored resource, lookups that ignore the extension unless
// the ID names one, and the IDs that may never name a file.
#include "CacheFixture.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

namespace {

using storagetest::CacheTest;

TEST(CacheNaming, SplitsAZExtensionOnlyWhenTheTableHasIt) {
    // Only the text after the last Z counts, and it must be a table extension as it stands.
    const struct {
        const char* id;
        const char* split; // "stem ext", or null when the ID has no Z extension
    } cases[] = {{"logoZpng", "logo png"}, {"aZbZgif", "aZb gif"}, {"Zmpa2", " mpa2"},
                 {"logoZpngZ", nullptr},   {"logoZPNG", nullptr},  {"logozpng", nullptr},
                 {"logoZdat", nullptr},    {"logo.png", nullptr}};
    for (const auto& c : cases) {
        std::string stem, ext;
        bool split = NR_CacheDirectory::splitExtension(c.id, stem, ext);
        EXPECT_EQ(c.split != nullptr, split) << c.id;
        if (split && c.split) {
            EXPECT_EQ(c.split, stem + " " + ext);
        }
    }
    EXPECT_TRUE(NR_CacheDirectory::isTableExtension("png"));
    EXPECT_FALSE(NR_CacheDirectory::isTableExtension("dat"));
    EXPECT_FALSE(NR_CacheDirectory::isTableExtension("itm"));
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

class CacheNamingWithCache : public CacheTest {};

// The table in its order without "image/png", as the constructor logs it, and the final name of
// a stored resource.
TEST_F(CacheNamingWithCache, FinalNameOfAStoredResource) {
    ovtest::StderrCapture capture;
    cache();
    const std::string suffix = "NR_ContentCache: ";
    std::string text = capture.text();
    EXPECT_TRUE(storagetest::inOrder(
        text, {suffix + "application/xhtml+xml type will have suffix of xhtml\n\n",
               suffix + "image/x-png type will have suffix of png\n\n",
               suffix + "application/x-tcl type will have suffix of tcl\n\n"}));
    EXPECT_EQ(std::string::npos, text.find("image/png type"));
    EXPECT_NE(std::string::npos, text.find("{5} NR_ContentCache.cpp:"));

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
    EXPECT_EQ("png", cache()->extensionOf("image/x-png"));
    EXPECT_EQ("", cache()->extensionOf("image/png"));
}

} // namespace
