// A presentation template: its layouts and style sheets, owned, in document order.
#ifndef OVBASE_DPTEMPLATE_TEMPLATE_H
#define OVBASE_DPTEMPLATE_TEMPLATE_H

#include "dptemplate/Component.h"
#include "dptemplate/StyleSheet.h"
#include "types/MString.h"

#include <memory>
#include <vector>

namespace DPTemplate {

class Template {
public:
    virtual ~Template() {}

    // Both take ownership.
    void addLayout(Layout* layout) { mLayouts.push_back(std::unique_ptr<Layout>(layout)); }
    void addStyleSheet(StyleSheet* styleSheet) {
        mStyleSheets.push_back(std::unique_ptr<StyleSheet>(styleSheet));
    }

    unsigned int getLayoutCount() const { return static_cast<unsigned int>(mLayouts.size()); }
    Layout* getLayout(unsigned int index) const { return mLayouts[index].get(); }
    // The first layout whose "id" is ID; null when none.
    Layout* getLayout(const MString& id) const;

    unsigned int getStyleSheetCount() const {
        return static_cast<unsigned int>(mStyleSheets.size());
    }
    StyleSheet* getStyleSheet(unsigned int index) const { return mStyleSheets[index].get(); }
    // The first style sheet whose "id" is ID; null when none.
    StyleSheet* getStyleSheet(const MString& id) const;

    bool isEmpty() const { return mLayouts.empty() && mStyleSheets.empty(); }

    // Run when the whole document is read: gives each layout its style sheet (the one its
    // "stylesheet" attribute names, else the first) and links each style sheet to the one its
    // "based-on" names, refusing links that would close a cycle.
    virtual void init();

private:
    std::vector<std::unique_ptr<Layout>> mLayouts;
    std::vector<std::unique_ptr<StyleSheet>> mStyleSheets;
};

} // namespace DPTemplate

#endif
