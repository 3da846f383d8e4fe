// Reads template markup into a Template in one pass. The parser keeps a stack of the open
// elements; each start tag is checked against the element it stands in, and the first one that
// stands where it may not puts the parser into error state 2, after which the rest of the
// document is ignored (and not read).
#ifndef OVBASE_DPTEMPLATE_TEMPLATEPARSER_H
#define OVBASE_DPTEMPLATE_TEMPLATEPARSER_H

#include "dptemplate/EnumAndText.h"
#include "dptemplate/SaxParser.h"

#include <deque>
#include <iosfwd>
#include <vector>

namespace DPTemplate {

class Component;
class Template;

// One open element: the object built for it and what kind of object that is.
struct Element {
    enum Kind {
        TEMPLATE = 1,
        STYLESHEET = 2,
        STYLE = 3,
        BORDER = 4,
        CONTAINER = 5, // layout, box, scroller: the object is a Container*
        CONTENT = 6,   // image, text, spacer: the object is a Component*
        SEQUENCE = 7   // row, col
    };

    Element(void* object, int kind) : mpObject(object), mKind(kind) {}

    void* mpObject;
    int mKind;
};

class TemplateParser : public SaxParser {
public:
    // Values of mTransType, the element names.
    enum ElementType {
        TEMPLATE = 1,
        LAYOUT = 2,
        STYLESHEET = 3,
        ROW = 4,
        COL = 5,
        BOX = 6,
        SCROLLER = 7,
        IMAGE = 8,
        TEXT = 9,
        SPACER = 10,
        STYLE = 11,
        BORDER = 12
    };

    // Results of parse().
    enum ErrorState { OK = 0, NO_TEMPLATE = 1, BAD_STRUCTURE = 2 };

    // Open elements allowed at once. libxml2's push parser sets no depth limit of its own, and
    // the objects built are freed recursively; a deeper document is bad structure (state 2).
    static constexpr unsigned int MAX_DEPTH = 256;

    static const char* const ELEM_TYPE_TRANS_STRING;
    static const EnumAndText mTransType;

    TemplateParser();

    // Fills TARGET from the markup read from IN; 0 when the document is acceptable, 1 when
    // TARGET is null (nothing is read), 2 when an element stands where it may not. A failure
    // raised while reading (the stream failed, memory ran out) leaves a template just as
    // unusable, so it gives 2 as well rather than escaping to the caller. Keep the template
    // only on 0. A parser may be used again afterwards.
    int parse(std::istream& in, Template* target);

    int getErrorState() const { return mErrorState; }
    // Everything built by the last parse, in creation order (the template included).
    const std::vector<Element>& getCreatedElements() const { return mCreatedElements; }

protected:
    using SaxParser::parse;

    void onStartDocument() override {}
    void onEndDocument() override;
    void onStartElement(const MString& name, const AttributeList& attributes) override;
    void onEndElement(const MString& name) override;
    void onCharacters(const MString&) override {}
    void onComment(const MString&) override {}
    void onCdataBlock(const MString&) override {}

    // One handler per kind of innermost element; each accepts what may stand in it.
    void onTemplate(int element, const AttributeList& attributes);
    void onStyleSheet(int element, const AttributeList& attributes);
    void onStyle(int element, const AttributeList& attributes);
    void onContainer(int element, const AttributeList& attributes);
    void onSequence(int element, const AttributeList& attributes);
    // Makes and pushes the component ELEMENT names; null (and error state 2) for others.
    Component* onComponent(int element);
    void pushElement(Element& element);

private:
    // The checks and the building of onStartElement, in error state 0.
    void handleStartElement(const MString& name, const AttributeList& attributes);
    // OBJECT->setAttributes(ATTRIBUTES), moving the texts where the list allows it.
    template <class Object> void giveAttributes(Object* object, const AttributeList& attributes);

    std::deque<Element> mElementStack;
    std::vector<Element> mCreatedElements;
    Template* mpTemplate;
    int mErrorState;
};

} // namespace DPTemplate

#endif
