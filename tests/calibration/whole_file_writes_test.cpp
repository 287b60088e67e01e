// The files the library rewrites are replaced whole: a reader that opens one
// while it is written over and over sees a complete file in its format,
// never an empty or cut one (fopen "w+" showed it empty between truncation
// and write).

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

#include "calibration/calibration_block.h"
#include "calibration/run_files.h"
#include "imu/calibration.h"
#include "imu/pointing.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::TempRoot;

struct Writer {
    const char* name;
    const char* file;
    std::function<void(int)> write;  // the i-th write
    std::function<bool(const std::string&)> whole;
};

// Lines, each ended by a newline, of `fields` fields separated by sep.
bool lines_of(const std::string& text, int fields, char sep, int min_lines) {
    int lines = 0;
    int n = 1;
    for (char c : text) {
        if (c == '\n') {
            if (n != fields) {
                return false;
            }
            ++lines;
            n = 1;
        } else if (c == sep) {
            ++n;
        }
    }
    return !text.empty() && text.back() == '\n' && lines >= min_lines;
}

void set_block(int i) {
    float* c = imu::calibration_state().s_calib2;
    for (int k = 0; k < imu::kCalibFields; ++k) {
        c[k] = static_cast<float>(i % 2 == 0 ? k : 1000 * k + i);
    }
}

class WholeFileWrites : public testing::TestWithParam<Writer> {};

TEST_P(WholeFileWrites, ReaderSeesOnlyCompleteFiles) {
    const Writer& w = GetParam();
    TempRoot root;
    imu::test::LogCapture log;
    w.write(0);
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    std::string example;
    std::thread reader([&] {
        while (!done.load()) {
            const std::string seen = root.read(w.file);
            if (!w.whole(seen)) {
                bad += 1;
                example = seen;
            }
        }
    });
    for (int i = 1; i < 1500; ++i) {
        w.write(i);
    }
    done = true;
    reader.join();
    EXPECT_EQ(bad.load(), 0) << "e.g. \"" << example << "\"";
}

void PrintTo(const Writer& w, std::ostream* os) { *os << w.name; }

INSTANTIATE_TEST_SUITE_P(
    Files, WholeFileWrites,
    testing::Values(
        Writer{"CalibrationBlock", "/data/system/velmoGR.ini",
               [](int i) {
                   set_block(i);
                   save_calibration();
               },
               [](const std::string& t) { return lines_of(t, 15, ' ', 1); }},
        Writer{"RawSamples", "/data/system/acc_mag_raw.txt",
               [](int i) {
                   IMU s{};
                   s.acc_raw[2] = static_cast<float>(i);
                   s.mag_raw[1] = 20.0F;
                   if (i % 240 == 0) {
                       imu::run_file_state().raw_file_started = 0;  // a new run
                   }
                   imu::save_acc_mag_raw(&s);
               },
               [](const std::string& t) { return lines_of(t, 6, '\t', 1); }},
        Writer{"CalibratorRequest", "/data/system/velmo_calibrator_s.ini",
               [](int) { creat_app_calibration_file(); },
               [](const std::string& t) { return t == "0\n"; }},
        Writer{"AirMouseSettings", "/data/system/velmoAR.ini",
               [](int i) {
                   const float v[3] = {static_cast<float>(i % 2), 1920.0F + static_cast<float>(i),
                                       1080.0F};
                   write_screen_position_resolution(v);
               },
               [](const std::string& t) { return lines_of(t, 3, ' ', 1); }}),
    [](const testing::TestParamInfo<Writer>& info) { return std::string(info.param.name); });

}  // namespace
