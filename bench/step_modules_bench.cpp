// Cost of one update of each step-counting module on a walk in the hand,
// and a check that the update allocates nothing.

#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include "imu/step_modules.h"
#include "support/alloc_counter.h"
#include "sim/step_module_walk.h"

namespace {

template <std::size_t N, typename Convert>
std::vector<std::array<std::int32_t, N>> records(Convert convert) {
    imu::test::StepWalkPlan plan;
    plan.lead_in_s = 0.6;  // past the second module's warm-up
    plan.tail_s = 0.0;
    std::vector<std::array<std::int32_t, N>> out;
    for (const imu::test::StepWalkSample& s : imu::test::make_step_walk(plan)) {
        out.push_back(convert(s));
    }
    return out;
}

// Runs the update over the whole walk once, outside the timed loop (the
// benchmark's own bookkeeping allocates), and reports its allocations.
template <typename Walk, typename Update>
void count_allocations(benchmark::State& state, const Walk& walk, Update update) {
    const imu::test::NoAllocScope scope;
    for (const auto& record : walk) {
        update(record);
    }
    const std::uint64_t allocations = scope.allocations();
    state.counters["allocs"] = static_cast<double>(allocations);
    if (allocations != 0) {
        state.SkipWithError("the update allocated");
    }
}

void BM_VelmoPedometerSamUpdate(benchmark::State& state) {
    const auto walk = records<10>([](const auto& s) { return imu::test::velmo_record(s); });
    pedometer_sam_state memory;
    velmo_pedometer_sam_state_reset(nullptr, &memory);
    std::int32_t out = 0;
    count_allocations(state, walk, [&](const auto& record) {
        velmo_pedometer_sam_update(&memory, record.data(), &out);
    });
    std::size_t k = 0;
    for (auto _ : state) {
        velmo_pedometer_sam_update(&memory, walk[k].data(), &out);
        benchmark::DoNotOptimize(out);
        k = k + 1 == walk.size() ? 0 : k + 1;
    }
}
BENCHMARK(BM_VelmoPedometerSamUpdate);

void BM_Oem1SamUpdate(benchmark::State& state) {
    const auto walk = records<6>([](const auto& s) { return imu::test::oem_record(s); });
    oem_1_sam_state memory;
    oem_1_sam_state_reset(nullptr, &memory);
    std::array<std::int32_t, 3> out{};
    for (int i = 0; i < 100; ++i) {  // the warm-up
        oem_1_sam_update(&memory, walk[0].data(), out.data());
    }
    count_allocations(state, walk, [&](const auto& record) {
        oem_1_sam_update(&memory, record.data(), out.data());
    });
    std::size_t k = 0;
    for (auto _ : state) {
        oem_1_sam_update(&memory, walk[k].data(), out.data());
        benchmark::DoNotOptimize(out);
        k = k + 1 == walk.size() ? 0 : k + 1;
    }
}
BENCHMARK(BM_Oem1SamUpdate);

}  // namespace
