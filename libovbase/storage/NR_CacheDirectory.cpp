#include "storage/NR_CacheDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

const NR_CacheDirectory::MimeType NR_CacheDirectory::MIME_TABLE[] = {
    {"application/xhtml+xml", "xhtml"},
    {"text/html", "html"},
    {"text/plain", "txt"},
    {"text/css", "css"},
    {"image/gif", "gif"},
    {"image/jpeg", "jpg"},
    {"image/x-xbitmap", "xbm"},
    {"image/x-xpixmap", "xpm"},
    {"image/x-png", "png"},
    {"image/ief", "ief"},
    {"image/tiff", "tiff"},
    {"image/rgb", "rgb"},
    {"image/x-ms-bmp", "bmp"},
    {"image/svg+xml", "svg"},
    {"audio/basic", "au"},
    {"audio/x-aiff", "aif"},
    {"audio/x-wav", "wav"},
    {"audio/x-mpeg", "mpa"},
    {"audio/x-mpeg2", "mpa2"},
    {"application/x-pn-realaudio", "ram"},
    {"video/mpeg", "mpg"},
    {"video/mpeg2", "mpv2"},
    {"video/quicktime", "qt"},
    {"video/x-msvideo", "avi"},
    {"application/postscript", "ps"},
    {"application/rtf", "rtf"},
    {"application/pdf", "pdf"},
    {"application/x-gtar", "gtar"},
    {"application/x-tar", "tar"},
    {"application/zip", "zip"},
    {"text/javascript", "js"},
    {"application/x-sh", "sh"},
    {"application/x-csh", "csh"},
    {"application/x-perl", "pl"},
    {"application/x-tcl", "tcl"},
};
const size_t NR_CacheDirectory::MIME_TABLE_SIZE = sizeof MIME_TABLE / sizeof MIME_TABLE[0];

namespace {

const char* const kTempExtension = "tmp";

// A directory's modification time is trusted to show every later change only once the clock
// that stamps it has moved this far past it: file systems stamp in steps of up to 2 seconds.
const time_t kSettleSeconds = 2;

// The clock file systems take their timestamps from.
timespec fileClockNow() {
    timespec now = {0, 0};
#ifdef CLOCK_REALTIME_COARSE
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
#else
    ::clock_gettime(CLOCK_REALTIME, &now);
#endif
    return now;
}

void closeKeepingErrno(int fd) {
    int error = errno;
    ::close(fd);
    errno = error;
}

// NAME cut at its last '.': BASE before it, EXT after it; false when NAME has no '.'.
bool splitName(const std::string& name, std::string& base, std::string& ext) {
    std::string::size_type dot = name.rfind('.');
    if (dot == std::string::npos) {
        base = name;
        ext.clear();
        return false;
    }
    base = name.substr(0, dot);
    ext = name.substr(dot + 1);
    return true;
}

} // namespace

bool NR_CacheDirectory::isTableExtension(const std::string& ext) {
    for (size_t i = 0; i < MIME_TABLE_SIZE; ++i) {
        if (ext == MIME_TABLE[i].extension)
            return true;
    }
    return false;
}

bool NR_CacheDirectory::splitExtension(const std::string& id, std::string& stem, std::string& ext) {
    std::string::size_type z = id.rfind('Z');
    if (z == std::string::npos || !isTableExtension(id.substr(z + 1)))
        return false;
    stem = id.substr(0, z);
    ext = id.substr(z + 1);
    return true;
}

bool NR_CacheDirectory::isSafeID(const std::string& id) {
    return !id.empty() && id != "." && id != ".." && id.find('/') == std::string::npos &&
           id.find('\0') == std::string::npos;
}

bool NR_CacheDirectory::names(const std::string& id, const std::string& name) {
    std::string base, ext;
    bool dotted = splitName(name, base, ext);
    if (dotted && ext == kTempExtension)
        return false;
    std::string stem, wanted;
    if (splitExtension(id, stem, wanted))
        return dotted && ext == wanted && (base == stem || base == id);
    return base == id;
}

std::vector<std::string> NR_CacheDirectory::namesOf(const std::string& name) {
    std::vector<std::string> result{name};
    std::string base, ext;
    bool dotted = splitName(name, base, ext);
    if (base != name && names(base, name))
        result.push_back(base);
    if (dotted && isTableExtension(ext))
        result.push_back(base + "Z" + ext);
    return result;
}

bool NR_CacheDirectory::Stamp::operator==(const Stamp& other) const {
    return device == other.device && inode == other.inode &&
           modifiedSeconds == other.modifiedSeconds &&
           modifiedNanoseconds == other.modifiedNanoseconds;
}

NR_CacheDirectory::~NR_CacheDirectory() {
    closeDirectory();
    for (const auto& lock : mLocks)
        ::close(lock.second);
}

void NR_CacheDirectory::setPath(const std::string& dir) {
    closeDirectory();
    mPath = dir;
    if (mPath.empty() || mPath.back() != '/')
        mPath += '/';
    mIndexed = false;
    mByBase.clear();
}

bool NR_CacheDirectory::stamp(Stamp& out) {
    // Through a descriptor kept open, which spares a path lookup on every change and lookup; a
    // directory removed since (no links left) is looked up by its path again.
    struct stat st;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (mFd < 0)
            mFd = ::open(mPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (mFd < 0)
            return false;
        if (::fstat(mFd, &st) == 0 && st.st_nlink > 0) {
            out.device = st.st_dev;
            out.inode = st.st_ino;
            out.modifiedSeconds = st.st_mtim.tv_sec;
            out.modifiedNanoseconds = st.st_mtim.tv_nsec;
            out.settled = st.st_mtim.tv_sec + kSettleSeconds <= fileClockNow().tv_sec;
            return true;
        }
        closeDirectory();
    }
    return false;
}

void NR_CacheDirectory::closeDirectory() {
    if (mFd >= 0)
        ::close(mFd);
    mFd = -1;
}

bool NR_CacheDirectory::current() {
    Stamp now;
    if (!stamp(now)) {
        mIndexed = false;
        return false;
    }
    // The cache's own changes leave the stamp to be taken here: taken now, it may hide a change
    // of another process made since, so it counts as unsettled.
    if (mIndexed && mStampPending) {
        mStamp = now;
        mStamp.settled = false;
        mStampPending = false;
    }
    // An unsettled stamp may hide a change made in the same tick; once the tick has surely
    // passed, one more reading gives a stamp that hides nothing.
    if (mIndexed && now == mStamp && (mStamp.settled || !now.settled))
        return true;
    std::vector<std::string> ignored;
    return list(ignored) == 0;
}

int NR_CacheDirectory::list(std::vector<std::string>& names) {
    names.clear();
    mIndexed = false;
    mByBase.clear();
    Stamp before;
    if (!stamp(before))
        return -1;
    DIR* dir = ::opendir(mPath.c_str());
    if (!dir)
        return -1;
    while (struct dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    ::closedir(dir);
    // Stamped before reading: a change made meanwhile shows at the next lookup.
    mStamp = before;
    mStampPending = false;
    mNextOrder = 0;
    for (const std::string& name : names)
        indexAdd(name);
    mIndexed = true;
    return 0;
}

int NR_CacheDirectory::find(const std::string& id, std::string& name) {
    if (!current())
        return -1;
    const Entry* best = lookup(id);
    if (!best && !mStamp.settled) { // another process's file may hide behind an unsettled stamp
        std::vector<std::string> ignored;
        if (list(ignored) != 0)
            return -1;
        best = lookup(id);
    }
    if (!best)
        return -1;
    name = best->name;
    return 0;
}

const NR_CacheDirectory::Entry* NR_CacheDirectory::lookup(const std::string& id) const {
    const Entry* best = nullptr;
    std::string stem, ext;
    std::string bases[2] = {id, splitExtension(id, stem, ext) ? stem : id};
    for (int i = 0; i < (bases[0] == bases[1] ? 1 : 2); ++i) {
        auto it = mByBase.find(bases[i]);
        if (it == mByBase.end())
            continue;
        for (const Entry& entry : it->second) {
            if ((!best || entry.order < best->order) && names(id, entry.name))
                best = &entry;
        }
    }
    return best;
}

void NR_CacheDirectory::endChange(const std::string& added, const std::string& removed) {
    // The new stamp is taken by the next lookup, unsettled: a change of another process made
    // meanwhile is found by a lookup that misses, or by the first one after the stamp settles.
    if (!mIndexed)
        return;
    mStampPending = true;
    if (!removed.empty())
        indexRemove(removed);
    if (!added.empty())
        indexAdd(added);
}

int NR_CacheDirectory::openLocked(const std::string& name, bool* fresh) {
    const std::string path = pathOf(name);
    for (int attempt = 0; attempt < 3; ++attempt) {
        // Not through a link, and never waiting on a FIFO left under the name. Made anew when
        // it can be, so that nothing needs to be cut away.
        const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        int fd = ::open(path.c_str(), flags | O_EXCL, 0666);
        *fresh = fd >= 0;
        if (fd < 0 && errno == EEXIST)
            fd = ::open(path.c_str(), flags, 0666);
        if (fd < 0)
            return -1;
        struct stat st;
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0 || ::fstat(fd, &st) != 0) {
            closeKeepingErrno(fd);
            return -1;
        }
        if (!S_ISREG(st.st_mode)) {
            ::close(fd);
            errno = EINVAL;
            return -1;
        }
        if (st.st_nlink > 0)
            return fd;
        ::close(fd); // swept by a sync between the open and the lock: made anew
    }
    errno = EAGAIN;
    return -1;
}

void NR_CacheDirectory::release(const std::string& name) {
    auto it = mLocks.find(name);
    if (it == mLocks.end())
        return;
    closeKeepingErrno(it->second);
    mLocks.erase(it);
}

bool NR_CacheDirectory::create(const std::string& name, std::ofstream& out) {
    release(name); // a stream on it that was never handed back
    bool fresh = false;
    int fd = openLocked(name, &fresh);
    if (fd < 0)
        return false;
    out.open(pathOf(name), std::ios::out | std::ios::trunc | std::ios::binary);
    if (!out.is_open()) {
        closeKeepingErrno(fd);
        return false;
    }
    mLocks[name] = fd;
    endChange(name, std::string());
    return true;
}

bool NR_CacheDirectory::writeFile(const std::string& temp, const std::string& name,
                                  const std::string& data) {
    release(temp);
    bool fresh = false;
    int fd = openLocked(temp, &fresh);
    bool ok = fd >= 0 && (fresh || ::ftruncate(fd, 0) == 0);
    for (size_t done = 0; ok && done < data.size();) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = ENOSPC;
            ok = false;
        } else {
            done += size_t(n);
        }
    }
    // Renamed while still locked, so that no sync can take it between the two.
    const std::string tempPath = pathOf(temp);
    if (ok && std::rename(tempPath.c_str(), pathOf(name).c_str()) != 0)
        ok = false;
    int error = errno;
    if (!ok && fd >= 0)
        ::unlink(tempPath.c_str());
    if (fd >= 0 && ::close(fd) != 0 && ok) {
        error = errno;
        ok = false;
    }
    endChange(ok ? name : std::string(), std::string());
    errno = error;
    return ok;
}

bool NR_CacheDirectory::rename(const std::string& from, const std::string& to) {
    bool ok = std::rename(pathOf(from).c_str(), pathOf(to).c_str()) == 0;
    int error = errno;
    if (ok)
        release(from);
    endChange(ok ? to : std::string(), ok ? from : std::string());
    errno = error;
    return ok;
}

bool NR_CacheDirectory::unlink(const std::string& name) {
    bool ok = ::unlink(pathOf(name).c_str()) == 0;
    int error = errno;
    if (ok)
        release(name);
    endChange(std::string(), ok ? name : std::string());
    errno = error;
    return ok;
}

int NR_CacheDirectory::removeUnfinished(const std::string& name) {
    const std::string path = pathOf(name);
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) { // gone, or a link or something else no writer could be holding
        if (errno == ENOENT)
            return 1;
        return unlink(name) || errno == ENOENT ? 1 : -1;
    }
    int rc = 0;
    struct stat held, now;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        rc = errno == EWOULDBLOCK ? 0 : -1;
    } else if (::fstat(fd, &held) == 0 && ::lstat(path.c_str(), &now) == 0 &&
               held.st_dev == now.st_dev && held.st_ino == now.st_ino) {
        rc = unlink(name) || errno == ENOENT ? 1 : -1;
    } // else renamed or made anew since it was opened: not the file that was looked at
    closeKeepingErrno(fd);
    return rc;
}

bool NR_CacheDirectory::readObject(const std::string& name, std::string& bytes) {
    int fd = ::open(pathOf(name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
        if (errno == ELOOP)
            errno = EINVAL; // a link is no stored object
        return false;
    }
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0;
    if (ok && !S_ISREG(st.st_mode)) {
        errno = EINVAL;
        ok = false;
    } else if (ok && (unsigned long long)st.st_size > MAX_OBJECT_SIZE) {
        errno = EFBIG;
        ok = false;
    }
    std::string buffer;
    if (ok)
        buffer.resize(size_t(st.st_size));
    size_t done = 0;
    while (ok && done < buffer.size()) { // no further than the size it had: it may grow
        ssize_t n = ::read(fd, &buffer[done], buffer.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            ok = false;
        if (n <= 0)
            break;
        done += size_t(n);
    }
    closeKeepingErrno(fd);
    if (!ok)
        return false;
    buffer.resize(done);
    bytes.swap(buffer);
    return true;
}

bool NR_CacheDirectory::isRegularFile(const std::string& name) const {
    int fd = ::open(pathOf(name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return false;
    struct stat st;
    bool regular = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    ::close(fd);
    if (!regular)
        errno = EINVAL;
    return regular;
}

void NR_CacheDirectory::indexAdd(const std::string& name) {
    std::string base, ext;
    splitName(name, base, ext);
    std::vector<Entry>& entries = mByBase[base];
    for (const Entry& entry : entries) {
        if (entry.name == name)
            return;
    }
    entries.push_back(Entry{name, mNextOrder++});
}

void NR_CacheDirectory::indexRemove(const std::string& name) {
    std::string base, ext;
    splitName(name, base, ext);
    auto it = mByBase.find(base);
    if (it == mByBase.end())
        return;
    std::vector<Entry>& entries = it->second;
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](const Entry& entry) { return entry.name == name; }),
                  entries.end());
    if (entries.empty())
        mByBase.erase(it);
}
