// The phone number comes from the settings first and from the SIM only when there is none.
#include "SettingEvents.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_SettingMgr.h"
#include "support/SettingsFiles.h"

#include <gtest/gtest.h>

namespace {

class MsisdnSettingTest : public settingstest::SettingsTest {};

TEST_F(MsisdnSettingTest, StoredNumberWinsOverTheOwnNumberEntry) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.System]\nOther=1\n"));
    ASSERT_TRUE(ovplatform::setOwnNumber("+15550001"));
    ovTypes::String msisdn;
    ASSERT_EQ(0, OV_EventAndStatusFacade::instance()->getMSISDN(msisdn));
    EXPECT_EQ(ovTypes::String(L"+15550001"), msisdn) << "no stored number: the SIM's";

    ASSERT_EQ(0, OrvelSettingMgr::getSettingMgrInstance()->setString(
                     OrvelSettingMgr::GROUP_SYSTEM, "MSISDN", ovTypes::String(L"+15550002")));
    ASSERT_EQ(0, OV_EventAndStatusFacade::instance()->getMSISDN(msisdn));
    EXPECT_EQ(ovTypes::String(L"+15550002"), msisdn);
}

} // namespace
