// UTF-8 line reading and writing over 10 MB of mixed-script text, with std::getline splitting
// the same stream as the peer (alone, and in turn with the reader for the ratio).
#include "types/UTF_8Util.h"

#include "InTurn.h"

#include <benchmark/benchmark.h>

#include <sstream>
#include <string>
#include <vector>

using ovTypes::String;

namespace {

const wchar_t* const kLines[] = {
    L"title=Weather in Lisbon: sunny spells, 21 degrees",
    L"excerpt=M\u00FCnchen: \u00DCbernachtung im Gr\u00FCnen, K\u00E4lte erwartet",
    L"\u041C\u043E\u0441\u043A\u0432\u0430: \u043D\u043E\u0432\u043E\u0441\u0442\u0438 "
    L"\u0434\u043D\u044F \u0438 \u043F\u043E\u0433\u043E\u0434\u0430",
    L"\u4ECA\u65E5\u306E\u30CB\u30E5\u30FC\u30B9\u3068\u5929\u6C17\u4E88\u5831\u3067\u3059",
    L"\u0391\u03B8\u03AE\u03BD\u03B1: \u03BA\u03B1\u03B9\u03C1\u03CC\u03C2 \u03BA\u03B1\u03B9 "
    L"\u03B5\u03B9\u03B4\u03AE\u03C3\u03B5\u03B9\u03C2",
    L"link=http://news.example/item?id=17&channel=sport",
    L"emoji \U0001F600 and \U0001F680 in a headline",
};

const std::vector<String>& textLines() {
    static std::vector<String> lines;
    if (lines.empty()) {
        const size_t count = sizeof kLines / sizeof kLines[0];
        size_t bytes = 0;
        for (size_t i = 0; bytes < 10 * 1000 * 1000; ++i) {
            std::ostringstream encoded;
            UTF_8Util::LineWriter(encoded).write(kLines[i % count]);
            lines.push_back(kLines[i % count]);
            bytes += encoded.str().size() + 1;
        }
    }
    return lines;
}

const std::string& text() {
    static std::string bytes;
    if (bytes.empty()) {
        std::ostringstream out;
        UTF_8Util::LineWriter writer(out);
        for (const String& line : textLines()) {
            writer.write(line);
            writer.writeLine();
        }
        bytes = out.str();
    }
    return bytes;
}

// Writes into a fixed block, so the measure is the writer and not string growth.
class BlockSink : public std::streambuf {
public:
    explicit BlockSink(size_t size) : mBlock(size) {}
    void rewind() { setp(mBlock.data(), mBlock.data() + mBlock.size()); }
    size_t written() const { return static_cast<size_t>(pptr() - pbase()); }

private:
    std::vector<char> mBlock;
};

// One pass over the whole text, a new string per line.
size_t readFreshLines(std::istream& in) {
    in.clear();
    in.seekg(0);
    UTF_8Util::LineReader reader(in);
    size_t lines = 0;
    bool end = false;
    for (;;) {
        String line = reader.readLine(end);
        if (end)
            return lines;
        benchmark::DoNotOptimize(line.data());
        ++lines;
    }
}

// One pass, every line read into the same string.
void readLines(std::istream& in, String& line) {
    in.clear();
    in.seekg(0);
    UTF_8Util::LineReader reader(in);
    bool end = false;
    for (;;) {
        reader.readLine(line, end);
        if (end)
            return;
        benchmark::DoNotOptimize(line.data());
    }
}

void getLines(std::istream& in, std::string& line) {
    in.clear();
    in.seekg(0);
    while (std::getline(in, line))
        benchmark::DoNotOptimize(line.data());
}

void BM_LineReaderReadLine(benchmark::State& state) {
    std::istringstream in(text());
    size_t lines = 0;
    for (auto _ : state)
        lines += readFreshLines(in);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text().size()));
    state.counters["lines"] = static_cast<double>(lines / state.iterations());
}

void BM_LineReaderReadLineReusing(benchmark::State& state) {
    std::istringstream in(text());
    String line;
    for (auto _ : state)
        readLines(in, line);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text().size()));
}

void BM_StdGetline(benchmark::State& state) {
    std::istringstream in(text());
    std::string line;
    for (auto _ : state)
        getLines(in, line);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text().size()));
}

// The line reader against std::getline in one run: "ratio" is the reader's time over
// getline's. Both reuse one string, as a reading loop does.
void BM_ReadLineVsGetline(benchmark::State& state) {
    std::istringstream ours(text());
    std::istringstream peers(text());
    String line;
    std::string bytes;
    ovbench::inTurn(
        state, "getline", [&] { getLines(peers, bytes); }, "readLine",
        [&] { readLines(ours, line); });
}

// The same with a new string per line from the reader.
void BM_ReadFreshLineVsGetline(benchmark::State& state) {
    std::istringstream ours(text());
    std::istringstream peers(text());
    std::string bytes;
    ovbench::inTurn(
        state, "getline", [&] { getLines(peers, bytes); }, "readLine",
        [&] { readFreshLines(ours); });
}

void BM_LineWriterWrite(benchmark::State& state) {
    const std::vector<String>& lines = textLines();
    BlockSink sink(text().size() + 1024);
    std::ostream out(&sink);
    for (auto _ : state) {
        sink.rewind();
        UTF_8Util::LineWriter writer(out);
        for (const String& line : lines) {
            writer.write(line);
            writer.writeLine();
        }
        benchmark::DoNotOptimize(sink.written());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text().size()));
}

BENCHMARK(BM_LineReaderReadLine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LineReaderReadLineReusing)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdGetline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LineWriterWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadLineVsGetline)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_ReadFreshLineVsGetline)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace
