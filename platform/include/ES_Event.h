// An event of the platform's publish/subscribe bus: a topic and a map of text properties.
#ifndef OVPLATFORM_ES_EVENT_H
#define OVPLATFORM_ES_EVENT_H

#include <map>
#include <string>

// Results of the bus calls.
enum ES_STATUS {
    ES_OK = 0,
    ES_ERR_NO_SUBSCRIBER = 1,   // published, but no one listens to the topic
    ES_ERR_INVALID_TOPIC = 2,   // empty topic
    ES_ERR_INVALID_HANDLER = 3, // null handler
    ES_ERR_NOT_SUBSCRIBED = 4,  // unsubscribe of a handler the topic does not have
    ES_ERR_BUS_DOWN = 5         // the bus was shut down, or its D-Bus connection is lost
};

class ES_Event {
public:
    typedef std::map<std::string, std::string> PropertyMap;

    ES_Event() {}
    explicit ES_Event(const std::string& topic) : mTopic(topic) {}

    const std::string& getTopic() const { return mTopic; }
    void setTopic(const std::string& topic) { mTopic = topic; }

    const PropertyMap& getProperties() const { return mProperties; }
    void setProperty(const std::string& key, const std::string& value) { mProperties[key] = value; }
    // True and *VALUE set when KEY is present.
    bool getProperty(const std::string& key, std::string* value) const {
        PropertyMap::const_iterator it = mProperties.find(key);
        if (it == mProperties.end())
            return false;
        if (value)
            *value = it->second;
        return true;
    }

private:
    std::string mTopic;
    PropertyMap mProperties;
};

#endif
