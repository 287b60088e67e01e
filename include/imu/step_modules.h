#ifndef IMU_STEP_MODULES_H
#define IMU_STEP_MODULES_H

/* Two step counters in integer arithmetic for a host framework that runs
 * sensor algorithms on memory it allocates itself. Each module has a memory
 * request, a state reset and an update; the library never calls them.
 *
 * The host asks for the size, allocates that many bytes (any alignment),
 * resets the memory once and then passes it to every update. All state lives
 * in that memory, so any number of instances run side by side; an instance
 * must not be updated from two threads at once.
 *
 * Units: accelerations in thousandths of m/s^2, rotation rates in thousandths
 * of rad/s, squared magnitudes divided by 1000, times in ms. Every value is
 * an int32; a result that would not fit is clamped to the int32 range.
 *
 * The state records below are the layout of that memory (little-endian),
 * word by word; a host may read them, and sets the user parameters of the
 * second module through them. */

#include <stdint.h>

#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* State of the first module: 25 words, 100 bytes. */
typedef struct pedometer_sam_state {
    int32_t acc_sq[4];       /* words 0-3: last four squared accelerations a2, oldest first */
    int32_t acc_sq_mean;     /* 4: running mean of words 0-3 */
    int32_t step_peak;       /* 5: highest dynamic value d of the current step */
    int32_t previous_d;      /* 6: d of the previous update */
    int32_t gyro_sq[4];      /* 7-10: last four squared rotation rates g2, oldest first */
    int32_t gyro_sq_mean;    /* 11: running mean of words 7-10 */
    int32_t step_gyro_max;   /* 12: highest word-11 value of the current step */
    int32_t peak;            /* 13: decaying peak of d */
    int32_t trough;          /* 14: decaying trough of d */
    int32_t stage_ms;        /* 15: stage timer */
    int32_t interval_ms;     /* 16: interval timer */
    int32_t judged_stage_ms; /* 17: stage time of the last judged step */
    uint8_t stage;           /* 18, low byte: 0 idle, 1 rising, 2 falling, 99 rejected */
    uint8_t stage_rest[3];   /* rest of word 18, kept as found */
    int32_t count;           /* 19: step count */
    int32_t unused[5];       /* 20-24: not used by the update */
} pedometer_sam_state;

/* Bytes of state memory the first module needs: 100. */
IMU_EXPORT int32_t velmo_pedometer_sam_mem_req(void);

/* Sets the 100 bytes at state to zero and returns state; config is not read
 * (it may be NULL). A NULL state returns NULL. */
IMU_EXPORT void* velmo_pedometer_sam_state_reset(const void* config, void* state);

/* Consumes one input record of 10 words: 0-2 accelerometer x, y, z, 3-5
 * gyroscope x, y, z, 9 the time since the previous record in ms (words 6-8
 * are not read). Writes the step count to output[0]. A time of 0 ms or less,
 * or any NULL argument, changes nothing and leaves the output unwritten. */
IMU_EXPORT void velmo_pedometer_sam_update(void* state, const int32_t* input, int32_t* output);

/* State of the second module: 68 words, 272 bytes. */
typedef struct oem_1_sam_state {
    int32_t acc_sq[4];       /* words 0-3: as in the first module */
    int32_t acc_sq_mean;     /* 4 */
    int32_t step_peak;       /* 5 */
    int32_t previous_d;      /* 6 */
    int32_t gyro_sq[4];      /* 7-10 */
    int32_t gyro_sq_mean;    /* 11 */
    int32_t step_gyro_max;   /* 12 */
    int32_t lengths[5];      /* 13-17: the last five step lengths, newest first */
    int32_t peak;            /* 18: decaying peak of d */
    int32_t trough;          /* 19: decaying trough of d */
    int32_t stage_ms;        /* 20: stage timer */
    int32_t interval_ms;     /* 21: time since the last judged step */
    int32_t judged_stage_ms; /* 22: stage time of the last judged step */
    int32_t since_step_ms;   /* 23: time since the last step that passed every test */
    int32_t intervals_ms[4]; /* 24-27: the last four step intervals, newest first */
    int32_t count;           /* 28: step count */
    int32_t total_length;    /* 29: sum of the counted step lengths */
    int32_t warm_up;         /* 30: updates spent warming up, up to 100 */
    uint8_t stage;           /* byte 124: 0 idle, 1 rising, 2 falling, 10 rejected */
    uint8_t walking;         /* byte 125: 1 while walking */
    uint8_t stage_rest[2];   /* rest of word 31, kept as found */
    int32_t module_counter;  /* 32: 100 after reset, reported as the third output */
    int32_t config_head[2];  /* 33-34: the first two words of the configuration */
    int32_t param[27];       /* 35-61: parameters P0 to P26 (see OEM_1_SAM_P_*) */
    int32_t user_height;     /* 62: user parameter h of the step length, 0 after reset */
    int32_t unused_63;       /* 63 */
    int32_t length_selector; /* 64: 0 or 1 picks the coefficient of h; others keep the
                                previous length. 0 after reset */
    int32_t unused_65[3];    /* 65-67 */
} oem_1_sam_state;

/* Parameter indices into oem_1_sam_state.param, with their values after reset. */
enum {
    OEM_1_SAM_P_MAX_D = 0,              /* 200000: upper limit of d */
    OEM_1_SAM_P_MAX_GYRO_MEAN = 1,      /* 70000: upper limit of the rotation mean */
    OEM_1_SAM_P_MIN_UP = 2,             /* 10000: lowest upper threshold */
    OEM_1_SAM_P_PEAK_DECAY = 3,         /* 5: peak decay rate */
    OEM_1_SAM_P_UP_PERCENT = 4,         /* 70: upper threshold, percent of the peak */
    OEM_1_SAM_P_MAX_DOWN = 5,           /* -8000: highest lower threshold */
    OEM_1_SAM_P_TROUGH_DECAY = 6,       /* 5: trough decay rate */
    OEM_1_SAM_P_DOWN_PERCENT = 7,       /* 70: lower threshold, percent of the trough */
    OEM_1_SAM_P_MAX_DROP = 8,           /* 150000: largest peak-to-turn drop */
    OEM_1_SAM_P_GYRO_WEIGHT_D = 9,      /* 0: rotation weight in d */
    OEM_1_SAM_P_MIN_DISTINCT_GYRO = 10, /* 3: lowest non-repeating rotation value */
    OEM_1_SAM_P_RISE_LIMIT_MS = 11,     /* 200: stage time limit while rising */
    OEM_1_SAM_P_FALL_LIMIT_MS = 12,     /* 500: stage time limit while falling */
    OEM_1_SAM_P_MIN_STAGE_MS = 13,      /* 30: shortest stage time of a step */
    OEM_1_SAM_P_MAX_STAGE_MS = 14,      /* 150: longest stage time of a step */
    OEM_1_SAM_P_MIN_INTERVAL_MS = 15,   /* 150: shortest interval */
    OEM_1_SAM_P_MAX_INTERVAL_MS = 16,   /* 1500: longest interval */
    OEM_1_SAM_P_GYRO_WEIGHT_STAGE = 17, /* 0: rotation weight of the stage limits */
    OEM_1_SAM_P_WALKING_SUM_MS = 18,    /* 5000: four-interval sum below which one walks */
    OEM_1_SAM_P_PAUSE_MS = 19,          /* 3000: pause that ends walking */
    OEM_1_SAM_P_GRAVITY_SQ = 20,        /* 96236: squared gravity, scaled */
    OEM_1_SAM_P_LENGTH_INTERVAL = 21,   /* 45040: length coefficient of the interval */
    OEM_1_SAM_P_LENGTH_OFFSET = 22,     /* -87110: length offset */
    OEM_1_SAM_P_LENGTH_H1 = 23,         /* 415: coefficient of h for selector 1 */
    OEM_1_SAM_P_LENGTH_H0 = 24,         /* 413: coefficient of h for selector 0 */
    OEM_1_SAM_P_STEP_MS = 25,           /* 5: time step per update */
    OEM_1_SAM_P_CONFIG = 26             /* configuration word 28, kept from the configuration */
};

/* Bytes of state memory the second module needs: 272, the whole record. */
IMU_EXPORT int32_t oem_1_sam_mem_req(void);

/* Initialises the 272 bytes at state from the 140-byte configuration and
 * returns state: words 0-31 zero except the intervals (5000 each), the module
 * counter 100, words 33-67 a copy of the configuration with the parameters
 * set to their defaults (P26 keeps its configured value) and words 62-67
 * zero. A NULL config reads as all zeros; a NULL state returns NULL. */
IMU_EXPORT void* oem_1_sam_state_reset(const void* config, void* state);

/* Consumes one input record of 6 words, accelerometer x, y, z and gyroscope
 * x, y, z in m/s^2 and rad/s as 16.16 fixed point; the record is P25 ms
 * after the previous one. Writes three words: step count, total length and
 * the module counter. The first 100 updates after a reset only warm up and
 * report (0, 0, counter). With a NULL state or input the state is unchanged
 * and a non-NULL output reads (0, 0, 0); a NULL output changes nothing. */
IMU_EXPORT void oem_1_sam_update(void* state, const int32_t* input, int32_t* output);

IMU_EXTERN_C_END

#endif /* IMU_STEP_MODULES_H */
