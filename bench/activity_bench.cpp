// Per-cycle cost of the tap, pedometer, motion and tilt detectors.
//
// The input is a walk with the phone in the hand and a ringing tap every
// 0.7 s, at 200 Hz, so that every state machine keeps moving. Each
// detector alone runs over pipeline signals recorded beforehand (restored
// per cycle, a handful of stores); the whole-cycle benchmark runs the
// pipeline and all six. Every benchmark fails if the loop allocates.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "imu/gestures.h"
#include "support/alloc_counter.h"

namespace {

constexpr int kCycles = 4096;
constexpr double kPi = 3.14159265358979323846;

struct Cycle {
    IMU imu;
    SFC_OUT out;
};

std::vector<Cycle> make_cycles() {
    std::vector<Cycle> cycles(kCycles);
    for (int i = 0; i < kCycles; ++i) {
        const double t = i * 0.005;
        const double phi = 2.0 * kPi * t / 0.5;  // a step every 0.5 s
        const double vertical = 0.35 * std::sin(phi);
        const int since_tap = i % 140;  // a tap every 0.7 s
        const double ring = since_tap < 8 ? 2.0 * std::pow(-0.7, since_tap) : 0.0;
        Cycle& c = cycles[static_cast<std::size_t>(i)];
        const double up[3] = {0.0, 0.643, 0.766};
        for (int k = 0; k < 3; ++k) {
            c.imu.acc[k] = static_cast<float>(up[k] * 9.8066 * (1.0 + vertical));
            c.out.gravity[k] = static_cast<float>(up[k] * 9.8066);
        }
        c.imu.gyro[0] = static_cast<float>(0.1 * std::cos(phi) + ring);
        c.imu.gyro[1] = static_cast<float>(0.15 * std::sin(phi) + 0.03 * std::sin(9.0 * t));
        c.imu.gyro[2] = static_cast<float>(0.03 * std::sin(13.0 * t + 1.0));
        c.out.global_acc[0] = static_cast<float>(0.1 * std::sin(phi + 1.0));
        c.out.global_acc[2] = static_cast<float>(vertical - 1.0);
    }
    return cycles;
}

// What the activity detectors read of the shared signals.
struct Signals {
    float level, rate, rate_h, acc, gyro, dt;
    float rate_xyz[3], global[3], gravity_abs[3];
};

std::vector<Signals> record_signals() {
    std::vector<Cycle> cycles = make_cycles();
    std::vector<Signals> out;
    out.reserve(cycles.size());
    for (Cycle& c : cycles) {
        sfc_update_gesture(&c.imu, &c.out, 5000);
        Signals s{gyro_static_level_g,
                  w_filtered_mag,
                  w_filtered_mag_h,
                  comp_acc,
                  comp_gyro,
                  dt_g,
                  {},
                  {},
                  {}};
        for (int k = 0; k < 3; ++k) {
            s.rate_xyz[k] = w_filtered[k];
            s.global[k] = global_acc[k];
            s.gravity_abs[k] = gravity_g_abs[k];
        }
        out.push_back(s);
    }
    return out;
}

void restore(const Signals& s) {
    gyro_static_level_g = s.level;
    w_filtered_mag = s.rate;
    w_filtered_mag_h = s.rate_h;
    comp_acc = s.acc;
    comp_gyro = s.gyro;
    dt_g = s.dt;
    for (int k = 0; k < 3; ++k) {
        w_filtered[k] = s.rate_xyz[k];
        global_acc[k] = s.global[k];
        gravity_g_abs[k] = s.gravity_abs[k];
    }
}

void check_no_allocation(benchmark::State& state, const imu::test::NoAllocScope& scope) {
    const auto allocations = scope.allocations();  // before the counter map allocates
    state.counters["allocs"] = static_cast<double>(allocations);
    if (allocations != 0) {
        state.SkipWithError("the detector loop allocated");
    }
}

using DetectorFn = int (*)(float*);

// One detector per cycle on recorded signals.
void run_detector(benchmark::State& state, DetectorFn detector) {
    const std::vector<Signals> signals = record_signals();
    float slot[3];
    std::size_t i = 0;
    imu::test::NoAllocScope allocations;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        restore(signals[i]);
        i = (i + 1) % signals.size();
        benchmark::DoNotOptimize(detector(slot));
        benchmark::ClobberMemory();
    }
    check_no_allocation(state, allocations);
}

// The cost of restoring the signals alone, to subtract from the above.
void BM_RestoreSignalsOnly(benchmark::State& state) {
    run_detector(state, [](float*) { return 0; });
}

void BM_Tap(benchmark::State& state) { run_detector(state, sfc_get_tap); }
void BM_TapDesk(benchmark::State& state) { run_detector(state, sfc_get_tap_desk); }
void BM_TapPocket(benchmark::State& state) { run_detector(state, sfc_get_tap_pocket); }
void BM_Pedometer(benchmark::State& state) { run_detector(state, sfc_get_pedometer); }
void BM_MotionDetection(benchmark::State& state) { run_detector(state, sfc_get_motion_detection); }

void BM_TiltDetector(benchmark::State& state) {
    float angles[2] = {0.0F, 0.0F};
    int i = 0;
    imu::test::NoAllocScope allocations;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        angles[1] = static_cast<float>((i++ % 40) - 20);  // tilts and level calls
        imu_motion_detect(angles);
        benchmark::DoNotOptimize(imu_motion_is_detected(0));
    }
    check_no_allocation(state, allocations);
}

// A whole cycle: the pipeline and all six activity detectors.
void BM_ActivityCycle(benchmark::State& state) {
    std::vector<Cycle> cycles = make_cycles();
    float slot[3];
    float angles[2] = {0.0F, 15.0F};
    std::size_t i = 0;
    imu::test::NoAllocScope allocations;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
        Cycle& c = cycles[i];
        i = (i + 1) % cycles.size();
        sfc_update_gesture(&c.imu, &c.out, 5000);
        sfc_get_tap(slot);
        sfc_get_tap_desk(slot);
        sfc_get_tap_pocket(slot);
        sfc_get_pedometer(slot);
        sfc_get_motion_detection(slot);
        imu_motion_detect(angles);
        benchmark::DoNotOptimize(slot);
        benchmark::ClobberMemory();
    }
    check_no_allocation(state, allocations);
}

}  // namespace

BENCHMARK(BM_RestoreSignalsOnly);
BENCHMARK(BM_Tap);
BENCHMARK(BM_TapDesk);
BENCHMARK(BM_TapPocket);
BENCHMARK(BM_Pedometer);
BENCHMARK(BM_MotionDetection);
BENCHMARK(BM_TiltDetector);
BENCHMARK(BM_ActivityCycle);
