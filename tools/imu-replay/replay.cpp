#include "replay.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "imu/host.h"
#include "imu/service.h"

namespace imu::replay {
namespace {

const char* const kSlotNames[kSlots] = {
    "Gyro",       "LinearAcceleration", "Gravity",        "RotationVector",   "Orientation",
    "Calibration", "Acceleration",      "Magnetic",       "Light",            "Proximity",
    "Snap",       "Shake",              "Tap",            "Turn_Over",        "Rolling",
    "Double_Flip", "Raise_Up",          "Put_Down",       "Rotate",           "Air_Mouse",
    "Corrected_Gyro", "Tap_Desk",       "Tap_Pocket",     "Motion_Detection", "Pedometer",
    "Zoom_In_Out", "Hand_Held"};

// Input types of the service and framework types of the simulated hub.
constexpr int kInputGyro = 0;
constexpr int kInputAcc = 6;
constexpr int kInputMag = 7;
constexpr int kInputButton = 999;
constexpr int kHubAcc = 1;
constexpr int kHubMag = 2;
constexpr int kHubGyro = 4;
constexpr int kHubLight = 5;
constexpr int kHubProximity = 8;

constexpr std::int64_t kFirstTimestampNs = 1000000000;  // the service takes 0 as "none yet"
constexpr std::int64_t kGapNs = 5000000;                // between two replays of a process
constexpr double kRadToDeg = 57.29577951308232;

// Counts the service's lines that tell a gyroscope sample ran no cycle.
// Called on the replay's thread and the poll thread.
struct LogCounts {
    std::atomic<std::size_t> not_ready{0};
    std::atomic<std::size_t> time_errors{0};
    std::atomic<bool> poll_started{false};
    bool echo = false;
};
LogCounts g_log;

void count_line(int prio, const char* tag, const char* text, void* /*ctx*/) {
    if (std::strncmp(text, "data_not_ready", 14) == 0) {
        g_log.not_ready.fetch_add(1, std::memory_order_relaxed);
    } else if (std::strncmp(text, "Time error", 10) == 0) {
        g_log.time_errors.fetch_add(1, std::memory_order_relaxed);
    } else if (std::strncmp(text, "Start pollSensors", 17) == 0) {
        g_log.poll_started.store(true);
    }
    if (g_log.echo) {
        std::fprintf(stderr, "%c/%s: %s\n", prio == 6 ? 'E' : 'D', tag, text);
    }
}

bool interval_mode(int mode) { return mode == 2 || mode == 4; }

// A buffered CSV writer that formats numbers with to_chars.
class CsvOut {
public:
    explicit CsvOut(std::FILE* f) : f_(f) {}
    ~CsvOut() { flush(); }
    CsvOut(const CsvOut&) = delete;
    CsvOut& operator=(const CsvOut&) = delete;

    void text(const char* s) {
        const std::size_t n = std::strlen(s);
        room(n);
        std::memcpy(buf_ + len_, s, n);
        len_ += n;
    }
    void ch(char c) {
        room(1);
        buf_[len_++] = c;
    }
    void number(float v) {
        room(32);
        len_ = static_cast<std::size_t>(std::to_chars(buf_ + len_, buf_ + sizeof buf_, v).ptr - buf_);
    }
    void seconds(double t) {
        room(32);
        len_ = static_cast<std::size_t>(
            std::to_chars(buf_ + len_, buf_ + sizeof buf_, t, std::chars_format::fixed, 6).ptr -
            buf_);
    }
    bool flush() {
        if (f_ != nullptr && len_ > 0 && std::fwrite(buf_, 1, len_, f_) != len_) {
            failed_ = true;
        }
        len_ = 0;
        return !failed_;
    }
    bool failed() const { return failed_; }

private:
    void room(std::size_t n) {
        if (len_ + n > sizeof buf_) {
            flush();
        }
    }
    std::FILE* f_;
    char buf_[1 << 16];
    std::size_t len_ = 0;
    bool failed_ = false;
};

class Progress {
public:
    explicit Progress(bool on) : on_(on), start_(std::chrono::steady_clock::now()) {}
    void update(std::size_t done, std::size_t total) {
        const double s = elapsed();
        if (!on_ || s < 1.0) {
            return;
        }
        const int pct = static_cast<int>(100.0 * static_cast<double>(done) /
                                         static_cast<double>(std::max<std::size_t>(total, 1)));
        if (pct == shown_) {
            return;
        }
        shown_ = pct;
        char bar[41];
        const int full = pct * 40 / 100;
        for (int i = 0; i < 40; ++i) {
            bar[i] = i < full ? '#' : '.';
        }
        bar[40] = '\0';
        std::fprintf(stderr, "\rreplaying [%s] %3d%%", bar, pct);
        std::fflush(stderr);
    }
    void done() {
        if (shown_ >= 0) {
            std::fprintf(stderr, "\r%60s\r", "");
            std::fflush(stderr);
        }
    }
    double elapsed() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

private:
    bool on_;
    int shown_ = -1;
    std::chrono::steady_clock::time_point start_;
};

// The angle between the estimate (the rotation vector: the vector part of
// q_world_from_device with a positive scalar part, world east-north-up) and
// the true orientation, degrees.
double error_deg(const float rv[3], const float truth[4]) {
    const double x = static_cast<double>(rv[0]);
    const double y = static_cast<double>(rv[1]);
    const double z = static_cast<double>(rv[2]);
    const double w = std::sqrt(std::max(0.0, 1.0 - (x * x + y * y + z * z)));
    const double dot = w * static_cast<double>(truth[0]) + x * static_cast<double>(truth[1]) +
                       y * static_cast<double>(truth[2]) + z * static_cast<double>(truth[3]);
    return 2.0 * std::acos(std::min(1.0, std::fabs(dot))) * kRadToDeg;
}

std::int64_t g_next_base_ns = kFirstTimestampNs;

}  // namespace

const char* slot_name(int index) { return index >= 0 && index < kSlots ? kSlotNames[index] : ""; }

int slot_index(const std::string& name) {
    int n = 0;
    const auto r = std::from_chars(name.data(), name.data() + name.size(), n);
    if (!name.empty() && r.ec == std::errc() && r.ptr == name.data() + name.size()) {
        return n >= 0 && n < kSlots ? n : -1;
    }
    for (int i = 0; i < kSlots; ++i) {
        const char* s = kSlotNames[i];
        if (std::strlen(s) == name.size() &&
            std::equal(name.begin(), name.end(), s, [](char a, char b) {
                return std::tolower(static_cast<unsigned char>(a)) ==
                       std::tolower(static_cast<unsigned char>(b));
            })) {
            return i;
        }
    }
    return -1;
}

bool is_gesture(int index) { return (index >= 10 && index <= 18) || index == 21 || index == 22; }

void set_log_echo(bool echo) { g_log.echo = echo; }

std::string run_replay(const Recording& rec, const ReplaySettings& settings,
                       ReplayResult& result) {
    result = ReplayResult{};
    imu_host_set_log_sink(count_line, nullptr);
    // The recording is the phone's only source of motion: the hub's motion
    // sensors are absent, so the poll thread never competes with it.
    imu_host_sensor_set_present(kHubAcc, 0);
    imu_host_sensor_set_present(kHubMag, 0);
    imu_host_sensor_set_present(kHubGyro, 0);

    set_fusiond_moed(settings.mode);
    for (const int i : settings.enable) {
        control_fusiond(i, 1);
    }
    // The poll thread clears the ready flags when it starts: let it start
    // before the first sample.
    if (settings.mode != 1 && !settings.enable.empty()) {
        for (int i = 0; i < 2000 && !g_log.poll_started.load(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::vector<int> gestures;
    bool pedometer = false;
    for (const int i : settings.enable) {
        if (is_gesture(i) && std::find(gestures.begin(), gestures.end(), i) == gestures.end()) {
            gestures.push_back(i);
        }
        pedometer = pedometer || i == kPedometerSlot;
    }
    std::vector<char> was_on(gestures.size(), 0);

    CsvOut out(settings.out);
    if (settings.out != nullptr) {
        out.text("t_s");
        for (const int s : settings.out_slots) {
            for (int k = 0; k < 3; ++k) {
                out.ch(',');
                out.text(slot_name(s));
                out.ch('_');
                out.ch(static_cast<char>('0' + k));
            }
        }
        out.ch('\n');
    }

    const std::size_t gyro_total = rec.count[static_cast<int>(Sensor::kGyro)];
    const std::size_t stride = std::max<std::size_t>(
        1, (gyro_total + settings.plot_points - 1) / std::max<std::size_t>(settings.plot_points, 1));
    result.plot.reserve(gyro_total / stride + 1);

    const std::int64_t t0 = rec.rows.front().t_ns;
    const std::int64_t base = g_next_base_ns;
    const bool intervals = interval_mode(settings.mode);
    std::int64_t last_gyro = t0;
    std::int64_t last_sent = base;
    std::size_t gyro_seen = 0;
    bool acc_seen = false;
    double err_sum = 0.0;
    Progress progress(settings.progress);
    const auto start = std::chrono::steady_clock::now();

    for (std::size_t r = 0; r < rec.rows.size(); ++r) {
        const Row& row = rec.rows[r];
        float v[3] = {row.v[0], row.v[1], row.v[2]};
        switch (row.sensor) {
            case Sensor::kAcc:
                input_raw_data(kInputAcc, v, 0);
                acc_seen = true;
                continue;
            case Sensor::kMag:
                input_raw_data(kInputMag, v, 0);
                continue;
            case Sensor::kButton:
                input_raw_data(kInputButton, v, 0);
                continue;
            case Sensor::kLight:
            case Sensor::kProximity:
                imu_host_sensor_post(row.sensor == Sensor::kLight ? kHubLight : kHubProximity, v,
                                     3, base + (row.t_ns - t0));
                continue;
            case Sensor::kGyro:
                break;
        }
        // Mode 1 runs a cycle once the accelerometer has delivered and logs
        // nothing before.
        const bool silent = settings.mode == 1 && !acc_seen;
        result.not_ready += silent ? 1U : 0U;
        const std::size_t rejected_before =
            g_log.not_ready.load(std::memory_order_relaxed) +
            g_log.time_errors.load(std::memory_order_relaxed);
        last_sent = base + (row.t_ns - t0);
        input_raw_data(kInputGyro, v, intervals ? row.t_ns - last_gyro : last_sent);
        last_gyro = row.t_ns;
        ++gyro_seen;
        if ((gyro_seen & 4095U) == 0) {
            progress.update(r, rec.rows.size());
        }
        if (silent || g_log.not_ready.load(std::memory_order_relaxed) +
                              g_log.time_errors.load(std::memory_order_relaxed) !=
                          rejected_before) {
            continue;
        }
        ++result.cycles;
        const double t_s = static_cast<double>(row.t_ns - t0) * 1e-9;
        float slot[3];
        for (std::size_t g = 0; g < gestures.size(); ++g) {
            get_fusiond_data(gestures[g], slot);
            const bool on = slot[2] == 1.0F;
            if (on && was_on[g] == 0) {
                result.gestures.push_back({t_s, gestures[g]});
            }
            was_on[g] = on ? 1 : 0;
        }
        if (pedometer) {
            get_fusiond_data(kPedometerSlot, slot);
            if (slot[2] > 0.0F) {
                result.steps.push_back({t_s, slot[2], slot[1]});
                result.step_count += static_cast<double>(slot[2]);
                result.distance_m += static_cast<double>(slot[1]);
            }
        }
        if (row.has_truth && t_s >= settings.settle_s) {
            get_fusiond_data(kRotationVectorSlot, slot);
            const double e = error_deg(slot, row.truth);
            err_sum += e * e;
            result.error_max_deg = std::max(result.error_max_deg, e);
            ++result.error_cycles;
        }
        if (gyro_seen % stride == 1 || stride == 1) {
            get_fusiond_data(kOrientationSlot, slot);
            result.plot.push_back({static_cast<float>(t_s), {slot[0], slot[1], slot[2]}});
        }
        if (settings.out != nullptr) {
            out.seconds(t_s);
            for (const int s : settings.out_slots) {
                get_fusiond_data(s, slot);
                for (const float x : slot) {
                    out.ch(',');
                    out.number(x);
                }
            }
            out.ch('\n');
        }
    }
    result.wall_s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.done();
    result.samples = rec.rows.size();
    result.cycles_per_s =
        result.wall_s > 0.0 ? static_cast<double>(result.cycles) / result.wall_s : 0.0;
    result.not_ready += g_log.not_ready.exchange(0);
    result.time_errors = g_log.time_errors.exchange(0);
    get_fusiond_data(kOrientationSlot, result.final_orientation);
    if (result.error_cycles > 0) {
        result.error_rms_deg = std::sqrt(err_sum / static_cast<double>(result.error_cycles));
    }
    g_next_base_ns = last_sent + kGapNs;
    for (const int i : settings.enable) {
        control_fusiond(i, 0);
    }
    if (!out.flush() || (settings.out != nullptr && std::fflush(settings.out) != 0)) {
        return std::string("cannot write the output (") + std::strerror(errno) + ")";
    }
    return "";
}

}  // namespace imu::replay
