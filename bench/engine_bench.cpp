// One posture update followed by the whole output record, on a moving
// synthetic recording at 200 Hz. Reports the heap allocations per update.

#include <benchmark/benchmark.h>

#include <vector>

#include "imu/engine.h"
#include "imu/host.h"
#include "support/alloc_counter.h"
#include "sim/sim_recording.h"
#include "support/temp_root.h"

namespace {

// A closed loop of short turns about several axes, so the recording can
// repeat. Each turn lasts less than the still test's 201 updates, so no
// turn rate is taken for a gyroscope bias (which would rewrite the
// calibration file) and the filter works as for a phone in the hand.
std::vector<IMU> moving_recording() {
    using imu::sim::Frame;
    imu::sim::SensorModel model;
    model.acc_noise_mps2 = 0.05;
    model.gyro_noise_rps = 0.003;
    model.mag_noise_ut = 0.4;
    imu::sim::Trajectory t(imu::sim::pose(40, 20, -10));
    const imu::sim::Vec3 axes[] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    for (const auto& axis : axes) {
        t.turn(axis, 1.2, 0.4, Frame::kDevice).turn(axis, 0.6, 0.4, Frame::kDevice);
        t.turn(axis, -0.6, 0.4, Frame::kDevice).turn(axis, -1.2, 0.4, Frame::kDevice);
    }
    std::vector<IMU> out;
    for (const auto& s : record(t, model)) {
        out.push_back(imu::sim::to_imu(s));
    }
    return out;
}

void BM_UpdateAndOutput(benchmark::State& state) {
    const imu::test::TempRoot root;  // the calibration file goes there
    imu_host_set_log_sink([](int, const char*, const char*, void*) {}, nullptr);
    const std::vector<IMU> rec = moving_recording();
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
