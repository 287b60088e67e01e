// Whole fusion cycles driven through input_raw_data with synthetic
// recordings: the fixed outputs, the detector slots, the air mouse and its
// device, the zoom slot and the calibration slot.

#include <cmath>

#include "imu/engine.h"
#include "pointing/mouse_object.h"
#include "service/service_internal.h"
#include "service_fixture.h"
#include "sim/activity_sequences.h"
#include "support/output_event_reader.h"
#include "sim/sim_recording.h"

namespace imu::test {
namespace {

using sim::SensorModel;
using sim::Trajectory;

constexpr double kSettledDeg = 1.5;  // orientation after a few seconds of rest
constexpr long long kStartNs = 1000000000LL;

SensorModel quiet() {
    SensorModel m;
    m.rate_hz = 200.0;
    return m;
}

bool truncated(float report, float raw, float step) {
    return report == static_cast<float>(static_cast<std::int32_t>(raw / step)) * step;
}

double angle_diff(double a, double b) {
    const double d = std::fmod(a - b + 540.0, 360.0);
    return d < 0.0 ? d + 180.0 : d - 180.0;
}

class RecordingTest : public ServiceTest {
protected:
    // Mode 2 (samples pushed by the caller, interval timestamps) with the
    // poll thread started and settled, so nothing else feeds the table.
    void start(std::initializer_list<int> indices, int mode = 2) {
        set_fusiond_moed(mode);
        for (const int i : indices) {
            control_fusiond(i, 1);
        }
        if (svc().poll_thread_started.load()) {
            ASSERT_TRUE(eventually([&] { return log.count("Start pollSensors") == 1; }));
        }
    }

    // Pushes accelerometer, magnetometer and gyroscope of each sample; the
    // gyroscope runs the cycle. on_cycle sees the table after each.
    void feed(const std::vector<sim::Sample>& samples, int mode = 2,
              const std::function<void(std::size_t)>& on_cycle = nullptr) {
        const bool interval = mode == 2 || mode == 4;
        const long long step = 5000000LL;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const sim::Sample& s = samples[i];
            push(kAcceleration, s.acc[0], s.acc[1], s.acc[2]);
            push(kMagnetic, s.mag[0], s.mag[1], s.mag[2]);
            push(kGyro, s.gyro[0], s.gyro[1], s.gyro[2],
                 interval ? step : kStartNs + static_cast<long long>(i) * step);
            if (on_cycle) {
                on_cycle(i);
            }
        }
    }

    // Frames in mode 1 (absolute timestamps, no magnetometer needed).
    void feed_frames(const ActivityRecording& frames,
                     const std::function<void(std::size_t)>& on_cycle) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            clock_ns_ += frames[i].dt_us * 1000LL;
            const IMU& m = frames[i].imu;
            push(kAcceleration, m.acc_raw[0], m.acc_raw[1], m.acc_raw[2]);
            push(kMagnetic, m.mag_raw[0], m.mag_raw[1], m.mag_raw[2]);
            push(kGyro, m.gyro_raw[0], m.gyro_raw[1], m.gyro_raw[2], clock_ns_);
            on_cycle(i);
        }
    }
    long long clock_ns_ = kStartNs;
};

// Facing east, top edge raised by 30 deg, held still 3 s: the fixed
// outputs read the truth, each truncated to its step.
TEST_F(RecordingTest, StillPoseFillsTheFixedOutputs) {
    start({kTap});
    const sim::Quat q = sim::pose(90, 30, 0);
    const auto samples = record(Trajectory(q).hold(3.0), quiet());
    feed(samples);
    velmofusion& s = svc();
    const Triple o = slot(kOrientation);
    EXPECT_NEAR(angle_diff(o[0], 90.0), 0.0, kSettledDeg);
    EXPECT_NEAR(o[1], -30.0, kSettledDeg);
    EXPECT_NEAR(o[2], 0.0, kSettledDeg);
    const sim::Sample& last = samples.back();
    const Triple g = slot(kGravity);
    const Triple a = slot(kLinearAcceleration);
    const Triple r = slot(kRotationVector);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(g[i], last.acc[i], 0.05) << i;
        EXPECT_NEAR(a[i], 0.0, 0.05) << i;
        EXPECT_TRUE(truncated(o[i], s.fusion_data[kOrientation].raw[i], 0.1F)) << i;
        EXPECT_TRUE(truncated(g[i], s.fusion_data[kGravity].raw[i], 0.001F)) << i;
        EXPECT_TRUE(truncated(a[i], s.fusion_data[kLinearAcceleration].raw[i], 0.001F)) << i;
        EXPECT_TRUE(truncated(r[i], s.fusion_data[kRotationVector].raw[i], 0.001F)) << i;
        EXPECT_EQ(s.fusion_data[kRotationVector].raw[i], s.sfc_out.rotation_vector[i]);
    }
    // The vector part of the orientation quaternion: length sin(angle / 2).
    const double len = std::sqrt(double{r[0]} * r[0] + double{r[1]} * r[1] + double{r[2]} * r[2]);
    EXPECT_TRUE(len > 0.1 && len < 1.0) << len;
    EXPECT_EQ(slot(kGyro), (Triple{last.gyro[0], last.gyro[1], last.gyro[2]}));
}

TEST_F(RecordingTest, ZoomSlotReadsTheTiltWhenEnabled) {
    start({kTap});
    const auto samples = record(Trajectory(sim::pose(0, 30, 0)).hold(2.0), quiet());
    feed(samples);
    EXPECT_EQ(slot(kZoomInOut), (Triple{0.0F, 0.0F, 0.0F}));  // bit clear: untouched
    control_fusiond(kZoomInOut, 1);
    feed(samples);
    const Triple z = slot(kZoomInOut);
    EXPECT_TRUE(z[1] == std::round(z[1]) && z[2] == std::round(z[2]));  // whole degrees
    EXPECT_GT(std::fabs(z[1]) + std::fabs(z[2]), 20.0F) << z[1] << " " << z[2];
}

// A double tap in the hand is recognised once (third value 1.0) while the
// Tap bit is set; the slot stays untouched while it is clear.
TEST_F(RecordingTest, DoubleTapReachesTheTapSlotOnlyWhenEnabled) {
    start({kShake}, 1);
    const TapRecording rec = hand_double_tap(0.3);
    int recognised = 0;
    const auto count = [&](std::size_t) { recognised += slot(kTap)[2] == 1.0F ? 1 : 0; };
    feed_frames(rec.frames, count);
    EXPECT_EQ(slot(kTap), (Triple{0.0F, 0.0F, 0.0F}));
    control_fusiond(kTap, 1);
    feed_frames(hand_double_tap(0.3).frames, count);
    EXPECT_EQ(recognised, 1);
}

class AirMouseTest : public RecordingTest {
protected:
    void SetUp() override { root.make_input_device("event4", "VelmoVirtualMouse"); }
    std::string fifo() const { return root.path("/dev/input/event4"); }
};

// The air mouse moves the pointer and writes the device while the phone
// turns: in modes 3 and 5 with its bit clear, otherwise only with it set.
struct MouseModeCase {
    int mode, index;
    bool runs;
};

class AirMouseMode : public AirMouseTest, public testing::WithParamInterface<MouseModeCase> {};

TEST_P(AirMouseMode, TurnMovesThePointerWhenItRuns) {
    const MouseModeCase& c = GetParam();
    EventReader reader(fifo());
    start({c.index}, c.mode);
    const auto samples =
        record(Trajectory(sim::pose(0)).hold(1.0).turn_heading(60, 0.5).hold(0.5), quiet());
    int moved = 0;
    feed(samples, c.mode, [&](std::size_t) { moved += slot(kAirMouse)[0] != 0.0F ? 1 : 0; });
    EXPECT_EQ(moved > 10, c.runs) << moved;
    EXPECT_EQ(!reader.take().empty(), c.runs);
}

INSTANTIATE_TEST_SUITE_P(Modes, AirMouseMode,
                         testing::Values(MouseModeCase{0, kTap, false}, MouseModeCase{2, kTap, false},
                                         MouseModeCase{2, kAirMouse, true},
                                         MouseModeCase{3, kTap, true}, MouseModeCase{5, kTap, true}));

TEST_F(ServiceTest, AirMouseIndexPassesTheScreenSizeWhetherEnablingOrNot) {
    set_fusiond_moed(1);
    root.write("/data/system/velmo_screen_resolution", "screen_resolution:1920\t1080\n");
    control_fusiond(kAirMouse, 0);
    ASSERT_TRUE(svc().mouse);
    EXPECT_EQ(std::make_pair(svc().mouse->width, svc().mouse->height), std::make_pair(1920, 1080));
    root.write("/data/system/velmo_screen_resolution", "screen_resolution:800\t600\n");
    control_fusiond(kAirMouse, 1);
    EXPECT_EQ(std::make_pair(svc().mouse->width, svc().mouse->height), std::make_pair(800, 600));
}

// An application calibration request: enabling index 5 with the request
// file holding 1 starts a run in engine fusion mode 2; slot 5 then reports
// the run; disabling rewrites the request and restores fusion mode 0.
TEST_F(RecordingTest, CalibrationRequestRunsThroughSlotFive) {
    root.write("/data/system/velmo_calibrator_s.ini", "1\n");
    set_fusiond_moed(2);
    control_fusiond(kCalibrationStatus, 1);
    velmofusion& s = svc();
    EXPECT_EQ(s.app_calibration, 1);
    EXPECT_EQ(sfc_get_fusion_mode(), 2);
    ASSERT_TRUE(eventually([&] { return log.count("Start pollSensors") == 1; }));
    const auto samples = record(Trajectory(sim::pose(0)).turn({1.0, 0.0, 0.0}, 1.0, 3.0), quiet());
    feed(samples);
    const Triple st = slot(kCalibrationStatus);
    EXPECT_TRUE(st[1] > 0.0F && st[2] == 0.0F) << st[0] << " " << st[1];  // samples collected
    control_fusiond(kCalibrationStatus, 0);
    EXPECT_EQ(s.app_calibration, 0);
    EXPECT_EQ(sfc_get_fusion_mode(), 0);
    EXPECT_EQ(root.read("/data/system/velmo_calibrator_s.ini"), "0\n");
}

TEST_F(ServiceTest, IndexTenRaisesTheForcedNanFlagEvenWhenDisabling) {
    set_fusiond_moed(1);
    qal_ForceNAN_flag = 0;
    control_fusiond(kSnap, 0);
    EXPECT_EQ(qal_ForceNAN_flag, 1);
}

}  // namespace
}  // namespace imu::test
