#include "support/replay_csv.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace imu::test {
namespace {

constexpr double kStandardGravity = 9.80665;
constexpr double kRadToDeg = 57.29577951308232;

long long to_ns(double t_s) { return std::llround(t_s * 1e9); }

}  // namespace

std::string event_stream_csv(const std::vector<sim::Sample>& samples, int mag_every) {
    std::string out = "timestamp_ns,sensor,x,y,z,true_qw,true_qx,true_qy,true_qz\n";
    char line[256];
    int k = 0;
    for (const sim::Sample& s : samples) {
        const long long t = to_ns(s.t_s);
        auto row = [&](const char* sensor, const float* v) {
            std::snprintf(line, sizeof line, "%lld,%s,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g\n", t,
                          sensor, double{v[0]}, double{v[1]}, double{v[2]}, s.truth.w, s.truth.x,
                          s.truth.y, s.truth.z);
            out += line;
        };
        row("acc", s.acc);
        if (k++ % mag_every == 0) {
            row("mag", s.mag);
        }
        row("gyro", s.gyro);
    }
    return out;
}

std::string wide_csv(const std::vector<sim::Sample>& samples, bool acc_in_g, bool gyro_in_deg) {
    std::string out = "t_s,acc_x,acc_y,acc_z,gyro_x,gyro_y,gyro_z,mag_x,mag_y,mag_z,q_w,q_x,q_y,q_z\n";
    const double a = acc_in_g ? 1.0 / kStandardGravity : 1.0;
    const double g = gyro_in_deg ? kRadToDeg : 1.0;
    char line[512];
    for (const sim::Sample& s : samples) {
        std::snprintf(line, sizeof line,
                      "%.6f,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g\n",
                      s.t_s, s.acc[0] * a, s.acc[1] * a, s.acc[2] * a, s.gyro[0] * g,
                      s.gyro[1] * g, s.gyro[2] * g, double{s.mag[0]}, double{s.mag[1]},
                      double{s.mag[2]}, s.truth.w, s.truth.x, s.truth.y, s.truth.z);
        out += line;
    }
    return out;
}

std::string write_temp_file(const std::string& text, const std::string& suffix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string path = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") +
                       "/imu-replay-test-XXXXXX" + suffix;
    const int fd = ::mkstemps(path.data(), static_cast<int>(suffix.size()));
    if (fd < 0) {
        return "";
    }
    const ssize_t n = ::write(fd, text.data(), text.size());
    ::close(fd);
    return n == static_cast<ssize_t>(text.size()) ? path : "";
}

}  // namespace imu::test
