// Runs the peer's work and ours in turn inside one benchmark, so that both meet the same load
// on a shared machine, and reports the median processor time of each and their ratio. Which
// one goes first alternates, as the first after a pause pays for cold caches, and the C heap
// is settled between the two (outside the times): glibc defers merging freed small blocks to
// the next large request, and one side would pay for the blocks the other freed.
#ifndef OVBASE_BENCH_INTURN_H
#define OVBASE_BENCH_INTURN_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace ovbench {

// Processor time of the calling thread in milliseconds: time lost to other programs on a busy
// machine does not count.
inline double threadMillis() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

// Merges the freed small blocks that a large request would merge.
inline void settleHeap() {
    void* large = std::malloc(64 * 1024);
    benchmark::DoNotOptimize(large);
    std::free(large);
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Counters PEER_ms and OURS_ms (medians) and "ratio", ours over the peer's time: below 1 is
// faster than the peer.
template <typename Peer, typename Ours>
void inTurn(benchmark::State& state, const std::string& peerName, Peer peer,
            const std::string& oursName, Ours ours) {
    std::vector<double> peerTimes;
    std::vector<double> ourTimes;
    bool peerFirst = true;
    for (auto _ : state) {
        for (int i = 0; i < 2; ++i) {
            bool runPeer = (i == 0) == peerFirst;
            double start = threadMillis();
            if (runPeer)
                peer();
            else
                ours();
            (runPeer ? peerTimes : ourTimes).push_back(threadMillis() - start);
            settleHeap();
        }
        peerFirst = !peerFirst;
    }
    double peerMedian = median(peerTimes);
    double ourMedian = median(ourTimes);
    state.counters[peerName + "_ms"] = peerMedian;
    state.counters[oursName + "_ms"] = ourMedian;
    state.counters["ratio"] = peerMedian > 0 ? ourMedian / peerMedian : 0;
}

} // namespace ovbench

#endif
