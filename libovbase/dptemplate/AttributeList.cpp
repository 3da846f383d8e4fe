#include "dptemplate/AttributeList.h"

namespace DPTemplate {

namespace {

template <class Iterator>
const MString& firstNamed(Iterator begin, Iterator end, const MString& name) {
    static const MString empty;
    for (Iterator it = begin; it != end; ++it) {
        if (it->mName == name) {
            return it->mValue;
        }
    }
    return empty;
}

} // namespace

const MString& AttributeList::getAttribute(const MString& name) const {
    return firstNamed(mAttributes.begin(), mAttributes.end(), name);
}

const MString& AttributeVector::getAttribute(const MString& name) const {
    return firstNamed(mAttributes.begin(), mAttributes.end(), name);
}

} // namespace DPTemplate
