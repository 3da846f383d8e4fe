#include "storage/NR_CacheDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fstream>
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
           modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
}

void NR_CacheDirectory::setPath(const std::string& dir) {
    mPath = dir;
    if (mPath.empty() || mPath.back() != '/')
        mPath += '/';
    mIndexed = false;
    mByBase.clear();
}

bool NR_CacheDirectory::stamp(Stamp& out) const {
    struct stat st;
    if (::stat(mPath.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return false;
    out.device = st.st_dev;
    out.inode = st.st_ino;
    out.modified = st.st_mtim;
    return true;
}

bool NR_CacheDirectory::current() {
    Stamp now;
    if (!stamp(now)) {
        mIndexed = false;
        return false;
    }
    if (mIndexed && now == mStamp)
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
    mNextOrder = 0;
    for (const std::string& name : names)
        indexAdd(name);
    mIndexed = true;
    return 0;
}

int NR_CacheDirectory::find(const std::string& id, std::string& name) {
    const Entry* best = nullptr;
    if (!current())
        return -1;
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
    if (!best)
        return -1;
    name = best->name;
    return 0;
}

std::vector<std::string> NR_CacheDirectory::filesNamedBy(const std::string& id) {
    std::vector<std::string> files;
    if (!current())
        return files;
    std::string stem, ext, base;
    splitName(id, base, ext); // where a file named exactly ID is indexed
    std::string bases[3] = {id, splitExtension(id, stem, ext) ? stem : id, base};
    for (const std::string& key : bases) {
        auto it = mByBase.find(key);
        if (it == mByBase.end())
            continue;
        for (const Entry& entry : it->second) {
            if ((entry.name == id || names(id, entry.name)) &&
                std::find(files.begin(), files.end(), entry.name) == files.end())
                files.push_back(entry.name);
        }
    }
    return files;
}

bool NR_CacheDirectory::beginChange() {
    return current();
}

void NR_CacheDirectory::endChange(bool wasCurrent, const std::string& added,
                                  const std::string& removed) {
    if (!wasCurrent || !stamp(mStamp)) {
        mIndexed = false;
        return;
    }
    if (!removed.empty())
        indexRemove(removed);
    if (!added.empty())
        indexAdd(added);
}

bool NR_CacheDirectory::create(const std::string& name, std::ofstream& out) {
    bool wasCurrent = beginChange();
    out.open(pathOf(name), std::ios::out | std::ios::trunc | std::ios::binary);
    endChange(wasCurrent, out.is_open() ? name : std::string(), std::string());
    return out.is_open();
}

bool NR_CacheDirectory::rename(const std::string& from, const std::string& to) {
    bool wasCurrent = beginChange();
    bool ok = std::rename(pathOf(from).c_str(), pathOf(to).c_str()) == 0;
    int error = errno;
    endChange(wasCurrent, ok ? to : std::string(), ok ? from : std::string());
    errno = error;
    return ok;
}

bool NR_CacheDirectory::unlink(const std::string& name) {
    bool wasCurrent = beginChange();
    bool ok = ::unlink(pathOf(name).c_str()) == 0;
    int error = errno;
    endChange(wasCurrent, std::string(), ok ? name : std::string());
    errno = error;
    return ok;
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
