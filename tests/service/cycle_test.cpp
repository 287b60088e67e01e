// Whole fusion cycles driven through input_raw_data with synthetic
// recordings: the fixed outputs, the detector slots, the air mouse and its
// device, the zoom slot and the calibration slot.

#include <cmath>
#include <functional>

#include "imu/engine.h"
#include "pointing/mouse_object.h"
#include "service/service_internal.h"
#include "service_fixture.h"
#include "sim/activity_sequences.h"
#include "sim/sim_recording.h"
#include "support/output_event_reader.h"

namespace imu::test {
namespace {

using sim::Trajectory;

sim::SensorModel quiet() {
    sim::SensorModel m;
    m.rate_hz = 200.0;
    return m;
}

class RecordingTest : public ServiceTest {
protected:
    // The indices on in the mode; with the poll thread settled (if any)
    // nothing but the pushed samples feeds the table.
    void start(std::initializer_list<int> indices, int mode = 2) {
        set_fusiond_moed(mode);
        for (const int i : indices) control_fusiond(i, 1);
        if (svc().poll_thread_started.load()) {
            ASSERT_TRUE(poll_started());
        }
    }

    // Accelerometer, magnetometer and gyroscope of each sample (the last
    // runs the cycle) with 5 ms intervals or absolute timestamps per mode.
    void feed(const std::vector<sim::Sample>& samples, int mode = 2,
              const std::function<void()>& on_cycle = nullptr) {
        const bool interval = mode == 2 || mode == 4;
        for (const sim::Sample& s : samples) {
            clock_ns_ += 5000000LL;
            push(kAcceleration, s.acc[0], s.acc[1], s.acc[2]);
            push(kMagnetic, s.mag[0], s.mag[1], s.mag[2]);
            push(kGyro, s.gyro[0], s.gyro[1], s.gyro[2], interval ? 5000000LL : clock_ns_);
            if (on_cycle) {
                on_cycle();
            }
        }
    }
    void feed_frames(const ActivityRecording& frames, const std::function<void()>& on_cycle) {
        for (const ActivityFrame& f : frames) {
            clock_ns_ += f.dt_us * 1000LL;
            const IMU& m = f.imu;
            push(kAcceleration, m.acc_raw[0], m.acc_raw[1], m.acc_raw[2]);
            push(kMagnetic, m.mag_raw[0], m.mag_raw[1], m.mag_raw[2]);
            push(kGyro, m.gyro_raw[0], m.gyro_raw[1], m.gyro_raw[2], clock_ns_);
            on_cycle();
        }
    }
    long long clock_ns_ = 1000000000LL;
};

// Facing east, top edge raised by 30 deg, held still 3 s: the fixed outputs
// read the truth, each truncated toward zero to its step; the zoom slot
// reads the tilt once enabled.
TEST_F(RecordingTest, StillPoseFillsTheFixedOutputs) {
    start({kTap});
    const auto samples = record(Trajectory(sim::pose(90, 30, 0)).hold(3.0), quiet());
    feed(samples);
    velmofusion& s = svc();
    const Triple o = slot(kOrientation);
    EXPECT_NEAR(std::remainder(o[0] - 90.0, 360.0), 0.0, 1.5);
    EXPECT_NEAR(o[1], -30.0, 1.5);
    EXPECT_NEAR(o[2], 0.0, 1.5);
    const sim::Sample& last = samples.back();
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(slot(kGravity)[i], last.acc[i], 0.05) << i;
        EXPECT_NEAR(slot(kLinearAcceleration)[i], 0.0, 0.05) << i;
        EXPECT_EQ(s.fusion_data[kRotationVector].raw[i], s.sfc_out.rotation_vector[i]);
        const struct {
            int index;
            float step;
        } outputs[] = {{kOrientation, 0.1F},
                       {kGravity, 0.001F},
                       {kLinearAcceleration, 0.001F},
                       {kRotationVector, 0.001F}};
        for (const auto& out : outputs) {
            const float raw = s.fusion_data[out.index].raw[i];
            EXPECT_EQ(slot(out.index)[i],
                      static_cast<float>(static_cast<int>(raw / out.step)) * out.step)
                << out.index << " " << i;
        }
    }
    const Triple r = slot(kRotationVector);  // vector part: length sin(angle / 2)
    const double len = std::sqrt(double{r[0]} * r[0] + double{r[1]} * r[1] + double{r[2]} * r[2]);
    EXPECT_TRUE(len > 0.1 && len < 1.0) << len;
    EXPECT_EQ(slot(kGyro), (Triple{last.gyro[0], last.gyro[1], last.gyro[2]}));
    EXPECT_EQ(slot(kZoomInOut), kZero);  // bit clear: untouched
    control_fusiond(kZoomInOut, 1);
    feed(samples);
    const Triple z = slot(kZoomInOut);  // the tilt in whole degrees
    EXPECT_TRUE(z[1] == std::round(z[1]) && z[2] == std::round(z[2]));
    EXPECT_GT(std::fabs(z[1]) + std::fabs(z[2]), 20.0F) << z[1] << " " << z[2];
}

// A double tap in the hand is recognised once (third value 1.0) while the
// Tap bit is set; the slot stays untouched while it is clear.
TEST_F(RecordingTest, DoubleTapReachesTheTapSlotOnlyWhenEnabled) {
    start({kShake}, 1);
    int recognised = 0;
    const auto count = [&] { recognised += slot(kTap)[2] == 1.0F ? 1 : 0; };
    feed_frames(hand_double_tap(0.3).frames, count);
    EXPECT_EQ(slot(kTap), kZero);
    control_fusiond(kTap, 1);
    feed_frames(hand_double_tap(0.3).frames, count);
    EXPECT_EQ(recognised, 1);
}

// The air mouse moves the pointer and writes the device while the phone
// turns: in modes 3 and 5 with its bit clear, otherwise only with it set.
struct MouseModeCase {
    int mode, index;
    bool runs;
};

class AirMouseMode : public RecordingTest, public testing::WithParamInterface<MouseModeCase> {};

TEST_P(AirMouseMode, TurnMovesThePointerWhenItRuns) {
    const MouseModeCase& c = GetParam();
    root.make_input_device("event4", "VelmoVirtualMouse");
    EventReader reader(root.path("/dev/input/event4"));
    start({c.index}, c.mode);
    int moved = 0;
    feed(record(Trajectory(sim::pose(0)).hold(1.0).turn_heading(60, 0.5).hold(0.5), quiet()),
         c.mode, [&] { moved += slot(kAirMouse)[0] != 0.0F ? 1 : 0; });
    EXPECT_EQ(moved > 10, c.runs) << moved;
    EXPECT_EQ(!reader.take().empty(), c.runs);
}

INSTANTIATE_TEST_SUITE_P(Modes, AirMouseMode,
                         testing::Values(MouseModeCase{0, kTap, false},
                                         MouseModeCase{2, kTap, false},
                                         MouseModeCase{2, kAirMouse, true},
                                         MouseModeCase{3, kTap, true},
                                         MouseModeCase{5, kTap, true}));

// Index 19 passes the screen size on whether enabling or not; index 10
// raises the forced-NaN flag even when disabling.
TEST_F(ServiceTest, AirMouseAndSnapIndicesActEvenWhenDisabling) {
    set_fusiond_moed(1);
    root.write("/data/system/velmo_screen_resolution", "screen_resolution:1920\t1080\n");
    control_fusiond(kAirMouse, 0);
    ASSERT_TRUE(svc().mouse);
    EXPECT_EQ(std::make_pair(svc().mouse->width, svc().mouse->height), std::make_pair(1920, 1080));
    root.write("/data/system/velmo_screen_resolution", "screen_resolution:800\t600\n");
    control_fusiond(kAirMouse, 1);
    EXPECT_EQ(std::make_pair(svc().mouse->width, svc().mouse->height), std::make_pair(800, 600));
    qal_ForceNAN_flag = 0;
    control_fusiond(kSnap, 0);
    EXPECT_EQ(qal_ForceNAN_flag, 1);
}

// An application calibration request: enabling index 5 with the request
// file holding 1 starts a run in engine fusion mode 2; slot 5 then reports
// the run; disabling rewrites the request and restores fusion mode 0.
TEST_F(RecordingTest, CalibrationRequestRunsThroughSlotFive) {
    root.write("/data/system/velmo_calibrator_s.ini", "1\n");
    start({kCalibrationStatus});
    EXPECT_EQ(svc().app_calibration, 1);
    EXPECT_EQ(sfc_get_fusion_mode(), 2);
    feed(record(Trajectory(sim::pose(0)).turn({1.0, 0.0, 0.0}, 1.0, 3.0), quiet()));
    const Triple st = slot(kCalibrationStatus);
    EXPECT_TRUE(st[1] > 0.0F && st[2] == 0.0F) << st[0] << " " << st[1];  // samples collected
    control_fusiond(kCalibrationStatus, 0);
    EXPECT_EQ(svc().app_calibration, 0);
    EXPECT_EQ(sfc_get_fusion_mode(), 0);
    EXPECT_EQ(root.read("/data/system/velmo_calibrator_s.ini"), "0\n");
}

}  // namespace
}  // namespace imu::test
