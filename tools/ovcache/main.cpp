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
#include "utility/NR_Constants.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <set>
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
                 "exit status: 0 success, 1 no such object, the directory could not be\n"
                 "read or an unfinished file could not be deleted, 64 usage error, 66 no\n"
                 "such device root or cache directory, 74 output error.\n");
}

int usageError() {
    std::fprintf(ovtool::err(), "usage: ovcache [-v] DEVICE_ROOT|--cache-dir DIR COMMAND [ARG]\n"
                                "(ovcache --help tells more)\n");
    return ovtool::EXIT_USAGE;
}

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
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
            std::printf("%-40s %9ld  not accounted\n", name.c_str(), size);
            continue;
        }
        std::set<std::string> parents;
        for (const std::string& key : NR_CacheDirectory::namesOf(name)) {
            std::set<std::string> some = policy->parentsOf(key);
            parents.insert(some.begin(), some.end());
        }
        std::string by;
        for (const std::string& parent : parents)
            by += (by.empty() ? "" : ",") + parent;
        std::printf("%-40s %9ld  queue %2d  %s%s\n", name.c_str(), size, type,
                    referenced ? "referenced by " : "unreferenced", by.c_str());
    }
    std::printf("%zu files, %ld blocks of %d bytes, %ld referenced, limit %ld\n", names.size(),
                policy->blocksUsed(), policy->getBlockSize(), policy->referencedUsed(),
                policy->maxCacheBlocks());
    return 0;
}

// Prints the stream form of OBJECT as read back from ID's file of SUFFIX; false when there is
// none.
template <typename T>
bool showObject(NR_ContentCache* cache, const std::string& id, const char* suffix) {
    std::unique_ptr<T> object(new T(id));
    if (cache->get(id, *object) != 0)
        return false;
    std::printf("== %s%s\n", id.c_str(), suffix);
    std::fflush(stdout);
    object->store(std::cout);
    std::cout.flush();
    return true;
}

int show(NR_ContentCache* cache, const std::string& id) {
    if (!NR_CacheDirectory::isSafeID(id)) {
        ovtool::error("%s: not a content ID of the cache", id.c_str());
        return ovtool::EXIT_USAGE;
    }
    bool found = showObject<Container>(cache, id, ".cnt");
    found = showObject<Channel>(cache, id, ".chn") || found;
    found = showObject<Item>(cache, id, ".itm") || found;
    if (!found) {
        ovtool::error("%s: no container, channel or item in %s", id.c_str(),
                      NR_ContentCache::getCachePath().c_str());
        return 1;
    }
    return 0;
}

int run(int argc, char** argv) {
    int at = 1;
    std::string cacheDir;
    if (argc >= 3 && std::strcmp(argv[1], "--cache-dir") == 0) {
        cacheDir = argv[2];
        at = 3;
    } else if (argc >= 2 && argv[1][0] != '-') {
        ovplatform::setDeviceRoot(argv[1]);
        at = 2;
    } else {
        if (argc >= 2)
            ovtool::error("%s: unknown option", argv[1]);
        return usageError();
    }
    if (argc <= at) {
        ovtool::error("no command given");
        return usageError();
    }
    const std::string command = argv[at];
    const int arguments = argc - at - 1;
    if (command != "list" && command != "show" && command != "usage" && command != "sync") {
        ovtool::error("%s: unknown command", command.c_str());
        return usageError();
    }
    if (arguments != (command == "show" ? 1 : 0)) {
        ovtool::error("%s: %s", command.c_str(),
                      command == "show" ? "needs one ID" : "takes no arguments");
        return usageError();
    }

    if (cacheDir.empty()) {
        if (!isDirectory(argv[1])) {
            ovtool::error("%s: no such device root", argv[1]);
            return ovtool::EXIT_NOINPUT;
        }
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
