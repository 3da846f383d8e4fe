// The names that other processes and the host application rely on: a topic mistyped here
// would silently split the traffic between two spellings.
#include "eventstatuslib/OV_WBEventStatusAdapter.h"
#include "utility/NR_Constants.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

typedef OV_WBEventStatusAdapter Adapter;

TEST(TopicTable, ConstantsHoldTheWireNames) {
    // Full names, spelled out after their shared beginnings.
    const std::string reader = "/kestrix/orvel/newsreader/", notify = reader + "notify/";
    const std::string platform = "/kestrix/orvel/platform/";
    const std::vector<std::pair<std::string, std::string>> table = {
        {NR_Constants::EVENT_INITIATE_MANUAL_REFRESH, reader + "initiate_manual_refresh"},
        {NR_Constants::EVENT_ABORT_MANUAL_REFRESH, reader + "abort_manual_refresh"},
        {NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_STATUS, notify + "manual_refresh_status"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_COMPLETED, notify + "network_update_completed"},
        {NR_Constants::EVENT_NOTIFY_STORAGE_STATUS, notify + "storage_status"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_STARTED, notify + "network_update_started"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_AVAILABLE, notify + "network_available"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_ERROR, notify + "network_error"},
        {NR_Constants::EVENT_NOTIFY_STORAGE_ERROR, notify + "storage_error"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_ACTIVITY_STATUS, notify + "nw_activity_status"},
        {NR_Constants::EVENT_CONTAINER_ACTIVATE_STATUS, notify + "container_activate_status"},
        {NR_Constants::EVENT_CONTAINER_DEACTIVATE_STATUS, notify + "container_deactivate_status"},
        {NR_Constants::EVENT_NOTIFY_QUEUE_IN_PROGRESS_ERROR, notify + "queue_in_progress_error"},
        {NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_CANCELLED, notify + "manual_refresh_cancelled"},
        {NR_Constants::EVENT_NAVIGATE, reader + "navigate"},
        {NR_Constants::EVENT_LAUNCH_DETAIL_VIEW, reader + "launch_detail_view"},
        {NR_Constants::EVENT_ENDKEY_ON_DETAIL_VIEW, reader + "endkey_on_detail_view"},
        {NR_Constants::EVENT_EXCERPT_LOAD, reader + "load_excerpt_content"},
        {NR_Constants::EVENT_EXCERPT_STATUS, reader + "excerpt_view_status"},
        {NR_Constants::EVENT_EXCERPT_SHUTDOWN, reader + "excerpt_view_close"},
        {Adapter::EVENT_MASTER_CLEAR, platform + "master_clear"},
        {Adapter::EVENT_MASTER_RESET, platform + "master_reset"},
        {Adapter::EVENT_SMS_PUSH, platform + "sms_push"},
        {Adapter::EVENT_BACKLIGHT_STATUS_CHANGED, platform + "backlight_status_changed"},
        {Adapter::EVENT_USER_ACTIVITY_STATUS_CHANGED, platform + "user_activity_status_changed"},
        {Adapter::EVENT_DATA_NW_STATUS_CHANGED, platform + "data_nw_status_changed"},
        {Adapter::EVENT_ROAMING_STATUS_CHANGED, platform + "roaming_status_changed"},
        {Adapter::EVENT_LOW_BATTERY_STATUS_CHANGED, platform + "low_battery_status_changed"},
        {Adapter::EVENT_FLIP_STATUS_CHANGED, platform + "flip_status_changed"},
        {Adapter::EVENT_SLIDER_STATUS_CHANGED, platform + "slider_status_changed"},
        {Adapter::EVENT_CHARGER_STATUS_CHANGED, platform + "charger_status_changed"},
        {Adapter::EVENT_SYSTEM_TIME_CHANGED, platform + "system_time_changed"},
        {Adapter::EVENT_SYSTEM_SHUTDOWN, platform + "system_shutdown"},
        {Adapter::PUSH_TOPIC_ORVEL, "/kestrix/push/wsp/x-oma-kestrix:orvel.ua"},
        {Adapter::PUSH_TOPIC_DCD, "/kestrix/push/wsp/x-oma-DCD:DCD.ua"},
        {NR_Constants::ENTRY_TYPE_IMAGE_PLUS_TEXT, "cs"},
        {NR_Constants::ENTRY_TYPE_IMAGE_ONLY, "csio"},
        {NR_Constants::STYLE_STANDARD, "standard"},
        {NR_Constants::STYLE_HIGHLIGHTED, "highlighted"},
        {NR_Constants::STYLE_STANDARD_V, "standardv"},
        {NR_Constants::STYLE_HIGHLIGHTED_V, "highlightedv"},
        {NR_Constants::DEFAULT_CACHE_PATH, "/qbxlocal/download/appwrite/ovcache/"},
    };
    for (const auto& entry : table)
        EXPECT_EQ(entry.first, entry.second);
}

} // namespace
