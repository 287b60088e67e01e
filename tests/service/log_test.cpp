// The console log, its switch file, and the save log.

#include <sys/stat.h>

#include <cstdio>

#include "service_fixture.h"

namespace imu::test {
namespace {

constexpr const char* kShowLog = "/data/system/show_velmo_log.ini";
constexpr const char* kSaveLog = "/data/system/save_velmo_log.ini";

class LogTest : public ServiceTest {
protected:
    void SetUp() override {
        svc().fusiond_mode.store(0);
        push_acc_mag();
    }
    // Enables index without the poll thread (mode 1 leaves the sensor masks).
    void enable_quietly(int index, int enable) {
        svc().fusiond_mode.store(1);
        control_fusiond(index, enable);
        svc().fusiond_mode.store(0);
    }
    void start_save_log() {
        root.write(kSaveLog, "");
        enable_quietly(kTap, 1);
        svc().set_now_time(2014, 3, 7, 9, 5, 12);
    }
    std::vector<std::string> raw_lines() const {
        std::vector<std::string> out;
        for (const std::string& t : log.texts()) {
            if (t.rfind("raw_data=", 0) == 0) {
                out.push_back(t);
            }
        }
        return out;
    }
    std::string save_log_rel() const { return std::string("/data/system/velmoLOG") + name_; }
    std::string name_ = "2014_3_7_9_5_12";
};

// The show-log file as a control call reads it ("/": a folder), and what
// it leaves.
struct ShowCase {
    const char* name;
    const char* content;  // nullptr: no file
    std::uint32_t log_type_before;
    std::uint32_t log_type_after;
    bool console_on;
    const char* logged;  // an error line, or nullptr
};

class ShowLogFile : public LogTest, public testing::WithParamInterface<ShowCase> {};

TEST_P(ShowLogFile, SetsOneBitOfTheMask) {
    const ShowCase& c = GetParam();
    if (c.content != nullptr && std::string(c.content) == "/") {
        root.mkdir(kShowLog);
    } else if (c.content != nullptr) {
        root.write(kShowLog, c.content);
    }
    svc().log_type = c.log_type_before;
    log.clear();
    enable_quietly(kTap, 1);
    EXPECT_EQ(svc().log_type, c.log_type_after);
    EXPECT_EQ((svc().log_switch & kConsoleLogOn) != 0, c.console_on);
    if (c.logged != nullptr) {
        EXPECT_EQ(log.count(c.logged), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Contents, ShowLogFile,
    testing::Values(ShowCase{"missing", nullptr, 0x40, 0x40, false, nullptr},
                    ShowCase{"status", "27 1\n", 0, 1U << 27, true, nullptr},
                    ShowCase{"clear", "6 0\n", 0x41, 0x01, true, nullptr},
                    ShowCase{"index_only_clears", "6", 0x41, 0x01, true, nullptr},
                    ShowCase{"beyond_mask", "40 1\n", 0x41, 0x41, true, nullptr},
                    ShowCase{"negative_index", "-3 1\n", 0x41, 0x41, true, nullptr},
                    ShowCase{"empty", "", 0x41, 0x41, false, "Success\n"},
                    ShowCase{"garbage", "tap on\n", 0x41, 0x41, false, "Success\n"},
                    ShowCase{"value_not_number", "12 x\n", 0x1000, 0, true, nullptr},
                    ShowCase{"folder", "/", 0x41, 0x41, false, "Is a directory\n"}),
    [](const testing::TestParamInfo<ShowCase>& info) { return info.param.name; });

// The mask collects the bits of each control call: status lines (27), then
// acceleration (6) before the gyroscope (0), every cycle.
TEST_F(LogTest, StatusAndSlotLinesEveryCycle) {
    const struct { const char* line; int index; } calls[] = {
        {"27 1\n", kTap}, {"6 1\n", kShake}, {"0 1\n", kRolling}};
    for (const auto& c : calls) {
        root.write(kShowLog, c.line);
        enable_quietly(c.index, 1);
    }
    log.clear();
    cycle(1000000000LL);
    cycle(1010000000LL);
    const unsigned enabled = (1U << kTap) | (1U << kShake) | (1U << kRolling);
    EXPECT_EQ(log.count("mEnabled =\t\t" + std::to_string(enabled) + "\n"), 2);
    EXPECT_EQ(log.count("fusiond_mode=\t\t0\n"), 2);
    EXPECT_EQ(log.count("time_diff_us =\t\t0\n"), 1);
    EXPECT_EQ(log.count("time_diff_us =\t\t10000\n"), 1);
    EXPECT_EQ(log.count("acc_data_ready =\t\t1\n"), 2);
    EXPECT_EQ(log.count("mag_data_ready =\t\t1\n"), 2);
    const std::string acc =
        "raw_data=0.25000,-0.50000,9.75000\t report_data0.25000,-0.50000,9.75000 Acceleration\n";
    const std::string gyro =
        "raw_data=0.12500,-0.06250,0.50000\t report_data0.12500,-0.06250,0.50000 Gyro\n";
    EXPECT_EQ(raw_lines(), (std::vector<std::string>{acc, gyro, acc, gyro}));
}

TEST_F(LogTest, EverySlotLineCarriesItsName) {
    svc().log_type = 0x07FFFFFF;
    svc().log_switch = kConsoleLogOn;
    svc().show_log();
    std::string names;
    for (const std::string& t : raw_lines()) names += t.substr(t.rfind(' ') + 1);
    EXPECT_EQ(names,
              "Acceleration\nMagnetic\nGyro\nLight\nProximity\nOrientation\nRotationVector\n"
              "LinearAcceleration\nGravity\nSnap\nShake\nTap\nTurn_Over\nRolling\nDouble_Flip\n"
              "Raise_Up\nPut_Down\nRotate\nAir_Mouse\nCorrected_Gyro\nTap_Desk\nTap_Pocket\n"
              "Motion_Detection\nPedometer\nZoom_In_Out\nHand_Held\n");
}

std::string record(const velmofusion& s) {
    char line[512];
    const IMU& m = s.imu;
    std::snprintf(line, sizeof line, "%f\t%f\t%f\t%f\t%f\t%f\t%f\t%f\t%f\t%f\n",
                  static_cast<double>(static_cast<float>(s.time_diff_ns)) / 1000000.0,
                  double{m.acc[0]}, double{m.acc[1]}, double{m.acc[2]}, double{m.gyro[0]},
                  double{m.gyro[1]}, double{m.gyro[2]}, double{m.mag[0]}, double{m.mag[1]},
                  double{m.mag[2]});
    return line;
}

TEST_F(LogTest, SaveLogSpansOneStretchOfEnabledSensors) {
    start_save_log();
    std::string want = "velmo log start\n";
    for (int i = 0; i < 3; ++i) {
        cycle(1000000000LL + i * 5000000LL);
        want += record(svc());
    }
    ASSERT_EQ(svc().log_file_open, 1);
    struct stat st {};
    ASSERT_EQ(::stat(root.path(save_log_rel()).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777U);
    enable_quietly(kTap, 0);  // the last sensor off closes the file
    EXPECT_EQ(svc().log_file_open, 0);
    const std::string got = root.read(save_log_rel());
    EXPECT_EQ(got, want);
    const auto second = got.find('\n', got.find('\n') + 1) + 1;
    EXPECT_EQ(got.substr(second, 9), "5.000000\t") << got;  // 5 ms after the first
}

// A file of the same name is emptied and gets no first line; removing the
// switch file closes the log at the next refresh.
TEST_F(LogTest, ExistingSaveLogIsEmptiedAndTheSwitchFileClosesIt) {
    root.write(save_log_rel(), "old contents\n");
    start_save_log();
    cycle(1000000000LL);
    const std::string first = record(svc());
    ASSERT_EQ(svc().log_file_open, 1);
    root.remove(kSaveLog);
    enable_quietly(kShake, 1);  // refreshes the switches
    cycle(1010000000LL);
    EXPECT_EQ(svc().log_file_open, 0);
    EXPECT_EQ(root.read(save_log_rel()), first);
}

// A save log that cannot be opened is retried at the next cycle.
TEST_F(LogTest, SaveLogInAMissingFolderReportsUnableToOpen) {
    start_save_log();
    std::snprintf(svc().log_name, sizeof svc().log_name, "%s", "no/such/dir");
    cycle(1000000000LL);
    EXPECT_EQ(svc().save_log(), -1);
    EXPECT_EQ(log.count("Unable to open " + root.path("/data/system/velmoLOGno/such/dir") +
                        " (No such file or directory)"),
              2);
}

TEST_F(LogTest, SaveLogThatCannotBeOpenedIsLoggedAndRetried) {
    start_save_log();
    root.mkdir(save_log_rel());
    cycle(1000000000LL);
    EXPECT_EQ(svc().log_file_open, 0);
    EXPECT_EQ(log.count("open file '" + root.path(save_log_rel()) + "' failed: Is a directory\n"),
              1);
    root.remove(save_log_rel());
    cycle(1010000000LL);
    EXPECT_EQ(svc().log_file_open, 1);
    root.write("/data/system/x", "");
    EXPECT_EQ(velmofusion::change_File_mode(root.path("/data/system/x").c_str()), 0);
    EXPECT_EQ(velmofusion::change_File_mode(root.path("/data/system/missing").c_str()), -1);
    EXPECT_EQ(velmofusion::change_File_mode(nullptr), -1);
}

}  // namespace
}  // namespace imu::test
