#include "engine/posture_filter.h"

#include <cmath>
#include <cstring>

#include "engine/matrix.h"

namespace imu {
namespace {

constexpr float kIdentity4[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// The trigonometric functions run in double on float arguments.
float sin_f(float x) { return static_cast<float>(std::sin(static_cast<double>(x))); }
float cos_f(float x) { return static_cast<float>(std::cos(static_cast<double>(x))); }
float asin_f(float x) { return static_cast<float>(std::asin(static_cast<double>(x))); }
float atan2_f(float y, float x) {
    return static_cast<float>(std::atan2(static_cast<double>(y), static_cast<double>(x)));
}
float degrees(float rad) { return static_cast<float>(static_cast<double>(rad) * kDegPerRad); }

// q0^2 - q1^2 - q2^2 + q3^2: the (2, 2) element of R(q).
float r22(const float* q) { return q[0] * q[0] - q[1] * q[1] - q[2] * q[2] + q[3] * q[3]; }

// 2 (q1 q3 - q0 q2), limited to [-1, 1].
float limited_g0(const float* q) {
    float g0 = 2.0F * (q[1] * q[3] - q[0] * q[2]);
    if (std::fabs(g0) > 1.0F) {
        g0 = g0 / std::fabs(g0);
    }
    return g0;
}

// Tilt-compensated magnetic yaw for roll phi and pitch theta:
//   mx = m0 cos(th) + m1 sin(th) sin(ph) + m2 sin(th) cos(ph)
//   my = m2 sin(ph) - m1 cos(ph),   yaw = atan2(mx, my)
float magnetic_yaw(const float* m, float theta, float phi) {
    const float ct = cos_f(theta);
    const float st = sin_f(theta);
    const float sp = sin_f(phi);
    const float cp = cos_f(phi);
    const float mx = m[0] * ct + m[1] * st * sp + m[2] * st * cp;
    const float my = m[2] * sp - m[1] * cp;
    return atan2_f(mx, my);
}

// P <- (I - K H) P for K (4 x k) and H (k x 4).
void shrink_covariance(const float* k, const float* h, int rows, float* p) {
    float kh[16];
    array_multiply(k, h, kh, 4, rows, rows, 4);
    float ikh[16];
    for (int i = 0; i < 16; ++i) {
        ikh[i] = kIdentity4[i] - kh[i];
    }
    float np[16];
    array_multiply(ikh, p, np, 4, 4, 4, 4);
    std::memcpy(p, np, sizeof np);
}

bool field_is_zero(const float* m) {
    return std::fabs(m[0]) < kFieldMissing && std::fabs(m[1]) < kFieldMissing &&
           std::fabs(m[2]) < kFieldMissing;
}

}  // namespace

// Euler angles from the down direction and the field, then the quaternion
// of yaw psi, pitch theta0, roll phi0 (z-y-x order, half angles).
void PostureFilter::initialise(float a[3], const float m[3]) noexcept {
    reinit_pending = 0;
    vector_normalize(a, 3);
    const float theta0 = asin_f(-a[0]);
    const double cos_theta0 = static_cast<double>(cos_f(theta0));
    float phi0 = static_cast<float>(std::asin(static_cast<double>(a[1]) / cos_theta0));
    if (a[2] < 0.0F) {  // upside down: roll beyond +-90 deg
        phi0 = phi0 < 0.0F ? -kPi - phi0 : kPi - phi0;
    }
    const float psi = -magnetic_yaw(m, theta0, phi0);

    const float c1 = cos_f(phi0 / 2.0F);
    const float s1 = sin_f(phi0 / 2.0F);
    const float c2 = cos_f(theta0 / 2.0F);
    const float s2 = sin_f(theta0 / 2.0F);
    const float c3 = cos_f(psi / 2.0F);
    const float s3 = sin_f(psi / 2.0F);
    state_quat[0] = c1 * c2 * c3 + s1 * s2 * s3;
    state_quat[1] = s1 * c2 * c3 - c1 * s2 * s3;
    state_quat[2] = c1 * s2 * c3 + s1 * c2 * s3;
    state_quat[3] = c1 * c2 * s3 - s1 * s2 * c3;
    vector_normalize(state_quat, 4);
}

// Second-order transition from this rate matrix W and the previous one W':
//   Phi = I + (W + dt W W' + W') h,   h = dt / 2
// Process noise through G(q) h with Qw = diag(0.0225 w^2 + 2e-05).
void PostureFilter::predict(const float w[3], float dt, float qp[4], float p[16]) noexcept {
    const float h = dt * 0.5F;
    const float x = w[0] * 0.5F;
    const float y = w[1] * 0.5F;
    const float z = w[2] * 0.5F;
    const float omega[16] = {0, -x, -y, -z, x, 0, z, -y, y, -z, 0, x, z, y, -x, 0};
    float t[16];
    array_multiply(omega, prev_omega, t, 4, 4, 4, 4);
    float phi[16];
    for (int i = 0; i < 16; ++i) {
        phi[i] = ((omega[i] + dt * t[i]) + prev_omega[i]) * h + kIdentity4[i];
    }
    array_multiply(phi, state_quat, qp, 4, 4, 4, 1);
    vector_normalize(qp, 4);
    std::memcpy(prev_omega, omega, sizeof omega);

    const float* q = state_quat;  // the stored state, before this update
    const float g[12] = {-q[1] * h, -q[2] * h, -q[3] * h, q[0] * h,  -q[3] * h, q[2] * h,
                         q[3] * h,  q[0] * h,  -q[1] * h, -q[2] * h, q[1] * h,  q[0] * h};
    auto noise = [w](int i) { return kRateNoiseFactor * (w[i] * w[i]) + kRateNoiseFloor; };
    const float qw[9] = {noise(0), 0, 0, 0, noise(1), 0, 0, 0, noise(2)};
    float pp[16];
    float gq[16];
    ABAT(phi, covariance, pp, 4, 4, 4, 4);
    ABAT(g, qw, gq, 4, 3, 3, 3);
    for (int i = 0; i < 16; ++i) {
        p[i] = pp[i] + gq[i];
    }
}

// Measurement: the down direction a against h(q), the last row of R(q).
//   S = H P H^T + 1e-4 I,  K = P H^T S^-1,  q += K (a - h),  P = (I - K H) P
void correct_accelerometer(float q[4], float p[16], float a[3]) noexcept {
    vector_normalize(a, 3);
    // x axis near vertical: y carries little information, attenuate it.
    if (std::fabs(static_cast<double>(a[1])) < kSmallTilt &&
        std::fabs(static_cast<double>(a[2])) < kSmallTilt) {
        a[1] = a[1] * (std::fabs(a[2]) * std::fabs(a[2]));
    }
    const float hq[3] = {2.0F * (q[1] * q[3] - q[0] * q[2]), 2.0F * (q[0] * q[1] + q[2] * q[3]),
                         r22(q)};
    const float q0 = 2.0F * q[0];
    const float q1 = 2.0F * q[1];
    const float q2 = 2.0F * q[2];
    const float q3 = 2.0F * q[3];
    const float jac[12] = {-q2, q3, -q0, q1, q1, q0, q3, q2, q0, -q1, -q2, q3};

    float s[9];
    ABAT(jac, p, s, 3, 4, 4, 4);
    s[0] += kAccNoise;
    s[4] += kAccNoise;
    s[8] += kAccNoise;
    float s_inv[9];
    if (Array3x3_Inverse(s, s_inv) != 0) {
        vector_normalize(q, 4);  // singular: no correction this update
        return;
    }
    const float innovation[3] = {a[0] - hq[0], a[1] - hq[1], a[2] - hq[2]};
    float jac_t[12];
    AT(jac, jac_t, 3, 4);
    float pht[12];
    array_multiply(p, jac_t, pht, 4, 4, 4, 3);
    float gain[12];
    array_multiply(pht, s_inv, gain, 4, 3, 3, 3);
    float step[4];
    array_multiply(gain, innovation, step, 4, 3, 3, 1);
    for (int i = 0; i < 4; ++i) {
        q[i] = q[i] + step[i];
    }
    shrink_covariance(gain, jac, 3, p);
    vector_normalize(q, 4);
}

// Measurement: yaw psi_m of the tilt-compensated field against the yaw of q,
//   psi = atan2(n, d),  n = 2 (q0 q3 + q1 q2),  d = q0^2 + q1^2 - q2^2 - q3^2
//   dpsi/dq = 2 / (n^2 + d^2) (d q3 - n q0, d q2 - n q1, n q2 + d q1, n q3 + d q0)
void correct_heading(float q[4], float p[16], const float m_in[3]) noexcept {
    if (!(std::fabs(q[1] * q[3] - q[0] * q[2]) < kHeadingPitchLimit) || field_is_zero(m_in)) {
        return;  // yaw undefined near pitch +-90 deg; no field, no heading
    }
    const float phi = atan2_f(2.0F * (q[2] * q[3] + q[0] * q[1]), r22(q));
    const float theta = asin_f(-limited_g0(q));
    float m[3] = {m_in[0], m_in[1], m_in[2]};
    vector_normalize(m, 3);
    const float psi_m = magnetic_yaw(m, theta, phi);

    const float n = 2.0F * (q[0] * q[3] + q[1] * q[2]);
    const float d = q[0] * q[0] + q[1] * q[1] - q[2] * q[2] - q[3] * q[3];
    const float psi = atan2_f(n, d);
    const float f = 2.0F / (n * n + d * d);
    const float jac[4] = {f * (d * q[3] - n * q[0]), f * (d * q[2] - n * q[1]),
                          f * (n * q[2] + d * q[1]), f * (n * q[3] + d * q[0])};
    float s = 0.0F;
    ABAT(jac, p, &s, 1, 4, 4, 4);
    s = s + kHeadingNoise;

    float innovation = -psi_m - psi;  // wrapped into [-pi, pi]
    if (static_cast<double>(innovation) > kPiDouble) {
        innovation = innovation - kTwoPi;
    } else if (static_cast<double>(innovation) < -kPiDouble) {
        innovation = innovation + kTwoPi;
    }
    float gain[4];
    array_multiply(p, jac, gain, 4, 4, 4, 1);
    for (int i = 0; i < 4; ++i) {
        gain[i] = gain[i] / s;
        q[i] = q[i] + gain[i] * innovation;
    }
    shrink_covariance(gain, jac, 1, p);
}

bool PostureFilter::filter(float a[3], const float m[3], const float w[3], float dt,
                           bool force_nan) noexcept {
    float q[4];
    float p[16];
    predict(w, dt, q, p);
    correct_accelerometer(q, p, a);
    correct_heading(q, p, m);
    publish(q, p, a, force_nan);
    return !std::isnan(out.euler[1]);
}

// The output block from the normalised quaternion and the down direction a.
void PostureFilter::publish(const float q_in[4], const float p[16], const float a[3],
                            bool force_nan) noexcept {
    std::memcpy(state_quat, q_in, sizeof state_quat);
    std::memcpy(output_quat, q_in, sizeof output_quat);
    std::memcpy(covariance, p, sizeof covariance);
    vector_normalize(output_quat, 4);
    const float* q = output_quat;
    std::memcpy(out.quat, q, sizeof out.quat);

    const float g0 = limited_g0(q);
    const float g1 = 2.0F * (q[0] * q[1] + q[2] * q[3]);
    const float g2 = r22(q);
    const bool positive = q[0] > 0.0F;
    for (int i = 0; i < 3; ++i) {
        out.rotation_vector[i] = positive ? q[i + 1] : -q[i + 1];
    }
    const float gravity[3] = {g0, g1, g2};
    for (int i = 0; i < 3; ++i) {
        out.gravity[i] = gravity[i];
        out.linear_acc[i] = gravity[i] - a[i];
    }
    out.euler[2] = degrees(atan2_f(g1, g2));
    out.euler[1] = degrees(asin_f(-g0));
    out.euler[0] = degrees(atan2_f(2.0F * (q[1] * q[2] + q[0] * q[3]),
                                   q[0] * q[0] + q[1] * q[1] - q[2] * q[2] - q[3] * q[3]));

    float* r = out.rotation_matrix;
    r[0] = q[0] * q[0] + q[1] * q[1] - q[2] * q[2] - q[3] * q[3];
    r[1] = 2.0F * (q[1] * q[2] - q[0] * q[3]);
    r[2] = 2.0F * (q[1] * q[3] + q[0] * q[2]);
    r[3] = 2.0F * (q[1] * q[2] + q[0] * q[3]);
    r[4] = q[0] * q[0] - q[1] * q[1] + q[2] * q[2] - q[3] * q[3];
    r[5] = 2.0F * (q[2] * q[3] - q[0] * q[1]);
    r[6] = g0;
    r[7] = g1;
    r[8] = g2;
    array_multiply(r, a, out.global_acc, 3, 3, 3, 1);

    if (force_nan) {
        const auto nan = static_cast<float>(std::sqrt(-1.0));
        out.euler[0] = nan;
        out.euler[1] = nan;
        out.euler[2] = nan;
    }
}

void PostureFilter::re_initialize() noexcept {
    reinit_pending = 1;
    out = OutputBlock{};
    std::memset(output_quat, 0, sizeof output_quat);
    std::memset(state_quat, 0, sizeof state_quat);
    std::memset(covariance, 0, sizeof covariance);
}

}  // namespace imu
