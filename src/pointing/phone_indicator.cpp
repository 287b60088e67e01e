// Phone pose: state 1 once the phone lies face down and still after a turn
// of more than 30 degrees about a chosen axis, state 2 once it has been
// moved into an upright, still pose. Samples arrive every 10 ms.

#include "pointing/phone_indicator.h"

#include <cmath>

#include "imu/pointing.h"

namespace imu {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
PhonePoseState g_pose;

constexpr std::int32_t kFillCalls = 20;       // calls that only fill the rings
constexpr std::int32_t kReferenceCalls = 30;  // My0 follows My until then
constexpr std::int32_t kFlickCalls = 60;
constexpr std::int32_t kMaxCalls = 2000;
constexpr float kDegPerSample = 0.5729F;  // rad/s over one 10 ms sample, in degrees
constexpr double kRateFloor = 0.05;
constexpr float kFastRate = 5.0F;
constexpr float kTurned = 30.0F;    // degrees
constexpr float kUpright = 6.429F;  // m/s^2 on y

bool finite3(const float* v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

bool flick(float r, float daz) {
    const float m = std::fabs(r);
    return m > kFastRate && static_cast<double>(daz) < static_cast<double>(m) / 3.0;
}

void push_long(PhonePoseState& s, const float* v) {
    for (int k = 0; k < 3; ++k) {
        s.long_acc[k][s.long_index] = v[k];
    }
    s.long_index = (s.long_index + 1) % kPoseLongRing;
}

// Steps 1 and 2: the rings, their means and the reference My0.
void fill_rings(PhonePoseState& s, const float* g, const float* a) {
    const std::int32_t n = s.n;
    const int i = s.i;
    const float daz = std::fabs(a[2] - s.previous_az);
    const bool early = n < kFillCalls;
    const bool dropped = !early && ((n < kFlickCalls && flick(g[0], daz)) || flick(g[1], daz));
    for (int k = 0; k < 3; ++k) {
        s.acc[k][i] = a[k];
        s.rate[k][i] = early || dropped ? 0.0F : g[k];
    }
    if (early) {
        push_long(s, a);
    }
    float m8[3];
    for (int k = 0; k < 3; ++k) {
        float sum = 0.0F;
        for (float v : s.acc[k]) {
            sum += v;
        }
        m8[k] = sum * 0.125F;
    }
    if (n > kFillCalls && (i == 0 || i == 4)) {
        push_long(s, m8);
    }
    for (int k = 0; k < 3; ++k) {
        float sum = 0.0F;
        for (float v : s.long_acc[k]) {
            sum += v;
        }
        s.mean[k] = sum / static_cast<float>(kPoseLongRing);
    }
    s.previous_az = a[2];
    if (n < kReferenceCalls) {
        s.my_ref = s.mean[1];
    }
}

// Step 3: turn sums and the moved and rotated flags.
void sum_turns(PhonePoseState& s) {
    const float rx = s.rate[0][s.i];
    const float ry = s.rate[1][s.i];
    const float rz = s.rate[2][s.i];
    const float mx = std::fabs(rx);
    const float my = std::fabs(ry);
    const float mz = std::fabs(rz);
    if (static_cast<double>(mx) > kRateFloor && my < mx) {
        s.angle_deg[0] += rx * kDegPerSample;
    }
    if (static_cast<double>(my) > kRateFloor) {
        s.angle_deg[1] += ry * kDegPerSample;
    }
    if (static_cast<double>(mz) > kRateFloor && my < mz) {
        s.angle_deg[2] += rz * kDegPerSample;
    }
    const float d = std::fabs(s.mean[1] - s.my_ref);
    const float ref = s.my_ref;
    if (std::fabs(s.angle_deg[0]) > 50.0F || std::fabs(s.angle_deg[2]) > 50.0F || d > 4.0F) {
        if ((d > 3.0F || mx > 7.0F || mz > 7.0F) && ref > kUpright) {
            s.moved = 1;
        }
        if ((d > 2.0F || mx > 5.0F || mz > 5.0F) && ref >= 2.0F && ref <= kUpright) {
            s.moved = 1;
        }
        if (d > 2.0F && ref < 2.0F) {
            s.moved = 1;
        }
    }
    if (std::fabs(s.angle_deg[0]) > kTurned || std::fabs(s.angle_deg[1]) > kTurned ||
        std::fabs(s.angle_deg[2]) > kTurned) {
        s.rotated = 1;
    }
}

// Step 5: the axis of the turn and the pose tests.
void judge(PhonePoseState& s, const float* g, const float* a) {
    const float g0 = std::fabs(g[0]);
    const float g1 = std::fabs(g[1]);
    const float g2 = std::fabs(g[2]);
    const bool my_jump = std::fabs(s.mean[1] - s.my_ref) > 4.0F;
    if ((g1 < g0 && g0 > 1.0F) || my_jump) {
        s.axis = 1;
    }
    if ((g0 < g1 && g1 > 1.0F) || my_jump) {
        s.axis = 2;
    }
    if (s.axis != 1 && s.axis != 2) {
        return;
    }
    const bool still = g0 <= 1.0F && g1 <= 1.0F;
    const bool face_down =
        a[0] > -2.5F && a[0] < 2.5F && a[1] > -2.5F && a[1] < 2.5F && a[2] > -11.5F && a[2] < -7.5F;
    const bool steady =
        std::fabs(static_cast<double>(a[2]) - static_cast<double>(s.checked_az)) < 0.3;
    if ((s.axis != 1 || s.state == 2 || a[1] < 4.0F) && still && face_down && steady &&
        s.rotated == 1) {
        s.state = 1;
    }
    s.checked_az = a[2];
    const float mz = s.mean[2];
    const float my = s.mean[1];
    if (s.moved == 1 && still && g2 <= 1.0F && mz > -6.929F && mz < kUpright && my > kUpright &&
        my < 11.0F && a[2] > -6.929F && a[2] < kUpright && a[1] > kUpright && a[1] < 11.0F) {
        s.state = 2;
    }
}

}  // namespace

int phone_pose_update(PhonePoseState& s, const float* rate_rps, const float* acc_mps2,
                      int enable) noexcept {
    if (rate_rps == nullptr || acc_mps2 == nullptr) {
        return 0;
    }
    if (!finite3(rate_rps) || !finite3(acc_mps2)) {
        return s.state;  // a bad sample changes nothing
    }
    fill_rings(s, rate_rps, acc_mps2);
    if (s.n > kFillCalls) {
        sum_turns(s);
    }
    if (enable == 0) {
        s.angle_deg[0] = s.angle_deg[1] = s.angle_deg[2] = 0.0F;
        s.my_ref = 0.0F;
        s.rotated = 0;
        s.moved = 0;
        s.n = 0;
        if (s.axis != 0) {
            s.axis = 0;
            s.state = 0;
        }
    }
    bool counting = true;
    if (s.n > kFillCalls - 1) {
        judge(s, rate_rps, acc_mps2);
        counting = s.n < kMaxCalls;
    }
    if (counting) {
        ++s.n;
    }
    s.i = (s.i + 1) % kPoseRing;
    return s.state;
}

}  // namespace imu

extern "C" IMU_EXPORT int phoneIndicator(const float* rate, const float* acceleration, int enable) {
    return imu::phone_pose_update(imu::g_pose, rate, acceleration, enable);
}
