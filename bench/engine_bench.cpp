// One posture update followed by the whole output record, on a moving
// synthetic recording at 200 Hz. Reports the heap allocations per update.

#include <benchmark/benchmark.h>

#include <vector>

#include "bench_recording.h"
#include "imu/engine.h"
#include "imu/host.h"
#include "support/alloc_counter.h"
#include "support/temp_root.h"

namespace {

void BM_UpdateAndOutput(benchmark::State& state) {
    const imu::test::TempRoot root;  // the calibration file goes there
    imu_host_set_log_sink([](int, const char*, const char*, void*) {}, nullptr);
    std::vector<IMU> rec;
    for (const auto& s : imu::bench::turning_loop()) {
        rec.push_back(imu::sim::to_imu(s));
    }
    SFC_OUT out{};
    IMU sample = rec[0];
    sfc_update_posture(&sample, 5000000);  // first update: version lines, file
    std::size_t k = 1;
    const std::uint64_t allocations = imu::test::allocation_count();
    for (auto _ : state) {
        sample = rec[k];
        k = k + 1 == rec.size() ? 0 : k + 1;
        benchmark::DoNotOptimize(sfc_update_posture(&sample, 5000000));
        sfc_get_sfc_out(&out);
        benchmark::DoNotOptimize(out);
    }
    state.counters["allocs_per_update"] =
        benchmark::Counter(static_cast<double>(imu::test::allocation_count() - allocations),
                           benchmark::Counter::kAvgIterations);
    imu_host_set_log_sink(nullptr, nullptr);
}
BENCHMARK(BM_UpdateAndOutput);

}  // namespace
