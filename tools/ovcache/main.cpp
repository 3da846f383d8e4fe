// ovcache: looks into the content cache of a device root (or a cache directory given as it is):
// its files with their class, queue and references, the stored form of an object, the usage
// as the storage-status event reports it, and sync.
#include "OVPlatform.h"
#include "ToolSupport.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "storage/NR_CacheDirectory.h"
#include "storage/NR_ContentCache.h"
#include "storage/NR_ContentCachePolicy.h"
#include "types/AttrMap.h"
#include "utility/NR_Constants.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: ovcache [-v] DEVICE_ROOT COMMAND [ARG]\n"
                 "       ovcache [-v] --cache-dir DIR COMMAND [ARG]\n"
                 "\n"
                 "commands:\n"
                 "  list      every file with its size, queue, and the objects referencing it\n"
                 "  show ID   the stored form of the container, channel or item ID, as the\n"
                 "            library reads it back\n"
                 "  usage     total, used and free, as the storage-status event reports them\n"
                 "  sync      rebuild the references from the files, deleting unfinished\n"
                 "            .tmp files that no writer holds, and report the usage\n"
                 "\n"
                 "The cache is the one under DEVICE_ROOT, or DIR when --cache-dir is given.\n"
                 "list and usage rebuild the accounting in this process as sync does, but\n"
                 "delete nothing; like any process that opens the cache they rewrite\n"
                 "/tmp/ref.txt (under the device root, if one is given).\n"
                 "\n"
                 "-v shows the library's diagnostics on standard error.\n"
                 "\n"
                 "File names are shown with bytes outside printable ASCII as \\xHH.\n"
                 "\n"
                 "exit status: 0 success, 1 no such object, the directory could not be\n"
                 "read or an unfinished file could not be deleted, 64 usage error, 65 show\n"
                 "of a file that is no stored object, 66 no such device root (or one that\n"
                 "is not a directory) or cache directory, 74 output error.\n");
}

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A name for the terminal: bytes outside printable ASCII, and the backslash, as \xHH.
std::string printable(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

// Rebuilds the accounting without deleting anything; false (reported) when the directory
// cannot be read.
bool rebuild(NR_ContentCache* cache) {
    if (cache->sync(false) == 0)
        return true;
    ovtool::error("%s: cannot read the directory: %s", NR_ContentCache::getCachePath().c_str(),
                  std::strerror(errno));
    return false;
}

void printUsage(NR_ContentCache* cache) {
    std::printf("total %ld K\nused %ld K\nfree %ld K\n", cache->cacheSize(), cache->cacheUsed(),
                cache->cacheRemaining());
}

int list(NR_ContentCache* cache) {
    if (!rebuild(cache))
        return 1;
    std::vector<std::string> names;
    if (NR_ContentCache::directory().list(names) != 0) {
        ovtool::error("%s: cannot read the directory: %s", NR_ContentCache::getCachePath().c_str(),
                      std::strerror(errno));
        return 1;
    }
    std::sort(names.begin(), names.end());
    NR_ContentCachePolicy* policy = NR_ContentCachePolicy::getInstance();
    for (const std::string& name : names) {
        struct stat st;
        long size = ::stat(NR_ContentCache::directory().pathOf(name).c_str(), &st) == 0
                        ? long(st.st_size)
                        : -1;
        int type = -1;
        bool referenced = false;
        if (!policy->queueOf(name, type, referenced)) {
            std::printf("%-40s %9ld  not accounted\n", printable(name).c_str(), size);
            continue;
        }
        std::set<std::string> parents;
        for (const std::string& key : NR_CacheDirectory::namesOf(name)) {
            std::set<std::string> some = policy->parentsOf(key);
            parents.insert(some.begin(), some.end());
        }
        std::string by;
        for (const std::string& parent : parents)
            by += (by.empty() ? "" : ",") + printable(parent);
        std::printf("%-40s %9ld  queue %2d  %s%s\n", printable(name).c_str(), size, type,
                    referenced ? "referenced by " : "unreferenced", by.c_str());
    }
    std::printf("%zu files, %ld blocks of %d bytes, %ld referenced, limit %ld\n", names.size(),
                policy->blocksUsed(), policy->getBlockSize(), policy->referencedUsed(),
                policy->maxCacheBlocks());
    return 0;
}

// Whether the object file NAME holds at least one of the keys an object of type T stores: what
// holds none (an image under an object's name, say) is no stored object.
template <typename T> bool looksLikeObject(const std::string& name, const std::string& id) {
    std::string bytes;
    if (!NR_ContentCache::directory().readObject(name, bytes))
        return true; // the library says why it cannot be read
    AttrMap file(false), stored(false);
    std::istringstream in(bytes);
    file.load(in);
    T(id).storeIntoAttrs(stored);
    const AttrMap::KeyMap* keys = file.defaultCategory();
    const AttrMap::KeyMap* known = stored.defaultCategory();
    if (!keys || !known)
        return false;
    for (const auto& entry : *keys) {
        if (known->count(entry.first))
            return true;
    }
    return false;
}

// Prints the stream form of OBJECT as read back from ID's file of SUFFIX; 0 when shown, 1 when
// there is none, EXIT_DATAERR when the file is no stored object.
template <typename T>
int showObject(NR_ContentCache* cache, const std::string& id, const char* suffix) {
    std::unique_ptr<T> object(new T(id));
    if (cache->get(id, *object) != 0)
        return 1;
    const std::string name = id + suffix;
    if (!looksLikeObject<T>(name, id)) {
        ovtool::error("%s: does not look like a stored object: it holds none of its keys",
                      NR_ContentCache::directory().pathOf(printable(name)).c_str());
        return ovtool::EXIT_DATAERR;
    }
    std::printf("== %s\n", printable(name).c_str());
    std::fflush(stdout);
    object->store(std::cout);
    std::cout.flush();
    return 0;
}

int show(NR_ContentCache* cache, const std::string& id) {
    if (!NR_CacheDirectory::isSafeID(id)) {
        ovtool::error("%s: not a content ID of the cache", printable(id).c_str());
        return ovtool::EXIT_USAGE;
    }
    int results[] = {showObject<Container>(cache, id, ".cnt"),
                     showObject<Channel>(cache, id, ".chn"), showObject<Item>(cache, id, ".itm")};
    int rc = 1;
    for (int result : results) {
        if (result == 0 || (result != 1 && rc == 1))
            rc = result;
    }
    if (rc == 1)
        ovtool::error("%s: no container, channel or item in %s", printable(id).c_str(),
                      NR_ContentCache::getCachePath().c_str());
    return rc;
}

int run(int argc, char** argv) {
    int at = 1;
    std::string cacheDir;
    if (argc >= 2 && std::strcmp(argv[1], "--cache-dir") == 0) {
        if (argc < 3)
            return ovtool::usageError("--cache-dir: missing DIR");
        cacheDir = argv[2];
        at = 3;
    } else if (argc >= 2 && argv[1][0] != '-') {
        at = 2;
    } else if (argc >= 2) {
        return ovtool::usageError("unknown option: %s", argv[1]);
    } else {
        return ovtool::usageError("missing DEVICE_ROOT and COMMAND");
    }
    if (argc <= at)
        return ovtool::usageError("missing COMMAND (list, show, usage or sync)");
    const std::string command = argv[at];
    const int arguments = argc - at - 1;
    if (command != "list" && command != "show" && command != "usage" && command != "sync")
        return ovtool::usageError("unknown command: %s", command.c_str());
    if (command == "show" && arguments == 0)
        return ovtool::usageError("show: missing ID");
    if (arguments > (command == "show" ? 1 : 0))
        return ovtool::usageError("%s: unexpected argument: %s", command.c_str(), argv[argc - 1]);

    if (cacheDir.empty()) {
        if (int rc = ovtool::useDeviceRoot(argv[1], false))
            return rc;
        cacheDir = ovplatform::devicePath(NR_Constants::DEFAULT_CACHE_PATH);
    }
    // The cache makes a missing directory: a mistyped path must not be created.
    if (!isDirectory(cacheDir)) {
        ovtool::error("%s: no such cache directory", cacheDir.c_str());
        return ovtool::EXIT_NOINPUT;
    }
    NR_ContentCache::setCachePath(cacheDir);
    NR_ContentCache* cache = NR_ContentCache::getInstance();

    int rc = 0;
    if (command == "list") {
        rc = list(cache);
    } else if (command == "show") {
        rc = show(cache, argv[at + 1]);
    } else if (command == "usage") {
        if (rebuild(cache))
            printUsage(cache);
        else
            rc = 1;
    } else {
        NR_ContentCache::Undeleted undeleted;
        if (cache->sync(true, &undeleted) == 0) {
            printUsage(cache);
        } else if (undeleted.empty()) {
            ovtool::error("%s: sync could not read the directory", cacheDir.c_str());
            rc = 1;
        } else {
            for (const auto& file : undeleted)
                ovtool::error("%s: cannot delete the unfinished file: %s",
                              NR_ContentCache::directory().pathOf(file.first).c_str(),
                              std::strerror(file.second));
            rc = 1;
        }
    }
    return rc;
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
