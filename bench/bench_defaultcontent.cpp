// Default content: get of a 10 kB resource from an index file of 1,000 such entries, against
// reading the same bytes from a plain file, and the manager's own share of a look-up (the
// language and profile it asks for, the list and the directory search) through exists().
#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "storage/NR_DefaultContentMgr.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

const int kEntries = 1000;
const size_t kResourceSize = 10 * 1024;
const char* const kPicked = "dc:res0500";

std::string resourceBytes(int i) {
    std::string bytes(kResourceSize, '\0');
    for (size_t k = 0; k < bytes.size(); ++k)
        bytes[k] = static_cast<char>((k * 31 + i) & 0xFF);
    return bytes;
}

// A device root whose default-content folder holds the index and one plain file with the
// bytes of the picked resource; removed at exit.
class DefaultContentFixture {
public:
    DefaultContentFixture() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "ovbase-bench-XXXXXX").string();
        mRoot = ::mkdtemp(pattern.data()) ? pattern : std::string();
        ovplatform::setDeviceRoot(mRoot);
        const std::string folder =
            ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH);
        std::filesystem::create_directories(folder);
        DefaultContentResources resources;
        for (int i = 0; i < kEntries; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "res%04d", i);
            resources.emplace_back(name, resourceBytes(i));
        }
        std::ofstream index(folder + "/" + NR_DefaultContentMgr::INDEX_FILE_NAME, std::ios::binary);
        mReady = writeDefaultContentIndex(index, resources) && index.flush();
        mPlainPath = folder + "/plain.bin";
        std::ofstream(mPlainPath, std::ios::binary) << resourceBytes(500);
    }
    ~DefaultContentFixture() {
        NR_DefaultContentMgr::dispose();
        OV_EventAndStatusFacade::destroy();
        std::error_code ignored;
        std::filesystem::remove_all(mRoot, ignored);
    }
    bool ready() const { return mReady; }
    const std::string& plainPath() const { return mPlainPath; }

private:
    std::string mRoot;
    std::string mPlainPath;
    bool mReady = false;
};

DefaultContentFixture& fixture() {
    static DefaultContentFixture instance;
    return instance;
}

void BM_GetFromIndex(benchmark::State& state) {
    if (!fixture().ready()) {
        state.SkipWithError("could not write the index");
        return;
    }
    std::stringstream out;
    for (auto _ : state) {
        out.str(std::string());
        if (!NR_DefaultContentMgr::get(kPicked, out) ||
            out.tellp() != std::streampos(kResourceSize)) {
            state.SkipWithError("not delivered");
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kResourceSize));
}
BENCHMARK(BM_GetFromIndex);

// The same bytes from a file of their own, opened and read whole into the same kind of stream.
void BM_ReadPlainFile(benchmark::State& state) {
    const std::string& path = fixture().plainPath();
    std::stringstream out;
    for (auto _ : state) {
        out.str(std::string());
        std::ifstream in(path, std::ios::binary);
        out << in.rdbuf();
        if (out.tellp() != std::streampos(kResourceSize)) {
            state.SkipWithError("short read");
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kResourceSize));
}
BENCHMARK(BM_ReadPlainFile);

// The manager's fallback to that plain file: the index is searched first.
void BM_GetPlainFallback(benchmark::State& state) {
    std::stringstream out;
    for (auto _ : state) {
        out.str(std::string());
        if (!NR_DefaultContentMgr::get("dc:plain.bin", out)) {
            state.SkipWithError("not delivered");
            break;
        }
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kResourceSize));
}
BENCHMARK(BM_GetPlainFallback);

// A look-up without reading any resource bytes.
void BM_ExistsInIndex(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(NR_DefaultContentMgr::exists(kPicked));
}
BENCHMARK(BM_ExistsInIndex);

} // namespace
