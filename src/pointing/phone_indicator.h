#pragma once
// The phone pose indicator behind phoneIndicator (include/imu/pointing.h).

#include <cstdint>

namespace imu {

inline constexpr int kPoseRing = 8;
inline constexpr int kPoseLongRing = 20;

struct PhonePoseState {
    std::int32_t n = 0;  // calls, stops at 2000
    std::int32_t i = 0;  // ring slot, 0 to 7
    float acc[3][kPoseRing] = {{}, {}, {9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F}};
    float rate[3][kPoseRing] = {};  // accepted rates, rad/s
    float long_acc[3][kPoseLongRing] = {
        {}, {}, {9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F,
                 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F}};
    std::int32_t long_index = 0;
    float mean[3] = {};   // 20-slot means Mx, My, Mz
    float my_ref = 0.0F;  // My0, taken during the first 30 calls
    float previous_az = 0.0F;
    float checked_az = 0.0F;  // az of the previous face-down check
    float angle_deg[3] = {};  // turn sums X, Y, Z
    std::int32_t moved = 0;
    std::int32_t rotated = 0;
    std::int32_t axis = 0;   // 0 none, 1 or 2
    std::int32_t state = 0;  // 0, 1 face down after a turn, 2 upright
};

// One call; returns the state.
int phone_pose_update(PhonePoseState& s, const float* rate_rps, const float* acc_mps2,
                      int enable) noexcept;

}  // namespace imu
