// How content IDs name files: the "Z" extension rule, the MIME table with its missing
// "image/png", the final name of a stored resource, lookups that ignore the extension unless
// the ID names one, and the IDs that may never name a file.
#include "CacheFixture.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

namespace {

using storagetest::CacheTest;

TEST(CacheNaming, SplitsAZExtensionOnlyWhenTheTableHasIt) {
    std::string stem, ext;
    EXPECT_TRUE(NR_CacheDirectory::splitExtension("logoZpng", stem, ext));
    EXPECT_EQ("logo", stem);
    EXPECT_EQ("png", ext);
    EXPECT_TRUE(NR_CacheDirectory::splitExtension("aZbZgif", stem, ext));
    EXPECT_EQ("aZb", stem);
    EXPECT_EQ("gif", ext);
    EXPECT_TRUE(NR_CacheDirectory::splitExtension("Zmpa2", stem, ext));
    EXPECT_EQ("", stem);
    EXPECT_EQ("mpa2", ext);
    // Only the text after the last Z counts, and it must be a table extension as it stands.
    EXPECT_FALSE(NR_CacheDirectory::splitExtension("logoZpngZ", stem, ext));
    EXPECT_FALSE(NR_CacheDirectory::splitExtension("logoZPNG", stem, ext));
    EXPECT_FALSE(NR_CacheDirectory::splitExtension("logozpng", stem, ext));
    EXPECT_FALSE(NR_CacheDirectory::splitExtension("logoZdat", stem, ext));
    EXPECT_FALSE(NR_CacheDirectory::splitExtension("logo.png", stem, ext));
}

TEST(CacheNaming, MimeTableInOrderWithoutImagePng) {
    ASSERT_EQ(35u, NR_CacheDirectory::MIME_TABLE_SIZE);
    EXPECT_STREQ("application/xhtml+xml", NR_CacheDirectory::MIME_TABLE[0].type);
    EXPECT_STREQ("xhtml", NR_CacheDirectory::MIME_TABLE[0].extension);
    EXPECT_STREQ("image/x-png", NR_CacheDirectory::MIME_TABLE[8].type);
    EXPECT_STREQ("application/x-tcl", NR_CacheDirectory::MIME_TABLE[34].type);
    for (size_t i = 0; i < NR_CacheDirectory::MIME_TABLE_SIZE; ++i)
        EXPECT_STRNE("image/png", NR_CacheDirectory::MIME_TABLE[i].type);
    EXPECT_TRUE(NR_CacheDirectory::isTableExtension("png"));
    EXPECT_FALSE(NR_CacheDirectory::isTableExtension("dat"));
    EXPECT_FALSE(NR_CacheDirectory::isTableExtension("itm"));
}

TEST(CacheNaming, LookupsIgnoreTheExtensionUnlessTheIDNamesOne) {
    EXPECT_TRUE(NR_CacheDirectory::names("logo", "logo.png"));
    EXPECT_TRUE(NR_CacheDirectory::names("logoZpng", "logo.png"));
    EXPECT_TRUE(NR_CacheDirectory::names("logoZpng", "logoZpng.png"));
    EXPECT_FALSE(NR_CacheDirectory::names("logoZgif", "logo.png"));
    EXPECT_FALSE(NR_CacheDirectory::names("logoZpng", "logo.dat"));
    EXPECT_TRUE(NR_CacheDirectory::names("logo", "logo.dat"));
    EXPECT_TRUE(NR_CacheDirectory::names("x", "x.itm"));
    EXPECT_TRUE(NR_CacheDirectory::names("noext", "noext"));
    EXPECT_FALSE(NR_CacheDirectory::names("logo", "logo2.png"));
    // The name is cut at its last dot only.
    EXPECT_TRUE(NR_CacheDirectory::names("a.b", "a.b.png"));
    EXPECT_FALSE(NR_CacheDirectory::names("a", "a.b.png"));
    EXPECT_FALSE(NR_CacheDirectory::names("pic.gif", "pic.gif"));
    // A file still being written is never an answer.
    EXPECT_FALSE(NR_CacheDirectory::names("x", "x.tmp"));

    std::vector<std::string> expected{"logo.png", "logo", "logoZpng"};
    EXPECT_EQ(expected, NR_CacheDirectory::namesOf("logo.png"));
    expected = {"x.itm", "x"};
    EXPECT_EQ(expected, NR_CacheDirectory::namesOf("x.itm"));
    expected = {"aZgif.png", "aZgifZpng"}; // the ID aZgif names only .gif files
    EXPECT_EQ(expected, NR_CacheDirectory::namesOf("aZgif.png"));
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

TEST_F(CacheNamingWithCache, FinalNameOfAStoredResource) {
    struct Case {
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
    for (const Case& c : cases)
        EXPECT_EQ(c.name, cache()->finalName(c.id, c.type)) << c.id << " " << c.type;
    EXPECT_EQ("png", cache()->extensionOf("image/x-png"));
    EXPECT_EQ("", cache()->extensionOf("image/png"));
}

TEST_F(CacheNamingWithCache, ConstructorLogsTheTableInOrder) {
    ovtest::StderrCapture capture;
    cache();
    std::string text = capture.text();
    size_t first = text.find("NR_ContentCache: application/xhtml+xml type will have suffix of "
                             "xhtml\n\n");
    size_t png = text.find("NR_ContentCache: image/x-png type will have suffix of png\n\n");
    size_t last = text.find("NR_ContentCache: application/x-tcl type will have suffix of tcl\n\n");
    ASSERT_NE(std::string::npos, first);
    ASSERT_NE(std::string::npos, png);
    ASSERT_NE(std::string::npos, last);
    EXPECT_LT(first, png);
    EXPECT_LT(png, last);
    EXPECT_EQ(std::string::npos, text.find("image/png type"));
    EXPECT_NE(std::string::npos, text.find("{5} NR_ContentCache.cpp:"));
}

} // namespace
