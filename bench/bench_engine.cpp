// Engine utilities: a typical server URL with all four placeholders expanded, the network
// access decision while roaming (download option, roaming state, friendly list, current
// network), and URLs of growing length full of '@' to show that the expansion stays linear.
// On a host every phone value is read from the simulated phone's state file.
#include "OVPlatform.h"
#include "utility/NR_EngineUtils.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// A device root with the service and system settings and a roaming phone; removed at exit.
class EngineFixture {
public:
    EngineFixture() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "ovbase-bench-XXXXXX").string();
        mRoot = ::mkdtemp(pattern.data()) ? pattern : std::string();
        ovplatform::setDeviceRoot(mRoot);
        std::string path =
            ovplatform::devicePath("/qbxlocal/download/appwrite/setup/wb_orvel_setting.cfg");
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << "[OVCore.Service]\nDownloadOption=1\n"
                               "FriendlyNetPlmn=00101,00102,001010,001020,23415,26201,310260\n"
                               "LastUsedServer=dpp20\n"
                               "[OVCore.System]\nMSISDN=+15550001234\n";
        ovplatform::setRoaming(true);
        ovplatform::setCurrentPlmn("26201");
        ovplatform::setPhoneModelId("KX-200");
        ovplatform::setPhoneSwVersion("4.2.1-b17");
    }
    ~EngineFixture() {
        std::error_code ignored;
        std::filesystem::remove_all(mRoot, ignored);
    }

private:
    std::string mRoot;
};

void setUp() {
    static EngineFixture fixture;
}

void BM_ReplacePatternsInTypicalURL(benchmark::State& state) {
    setUp();
    const std::string url = "http://content.example.net/ov/feed?model=@DEVICE_MODEL@"
                            "&sw=@DP_CLIENT_SW_VERSION@&pv=@DPP_VERSION@&msisdn=@MSISDN@&lang=en";
    for (auto _ : state) {
        std::string copy = url;
        NR_EngineUtils::replacePatternsInURL(copy);
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(BM_ReplacePatternsInTypicalURL)->Unit(benchmark::kMicrosecond);

void BM_GetNetworkAccessStatusRoaming(benchmark::State& state) {
    setUp();
    for (auto _ : state) {
        int status = 0;
        int rc = NR_EngineUtils::getNetworkAccessStatus(status);
        benchmark::DoNotOptimize(rc);
        benchmark::DoNotOptimize(status);
    }
}
BENCHMARK(BM_GetNetworkAccessStatusRoaming)->Unit(benchmark::kMicrosecond);

// RANGE bytes of '@' that start nothing and of the one placeholder answered from memory (the
// protocol version), so that the scanning itself is what grows.
void BM_ReplacePatternsInLongURL(benchmark::State& state) {
    setUp();
    std::string url;
    while (url.size() < static_cast<size_t>(state.range(0)))
        url += "@@a@b@DPP_VERSION@c@";
    for (auto _ : state) {
        std::string copy = url;
        NR_EngineUtils::replacePatternsInURL(copy);
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(url.size()));
}
BENCHMARK(BM_ReplacePatternsInLongURL)
    ->RangeMultiplier(4)
    ->Range(1 << 10, 1 << 18)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMicrosecond);

} // namespace
