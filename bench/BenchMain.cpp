// The main() of every benchmark program: the library's diagnostics go to /dev/null, since
// writing them to a terminal would be what gets measured.
#include <benchmark/benchmark.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (!std::freopen("/dev/null", "w", stderr))
        return 1;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
