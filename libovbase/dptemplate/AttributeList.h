// The attributes of one start tag, in document order.
#ifndef OVBASE_DPTEMPLATE_ATTRIBUTELIST_H
#define OVBASE_DPTEMPLATE_ATTRIBUTELIST_H

#include "types/MString.h"

#include <deque>
#include <iterator>
#include <vector>

namespace DPTemplate {

struct Attribute {
    Attribute() {}
    Attribute(const MString& name, const MString& value) : mName(name), mValue(value) {}
    Attribute(const char* name, const char* value) : mName(name), mValue(value) {}

    MString mName;
    MString mValue;
};

class AttributeList {
public:
    typedef std::deque<Attribute>::iterator iterator;
    typedef std::deque<Attribute>::const_iterator const_iterator;

    void add(const MString& name, const MString& value) { mAttributes.emplace_back(name, value); }
    // Builds the pair in place from libxml2's texts.
    void add(const char* name, const char* value) { mAttributes.emplace_back(name, value); }
    void clear() { mAttributes.clear(); }

    // The value of the first attribute named exactly NAME; "" when there is none, so an absent
    // attribute and an empty one look the same to every reader.
    const MString& getAttribute(const MString& name) const;

    unsigned int size() const { return static_cast<unsigned int>(mAttributes.size()); }
    bool empty() const { return mAttributes.empty(); }
    const Attribute& operator[](unsigned int index) const { return mAttributes[index]; }
    const_iterator begin() const { return mAttributes.begin(); }
    const_iterator end() const { return mAttributes.end(); }
    // For a reader that takes the pairs' texts over instead of copying them.
    iterator begin() { return mAttributes.begin(); }
    iterator end() { return mAttributes.end(); }

private:
    std::deque<Attribute> mAttributes;
};

// The attributes an object keeps from its start tag: the same pairs in the same order, stored
// compactly, since a template keeps one such copy per element.
class AttributeVector {
public:
    typedef std::vector<Attribute>::const_iterator const_iterator;

    void assign(const AttributeList& attributes) {
        mAttributes.assign(attributes.begin(), attributes.end());
    }
    // Takes the texts over; ATTRIBUTES keeps its pairs with their texts emptied.
    void assign(AttributeList&& attributes) {
        mAttributes.assign(std::make_move_iterator(attributes.begin()),
                           std::make_move_iterator(attributes.end()));
    }

    // As AttributeList::getAttribute: the first of that name, "" when there is none.
    const MString& getAttribute(const MString& name) const;
    // The same without making a string of a literal name.
    const MString& getAttribute(const char* name) const;

    unsigned int size() const { return static_cast<unsigned int>(mAttributes.size()); }
    bool empty() const { return mAttributes.empty(); }
    const Attribute& operator[](unsigned int index) const { return mAttributes[index]; }
    const_iterator begin() const { return mAttributes.begin(); }
    const_iterator end() const { return mAttributes.end(); }

private:
    std::vector<Attribute> mAttributes;
};

} // namespace DPTemplate

#endif
