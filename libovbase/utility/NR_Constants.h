// Constants shared by the news-reader engine and its host application: entry types, style
// names, the news-reader event topics and the default cache directory. All are built by
// static initialisers when the library is loaded and live as long as the program.
#ifndef OVBASE_UTILITY_NR_CONSTANTS_H
#define OVBASE_UTILITY_NR_CONSTANTS_H

#include <string>

class NR_Constants {
public:
    // Entry types of a channel's items.
    static const std::string ENTRY_TYPE_IMAGE_PLUS_TEXT; // "cs"
    static const std::string ENTRY_TYPE_IMAGE_ONLY;      // "csio"

    // Style names used by the presentation of items (plain and vertical variants).
    static const std::string STYLE_STANDARD;
    static const std::string STYLE_HIGHLIGHTED;
    static const std::string STYLE_STANDARD_V;
    static const std::string STYLE_HIGHLIGHTED_V;

    // News-reader event topics.
    static const std::string EVENT_INITIATE_MANUAL_REFRESH;
    static const std::string EVENT_ABORT_MANUAL_REFRESH;
    static const std::string EVENT_NOTIFY_MANUAL_REFRESH_STATUS;
    static const std::string EVENT_NOTIFY_NETWORK_UPDATE_COMPLETED;
    static const std::string EVENT_NOTIFY_STORAGE_STATUS;
    static const std::string EVENT_NOTIFY_NETWORK_UPDATE_STARTED;
    static const std::string EVENT_NOTIFY_NETWORK_AVAILABLE;
    static const std::string EVENT_NOTIFY_NETWORK_ERROR;
    static const std::string EVENT_NOTIFY_STORAGE_ERROR;
    static const std::string EVENT_NOTIFY_NETWORK_ACTIVITY_STATUS;
    static const std::string EVENT_CONTAINER_ACTIVATE_STATUS;
    static const std::string EVENT_CONTAINER_DEACTIVATE_STATUS;
    static const std::string EVENT_NOTIFY_QUEUE_IN_PROGRESS_ERROR;
    static const std::string EVENT_NOTIFY_MANUAL_REFRESH_CANCELLED;
    static const std::string EVENT_NAVIGATE;
    static const std::string EVENT_LAUNCH_DETAIL_VIEW;
    static const std::string EVENT_ENDKEY_ON_DETAIL_VIEW;
    static const std::string EVENT_EXCERPT_LOAD;
    static const std::string EVENT_EXCERPT_STATUS;
    static const std::string EVENT_EXCERPT_SHUTDOWN;

    // Where the content cache lives unless told otherwise (a device path, ends in '/').
    static const std::string DEFAULT_CACHE_PATH;
};

#endif
