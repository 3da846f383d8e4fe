#include "dptemplate/AttributeList.h"

namespace DPTemplate {

const MString& AttributeList::getAttribute(const MString& name) const {
    static const MString empty;
    for (const Attribute& attribute : mAttributes) {
        if (attribute.mName == name) {
            return attribute.mValue;
        }
    }
    return empty;
}

} // namespace DPTemplate
