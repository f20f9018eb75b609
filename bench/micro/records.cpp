// records.cpp - one trace record beside a printed line and an LTTng-UST event.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>

#include "micro.hpp"
#include "trace.h"

extern "C" {
int bench_lttng_enabled(void);
void bench_lttng_record(const char* point, int result);
}

namespace {

constexpr const char* kPoint = "RSETFFFF";

void record_product(benchmark::State& state) {
    TraceHandle* const trace = Topen(bench::memory_path("bench.trc").c_str(), 5, 1);
    int result = 0;
    for (auto _ : state) Twrite(trace, 1, kPoint, &result, sizeof result);
    Tclose(trace);
}
void record_fprintf(benchmark::State& state) {
    std::FILE* file = std::fopen(bench::memory_path("bench.txt").c_str(), "w");
    int lines = 0;
    for (auto _ : state) {
        std::fprintf(file, "%ld %s %d\n", static_cast<long>(std::time(nullptr)), kPoint, lines);
        if (++lines % 100'000 == 0) std::rewind(file);  // like a ring, it does not grow without end
    }
    std::fclose(file);
}
// The runner starts a recording session; without one an event is a branch that is not taken.
void record_lttng(benchmark::State& state) {
    if (bench_lttng_enabled() == 0) state.SetLabel("not recording");
    for (auto _ : state) bench_lttng_record(kPoint, 0);
}

BENCHMARK(record_product);
BENCHMARK(record_fprintf);
BENCHMARK(record_lttng);

}  // namespace
