// Construction, the screen resolution file it reads, and the control path
// per service mode and index.

#include <sys/stat.h>

#include <thread>
#include <vector>

#include "calibration/calibration_block.h"
#include "imu/calibration.h"
#include "service/service_internal.h"
#include "service_fixture.h"

namespace imu::test {
namespace {

constexpr const char* kResolution = "/data/system/velmo_screen_resolution";
constexpr std::uint32_t kTapBit = 1U << kTap;
constexpr std::uint32_t kMagBit = 1U << kMagnetic;

std::uint32_t bits(const std::atomic<std::uint32_t>& m) {
    return m.load(std::memory_order_relaxed);
}

std::string control_line(int index, int enable, int enabled, int mode) {
    return "control_velmofusion index=" + std::to_string(index) +
           ",enable=" + std::to_string(enable) + "\tmEnabled=" + std::to_string(enabled) +
           "\tsfc_set_fusion_mode=" + std::to_string(engine_fusion_mode()) +
           "\tfusiond_mode=" + std::to_string(mode);
}

// The resolution file as construction finds it (nullptr: missing, "/": a
// folder, "-": no folder to create it in) and the size it leaves; only a
// missing file is written.
struct ResolutionCase {
    const char* name;
    const char* content;
    int width, height;
    const char* logged;  // a line (ending), or nullptr
};

class ResolutionFile : public ServiceTest, public testing::WithParamInterface<ResolutionCase> {};

TEST_P(ResolutionFile, SetsSizeOrKeepsDefault) {
    const ResolutionCase& c = GetParam();
    const std::string content = c.content != nullptr ? c.content : "";
    if (content == "/") {
        root.mkdir(kResolution);
    } else if (content == "-") {
        root.remove("/data/system");
    } else if (c.content != nullptr) {
        root.write(kResolution, content);
    }
    velmofusion& s = svc();
    EXPECT_EQ(std::make_pair(s.screen_width, s.screen_height), std::make_pair(c.width, c.height));
    if (content != "/" && content != "-") {
        EXPECT_EQ(root.read(kResolution), c.content ? content : "screen_resolution:1280\t720\n");
    }
    if (c.logged != nullptr) {
        const std::string prefix = content == "-" ? "Unable to open " + root.path(kResolution) : "";
        EXPECT_EQ(log.count(prefix + c.logged), 1);
    }
    struct stat st {};
    if (c.content == nullptr) {  // created open to all
        ASSERT_EQ(::stat(root.path(kResolution).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0777U);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Contents, ResolutionFile,
    testing::Values(
        ResolutionCase{"missing", nullptr, 1280, 720, "screen_resolution:1280\t720\n"},
        ResolutionCase{"full_hd", "screen_resolution:1920\t1080\n", 1920, 1080, nullptr},
        ResolutionCase{"empty", "", 1280, 720, nullptr},
        ResolutionCase{"truncated", "screen_resolution:1920", 1920, 720, nullptr},
        ResolutionCase{"garbage", "resolution=1920x1080\n", 1280, 720, nullptr},
        ResolutionCase{"folder", "/", 1280, 720, "Is a directory\n"},
        ResolutionCase{"uncreatable", "-", 1280, 720, " (No such file or directory)"}),
    [](const testing::TestParamInfo<ResolutionCase>& info) { return info.param.name; });

// One control call after the accelerometer and magnetometer have delivered:
// the masks, the thread (started when sensors are wanted), the log, the
// ready flag it clears and the calibrator mode it leaves.
struct ControlCase {
    const char* name;
    int mode, index;
    std::uint32_t enabled, sensor_mask;  // mEnabled, acc/mag/gyro masks
    bool control_line;
    int forgets;  // kAcceleration or kMagnetic: that ready flag is cleared
    std::int32_t calibrator_after;
};

class Control : public ServiceTest, public testing::WithParamInterface<ControlCase> {};

TEST_P(Control, UpdatesMasksPerMode) {
    const ControlCase& c = GetParam();
    set_fusiond_moed(c.mode);
    set_calibrator_mode(kCalibrateAcc);
    push_acc_mag();
    log.clear();
    control_fusiond(c.index, 1);
    velmofusion& s = svc();
    EXPECT_EQ(bits(s.mEnabled), c.enabled);
    for (const auto* m : {&s.acc_enabled, &s.mag_enabled, &s.gyro_enabled}) {
        EXPECT_EQ(bits(*m), c.sensor_mask);
    }
    EXPECT_EQ(bits(s.light_enabled), 0U);
    EXPECT_EQ(s.poll_thread_started.load(), c.sensor_mask != 0);
    const std::string line = control_line(c.index, 1, static_cast<int>(c.enabled), c.mode);
    EXPECT_EQ(log.count(line), c.control_line ? 1 : 0);
    EXPECT_EQ(count_prefix("control_velmofusion"), c.control_line ? 1 : 0);
    if (c.forgets != 0) {  // (the poll thread may clear the others as it starts)
        EXPECT_EQ((c.forgets == kAcceleration ? s.acc_data_ready : s.mag_data_ready).load(), 0);
    }
    EXPECT_EQ(calibration_state().calibrator_mode, c.calibrator_after);
    if (c.mode == 1) {
        EXPECT_EQ(sfc_get_fusion_mode(), 2);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Control,
    testing::Values(
        // Index 0 reinitialises, index 6 forgets the accelerometer data.
        ControlCase{"index0", 0, kGyro, 0, 0, false, 0, kCalibrateAcc},
        ControlCase{"index6", 0, kAcceleration, 0, 0, false, kAcceleration, kCalibrateAcc},
        ControlCase{"mode0", 0, kTap, kTapBit, kTapBit, true, 0, kCalibrateAcc},
        ControlCase{"mode1", 1, kTap, kTapBit, 0, true, 0, kCalibrateAcc},
        ControlCase{"mode3", 3, kTap, kTapBit, kTapBit, true, 0, kCalibrateNone},
        ControlCase{"mode4", 4, kTap, kTapBit, kTapBit, true, 0, kCalibrateNone},
        ControlCase{"mode5", 5, kTap, kTapBit, kTapBit, true, 0, kCalibrateNone},
        ControlCase{"mode9", 9, kTap, 0, 0, true, 0, kCalibrateAcc},
        // Index 7: modes 2 to 5 only forget the magnetometer data.
        ControlCase{"index7_mode0", 0, kMagnetic, kMagBit, kMagBit, true, 0, kCalibrateAcc},
        ControlCase{"index7_mode2", 2, kMagnetic, 0, 0, false, kMagnetic, kCalibrateAcc},
        ControlCase{"index7_mode3", 3, kMagnetic, 0, 0, false, kMagnetic, kCalibrateAccMag},
        ControlCase{"index7_mode4", 4, kMagnetic, 0, 0, false, kMagnetic, kCalibrateAccMag},
        ControlCase{"index7_mode5", 5, kMagnetic, 0, 0, false, kMagnetic, kCalibrateNone}),
    [](const testing::TestParamInfo<ControlCase>& info) { return info.param.name; });

TEST_F(ServiceTest, IndexZeroReinitialisesAndRefreshesTheLogSwitches) {
    root.write("/data/system/save_velmo_log.ini", "");
    control_fusiond(kGyro, 1);
    EXPECT_EQ(log.count("velmofusion init"), 1);
    EXPECT_EQ(svc().log_switch, kSaveLogOn);
}

TEST_F(ServiceTest, EnablingCallsAddBitsAndTheLastOffForgetsTheTimestamp) {
    control_fusiond(kTap, 1);
    control_fusiond(kShake, 1);
    control_fusiond(kShake, 7);  // any enable value counts
    EXPECT_EQ(bits(svc().mEnabled), kTapBit | (1U << kShake));
    EXPECT_EQ(log.count("velmofusion init"), 1);
    EXPECT_TRUE(poll_started());
    for (const int index : {32, 40, -1, 1000}) control_fusiond(index, 1);  // outside the mask
    EXPECT_EQ(bits(svc().mEnabled), kTapBit | (1U << kShake));
    control_fusiond(31, 1);
    EXPECT_EQ(bits(svc().mEnabled), kTapBit | (1U << kShake) | (1U << 31));
    push(kGyro, 0.0F, 0.0F, 0.0F, 5000000000LL);
    for (const int index : {31, static_cast<int>(kShake)}) control_fusiond(index, 0);
    EXPECT_EQ(svc().last_timestamp, 5000000000LL);
    control_fusiond(kTap, 0);  // the last one off forgets the timestamp
    EXPECT_EQ(svc().last_timestamp, 0);
    EXPECT_EQ(log.count(control_line(kTap, 0, 0, 0)), 1);
}

TEST_F(ServiceTest, SecondNamesInitializationAndLibraryTime) {
    Initialization();
    EXPECT_TRUE(log.texts().empty());  // construction would have logged the resolution
    control_SensorFusion(kTap, 1);
    EXPECT_EQ(bits(svc().mEnabled), kTapBit);
    set_SensorFusion_mode(4);
    EXPECT_EQ(svc().fusiond_mode.load(), 4);
    svc().fusion_data[kTap].report[2] = 1.0F;
    float out[3] = {};
    get_SensorFusion_data(kTap, out);
    EXPECT_EQ(out[2], 1.0F);
    set_library_time();  // the save log is named after the local time
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, se = 0;
    ASSERT_EQ(std::sscanf(svc().log_name, "%d_%d_%d_%d_%d_%d", &y, &mo, &d, &h, &mi, &se), 6);
    EXPECT_TRUE(y >= 2020 && mo >= 1 && mo <= 12) << svc().log_name;
}

TEST_F(ServiceTest, ThreadsRacingOnFirstCallShareOneObject) {
    std::vector<velmofusion*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&seen, i] { seen[i] = (slot(1), service()); });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), seen[0]), 8);
    EXPECT_EQ(log.count("screen_resolution:1280\t720\n"), 1);  // constructed once
}

}  // namespace
}  // namespace imu::test
