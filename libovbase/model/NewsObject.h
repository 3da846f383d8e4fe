// NewsObject: what a channel and an item of the idle-screen ticker have in common - texts,
// dates, content maps, flags - with the rules that decide whether an object may be shown, the
// texts and images the templates ask for by attribute name, and the keys of the stream form.
// Channel and Item complete it; the carousel places them and sets their back pointers.
//
// Threads: objects belong to the engine's thread. The two switches read from the settings
// (ExcerptBypass, the channel-item mode) are read once per process on first use, without a
// lock, so that first use must happen on one thread.
//
// Ownership: the object owns attrs, author, contentMap, excerptContentMap and link; a Content
// pointer it hands out points into one of its maps (or to the static default channel icon) and
// lives until that map changes. The carousel and channel pointers are back references the
// object does not own.
#ifndef OVBASE_MODEL_NEWSOBJECT_H
#define OVBASE_MODEL_NEWSOBJECT_H

#include "model/ImageHolder.h"
#include "model/Streamable.h"
#include "types/AttrMap.h"
#include "types/ovTypes.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>

class Carousel;
class Channel;
class Item;

class NewsObject : public Streamable {
public:
    // How a link relates to the object. Only stored, never read back (loaded links hold 0).
    enum RelType { REL_ALTERNATE = 0, REL_RELATED, REL_SELF, REL_ENCLOSURE, REL_VIA };

    struct Link {
        ovTypes::String href;
        ovTypes::String type;
        RelType rel = REL_ALTERNATE;
    };

    struct Author {
        ovTypes::String name;
        ovTypes::String url;
        ovTypes::String email;
    };

    // One named part of an object: an image, an xhtml page. contextId is the cache identity of
    // the stored resource; a "dc:" identity names default content.
    struct Content {
        static const ovTypes::ID DEFAULT_CONTENT_TYPE; // "application/octet-stream"

        ovTypes::ID type;
        ovTypes::ID mode;
        ovTypes::ID name;
        ovTypes::ID contextId;
        ovTypes::String href;
        ovTypes::String data;
    };

    // Contents by key, in key order.
    class ContentMap : public std::map<ovTypes::ID, Content> {
    public:
        // The entry keyed NAME; failing that the first, in key order, whose Content.name is
        // NAME; null when there is neither.
        const Content* contentNamed(const ovTypes::ID& name) const;
    };

    // Bits of flags.
    enum {
        FLAG_TRANSIENT = 1 << 0, // built from default content: never written back
        FLAG_DISPLAY_IN_EXCERPT = 1 << 1,
        FLAG_SHOW_EXCERPT = 1 << 2,
        FLAG_VISITED = 1 << 3,
    };

    static constexpr int32_t NO_ACTIVATION_DATE = INT32_MIN;
    static constexpr int32_t NO_PUBLICATION_DATE = INT32_MIN;
    static constexpr int32_t NO_EXPIRATION_DATE = INT32_MAX;
    static constexpr int32_t DEFAULT_PRIORITY = 1000; // below it an object is high priority

    static const ovTypes::ID PRIMARY_XHTML_CONTENT_NAME; // "primaryxhtml"
    static const ovTypes::ID UI_ATTR_TITLE;              // "title"
    static const ovTypes::ID UI_ATTR_DESCRIPTION;        // "description"
    static const ovTypes::ID UI_ATTR_IMAGE;              // "image"
    static const ovTypes::ID UI_ATTR_ITEM_COUNT;         // "item-count"
    static const ovTypes::ID UI_ATTR_CHANNEL_TITLE;      // "ctitle"
    // A link whose href begins with this loads with an empty href.
    static const ovTypes::String SUBSCRIPTION_PAGE_PLACEHOLDER;
    // Shown for a channel without an image of its own: contextId "dc:default-channel-icon.png".
    static const Content DEFAULT_CHANNEL_ICON;

    ~NewsObject() override;

    NewsObject(const NewsObject&) = delete;
    NewsObject& operator=(const NewsObject&) = delete;

    // --- Virtual slots, in this order.

    // Base keys of the stream form; see NewsObject.cpp for the list.
    void loadFromAttrs(AttrMap& attrs) override;
    void storeIntoAttrs(AttrMap& attrs) const override;
    // The carousel that placed the object, or null.
    virtual Carousel* carousel() const = 0;
    // The object as a channel: itself for a Channel, null otherwise.
    virtual const Channel* channel() const { return nullptr; }
    virtual Channel* channel() { return nullptr; }
    // A channel itself; an item's channel (null while the item has none).
    virtual const Channel* getChannel() const = 0;
    // The template to show the object with.
    virtual ovTypes::ID getEffectiveTemplateID() const { return templateID; }
    // The content to show under the image attribute NAME, or null. The image store is asked
    // whether the resource is present.
    virtual const Content* getImageContent(const ovTypes::ID& name) const = 0;
    // Counts one showing; true when that exhausted the object's display count.
    virtual bool incrementDisplayCount() { return false; }
    // True for a channel shown as an entry of its own.
    virtual bool isChannelItem() const = 0;
    // Whether the object may be shown now; each failed rule writes a level-5 line.
    virtual bool isDisplayable() const;
    virtual bool isHighPriority() const { return false; }
    // The object as an item: itself for an Item, null otherwise.
    virtual const Item* item() const { return nullptr; }
    virtual Item* item() { return nullptr; }
    // Saves the object to the content cache under id; 0 on success.
    virtual int store() const = 0;
    // "NewsObject id=<id>\ntitle = <title>\ndescr = <description>\n".
    virtual void print(std::ostream& out) const;
    // The id.
    virtual std::string toString() const { return id; }

    // --- Non-virtual operations.

    using Streamable::store;

    // attrs, made empty first when there is none.
    AttrMap& getAttributes();
    // The default-category string KEY of attrs; empty when attrs is null or lacks it.
    ovTypes::String getStringAttribute(const ovTypes::ID& key) const;

    // Dates are 32-bit seconds: a longer value is clamped to that range, as loading does.
    void setActivationDate(long seconds);
    void setExpirationDate(long seconds);

    // -1 not activated yet, 0 inside the date range, 1 expired (at the very second of
    // expirationDate). Not-activated and expired write a level-5 line.
    int compareEffectiveDates() const;

    // entryType; when it is empty, "csio" for an object without title and description, else
    // "cs".
    ovTypes::ID getEntryType() const;
    // entryType is exactly "csio".
    bool isImageOnly() const;
    // false when the setting ExcerptBypass is true, else the showExcerpt flag.
    bool isExcerptLaunchable() const;
    // Whether channels are shown as entries of the carousel (settings ChannelItemMode and
    // ChannelBarMode of the news-reader UI group, read once per process).
    static bool showingChannelItems();

    // The content of excerptContentMap named "primaryxhtml" (by key, else by name), or null.
    const Content* getExcerptXHTMLContent() const;

    // The text the templates show for the UI attribute: "title", "description", "item-count"
    // ("position/total" from the carousel, empty when the object is not placed), "ctitle" (the
    // title of an item's channel); empty for anything else.
    ovTypes::String getText(const ovTypes::ID& uiAttr) const;
    // The image for NAME: names beginning with "image" through getImageContent, others through
    // the content map; a holder of the found content's contextId and type, or else of NAME with
    // an empty type.
    ImageHolder getImage(const ovTypes::ID& name) const;

    bool isTransient() const { return flags & FLAG_TRANSIENT; }
    void setTransient(bool on) { setFlag(FLAG_TRANSIENT, on); }
    bool isDisplayInExcerpt() const { return flags & FLAG_DISPLAY_IN_EXCERPT; }
    void setDisplayInExcerpt(bool on) { setFlag(FLAG_DISPLAY_IN_EXCERPT, on); }
    bool isShowExcerpt() const { return flags & FLAG_SHOW_EXCERPT; }
    void setShowExcerpt(bool on) { setFlag(FLAG_SHOW_EXCERPT, on); }
    bool isVisited() const { return flags & FLAG_VISITED; }
    // Sets the visited flag and, unless the object is transient, stores the object.
    void setVisitedState();

    // --- Fields, in declaration order.

    uint8_t flags;
    int32_t activationDate;
    std::unique_ptr<AttrMap> attrs;
    std::unique_ptr<Author> author;
    std::unique_ptr<ContentMap> contentMap;
    ovTypes::String description;
    ovTypes::ID entryType;
    ovTypes::String excerpt;
    std::unique_ptr<ContentMap> excerptContentMap;
    int32_t expirationDate;
    ovTypes::ID id;
    std::unique_ptr<Link> link;
    int32_t order;
    ovTypes::ID parentID;
    int32_t priority;
    int32_t pubdate;
    ovTypes::String templateHref;
    ovTypes::ID templateID;
    ovTypes::String title;

protected:
    // Every field at its default, id set to ID.
    explicit NewsObject(const ovTypes::ID& id);

private:
    void setFlag(uint8_t bit, bool on) { flags = on ? (flags | bit) : (flags & ~bit); }
};

// Calls print.
std::ostream& operator<<(std::ostream& out, const NewsObject& object);

#endif
