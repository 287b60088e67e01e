// The long run: a still phone through the service API for two hours of
// recording time at 200 Hz (1,500,000 cycles) with every virtual sensor on,
// in mode 0 with absolute timestamps. It is a program of its own rather than
// a test: run it with --benchmark_filter=LongRun (about half a minute in an
// optimised build). Counters (docs/robustness.md keeps the figures):
//   allocs_per_cycle   heap allocations per cycle after the first 10 s (0)
//   rss_growth_kb      resident memory at the end minus after the first 10 s
//   drift_1h_deg       largest angle between the orientation and the one
//                      published after 10 s, over the first hour (< 1)
//   drift_2h_deg       ... over both hours
//   error_2h_deg       largest angle to the true orientation after 10 s
//   timer_max_s        largest detector timer seen (wrapped above 7200 s)
//   timers_past_7000   detector timers that grew past 7000 s (the timers no
//                      state machine resets on a still phone)
//   timers_wrapped     ... and came back below 1000 s

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>

#include "gestures/pedometer.h"
#include "gestures/taps.h"
#include "imu/engine.h"
#include "imu/host.h"
#include "imu/service.h"
#include "support/alloc_counter.h"
#include "sim/sim_recording.h"
#include "support/temp_root.h"

namespace {

constexpr long kRate = 200;
constexpr long kSettle = 10 * kRate;                // 10 s
constexpr long kHour = 3600 * kRate;                // 720,000 cycles
// 2 h 5 min: a timer adding 0.005 s steps in float gains only about
// 0.00488 s per step from 2048 s on, so it reaches 7200 s after about
// 7280 s of samples and wraps there.
constexpr long kCycles = 2 * kHour + 300 * kRate;
constexpr long long kPeriodNs = 1000000000LL / kRate;
constexpr int kSlots = 27;

void drop_log(int /*prio*/, const char* /*tag*/, const char* /*text*/, void* /*ctx*/) {}

long resident_kb() {
    long pages = 0;
    long resident = 0;
    std::FILE* f = std::fopen("/proc/self/statm", "r");
    if (f != nullptr) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(f);
    }
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

imu::sim::Quat published() {
    float q[4] = {};
    if (sfc_get_quaternion(q) != 0) {
        return {NAN, 0, 0, 0};
    }
    return {q[3], q[0], q[1], q[2]};
}

// The detector timers a still phone never resets.
std::array<float*, 9> timers() {
    imu::HandTap& h = imu::hand_tap();
    imu::DeskTap& d = imu::desk_tap();
    imu::PocketTap& p = imu::pocket_tap();
    imu::Pedometer& ped = imu::pedometer();
    return {&h.tap_timer,         &h.tap_still_timer,    &d.tap_desk_timer,
            &d.tap_desk_still_timer, &p.tap_pocket_timer, &p.tap_pocket_quiet_timer,
            &ped.ped_stage_timer, &ped.ped_interval_timer, &ped.ped_step_timer};
}

void LongRun(benchmark::State& state) {
    imu::test::TempRoot root;
    imu_host_set_log_sink(drop_log, nullptr);
    // A quiet phone lying flat, top edge 30 deg east of north, with a
    // gyroscope bias the still test must find.
    imu::sim::SensorModel model;
    const imu::sim::Quat truth = imu::sim::pose(30.0, 0.0, 0.0);
    const auto ideal = record(imu::sim::Trajectory(truth).hold(0.0), model).front();
    const float bias[3] = {0.01F, -0.02F, 0.005F};
    std::mt19937 rng(7);
    std::normal_distribution<float> acc_noise(0.0F, 0.05F);
    std::normal_distribution<float> gyro_noise(0.0F, 0.003F);
    std::normal_distribution<float> mag_noise(0.0F, 0.4F);

    set_fusiond_moed(0);
    for (int i = 0; i < kSlots; ++i) {
        control_fusiond(i, 1);
    }
    long long ts = 1000000000LL;
    float v[3];
    auto cycle = [&] {
        for (int k = 0; k < 3; ++k) {
            v[k] = ideal.acc[k] + acc_noise(rng);
        }
        input_raw_data(6, v, 0);
        for (int k = 0; k < 3; ++k) {
            v[k] = ideal.mag[k] + mag_noise(rng);
        }
        input_raw_data(7, v, 0);
        for (int k = 0; k < 3; ++k) {
            v[k] = ideal.gyro[k] + bias[k] + gyro_noise(rng);
        }
        ts += kPeriodNs;
        input_raw_data(0, v, ts);
    };

    for (auto _ : state) {
        for (long n = 0; n < kSettle; ++n) {
            cycle();
        }
        const imu::sim::Quat settled = published();
        const long rss_start = resident_kb();
        double drift_1h = 0.0;
        double drift_2h = 0.0;
        double error = 0.0;
        float timer_max = 0.0F;
        std::array<bool, 9> passed_7000{};
        float out[3];
        const imu::test::NoAllocScope allocs;
        for (long n = kSettle; n < kCycles; ++n) {
            cycle();
            for (int i = 0; i < kSlots; ++i) {
                get_fusiond_data(i, out);
            }
            if (n % 1000 == 0) {
                const imu::sim::Quat q = published();
                const double d = imu::sim::angle_between_deg(q, settled);
                drift_2h = std::isnan(d) ? 180.0 : std::max(drift_2h, d);
                drift_1h = n <= kHour ? drift_2h : drift_1h;
                error = std::max(error, imu::sim::angle_between_deg(q, truth));
            }
            const auto t = timers();
            for (std::size_t k = 0; k < t.size(); ++k) {
                timer_max = std::max(timer_max, *t[k]);
                passed_7000[k] = passed_7000[k] || *t[k] > 7000.0F;
            }
        }
        const double per_cycle =
            static_cast<double>(allocs.allocations()) / static_cast<double>(kCycles - kSettle);
        int wrapped = 0;
        int long_running = 0;
        const auto t = timers();
        for (std::size_t k = 0; k < t.size(); ++k) {
            long_running += passed_7000[k] ? 1 : 0;
            wrapped += passed_7000[k] && *t[k] < 1000.0F ? 1 : 0;
        }
        state.counters["allocs_per_cycle"] = per_cycle;
        state.counters["rss_growth_kb"] = static_cast<double>(resident_kb() - rss_start);
        state.counters["drift_1h_deg"] = drift_1h;
        state.counters["drift_2h_deg"] = drift_2h;
        state.counters["error_2h_deg"] = error;
        state.counters["timer_max_s"] = static_cast<double>(timer_max);
        state.counters["timers_past_7000"] = long_running;
        state.counters["timers_wrapped"] = wrapped;
    }
    for (int i = 0; i < kSlots; ++i) {
        control_fusiond(i, 0);
    }
    imu_host_set_log_sink(nullptr, nullptr);
}

BENCHMARK(LongRun)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
