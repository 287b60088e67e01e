// One gesture cycle: the feature pipeline and every pose, shake and snap
// detector, over a varied input so that the state machines keep moving.

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "imu/gestures.h"
#include "support/alloc_counter.h"

namespace {

struct Cycle {
    IMU imu;
    SFC_OUT out;
};

// Twists and turns about every axis with gravity following a slow roll,
// proximity changing every second, at 200 Hz.
std::vector<Cycle> make_cycles(int n) {
    std::vector<Cycle> cycles(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const float t = static_cast<float>(i) * 0.005F;
        Cycle& c = cycles[static_cast<size_t>(i)];
        c.imu.gyro[0] = 9.0F * std::sin(7.0F * t);
        c.imu.gyro[1] = 8.0F * std::sin(11.0F * t + 1.0F);
        c.imu.gyro[2] = 7.0F * std::sin(13.0F * t + 2.0F);
        const float roll = 3.0F * std::sin(0.7F * t);
        c.out.gravity[0] = 0.0F;
        c.out.gravity[1] = 9.8066F * std::sin(roll);
        c.out.gravity[2] = 9.8066F * std::cos(roll);
        for (int k = 0; k < 3; ++k) {
            c.imu.acc[k] = c.out.gravity[k] + 0.5F * std::sin(3.0F * t + static_cast<float>(k));
        }
        c.out.global_acc[2] = -1.0F;
        c.imu.proximity[0] = (i / 200) % 2 == 0 ? 0.0F : 5.0F;
    }
    return cycles;
}

void BM_GestureCycle(benchmark::State& state) {
    std::vector<Cycle> cycles = make_cycles(4096);
    float slot[3];
    size_t i = 0;
    imu::test::NoAllocScope allocations;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        Cycle& c = cycles[i];
        i = (i + 1) % cycles.size();
        sfc_update_gesture(&c.imu, &c.out, 5000);
        benchmark::DoNotOptimize(sfc_get_put_down(slot));
        benchmark::DoNotOptimize(sfc_get_raise_up(slot));
        benchmark::DoNotOptimize(sfc_get_turn_over(slot));
        benchmark::DoNotOptimize(sfc_get_double_flip(slot));
        benchmark::DoNotOptimize(sfc_get_rolling(slot));
        benchmark::DoNotOptimize(sfc_get_hand_held(slot));
        benchmark::DoNotOptimize(sfc_get_rotate(slot));
        benchmark::DoNotOptimize(sfc_get_shake(slot));
        benchmark::DoNotOptimize(sfc_get_snap(slot));
        benchmark::ClobberMemory();
    }
    const auto allocated = allocations.allocations();  // before the counter map allocates
    state.counters["allocations"] = static_cast<double>(allocated);
    if (allocated != 0) {
        state.SkipWithError("the gesture cycle allocated");
    }
}
BENCHMARK(BM_GestureCycle);

// The pipeline alone, for comparison.
void BM_UpdateGesture(benchmark::State& state) {
    std::vector<Cycle> cycles = make_cycles(4096);
    size_t i = 0;
    imu::test::NoAllocScope allocations;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        Cycle& c = cycles[i];
        i = (i + 1) % cycles.size();
        sfc_update_gesture(&c.imu, &c.out, 5000);
        benchmark::ClobberMemory();
    }
    if (allocations.allocations() != 0) {
        state.SkipWithError("sfc_update_gesture allocated");
    }
}
BENCHMARK(BM_UpdateGesture);

}  // namespace
