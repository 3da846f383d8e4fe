// Settings: a read from memory and a write (whole-file rewrite with fsync, plus the
// announcement) on a settings file of about 200 keys.
#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

const char* const kUI = "OVCore.UI";

// A device root holding a settings file of 200 keys in 10 groups; removed at exit.
class SettingsFixture {
public:
    SettingsFixture() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "ovbase-bench-XXXXXX").string();
        mRoot = ::mkdtemp(pattern.data()) ? pattern : std::string();
        ovplatform::setDeviceRoot(mRoot);
        mPath = ovplatform::devicePath("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg");
        std::filesystem::create_directories(std::filesystem::path(mPath).parent_path());
        const char* groups[] = {"OVCore.ConnectionProfiles",
                                "OVCore.DCD",
                                "OVCore.EngineeringMenu",
                                "OVCore.HttpTransport",
                                "OVCore.InitSetting",
                                "OVCore.Service",
                                "OVCore.Storage",
                                "OVCore.System",
                                "OVCore.UI",
                                "OVNewsReader.UI"};
        std::ofstream out(mPath);
        for (const char* group : groups) {
            out << "[" << group << "]\n";
            for (int i = 0; i < 20; ++i)
                out << "Setting" << i << "=" << (i % 2 ? "some text value " : "") << i * 37 << "\n";
        }
        out.close();
        mSource = std::make_unique<CFGOrvelSetting>(mPath.c_str());
    }
    ~SettingsFixture() {
        mSource.reset();
        OV_EventAndStatusFacade::destroy();
        std::error_code ignored;
        std::filesystem::remove_all(mRoot, ignored);
    }
    CFGOrvelSetting& source() { return *mSource; }

private:
    std::string mRoot;
    std::string mPath;
    std::unique_ptr<CFGOrvelSetting> mSource;
};

SettingsFixture& fixture() {
    static SettingsFixture f;
    return f;
}

void BM_GetIntFromMemory(benchmark::State& state) {
    CFGOrvelSetting& s = fixture().source();
    int value = 0;
    for (auto _ : state) {
        int rc = s.getInt(kUI, "Setting10", value);
        benchmark::DoNotOptimize(rc);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_GetIntFromMemory);

void BM_SetIntRewritesFile(benchmark::State& state) {
    CFGOrvelSetting& s = fixture().source();
    int i = 0;
    for (auto _ : state) {
        int rc = s.setInt(kUI, "Setting10", ++i);
        benchmark::DoNotOptimize(rc);
    }
}
BENCHMARK(BM_SetIntRewritesFile)->Unit(benchmark::kMicrosecond);

} // namespace
