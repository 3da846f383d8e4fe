// A two-way table between small integers and keywords: entry 0 is always the empty text and the
// keywords follow at 1, 2, 3, ... Every keyword set of the template engine is one of these.
#ifndef OVBASE_DPTEMPLATE_ENUMANDTEXT_H
#define OVBASE_DPTEMPLATE_ENUMANDTEXT_H

#include "types/MString.h"

#include <vector>

namespace DPTemplate {

class EnumAndText {
public:
    // Keywords separated by single blanks; two blanks in a row make an empty keyword.
    explicit EnumAndText(const MString& text, int defaultValue = -1);
    EnumAndText(const char* const* texts, unsigned int count, int defaultValue = -1);

    // Position of the first keyword equal to NAME (entry 0 is never compared), else the default.
    int lookUpValue(const MString& name) const;
    // The keyword at INDEX, or the empty entry 0 when INDEX lies outside the table.
    const MString& lookUpText(unsigned int index) const;

    // Number of entries, the empty entry 0 included.
    unsigned int size() const { return static_cast<unsigned int>(mEntries.size()); }
    int getDefault() const { return mDefault; }

private:
    std::vector<MString> mEntries;
    int mDefault;
};

} // namespace DPTemplate

#endif
