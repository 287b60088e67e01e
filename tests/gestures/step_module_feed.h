#pragma once
// Fresh states of the two step-counting modules and the synthetic walk fed
// to them.

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "imu/step_modules.h"
#include "sim/step_module_walk.h"

namespace imu::test {

using Velmo = std::array<std::int32_t, 10>;
using Oem = std::array<std::int32_t, 6>;
using OemOut = std::array<std::int32_t, 3>;

// Reset over memory filled with garbage.
inline pedometer_sam_state velmo_fresh() {
    pedometer_sam_state s;
    std::memset(&s, 0x5A, sizeof s);
    velmo_pedometer_sam_state_reset(nullptr, &s);
    return s;
}

inline oem_1_sam_state oem_fresh(std::int32_t warm_up = 0) {
    oem_1_sam_state s;
    std::memset(&s, 0x5A, sizeof s);
    oem_1_sam_state_reset(nullptr, &s);
    s.warm_up = warm_up;
    return s;
}

// Returns the last count; `most` receives the largest rise in one update.
inline std::int32_t velmo_feed(void* state, const std::vector<StepWalkSample>& walk,
                               std::int32_t* most = nullptr) {
    std::int32_t out = 0;
    for (const StepWalkSample& sample : walk) {
        const std::int32_t before = out;
        velmo_pedometer_sam_update(state, velmo_record(sample).data(), &out);
        if (most != nullptr) {
            *most = std::max(*most, out - before);
        }
    }
    return out;
}

inline OemOut oem_feed(void* state, const std::vector<StepWalkSample>& walk) {
    OemOut out{};
    for (const StepWalkSample& sample : walk) {
        oem_1_sam_update(state, oem_record(sample).data(), out.data());
    }
    return out;
}

// Ten steps at 0.5 s, `pause_s` still, ten more.
inline std::vector<StepWalkSample> walk_pause_walk(double pause_s) {
    StepWalkPlan first;
    first.steps = 10;
    first.tail_s = pause_s;
    StepWalkPlan second = first;
    second.lead_in_s = 0.0;
    second.tail_s = 1.0;
    std::vector<StepWalkSample> walk = make_step_walk(first);
    const std::vector<StepWalkSample> more = make_step_walk(second);
    walk.insert(walk.end(), more.begin(), more.end());
    return walk;
}

}  // namespace imu::test
