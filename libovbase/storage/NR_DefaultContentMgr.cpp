#include "storage/NR_DefaultContentMgr.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_Setting.h"
#include "settings/NR_SettingMgr.h"
#include "storage/LRUCache.h"
#include "types/FnLog.h"
#include "types/Utf8Codec.h"

#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

const char* const NR_DefaultContentMgr::INDEX_FILE_NAME = "dynport.dc";
const char* const NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH =
    "/qbxlocal/download/appwrite/orvel/def-content";

namespace {

typedef std::vector<PtrRef<DefaultContentIndex>> IndexList;

// A handful of languages: a phone changes its language rarely.
const size_t kLanguageLists = 4;
const char* const kFallbackLanguage = "en-us";
const char* const kProfileKey = "CurrentProfile";
const char* const kProfileSetting = "OVCore.InitSetting.CurrentProfile";

const size_t kHeaderSize = 10;     // magic, two ignored fields, the count
const size_t kEntryFixedSize = 10; // name length, length, offset
const size_t kMaxNameLength = 0xFFFF;
const size_t kMaxEntries = SHRT_MAX;

struct ModuleState {
    std::mutex lock;
    std::string resourcePath; // empty until resolved
    std::string listProfile;  // the profile the kept lists were built for
    LRUCache<std::string, PtrRef<IndexList>> lists{kLanguageLists};
};

// Never destroyed: a bus delivery into the profile handler may still come in during exit.
ModuleState& moduleState() {
    static ModuleState* state = new ModuleState;
    return *state;
}

std::string toUtf8(const ovTypes::String& text) {
    std::string out;
    char bytes[4];
    for (wchar_t c : text)
        out.append(bytes, utf8codec::encode(static_cast<uint32_t>(c), bytes));
    return out;
}

// The text setting, UTF-8 encoded as file names are; empty when it cannot be read.
std::string textSetting(int group, const char* key) {
    ovTypes::String value;
    if (OrvelSettingMgr::getSettingMgrInstance()->getString(group, key, value) != 0)
        return std::string();
    return toUtf8(value);
}

std::string currentLanguage() {
    ovTypes::String code;
    if (OV_EventAndStatusFacade::instance()->getCurrentLanguageCode(code) != 0)
        return kFallbackLanguage;
    return ovTypes::ID(code);
}

// True for a name that stays inside the directory it is joined to.
bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

// True for a relative path that stays inside the directory it is joined to: not empty, not
// absolute, no ".." component and no NUL; folders are allowed ("icons/news.png").
bool isInsidePath(const std::string& path) {
    if (path.empty() || path[0] == '/' || path.find('\0') != std::string::npos)
        return false;
    for (size_t start = 0; start <= path.size();) {
        size_t slash = path.find('/', start);
        if (slash == std::string::npos)
            slash = path.size();
        if (path.compare(start, slash - start, "..") == 0)
            return false;
        start = slash + 1;
    }
    return true;
}

bool isRegularFile(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// Opens PATH for reading when it is a regular file; -1 otherwise, errno telling why. Opened
// without blocking, so that a FIFO left in the folder cannot hang a look-up.
int openPlainFile(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return -1;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = EISDIR;
        return -1;
    }
    return fd;
}

// Reads the whole plain file PATH into *BYTES; an absent file is not worth a diagnostic.
bool readPlainFile(const std::string& path, std::string* bytes) {
    int fd = openPlainFile(path);
    if (fd < 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            OV_LOG(3, "Couldn't read default content %s\n", path.c_str());
        return false;
    }
    std::string buffer;
    char block[16384];
    ssize_t got;
    while ((got = ::read(fd, block, sizeof block)) != 0) {
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            break;
        buffer.append(block, static_cast<size_t>(got));
    }
    ::close(fd);
    if (got < 0) {
        OV_LOG(3, "Couldn't read default content %s\n", path.c_str());
        return false;
    }
    bytes->swap(buffer);
    return true;
}

DefaultContentIndex::FileIdentity identityOf(const struct stat& info) {
    DefaultContentIndex::FileIdentity identity;
    identity.device = info.st_dev;
    identity.inode = info.st_ino;
    identity.size = info.st_size;
    identity.modifiedSeconds = info.st_mtim.tv_sec;
    identity.modifiedNanoseconds = info.st_mtim.tv_nsec;
    return identity;
}

// Reads an index file through the descriptor whose identity was taken, so that the directory
// and the identity belong to one file.
class DescriptorBuffer : public std::streambuf {
public:
    explicit DescriptorBuffer(int fd) : mFd(fd) {}

protected:
    int_type underflow() override {
        ssize_t got;
        do
            got = ::read(mFd, mBuffer, sizeof mBuffer);
        while (got < 0 && errno == EINTR);
        if (got <= 0)
            return traits_type::eof();
        setg(mBuffer, mBuffer, mBuffer + got);
        return traits_type::to_int_type(mBuffer[0]);
    }

private:
    int mFd;
    char mBuffer[4096];
};

// Made by the first look-up, released by dispose(). Never freed at exit: the facade it is
// registered with may be gone by then. Its own lock, never held with the module's: deleting it
// waits for a delivery into it, which takes the module's lock.
std::mutex gProfileHandlerLock;
ProfileChangedHandler* gProfileHandler = nullptr;

} // namespace

short readShort(std::istream& in) {
    char high = 0;
    char low = 0;
    in.get(high);
    in.get(low);
    return static_cast<short>((static_cast<unsigned char>(high) << 8) |
                              static_cast<unsigned char>(low));
}

int readInt(std::istream& in) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        char byte = 0;
        in.get(byte);
        value = (value << 8) | static_cast<unsigned char>(byte);
    }
    return static_cast<int32_t>(value);
}

void writeShort(std::ostream& out, int value) {
    out.put(static_cast<char>((value >> 8) & 0xFF));
    out.put(static_cast<char>(value & 0xFF));
}

void writeInt(std::ostream& out, int32_t value) {
    uint32_t bits = static_cast<uint32_t>(value);
    for (int shift = 24; shift >= 0; shift -= 8)
        out.put(static_cast<char>((bits >> shift) & 0xFF));
}

DefaultContentIndexItem::DefaultContentIndexItem(std::istream& in) : mLength(0), mOffset(0) {
    // The length is a 16-bit count: at most 64 KB are ever set aside for a name.
    const size_t nameLength = static_cast<unsigned short>(readShort(in));
    std::string raw(nameLength, '\0');
    in.read(&raw[0], static_cast<std::streamsize>(nameLength));
    mName = ovTypes::ID(raw.substr(0, raw.find('\0')));
    mLength = readInt(in);
    mOffset = readInt(in);
}

bool DefaultContentIndex::FileIdentity::operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modifiedSeconds == other.modifiedSeconds &&
           modifiedNanoseconds == other.modifiedNanoseconds;
}

DefaultContentIndex::DefaultContentIndex(std::string path) : mPath(std::move(path)) {
    int fd = ::open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat info;
    if (fd >= 0 && (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
        ::close(fd);
        fd = -1;
    }
    if (fd < 0) {
        OV_LOG_NOFUNC(3, "Couldn't open  def content\n");
        return;
    }
    mIdentity = identityOf(info);
    DescriptorBuffer buffer(fd);
    std::istream in(&buffer);
    readDirectory(in);
    ::close(fd);
}

bool DefaultContentIndex::isCurrent() const {
    struct stat info;
    return ::stat(mPath.c_str(), &info) == 0 && identityOf(info) == mIdentity;
}

void DefaultContentIndex::readDirectory(std::istream& in) {
    char first = '?'; // shown when nothing could be read
    char second = '?';
    in >> first >> second;
    if (!in || first != 'd' || second != 'c') {
        OV_LOG_NOFUNC(3, "magic error(%c,%c)\n", first, second);
        return;
    }
    readShort(in);
    readInt(in);
    const short count = readShort(in);
    // Entries are stored only once read whole, so a count larger than the file holds costs
    // no more than the file itself.
    for (short i = 0; i < count && in; ++i) {
        DefaultContentIndexItem item(in);
        if (!in)
            break;
        mItems[item.mName] = item;
    }
}

const DefaultContentIndexItem* DefaultContentIndex::find(const ovTypes::ID& name) const {
    ItemMap::const_iterator found = mItems.find(name);
    return found == mItems.end() ? nullptr : &found->second;
}

bool DefaultContentIndex::readResource(const std::string& path, const DefaultContentIndexItem& item,
                                       std::string* bytes, const FileIdentity* expected) {
    if (item.mLength < 0 || item.mOffset < 0)
        return false;
    // Read straight into the buffer: no stream buffer to fill and copy out of.
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    struct stat info;
    // Checked before anything is allocated: a hostile length never costs more than the file.
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || item.mOffset > info.st_size ||
        item.mLength > info.st_size - item.mOffset || (expected && identityOf(info) != *expected)) {
        ::close(fd);
        return false;
    }
    std::string buffer(static_cast<size_t>(item.mLength), '\0');
    size_t done = 0;
    while (done < buffer.size()) {
        ssize_t got = ::pread(fd, &buffer[done], buffer.size() - done,
                              static_cast<off_t>(item.mOffset) + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break; // a file that shrank since: a short read
        done += static_cast<size_t>(got);
    }
    ::close(fd);
    if (done != buffer.size())
        return false;
    bytes->swap(buffer);
    return true;
}

bool writeDefaultContentIndex(std::ostream& out, const DefaultContentResources& resources) {
    if (resources.size() > kMaxEntries)
        return false;
    std::set<ovTypes::ID> names;
    uint64_t directorySize = kHeaderSize;
    uint64_t totalSize = kHeaderSize;
    for (const auto& resource : resources) {
        const ovTypes::ID& name = resource.first;
        if (name.empty() || name.size() > kMaxNameLength || name.find('\0') != std::string::npos ||
            !names.insert(name).second)
            return false;
        directorySize += kEntryFixedSize + name.size();
        totalSize += kEntryFixedSize + name.size() + resource.second.size();
    }
    if (totalSize > static_cast<uint64_t>(INT32_MAX))
        return false;

    out.write("dc", 2);
    writeShort(out, 0);
    writeInt(out, 0);
    writeShort(out, static_cast<int>(resources.size()));
    uint64_t offset = directorySize;
    for (const auto& resource : resources) {
        writeShort(out, static_cast<int>(resource.first.size()));
        out.write(resource.first.data(), static_cast<std::streamsize>(resource.first.size()));
        writeInt(out, static_cast<int32_t>(resource.second.size()));
        writeInt(out, static_cast<int32_t>(offset));
        offset += resource.second.size();
    }
    for (const auto& resource : resources)
        out.write(resource.second.data(), static_cast<std::streamsize>(resource.second.size()));
    return true;
}

ProfileChangedHandler::ProfileChangedHandler()
    : OV_EventHandler(OrvelSetting::SETTING_CHANGED_TOPIC, DeliverLater()) {
    startDelivery();
}

ProfileChangedHandler::~ProfileChangedHandler() {
    endRegistration();
}

void ProfileChangedHandler::handleEvent(OV_Event& event) {
    if (event.mEventType != OrvelSetting::SETTING_CHANGED_TOPIC ||
        !event.getProperty(kProfileSetting, nullptr))
        return;
    OV_LOG(5, "profile changed, default content index lists dropped\n");
    NR_DefaultContentMgr::profileChanged();
}

struct NR_DefaultContentMgr::Location {
    bool inIndex = false;
    std::string path; // the index file, or the plain file
    DefaultContentIndexItem item;
    DefaultContentIndex::FileIdentity identity; // of the index file
};

void NR_DefaultContentMgr::open() {
    ModuleState& state = moduleState();
    std::string path = textSetting(OrvelSettingMgr::GROUP_STORAGE, "DefaultContent");
    DIR* dir = path.empty() ? nullptr : ::opendir(path.c_str());
    if (dir)
        ::closedir(dir);
    else
        path = ovplatform::devicePath(DEFAULT_RESOURCE_PATH);
    state.resourcePath = path;
    OV_LOG(5, "Set resource path to %s\n", path.c_str());
}

void NR_DefaultContentMgr::addIndex(const std::string& profile, const std::string& language,
                                    std::vector<PtrRef<DefaultContentIndex>>* list) {
    const std::string& root = moduleState().resourcePath;
    std::string profileRoot = textSetting(OrvelSettingMgr::GROUP_STORAGE, "Dynportdc");
    if (profileRoot.empty())
        profileRoot = root + "/profiles";
    else if (profileRoot[0] != '/')
        profileRoot = root + "/" + profileRoot;
    OV_LOG(5, "Set sProfileSpecificFilePath to %s\n", profileRoot.c_str());

    const std::string file = std::string("/") + INDEX_FILE_NAME;
    std::vector<std::string> paths;
    if (isPlainName(profile)) {
        if (isPlainName(language))
            paths.push_back(profileRoot + "/" + profile + "/" + language + file);
        paths.push_back(profileRoot + "/" + profile + file);
    }
    if (isPlainName(language))
        paths.push_back(root + "/" + language + file);
    paths.push_back(root + file);
    for (const std::string& path : paths) {
        if (isRegularFile(path))
            list->push_back(PtrRef<DefaultContentIndex>(new DefaultContentIndex(path)));
    }
}

bool NR_DefaultContentMgr::locate(const ovTypes::ID& id, Location* found) {
    {
        std::lock_guard<std::mutex> guard(gProfileHandlerLock);
        if (!gProfileHandler)
            gProfileHandler = new ProfileChangedHandler;
    }
    const ovTypes::ID name = id.isDefaultContentID() ? id.eraseProtocol() : id;
    if (name.empty()) // names nothing, not even an index entry without a name
        return false;
    // Asked before the lock is taken: the facade and the settings may reach the bus.
    const std::string language = currentLanguage();
    const std::string profile = textSetting(OrvelSettingMgr::GROUP_INIT_SETTING, kProfileKey);

    ModuleState& state = moduleState();
    std::lock_guard<std::mutex> guard(state.lock);
    if (state.resourcePath.empty())
        open();
    if (profile != state.listProfile) {
        state.lists.clear();
        state.listProfile = profile;
    }
    PtrRef<IndexList> list; // released before the lock: its count is not thread-safe
    if (!state.lists.get(language, &list)) {
        list = PtrRef<IndexList>(new IndexList);
        addIndex(profile, language, list.get());
        state.lists.put(language, list);
    }
    for (PtrRef<DefaultContentIndex>& index : *list) {
        if (!index->isCurrent()) // replaced since its directory was read
            index = PtrRef<DefaultContentIndex>(new DefaultContentIndex(index->getPath()));
        if (const DefaultContentIndexItem* item = index->find(name)) {
            found->inIndex = true;
            found->path = index->getPath();
            found->item = *item;
            found->identity = index->getIdentity();
            return true;
        }
    }
    // Plain files only for names that stay inside the directory.
    if (!isInsidePath(name))
        return false;
    found->path = state.resourcePath + "/" + name;
    return true;
}

bool NR_DefaultContentMgr::exists(const ovTypes::ID& id) {
    Location found;
    if (!locate(id, &found))
        return false;
    if (found.inIndex)
        return true;
    int fd = openPlainFile(found.path);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

bool NR_DefaultContentMgr::get(const ovTypes::ID& id, std::iostream& out) {
    // An index file replaced between the look-up and the read is looked up again, a few times.
    for (int attempt = 0; attempt < 3; ++attempt) {
        Location found;
        if (!locate(id, &found))
            return false;
        std::string bytes;
        bool read = found.inIndex ? DefaultContentIndex::readResource(found.path, found.item,
                                                                      &bytes, &found.identity)
                                  : readPlainFile(found.path, &bytes);
        if (read) {
            out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
            return !out.fail();
        }
        struct stat info;
        if (!found.inIndex ||
            (::stat(found.path.c_str(), &info) == 0 && identityOf(info) == found.identity))
            return false;
    }
    return false;
}

void NR_DefaultContentMgr::dispose() {
    ProfileChangedHandler* handler = nullptr;
    {
        std::lock_guard<std::mutex> guard(gProfileHandlerLock);
        std::swap(handler, gProfileHandler);
    }
    delete handler;
    ModuleState& state = moduleState();
    std::lock_guard<std::mutex> guard(state.lock);
    state.lists.clear();
    state.resourcePath.clear();
    state.listProfile.clear();
}

void NR_DefaultContentMgr::profileChanged() {
    ModuleState& state = moduleState();
    std::lock_guard<std::mutex> guard(state.lock);
    state.lists.clear();
}
