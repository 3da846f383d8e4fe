// dcpack: builds, lists, unpacks and checks the default-content index files ("dynport.dc")
// that a phone ships, the way a content integrator needs them. Reading goes through the
// library's own reader, so what extract delivers is what the phone delivers.
#include "ToolSupport.h"
#include "storage/NR_DefaultContentMgr.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits.h>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

const int EXIT_NOT_FOUND = 1;  // the index holds no such resource
const int EXIT_CANTCREAT = 73; // an output file that cannot be created

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: dcpack [-v] COMMAND ...\n"
                 "\n"
                 "commands:\n"
                 "  create [--follow-links] INDEX DIR\n"
                 "                            pack every file of DIR into the index file INDEX,\n"
                 "                            each under its file name, in name order; a link\n"
                 "                            to a file outside DIR is packed only with\n"
                 "                            --follow-links\n"
                 "  list INDEX                print each entry the phone serves: offset, length\n"
                 "                            and name, with a warning for what it leaves out\n"
                 "  extract INDEX NAME [OUT]  write resource NAME (\"dc:\" may lead it) to OUT,\n"
                 "                            or to standard output when OUT is absent or -\n"
                 "  extract INDEX --all DIR   write every resource to a file of its name in DIR\n"
                 "  verify INDEX              check that every entry lies inside the file, that\n"
                 "                            no entries overlap, that no name is cut short and\n"
                 "                            that every name can be a file name\n"
                 "\n"
                 "list and extract read INDEX as the phone's own reader does. Files are written\n"
                 "whole or not at all (a temporary file renamed into place, keeping the mode of\n"
                 "the file it replaces); a symbolic link is written through to its target, a\n"
                 "FIFO or a device is written directly. Names are shown with bytes outside\n"
                 "printable ASCII as \\xHH.\n"
                 "-v shows the library's diagnostics on standard error.\n"
                 "\n"
                 "exit status: 0 done, 1 no such resource, 64 usage error, 65 an index or a\n"
                 "folder the format cannot hold (list: an index the phone serves nothing of),\n"
                 "66 an input that cannot be read, 73 an output that cannot be created, 74 a\n"
                 "write that failed.\n");
}

// The whole file PATH, or false with REASON.
bool readWhole(const std::string& path, std::string* bytes, std::string* reason) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *reason = std::strerror(errno);
        return false;
    }
    std::ostringstream all;
    all << in.rdbuf();
    if (in.bad()) {
        *reason = "read failed";
        return false;
    }
    *bytes = all.str();
    return true;
}

bool writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// PATH with the symbolic links of its last component followed to the file they name (a link
// to a file that does not exist yet gives that file).
std::string followLinks(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            break;
        std::vector<char> target(PATH_MAX);
        ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
        if (n <= 0 || size_t(n) == target.size())
            break;
        std::string next(target.data(), size_t(n));
        path = next[0] == '/' ? next : (fs::path(path).parent_path() / next).string();
    }
    return path;
}

// Writes BYTES as a user expects of a file they name: through a symbolic link to its target; a
// FIFO or a device directly; a regular file (or a new one) through a temporary file beside it
// that is synced and renamed over it, keeping the mode, owner and group of the file it
// replaces, so a crash leaves the old file or the new one, never a part. Returns 0 or the exit
// status, having reported the reason.
int writeFileSafely(const std::string& path, const std::string& bytes) {
    const std::string target = followLinks(path);
    struct stat st;
    const bool exists = ::stat(target.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) {
        ovtool::error("%s: is a directory", path.c_str());
        return EXIT_CANTCREAT;
    }
    if (exists && !S_ISREG(st.st_mode)) {
        int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd < 0) {
            ovtool::error("%s: cannot open: %s", path.c_str(), std::strerror(errno));
            return EXIT_CANTCREAT;
        }
        bool ok = writeAll(fd, bytes);
        int reason = errno;
        ok = ::close(fd) == 0 && ok;
        if (!ok) {
            ovtool::error("%s: cannot write: %s", path.c_str(), std::strerror(reason));
            return ovtool::EXIT_IOERR;
        }
        return 0;
    }
    std::string temp = target + ".XXXXXX";
    int fd = ::mkstemp(&temp[0]);
    if (fd < 0) {
        ovtool::error("%s: cannot create: %s", path.c_str(), std::strerror(errno));
        return EXIT_CANTCREAT;
    }
    mode_t mode;
    if (exists) {
        if (::fchown(fd, st.st_uid, st.st_gid) != 0)
            (void)::fchown(fd, uid_t(-1), st.st_gid);
        mode = st.st_mode & 07777;
    } else {
        mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    }
    bool ok = ::fchmod(fd, mode) == 0 && writeAll(fd, bytes) && ::fsync(fd) == 0;
    int reason = errno;
    ok = ::close(fd) == 0 && ok;
    if (ok && ::rename(temp.c_str(), target.c_str()) != 0) {
        reason = errno;
        ok = false;
    }
    if (!ok) {
        ::unlink(temp.c_str());
        ovtool::error("%s: cannot write: %s", path.c_str(), std::strerror(reason));
        return ovtool::EXIT_IOERR;
    }
    // The rename itself is made durable with the folder.
    std::string folder = fs::path(target).parent_path().string();
    int dir = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return 0;
}

// A name that can be a file's path inside a folder: not empty, not absolute, no NUL, no ".."
// component and none longer than file systems take ("icons/news.png" is one).
bool isInsideName(const std::string& name) {
    if (name.empty() || name[0] == '/' || name.find('\0') != std::string::npos)
        return false;
    for (size_t start = 0; start <= name.size();) {
        size_t slash = std::min(name.find('/', start), name.size());
        const std::string part = name.substr(start, slash - start);
        if (part == ".." || part.size() > NAME_MAX)
            return false;
        start = slash + 1;
    }
    return name.back() != '/' && name != ".";
}

// Text for a message: bytes outside printable ASCII as \xHH.
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

int create(const std::string& index, const std::string& folder, bool followLinksOut) {
    std::error_code error;
    fs::directory_iterator it(folder, error);
    if (error) {
        ovtool::error("%s: cannot read folder: %s", folder.c_str(), error.message().c_str());
        return ovtool::EXIT_NOINPUT;
    }
    const fs::path inside = fs::weakly_canonical(folder, error);
    std::vector<fs::path> files;
    for (; it != fs::directory_iterator(); it.increment(error)) {
        const fs::path& path = it->path();
        std::error_code ignored;
        // An older index inside the folder is not packed into the new one.
        if (fs::equivalent(path, index, ignored))
            continue;
        if (!fs::is_regular_file(path, ignored)) {
            ovtool::error("%s: not a regular file; the index holds files of one folder only",
                          path.c_str());
            return ovtool::EXIT_DATAERR;
        }
        if (fs::is_symlink(path, ignored) && !followLinksOut &&
            fs::canonical(path, ignored).parent_path() != inside) {
            ovtool::error("%s: a link to a file outside %s; give --follow-links to pack it",
                          path.c_str(), folder.c_str());
            return ovtool::EXIT_DATAERR;
        }
        if (!isInsideName(path.filename().string())) {
            ovtool::error("%s: no file name the phone could be given", path.c_str());
            return ovtool::EXIT_DATAERR;
        }
        files.push_back(path);
    }
    if (error) {
        ovtool::error("%s: cannot read folder: %s", folder.c_str(), error.message().c_str());
        return ovtool::EXIT_NOINPUT;
    }
    std::sort(files.begin(), files.end());
    if (files.size() > static_cast<size_t>(SHRT_MAX)) {
        ovtool::error("%s: %zu files; an index holds at most %d", folder.c_str(), files.size(),
                      SHRT_MAX);
        return ovtool::EXIT_DATAERR;
    }

    DefaultContentResources resources;
    for (const fs::path& path : files) {
        std::string bytes, reason;
        if (!readWhole(path.string(), &bytes, &reason)) {
            ovtool::error("%s: cannot read: %s", path.c_str(), reason.c_str());
            return ovtool::EXIT_NOINPUT;
        }
        resources.emplace_back(path.filename().string(), std::move(bytes));
    }
    std::ostringstream out;
    if (!writeDefaultContentIndex(out, resources)) {
        ovtool::error("%s: the files add up to more than an index can address (2 GB)",
                      folder.c_str());
        return ovtool::EXIT_DATAERR;
    }
    int rc = writeFileSafely(index, out.str());
    if (rc == 0 && ovtool::verbose())
        std::fprintf(ovtool::err(), "dcpack: %s: %zu resources\n", index.c_str(), resources.size());
    return rc;
}

// One entry as the file holds it, before the reader cuts its name.
struct RawEntry {
    std::string rawName;
    std::string name; // as the reader sees it
    int32_t length;
    int32_t offset;
};

// An index file as read, and its directory as the file holds it.
struct Directory {
    std::string bytes;
    std::vector<RawEntry> entries;
    int count = 0;  // as the header gives it
    size_t end = 0; // where the entries end
};

// Reads the directory of DIR's bytes as the library reads it. False, with PROBLEM, when it is
// no index at all (no magic, a header cut short); a directory that ends before the count says
// keeps the entries read whole, as the phone's reader does, and says so in PROBLEM.
bool readDirectory(Directory* dir, std::string* problem) {
    std::istringstream in(dir->bytes);
    char first = 0, second = 0;
    in >> first >> second;
    if (!in || first != 'd' || second != 'c') {
        *problem = "not an index file (no \"dc\" at its start)";
        return false;
    }
    readShort(in);
    readInt(in);
    dir->count = readShort(in);
    if (!in) {
        *problem = "the header ends early";
        return false;
    }
    for (int i = 0; i < dir->count; ++i) {
        RawEntry entry;
        const size_t nameLength = static_cast<unsigned short>(readShort(in));
        entry.rawName.resize(nameLength);
        in.read(&entry.rawName[0], static_cast<std::streamsize>(nameLength));
        entry.length = readInt(in);
        entry.offset = readInt(in);
        if (!in) {
            *problem = "the directory ends after " + std::to_string(i) + " of " +
                       std::to_string(dir->count) + " entries";
            dir->end = dir->bytes.size();
            return true;
        }
        entry.name = entry.rawName.substr(0, entry.rawName.find('\0'));
        dir->entries.push_back(entry);
    }
    dir->end = static_cast<size_t>(in.tellg());
    return true;
}

// Reads INDEX and its directory; 0, or the exit status after reporting why not. WARNING gets
// what the phone's reader passes over.
int loadDirectory(const std::string& index, Directory* dir, std::string* warning) {
    std::string reason;
    if (!readWhole(index, &dir->bytes, &reason)) {
        ovtool::error("%s: cannot read: %s", index.c_str(), reason.c_str());
        return ovtool::EXIT_NOINPUT;
    }
    warning->clear();
    if (!readDirectory(dir, warning)) {
        ovtool::error("%s: %s", index.c_str(), warning->c_str());
        return ovtool::EXIT_DATAERR;
    }
    return 0;
}

// The entries the phone serves from INDEX, by name, read with the library's own reader.
int list(const std::string& index) {
    Directory dir;
    std::string warning;
    if (int rc = loadDirectory(index, &dir, &warning))
        return rc;
    if (dir.count < 0) {
        ovtool::error("%s: negative entry count %d: the phone serves nothing of it", index.c_str(),
                      dir.count);
        return ovtool::EXIT_DATAERR;
    }
    if (!warning.empty())
        ovtool::error("warning: %s: %s; the phone serves the entries read whole", index.c_str(),
                      warning.c_str());
    DefaultContentIndex served(index);
    for (const auto& entry : served.getItems()) {
        const DefaultContentIndexItem& item = entry.second;
        std::printf("%10d %10d  %s\n", item.mOffset, item.mLength, printable(item.mName).c_str());
    }
    return 0;
}

int verify(const std::string& index) {
    Directory dir;
    std::string warning;
    if (int rc = loadDirectory(index, &dir, &warning))
        return rc;
    const std::vector<RawEntry>& entries = dir.entries;
    int problems = 0;
    auto report = [&](const std::string& text) {
        ovtool::error("%s: %s", index.c_str(), text.c_str());
        ++problems;
    };
    if (!warning.empty())
        report(warning);
    if (dir.count < 0)
        report("negative entry count " + std::to_string(dir.count) + ": the reader sees no entry");

    const int64_t size = static_cast<int64_t>(dir.bytes.size());
    std::map<std::string, size_t> seen;
    std::vector<size_t> inside; // entries whose bytes lie inside the file, to check overlaps
    for (size_t i = 0; i < entries.size(); ++i) {
        const RawEntry& e = entries[i];
        const std::string name = "entry " + std::to_string(i) + " \"" + printable(e.name) + "\"";
        if (e.name.size() != e.rawName.size())
            report(name + ": its name \"" + printable(e.rawName) +
                   "\" holds a zero byte; the reader cuts it there");
        if (e.name.empty())
            report(name + ": it has no name; the phone never serves it");
        else if (!isInsideName(e.name))
            report(name + ": no file name (absolute, a \"..\" in it, or a part longer than " +
                   std::to_string(NAME_MAX) + " bytes); extract --all passes over it");
        auto earlier = seen.find(e.name);
        if (earlier != seen.end())
            report(name + ": the name of entry " + std::to_string(earlier->second) +
                   " again; the reader keeps only this one");
        seen[e.name] = i;
        const int64_t end = int64_t(e.offset) + e.length;
        if (e.offset < 0 || e.length < 0 || end > size) {
            report(name + ": bytes " + std::to_string(e.offset) + " to " + std::to_string(end) +
                   " lie outside the file of " + std::to_string(size) + " bytes");
        } else if (e.length > 0 && e.offset < static_cast<int64_t>(dir.end)) {
            report(name + ": its bytes start inside the directory, which ends at " +
                   std::to_string(dir.end));
        } else if (e.length > 0) {
            inside.push_back(i);
        }
    }
    std::sort(inside.begin(), inside.end(),
              [&](size_t a, size_t b) { return entries[a].offset < entries[b].offset; });
    // Against the entry reaching furthest so far: each overlap is told at least once.
    size_t furthest = 0;
    for (size_t k = 0; k < inside.size(); ++k) {
        const RawEntry& e = entries[inside[k]];
        if (k > 0) {
            const RawEntry& f = entries[furthest];
            if (e.offset < int64_t(f.offset) + f.length)
                report("entries " + std::to_string(furthest) + " \"" + printable(f.name) +
                       "\" and " + std::to_string(inside[k]) + " \"" + printable(e.name) +
                       "\" overlap");
            if (int64_t(e.offset) + e.length <= int64_t(f.offset) + f.length)
                continue;
        }
        furthest = inside[k];
    }
    if (problems)
        return ovtool::EXIT_DATAERR;
    std::printf("%s: %zu entries, ok\n", index.c_str(), entries.size());
    return 0;
}

// Reads resource ITEM of INDEX, reporting what went wrong.
bool readItem(const std::string& index, const DefaultContentIndexItem& item, std::string* bytes) {
    if (DefaultContentIndex::readResource(index, item, bytes))
        return true;
    ovtool::error("%s: the bytes of \"%s\" (%d at %d) do not lie inside the file", index.c_str(),
                  printable(item.mName).c_str(), item.mLength, item.mOffset);
    return false;
}

// The index of INDEX as the library reads it; false (reported) when it cannot be one.
bool openIndex(const std::string& index, std::unique_ptr<DefaultContentIndex>* out, int* rc) {
    // The file is checked first for the reasons the library's reader does not tell.
    Directory dir;
    std::string warning;
    *rc = loadDirectory(index, &dir, &warning);
    if (*rc != 0)
        return false;
    if (!warning.empty())
        ovtool::error("warning: %s: %s; the phone serves the entries read whole", index.c_str(),
                      warning.c_str());
    out->reset(new DefaultContentIndex(index));
    return true;
}

int extractOne(const std::string& index, std::string name, const std::string& output) {
    std::unique_ptr<DefaultContentIndex> contents;
    int rc = 0;
    if (!openIndex(index, &contents, &rc))
        return rc;
    const ovTypes::ID id(name);
    if (id.isDefaultContentID())
        name = id.eraseProtocol();
    const DefaultContentIndexItem* item = contents->find(name);
    if (!item) {
        ovtool::error("%s: no resource \"%s\"", index.c_str(), printable(name).c_str());
        return EXIT_NOT_FOUND;
    }
    std::string bytes;
    if (!readItem(index, *item, &bytes))
        return ovtool::EXIT_DATAERR;
    if (output.empty() || output == "-") {
        std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return 0;
    }
    return writeFileSafely(output, bytes);
}

int extractAll(const std::string& index, const std::string& folder) {
    std::unique_ptr<DefaultContentIndex> contents;
    int rc = 0;
    if (!openIndex(index, &contents, &rc))
        return rc;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        ovtool::error("%s: cannot create folder: %s", folder.c_str(), error.message().c_str());
        return EXIT_CANTCREAT;
    }
    for (const auto& entry : contents->getItems()) {
        const DefaultContentIndexItem& item = entry.second;
        // A name from the file never chooses where outside FOLDER a file goes.
        if (!isInsideName(item.mName)) {
            ovtool::error("%s: \"%s\" is no file name; not extracted", index.c_str(),
                          printable(item.mName).c_str());
            rc = ovtool::EXIT_DATAERR;
            continue;
        }
        const fs::path file = fs::path(folder) / std::string(item.mName);
        fs::create_directories(file.parent_path(), error);
        // Nor does a link already in FOLDER: the user named the folder, not the files.
        std::error_code ignored;
        const fs::path real = fs::weakly_canonical(file, ignored);
        const fs::path base = fs::canonical(folder, ignored);
        if (fs::is_symlink(file, ignored) ||
            real.string().compare(0, base.string().size() + 1, base.string() + "/") != 0) {
            ovtool::error("%s: a link lies on the way; not extracted", file.c_str());
            rc = ovtool::EXIT_DATAERR;
            continue;
        }
        std::string bytes;
        if (!readItem(index, item, &bytes)) {
            rc = ovtool::EXIT_DATAERR;
            continue;
        }
        int written = writeFileSafely(file.string(), bytes);
        if (written != 0)
            rc = written;
    }
    return rc;
}

int run(int argc, char** argv) {
    if (argc < 2)
        return ovtool::usageError("missing COMMAND (create, list, extract or verify)");
    const std::string command = argv[1];
    const int rest = argc - 2;
    if (command == "create") {
        bool follow = rest >= 1 && std::strcmp(argv[2], "--follow-links") == 0;
        int at = follow ? 3 : 2;
        if (argc - at < 2)
            return ovtool::usageError("create: missing %s", argc - at < 1 ? "INDEX DIR" : "DIR");
        if (argc - at > 2)
            return ovtool::usageError("create: unexpected argument: %s", argv[at + 2]);
        return create(argv[at], argv[at + 1], follow);
    }
    if (command == "list" || command == "verify") {
        if (rest < 1)
            return ovtool::usageError("%s: missing INDEX", command.c_str());
        if (rest > 1)
            return ovtool::usageError("%s: unexpected argument: %s", command.c_str(), argv[3]);
        return command == "list" ? list(argv[2]) : verify(argv[2]);
    }
    if (command == "extract") {
        if (rest < 2)
            return ovtool::usageError("extract: missing %s", rest < 1 ? "INDEX NAME" : "NAME");
        if (std::strcmp(argv[3], "--all") == 0) {
            if (rest < 3)
                return ovtool::usageError("extract --all: missing DIR");
            if (rest > 3)
                return ovtool::usageError("extract --all: unexpected argument: %s", argv[5]);
            return extractAll(argv[2], argv[4]);
        }
        if (rest > 3)
            return ovtool::usageError("extract: unexpected argument: %s", argv[5]);
        return extractOne(argv[2], argv[3], rest == 3 ? argv[4] : "");
    }
    return ovtool::usageError("unknown command: %s", argv[1]);
}

} // namespace

int main(int argc, char** argv) {
    return ovtool::runTool(argc, argv, usage, run);
}
