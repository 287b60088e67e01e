// Construction, the service files read at construction, and the control
// path per service mode and index.

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

std::uint32_t bits(const std::atomic<std::uint32_t>& m) { return m.load(std::memory_order_relaxed); }

std::string control_line(int index, int enable, int enabled, int mode) {
    return "control_velmofusion index=" + std::to_string(index) +
           ",enable=" + std::to_string(enable) + "\tmEnabled=" + std::to_string(enabled) +
           "\tsfc_set_fusion_mode=" + std::to_string(engine_fusion_mode()) +
           "\tfusiond_mode=" + std::to_string(mode);
}

TEST_F(ServiceTest, FirstCallCreatesObjectWithZeroTableAndResolutionFile) {
    for (int i = 0; i < kSlotCount; ++i) {
        EXPECT_EQ(slot(i), (Triple{0.0F, 0.0F, 0.0F})) << "slot " << i;
    }
    velmofusion& s = svc();
    EXPECT_EQ(root.read(kResolution), "screen_resolution:1280\t720\n");
    struct stat st {};
    ASSERT_EQ(::stat(root.path(kResolution).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777U);
    EXPECT_EQ(log.count("screen_resolution:1280\t720\n"), 1);
    EXPECT_STREQ(s.log_name, "default");
    EXPECT_EQ(std::string(s.log_path), root.path("/data/system/velmoLOG"));
    EXPECT_EQ(s.log_path_len, static_cast<int>(root.path("/data/system/velmoLOG").size()));
}

// The resolution file as construction finds it (nullptr: missing, "/":
// a folder, "-": no folder to create it in) and the size it leaves.
struct ResolutionCase {
    const char* name;
    const char* content;
    int width, height;
    const char* file_after;  // nullptr: not checked
    const char* logged;      // a line ending, or nullptr
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
    if (c.file_after != nullptr) {
        EXPECT_EQ(root.read(kResolution), c.file_after);
    }
    if (c.logged != nullptr) {
        const std::string text = content == "-" ? "Unable to open " + root.path(kResolution) + c.logged
                                                : std::string(c.logged);
        EXPECT_EQ(log.count(text), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Contents, ResolutionFile,
    testing::Values(
        ResolutionCase{"missing", nullptr, 1280, 720, "screen_resolution:1280\t720\n", nullptr},
        ResolutionCase{"full_hd", "screen_resolution:1920\t1080\n", 1920, 1080,
                       "screen_resolution:1920\t1080\n", nullptr},
        ResolutionCase{"empty", "", 1280, 720, "", nullptr},
        ResolutionCase{"truncated", "screen_resolution:1920", 1920, 720, "screen_resolution:1920",
                       nullptr},
        ResolutionCase{"garbage", "resolution=1920x1080\n", 1280, 720, "resolution=1920x1080\n",
                       nullptr},
        ResolutionCase{"not_numbers", "screen_resolution:wide\ttall\n", 1280, 720,
                       "screen_resolution:wide\ttall\n", nullptr},
        ResolutionCase{"folder", "/", 1280, 720, nullptr, "Is a directory\n"},
        ResolutionCase{"uncreatable", "-", 1280, 720, nullptr, " (No such file or directory)"}),
    [](const testing::TestParamInfo<ResolutionCase>& info) { return info.param.name; });

// One enabling control call after the magnetometer and accelerometer have
// delivered: the masks, the ready flags, the thread, the logs and the
// calibrator mode it leaves.
struct ControlCase {
    const char* name;
    int mode, index;
    std::uint32_t enabled, sensor_mask;  // mEnabled, acc/mag/gyro masks
    bool thread, control_line, clears_acc, clears_mag;
    std::int32_t calibrator_after;
};

class Control : public ServiceTest, public testing::WithParamInterface<ControlCase> {};

TEST_P(Control, UpdatesMasksPerMode) {
    const ControlCase& c = GetParam();
    set_fusiond_moed(c.mode);
    set_calibrator_mode(kCalibrateAcc);
    push(kAcceleration, 0.0F, 0.0F, 9.8F);
    push(kMagnetic, 20.0F, 0.0F, -40.0F);
    log.clear();
    control_fusiond(c.index, 1);
    velmofusion& s = svc();
    EXPECT_EQ(bits(s.mEnabled), c.enabled);
    for (const auto* m : {&s.acc_enabled, &s.mag_enabled, &s.gyro_enabled}) {
        EXPECT_EQ(bits(*m), c.sensor_mask);
    }
    EXPECT_EQ(bits(s.light_enabled), 0U);
    EXPECT_EQ(s.poll_thread_started.load(), c.thread);
    EXPECT_EQ(log.count(control_line(c.index, 1, static_cast<int>(c.enabled), c.mode)),
              c.control_line ? 1 : 0);
    EXPECT_EQ(count_prefix("control_velmofusion"), c.control_line ? 1 : 0);
    if (c.clears_acc) {
        EXPECT_EQ(s.acc_data_ready.load(), 0);
    }
    if (c.clears_mag) {
        EXPECT_EQ(s.mag_data_ready.load(), 0);
    }
    EXPECT_EQ(calibration_state().calibrator_mode, c.calibrator_after);
    if (c.mode == 1) {
        EXPECT_EQ(sfc_get_fusion_mode(), 2);
    }
}

constexpr std::uint32_t kTapBit = 1U << kTap;
constexpr std::uint32_t kMagBit = 1U << kMagnetic;

INSTANTIATE_TEST_SUITE_P(
    Cases, Control,
    testing::Values(
        // Index 0 reinitialises (and refreshes the log switches), index 6 forgets acc data.
        ControlCase{"index0", 0, kGyro, 0, 0, false, false, false, false, kCalibrateAcc},
        ControlCase{"index6", 0, kAcceleration, 0, 0, false, false, true, false, kCalibrateAcc},
        ControlCase{"mode0", 0, kTap, kTapBit, kTapBit, true, true, false, false, kCalibrateAcc},
        ControlCase{"mode1", 1, kTap, kTapBit, 0, false, true, false, false, kCalibrateAcc},
        ControlCase{"mode3", 3, kTap, kTapBit, kTapBit, true, true, false, false, kCalibrateNone},
        ControlCase{"mode4", 4, kTap, kTapBit, kTapBit, true, true, false, false, kCalibrateNone},
        ControlCase{"mode5", 5, kTap, kTapBit, kTapBit, true, true, false, false, kCalibrateNone},
        ControlCase{"mode9", 9, kTap, 0, 0, false, true, false, false, kCalibrateAcc},
        // Index 7: modes 2 to 5 only forget the magnetometer data.
        ControlCase{"index7_mode0", 0, kMagnetic, kMagBit, kMagBit, true, true, false, false,
                    kCalibrateAcc},
        ControlCase{"index7_mode2", 2, kMagnetic, 0, 0, false, false, false, true, kCalibrateAcc},
        ControlCase{"index7_mode3", 3, kMagnetic, 0, 0, false, false, false, true,
                    kCalibrateAccMag},
        ControlCase{"index7_mode4", 4, kMagnetic, 0, 0, false, false, false, true,
                    kCalibrateAccMag},
        ControlCase{"index7_mode5", 5, kMagnetic, 0, 0, false, false, false, true,
                    kCalibrateNone}),
    [](const testing::TestParamInfo<ControlCase>& info) { return info.param.name; });

TEST_F(ServiceTest, IndexZeroReinitialisesAndRefreshesTheLogSwitches) {
    root.write("/data/system/save_velmo_log.ini", "");
    control_fusiond(kGyro, 1);
    EXPECT_EQ(log.count("velmofusion init"), 1);
    EXPECT_EQ(svc().log_switch, kSaveLogOn);
}

TEST_F(ServiceTest, ThreadStartsOnceAndInitLogsOnlyOnTheFirstEnablingCall) {
    control_fusiond(kTap, 1);
    control_fusiond(kShake, 1);
    EXPECT_EQ(bits(svc().mEnabled), kTapBit | (1U << kShake));
    EXPECT_EQ(log.count("velmofusion init"), 1);
    EXPECT_TRUE(eventually([&] { return log.count("Start pollSensors") == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(log.count("Start pollSensors"), 1);
}

TEST_F(ServiceTest, UnknownModeRunsNoCycle) {
    set_fusiond_moed(9);
    control_fusiond(kTap, 1);
    push(kAcceleration, 0.0F, 0.0F, 9.8F);
    push(kMagnetic, 20.0F, 0.0F, -40.0F);
    push(kGyro, 0.1F, 0.0F, 0.0F, 1000000000);
    EXPECT_EQ(count_prefix("show_loge_count") + count_prefix("data_not_ready"), 0);
    EXPECT_EQ(svc().last_timestamp, 0);
}

TEST_F(ServiceTest, IndicesOutsideTheMaskChangeNoBitAndAnyEnableCounts) {
    set_fusiond_moed(1);  // no thread
    for (const int index : {32, 40, -1, 1000}) {
        control_fusiond(index, 1);
        EXPECT_EQ(bits(svc().mEnabled), 0U) << index;
    }
    control_fusiond(31, 7);
    EXPECT_EQ(bits(svc().mEnabled), 1U << 31);
}

TEST_F(ServiceTest, DisablingLastIndexForgetsTimestamp) {
    control_fusiond(kTap, 1);
    push(kGyro, 0.0F, 0.0F, 0.0F, 5000000000LL);
    control_fusiond(kShake, 0);
    EXPECT_EQ(svc().last_timestamp, 5000000000LL);
    control_fusiond(kTap, 0);
    EXPECT_EQ(svc().last_timestamp, 0);
    EXPECT_EQ(log.count(control_line(kTap, 0, 0, 0)), 1);
}

TEST_F(ServiceTest, SecondNamesAndInitialization) {
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
}

TEST_F(ServiceTest, SetLibraryTimeNamesTheSaveLogAfterTheLocalTime) {
    set_library_time();
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, se = 0;
    ASSERT_EQ(std::sscanf(svc().log_name, "%d_%d_%d_%d_%d_%d", &y, &mo, &d, &h, &mi, &se), 6);
    EXPECT_TRUE(y >= 2020 && mo >= 1 && mo <= 12) << svc().log_name;
    svc().set_now_time(2014, 3, 7, 9, 5, 12);
    EXPECT_STREQ(svc().log_name, "2014_3_7_9_5_12");
}

TEST_F(ServiceTest, ThreadsRacingOnFirstCallShareOneObject) {
    std::vector<velmofusion*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] { seen[i] = (slot(1), service()); });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), seen[0]), 8);
    EXPECT_EQ(log.count("screen_resolution:1280\t720\n"), 1);  // constructed once
}

}  // namespace
}  // namespace imu::test
