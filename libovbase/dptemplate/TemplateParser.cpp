#include "dptemplate/TemplateParser.h"

#include "dptemplate/Component.h"
#include "dptemplate/StyleSheet.h"
#include "dptemplate/Template.h"

#include <memory>
#include <utility>

namespace DPTemplate {

const char* const TemplateParser::ELEM_TYPE_TRANS_STRING =
    "template layout stylesheet row col box scroller image text spacer style border";
const EnumAndText TemplateParser::mTransType(ELEM_TYPE_TRANS_STRING, -1);

template <class Object>
void TemplateParser::giveAttributes(Object* object, const AttributeList& attributes) {
    // The texts of the SAX layer's own list are moved rather than copied: it is refilled at the
    // next start tag, and nothing reads it after the object is given its attributes.
    if (AttributeList* reusable = reusableAttributes(attributes)) {
        object->setAttributes(std::move(*reusable));
    } else {
        object->setAttributes(attributes);
    }
}

TemplateParser::TemplateParser() : SaxParser(false), mpTemplate(nullptr), mErrorState(OK) {}

int TemplateParser::parse(std::istream& in, Template* target) {
    if (!target) {
        mErrorState = NO_TEMPLATE;
        return mErrorState;
    }
    mpTemplate = target;
    mErrorState = OK;
    mElementStack.clear();
    mCreatedElements.clear();
    try {
        parseStream(in);
    } catch (...) {
        mErrorState = BAD_STRUCTURE;
    }
    mElementStack.clear();
    return mErrorState;
}

void TemplateParser::onEndDocument() {
    if (mErrorState == OK) {
        mpTemplate->init();
    }
}

void TemplateParser::onStartElement(const MString& name, const AttributeList& attributes) {
    if (mErrorState != OK) {
        return;
    }
    handleStartElement(name, attributes);
    if (mErrorState != OK) {
        // Nothing after this element can change the result: the rest is not read.
        stopParsing();
    }
}

void TemplateParser::handleStartElement(const MString& name, const AttributeList& attributes) {
    if (mElementStack.size() >= MAX_DEPTH) {
        mErrorState = BAD_STRUCTURE;
        return;
    }
    int element = mTransType.lookUpValue(name);
    if (element == TEMPLATE) {
        // Wherever it stands, a template element starts a fresh template context.
        Element entry(mpTemplate, Element::TEMPLATE);
        pushElement(entry);
        return;
    }
    if (mElementStack.empty()) {
        // The document does not start with a template element.
        mErrorState = BAD_STRUCTURE;
        return;
    }
    switch (mElementStack.back().mKind) {
    case Element::TEMPLATE:
        onTemplate(element, attributes);
        break;
    case Element::STYLESHEET:
        onStyleSheet(element, attributes);
        break;
    case Element::STYLE:
        onStyle(element, attributes);
        break;
    case Element::CONTAINER:
        onContainer(element, attributes);
        break;
    case Element::SEQUENCE:
        onSequence(element, attributes);
        break;
    default: // nothing may stand in a border or a content component
        mErrorState = BAD_STRUCTURE;
        break;
    }
}

void TemplateParser::onEndElement(const MString&) {
    if (mErrorState != OK || mElementStack.empty()) {
        return;
    }
    const Element& innermost = mElementStack.back();
    if (innermost.mKind == Element::CONTAINER) {
        static_cast<Container*>(innermost.mpObject)->init();
    }
    mElementStack.pop_back();
}

void TemplateParser::onTemplate(int element, const AttributeList& attributes) {
    Template* target = static_cast<Template*>(mElementStack.back().mpObject);
    if (element == LAYOUT) {
        Layout* layout = new Layout;
        target->addLayout(layout);
        giveAttributes(layout, attributes);
        Element entry(static_cast<Container*>(layout), Element::CONTAINER);
        pushElement(entry);
    } else if (element == STYLESHEET) {
        StyleSheet* sheet = new StyleSheet;
        target->addStyleSheet(sheet);
        giveAttributes(sheet, attributes);
        Element entry(sheet, Element::STYLESHEET);
        pushElement(entry);
    } else {
        mErrorState = BAD_STRUCTURE;
    }
}

void TemplateParser::onStyleSheet(int element, const AttributeList& attributes) {
    if (element != STYLE) {
        mErrorState = BAD_STRUCTURE;
        return;
    }
    StyleSheet* sheet = static_cast<StyleSheet*>(mElementStack.back().mpObject);
    Style* style = new Style;
    sheet->addStyle(style);
    giveAttributes(style, attributes);
    Element entry(style, Element::STYLE);
    pushElement(entry);
}

void TemplateParser::onStyle(int element, const AttributeList& attributes) {
    if (element != BORDER) {
        mErrorState = BAD_STRUCTURE;
        return;
    }
    Style* style = static_cast<Style*>(mElementStack.back().mpObject);
    Border* border = new Border;
    style->setBorder(border);
    giveAttributes(border, attributes);
    Element entry(border, Element::BORDER);
    pushElement(entry);
}

void TemplateParser::onContainer(int element, const AttributeList& attributes) {
    Container* container = static_cast<Container*>(mElementStack.back().mpObject);
    if (element == ROW || element == COL) {
        Sequence* sequence = new Sequence(element == COL);
        container->addSequence(sequence);
        Element entry(sequence, Element::SEQUENCE);
        pushElement(entry);
        return;
    }
    // Objects are owned by their parent from the moment they are made: the component is
    // attached before anything else can fail.
    Component* component = onComponent(element);
    if (component) {
        container->setComponent(component);
        giveAttributes(component, attributes);
    }
}

void TemplateParser::onSequence(int element, const AttributeList& attributes) {
    Sequence* sequence = static_cast<Sequence*>(mElementStack.back().mpObject);
    Component* component = onComponent(element);
    if (component) {
        sequence->addComponent(component);
        giveAttributes(component, attributes);
    }
}

Component* TemplateParser::onComponent(int element) {
    // Containers are recorded as Container* so that onContainer and onEndElement can cast back.
    std::unique_ptr<Component> component;
    void* object = nullptr;
    int kind = Element::CONTENT;
    switch (element) {
    case BOX:
    case SCROLLER: {
        Container* container = element == BOX ? static_cast<Container*>(new Box)
                                              : static_cast<Container*>(new Scroller);
        component.reset(container);
        object = container;
        kind = Element::CONTAINER;
        break;
    }
    case IMAGE:
        component.reset(new Content(Component::IMAGE));
        break;
    case TEXT:
        component.reset(new Content(Component::TEXT));
        break;
    case SPACER:
        component.reset(new Content(Component::SPACER));
        break;
    default:
        mErrorState = BAD_STRUCTURE;
        return nullptr;
    }
    if (!object) {
        object = component.get();
    }
    Element entry(object, kind);
    pushElement(entry);
    // The caller attaches it to its parent at once.
    return component.release();
}

void TemplateParser::pushElement(Element& element) {
    mElementStack.push_back(element);
    mCreatedElements.push_back(element);
}

} // namespace DPTemplate
