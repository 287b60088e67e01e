#pragma once
// The posture filter: an extended Kalman filter whose state is one unit
// quaternion q (scalar first) that rotates filter-frame vectors into the
// reference frame (z down, x magnetic east), with a 4x4 error covariance P.
//
//   predict:  q <- normalize(Phi q),  P <- Phi P Phi^T + G Qw G^T
//   accel:    z = measured down direction (3),  h(q) = last row of R(q)
//   heading:  z = tilt-compensated magnetometer yaw (1),  h(q) = yaw of q
//
// All vectors handed to the filter are in the filter frame (device x, -y, -z).

#include <cstdint>
#include <type_traits>

namespace imu {

// What the getters read, in the filter or reference frame. Cleared as a
// whole by re_initialize().
struct OutputBlock {
    float euler[3];            // psi (yaw), theta (about y), phi (about x), degrees
    float quat[4];             // normalised q, scalar first
    float rotation_matrix[9];  // R(q), row-major; (2, 0) holds the limited g0
    float rotation_vector[3];  // (q1, q2, q3), sign making q0 positive
    float linear_acc[3];       // gravity - measured down direction, units of g
    float global_acc[3];       // R . measured down direction
    float gravity[3];          // last row of R(q), units of g
    float centre_yaw;          // stored by sfc_set_center_yaw_angle, read by nothing
};
static_assert(std::is_trivially_copyable_v<OutputBlock> && sizeof(OutputBlock) == sizeof(float[29]),
              "the output block is 29 floats");

// Tunables of the update (floats unless marked).
inline constexpr float kRateNoiseFactor = 0.0225F;  // Qw = 0.0225 w^2 + 2e-05 per axis
inline constexpr float kRateNoiseFloor = 2e-05F;
inline constexpr float kAccNoise = 0.0001F;           // on the diagonal of S
inline constexpr double kSmallTilt = 0.15;            // (double) near-vertical x axis
inline constexpr float kHeadingPitchLimit = 0.4999F;  // |q1q3 - q0q2| limit
inline constexpr float kHeadingNoise = 0.0003F;       // added to the heading variance
inline constexpr float kFieldMissing = 1e-6F;         // a component counted as zero
inline constexpr float kPi = 3.1415927F;
inline constexpr float kTwoPi = 6.2831855F;
inline constexpr double kPiDouble = 3.141592653589793;
inline constexpr double kDegPerRad = 57.29577951308232;

class PostureFilter {
public:
    // Sets the quaternion from one down direction a (units of g, normalised
    // here, in place) and field m (uT, not normalised); clears reinit_pending.
    // The covariance, the previous rate and the outputs keep their values.
    void initialise(float a[3], const float m[3]) noexcept;

    // One filtering update: prediction with rate w (rad/s) over dt seconds,
    // the accelerometer correction with a (in place: normalised and, near a
    // vertical x axis, with its y component attenuated), the heading
    // correction with m, then the outputs. force_nan poisons the Euler
    // angles (the test hook). Returns false when theta came out
    // not-a-number; the caller then re-initialises.
    bool filter(float a[3], const float m[3], const float w[3], float dt, bool force_nan) noexcept;

    // Back to "awaiting initialisation": state, covariance and outputs all
    // zero (the covariance too). prev_omega and output_valid are kept.
    void re_initialize() noexcept;

    std::int32_t reinit_pending = 1;
    float state_quat[4] = {};
    float covariance[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    float prev_omega[16] = {};
    float output_quat[4] = {};
    OutputBlock out = {};
    std::int32_t output_valid = 1;

    // Stores q and p as the new state and derives the output block from the
    // normalised q and the down direction a; force_nan poisons the angles.
    void publish(const float q[4], const float p[16], const float a[3], bool force_nan) noexcept;

private:
    void predict(const float w[3], float dt, float qp[4], float p[16]) noexcept;
};

// Accelerometer correction of (q, p) by the down direction a; a is
// normalised and attenuated in place. Skipped (q normalised only) when the
// innovation covariance is singular.
void correct_accelerometer(float q[4], float p[16], float a[3]) noexcept;

// Heading correction of (q, p) by the field m; skipped near pitch +-90 deg
// and for an all-zero field. q is not renormalised.
void correct_heading(float q[4], float p[16], const float m[3]) noexcept;

}  // namespace imu
