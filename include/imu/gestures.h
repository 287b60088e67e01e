#ifndef IMU_GESTURES_H
#define IMU_GESTURES_H

/* Gesture recognition: the shared gesture signals and the detectors.
 *
 * Once per fusion cycle the caller runs sfc_update_gesture() with the
 * current sample, the current fusion output and the cycle time; it rewrites
 * the shared signals below. Then it calls each detector it wants. Every
 * detector takes a pointer to the three floats of its virtual sensor slot:
 * a null pointer returns -22 (-EINVAL) and changes nothing; otherwise the
 * three values are cleared, the third becomes 1.0 in the cycle that
 * recognises the gesture, and the result is 0 (exceptions are stated).
 *
 * Detector timers grow by dt_g on every call and are set back to 0 at the
 * end of a call once they pass 7200 s. State lives for the whole process;
 * there is no reset. Nothing here locks: run the cycle on one thread. */

#include <stdint.h>

#include "imu/engine.h"
#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* Length of every signal history: oldest at index 0, newest at index 56. */
#define IMU_GESTURE_HISTORY 57

/* ---- shared signals, written only by sfc_update_gesture ---- */

/* The exported signals are the detectors' shared input by design. */
/* NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables) */
IMU_EXPORT extern IMU imu_g;                         /* copy of the current sample */
IMU_EXPORT extern float gravity_g[3];                /* gravity of the fusion output, m/s^2 */
IMU_EXPORT extern float gravity_g_abs[3];            /* |gravity_g| per axis */
IMU_EXPORT extern float global_acc[3];               /* global_acc of the output (g), z + 1.0 */
IMU_EXPORT extern float comp_acc;                    /* |acc|, m/s^2 */
IMU_EXPORT extern float comp_gyro;                   /* |gyro|, rad/s */
IMU_EXPORT extern float gyro_g_abs[3];               /* |gyro| per axis, rad/s */
IMU_EXPORT extern float dt_g;                        /* cycle time, s */
IMU_EXPORT extern float ax_raw[IMU_GESTURE_HISTORY]; /* acc x history, m/s^2 */
IMU_EXPORT extern float ay_raw[IMU_GESTURE_HISTORY];
IMU_EXPORT extern float az_raw[IMU_GESTURE_HISTORY];
IMU_EXPORT extern float wx_raw[IMU_GESTURE_HISTORY]; /* gyro x history, rad/s */
IMU_EXPORT extern float wy_raw[IMU_GESTURE_HISTORY];
IMU_EXPORT extern float wz_raw[IMU_GESTURE_HISTORY];
IMU_EXPORT extern float a_raw[IMU_GESTURE_HISTORY]; /* comp_acc - 9.8066 history */
IMU_EXPORT extern float w_raw[IMU_GESTURE_HISTORY]; /* comp_gyro history */
IMU_EXPORT extern float w_filtered[3];              /* gyro histories through kernel A */
IMU_EXPORT extern float w_filtered_h[3];            /* gyro histories through kernel B */
IMU_EXPORT extern float a_filtered;                 /* a_raw through kernel A */
IMU_EXPORT extern float a_filtered_h;               /* a_raw through kernel B */
IMU_EXPORT extern float w_filtered_mag;             /* |w_filtered| */
IMU_EXPORT extern float w_filtered_mag_h;           /* |w_filtered_h| */
IMU_EXPORT extern float gyro_static_level_g;        /* slow motion level; about 15198 at 1 rad/s */
IMU_EXPORT extern float acc_static_level_g;         /* always 0 */
/* NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables) */

/* Rewrites the shared signals from one sample, its fusion output and the
 * cycle time in microseconds (dt_g = dt_us / 1e6). A null record leaves
 * every signal as it was. */
IMU_EXPORT void sfc_update_gesture(IMU* imu, SFC_OUT* out, int dt_us);

/* ---- orientation gestures; gz is gravity_g[2] ---- */

/* Proximity 0, then above 0, then within 1 s a rate pulse that ends with
 * |gz| > 8.5. out[1] = 1.0 while |gz| > 9.0 (lying flat). */
IMU_EXPORT int sfc_get_put_down(float* out);

/* Proximity above 0, then a rate pulse while proximity is 0 and |gz| < 4.0.
 * out[1] = 1.0 while |gz| < 7.5. */
IMU_EXPORT int sfc_get_raise_up(float* out);

/* Face up to face down or back, the pulse ending within 1.5 s. */
IMU_EXPORT int sfc_get_turn_over(float* out);

/* Two turn-overs, the second begun within 1.5 s after the first. */
IMU_EXPORT int sfc_get_double_flip(float* out);

/* Three alternating twists about y. out[0] or out[1] = 1.0 with the
 * recognition: the last twist was positive or negative. */
IMU_EXPORT int sfc_get_rolling(float* out);

/* Motion class in out[2]: 0 still and flat, 1 still, 2 moving (or just
 * stopped), 3 moving strongly. */
IMU_EXPORT int sfc_get_hand_held(float* out);

/* Placeholder: writes nothing and returns 1 (-22 for null). */
IMU_EXPORT int sfc_get_rotate(float* out);

/* ---- quick wrist movements; rates are imu_g.gyro ---- */

/* Three alternating twists about z within 0.3 s of each other. out[0] or
 * out[1] = 1.0 with the recognition: the last twist was positive or
 * negative. */
IMU_EXPORT int sfc_get_shake(float* out);

/* One flick about x or z. out[0] = +-1.0 for an x flick, out[1] = +-1.0
 * for a z flick (its direction), out[2] = 1.0. 0.2 s hold-off afterwards;
 * an acceleration magnitude below 1.0 m/s^2 (free fall) blocks it for
 * 0.2 s. */
IMU_EXPORT int sfc_get_snap(float* out);

/* ---- double taps: bursts of w_filtered_mag (w_filtered_mag_h in a pocket)
 * under thresholds that follow the recent peak and the motion level ---- */

/* 1 while gyro_static_level_g is above the hand tap's level threshold
 * (max(0.3 x its decaying peak, 700)); an attempt opens only while it is 0.
 * Written by sfc_get_tap. */
/* NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables) */
IMU_EXPORT extern int gyro_static_state;

/* Two taps on a phone held in the hand, 0.1 to 0.5 s apart, then the motion
 * settling. With dt_g == 0 it returns 0 and leaves the slot as it was. */
IMU_EXPORT int sfc_get_tap(float* out);

/* Two taps while the phone lies still (level below 30 for 0.1 s before and
 * after), 0.1 to 0.5 s apart. With dt_g == 0 it returns 0 and leaves the
 * slot as it was. */
IMU_EXPORT int sfc_get_tap_desk(float* out);

/* Two taps in a pocket, 0.05 to 0.4 s apart, with |acc| above 10.5 m/s^2
 * and |gyro| above 0.5 rad/s; |acc| outside 5..25 m/s^2 or |gyro| above
 * 15 rad/s aborts an attempt. */
IMU_EXPORT int sfc_get_tap_pocket(float* out);

/* ---- activity ---- */

/* Steps in the acceleration magnitude. out[1] = the total length in metres
 * of the steps counted in this call, out[2] = their number: 0, 1, or 5 when
 * a new walk becomes regular (four step intervals summing below 5 s) and its
 * held-back steps are reported at once. Without rotation data (|gyro| at 0
 * for four calls) it stops counting for good. With dt_g == 0 it returns 0
 * and leaves the slot as it was. */
IMU_EXPORT int sfc_get_pedometer(float* out);

/* Motion class in out[2]: 0 still (level below 7) and lying flat
 * (|gravity z| above 8.5 m/s^2), 2.0 moving strongly (level above 1000),
 * 1.0 otherwise. */
IMU_EXPORT int sfc_get_motion_detection(float* out);

/* ---- tilt detector, for hosts; the library never calls it ---- */

#define IMU_MOTION_FLAGS 5

/* flags[0] / flags[1]: tilted beyond 10 degrees in angles[1], tangent
 * positive / negative; flags[3] / flags[2]: the same in angles[0];
 * flags[4] stays 0. count: consecutive tilted calls. */
typedef struct imu_motion_record {
    int32_t flags[IMU_MOTION_FLAGS];
    int32_t count;
} imu_motion_record;

/* NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables) */
IMU_EXPORT extern imu_motion_record motion;

/* Reads two angles in degrees, angles[0] and angles[1] (angles[0] is
 * brought into -180..180 first). A tilt beyond 10 degrees raises its flag on
 * the seventh tilted call in a row and clears the other pair's flags; a
 * level call clears count and flags 0 to 3. NULL does nothing. */
IMU_EXPORT void imu_motion_detect(float* angles);

/* The flag at index 0 to 4; 0 for any other index. */
IMU_EXPORT int imu_motion_is_detected(int index);

/* Sets flags and count to 0. */
IMU_EXPORT void imu_motion_reset(void);

IMU_EXTERN_C_END

#ifdef __cplusplus

/* A pulse recogniser, one instance per use: a value that rises from below
 * low through the band (low, high) above high and falls back below low.
 * step is accumulated over the pulse (callers pass dt_g, so total is the
 * pulse's duration in seconds).
 *
 *   state 0 idle -> 1 inside the band -> 2 above it -> 3 completed
 *   (never kept) or 4 ended before min_total, completed at the next value
 *   below low. */
class IMU_EXPORT sfc_gesture_trigger {
public:
    constexpr sfc_gesture_trigger() noexcept = default;
    ~sfc_gesture_trigger() = default;

    /* 0 in the update that completes a pulse with min_total < total <
     * max_total; -22 otherwise. */
    int gesture_trigger(float value, float step, float low, float high, float max_total,
                        float min_total) noexcept;

    int32_t state = 0;
    float total = 0.0F;
};

#endif /* __cplusplus */

#endif /* IMU_GESTURES_H */
