// The components a layout is built from. A container (layout, box, scroller) holds a list of
// sequences; a sequence (row or column) holds components; a content component (image, text,
// spacer) holds nothing. Every parent owns its children. Components keep the attributes of
// their start tag; what a renderer makes of them is not decided here.
#ifndef OVBASE_DPTEMPLATE_COMPONENT_H
#define OVBASE_DPTEMPLATE_COMPONENT_H

#include "dptemplate/AttributeList.h"
#include "dptemplate/EnumAndText.h"
#include "types/MString.h"

#include <memory>
#include <vector>

namespace DPTemplate {

// Children lists are short: the first child reserves room for a few, so that a parent of up to
// four children costs one allocation instead of three.
template <class Children> void reserveFew(Children& children) {
    if (children.capacity() == 0) {
        children.reserve(4);
    }
}

class Sequence;
class StyleSheet;

class IComponent {
public:
    virtual ~IComponent() {}
    // One of the Component type values.
    virtual int getType() const = 0;
    // The type's word in Component::mTransType ("scrooler" for a scroller).
    virtual const MString& getTypeName() const = 0;
    virtual void setAttributes(const AttributeList& attributes) = 0;
    virtual bool isContainer() const = 0;
};

class Component : public IComponent {
public:
    // Values of mTransType.
    enum Type { BOX = 1, IMAGE = 2, LAYOUT = 3, SCROOLER = 4, SPACER = 5, TEXT = 6 };

    // "box image layout scrooler spacer text"; unknown words give -1.
    static const char* const COMPONENT_TYPE_TRANS_STRING;
    static const EnumAndText mTransType;

    explicit Component(int type);

    int getType() const override { return mType; }
    const MString& getTypeName() const override;
    // Keeps the whole list; later readers ask for any name.
    void setAttributes(const AttributeList& attributes) override;
    // The same, taking the texts over from a list that is refilled anyway.
    void setAttributes(AttributeList&& attributes);
    bool isContainer() const override { return false; }

    const AttributeVector& getAttributes() const { return mAttributes; }
    const MString& getAttribute(const MString& name) const {
        return mAttributes.getAttribute(name);
    }
    const MString& getAttribute(const char* name) const { return mAttributes.getAttribute(name); }
    const MString& getId() const { return getAttribute("id"); }
    const MString& getWidth() const { return getAttribute("width"); }
    const MString& getHeight() const { return getAttribute("height"); }
    // The style class that selects this component's style.
    const MString& getStyleClass() const { return getAttribute("class"); }
    // The news-item property whose value the component shows.
    const MString& getModelProperty() const { return getAttribute("model-property"); }
    // Grid cells covered: the leading number of the attribute, 1 unless it is 1 to 9999.
    int getColSpan() const { return mColSpan; }
    int getRowSpan() const { return mRowSpan; }

private:
    void readSpans();
    static int spanOf(const MString* value);

    int mType;
    AttributeVector mAttributes;
    // Read once from the attributes: the grid asks for them at every container's end tag.
    int mColSpan;
    int mRowSpan;
};

// A row (components side by side) or a column (components one above the other).
class Sequence {
public:
    explicit Sequence(bool column) : mColumn(column) {}

    bool isColumn() const { return mColumn; }
    // Takes ownership.
    void addComponent(Component* component) {
        reserveFew(mComponents);
        mComponents.push_back(std::unique_ptr<Component>(component));
    }

    unsigned int getComponentCount() const { return static_cast<unsigned int>(mComponents.size()); }
    Component* getComponent(unsigned int index) const { return mComponents[index].get(); }

    // Grid cells the sequence covers: a row adds the column spans of its components side by
    // side and is as tall as its tallest; a column the other way round.
    int getGridColumns() const;
    int getGridRows() const;

private:
    bool mColumn;
    std::vector<std::unique_ptr<Component>> mComponents;
};

class Container : public Component {
public:
    explicit Container(int type) : Component(type), mGridRows(0), mGridColumns(0) {}

    bool isContainer() const override { return true; }

    // Takes ownership.
    void addSequence(Sequence* sequence) {
        reserveFew(mSequences);
        mSequences.push_back(std::unique_ptr<Sequence>(sequence));
    }
    // A component placed straight into a container gets a row of its own.
    void setComponent(Component* component);

    unsigned int getSequenceCount() const { return static_cast<unsigned int>(mSequences.size()); }
    Sequence* getSequence(unsigned int index) const { return mSequences[index].get(); }

    // Called once every child is known: the sequences are stacked top to bottom, so the grid is
    // as tall as their rows together and as wide as the widest of them.
    virtual void init();
    int getGridRows() const { return mGridRows; }
    int getGridColumns() const { return mGridColumns; }

private:
    std::vector<std::unique_ptr<Sequence>> mSequences;
    int mGridRows;
    int mGridColumns;
};

// A named tree of components; its "id" attribute is its name in the template, and its
// "stylesheet" attribute names the style sheet it uses (the template's first when absent).
class Layout : public Container {
public:
    Layout() : Container(LAYOUT), mpStyleSheet(nullptr) {}

    const MString& getStyleSheetId() const { return getAttribute("stylesheet"); }
    // Set by Template::init(); not owned.
    void setStyleSheet(StyleSheet* styleSheet) { mpStyleSheet = styleSheet; }
    StyleSheet* getStyleSheet() const { return mpStyleSheet; }

private:
    StyleSheet* mpStyleSheet;
};

class Box : public Container {
public:
    Box() : Container(BOX) {}
};

class Scroller : public Container {
public:
    Scroller() : Container(SCROOLER) {}
};

// An image, text or spacer cell.
class Content : public Component {
public:
    explicit Content(int type) : Component(type) {}

    // Shown when the image named by the model property cannot be found.
    const MString& getAltImage() const { return getAttribute("alt-image"); }
};

} // namespace DPTemplate

#endif
