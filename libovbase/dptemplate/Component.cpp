#include "dptemplate/Component.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <utility>

namespace DPTemplate {

const char* const Component::COMPONENT_TYPE_TRANS_STRING = "box image layout scrooler spacer text";
const EnumAndText Component::mTransType(COMPONENT_TYPE_TRANS_STRING, -1);

Component::Component(int type) : mType(type), mColSpan(1), mRowSpan(1) {}

const MString& Component::getTypeName() const {
    return mTransType.lookUpText(static_cast<unsigned int>(mType));
}

void Component::setAttributes(const AttributeList& attributes) {
    mAttributes.assign(attributes);
    readSpans();
}

void Component::setAttributes(AttributeList&& attributes) {
    mAttributes.assign(std::move(attributes));
    readSpans();
}

void Component::readSpans() {
    // Both spans in one pass over the pairs; the first attribute of each name counts.
    const MString* colSpan = nullptr;
    const MString* rowSpan = nullptr;
    for (const Attribute& attribute : mAttributes) {
        // Both names have eight letters: most attributes are passed over on their length.
        const MString& name = attribute.mName;
        if (name.size() != 8) {
            continue;
        }
        if (!colSpan && name.compare(0, 8, "col-span", 8) == 0) {
            colSpan = &attribute.mValue;
        } else if (!rowSpan && name.compare(0, 8, "row-span", 8) == 0) {
            rowSpan = &attribute.mValue;
        }
    }
    mColSpan = spanOf(colSpan);
    mRowSpan = spanOf(rowSpan);
}

int Component::spanOf(const MString* value) {
    // The leading digits, read by hand: a stream extraction per attribute is the costliest step
    // of building a component. More than four digits is no span a screen could show.
    if (!value) {
        return 1;
    }
    int span = 0;
    std::string::size_type digits = 0;
    for (; digits < value->size() && MString::isDigit((*value)[digits]); ++digits) {
        if (digits == 4) {
            return 1;
        }
        span = span * 10 + ((*value)[digits] - '0');
    }
    return span > 0 ? span : 1;
}

namespace {

// Sums of spans are taken wide and clamped, so that no document can overflow them.
int clamped(std::int64_t value) {
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

} // namespace

int Sequence::getGridColumns() const {
    std::int64_t columns = 0;
    for (const std::unique_ptr<Component>& component : mComponents) {
        std::int64_t span = component->getColSpan();
        columns = mColumn ? std::max(columns, span) : columns + span;
    }
    return clamped(columns);
}

int Sequence::getGridRows() const {
    std::int64_t rows = 0;
    for (const std::unique_ptr<Component>& component : mComponents) {
        std::int64_t span = component->getRowSpan();
        rows = mColumn ? rows + span : std::max(rows, span);
    }
    return clamped(rows);
}

void Container::setComponent(Component* component) {
    // Held until attached, so that a failed allocation frees rather than leaks.
    std::unique_ptr<Component> owned(component);
    std::unique_ptr<Sequence> row(new Sequence(false));
    row->addComponent(owned.release());
    addSequence(row.release());
}

void Container::init() {
    std::int64_t rows = 0;
    int columns = 0;
    for (const std::unique_ptr<Sequence>& sequence : mSequences) {
        rows += sequence->getGridRows();
        columns = std::max(columns, sequence->getGridColumns());
    }
    mGridRows = clamped(rows);
    mGridColumns = columns;
}

} // namespace DPTemplate
