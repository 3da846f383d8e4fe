#include "dptemplate/EnumAndText.h"

#include <cstring>

namespace DPTemplate {

EnumAndText::EnumAndText(const MString& text, int defaultValue) : mDefault(defaultValue) {
    mEntries.push_back(MString());
    std::string::size_type start = 0;
    for (;;) {
        std::string::size_type blank = text.find(' ', start);
        if (blank == std::string::npos) {
            mEntries.push_back(MString(text.substr(start)));
            break;
        }
        mEntries.push_back(MString(text.substr(start, blank - start)));
        start = blank + 1;
    }
}

EnumAndText::EnumAndText(const char* const* texts, unsigned int count, int defaultValue)
    : mDefault(defaultValue) {
    mEntries.reserve(count + 1);
    mEntries.push_back(MString());
    for (unsigned int i = 0; i < count; ++i) {
        mEntries.push_back(MString(texts[i]));
    }
}

int EnumAndText::lookUpValue(const MString& name) const {
    for (std::vector<MString>::size_type i = 1; i < mEntries.size(); ++i) {
        const MString& entry = mEntries[i];
        if (entry.size() == name.size() &&
            std::memcmp(entry.data(), name.data(), name.size()) == 0) {
            return static_cast<int>(i);
        }
    }
    return mDefault;
}

const MString& EnumAndText::lookUpText(unsigned int index) const {
    if (index < mEntries.size()) {
        return mEntries[index];
    }
    return mEntries[0];
}

} // namespace DPTemplate
