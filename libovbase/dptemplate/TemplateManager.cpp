#include "dptemplate/TemplateManager.h"

#include "dptemplate/TemplateParser.h"

namespace DPTemplate {

TemplateManager* TemplateManager::getInstance() {
    static TemplateManager* instance = new TemplateManager;
    return instance;
}

int TemplateManager::load(const MString& id, std::istream& in) {
    PtrRef<Template> loaded(new Template);
    TemplateParser parser;
    int state = parser.parse(in, loaded.get());
    if (state != TemplateParser::OK) {
        return state;
    }
    if (loaded->getLayoutCount() == 0) {
        return NO_LAYOUT;
    }
    mTemplates[id] = loaded;
    return 0;
}

PtrRef<Template> TemplateManager::get(const MString& id) const {
    std::map<MString, PtrRef<Template>>::const_iterator found = mTemplates.find(id);
    return found == mTemplates.end() ? PtrRef<Template>() : found->second;
}

} // namespace DPTemplate
