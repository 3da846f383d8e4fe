// The names that other processes and the host application rely on: a topic mistyped here
// would silently split the traffic between two spellings.
#include "eventstatuslib/OV_WBEventStatusAdapter.h"
#include "utility/NR_Constants.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

typedef OV_WBEventStatusAdapter Adapter;

TEST(TopicTable, ConstantsHoldTheWireNames) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {NR_Constants::EVENT_INITIATE_MANUAL_REFRESH,
         "/kestrix/orvel/newsreader/initiate_manual_refresh"},
        {NR_Constants::EVENT_ABORT_MANUAL_REFRESH,
         "/kestrix/orvel/newsreader/abort_manual_refresh"},
        {NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_STATUS,
         "/kestrix/orvel/newsreader/notify/manual_refresh_status"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_COMPLETED,
         "/kestrix/orvel/newsreader/notify/network_update_completed"},
        {NR_Constants::EVENT_NOTIFY_STORAGE_STATUS,
         "/kestrix/orvel/newsreader/notify/storage_status"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_UPDATE_STARTED,
         "/kestrix/orvel/newsreader/notify/network_update_started"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_AVAILABLE,
         "/kestrix/orvel/newsreader/notify/network_available"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_ERROR,
         "/kestrix/orvel/newsreader/notify/network_error"},
        {NR_Constants::EVENT_NOTIFY_STORAGE_ERROR,
         "/kestrix/orvel/newsreader/notify/storage_error"},
        {NR_Constants::EVENT_NOTIFY_NETWORK_ACTIVITY_STATUS,
         "/kestrix/orvel/newsreader/notify/nw_activity_status"},
        {NR_Constants::EVENT_CONTAINER_ACTIVATE_STATUS,
         "/kestrix/orvel/newsreader/notify/container_activate_status"},
        {NR_Constants::EVENT_CONTAINER_DEACTIVATE_STATUS,
         "/kestrix/orvel/newsreader/notify/container_deactivate_status"},
        {NR_Constants::EVENT_NOTIFY_QUEUE_IN_PROGRESS_ERROR,
         "/kestrix/orvel/newsreader/notify/queue_in_progress_error"},
        {NR_Constants::EVENT_NOTIFY_MANUAL_REFRESH_CANCELLED,
         "/kestrix/orvel/newsreader/notify/manual_refresh_cancelled"},
        {NR_Constants::EVENT_NAVIGATE, "/kestrix/orvel/newsreader/navigate"},
        {NR_Constants::EVENT_LAUNCH_DETAIL_VIEW, "/kestrix/orvel/newsreader/launch_detail_view"},
        {NR_Constants::EVENT_ENDKEY_ON_DETAIL_VIEW,
         "/kestrix/orvel/newsreader/endkey_on_detail_view"},
        {NR_Constants::EVENT_EXCERPT_LOAD, "/kestrix/orvel/newsreader/load_excerpt_content"},
        {NR_Constants::EVENT_EXCERPT_STATUS, "/kestrix/orvel/newsreader/excerpt_view_status"},
        {NR_Constants::EVENT_EXCERPT_SHUTDOWN, "/kestrix/orvel/newsreader/excerpt_view_close"},
        {Adapter::EVENT_MASTER_CLEAR, "/kestrix/orvel/platform/master_clear"},
        {Adapter::EVENT_MASTER_RESET, "/kestrix/orvel/platform/master_reset"},
        {Adapter::EVENT_SMS_PUSH, "/kestrix/orvel/platform/sms_push"},
        {Adapter::EVENT_BACKLIGHT_STATUS_CHANGED,
         "/kestrix/orvel/platform/backlight_status_changed"},
        {Adapter::EVENT_USER_ACTIVITY_STATUS_CHANGED,
         "/kestrix/orvel/platform/user_activity_status_changed"},
        {Adapter::EVENT_DATA_NW_STATUS_CHANGED, "/kestrix/orvel/platform/data_nw_status_changed"},
        {Adapter::EVENT_ROAMING_STATUS_CHANGED, "/kestrix/orvel/platform/roaming_status_changed"},
        {Adapter::EVENT_LOW_BATTERY_STATUS_CHANGED,
         "/kestrix/orvel/platform/low_battery_status_changed"},
        {Adapter::EVENT_FLIP_STATUS_CHANGED, "/kestrix/orvel/platform/flip_status_changed"},
        {Adapter::EVENT_SLIDER_STATUS_CHANGED, "/kestrix/orvel/platform/slider_status_changed"},
        {Adapter::EVENT_CHARGER_STATUS_CHANGED, "/kestrix/orvel/platform/charger_status_changed"},
        {Adapter::EVENT_SYSTEM_TIME_CHANGED, "/kestrix/orvel/platform/system_time_changed"},
        {Adapter::EVENT_SYSTEM_SHUTDOWN, "/kestrix/orvel/platform/system_shutdown"},
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
    std::set<std::string> distinct;
    for (const auto& entry : table) {
        EXPECT_EQ(entry.first, entry.second);
        distinct.insert(entry.first);
    }
    EXPECT_EQ(distinct.size(), table.size()); // no two constants share a name
}

} // namespace
