// An event of the library: a topic, a principal value and optional text properties. Events
// are plain values owned by whoever makes them; the facade and handlers borrow them for the
// length of a call. Copies share the property map (it is held by a PtrRef).
#ifndef OVBASE_EVENTSTATUSLIB_OV_EVENT_H
#define OVBASE_EVENTSTATUSLIB_OV_EVENT_H

#include "thread/PtrRef.h"

#include <cstdint>
#include <map>
#include <string>

class OV_Event {
public:
    typedef std::map<const std::string, std::string> PropMap;

    explicit OV_Event(const std::string& eventType);
    virtual ~OV_Event();

    // Sets property KEY, creating the map on the first write.
    void setProperty(const std::string& key, const std::string& value);
    // True, and *VALUE set when VALUE is not null, when the event carries property KEY.
    bool getProperty(const std::string& key, std::string* value) const;

    std::string mEventType;   // the topic
    int32_t mValue;           // 0 unless set
    PtrRef<PropMap> mPropMap; // null until the first property is set
    std::string mText;        // free text, empty unless a publisher fills it
};

#endif
