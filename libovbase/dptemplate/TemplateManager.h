// The templates a process has loaded, by template ID. A template is kept when the parser accepts
// it and it holds at least one layout to show an object with: an empty file, text that is not
// markup or a document cut off before its first layout parses without an error but is no
// template (a level-3 line names its identity). get() loads a template it does not keep yet
// from the content cache.
//
// Threads: the engine's; nothing here locks. Handles given out share the template and outlive
// the manager's own reference.
#ifndef OVBASE_DPTEMPLATE_TEMPLATEMANAGER_H
#define OVBASE_DPTEMPLATE_TEMPLATEMANAGER_H

#include "dptemplate/Template.h"
#include "thread/PtrRef.h"
#include "types/MString.h"

#include <iosfwd>
#include <map>
#include <string>

namespace DPTemplate {

class TemplateManager {
public:
    // What load() returns for a document the parser accepted that holds no layout.
    static constexpr int NO_LAYOUT = -1;

    // Made on first use, without locking: the first use must happen on one thread.
    static TemplateManager* getInstance();

    // Parses IN and keeps the template under ID (replacing one kept before) when the parser
    // accepts it and it holds a layout. Returns 0 when it was kept, else the parser's error
    // state or NO_LAYOUT; on failure a template kept before under ID stays.
    int load(const MString& id, std::istream& in);

    // The template kept under ID. One not kept yet is read from the content cache's resource ID,
    // or from default content (NR_DefaultContentMgr) for a "dc:" identity, parsed once and kept
    // as load() keeps it. A null handle when there is no such resource or it is not kept. A refused
    // resource is not parsed again on every call: the failure is remembered with the file's
    // identity (inode, size, modification time), or for default content with a hash of its bytes,
    // and only other bytes under ID are tried again.
    PtrRef<Template> get(const MString& id);
    // The template kept under ID, or a null handle; never reads the cache.
    PtrRef<Template> find(const MString& id) const;
    // Forget ID's template (and a remembered failure).
    void remove(const MString& id);
    void clear();
    unsigned int size() const { return static_cast<unsigned int>(mTemplates.size()); }

private:
    // What identifies a file's contents well enough to know it has not changed.
    struct FileStamp {
        unsigned long long inode;
        long long size;
        long long modifiedSeconds;
        long modifiedNanoseconds;
        bool operator==(const FileStamp& other) const;
    };

    // The stamp of the file at PATH; false when it cannot be examined.
    static bool stampOf(const std::string& path, FileStamp& stamp);
    // Reads and parses ID's resource from the content cache; null when absent or refused.
    PtrRef<Template> loadFromCache(const MString& id);
    // The same for a "dc:" identity from default content.
    PtrRef<Template> loadFromDefaultContent(const MString& id);

    std::map<MString, PtrRef<Template>> mTemplates;
    std::map<MString, FileStamp> mFailed;
    std::map<MString, size_t> mFailedDefault; // hash of the default-content bytes that failed
};

} // namespace DPTemplate

#endif
