// Style sheets of a template: a style sheet owns its styles, a style owns its border. Each keeps
// the attributes of its start tag; selector matching and the meaning of style properties belong
// to the renderer.
#ifndef OVBASE_DPTEMPLATE_STYLESHEET_H
#define OVBASE_DPTEMPLATE_STYLESHEET_H

#include "dptemplate/AttributeList.h"
#include "types/MString.h"

#include <memory>
#include <utility>
#include <vector>

namespace DPTemplate {

// "color", "width" and "style" of a style's border.
class Border {
public:
    void setAttributes(const AttributeList& attributes) { mAttributes.assign(attributes); }
    void setAttributes(AttributeList&& attributes) { mAttributes.assign(std::move(attributes)); }
    const AttributeVector& getAttributes() const { return mAttributes; }

    const MString& getColor() const { return mAttributes.getAttribute("color"); }
    const MString& getWidth() const { return mAttributes.getAttribute("width"); }
    const MString& getStyle() const { return mAttributes.getAttribute("style"); }

private:
    AttributeVector mAttributes;
};

// One style: its "selector" and its properties ("font", colours, ...), all as written.
class Style {
public:
    void setAttributes(const AttributeList& attributes) { mAttributes.assign(attributes); }
    void setAttributes(AttributeList&& attributes) { mAttributes.assign(std::move(attributes)); }
    const AttributeVector& getAttributes() const { return mAttributes; }

    const MString& getSelector() const { return mAttributes.getAttribute("selector"); }
    const MString& getProperty(const MString& name) const { return mAttributes.getAttribute(name); }

    // Takes ownership; a second border replaces (and frees) the first.
    void setBorder(Border* border) { mBorder.reset(border); }
    Border* getBorder() const { return mBorder.get(); }

private:
    AttributeVector mAttributes;
    std::unique_ptr<Border> mBorder;
};

// Styles under an "id"; "based-on" names another style sheet of the same template whose styles
// apply where this one has none (linked by Template::init()).
class StyleSheet {
public:
    StyleSheet() : mpBase(nullptr) {}

    void setAttributes(const AttributeList& attributes) { mAttributes.assign(attributes); }
    void setAttributes(AttributeList&& attributes) { mAttributes.assign(std::move(attributes)); }
    const AttributeVector& getAttributes() const { return mAttributes; }
    const MString& getId() const { return mAttributes.getAttribute("id"); }
    const MString& getBasedOn() const { return mAttributes.getAttribute("based-on"); }

    // Takes ownership.
    void addStyle(Style* style) {
        // A sheet usually holds many styles: skip the smallest steps of the vector's growth.
        if (mStyles.empty()) {
            mStyles.reserve(8);
        }
        mStyles.push_back(std::unique_ptr<Style>(style));
    }
    unsigned int getStyleCount() const { return static_cast<unsigned int>(mStyles.size()); }
    Style* getStyle(unsigned int index) const { return mStyles[index].get(); }

    // The first style whose selector is exactly SELECTOR, here or else along the based-on
    // chain; null when there is none.
    Style* findStyle(const MString& selector) const;

    // Not owned; null when the sheet is based on none.
    void setBase(StyleSheet* base) { mpBase = base; }
    StyleSheet* getBase() const { return mpBase; }

private:
    AttributeVector mAttributes;
    std::vector<std::unique_ptr<Style>> mStyles;
    StyleSheet* mpBase;
};

} // namespace DPTemplate

#endif
