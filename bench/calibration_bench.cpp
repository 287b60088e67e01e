// The calibration fit: calculate_bias on a 240-sample run, as it runs once
// at the end of each calibration run inside one fusion cycle. It reloads
// the raw sample file each time, so every iteration fits the same numbers.
// Report with --benchmark_repetitions=5 --benchmark_report_aggregates_only;
// on a shared machine the CPU column is the fit's own time.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "calibration/fitting.h"
#include "sim/calib_samples.h"
#include "support/temp_root.h"

namespace {

using imu::test::CalibRun;
using imu::test::CalibRunSetup;

// Sends standard output to /dev/null while it lives (the fit prints its
// verdict on each run).
class QuietStdout {
public:
    QuietStdout() {
        std::fflush(stdout);
        saved_ = ::dup(STDOUT_FILENO);
        const int null = ::open("/dev/null", O_WRONLY);
        if (null >= 0) {
            ::dup2(null, STDOUT_FILENO);
            ::close(null);
        }
    }
    ~QuietStdout() {
        std::fflush(stdout);
        if (saved_ >= 0) {
            ::dup2(saved_, STDOUT_FILENO);
            ::close(saved_);
        }
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    int saved_;
};

void fit_file(benchmark::State& state, const std::string& raw) {
    imu::test::TempRoot root;
    root.write("/data/system/acc_mag_raw.txt", raw);
    int result = 0;
    const QuietStdout quiet;
    for (auto _ : state) {
        result = imu::calculate_bias();
        benchmark::DoNotOptimize(result);
    }
    state.counters["result"] = result;
}

// A phone with ordinary offsets and axis scales, turned the way the
// collector accepts samples, with sensor noise.
void BM_CalculateBiasRealistic(benchmark::State& state) {
    fit_file(state, imu::test::raw_file_text(imu::test::make_calib_run()));
}
BENCHMARK(BM_CalculateBiasRealistic)->Unit(benchmark::kMillisecond)->Iterations(3);

// Strong errors: larger offsets and scales, more noise.
void BM_CalculateBiasStrongErrors(benchmark::State& state) {
    CalibRunSetup setup;
    setup.acc = {{-0.6F, 0.45F, -0.8F}, {0.93F, 1.08F, 0.96F}};
    setup.mag = {{-60.0F, 80.0F, 35.0F}, {0.85F, 1.15F, 1.05F}};
    setup.acc_noise = 0.1;
    setup.mag_noise = 1.0;
    fit_file(state, imu::test::raw_file_text(imu::test::make_calib_run(setup)));
}
BENCHMARK(BM_CalculateBiasStrongErrors)->Unit(benchmark::kMillisecond)->Iterations(3);

// Samples scattered radially by 0.3 to 1.7: no ellipsoid fits them, both
// fits are rejected after the full 30 sweeps.
void BM_CalculateBiasScattered(benchmark::State& state) {
    CalibRun run = imu::test::make_calib_run();
    for (std::size_t i = 0; i < run.steps.size(); ++i) {
        const float f = 0.3F + 1.4F * static_cast<float>(i * 37 % 100) / 100.0F;
        for (int k = 0; k < 3; ++k) {
            run.steps[i].imu.acc_raw[k] *= f;
            run.steps[i].imu.mag_raw[k] *= f;
        }
    }
    fit_file(state, imu::test::raw_file_text(run));
}
BENCHMARK(BM_CalculateBiasScattered)->Unit(benchmark::kMillisecond)->Iterations(3);

// Wide numbers: accelerometer numbers near the top of the 32-bit range once
// multiplied by 1000 (a run times 10^5) and magnetometer numbers spread
// over a cube of +-10^6. Both fits use about 5700 of their 6300 pass
// iterations; this was the slowest input of the one-point-at-a-time
// bisection.
void BM_CalculateBiasWorstFound(benchmark::State& state) {
    CalibRun run = imu::test::make_calib_run();
    unsigned seed = 1;
    for (auto& step : run.steps) {
        for (int k = 0; k < 3; ++k) {
            seed = seed * 1664525U + 1013904223U;
            step.imu.acc_raw[k] *= 1e5F;
            step.imu.mag_raw[k] = 1e6F * (static_cast<float>(seed >> 8) / 8388608.0F - 1.0F);
        }
    }
    fit_file(state, imu::test::raw_file_text(run));
}
BENCHMARK(BM_CalculateBiasWorstFound)->Unit(benchmark::kMillisecond)->Iterations(3);

// Samples that hardly move along z: the slowest input found. The fit
// drives the x semi-axis past the numbers the vector lanes take (2^14
// units of the scale divisor), so many bisections run one at a time.
void BM_CalculateBiasFlatZ(benchmark::State& state) {
    CalibRun run = imu::test::make_calib_run();
    unsigned seed = 7;
    for (auto& step : run.steps) {
        seed = seed * 1664525U + 1013904223U;
        const float jitter = static_cast<float>(seed >> 8) / 8388608.0F - 1.0F;
        step.imu.acc_raw[2] = 0.5F + 0.02F * jitter;
        step.imu.mag_raw[2] = 40.0F + 0.2F * jitter;
    }
    fit_file(state, imu::test::raw_file_text(run));
}
BENCHMARK(BM_CalculateBiasFlatZ)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
