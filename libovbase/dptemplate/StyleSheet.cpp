#include "dptemplate/StyleSheet.h"

namespace DPTemplate {

Style* StyleSheet::findStyle(const MString& selector) const {
    // Template::init() never links a cycle or a long chain, but a hand-built one might.
    const StyleSheet* sheet = this;
    for (int steps = 0; sheet && steps <= 64; ++steps, sheet = sheet->mpBase) {
        for (const std::unique_ptr<Style>& style : sheet->mStyles) {
            if (style->getSelector() == selector) {
                return style.get();
            }
        }
    }
    return nullptr;
}

} // namespace DPTemplate
