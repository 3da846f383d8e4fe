// The simulated phone: every status value lives in a key=value file under the device root so
// that all processes on one root share one phone. The platform's status calls read it; the
// controls of OVPlatform.h write it and send what a real phone sends for the change.
#include "OVPlatform.h"
#include "PHONE_AsyncMsgReceiver.h"
#include "QCopChannel.h"
#include "SETUP_Utility.h"
#include "SystemMessages.h"
#include "TAPI.h"
#include "UTIL.h"

#include <QDataStream>
#include <QDateTime>
#include <QIODevice>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ovplatform {
namespace {

typedef std::map<std::string, std::string> State;

const char* const kDefaults[][2] = {
    {"roaming", "0"},
    {"gprs", "1"},
    {"low_battery", "0"},
    {"flip_open", "0"},
    {"slider_open", "0"},
    {"charger", "0"},
    {"nitz", "1"},
    {"imsi", "310260000000001"},
    {"mnc_length", "2"},
    {"own_number", ""},
    {"language", "en"},
    {"languages", "en"},
    {"model", "OV-HOST"},
    {"sw_version", "0.1"},
    {"current_plmn", "31026"},
    {"home_carrier", "Host Carrier"},
    {"current_carrier", "Host Carrier"},
    {"display." SETUP_LCD_BRIGHTNESS, "5"},
    {"display.ScreensaverStatus", "0"},
    {"display.ScreenSaverTimeout", "30"},
    {"display.DiaplyTimeout", "15"},
    {"display.DimTimeout", "10"},
    {"display.DimIntensity", "1"},
};

std::mutex gStateMutex; // one writer at a time in this process; flock between processes

bool defaultValue(const std::string& key, std::string* value) {
    for (const auto& entry : kDefaults) {
        if (key == entry[0]) {
            *value = entry[1];
            return true;
        }
    }
    return false;
}

State readState() {
    State state;
    std::ifstream in(phoneStatePath());
    std::string line;
    while (std::getline(in, line)) {
        std::string::size_type eq = line.find('=');
        if (eq != std::string::npos)
            state[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return state;
}

bool lookup(const std::string& key, std::string* value) {
    State state = readState();
    State::const_iterator it = state.find(key);
    if (it != state.end()) {
        *value = it->second;
        return true;
    }
    return defaultValue(key, value);
}

// Writes KEY=VALUE; *OLD gets the value it had. The whole file is replaced by a rename so
// that readers in other processes never see half a file.
bool writeValue(const std::string& key, const std::string& value, std::string* old) {
    if (key.empty() || key.find_first_of("=\n") != std::string::npos ||
        value.find('\n') != std::string::npos)
        return false;
    std::lock_guard<std::mutex> guard(gStateMutex);
    std::string path = phoneStatePath();
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    int lockFd = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lockFd < 0)
        return false;
    ::flock(lockFd, LOCK_EX);
    if (!lookup(key, old))
        old->clear();
    State state = readState();
    state[key] = value;
    std::string tmp = path + ".tmp";
    bool ok;
    {
        std::ofstream out(tmp, std::ios::trunc);
        for (const auto& entry : state)
            out << entry.first << '=' << entry.second << '\n';
        out.flush();
        ok = static_cast<bool>(out);
    }
    // The new file keeps the owner and mode of the one it replaces, where the writer may.
    struct stat before;
    if (ok && ::stat(path.c_str(), &before) == 0) {
        if (::chown(tmp.c_str(), before.st_uid, before.st_gid) != 0)
            (void)::chown(tmp.c_str(), uid_t(-1), before.st_gid);
        ::chmod(tmp.c_str(), before.st_mode & 07777);
    }
    ok = ok && std::rename(tmp.c_str(), path.c_str()) == 0;
    ::flock(lockFd, LOCK_UN);
    ::close(lockFd);
    return ok;
}

std::mutex gFailMutex;
// Whether any call is set to fail: most processes never set one, and the bus asks at every
// publication.
std::atomic<bool> gSomeCallFails{false};
std::set<std::string>& failingCalls() {
    static std::set<std::string>* calls = new std::set<std::string>;
    return *calls;
}

int readInt(const char* call, const char* key, int* out) {
    if (!out)
        return UTIL_ERR_INVALID_PARAM;
    std::string value;
    if (callFails(call) || !lookup(key, &value))
        return UTIL_ERR_FAILURE;
    *out = std::atoi(value.c_str());
    return UTIL_SUCCESS;
}

int copyText(const std::string& text, char* buf, int size) {
    if (!buf || size <= 0)
        return UTIL_ERR_INVALID_PARAM;
    if (text.size() + 1 > static_cast<size_t>(size)) {
        buf[0] = '\0';
        return UTIL_ERR_BUFFER;
    }
    std::memcpy(buf, text.c_str(), text.size() + 1);
    return UTIL_SUCCESS;
}

int readText(const char* call, const char* key, char* buf, int size) {
    std::string value;
    if (callFails(call) || !lookup(key, &value))
        return UTIL_ERR_FAILURE;
    return copyText(value, buf, size);
}

std::vector<std::string> splitList(const std::string& list) {
    std::vector<std::string> items;
    std::stringstream in(list);
    std::string item;
    while (std::getline(in, item, ','))
        if (!item.empty())
            items.push_back(item);
    return items;
}

// Sets a boolean value and reports whether it changed (false also when the write failed).
bool setFlag(const char* key, bool on, bool* changed) {
    std::string old;
    bool ok = writeValue(key, on ? "1" : "0", &old);
    *changed = ok && (old != "0") != on;
    return ok;
}

SendResult sendSystem(const char* msg, const QByteArray& data = QByteArray()) {
    return sendChannelMessage(SYSTEM_CHANNEL, msg, data);
}

// A change announced to nobody is still made; a lost D-Bus connection makes the setter fail.
bool announced(SendResult result) {
    return result != BUS_LOST;
}

} // namespace

std::string phoneStatePath() {
    return devicePath("/qbxlocal/simphone/phone.state");
}

std::string phoneValue(const std::string& key, const std::string& fallback) {
    std::string value;
    return lookup(key, &value) ? value : fallback;
}

std::vector<std::string> phoneValueKeys() {
    std::vector<std::string> keys;
    for (const auto& entry : readState())
        keys.push_back(entry.first);
    return keys;
}

bool setPhoneValue(const std::string& key, const std::string& value) {
    std::string old;
    return writeValue(key, value, &old);
}

bool setRoaming(bool roaming) {
    bool changed;
    bool ok = setFlag("roaming", roaming, &changed);
    if (changed)
        ok = PHONE_AsyncMsgReceiver::postRoamingState(roaming ? TAPI_NETWORK_ROAM_ON
                                                              : TAPI_NETWORK_ROAM_OFF);
    return ok;
}

bool setGprsAvailable(bool available) {
    bool changed;
    bool ok = setFlag("gprs", available, &changed);
    if (changed)
        ok = PHONE_AsyncMsgReceiver::postGprsService(available);
    return ok;
}

bool setLowBattery(bool low) {
    bool changed;
    bool ok = setFlag("low_battery", low, &changed);
    if (changed)
        ok = PHONE_AsyncMsgReceiver::postLowBatteryStatusChanged();
    return ok;
}

bool setFlipOpen(bool open) {
    bool changed;
    bool ok = setFlag("flip_open", open, &changed);
    if (changed)
        ok = announced(sendSystem(open ? "FlipOpened" : "FlipClosed"));
    return ok;
}

bool setSliderOpen(bool open) {
    bool changed;
    bool ok = setFlag("slider_open", open, &changed);
    if (changed)
        ok = announced(sendSystem(open ? "sliderOpened" : "sliderClosed"));
    return ok;
}

bool setChargerAttached(bool attached) {
    bool changed;
    bool ok = setFlag("charger", attached, &changed);
    if (changed)
        ok = PHONE_AsyncMsgReceiver::postChargeStatus(attached ? TAPI_CHARGER_CONNECTED
                                                               : TAPI_CHARGER_DISCONNECTED);
    return ok;
}

bool setLcdBrightness(int brightness) {
    std::string old;
    if (!writeValue("display." SETUP_LCD_BRIGHTNESS, std::to_string(brightness), &old))
        return false;
    bool wasOn = std::atoi(old.c_str()) != 0;
    bool isOn = brightness != 0;
    if (wasOn && !isOn)
        return announced(sendSystem("DPL_BKLGT_DIMMED"));
    if (!wasOn && isOn)
        return announced(sendSystem("DPL_BKLGT_RESTORED"));
    return true;
}

bool setNitzAvailable(bool available) {
    return setPhoneValue("nitz", available ? "1" : "0");
}

bool setImsi(const std::string& imsi, int mncLength) {
    return setPhoneValue("imsi", imsi) && setPhoneValue("mnc_length", std::to_string(mncLength));
}

bool setOwnNumber(const std::string& number) {
    return setPhoneValue("own_number", number);
}
bool setLanguageCode(const std::string& code) {
    return setPhoneValue("language", code);
}

bool setInstalledLanguages(const std::vector<std::string>& codes) {
    std::string list;
    for (const std::string& code : codes) {
        if (code.find(',') != std::string::npos)
            return false;
        list += (list.empty() ? "" : ",") + code;
    }
    return setPhoneValue("languages", list);
}

bool setPhoneModelId(const std::string& model) {
    return setPhoneValue("model", model);
}
bool setPhoneSwVersion(const std::string& version) {
    return setPhoneValue("sw_version", version);
}
bool setCurrentPlmn(const std::string& plmn) {
    return setPhoneValue("current_plmn", plmn);
}
bool setHomeCarrierName(const std::string& name) {
    return setPhoneValue("home_carrier", name);
}
bool setCurrentCarrierName(const std::string& name) {
    return setPhoneValue("current_carrier", name);
}

bool sendMasterClear() {
    return sendSystem("master clear") == SENT;
}
bool sendMasterReset() {
    return sendSystem("master reset") == SENT;
}

bool sendKillingPolicy(int policy) {
    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_0);
    out << qint32(policy);
    return sendSystem("KillingPolicy(int)", data) == SENT;
}

bool sendTimeInfoChanged(int flags, long previousTime, long newTime) {
    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_0);
    out << qint32(flags) << QDateTime::fromSecsSinceEpoch(previousTime, Qt::UTC)
        << QDateTime::fromSecsSinceEpoch(newTime, Qt::UTC);
    return sendSystem("TimeInfoChanged", data) == SENT;
}

void setCallFails(const std::string& name, bool fails) {
    std::lock_guard<std::mutex> lock(gFailMutex);
    if (fails)
        failingCalls().insert(name);
    else
        failingCalls().erase(name);
    gSomeCallFails.store(!failingCalls().empty(), std::memory_order_release);
}

bool callFails(const std::string& name) {
    if (!gSomeCallFails.load(std::memory_order_acquire))
        return false;
    std::lock_guard<std::mutex> lock(gFailMutex);
    return failingCalls().count(name) != 0;
}

} // namespace ovplatform

using ovplatform::callFails;
using ovplatform::phoneValue;

int UTIL_GetRoamStatus(int* roaming) {
    return ovplatform::readInt("UTIL_GetRoamStatus", "roaming", roaming);
}

int UTIL_GetGprsServiceStatus(int* available) {
    return ovplatform::readInt("UTIL_GetGprsServiceStatus", "gprs", available);
}

int UTIL_GetLowBatteryStatus(int* low) {
    return ovplatform::readInt("UTIL_GetLowBatteryStatus", "low_battery", low);
}

int UTIL_GetFlipStatus(int* closed) {
    int open = 0;
    int result = ovplatform::readInt("UTIL_GetFlipStatus", "flip_open", &open);
    if (result == UTIL_SUCCESS && closed)
        *closed = open ? 0 : 1;
    return closed ? result : UTIL_ERR_INVALID_PARAM;
}

int UTIL_GetSliderStatus(int* closed) {
    int open = 0;
    int result = ovplatform::readInt("UTIL_GetSliderStatus", "slider_open", &open);
    if (result == UTIL_SUCCESS && closed)
        *closed = open ? 0 : 1;
    return closed ? result : UTIL_ERR_INVALID_PARAM;
}

int UTIL_GetChargeStatus(int* attached) {
    return ovplatform::readInt("UTIL_GetChargeStatus", "charger", attached);
}

int UTIL_GetPhoneModelId(char* buf, int size) {
    return ovplatform::readText("UTIL_GetPhoneModelId", "model", buf, size);
}

int UTIL_GetPhoneSwVersion(char* buf, int size) {
    return ovplatform::readText("UTIL_GetPhoneSwVersion", "sw_version", buf, size);
}

int UTIL_GetHomeCarrierName(char* buf, int size) {
    return ovplatform::readText("UTIL_GetHomeCarrierName", "home_carrier", buf, size);
}

int UTIL_GetCurrentPlmn(char* buf, int size) {
    return ovplatform::readText("UTIL_GetCurrentPlmn", "current_plmn", buf, size);
}

int UTIL_GetCurrentCarrierName(char* buf, int size) {
    return ovplatform::readText("UTIL_GetCurrentCarrierName", "current_carrier", buf, size);
}

int UTIL_Language_getSystemLanguageCode(char* buf, int size) {
    return ovplatform::readText("UTIL_Language_getSystemLanguageCode", "language", buf, size);
}

int UTIL_Language_getInstalledLanguageCount(int* count) {
    if (!count)
        return UTIL_ERR_INVALID_PARAM;
    if (callFails("UTIL_Language_getInstalledLanguageCount"))
        return UTIL_ERR_FAILURE;
    *count = static_cast<int>(ovplatform::splitList(phoneValue("languages")).size());
    return UTIL_SUCCESS;
}

int UTIL_Language_getInstalledLanguageCode(int index, char* buf, int size) {
    if (callFails("UTIL_Language_getInstalledLanguageCode"))
        return UTIL_ERR_FAILURE;
    std::vector<std::string> codes = ovplatform::splitList(phoneValue("languages"));
    if (index < 0 || static_cast<size_t>(index) >= codes.size())
        return UTIL_ERR_INVALID_PARAM;
    return ovplatform::copyText(codes[index], buf, size);
}

int TAPI_SIM_GetImsiExt(TAPI_SIM_IMSI_INFO_T* info) {
    if (!info)
        return TAPI_ERR_INVALID_PARAM;
    if (callFails("TAPI_SIM_GetImsiExt"))
        return TAPI_ERR_FAILURE;
    std::string imsi = phoneValue("imsi");
    if (imsi.empty())
        return TAPI_ERR_SIM_ABSENT;
    size_t mncLength = std::atoi(phoneValue("mnc_length", "2").c_str()) == 3 ? 3 : 2;
    if (imsi.size() < TAPI_SIM_MCC_LEN_MAX + mncLength)
        return TAPI_ERR_FAILURE;
    std::string msin = imsi.substr(TAPI_SIM_MCC_LEN_MAX + mncLength, TAPI_SIM_MSIN_LEN_MAX);
    std::memset(info, 0, sizeof(*info));
    std::memcpy(info->szMcc, imsi.data(), TAPI_SIM_MCC_LEN_MAX);
    std::memcpy(info->szMnc, imsi.data() + TAPI_SIM_MCC_LEN_MAX, mncLength);
    std::memcpy(info->szMsin, msin.data(), msin.size());
    return TAPI_SUCCESS;
}

int TAPI_OWNNUMBER_GetEntry(int index, TAPI_OWNNUMBER_ENTRY_T* entry) {
    if (!entry || index < 0)
        return TAPI_ERR_INVALID_PARAM;
    if (callFails("TAPI_OWNNUMBER_GetEntry"))
        return TAPI_ERR_FAILURE;
    std::string number = phoneValue("own_number");
    if (index != 0 || number.empty())
        return TAPI_ERR_NOT_FOUND;
    std::memset(entry, 0, sizeof(*entry));
    std::strncpy(entry->szNumber, number.c_str(), TAPI_OWNNUMBER_LEN_MAX);
    return TAPI_SUCCESS;
}

int TAPI_NETWORK_GetNitzStatus(int* status) {
    if (!status)
        return TAPI_ERR_INVALID_PARAM;
    if (callFails("TAPI_NETWORK_GetNitzStatus"))
        return TAPI_ERR_FAILURE;
    *status = std::atoi(phoneValue("nitz", "0").c_str()); // raw, as a phone reports it
    return TAPI_SUCCESS;
}

SETUP_Utility::SETUP_Utility() {}
SETUP_Utility::~SETUP_Utility() {}

int SETUP_Utility::getDisplayValue(const char* property, int* value) {
    if (!property || !value)
        return 1;
    std::string text;
    if (callFails("SETUP_Utility::getDisplayValue") ||
        !ovplatform::lookup(std::string("display.") + property, &text))
        return 1;
    *value = std::atoi(text.c_str());
    return 0;
}

int SETUP_Utility::getLCDBrightness(int* value) {
    return getDisplayValue(SETUP_LCD_BRIGHTNESS, value);
}
