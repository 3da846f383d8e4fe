#include "utility/NR_Constants.h"

const std::string NR_Constants::ENTRY_TYPE_IMAGE_PLUS_TEXT = "cs";
const std::string NR_Constants::ENTRY_TYPE_IMAGE_ONLY = "csio";

const std::string NR_Constants::STYLE_STANDARD = "standard";
const std::string NR_Constants::STYLE_HIGHLIGHTED = "highlighted";
const std::string NR_Constants::STYLE_STANDARD_V = "standardv";
const std::string NR_Constants::STYLE_HIGHLIGHTED_V = "highlightedv";

#define NR_TOPIC(name) "/kestrix/orvel/newsreader/" name

const std::string NR_Constants::EVENT_INITIATE_MANUAL_REFRESH = NR_TOPIC("initiate_manual_refresh");
const std::string NR_Constants::EVENT_ABORT_MANUAL_REFRESH = NR_TOPIC("abort_manual_refresh");
const std::string NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_STATUS =
    NR_TOPIC("notify/manual_refresh_status");
const std::string NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_COMPLETED =
    NR_TOPIC("notify/network_update_completed");
const std::string NR_Constants::EVENT_NOTIFY_STORAGE_STATUS = NR_TOPIC("notify/storage_status");
const std::string NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_STARTED =
    NR_TOPIC("notify/network_update_started");
const std::string NR_Constants::EVENT_NOTIFY_NETWORK_AVAILABLE =
    NR_TOPIC("notify/network_available");
const std::string NR_Constants::EVENT_NOTIFY_NETWORK_ERROR = NR_TOPIC("notify/network_error");
const std::string NR_Constants::EVENT_NOTIFY_STORAGE_ERROR = NR_TOPIC("notify/storage_error");
const std::string NR_Constants::EVENT_NOTIFY_NETWORK_ACTIVITY_STATUS =
    NR_TOPIC("notify/nw_activity_status");
const std::string NR_Constants::EVENT_CONTAINER_ACTIVATE_STATUS =
    NR_TOPIC("notify/container_activate_status");
const std::string NR_Constants::EVENT_CONTAINER_DEACTIVATE_STATUS =
    NR_TOPIC("notify/container_deactivate_status");
const std::string NR_Constants::EVENT_NOTIFY_QUEUE_IN_PROGRESS_ERROR =
    NR_TOPIC("notify/queue_in_progress_error");
const std::string NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_CANCELLED =
    NR_TOPIC("notify/manual_refresh_cancelled");
const std::string NR_Constants::EVENT_NAVIGATE = NR_TOPIC("navigate");
const std::string NR_Constants::EVENT_LAUNCH_DETAIL_VIEW = NR_TOPIC("launch_detail_view");
const std::string NR_Constants::EVENT_ENDKEY_ON_DETAIL_VIEW = NR_TOPIC("endkey_on_detail_view");
const std::string NR_Constants::EVENT_EXCERPT_LOAD = NR_TOPIC("load_excerpt_content");
const std::string NR_Constants::EVENT_EXCERPT_STATUS = NR_TOPIC("excerpt_view_status");
const std::string NR_Constants::EVENT_EXCERPT_SHUTDOWN = NR_TOPIC("excerpt_view_close");

#undef NR_TOPIC

const std::string NR_Constants::DEFAULT_CACHE_PATH = "/qbxlocal/download/appwrite/ovcache/";
