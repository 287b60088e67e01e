// The replay of a minute of 200 Hz data with every virtual sensor on, as
// imu-replay runs it: the text parsed into rows, then every row pushed
// through the service. Reports cycles per second (items_per_second) and
// the heap allocations per cycle of the replay loop.

#include <benchmark/benchmark.h>

#include <string>

#include "bench_recording.h"
#include "imu-replay/options.h"
#include "imu-replay/recording.h"
#include "imu-replay/replay.h"
#include "imu/host.h"
#include "support/alloc_counter.h"
#include "support/replay_csv.h"

namespace {

struct Setup {
    std::string root = imu::replay::make_temp_root();
    std::string text = imu::test::event_stream_csv(imu::bench::minute_of_turns());
    imu::replay::ReplaySettings settings;

    Setup() {
        imu_host_set_root(root.c_str());
        imu::replay::Options o;
        imu::replay::parse_options({}, o);  // every virtual sensor, mode 0
        settings.enable = o.enable;
    }
    ~Setup() {
        imu_host_set_root(nullptr);
        imu::replay::remove_tree(root);
    }
    Setup(const Setup&) = delete;
    Setup& operator=(const Setup&) = delete;
};

Setup& setup() {
    static Setup s;
    return s;
}

void BM_ParseAndReplayEverySensor(benchmark::State& state) {
    Setup& s = setup();
    imu::replay::Recording rec;
    imu::replay::ReplayResult result;
    std::size_t cycles = 0;
    std::uint64_t loop_allocations = 0;
    for (auto _ : state) {
        imu::replay::parse_recording(s.text, "bench", imu::replay::Layout::kAuto, {}, rec);
        const std::uint64_t before = imu::test::allocation_count();
        imu::replay::run_replay(rec, s.settings, result);
        loop_allocations += imu::test::allocation_count() - before;
        cycles += result.cycles;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(cycles));
    state.counters["allocs_per_cycle"] =
        benchmark::Counter(static_cast<double>(loop_allocations) / static_cast<double>(cycles));
    state.counters["cycles"] = static_cast<double>(result.cycles);
}
BENCHMARK(BM_ParseAndReplayEverySensor)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void BM_Parse(benchmark::State& state) {
    Setup& s = setup();
    imu::replay::Recording rec;
    std::size_t rows = 0;
    for (auto _ : state) {
        imu::replay::parse_recording(s.text, "bench", imu::replay::Layout::kAuto, {}, rec);
        rows += rec.rows.size();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(rows));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * s.text.size()));
}
BENCHMARK(BM_Parse)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace
