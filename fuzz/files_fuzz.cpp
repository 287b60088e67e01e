// Every text file the library reads, with arbitrary contents, through the
// library's own readers; then the matching writer, whose file must be whole
// lines in its format that read back to the same text.
//
// Input: byte 0 picks the file (low 3 bits) and whether it is there (bits
// 3-4: contents, missing, a folder in its place); the rest is the contents.

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "calibration/calibration_block.h"
#include "calibration/run_files.h"
#include "fuzz_support.h"
#include "imu/calibration.h"
#include "imu/pointing.h"
#include "service/velmofusion.h"

namespace {

using imu::fuzz::check;

constexpr const char* kFiles[] = {
    "/data/system/velmoGR.ini",           "/data/system/acc_mag_raw.txt",
    "/data/system/velmo_calibrator_s.ini", "/data/system/velmoAR.ini",
    "/data/system/show_velmo_log.ini",    "/data/system/velmo_screen_resolution",
};

// The file holds exactly `lines` lines, each ended by a newline, and every
// line has `fields` fields separated by sep.
bool whole_lines(const std::string& text, int lines, int fields, char sep) {
    if (text.empty() || text.back() != '\n') {
        return false;
    }
    int n_lines = 0;
    int n_fields = 1;
    for (char c : text) {
        if (c == '\n') {
            if (n_fields != fields) {
                return false;
            }
            ++n_lines;
            n_fields = 1;
        } else if (c == sep) {
            ++n_fields;
        }
    }
    return n_lines == lines;
}

std::string contents(const char* rel) {
    std::string text;
    check(imu::fuzz::read_file(rel, &text), "written file is readable");
    return text;
}

void calibration_block() {
    const int r = read_calibration();
    check(r <= 0, "read_calibration result");
    for (float v : imu::calibration_state().s_calib2) {
        check(std::isfinite(v), "calibration block stays finite");
    }
    check(save_calibration() == 0, "save_calibration");
    const std::string first = contents(kFiles[0]);
    check(whole_lines(first, 1, 15, ' '), "calibration file is one line of 15 fields");
    check(read_calibration() == 0, "saved calibration reads back");
    check(save_calibration() == 0, "second save_calibration");
    check(contents(kFiles[0]) == first, "calibration file round trip");
}

void raw_samples(imu::fuzz::Bytes& in) {
    const int r = imu::read_acc_mag_raw();
    check(r <= 0, "read_acc_mag_raw result");
    IMU sample{};
    in.triple(sample.acc_raw, 0.0F, 0.0F, 9.8F);
    in.triple(sample.mag_raw, 0.0F, 20.0F, -40.0F);
    imu::run_file_state().raw_file_started = 0;  // a new run: the file is replaced
    check(imu::save_acc_mag_raw(&sample) == 0, "save_acc_mag_raw");
    check(imu::save_acc_mag_raw(&sample) == 0, "second save_acc_mag_raw");
    const std::string text = contents(kFiles[1]);
    check(whole_lines(text, 2, 6, '\t'), "raw sample file is two lines of six fields");
    check(text.substr(0, text.size() / 2) == text.substr(text.size() / 2), "lines repeat");
}

void request_file() {
    (void)check_app_calibration_file();
    (void)creat_app_calibration_file();
    check(contents(kFiles[2]) == "0\n", "request file holds 0");
    struct stat st{};
    check(::stat((imu::fuzz::setup_root() + kFiles[2]).c_str(), &st) == 0, "request file");
    check((st.st_mode & 07777) == 0777, "request file mode 0777");
}

void air_mouse_settings() {
    float values[3] = {7.0F, 7.0F, 7.0F};
    (void)read_screen_position_resolution(values);
    (void)set_screen_position_resolution();
    check(write_screen_position_resolution(values) == 0, "write settings");
    const std::string first = contents(kFiles[3]);
    check(whole_lines(first, 1, 3, ' '), "settings file is one line of three fields");
    float again[3] = {0.0F, 0.0F, 0.0F};
    check(read_screen_position_resolution(again) == 0, "written settings read back");
    check(write_screen_position_resolution(again) == 0, "rewrite settings");
    check(contents(kFiles[3]) == first, "settings file round trip");
}

void show_log_switch() {
    const int r = imu::service()->check_log_type();
    check(r == 0 || r == 1, "check_log_type result");
}

void screen_resolution(bool present) {
    imu::velmofusion* svc = imu::service();
    (void)svc->load_screen_resolution();
    if (!present) {
        // A missing file is created with the current size, as one line.
        const std::string text = contents(kFiles[5]);
        check(text.back() == '\n' && text.rfind("screen_resolution:", 0) == 0,
              "screen resolution file is created whole");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    imu::fuzz::setup_root();
    imu::fuzz::Bytes in(data, size);
    const std::uint8_t sel = in.u8();
    const int file = (sel & 7) % 6;
    const int presence = (sel >> 3) & 3;  // 0, 3 contents; 1 missing; 2 folder
    const std::string full = imu::fuzz::setup_root() + kFiles[file];
    imu::fuzz::remove_file(kFiles[file]);
    if (presence == 2) {
        ::mkdir(full.c_str(), 0755);
    } else if (presence != 1) {
        const std::size_t n = size > 0 ? size - 1 : 0;
        imu::fuzz::write_file(kFiles[file], data + (size - n), n);
    }
    if (presence == 2) {
        // Readers and writers fail on a folder; only the readers run.
        (void)read_calibration();
        (void)imu::read_acc_mag_raw();
        (void)check_app_calibration_file();
        float v[3];
        (void)read_screen_position_resolution(v);
        (void)imu::service()->check_log_type();
        (void)imu::service()->load_screen_resolution();
        ::rmdir(full.c_str());
        return 0;
    }
    switch (file) {
        case 0:
            calibration_block();
            break;
        case 1:
            raw_samples(in);
            break;
        case 2:
            request_file();
            break;
        case 3:
            air_mouse_settings();
            break;
        case 4:
            show_log_switch();
            break;
        default:
            screen_resolution(presence != 1);
            break;
    }
    return 0;
}
