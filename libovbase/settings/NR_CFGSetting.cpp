#include "settings/NR_CFGSetting.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "types/AttrMap.h"
#include "types/FnLog.h"
#include "types/MString.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const kMainSettingFile = "/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg";
// Announcements whose echo never came back are dropped beyond this many.
const size_t kMaxPendingEchoes = 256;

bool writeAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += size_t(n);
    }
    return true;
}

std::string directoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// Makes a completed rename durable; failure only weakens durability, not consistency.
void syncDirectoryOf(const std::string& path) {
    int fd = ::open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// The file PATH names once symbolic links at its end are followed (links in its directories
// need no following: the rename goes through them). A missing file, a dangling link's target
// or a link loop gives the last name reached.
std::string followLinks(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            break;
        char target[PATH_MAX];
        ssize_t n = ::readlink(path.c_str(), target, sizeof target);
        if (n <= 0 || size_t(n) == sizeof target)
            break;
        std::string next(target, size_t(n));
        path = next[0] == '/' ? next : directoryOf(path) + "/" + next;
    }
    return path;
}

// An exclusive flock on the directory of FILE for the object's lifetime (see the header for
// why the directory). A directory that cannot be opened or locked leaves the write unlocked.
class DirectoryLock {
public:
    explicit DirectoryLock(const std::string& file) : mFd(-1) {
        if (file.empty())
            return;
        mFd = ::open(directoryOf(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        int rc = mFd < 0 ? -1 : ::flock(mFd, LOCK_EX);
        while (rc != 0 && mFd >= 0 && errno == EINTR)
            rc = ::flock(mFd, LOCK_EX);
        if (rc != 0)
            OV_LOG(2, "Couldn't lock the directory of setting file %s: %s\n\n", file.c_str(),
                   std::strerror(errno));
    }
    ~DirectoryLock() {
        if (mFd >= 0)
            ::close(mFd);
    }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    int mFd;
};

// Whether the text form of the file gives back SECTION and KEY after a store and a load
// (CFGOrvelSetting::canCarry lists the reasons).
bool fileFormCarries(const std::string& section, const std::string& key) {
    if (section.find_first_of("]\r\n") != std::string::npos)
        return false;
    // Read back as UTF-8 up to the ']' and narrowed again byte by byte.
    if (ovTypes::ID(ovTypes::String(MString(section).toWide())) != section)
        return false;
    if (key.find_first_of("=\r\n") != std::string::npos)
        return false;
    if (key.empty())
        return true;
    if (key[0] == '[' || key[0] == '#' || key.back() == ' ')
        return false;
    return !(section == AttrMap::DEFAULT_CATEGORY &&
             std::isspace(static_cast<unsigned char>(key[0])));
}

} // namespace

CFGOrvelSetting::CFGOrvelSetting(const char* path)
    : OrvelSetting(DeliverLater()), mpAttrMap(new AttrMap(false)), mpPath(nullptr), mLoaded(false) {
    setPath(path);
    if (path)
        mFileStream.open(path, std::ios::in | std::ios::out | std::ios::binary);
    if (mFileStream.is_open()) {
        loadFrom(mFileStream);
        mFileStream.close();
        mLoaded = true;
    } else {
        OV_LOG(3, "CFGOrvelSetting cfg file not exist %s\n\n", path ? path : "(null)");
    }
    startDelivery();
}

CFGOrvelSetting::CFGOrvelSetting() : CFGOrvelSetting(DeliverLater()) {
    startDelivery();
}

CFGOrvelSetting::CFGOrvelSetting(DeliverLater later)
    : OrvelSetting(later), mpAttrMap(new AttrMap(false)), mpPath(nullptr), mLoaded(false) {}

CFGOrvelSetting::~CFGOrvelSetting() {
    // Changes arrive on the bus's thread: none may reach the map while it goes.
    endRegistration();
    delete mpAttrMap;
    delete[] mpPath;
}

void CFGOrvelSetting::setPath(const char* path) {
    delete[] mpPath;
    mpPath = nullptr;
    if (path) {
        size_t length = std::strlen(path);
        mpPath = new char[length + 1];
        std::memcpy(mpPath, path, length + 1);
    }
}

void CFGOrvelSetting::loadFrom(std::istream& in) {
    std::lock_guard<std::recursive_mutex> guard(mLock);
    mpAttrMap->load(in);
}

int CFGOrvelSetting::init() {
    std::string path = ovplatform::devicePath(kMainSettingFile);
    if (mFileStream.is_open())
        mFileStream.close();
    mFileStream.clear();
    mFileStream.open(path, std::ios::in | std::ios::out | std::ios::binary);
    if (!mFileStream.is_open())
        return 1;
    loadFrom(mFileStream);
    mFileStream.clear();
    mFileStream.seekp(0);
    // Later writes go to the file that was read.
    if (!mpPath)
        setPath(path.c_str());
    mLoaded = true;
    return 0;
}

template <typename T, typename Get>
int CFGOrvelSetting::lookup(const char* group, const char* key, T& value, const Get& get) {
    if (!mLoaded)
        return SETTING_NOT_LOADED;
    if (!group || !key)
        return SETTING_NOT_SUPPORTED;
    std::lock_guard<std::recursive_mutex> guard(mLock);
    bool found = false;
    T result = get(*mpAttrMap, &found);
    if (!found)
        return SETTING_KEY_ABSENT;
    value = result;
    return SETTING_OK;
}

int CFGOrvelSetting::getInt(const char* group, const char* key, int& value) {
    return lookup(group, key, value,
                  [&](AttrMap& map, bool* found) { return map.getInt(key, value, found, group); });
}

int CFGOrvelSetting::getString(const char* group, const char* key, ovTypes::String& value) {
    return lookup(group, key, value, [&](AttrMap& map, bool* found) {
        return map.getString(key, ovTypes::String(), found, group);
    });
}

int CFGOrvelSetting::getString(const char* group, const char* key, char** value) {
    ovTypes::String text;
    int rc = CFGOrvelSetting::getString(group, key, text);
    if (rc != SETTING_OK)
        return rc;
    if (!value)
        return SETTING_NOT_SUPPORTED;
    // One byte per character: the low byte of each code point.
    char* copy = new char[text.size() + 1];
    for (size_t i = 0; i < text.size(); ++i)
        copy[i] = char(text[i]);
    copy[text.size()] = '\0';
    *value = copy;
    return SETTING_OK;
}

int CFGOrvelSetting::getBoolean(const char* group, const char* key, bool& value) {
    return lookup(group, key, value,
                  [&](AttrMap& map, bool* found) { return map.getBool(key, value, found, group); });
}

int CFGOrvelSetting::setInt(const char* group, const char* key, int value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    return writeValue(
        group, key, [&](AttrMap& map) { map.putInt(key, value, group); }, text);
}

int CFGOrvelSetting::setBoolean(const char* group, const char* key, bool value) {
    return writeValue(
        group, key, [&](AttrMap& map) { map.putBool(key, value, group); },
        value ? "true" : "false");
}

int CFGOrvelSetting::setString(const char* group, const char* key, const char* value) {
    if (!value)
        value = "";
    return writeValue(
        group, key,
        [&](AttrMap& map) { map.putString(key, ovTypes::String(ovTypes::ID(value)), group); },
        value);
}

int CFGOrvelSetting::setString(const char* group, const char* key, const ovTypes::String& value) {
    return writeValue(
        group, key, [&](AttrMap& map) { map.putString(key, value, group); }, ovTypes::ID(value));
}

std::string CFGOrvelSetting::announcedName(const char* group, const char* key) {
    return std::string(group) + "." + key;
}

bool CFGOrvelSetting::canCarry(const char* group, const char* key) {
    return fileFormCarries(group, key);
}

int CFGOrvelSetting::writeValue(const char* group, const char* key,
                                const std::function<void(AttrMap&)>& put, const std::string& text) {
    if (!mLoaded)
        return SETTING_NOT_LOADED;
    // A line feed in the value would break the file's line structure (and could forge keys).
    if (!group || !key || !canCarry(group, key) || text.find('\n') != std::string::npos)
        return SETTING_NOT_SUPPORTED;
    const std::string target = mpPath ? followLinks(mpPath) : std::string();
    // Held until the announcement is out, so announcements leave in the order of the writes.
    DirectoryLock turn(target);
    {
        std::lock_guard<std::recursive_mutex> guard(mLock);
        takeFileValues(target);
        put(*mpAttrMap);
        if (rewriteFile(target))
            mUnsaved.clear();
        else
            mUnsaved.emplace(group, key);
        // Our own announcement comes back from the bus; remember it so that a late echo
        // cannot overwrite a newer value written meanwhile.
        mPendingEchoes.emplace_back(announcedName(group, key), text);
        if (mPendingEchoes.size() > kMaxPendingEchoes)
            mPendingEchoes.pop_front();
    }
    publishSettingChangeEvent(group, key, text.c_str());
    return SETTING_OK;
}

void CFGOrvelSetting::takeFileValues(const std::string& target) {
    if (target.empty())
        return;
    std::ifstream in(target, std::ios::binary);
    if (!in)
        return;
    AttrMap current(false);
    current.load(in);
    for (const AttrMap::CategoryMap::value_type& section : current.categories()) {
        for (const AttrMap::KeyMap::value_type& entry : section.second) {
            if (mUnsaved.count(std::make_pair(section.first, entry.first)))
                continue;
            // putString makes the section and key; the whole list (a key may occur twice)
            // then replaces its value.
            mpAttrMap->putString(entry.first, ovTypes::String(), section.first);
            (*mpAttrMap->categoryAt(section.first))[entry.first] = entry.second;
        }
    }
}

bool CFGOrvelSetting::rewriteFile(const std::string& target) {
    if (target.empty())
        return false;
    std::ostringstream text;
    mpAttrMap->store(text);
    std::string data = text.str();

    std::string temp = target + ".XXXXXX";
    int fd = ::mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0) {
        OV_LOG(3, "Couldn't write setting file %s: %s\n\n", target.c_str(), std::strerror(errno));
        return false;
    }
    // Keep what the file being replaced had (mkstemp makes the writer's file, mode 0600): its
    // owner and group where the writer may give them (root may, others only to a group of
    // their own), then its mode, last because a change of owner clears set-id bits.
    struct stat st;
    mode_t mode = 0644;
    if (::stat(target.c_str(), &st) == 0) {
        if (::fchown(fd, st.st_uid, st.st_gid) != 0 && ::fchown(fd, uid_t(-1), st.st_gid) != 0)
            OV_LOG(5, "Setting file %s changes owner to the writer\n\n", target.c_str());
        mode = st.st_mode & 07777;
    }
    ::fchmod(fd, mode);
    bool ok = writeAll(fd, data) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    ok = ok && ::rename(temp.c_str(), target.c_str()) == 0;
    if (!ok) {
        int error = errno;
        ::unlink(temp.c_str());
        OV_LOG(3, "Couldn't write setting file %s: %s\n\n", target.c_str(), std::strerror(error));
        return false;
    }
    syncDirectoryOf(target);
    return true;
}

bool CFGOrvelSetting::firstProperty(OV_Event& e, std::string& name, std::string& value) {
    if (!e.mPropMap) {
        OV_LOG(3, "Property Map is NULL. Test failed.\n\n");
        return false;
    }
    if (e.mPropMap->empty()) {
        OV_LOG(3, "Property Map is EMPTY. Test failed.\n\n");
        return false;
    }
    name = e.mPropMap->begin()->first;
    value = e.mPropMap->begin()->second;
    return true;
}

bool CFGOrvelSetting::splitName(const std::string& name, std::string& group, std::string& key) {
    size_t first = name.find('.');
    size_t second = first == std::string::npos ? first : name.find('.', first + 1);
    if (second == std::string::npos)
        return false;
    group = name.substr(0, second);
    key = name.substr(second + 1);
    return true;
}

void CFGOrvelSetting::handleEvent(OV_Event& e) {
    OV_LOG(5, "CFGOrvelSetting:handleEvent called.\n\n");
    applyChange(e);
}

void CFGOrvelSetting::applyChange(OV_Event& e) {
    if (e.mEventType != SETTING_CHANGED_TOPIC)
        return;
    std::string name, value, group, key;
    if (!firstProperty(e, name, value))
        return;
    if (!splitName(name, group, key)) {
        OV_LOG(2, "Setting name %s names no key. Ignored.\n\n", name.c_str());
        return;
    }
    // Every change is kept under its own group as section, whichever file this source holds:
    // a menu change lands in a section "OVCore.Menu" here, and a change of another group in
    // a section of that name in the menu source.
    applyReceived(name, group, key, value);
}

void CFGOrvelSetting::applyReceived(const std::string& name, const std::string& section,
                                    const std::string& key, const std::string& value) {
    // Never written by a setter (they would break the file's lines or come back as another
    // key); not taken from others either, since memory goes to the file on the next write.
    if (value.find('\n') != std::string::npos || !fileFormCarries(section, key))
        return;
    std::lock_guard<std::recursive_mutex> guard(mLock);
    if (isStaleEcho(name, value))
        return;
    // Memory only: no file write and no announcement, so the change does not echo.
    mpAttrMap->putString(key, ovTypes::String(ovTypes::ID(value)), section);
}

bool CFGOrvelSetting::isStaleEcho(const std::string& name, const std::string& value) {
    // Our announcements come back in the order they were sent, so the oldest pending one equal
    // to this change is taken as its echo, and older ones of the same name never came back
    // (the publish failed, the bus was down): both are forgotten. A change is never dropped for
    // matching an announcement alone, which may equally be a genuine change from elsewhere:
    // only when a newer write of the same name is still pending, whose value must not be undone.
    auto sameName = [&](const std::pair<std::string, std::string>& p) { return p.first == name; };
    auto echo =
        std::find(mPendingEchoes.begin(), mPendingEchoes.end(), std::make_pair(name, value));
    if (echo == mPendingEchoes.end())
        return false;
    auto kept = std::remove_if(mPendingEchoes.begin(), echo + 1, sameName);
    mPendingEchoes.erase(kept, echo + 1);
    return std::any_of(mPendingEchoes.begin(), mPendingEchoes.end(), sameName);
}
