// Attribute map store and load: a news-item-sized map and a settings file of about 0.5 MB
// (20,000 keys in 50 categories, mixed scripts), with GLib's key file loading the same file
// as the peer when it is available: alone, in turn with the map for the ratio of their
// times, and for the heap each holds once loaded.
#include "types/AttrMap.h"

#include "InTurn.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#ifdef OVBASE_HAVE_GLIB
#include <glib.h>
#include <unistd.h>
#endif
#ifdef __GLIBC__
#include <malloc.h>
#endif

using ovTypes::ID;
using ovTypes::String;

namespace {

// Values in several scripts, as a phone's settings and news hold them.
const wchar_t* const kSamples[] = {
    L"Weather in Lisbon",
    L"M\u00FCnchen \u00FCberm\u00E4\u00DFig",
    L"\u041C\u043E\u0441\u043A\u0432\u0430 \u0441\u0435\u0433\u043E\u0434\u043D\u044F",
    L"\u4ECA\u65E5\u306E\u30CB\u30E5\u30FC\u30B9",
    L"\u0391\u03B8\u03AE\u03BD\u03B1 \u03BA\u03B1\u03B9\u03C1\u03CC\u03C2",
    L"42",
    L"true",
    L"http://news.example/item?id=17",
};
const size_t kSampleCount = sizeof kSamples / sizeof kSamples[0];

AttrMap newsItemMap() {
    AttrMap map(true);
    map.putString("id", L"item:2007:000123");
    map.putString("title", kSamples[2]);
    map.putString("excerpt", L"A short excerpt of the news item, shown on the idle screen.");
    map.putString("link", kSamples[7]);
    map.putTimestamp("activationDate", 1170000000);
    map.putTimestamp("expirationDate", 1170086400);
    map.putTimestamp("lastModified", 1169990000);
    map.putInt("currentDisplayCount", 0);
    map.putInt("displayCountLimit", 2147483647);
    map.putInt("displayTime", -1);
    map.putInt("priority", 3);
    map.putBool("read", false);
    map.putBool("favourite", true);
    map.putIDs("images", {ID("img:1"), ID("img:2"), ID("img:3")});
    map.putIDs("channels", {ID("chn:news"), ID("chn:sport")});
    for (int i = 0; i < 15; ++i) {
        ID key("attrs.extra" + std::to_string(i));
        map.putString(key, kSamples[i % kSampleCount]);
    }
    return map;
}

std::string settingsText() {
    AttrMap map(false);
    for (int c = 0; c < 50; ++c) {
        ID category("Group" + std::to_string(c));
        for (int k = 0; k < 400; ++k) {
            ID key("key" + std::to_string(k));
            map.putString(key, kSamples[(c + k) % kSampleCount], category);
        }
    }
    std::ostringstream out;
    map.store(out);
    return out.str();
}

std::string storedText(const AttrMap& map) {
    std::ostringstream out;
    map.store(out);
    return out.str();
}

void storeBench(benchmark::State& state, const AttrMap& map) {
    const size_t bytes = storedText(map).size();
    for (auto _ : state) {
        std::ostringstream out;
        map.store(out);
        benchmark::DoNotOptimize(out.str().data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// One load into a fresh map, destroyed on return as a settings source's is on a reload. One
// value is read, as after any load; MAP_FORM asks for the map form too (categories()).
void loadOnce(std::istringstream& in, bool listMode, bool mapForm = false) {
    in.clear();
    in.seekg(0);
    AttrMap map(listMode);
    map.load(in);
    benchmark::DoNotOptimize(map.getString("key1", String(), nullptr, "Group1").size());
    if (mapForm)
        benchmark::DoNotOptimize(map.categories().size());
}

void loadBench(benchmark::State& state, const std::string& text, bool listMode,
               bool mapForm = false) {
    std::istringstream in(text);
    for (auto _ : state)
        loadOnce(in, listMode, mapForm);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_AttrMapStoreNewsItem(benchmark::State& state) {
    storeBench(state, newsItemMap());
}

void BM_AttrMapLoadNewsItem(benchmark::State& state) {
    loadBench(state, storedText(newsItemMap()), true);
}

void BM_AttrMapStoreSettings(benchmark::State& state) {
    AttrMap map(false);
    std::istringstream in(settingsText());
    map.load(in);
    state.counters["keys"] = 20000;
    storeBench(state, map);
}

void BM_AttrMapLoadSettings(benchmark::State& state) {
    std::string text = settingsText();
    state.counters["file_kB"] = static_cast<double>(text.size()) / 1024;
    loadBench(state, text, false);
}

void BM_AttrMapLoadSettingsListMode(benchmark::State& state) {
    loadBench(state, settingsText(), true);
}

// Loaded and then turned into the map form, as a caller of categories() or a writer of
// settings makes it.
void BM_AttrMapLoadSettingsMapForm(benchmark::State& state) {
    loadBench(state, settingsText(), false, true);
}

#ifdef OVBASE_HAVE_GLIB
// GLib's slice allocator keeps its blocks out of the C heap's count unless told to use malloc,
// which it reads once, before main: the program runs itself again with that set.
const bool kSlicesFromMalloc = [] {
    if (const char* slices = std::getenv("G_SLICE"))
        return std::strstr(slices, "always-malloc") != nullptr;
    setenv("G_SLICE", "always-malloc", 1);
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // The arguments, each ended by a NUL (the string's own ends the last).
    std::vector<char*> args;
    for (size_t at = 0; at < line.size();) {
        args.push_back(&line[at]);
        size_t end = line.find('\0', at);
        at = end == std::string::npos ? line.size() : end + 1;
    }
    args.push_back(nullptr);
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length > 0) {
        path[length] = '\0';
        execv(path, args.data());
    }
    return false; // not run again: the key file's memory is undercounted
}();

// The key file peer: a fresh one per load, freed on return.
void loadKeyFile(const std::string& text) {
    GKeyFile* file = g_key_file_new();
    if (!g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr))
        std::abort(); // the text is ours and well formed
    benchmark::DoNotOptimize(file);
    g_key_file_free(file);
}

void BM_GKeyFileLoadSettings(benchmark::State& state) {
    std::string text = settingsText();
    for (auto _ : state)
        loadKeyFile(text);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_GKeyFileLoadSettings)->Unit(benchmark::kMillisecond);

// The settings file loaded by the key file and by the map in turn: "ratio" is the map's time
// over the key file's, "speedup" its inverse.
void BM_LoadSettingsVsKeyFile(benchmark::State& state) {
    const std::string text = settingsText();
    std::istringstream in(text);
    ovbench::inTurn(
        state, "GKeyFile", [&] { loadKeyFile(text); }, "AttrMap", [&] { loadOnce(in, false); });
    state.counters["speedup"] = 1 / state.counters["ratio"];
}
BENCHMARK(BM_LoadSettingsVsKeyFile)->Unit(benchmark::kMillisecond)->MinTime(2.0);

#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 33)
// Heap bytes in use, small blocks and mapped ones, as the C library counts them.
size_t heapInUse() {
    struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Heap bytes that what LOAD builds from TEXT holds while alive, net of the same for an empty
// text. LOAD calls back when it starts building (its input ready) and when its result is
// built.
template <typename Load> double heapHeld(const std::string& text, Load load) {
    size_t held[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        size_t before = 0;
        load(
            i == 0 ? text : std::string(), [&] { before = heapInUse(); },
            [&] { held[i] = heapInUse() - before; });
    }
    return static_cast<double>(held[0]) - static_cast<double>(held[1]);
}

// The memory each holds for the settings file once loaded, in kB, and "ratio", the map's
// over the key file's; "AttrMapMapForm_kB" is the map's once turned into the map form.
void BM_SettingsMemoryVsKeyFile(benchmark::State& state) {
    const std::string text = settingsText();
    auto keyFile = [](const std::string& bytes, auto started, auto loaded) {
        started();
        GKeyFile* file = g_key_file_new();
        g_key_file_load_from_data(file, bytes.data(), bytes.size(), G_KEY_FILE_NONE, nullptr);
        loaded();
        g_key_file_free(file);
    };
    auto attrMap = [](bool mapForm) {
        return [mapForm](const std::string& bytes, auto started, auto loaded) {
            std::istringstream in(bytes);
            started();
            AttrMap map(false);
            map.load(in);
            if (mapForm)
                map.categories();
            loaded();
        };
    };
    if (!kSlicesFromMalloc) {
        state.SkipWithError("GLib's slices uncounted: needs G_SLICE=always-malloc");
        return;
    }
    double peer = 0, ours = 0, mapForm = 0;
    for (auto _ : state) {
        peer = heapHeld(text, keyFile);
        ours = heapHeld(text, attrMap(false));
        mapForm = heapHeld(text, attrMap(true));
    }
    state.counters["GKeyFile_kB"] = peer / 1024;
    state.counters["AttrMap_kB"] = ours / 1024;
    state.counters["AttrMapMapForm_kB"] = mapForm / 1024;
    state.counters["ratio"] = ours / peer;
    state.counters["file_kB"] = static_cast<double>(text.size()) / 1024;
}
BENCHMARK(BM_SettingsMemoryVsKeyFile)->Unit(benchmark::kMillisecond)->Iterations(3);
#endif
#endif

BENCHMARK(BM_AttrMapStoreNewsItem);
BENCHMARK(BM_AttrMapLoadNewsItem);
BENCHMARK(BM_AttrMapStoreSettings)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AttrMapLoadSettings)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AttrMapLoadSettingsListMode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AttrMapLoadSettingsMapForm)->Unit(benchmark::kMillisecond);

} // namespace
