// The engine utilities' tests run on a temporary device root: the settings file is written
// before the setting manager first loads it (once per process, so once per test), later
// changes go through the manager, and the phone's answers come from the simulated phone.
#ifndef OVBASE_TESTS_UTILITY_ENGINETEST_H
#define OVBASE_TESTS_UTILITY_ENGINETEST_H

#include "OVPlatform.h"
#include "settings/NR_SettingMgr.h"
#include "support/SettingsFiles.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

namespace enginetest {

class EngineTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (const char* call : {"UTIL_GetRoamStatus", "UTIL_GetCurrentPlmn",
                                 "UTIL_GetPhoneModelId", "UTIL_GetPhoneSwVersion"})
            ovplatform::setCallFails(call, false);
    }

    // The settings file with these lines in the service group and, when given, in the system
    // group. Must come before the first setting is read.
    static void writeSettings(const std::string& service, const std::string& system = "") {
        std::string text = "[OVCore.Service]\n" + service;
        if (!system.empty())
            text += "[OVCore.System]\n" + system;
        ASSERT_TRUE(ovtest::writeMainSettings(text));
    }

    static void setService(const char* key, const std::string& value) {
        ASSERT_EQ(0, OrvelSettingMgr::getSettingMgrInstance()->setString(
                         OrvelSettingMgr::GROUP_SERVICE, key, ovTypes::String(ovTypes::ID(value))));
    }

    static void setDownloadOption(int option) {
        ASSERT_EQ(0, OrvelSettingMgr::getSettingMgrInstance()->setInt(
                         OrvelSettingMgr::GROUP_SERVICE, "DownloadOption", option));
    }

    ovtest::TempDeviceRoot mRoot;
};

// How often LOG holds the diagnostic "{LEVEL} NR_EngineUtils.cpp:<line>, FUNCTION()\tMESSAGE".
inline int countLines(const std::string& log, int level, const std::string& function,
                      const std::string& message) {
    const std::string plain = std::regex_replace(log, std::regex("NR_EngineUtils\\.cpp:[0-9]+, "),
                                                 "NR_EngineUtils.cpp:#, ");
    const std::string line =
        "{" + std::to_string(level) + "} NR_EngineUtils.cpp:#, " + function + "()\t" + message;
    int count = 0;
    for (size_t pos = plain.find(line); pos != std::string::npos; pos = plain.find(line, pos + 1))
        ++count;
    return count;
}

} // namespace enginetest

#endif
