// Results every target reproduces bit for bit (x86-64, 64-bit ARM, 32-bit
// ARM): a whole service run with every virtual sensor enabled, folded into
// a digest of every slot after every cycle and every air mouse record.
// (The tools tests compare the demo replay in mode 0 the same way.)

#include <cstdint>
#include <cstdio>
#include <string>

#include "service_fixture.h"
#include "sim/sim_recording.h"
#include "support/bit_digest.h"
#include "support/output_event_reader.h"

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

class SameResults : public ServiceTest {};

// Mode 2: the caller's 5 ms intervals, magnetometer on, air mouse writing.
TEST_F(SameResults, TurningRecordingThroughEverySlot) {
    root.make_input_device("event4", "VelmoVirtualMouse");
    EventReader mouse(root.path("/dev/input/event4"));
    set_fusiond_moed(2);
    for (int i = 0; i < kSlotCount; ++i) control_fusiond(i, 1);
    ASSERT_TRUE(poll_started());
    BitDigest digest;
    for (sim::Sample& s : turning_recording()) {
        input_raw_data(kAcceleration, s.acc, 5000000LL);
        input_raw_data(kMagnetic, s.mag, 5000000LL);
        input_raw_data(kGyro, s.gyro, 5000000LL);
        for (int i = 0; i < kSlotCount; ++i) {
            for (const float v : svc().fusion_data[i].raw) digest.add(v);
        }
        for (const InputEvent& e : mouse.take()) {
            digest.add((static_cast<std::uint32_t>(e.type) << 16) | e.code);
            digest.add(static_cast<std::uint32_t>(e.value));
        }
    }
    std::string table;  // the last one, to find the slot that differs
    for (int i = 0; i < kSlotCount; ++i) {
        for (const float v : svc().fusion_data[i].raw) {
            char text[32];
            std::snprintf(text, sizeof text, "%a ", static_cast<double>(v));
            table += text;
        }
        table += "\n";
    }
    EXPECT_EQ(digest.value(), 0xD5C360486602C378ULL) << table;
}

}  // namespace
}  // namespace imu::test
