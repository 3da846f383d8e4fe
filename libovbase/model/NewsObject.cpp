#include "model/NewsObject.h"

#include "dptemplate/TemplateManager.h"
#include "model/Carousel.h"
#include "model/Channel.h"
#include "settings/NR_SettingMgr.h"
#include "types/FnLog.h"
#include "utility/NR_Constants.h"

#include <climits>
#include <cstdio>
#include <ostream>

using ovTypes::ID;
using ovTypes::String;

const ID NewsObject::Content::DEFAULT_CONTENT_TYPE = "application/octet-stream";

const ID NewsObject::PRIMARY_XHTML_CONTENT_NAME = "primaryxhtml";
const ID NewsObject::UI_ATTR_TITLE = "title";
const ID NewsObject::UI_ATTR_DESCRIPTION = "description";
const ID NewsObject::UI_ATTR_IMAGE = "image";
const ID NewsObject::UI_ATTR_ITEM_COUNT = "item-count";
const ID NewsObject::UI_ATTR_CHANNEL_TITLE = "ctitle";
const String NewsObject::SUBSCRIPTION_PAGE_PLACEHOLDER = L"SUBSCRIPTION_PAGE_PLACEHOLDER";

namespace {

NewsObject::Content defaultChannelIcon() {
    NewsObject::Content icon;
    icon.contextId = "dc:default-channel-icon.png";
    return icon;
}

// Stored numbers are 32-bit; a longer one (read from a stream, or given to a setter) is
// clamped, not cut.
int32_t clampToInt32(long value) {
    if (value < INT32_MIN)
        return INT32_MIN;
    if (value > INT32_MAX)
        return INT32_MAX;
    return static_cast<int32_t>(value);
}

// The stored field names of a Content, in the order they are written.
const char* const kContentFields[] = {"type", "mode", "name", "contextId", "href", "data"};

void putContentMap(AttrMap& attrs, const char* prefix, const NewsObject::ContentMap& map) {
    for (const auto& entry : map) {
        const NewsObject::Content& content = entry.second;
        const String values[] = {content.type,      content.mode, content.name,
                                 content.contextId, content.href, content.data};
        for (size_t i = 0; i < sizeof values / sizeof values[0]; ++i) {
            if (!values[i].empty())
                attrs.putString(ID(prefix) + "." + entry.first + "." + kContentFields[i],
                                values[i]);
        }
    }
}

bool isContentField(const std::string& field) {
    for (const char* name : kContentFields) {
        if (field == name)
            return true;
    }
    return false;
}

void setContentField(NewsObject::Content& content, const std::string& field, const String& value) {
    if (field == "type")
        content.type = ID(value);
    else if (field == "mode")
        content.mode = ID(value);
    else if (field == "name")
        content.name = ID(value);
    else if (field == "contextId")
        content.contextId = ID(value);
    else if (field == "href")
        content.href = value;
    else if (field == "data")
        content.data = value;
}

// The map stored under PREFIX, or null when it holds no entry. A key is the prefix, the entry
// key (which may hold dots) and a field name after the last dot; other keys are ignored.
std::unique_ptr<NewsObject::ContentMap> loadContentMap(const AttrMap& attrs, const char* prefix) {
    AttrMap nested(true);
    attrs.getAttrMap(prefix, nested);
    std::unique_ptr<NewsObject::ContentMap> map;
    const AttrMap::KeyMap* keys = nested.defaultCategory();
    if (!keys)
        return map;
    for (const auto& key : *keys) {
        size_t dot = key.first.rfind('.');
        if (dot == std::string::npos || key.second.empty())
            continue;
        std::string field = key.first.substr(dot + 1);
        if (!isContentField(field))
            continue;
        if (!map)
            map.reset(new NewsObject::ContentMap);
        setContentField((*map)[key.first.substr(0, dot)], field, key.second.front());
    }
    return map;
}

bool readExcerptBypass() {
    bool bypass = false;
    int error = OrvelSettingMgr::getSettingMgrInstance()->getBoolean(
        OrvelSettingMgr::GROUP_NEWSREADER_UI, "ExcerptBypass", bypass);
    if (error != 0)
        OV_LOG(2, "Couldn't read setting ExcerptBypass: %d. Using %d\n\n", error, bypass);
    return bypass;
}

bool readShowingChannelItems() {
    OrvelSettingMgr* settings = OrvelSettingMgr::getSettingMgrInstance();
    int itemMode = 0;
    int error = settings->getInt(OrvelSettingMgr::GROUP_NEWSREADER_UI, "ChannelItemMode", itemMode);
    if (error != 0)
        OV_LOG(2, "Couldn't read setting ChannelItemMode: %d. Using %d\n\n", error, itemMode);
    if (itemMode != 1)
        return itemMode == 2;
    int barMode = 1;
    error = settings->getInt(OrvelSettingMgr::GROUP_NEWSREADER_UI, "ChannelBarMode", barMode);
    if (error != 0)
        OV_LOG(2, "Couldn't read setting ChannelBarMode: %d. Using %d\n\n", error, barMode);
    return barMode == 1;
}

} // namespace

const NewsObject::Content NewsObject::DEFAULT_CHANNEL_ICON = defaultChannelIcon();

const NewsObject::Content* NewsObject::ContentMap::contentNamed(const ID& name) const {
    const_iterator keyed = find(name);
    if (keyed != end())
        return &keyed->second;
    for (const auto& entry : *this) {
        if (entry.second.name == name)
            return &entry.second;
    }
    return nullptr;
}

NewsObject::NewsObject(const ID& id)
    : flags(FLAG_DISPLAY_IN_EXCERPT | FLAG_SHOW_EXCERPT), activationDate(NO_ACTIVATION_DATE),
      entryType(NR_Constants::ENTRY_TYPE_IMAGE_PLUS_TEXT), expirationDate(NO_EXPIRATION_DATE),
      id(id), order(0), priority(DEFAULT_PRIORITY), pubdate(NO_PUBLICATION_DATE) {}

NewsObject::~NewsObject() {
    OV_LOG(5, "~NewsObject(%s)\n\n", id.c_str());
}

void NewsObject::storeIntoAttrs(AttrMap& out) const {
    if (attrs)
        out.putAttrMap("attrs", *attrs);
    if (author) {
        out.putString("author.name", author->name);
        out.putString("author.url", author->url);
        out.putString("author.email", author->email);
    }
    out.putTimestamp("activationDate", activationDate);
    if (contentMap)
        putContentMap(out, "contentMap", *contentMap);
    if (excerptContentMap)
        putContentMap(out, "excerptContentMap", *excerptContentMap);
    out.putString("desc", description);
    out.putBool("displayInExcerpt", isDisplayInExcerpt());
    out.putTimestamp("expirationDate", expirationDate);
    out.putString("entryType", entryType);
    out.putString("excerpt", excerpt);
    if (link) {
        out.putString("link.href", link->href);
        out.putString("link.type", link->type);
        out.putInt("link.rel", link->rel);
    }
    out.putInt("order", order);
    if (!parentID.empty())
        out.putString("parentID", parentID);
    out.putInt("priority", priority);
    out.putLong("pubdate", pubdate);
    out.putBool("showExcerpt", isShowExcerpt());
    out.putString("template", templateID);
    out.putString("templateHref", templateHref);
    out.putString("title", title);
    out.putBool("visited", isVisited());
}

void NewsObject::loadFromAttrs(AttrMap& in) {
    bool found = false;
    std::unique_ptr<AttrMap> nested(new AttrMap(true));
    in.getAttrMap("attrs", *nested, &found);
    attrs.reset(found ? nested.release() : nullptr);

    bool name = false, url = false, email = false;
    Author read;
    read.name = in.getString("author.name", String(), &name);
    read.url = in.getString("author.url", String(), &url);
    read.email = in.getString("author.email", String(), &email);
    author.reset(name || url || email ? new Author(read) : nullptr);

    activationDate = clampToInt32(in.getTimestamp("activationDate", NO_ACTIVATION_DATE));
    contentMap = loadContentMap(in, "contentMap");
    excerptContentMap = loadContentMap(in, "excerptContentMap");
    description = in.getString("desc");
    setDisplayInExcerpt(in.getBool("displayInExcerpt", true));
    expirationDate = clampToInt32(in.getTimestamp("expirationDate", NO_EXPIRATION_DATE));
    entryType = ID(in.getString("entryType", ID(NR_Constants::ENTRY_TYPE_IMAGE_PLUS_TEXT)));
    excerpt = in.getString("excerpt");

    // link.rel is written but not read back: a loaded link always holds 0.
    String href = in.getString("link.href", String(), &found);
    if (found) {
        link.reset(new Link);
        if (href.compare(0, SUBSCRIPTION_PAGE_PLACEHOLDER.size(), SUBSCRIPTION_PAGE_PLACEHOLDER) ==
            0)
            href.clear();
        link->href = href;
        link->type = in.getString("link.type");
    } else {
        link.reset();
    }

    order = in.getInt("order", 0);
    parentID = ID(in.getString("parentID"));
    priority = in.getInt("priority", DEFAULT_PRIORITY);
    pubdate = clampToInt32(in.getLong("pubdate", NO_PUBLICATION_DATE));
    setShowExcerpt(in.getBool("showExcerpt", true));
    templateID = ID(in.getString("template"));
    templateHref = in.getString("templateHref");
    title = in.getString("title");
    setFlag(FLAG_VISITED, in.getBool("visited", false));
}

bool NewsObject::isDisplayable() const {
    if (compareEffectiveDates() != 0) {
        OV_LOG(5, "%s outside of date range\n\n", id.c_str());
        return false;
    }
    ID templateForDisplay = getEffectiveTemplateID();
    if (!DPTemplate::TemplateManager::getInstance()->get(templateForDisplay)) {
        OV_LOG(5, "%s template for ID %s not present\n\n", id.c_str(), templateForDisplay.c_str());
        return false;
    }
    if (!getImageContent(UI_ATTR_IMAGE)) {
        OV_LOG(5, "%s no image for display\n\n", id.c_str());
        return false;
    }
    return true;
}

void NewsObject::print(std::ostream& out) const {
    out << "NewsObject id=" << id << "\n"
        << "title = " << title << "\ndescr = " << description << "\n";
}

AttrMap& NewsObject::getAttributes() {
    if (!attrs)
        attrs.reset(new AttrMap(true));
    return *attrs;
}

String NewsObject::getStringAttribute(const ID& key) const {
    return attrs ? attrs->getString(key) : String();
}

void NewsObject::setActivationDate(long seconds) {
    activationDate = clampToInt32(seconds);
}

void NewsObject::setExpirationDate(long seconds) {
    expirationDate = clampToInt32(seconds);
}

int NewsObject::compareEffectiveDates() const {
    long now = ovTypes::Time::getCurrentTime().getCount();
    if (activationDate > now) {
        OV_LOG(5, "NewsObject::compareEffectiveDates(%s) not activated\n\n", id.c_str());
        return -1;
    }
    if (expirationDate > now)
        return 0;
    OV_LOG(5, "NewsObject::compareEffectiveDates(%s) expired\n\n", id.c_str());
    return 1;
}

ID NewsObject::getEntryType() const {
    if (!entryType.empty())
        return entryType;
    if (title.empty() && description.empty())
        return NR_Constants::ENTRY_TYPE_IMAGE_ONLY;
    return NR_Constants::ENTRY_TYPE_IMAGE_PLUS_TEXT;
}

bool NewsObject::isImageOnly() const {
    return entryType == NR_Constants::ENTRY_TYPE_IMAGE_ONLY;
}

bool NewsObject::isExcerptLaunchable() const {
    static const bool bypass = readExcerptBypass();
    return bypass ? false : isShowExcerpt();
}

bool NewsObject::showingChannelItems() {
    static const bool showing = readShowingChannelItems();
    return showing;
}

const NewsObject::Content* NewsObject::getExcerptXHTMLContent() const {
    return excerptContentMap ? excerptContentMap->contentNamed(PRIMARY_XHTML_CONTENT_NAME)
                             : nullptr;
}

String NewsObject::getText(const ID& uiAttr) const {
    if (uiAttr == UI_ATTR_TITLE)
        return title;
    if (uiAttr == UI_ATTR_DESCRIPTION)
        return description;
    if (uiAttr == UI_ATTR_ITEM_COUNT) {
        int position = Carousel::NOT_PLACED, total = 0;
        if (Carousel* holder = carousel())
            holder->itemCount(*this, position, total);
        if (position == Carousel::NOT_PLACED || position == Carousel::ITEM_NOT_PLACED)
            return String();
        if (showingChannelItems()) {
            ++position;
            ++total;
        }
        char text[32];
        std::snprintf(text, sizeof text, "%d/%d", position, total);
        return String(ID(text));
    }
    if (uiAttr == UI_ATTR_CHANNEL_TITLE) {
        const Channel* own = isChannelItem() ? nullptr : getChannel();
        return own ? own->title : String();
    }
    return String();
}

ImageHolder NewsObject::getImage(const ID& name) const {
    const Content* found = nullptr;
    if (name.compare(0, UI_ATTR_IMAGE.size(), UI_ATTR_IMAGE) == 0)
        found = getImageContent(name);
    else if (contentMap)
        found = contentMap->contentNamed(name);
    return found ? ImageHolder::forID(found->contextId, found->type)
                 : ImageHolder::forID(name, ID());
}

void NewsObject::setVisitedState() {
    setFlag(FLAG_VISITED, true);
    if (!isTransient())
        store();
}

std::ostream& operator<<(std::ostream& out, const NewsObject& object) {
    object.print(out);
    return out;
}
