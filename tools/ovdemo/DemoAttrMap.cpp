// Demo step of the foundation: a settings-style attribute map written to a file under the
// device root, loaded back and read with the typed getters, the load traced with FnLog.
#include "Demo.h"
#include "OVPlatform.h"
#include "types/AttrMap.h"
#include "types/FnLog.h"
#include "types/ovTypes.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

using ovTypes::ID;
using ovTypes::String;

namespace {

const char* const kDemoFile = "/qbxlocal/download/appwrite/setup/ovdemo_attrmap.cfg";

bool loadTraced(AttrMap& map, const std::string& path) {
    OV_FNLOG(5);
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    map.load(in);
    return true;
}

std::string utf8(const String& text) {
    std::ostringstream out;
    UTF_8Util::LineWriter(out).write(text);
    return out.str();
}

} // namespace

bool demoAttrMap() {
    std::printf("\n== attribute map ==\n");
    AttrMap settings(true);
    settings.putInt("MinItems", 3, "OVC");
    settings.putBool("AutoRefresh", true, "OVC");
    settings.putTimestamp("LastUpdate", ovTypes::Time(1170000000).getCount(), "OVC");
    settings.putString("Greeting", L"Bom dia, \u4E16\u754C \u20AC", "OVC");
    settings.putIDs("Channels", {ID("news"), ID("sport,local"), ID("weather")}, "OVC");
    settings.putString("RefreshInterval", L"0x3C", "Timing");

    const std::string path = ovplatform::devicePath(kDemoFile);
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    {
        std::ofstream out(path, std::ios::binary);
        settings.store(out);
        if (!out) {
            std::printf("could not write %s\n", path.c_str());
            return false;
        }
    }
    std::ifstream check(path, std::ios::binary);
    std::stringstream written;
    written << check.rdbuf();
    std::printf("wrote %s:\n%s", path.c_str(), written.str().c_str());

    AttrMap loaded(true);
    if (!loadTraced(loaded, path)) {
        std::printf("could not read %s back\n", path.c_str());
        return false;
    }
    std::printf("loaded it back (the load is traced with FnLog IN/OUT lines in the log)\n");

    bool found = false;
    int minItems = loaded.getInt("MinItems", 1, &found, "OVC");
    std::printf("  MinItems        getInt       -> %d (found %s)\n", minItems,
                found ? "yes" : "no");
    std::printf("  AutoRefresh     getBool      -> %s\n",
                loaded.getBool("AutoRefresh", false, nullptr, "OVC") ? "true" : "false");
    long last = loaded.getTimestamp("LastUpdate", 0, nullptr, "OVC");
    std::printf("  LastUpdate      getTimestamp -> %ld s, %s", last,
                ovTypes::toString(last).c_str());
    std::printf("  Greeting        getString    -> %s\n",
                utf8(loaded.getString("Greeting", L"", nullptr, "OVC")).c_str());
    std::vector<ID> channels;
    loaded.getIDs("Channels", channels, nullptr, "OVC");
    std::printf("  Channels        getIDs       ->");
    for (const ID& channel : channels)
        std::printf(" [%s]", channel.c_str());
    std::printf("\n");
    int interval = loaded.getInt("RefreshInterval", 0, nullptr, "Timing");
    std::printf("  RefreshInterval getInt       -> %d (hexadecimal text)\n", interval);
    int absent = loaded.getInt("MaxItems", 10, &found, "OVC");
    std::printf("  MaxItems        getInt       -> %d (absent, default used: found %s)\n", absent,
                found ? "yes" : "no");

    bool same = minItems == 3 && interval == 60 && last == 1170000000 && channels.size() == 3;
    std::printf("typed values %s\n",
                same ? "came back as written" : "DIFFER from what was written");
    return same;
}
