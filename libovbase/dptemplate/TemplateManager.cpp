#include "dptemplate/TemplateManager.h"

#include "dptemplate/TemplateParser.h"
#include "storage/NR_ContentCache.h"
#include "storage/NR_DefaultContentMgr.h"
#include "types/FnLog.h"
#include "types/ovTypes.h"

#include <fstream>
#include <functional>
#include <sstream>
#include <sys/stat.h>

namespace DPTemplate {

bool TemplateManager::FileStamp::operator==(const FileStamp& other) const {
    return inode == other.inode && size == other.size && modifiedSeconds == other.modifiedSeconds &&
           modifiedNanoseconds == other.modifiedNanoseconds;
}

bool TemplateManager::stampOf(const std::string& path, FileStamp& stamp) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return false;
    stamp.inode = info.st_ino;
    stamp.size = info.st_size;
    stamp.modifiedSeconds = info.st_mtim.tv_sec;
    stamp.modifiedNanoseconds = info.st_mtim.tv_nsec;
    return true;
}

TemplateManager* TemplateManager::getInstance() {
    static TemplateManager* instance = new TemplateManager;
    return instance;
}

int TemplateManager::load(const MString& id, std::istream& in) {
    PtrRef<Template> loaded(new Template);
    TemplateParser parser;
    int state = parser.parse(in, loaded.get());
    if (state != TemplateParser::OK)
        return state;
    if (loaded->getLayoutCount() == 0) {
        OV_LOG(3, "TemplateManager: %s holds no layout: not a template\n", id.c_str());
        return NO_LAYOUT;
    }
    mTemplates[id] = loaded;
    mFailed.erase(id);
    mFailedDefault.erase(id);
    return 0;
}

PtrRef<Template> TemplateManager::find(const MString& id) const {
    std::map<MString, PtrRef<Template>>::const_iterator found = mTemplates.find(id);
    return found == mTemplates.end() ? PtrRef<Template>() : found->second;
}

PtrRef<Template> TemplateManager::get(const MString& id) {
    PtrRef<Template> kept = find(id);
    if (kept || id.empty())
        return kept;
    if (ovTypes::ID(id).isDefaultContentID())
        return loadFromDefaultContent(id);
    return loadFromCache(id);
}

PtrRef<Template> TemplateManager::loadFromDefaultContent(const MString& id) {
    std::stringstream bytes;
    if (!NR_DefaultContentMgr::get(ovTypes::ID(id), bytes))
        return PtrRef<Template>();
    const size_t hash = std::hash<std::string>()(bytes.str());
    std::map<MString, size_t>::const_iterator failed = mFailedDefault.find(id);
    if (failed != mFailedDefault.end() && failed->second == hash)
        return PtrRef<Template>();
    if (load(id, bytes) != 0) {
        mFailedDefault[id] = hash;
        return PtrRef<Template>();
    }
    return find(id);
}

PtrRef<Template> TemplateManager::loadFromCache(const MString& id) {
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    std::string path;
    FileStamp stamp;
    if (cache->getPath(id, path) != 0 || !stampOf(path, stamp))
        return PtrRef<Template>();
    std::map<MString, FileStamp>::const_iterator failed = mFailed.find(id);
    if (failed != mFailed.end() && failed->second == stamp)
        return PtrRef<Template>();

    std::ifstream* in = cache->getInputStream(id);
    if (!in)
        return PtrRef<Template>();
    int state = load(id, *in);
    cache->closeInputStream(in);
    if (state != 0) {
        mFailed[id] = stamp;
        return PtrRef<Template>();
    }
    return find(id);
}

void TemplateManager::remove(const MString& id) {
    mTemplates.erase(id);
    mFailed.erase(id);
    mFailedDefault.erase(id);
}

void TemplateManager::clear() {
    mTemplates.clear();
    mFailed.clear();
    mFailedDefault.clear();
}

} // namespace DPTemplate
