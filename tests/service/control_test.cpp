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

std::uint32_t bits(const std::atomic<std::uint32_t>& m) {
    return m.load(std::memory_order_relaxed);
}

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
    EXPECT_EQ(root.read("/data/system/velmo_screen_resolution"), "screen_resolution:1280\t720\n");
    struct stat st {};
    ASSERT_EQ(::stat(root.path("/data/system/velmo_screen_resolution").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777U);
    EXPECT_EQ(s.screen_width, 1280);
    EXPECT_EQ(s.screen_height, 720);
    EXPECT_EQ(log.count("screen_resolution:1280\t720\n"), 1);
    EXPECT_STREQ(s.log_name, "default");
    EXPECT_EQ(std::string(s.log_path), root.path("/data/system/velmoLOG"));
    EXPECT_EQ(s.log_path_len, static_cast<int>(root.path("/data/system/velmoLOG").size()));
    EXPECT_EQ(s.fusiond_mode.load(), 0);
}

// The resolution file as construction finds it, and the size it leaves.
struct ResolutionCase {
    const char* name;
    const char* content;  // nullptr: no file
    int width;
    int height;
    const char* file_after;
};

class ResolutionFile : public ServiceTest, public testing::WithParamInterface<ResolutionCase> {};

TEST_P(ResolutionFile, SetsSizeOrKeepsDefault) {
    const ResolutionCase& c = GetParam();
    if (c.content != nullptr) {
        root.write("/data/system/velmo_screen_resolution", c.content);
    }
    velmofusion& s = svc();
    EXPECT_EQ(s.screen_width, c.width);
    EXPECT_EQ(s.screen_height, c.height);
    EXPECT_EQ(root.read("/data/system/velmo_screen_resolution"), c.file_after);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, ResolutionFile,
    testing::Values(
        ResolutionCase{"missing", nullptr, 1280, 720, "screen_resolution:1280\t720\n"},
        ResolutionCase{"full_hd", "screen_resolution:1920\t1080\n", 1920, 1080,
                       "screen_resolution:1920\t1080\n"},
        ResolutionCase{"empty", "", 1280, 720, ""},
        ResolutionCase{"truncated", "screen_resolution:1920", 1920, 720, "screen_resolution:1920"},
        ResolutionCase{"garbage", "resolution=1920x1080\n", 1280, 720, "resolution=1920x1080\n"},
        ResolutionCase{"not_numbers", "screen_resolution:wide\ttall\n", 1280, 720,
                       "screen_resolution:wide\ttall\n"}),
    [](const testing::TestParamInfo<ResolutionCase>& info) { return info.param.name; });

TEST_F(ServiceTest, ResolutionFileThatIsAFolderKeepsDefaultsAndLogs) {
    root.mkdir("/data/system/velmo_screen_resolution");
    velmofusion& s = svc();
    EXPECT_EQ(s.screen_width, 1280);
    EXPECT_EQ(s.screen_height, 720);
    EXPECT_EQ(log.count("Is a directory\n"), 1);
}

TEST_F(ServiceTest, ResolutionFileThatCannotBeCreatedKeepsDefaultsAndLogs) {
    root.remove("/data/system");
    velmofusion& s = svc();
    EXPECT_EQ(s.screen_width, 1280);
    EXPECT_EQ(s.screen_height, 720);
    EXPECT_EQ(log.count("Unable to open " + root.path("/data/system/velmo_screen_resolution") +
                        " (No such file or directory)"),
              1);
}

TEST_F(ServiceTest, IndexSixClearsAccReadyOnlyAndLogsNoControlLine) {
    push(kAcceleration, 0.0F, 0.0F, 9.8F);
    ASSERT_EQ(svc().acc_data_ready.load(), 1);
    control_fusiond(kAcceleration, 1);
    EXPECT_EQ(svc().acc_data_ready.load(), 0);
    EXPECT_EQ(bits(svc().mEnabled), 0U);
    EXPECT_EQ(bits(svc().acc_enabled), 0U);
    EXPECT_EQ(count_prefix("control_velmofusion"), 0);
    EXPECT_FALSE(svc().poll_thread_started.load());
}

TEST_F(ServiceTest, IndexZeroReinitialisesButChangesNoMask) {
    root.write("/data/system/save_velmo_log.ini", "");
    control_fusiond(kGyro, 1);
    EXPECT_EQ(log.count("velmofusion init"), 1);
    EXPECT_EQ(count_prefix("control_velmofusion"), 0);
    EXPECT_EQ(bits(svc().mEnabled), 0U);
    EXPECT_EQ(svc().log_switch, kSaveLogOn);  // the switches are refreshed
    EXPECT_FALSE(svc().poll_thread_started.load());
}

TEST_F(ServiceTest, ModeZeroEnablesEveryMaskAndStartsThreadOnce) {
    control_fusiond(kTap, 1);
    control_fusiond(kShake, 1);
    velmofusion& s = svc();
    const std::uint32_t want = (1U << kTap) | (1U << kShake);
    EXPECT_EQ(bits(s.mEnabled), want);
    EXPECT_EQ(bits(s.acc_enabled), want);
    EXPECT_EQ(bits(s.mag_enabled), want);
    EXPECT_EQ(bits(s.gyro_enabled), want);
    EXPECT_EQ(bits(s.light_enabled), 0U);
    EXPECT_TRUE(s.poll_thread_started.load());
    EXPECT_EQ(log.count(control_line(kTap, 1, 4096, 0)), 1);
    EXPECT_EQ(log.count("velmofusion init"), 1);  // only the first enabling call
    EXPECT_TRUE(eventually([&] { return log.count("Start pollSensors") == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(log.count("Start pollSensors"), 1);
}

TEST_F(ServiceTest, ModeOneSetsOnlyEnableBitAndStartsNoThread) {
    set_fusiond_moed(1);
    control_fusiond(kTap, 1);
    velmofusion& s = svc();
    EXPECT_EQ(bits(s.mEnabled), 1U << kTap);
    EXPECT_EQ(bits(s.acc_enabled) | bits(s.mag_enabled) | bits(s.gyro_enabled), 0U);
    EXPECT_FALSE(s.poll_thread_started.load());
    EXPECT_EQ(log.count("fusiond_mode=1"), 1);
    EXPECT_EQ(log.count(control_line(kTap, 1, 4096, 1)), 1);
}

// Index 7 in each mode: modes 2 to 5 only forget the magnetometer data.
struct MagneticCase {
    int mode;
    bool sets_bit;
    std::int32_t calibrator_after;
};

class MagneticIndex : public ServiceTest, public testing::WithParamInterface<MagneticCase> {};

TEST_P(MagneticIndex, ForgetsDataOrSetsBit) {
    const MagneticCase& c = GetParam();
    set_fusiond_moed(c.mode);
    push(kMagnetic, 20.0F, 0.0F, -40.0F);
    log.clear();
    control_fusiond(kMagnetic, 1);
    velmofusion& s = svc();
    EXPECT_EQ(bits(s.mEnabled), c.sets_bit ? 1U << kMagnetic : 0U);
    if (!c.sets_bit) {  // (a started poll thread forgets it too)
        EXPECT_EQ(s.mag_data_ready.load(), 0);
    }
    EXPECT_EQ(count_prefix("control_velmofusion"), c.sets_bit ? 1 : 0);
    EXPECT_EQ(calibration_state().calibrator_mode, c.calibrator_after);
}

INSTANTIATE_TEST_SUITE_P(Modes, MagneticIndex,
                         testing::Values(MagneticCase{0, true, kCalibrateAcc},
                                         MagneticCase{2, false, kCalibrateAcc},
                                         MagneticCase{3, false, kCalibrateAccMag},
                                         MagneticCase{4, false, kCalibrateAccMag},
                                         MagneticCase{5, false, kCalibrateNone}));

TEST_F(ServiceTest, CalibratingModesLeaveCalibratorOffAfterMaskUpdate) {
    for (const int mode : {3, 4, 5}) {
        set_fusiond_moed(mode);
        set_calibrator_mode(kCalibrateAcc);
        control_fusiond(kTap, 1);
        EXPECT_EQ(calibration_state().calibrator_mode, kCalibrateNone) << "mode " << mode;
        EXPECT_EQ(bits(svc().acc_enabled), 1U << kTap) << "mode " << mode;
        control_fusiond(kTap, 0);
    }
}

TEST_F(ServiceTest, UnknownModeOnlyLogsAndRunsNoCycle) {
    set_fusiond_moed(9);
    control_fusiond(kTap, 1);
    velmofusion& s = svc();
    EXPECT_EQ(bits(s.mEnabled), 0U);
    EXPECT_EQ(log.count(control_line(kTap, 1, 0, 9)), 1);
    push(kAcceleration, 0.0F, 0.0F, 9.8F);
    push(kMagnetic, 20.0F, 0.0F, -40.0F);
    push(kGyro, 0.1F, 0.0F, 0.0F, 1000000000);
    EXPECT_EQ(count_prefix("show_loge_count"), 0);
    EXPECT_EQ(count_prefix("data_not_ready"), 0);
    EXPECT_EQ(s.last_timestamp, 0);
}

TEST_F(ServiceTest, IndicesOutsideTheMaskChangeNoBit) {
    set_fusiond_moed(1);  // no thread
    for (const int index : {32, 40, -1, 1000}) {
        control_fusiond(index, 1);
        EXPECT_EQ(bits(svc().mEnabled), 0U) << index;
    }
    control_fusiond(31, 1);
    EXPECT_EQ(bits(svc().mEnabled), 1U << 31);
}

TEST_F(ServiceTest, NonzeroEnableCountsAsOne) {
    set_fusiond_moed(1);
    control_fusiond(kTap, 7);
    EXPECT_EQ(bits(svc().mEnabled), 1U << kTap);
}

TEST_F(ServiceTest, DisablingLastIndexForgetsTimestamp) {
    control_fusiond(kTap, 1);
    push(kGyro, 0.0F, 0.0F, 0.0F, 5000000000LL);
    EXPECT_EQ(svc().last_timestamp, 5000000000LL);
    control_fusiond(kShake, 0);
    EXPECT_EQ(svc().last_timestamp, 5000000000LL);
    control_fusiond(kTap, 0);
    EXPECT_EQ(svc().last_timestamp, 0);
    EXPECT_EQ(log.count(control_line(kTap, 0, 0, 0)), 1);
}

TEST_F(ServiceTest, SecondNamesAreTheSameFunctions) {
    control_SensorFusion(kTap, 1);
    EXPECT_EQ(bits(svc().mEnabled), 1U << kTap);
    set_SensorFusion_mode(4);
    EXPECT_EQ(svc().fusiond_mode.load(), 4);
    svc().fusion_data[kTap].report[2] = 1.0F;
    float out[3] = {};
    get_SensorFusion_data(kTap, out);
    EXPECT_EQ(out[2], 1.0F);
}

TEST_F(ServiceTest, InitializationCreatesNoObject) {
    Initialization();
    EXPECT_EQ(log.texts().size(), 0U);  // construction would have logged the resolution
}

TEST_F(ServiceTest, SetLibraryTimeNamesTheSaveLogAfterTheLocalTime) {
    set_library_time();
    const std::string name = svc().log_name;
    int y = 0;
    int mo = 0;
    int d = 0;
    int h = 0;
    int mi = 0;
    int se = 0;
    ASSERT_EQ(std::sscanf(name.c_str(), "%d_%d_%d_%d_%d_%d", &y, &mo, &d, &h, &mi, &se), 6) << name;
    EXPECT_GE(y, 2020);
    EXPECT_GE(mo, 1);
    EXPECT_LE(mo, 12);
    svc().set_now_time(2014, 3, 7, 9, 5, 12);
    EXPECT_STREQ(svc().log_name, "2014_3_7_9_5_12");
}

TEST_F(ServiceTest, ThreadsRacingOnFirstCallShareOneObject) {
    std::vector<std::thread> threads;
    std::vector<velmofusion*> seen(8, nullptr);
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] {
            float out[3];
            get_fusiond_data(1, out);
            seen[i] = service();
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    for (velmofusion* p : seen) {
        EXPECT_EQ(p, seen[0]);
    }
    EXPECT_EQ(log.count("screen_resolution:1280\t720\n"), 1);  // constructed once
}

}  // namespace
}  // namespace imu::test
