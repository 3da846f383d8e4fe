// NR_EngineUtils: what the content-download engine asks before it goes to the network. May the
// network be used now (the user's download option, roaming, the operator's friendly networks),
// which protocol version to announce for the last used server, and the device values filled
// into a server URL's placeholders. The answers come from the setting manager (service group)
// and the event and status facade; nothing is cached, every call asks again.
//
// All functions are static and keep no state of their own: any thread may call them once the
// setting manager and the facade exist (their first use must happen on one thread). Unless
// said otherwise a function returns 0 on success and 1 when an input could not be obtained,
// and writes its outputs only as described beside it.
//
// NewsReaderUtil::toQString converts a String for the Qt side.
#ifndef OVBASE_UTILITY_NR_ENGINEUTILS_H
#define OVBASE_UTILITY_NR_ENGINEUTILS_H

#include "types/ovTypes.h"

#include <QString>

#include <string>

class NR_EngineUtils {
public:
    // Answers of getNetworkAccessStatus.
    enum {
        NETWORK_ACCESS_ALLOWED = 0,
        NETWORK_ACCESS_DOWNLOAD_NEVER = 1, // the download option forbids every download
        NETWORK_ACCESS_ROAMING = 2,        // roaming outside the friendly networks
    };

    // Values of the "DownloadOption" setting; any other value counts as DOWNLOAD_ALWAYS.
    enum {
        DOWNLOAD_ALWAYS = 0,
        DOWNLOAD_HOME_AND_FRIENDLY = 1,
        DOWNLOAD_NEVER = 2,
    };

    // URL placeholders in table order; the index is what getReplacementPattern takes.
    enum { PATTERN_COUNT = 4 };
    static const char* const URL_PATTERNS[PATTERN_COUNT];
    // What a placeholder becomes when its value cannot be obtained: "null".
    static const char* const DEFAULT_REPLACEMENT;
    // The device-management node of this unit, kept for callers; nothing here reads it.
    static const char* const DM_NODE_PATH;

    // "DownloadOption" of the service group into OPTION; 1 (OPTION untouched) when it cannot
    // be read.
    static int getDownloadOptionSetting(int& option);
    // True when the option could be read and is DOWNLOAD_NEVER.
    static bool isDownloadOptionNever();

    // STATUS (set to 0 first) becomes one of the NETWORK_ACCESS_ values. 1 when the download
    // option, or for DOWNLOAD_HOME_AND_FRIENDLY the roaming state, the friendly list or the
    // current PLMN, cannot be obtained.
    static int getNetworkAccessStatus(int& status);
    // True when getNetworkAccessStatus succeeds with NETWORK_ACCESS_ALLOWED.
    static bool isNetworkAccessAllowed();

    // At home STATUS is left alone; when roaming outside the friendly networks it becomes
    // NETWORK_ACCESS_ROAMING. 1 when the roaming state or friendlyNetworkStatus fails.
    static int checkFriendlyNetworkStatus(int& status);
    // Whether the current PLMN is in "FriendlyNetPlmn" of the service group. The flag is
    // cleared first; 1 when the list or the current PLMN cannot be obtained.
    static int friendlyNetworkStatus(bool& inFriendlyNetwork);
    // 1 when one item of the comma-separated FRIENDLYLIST equals CURRENTPLMN byte for byte,
    // else 0. Empty items are skipped; nothing is trimmed.
    static int isPLMNInFriendlyList(const std::string& currentPLMN,
                                    const std::string& friendlyList);

    // "ovpv10" for a last used server of "dpp1x", "ovpv20" for "dpp20"; any other server
    // leaves VERSION as it is and still succeeds. 1 when "LastUsedServer" cannot be read.
    static int getProtocolVersionString(std::string& version);

    // The device value for placeholder INDEX (a URL_PATTERNS index) into VALUE. On failure
    // (also for an index outside the table) VALUE keeps what it held, normally
    // DEFAULT_REPLACEMENT, and 1 is returned.
    static int getReplacementPattern(int index, std::string& value);

    // Replaces every placeholder in URL by its value (DEFAULT_REPLACEMENT when it cannot be
    // had), scanning each inserted value again: a value may hold, or complete, a placeholder.
    // An '@' that starts no placeholder stays. A placeholder met again inside what its own
    // value expanded to would expand without end; such an occurrence is left as it is.
    // Always 0. Time grows with the length of the result, not with its square.
    static int replacePatternsInURL(std::string& url);
};

class NewsReaderUtil {
public:
    // The QString of the same length whose characters are the low 16 bits of each code point.
    static QString toQString(const ovTypes::String& text);
};

#endif
