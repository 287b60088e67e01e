// Results every target reproduces bit for bit (x86-64, 64-bit ARM and
// 32-bit ARM): whole service runs with every virtual sensor enabled,
// folded into a digest of every slot after every cycle and every record
// the air mouse writes. A digest that moves on one target only means a
// result that differs there; the failure shows the last table.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "service/velmofusion.h"
#include "service_fixture.h"
#include "sim/activity_sequences.h"
#include "support/bit_digest.h"
#include "support/output_event_reader.h"
#include "sim/sim_recording.h"

namespace imu::test {
namespace {

// Turns about several device axes and back, with sensor noise, then rest.
std::vector<sim::Sample> turning_recording() {
    sim::SensorModel model;
    model.acc_noise_mps2 = 0.05;
    model.gyro_noise_rps = 0.003;
    model.mag_noise_ut = 0.4;
    model.gyro_bias_rps = {0.002, -0.001, 0.0015};
    sim::Trajectory t(sim::pose(40, 20, -10));
    const sim::Vec3 axes[] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    t.hold(1.0);
    for (const auto& axis : axes) {
        t.turn(axis, 1.2, 0.4, sim::Frame::kDevice).turn(axis, 0.6, 0.4, sim::Frame::kDevice);
        t.turn(axis, -0.6, 0.4, sim::Frame::kDevice).turn(axis, -1.2, 0.4, sim::Frame::kDevice);
    }
    t.turn_heading(60, 0.5).hold(1.0);
    return record(t, model);
}

class SameResults : public ServiceTest {
protected:
    void SetUp() override {
        root.make_input_device("event4", "VelmoVirtualMouse");
        mouse_ = std::make_unique<EventReader>(root.path("/dev/input/event4"));
    }

    void enable_all(int mode) {
        set_fusiond_moed(mode);
        for (int i = 0; i < kSlotCount; ++i) {
            control_fusiond(i, 1);
        }
        if (svc().poll_thread_started.load()) {
            ASSERT_TRUE(eventually([&] { return log.count("Start pollSensors") == 1; }));
        }
    }

    // One cycle: the three samples, then every slot and every device record.
    void cycle(const float* acc, const float* mag, const float* gyro, long long ts) {
        input_raw_data(kAcceleration, const_cast<float*>(acc), ts);
        input_raw_data(kMagnetic, const_cast<float*>(mag), ts);
        input_raw_data(kGyro, const_cast<float*>(gyro), ts);
        for (int i = 0; i < kSlotCount; ++i) {
            for (const float v : svc().fusion_data[i].raw) {
                digest_.add(v);
            }
        }
        for (const InputEvent& e : mouse_->take()) {
            digest_.add((static_cast<std::uint32_t>(e.type) << 16) | e.code);
            digest_.add(static_cast<std::uint32_t>(e.value));
        }
    }

    // The last table, for finding the slot that differs.
    std::string table() {
        std::string out;
        for (int i = 0; i < kSlotCount; ++i) {
            char line[96];
            const float* r = svc().fusion_data[i].raw;
            std::snprintf(line, sizeof line, "slot %2d: %a %a %a\n", i, static_cast<double>(r[0]),
                          static_cast<double>(r[1]), static_cast<double>(r[2]));
            out += line;
        }
        return out;
    }

    BitDigest digest_;
    std::unique_ptr<EventReader> mouse_;
};

// Mode 2: the caller's 5 ms intervals, magnetometer on, air mouse writing.
TEST_F(SameResults, TurningRecordingThroughEverySlot) {
    enable_all(2);
    for (const sim::Sample& s : turning_recording()) {
        cycle(s.acc, s.mag, s.gyro, 5000000LL);
    }
    EXPECT_EQ(digest_.value(), 0xD5C360486602C378ULL) << table();
}

// Mode 1: absolute timestamps; a hand walk with taps between the steps.
TEST_F(SameResults, WalkWithTapsThroughEverySlot) {
    enable_all(1);
    ActivityScript walk(Carry::kHand);
    walk.hold(2.0).steps(12, 0.5).hold(1.0).tap(6.0, 0, 4.0).hold(0.3).tap(6.0, 0, 4.0);
    walk.hold(1.0).swinging_steps(8, 0.55).hold(1.0);
    long long clock_ns = 1000000000LL;
    for (const ActivityFrame& f : walk.frames()) {
        clock_ns += f.dt_us * 1000LL;
        cycle(f.imu.acc_raw, f.imu.mag_raw, f.imu.gyro_raw, clock_ns);
    }
    EXPECT_EQ(digest_.value(), 0x9E00D01F58E3D6BCULL) << table();
}

}  // namespace
}  // namespace imu::test
