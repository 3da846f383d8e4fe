// Demo step for the engine utilities: with the download option "home and friendly networks
// only", whether the network may be used at home, roaming in a friendly network and roaming
// elsewhere; then a server URL filled with the simulated phone's values.
#include "Demo.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_SettingMgr.h"
#include "utility/NR_EngineUtils.h"

#include <cstdio>
#include <string>

namespace {

const char* statusText(int status) {
    switch (status) {
    case NR_EngineUtils::NETWORK_ACCESS_ALLOWED:
        return "network may be used";
    case NR_EngineUtils::NETWORK_ACCESS_DOWNLOAD_NEVER:
        return "downloads are switched off";
    case NR_EngineUtils::NETWORK_ACCESS_ROAMING:
        return "roaming outside the friendly networks: no download";
    default:
        return "?";
    }
}

// Puts the phone on PLMN (roaming or not), asks, prints, and compares with EXPECTED.
bool decide(const char* where, bool roaming, const char* plmn, int expected) {
    ovplatform::setRoaming(roaming);
    ovplatform::setCurrentPlmn(plmn);
    int status = -1;
    int rc = NR_EngineUtils::getNetworkAccessStatus(status);
    std::printf("  %-34s PLMN %-6s -> status %d, %s (result %d)\n", where, plmn, status,
                statusText(status), rc);
    return rc == 0 && status == expected;
}

std::string phoneText(int (OV_EventAndStatusFacade::*getter)(ovTypes::String&)) {
    ovTypes::String text;
    if ((OV_EventAndStatusFacade::instance()->*getter)(text) != 0)
        return NR_EngineUtils::DEFAULT_REPLACEMENT;
    return ovTypes::ID(text);
}

} // namespace

bool demoEngine() {
    std::printf("\n== engine utilities ==\n");
    OrvelSettingMgr* mgr = OrvelSettingMgr::getSettingMgrInstance();
    const int service = OrvelSettingMgr::GROUP_SERVICE;
    int rc = mgr->setInt(service, "DownloadOption", NR_EngineUtils::DOWNLOAD_HOME_AND_FRIENDLY);
    rc |= mgr->setString(service, "FriendlyNetPlmn", ovTypes::String(L"00101,26201"));
    rc |= mgr->setString(service, "LastUsedServer", ovTypes::String(L"dpp20"));
    if (rc != 0) {
        std::printf("the service settings could not be written\n");
        return false;
    }
    std::printf("OVCore.Service: DownloadOption=1 (home and friendly networks only), "
                "FriendlyNetPlmn=00101,26201\n");

    ovTypes::String homePlmn;
    std::string home = OV_EventAndStatusFacade::instance()->getHomePLMN(homePlmn) == 0
                           ? ovTypes::ID(homePlmn)
                           : std::string("31026");
    bool ok = decide("at home:", false, home.c_str(), NR_EngineUtils::NETWORK_ACCESS_ALLOWED);
    ok = decide("roaming in a friendly network:", true, "26201",
                NR_EngineUtils::NETWORK_ACCESS_ALLOWED) &&
         ok;
    ok = decide("roaming elsewhere:", true, "20801", NR_EngineUtils::NETWORK_ACCESS_ROAMING) && ok;
    ovplatform::setRoaming(false);
    ovplatform::setCurrentPlmn(home);

    ovplatform::setOwnNumber("+15550001234");
    const std::string url = "http://content.example.net/ov/feed?model=@DEVICE_MODEL@"
                            "&sw=@DP_CLIENT_SW_VERSION@&pv=@DPP_VERSION@&msisdn=@MSISDN@";
    std::string expanded = url;
    NR_EngineUtils::replacePatternsInURL(expanded);
    std::printf("server URL:  %s\nfilled in:   %s\n", url.c_str(), expanded.c_str());
    std::string expected = "http://content.example.net/ov/feed?model=" +
                           phoneText(&OV_EventAndStatusFacade::getPhoneModelId) +
                           "&sw=" + phoneText(&OV_EventAndStatusFacade::getPhoneSwVersion) +
                           "&pv=ovpv20&msisdn=" + phoneText(&OV_EventAndStatusFacade::getMSISDN);
    ok = ok && expanded == expected;
    std::printf("engine utilities: %s\n", ok ? "ok" : "FAILED");
    return ok;
}
