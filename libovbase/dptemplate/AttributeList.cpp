#include "dptemplate/AttributeList.h"

namespace DPTemplate {

namespace {

template <class Iterator, class Name>
const MString& firstNamed(Iterator begin, Iterator end, const Name& name) {
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

const MString& AttributeVector::getAttribute(const char* name) const {
    return firstNamed(mAttributes.begin(), mAttributes.end(), name);
}

} // namespace DPTemplate
