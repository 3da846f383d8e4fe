#include "dptemplate/Template.h"

#include <map>

namespace DPTemplate {

Layout* Template::getLayout(const MString& id) const {
    for (const std::unique_ptr<Layout>& layout : mLayouts) {
        if (layout->getId() == id) {
            return layout.get();
        }
    }
    return nullptr;
}

StyleSheet* Template::getStyleSheet(const MString& id) const {
    for (const std::unique_ptr<StyleSheet>& sheet : mStyleSheets) {
        if (sheet->getId() == id) {
            return sheet.get();
        }
    }
    return nullptr;
}

namespace {

// Based-on chains longer than this are refused, which also bounds every walk along them.
const int MAX_BASE_CHAIN = 64;

// True when linking SHEET to BASE keeps the chains acyclic and short.
bool canLink(const StyleSheet* sheet, const StyleSheet* base) {
    const StyleSheet* step = base;
    for (int length = 0; step; step = step->getBase(), ++length) {
        if (step == sheet || length >= MAX_BASE_CHAIN) {
            return false;
        }
    }
    return true;
}

} // namespace

void Template::init() {
    // The first sheet of each id wins, as in getStyleSheet(); a map keeps large documents linear.
    std::map<MString, StyleSheet*> byId;
    for (const std::unique_ptr<StyleSheet>& sheet : mStyleSheets) {
        sheet->setBase(nullptr);
        byId.emplace(sheet->getId(), sheet.get());
    }
    for (const std::unique_ptr<StyleSheet>& sheet : mStyleSheets) {
        if (sheet->getBasedOn().empty()) {
            continue;
        }
        std::map<MString, StyleSheet*>::const_iterator base = byId.find(sheet->getBasedOn());
        if (base != byId.end() && canLink(sheet.get(), base->second)) {
            sheet->setBase(base->second);
        }
    }
    StyleSheet* first = mStyleSheets.empty() ? nullptr : mStyleSheets.front().get();
    for (const std::unique_ptr<Layout>& layout : mLayouts) {
        std::map<MString, StyleSheet*>::const_iterator named = byId.end();
        if (!layout->getStyleSheetId().empty()) {
            named = byId.find(layout->getStyleSheetId());
        }
        layout->setStyleSheet(named != byId.end() ? named->second : first);
    }
}

} // namespace DPTemplate
