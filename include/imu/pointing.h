#ifndef IMU_POINTING_H
#define IMU_POINTING_H

/* Pointing: the self-contained air-mouse algorithm with its settings file,
 * the phone pose indicator and the rotation-step detector.
 *
 * None of these use the fusion service; callers feed raw samples (angular
 * rate in rad/s, acceleration in m/s^2, device frame) at a fixed cadence.
 * All state is process-wide and unlocked: call from one thread. */

#include <stdint.h>

#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* ---- Air mouse: call air_update_posture every 10 ms (100 Hz), then read
 * the step with getmouse_relative_coordinates. ---- */

/* One step of the algorithm on rate (3 floats, rad/s) and acceleration
 * (3 floats, m/s^2). The first 49 calls give no motion unless a step of 3
 * or more occurs. A null argument leaves the state untouched. */
IMU_EXPORT void air_update_posture(const float* rate, const float* acceleration);

/* Maps the sample's axes by the position mode (0: as given; 1: holding
 * sideways, x = -y, y = x) and keeps it as the current sample. In any other
 * mode, or with a null argument, nothing is stored. */
IMU_EXPORT void conver_position(const float* rate, const float* acceleration);

/* out (3 floats) = (dx * width / 1680, dy * height / 1050, 0) from the last
 * step. Returns 0 (-22 and nothing written for a null out). */
IMU_EXPORT int getmouse_relative_coordinates(float* out);

/* Screen size in pixels used by getmouse_relative_coordinates; 1680 x 1050
 * until set. Returns 0. */
IMU_EXPORT int input_screen_resolution(float width, float height);

/* Holding position: 0 or 1 (other values make the algorithm ignore new
 * samples). Returns 0. */
IMU_EXPORT int set_position(int mode);

/* ---- Air-mouse settings: "/data/system/velmoAR.ini", one line
 * "<position> <width> <height>", created as "0 1680 1050\n" when missing.
 * Messages go to the log with the tag "AirMouseAlgorithm". ---- */

/* Writes values (3 floats) as "%.1f %.1f %.1f\n". 0, or -errno (-22 for a
 * null values). */
IMU_EXPORT int write_screen_position_resolution(const float* values);

/* Reads up to three numbers into values. A line that starts with at least
 * one finite number is a success (0; entries not read keep their values);
 * otherwise -errno: the access or open failure, -ERANGE for a first number
 * beyond float range, -EINVAL for no number at all. -22 for a null values. */
IMU_EXPORT int read_screen_position_resolution(float* values);

/* Applies the file to the air mouse: position (truncated) and screen size
 * (truncated to whole pixels). Entries the file does not supply keep the
 * current settings. Returns 0. */
IMU_EXPORT int set_screen_position_resolution(void);

/* ---- Phone pose: call every 10 ms with rate (3, rad/s) and acceleration
 * (3, m/s^2). Returns 1 once the phone lies face down and still after a
 * turn of more than 30 degrees, 2 once it has been raised into an upright,
 * still pose, 0 otherwise; the state holds until a call with enable 0,
 * which resets the indicator. Null arguments return 0, and samples that are
 * not finite the current state, changing nothing. */
IMU_EXPORT int phoneIndicator(const float* rate, const float* acceleration, int enable);

IMU_EXTERN_C_END

#ifdef __cplusplus

/* Rotation steps: sustained turns about one of two axes become signed
 * whole steps (for example zoom steps); turns about the third axis, mixed
 * turns and fast flicks that leave the z acceleration unchanged are
 * rejected. One object per stream; each object from one thread at a time. */
class IMU_EXPORT zoom_in_out_obj {
public:
    zoom_in_out_obj();

    /* Back to the reset state: counters, accumulators and steps zero. */
    void initial();

    /* One sample: rates r1, r2, r3 (the caller's unit; the thresholds 5 and
     * 0.1 apply in it), acceleration in m/s^2 (only az is read), three
     * unused floats. mode 0 restarts the warm-up of 5 calls and the flick
     * rejection of 200 calls. sensitivity 1 to 10 sets the step size to
     * sensitivity * 0.1, anything else to 0.5. orientation picks the result:
     * 0 axis-1 steps, 1 axis-2 steps, 2 and 3 the same negated, others 0.
     * Steps are in [-100, 100]. */
    int staticIndicator(float r1, float r2, float r3, float ax, float ay, float az, float unused1,
                        float unused2, float unused3, int mode, int sensitivity, int orientation);

    /* staticIndicator on rates (3) and acceleration (3); 0 for a null
     * argument. */
    int get_zoom_in_out(const float* rates, const float* acceleration, int mode, int sensitivity,
                        int orientation);

    int32_t sample_counter = 0; /* calls since the last reset, up to 1000 */
    int32_t last_sensitivity = 0;
    float step_size = 0.5F;       /* rate sum per emitted step */
    float minimum_rate = 0.1F;    /* 0.1: slower rates are not gathered */
    float accepted_rate[3] = {};  /* this call's rates after the flick rejection */
    float published_rate[2] = {}; /* accepted r2, accepted r1 */
    float previous_az = 0.0F;     /* m/s^2 */
    int32_t quiet_count[2] = {};  /* calls since a rejecting motion: axis 1, axis 2 */
    int32_t run_count[2] = {};    /* consecutive gathering calls: axis 2, axis 1 */
    float gathered[2] = {};       /* rate gathered about axis 2 (A) and axis 1 (B) */
    int32_t step[2] = {};         /* steps of this call: s1 (axis 2), s2 (axis 1) */
    int32_t result = 0;
};

#endif /* __cplusplus */

#endif /* IMU_POINTING_H */
