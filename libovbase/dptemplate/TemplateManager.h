// The templates a process has loaded, by template ID. A template is kept only when the parser
// accepts it and it has at least one layout to show an item with.
#ifndef OVBASE_DPTEMPLATE_TEMPLATEMANAGER_H
#define OVBASE_DPTEMPLATE_TEMPLATEMANAGER_H

#include "dptemplate/Template.h"
#include "thread/PtrRef.h"
#include "types/MString.h"

#include <iosfwd>
#include <map>

namespace DPTemplate {

class TemplateManager {
public:
    // What load() returns when the parser accepted a document that holds no layout.
    static constexpr int NO_LAYOUT = -1;

    // Made on first use, without locking: the first use must happen on one thread.
    static TemplateManager* getInstance();

    // Parses IN and keeps the template under ID (replacing one kept before) when it is usable.
    // Returns 0 when it was kept, else the parser's error state or NO_LAYOUT; on failure a
    // template kept before under ID stays.
    int load(const MString& id, std::istream& in);

    // The template kept under ID, or a null handle.
    PtrRef<Template> get(const MString& id) const;
    void remove(const MString& id) { mTemplates.erase(id); }
    void clear() { mTemplates.clear(); }
    unsigned int size() const { return static_cast<unsigned int>(mTemplates.size()); }

private:
    std::map<MString, PtrRef<Template>> mTemplates;
};

} // namespace DPTemplate

#endif
