// Streamable: the root of everything the content cache stores as an object file. An object
// turns itself into an attribute map and back; its stream form is exactly that map's stream
// form (list mode, every value in the default category).
//
// Threads: an object is used by one thread at a time (the engine's); nothing here locks.
#ifndef OVBASE_MODEL_STREAMABLE_H
#define OVBASE_MODEL_STREAMABLE_H

#include "types/ovTypes.h"

#include <iosfwd>
#include <vector>

class AttrMap;

class Streamable {
public:
    virtual ~Streamable() = 0;

    // Reads every key the object knows from ATTRS; an absent key gives its default.
    virtual void loadFromAttrs(AttrMap& attrs) = 0;
    // Writes the object's keys into ATTRS.
    virtual void storeIntoAttrs(AttrMap& attrs) const = 0;

    // Writes the stream form to OUT: AttrMap::store of what storeIntoAttrs gives, byte for
    // byte, except that a line feed in a key or value (which the writers of values should
    // never put there) is written as a space, so no text can add lines of its own. False when
    // the stream failed while taking it.
    bool store(std::ostream& out) const;
    // Reads the stream form from IN. Any bytes are accepted: what is not a known key line
    // leaves the field at its default, so a garbage or truncated stream gives the defaults.
    void load(std::istream& in);
    // The number of bytes store() writes.
    unsigned long getStreamLength() const;

protected:
    // Replaces OUT with the identities listed under KEY, skipping empty ones: they name no
    // object, and an empty list reads back as one.
    static void loadIDs(const AttrMap& attrs, const char* key, std::vector<ovTypes::ID>& out);
};

#endif
