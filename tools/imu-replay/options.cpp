#include "options.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "replay.h"

#ifndef IMU_REPLAY_SOURCE_DIR
#define IMU_REPLAY_SOURCE_DIR ""
#endif
#ifndef IMU_REPLAY_SHARE_DIR
#define IMU_REPLAY_SHARE_DIR ""
#endif

namespace imu::replay {
namespace {

// A comma-separated list of names or indices; "all" is every virtual
// sensor except the calibration slot, whose enabling starts a calibration
// run and switches the filter to work without the magnetometer.
std::string parse_slots(const std::string& list, std::vector<int>& out) {
    out.clear();
    std::size_t start = 0;
    while (start <= list.size()) {
        const std::size_t comma = std::min(list.find(',', start), list.size());
        const std::string name = list.substr(start, comma - start);
        start = comma + 1;
        if (name == "all") {
            for (int i = 0; i < kSlots; ++i) {
                if (i != kCalibrationSlot) {
                    out.push_back(i);
                }
            }
            continue;
        }
        const int i = slot_index(name);
        if (i < 0) {
            return "unknown virtual sensor '" + name + "' (a name such as Orientation, or 0 to 26)";
        }
        out.push_back(i);
    }
    return "";
}

bool to_int(const std::string& s, int& v) {
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

bool to_double(const std::string& s, double& v) {
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

bool exists(const std::string& path) { return ::access(path.c_str(), R_OK) == 0; }

int remove_entry(const char* path, const struct stat* /*st*/, int /*flag*/, struct FTW* /*ftw*/) {
    return std::remove(path);
}

}  // namespace

const char* usage() {
    return "usage: imu-replay [options] [RECORDING]\n"
           "Replays a recording of a phone's sensors through libimu's service API and\n"
           "prints what the library made of it. Without RECORDING it replays the demo\n"
           "recording and writes its plot next to it.\n"
           "\n"
           "  -s, --sensors LIST   virtual sensors to enable, by name or index, comma-\n"
           "                       separated, or all (default; all but the calibration)\n"
           "  -m, --mode N         service mode 0 to 5 (default 0)\n"
           "      --root DIR       folder for the library's files (default: a fresh\n"
           "                       temporary folder, removed afterwards)\n"
           "  -o, --output FILE    CSV of the chosen slots after every cycle (- for stdout)\n"
           "      --slots LIST     slots in that CSV (default Orientation)\n"
           "  -p, --plot FILE.png  orientation angles over time with gestures and steps\n"
           "      --format F       auto (default), event or wide\n"
           "      --acc-unit U     wide CSV accelerometer unit: m/s2 (default) or g\n"
           "      --gyro-unit U    wide CSV gyroscope unit: rad/s (default) or deg/s\n"
           "      --mag-unit U     wide CSV magnetometer unit: uT (the only one)\n"
           "      --settle S       orientation error counted from S seconds on (default 2)\n"
           "      --no-progress    no progress bar\n"
           "      --log            print the library's log lines on stderr\n"
           "  -h, --help           this text\n";
}

std::string parse_options(const std::vector<std::string>& args, Options& o) {
    o = Options{};
    bool sensors_given = false;
    bool slots_given = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& v) -> std::string {
            if (i + 1 >= args.size()) {
                return a + " needs a value";
            }
            v = args[++i];
            return "";
        };
        std::string v;
        std::string err;
        if (a == "-h" || a == "--help") {
            o.help = true;
        } else if (a == "--no-progress") {
            o.progress = false;
        } else if (a == "--log") {
            o.log = true;
        } else if (a == "-s" || a == "--sensors") {
            err = value(v);
            if (err.empty()) {
                err = parse_slots(v, o.enable);
                sensors_given = true;
            }
        } else if (a == "--slots") {
            err = value(v);
            if (err.empty()) {
                err = parse_slots(v, o.out_slots);
                slots_given = true;
            }
        } else if (a == "-m" || a == "--mode") {
            err = value(v);
            if (err.empty() && (!to_int(v, o.mode) || o.mode < 0 || o.mode > 5)) {
                err = "--mode takes 0 to 5, not '" + v + "'";
            }
        } else if (a == "--root") {
            err = value(o.root);
            if (err.empty() && o.root.empty()) {
                err = "--root needs a folder";
            }
        } else if (a == "-o" || a == "--output") {
            err = value(o.output);
            if (err.empty() && o.output.empty()) {
                err = "--output needs a file";
            }
        } else if (a == "-p" || a == "--plot") {
            err = value(o.plot);
            if (err.empty() && (o.plot.size() < 5 || o.plot.substr(o.plot.size() - 4) != ".png")) {
                err = "--plot takes a file name ending in .png, not '" + o.plot + "'";
            }
        } else if (a == "--format") {
            err = value(v);
            if (err.empty()) {
                if (v == "auto") {
                    o.layout = Layout::kAuto;
                } else if (v == "event") {
                    o.layout = Layout::kEventStream;
                } else if (v == "wide") {
                    o.layout = Layout::kWide;
                } else {
                    err = "--format takes auto, event or wide, not '" + v + "'";
                }
            }
        } else if (a == "--acc-unit") {
            err = value(v);
            if (err.empty() && v != "g" && v != "m/s2") {
                err = "--acc-unit takes g or m/s2, not '" + v + "'";
            }
            o.units.acc_in_g = v == "g";
        } else if (a == "--gyro-unit") {
            err = value(v);
            if (err.empty() && v != "deg/s" && v != "rad/s") {
                err = "--gyro-unit takes deg/s or rad/s, not '" + v + "'";
            }
            o.units.gyro_in_deg = v == "deg/s";
        } else if (a == "--mag-unit") {
            err = value(v);
            if (err.empty() && v != "uT") {
                err = "--mag-unit takes uT, not '" + v + "'";
            }
        } else if (a == "--settle") {
            err = value(v);
            if (err.empty() && (!to_double(v, o.settle_s) || !(o.settle_s >= 0.0))) {
                err = "--settle takes seconds (0 or more), not '" + v + "'";
            }
        } else if (a.size() > 1 && a[0] == '-' && a != "-") {
            err = "unknown option " + a;
        } else if (!o.input.empty()) {
            err = "one recording at a time ('" + o.input + "' and '" + a + "')";
        } else {
            o.input = a;
        }
        if (!err.empty()) {
            return err;
        }
    }
    if (!sensors_given) {
        parse_slots("all", o.enable);
    }
    // Indices 0 and 6 set no enable bit, and with none set no cycle runs.
    bool sets_a_bit = false;
    for (const int i : o.enable) {
        sets_a_bit = sets_a_bit || (i != 0 && i != 6);
    }
    if (!sets_a_bit) {
        return "--sensors needs a virtual sensor besides Gyro and Acceleration (they only "
               "prepare; no cycle runs without another)";
    }
    if (!slots_given) {
        o.out_slots = {kOrientationSlot};
    }
    return "";
}

// <prefix>/share/imu of an installed program: next to its bin folder.
static std::string share_dir_of_program() {
    char exe[4096];
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) {
        return "";
    }
    std::string dir(exe, static_cast<std::size_t>(n));
    dir.resize(dir.rfind('/') == std::string::npos ? 0 : dir.rfind('/'));
    return dir + "/../share/imu";
}

std::string find_demo() {
    for (const std::string& dir : {std::string(IMU_REPLAY_SOURCE_DIR) + "/data",
                                  share_dir_of_program(), std::string(IMU_REPLAY_SHARE_DIR)}) {
        if (dir.size() > 5 && exists(dir + "/demo.csv")) {
            return dir + "/demo.csv";
        }
    }
    return "";
}

std::string plot_next_to(const std::string& recording) {
    const std::size_t slash = recording.rfind('/');
    const std::size_t dot = recording.rfind('.');
    const bool has_ext = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return (has_ext ? recording.substr(0, dot) : recording) + ".png";
}

std::string prepare_root(const std::string& dir) {
    for (const char* sub : {"", "/data", "/data/system", "/data/velmo", "/dev", "/dev/input",
                            "/sys", "/sys/class", "/sys/class/input"}) {
        const std::string path = dir + sub;
        if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
            return path + ": cannot make the folder (" + std::strerror(errno) + ")";
        }
    }
    return "";
}

std::string make_temp_root() {
    const char* tmp = std::getenv("TMPDIR");
    std::string tmpl = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") +
                       "/imu-replay-root-XXXXXX";
    if (::mkdtemp(tmpl.data()) == nullptr) {
        return "";
    }
    // The air mouse writes its events to a device of this name; in a fresh
    // root they go to /dev/null instead of failing once per cycle.
    const std::string name_dir = tmpl + "/sys/class/input/event0/device";
    std::FILE* f = nullptr;
    if (!prepare_root(tmpl).empty() ||
        ::symlink("/dev/null", (tmpl + "/dev/input/event0").c_str()) != 0 ||
        ::mkdir((tmpl + "/sys/class/input/event0").c_str(), 0755) != 0 ||
        ::mkdir(name_dir.c_str(), 0755) != 0 ||
        (f = std::fopen((name_dir + "/name").c_str(), "w")) == nullptr ||
        std::fputs("VelmoVirtualMouse\n", f) < 0 || std::fclose(f) != 0) {
        remove_tree(tmpl);
        return "";
    }
    return tmpl;
}

void remove_tree(const std::string& dir) {
    ::nftw(dir.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
}

}  // namespace imu::replay
