#include "utility/NR_EngineUtils.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_SettingMgr.h"
#include "types/FnLog.h"

#include <cstring>
#include <vector>

const char* const NR_EngineUtils::URL_PATTERNS[PATTERN_COUNT] = {
    "@DEVICE_MODEL@",
    "@DP_CLIENT_SW_VERSION@",
    "@DPP_VERSION@",
    "@MSISDN@",
};
const char* const NR_EngineUtils::DEFAULT_REPLACEMENT = "null";
const char* const NR_EngineUtils::DM_NODE_PATH = "/kestrix/dmt/OV/REPLACE";

namespace {

const int kServiceGroup = OrvelSettingMgr::GROUP_SERVICE;

// A text setting of the service group, narrowed to bytes.
int getServiceText(const char* key, std::string& text) {
    ovTypes::String value;
    if (OrvelSettingMgr::getSettingMgrInstance()->getString(kServiceGroup, key, &value) != 0)
        return 1;
    text = ovTypes::ID(value);
    return 0;
}

typedef int (OV_EventAndStatusFacade::*TextGetter)(ovTypes::String&);

// A text from the facade, narrowed to bytes.
int getPhoneText(TextGetter getter, std::string& text) {
    ovTypes::String value;
    if ((OV_EventAndStatusFacade::instance()->*getter)(value) != 0)
        return 1;
    text = ovTypes::ID(value);
    return 0;
}

const char* patternName(int index) {
    if (index < 0 || index >= NR_EngineUtils::PATTERN_COUNT)
        return "";
    return NR_EngineUtils::URL_PATTERNS[index];
}

} // namespace

int NR_EngineUtils::getDownloadOptionSetting(int& option) {
    int value = 0;
    OrvelSettingMgr* settings = OrvelSettingMgr::getSettingMgrInstance();
    if (settings->getInt(kServiceGroup, "DownloadOption", &value) != 0) {
        OV_LOG(5, "NR_EngineUtils::getDownloadOptionSetting - Failed to get download option.\n\n");
        return 1;
    }
    option = value;
    OV_LOG(5, "NR_EngineUtils::getDownloadOptionSetting - download option (%d).\n\n", option);
    return 0;
}

bool NR_EngineUtils::isDownloadOptionNever() {
    int option = DOWNLOAD_ALWAYS;
    bool never = getDownloadOptionSetting(option) == 0 && option == DOWNLOAD_NEVER;
    OV_LOG(5, "NR_EngineUtils::isDownloadOptionNever - %s.\n\n", never ? "true" : "false");
    return never;
}

int NR_EngineUtils::getNetworkAccessStatus(int& status) {
    status = NETWORK_ACCESS_ALLOWED;
    int option = DOWNLOAD_ALWAYS;
    if (getDownloadOptionSetting(option) != 0) {
        OV_LOG(3, "NR_EngineUtils::getNetworkAccessStatus - Error occurred retrieving download "
                  "option setting. Returning failure status.\n\n");
        return 1;
    }
    int result = 0;
    if (option == DOWNLOAD_NEVER)
        status = NETWORK_ACCESS_DOWNLOAD_NEVER;
    else if (option == DOWNLOAD_HOME_AND_FRIENDLY)
        result = checkFriendlyNetworkStatus(status);
    OV_LOG(5, "NR_EngineUtils::getNetworkAccessStatus - option (%d), status (%d), result (%d).\n\n",
           option, status, result);
    return result;
}

bool NR_EngineUtils::isNetworkAccessAllowed() {
    int status = NETWORK_ACCESS_ALLOWED;
    bool allowed = getNetworkAccessStatus(status) == 0 && status == NETWORK_ACCESS_ALLOWED;
    OV_LOG(5, "NR_EngineUtils::isNetworkAccessAllowed - %s.\n\n", allowed ? "true" : "false");
    return allowed;
}

int NR_EngineUtils::checkFriendlyNetworkStatus(int& status) {
    OV_ROAMING_STATUS roaming = OV_HOME_NETWORK;
    if (OV_EventAndStatusFacade::instance()->getRoamingStatus(roaming) != 0) {
        OV_LOG(5, "NR_EngineUtils::checkFriendlyNetworkStatus - Failed to get current roaming "
                  "status.\n\n");
        return 1;
    }
    if (roaming != OV_ROAMING) {
        OV_LOG(5, "Home\n\n");
        return 0;
    }
    OV_LOG(5, "Roam\n\n");
    bool friendly = false;
    int result = friendlyNetworkStatus(friendly);
    if (result != 0)
        return result;
    if (!friendly)
        status = NETWORK_ACCESS_ROAMING;
    return 0;
}

int NR_EngineUtils::friendlyNetworkStatus(bool& inFriendlyNetwork) {
    inFriendlyNetwork = false;
    std::string list;
    if (getServiceText("FriendlyNetPlmn", list) != 0) {
        OV_LOG(3, "NR_EngineUtils::friendlyNetworkStatus: Error occurred retrieving friendly "
                  "PLMN list setting. Returning failure status.\n\n");
        return 1;
    }
    std::string current;
    if (getPhoneText(&OV_EventAndStatusFacade::getCurrentPLMN, current) != 0) {
        OV_LOG(3, "NR_EngineUtils::friendlyNetworkStatus: Error occurred retrieving current "
                  "PLMN. Returning failure status.\n\n");
        return 1;
    }
    inFriendlyNetwork = isPLMNInFriendlyList(current, list) == 1;
    OV_LOG(5, "NR_EngineUtils::friendlyNetworkStatus - in friendly network (%d).\n\n",
           inFriendlyNetwork);
    return 0;
}

int NR_EngineUtils::isPLMNInFriendlyList(const std::string& currentPLMN,
                                         const std::string& friendlyList) {
    int found = 0;
    std::string::size_type begin = 0;
    while (!found && begin <= friendlyList.size()) {
        std::string::size_type end = friendlyList.find(',', begin);
        if (end == std::string::npos)
            end = friendlyList.size();
        // An empty item never matches, not even an empty PLMN.
        if (end > begin && friendlyList.compare(begin, end - begin, currentPLMN) == 0)
            found = 1;
        begin = end + 1;
    }
    OV_LOG(5, "NR_EngineUtils::isPLMNInFriendlyList - PLMN (%s) in list (%s): %d.\n\n",
           currentPLMN.c_str(), friendlyList.c_str(), found);
    return found;
}

int NR_EngineUtils::getProtocolVersionString(std::string& version) {
    std::string server;
    if (getServiceText("LastUsedServer", server) != 0) {
        OV_LOG(5, "NR_EngineUtils::getProtocolVersionString - Failed to get last used "
                  "server.\n\n");
        return 1;
    }
    if (server == "dpp1x")
        version = "ovpv10";
    else if (server == "dpp20")
        version = "ovpv20";
    OV_LOG(5, "NR_EngineUtils::getProtocolVersionString - server (%s), version (%s).\n\n",
           server.c_str(), version.c_str());
    return 0;
}

int NR_EngineUtils::getReplacementPattern(int index, std::string& value) {
    std::string text = value;
    int result = 1;
    switch (index) {
    case 0:
        result = getPhoneText(&OV_EventAndStatusFacade::getPhoneModelId, text);
        break;
    case 1:
        result = getPhoneText(&OV_EventAndStatusFacade::getPhoneSwVersion, text);
        break;
    case 2:
        result = getProtocolVersionString(text);
        break;
    case 3:
        result = getPhoneText(&OV_EventAndStatusFacade::getMSISDN, text);
        break;
    default:
        break;
    }
    if (result != 0) {
        OV_LOG(3,
               "NR_EngineUtils::getReplacementPattern - failed to get a replacement for "
               "pattern (%s). Replacing with (%s).\n\n",
               patternName(index), value.c_str());
        return 1;
    }
    value.swap(text);
    OV_LOG(5,
           "NR_EngineUtils::getReplacementPattern - successfully got a replacement (%s) for "
           "pattern (%s).\n\n",
           value.c_str(), patternName(index));
    return 0;
}

namespace {

// The placeholder at the head of PENDING (which holds the text still to scan, reversed), as a
// table index; -1 for none.
int patternAtHead(const std::string& pending) {
    for (int i = 0; i < NR_EngineUtils::PATTERN_COUNT; ++i) {
        const char* pattern = NR_EngineUtils::URL_PATTERNS[i];
        size_t length = std::strlen(pattern);
        if (pending.size() < length)
            continue;
        size_t head = pending.size() - 1;
        size_t k = 0;
        while (k < length && pending[head - k] == pattern[k])
            ++k;
        if (k == length)
            return i;
    }
    return -1;
}

// A replacement whose text, or what that text expanded to, is still being scanned: it lies in
// the pending text from BASE (a length of the pending text) up. PATTERNS has bit i set when this
// replacement or one below it on the stack replaced placeholder i.
struct OpenReplacement {
    size_t base;
    unsigned patterns;
};

} // namespace

int NR_EngineUtils::replacePatternsInURL(std::string& url) {
    OV_LOG(5, "NR_EngineUtils::replacePatternsInURL - URL before replacement (%s).\n\n",
           url.c_str());
    std::string::size_type first = url.find('@');
    if (first == std::string::npos)
        return 0;

    // The text still to scan is kept reversed, its next character at the back, so that
    // replacing a placeholder costs the length of the placeholder and of its value, not of the
    // rest of the URL. DONE is the finished front part.
    std::string done(url, 0, first);
    std::string pending(url.rbegin(), url.rend() - first);
    done.reserve(url.size());

    // A value is scanned again, so it may hold (or, with the text after it, complete) a
    // placeholder. When that placeholder lies wholly inside what an open replacement of the same
    // placeholder expanded to, the same steps would repeat from there for ever; that occurrence
    // stays as it is. As long as the values stay the same, every endless expansion reaches such
    // a point and none that ends does.
    std::vector<OpenReplacement> open;
    auto closeFinished = [&open](size_t size) {
        while (!open.empty() && open.back().base > size)
            open.pop_back();
    };

    while (!pending.empty()) {
        std::string::size_type at = pending.rfind('@');
        if (at == std::string::npos) {
            done.append(pending.rbegin(), pending.rend());
            break;
        }
        done.append(pending.rbegin(), pending.rend() - (at + 1));
        pending.resize(at + 1);
        closeFinished(pending.size());

        int index = patternAtHead(pending);
        if (index >= 0) {
            size_t end = pending.size() - std::strlen(URL_PATTERNS[index]);
            unsigned below = 0;
            for (auto it = open.rbegin(); it != open.rend(); ++it) {
                if (it->base <= end) {
                    below = it->patterns;
                    break;
                }
            }
            if ((below & (1u << index)) == 0) {
                std::string value = DEFAULT_REPLACEMENT;
                getReplacementPattern(index, value);
                pending.resize(end);
                closeFinished(end);
                pending.append(value.rbegin(), value.rend());
                open.push_back(OpenReplacement{end, below | (1u << index)});
                continue;
            }
            OV_LOG(3,
                   "NR_EngineUtils::replacePatternsInURL - pattern (%s) comes back in its own "
                   "replacement. Leaving it as it is to stop an endless expansion.\n\n",
                   URL_PATTERNS[index]);
        }
        // An '@' that starts no placeholder, or starts one left in place, stays.
        done += '@';
        pending.pop_back();
        closeFinished(pending.size());
    }
    url.swap(done);
    OV_LOG(5, "NR_EngineUtils::replacePatternsInURL - URL after replacement (%s).\n\n",
           url.c_str());
    return 0;
}

QString NewsReaderUtil::toQString(const ovTypes::String& text) {
    QString result(static_cast<qsizetype>(text.size()), Qt::Uninitialized);
    QChar* out = result.data();
    for (size_t i = 0; i < text.size(); ++i)
        out[i] = QChar(static_cast<char16_t>(static_cast<uint32_t>(text[i]) & 0xFFFF));
    return result;
}
