// A minimal sensor service: it loads libimu.so at run time, as a phone's
// sensor service does, switches on the orientation and gravity outputs,
// pushes a short synthetic sequence (a phone lying still, turned by 90 deg
// about the vertical, held again) and prints the two slots every 0.5 s.
//
// It reaches the library only through the exported C names of
// imu/service.h, looked up with dlsym; the header supplies their types.
//
// Usage: sensor_service [--library PATH] [--root DIR]
//   --library  the libimu.so to load (default: $IMU_LIBRARY, else the one
//              this program was built against)
//   --root     host builds only: the folder under which the library keeps
//              its files instead of /data (imu_host_set_root)

#include <dlfcn.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "imu/service.h"

#ifndef SENSOR_SERVICE_LIBRARY
#define SENSOR_SERVICE_LIBRARY "libimu.so"
#endif

namespace {

// The service entry points, typed by the header; nothing is linked.
struct FusionApi {
    decltype(&set_fusiond_moed) set_mode = nullptr;
    decltype(&control_fusiond) control = nullptr;
    decltype(&input_raw_data) input = nullptr;
    decltype(&get_fusiond_data) get = nullptr;
};

// Mode 2: the caller pushes all three motion sensors itself and gives each
// gyroscope sample the time since the previous one.
constexpr int kModeCallerPushesAll = 2;
// Input types, and the virtual sensors read here.
constexpr int kTypeGyro = 0;
constexpr int kTypeAcc = 6;
constexpr int kTypeMag = 7;
constexpr int kGravity = 2;
constexpr int kOrientation = 4;

constexpr int kRateHz = 200;
constexpr long long kIntervalNs = 1000000000LL / kRateHz;
constexpr int kPrintEvery = kRateHz / 2;
constexpr double kPi = 3.14159265358979323846;
constexpr float kG = 9.80665F;
// Earth's field where the phone is: 20 uT north, 40 uT down.
constexpr double kFieldNorth = 20.0;
constexpr double kFieldDown = 40.0;

struct Phase {
    const char* name;
    double seconds;
    double yaw_rate_deg_s;  // about the vertical, counter-clockwise from above
};

// Lying flat, screen up, top edge north; then a quarter turn to the left.
constexpr Phase kScript[] = {
    {"still", 2.0, 0.0},
    {"turn", 1.0, 90.0},
    {"hold", 1.0, 0.0},
};

void* must_find(void* lib, const char* name) {
    void* sym = dlsym(lib, name);
    if (sym == nullptr) {
        std::fprintf(stderr, "sensor_service: libimu.so lacks %s\n", name);
        std::exit(1);
    }
    return sym;
}

// Pushes one sample set of a phone lying flat with its top edge yaw rad
// counter-clockwise from north, turning at rate rad/s; the gyroscope
// sample runs the fusion cycle.
void push(const FusionApi& api, double yaw, double rate) {
    float acc[3] = {0.0F, 0.0F, kG};
    float mag[3] = {static_cast<float>(kFieldNorth * std::sin(yaw)),
                    static_cast<float>(kFieldNorth * std::cos(yaw)),
                    static_cast<float>(-kFieldDown)};
    float gyro[3] = {0.0F, 0.0F, static_cast<float>(rate)};
    api.input(kTypeAcc, acc, 0);
    api.input(kTypeMag, mag, 0);
    api.input(kTypeGyro, gyro, kIntervalNs);
}

void print_slots(const FusionApi& api, double t, const char* phase) {
    float o[3] = {0.0F, 0.0F, 0.0F};
    float g[3] = {0.0F, 0.0F, 0.0F};
    api.get(kOrientation, o);
    api.get(kGravity, g);
    std::printf("%.3f %s %.1f %.1f %.1f %.3f %.3f %.3f\n", t, phase,
                static_cast<double>(o[0]), static_cast<double>(o[1]), static_cast<double>(o[2]),
                static_cast<double>(g[0]), static_cast<double>(g[1]), static_cast<double>(g[2]));
}

int usage() {
    std::fprintf(stderr, "usage: sensor_service [--library PATH] [--root DIR]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const char* path = std::getenv("IMU_LIBRARY");
    if (path == nullptr || *path == '\0') {
        path = SENSOR_SERVICE_LIBRARY;
    }
    const char* root = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (i + 1 < argc && std::strcmp(argv[i], "--library") == 0) {
            path = argv[++i];
        } else if (i + 1 < argc && std::strcmp(argv[i], "--root") == 0) {
            root = argv[++i];
        } else {
            return usage();
        }
    }

    // The service runs a thread inside the library for the rest of the
    // process, so the library is never closed again.
    void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) {
        std::fprintf(stderr, "sensor_service: %s\n", dlerror());
        return 1;
    }
    if (root != nullptr) {
        using SetRoot = void (*)(const char*);
        reinterpret_cast<SetRoot>(must_find(lib, "imu_host_set_root"))(root);
    }
    FusionApi api;
    api.set_mode = reinterpret_cast<decltype(api.set_mode)>(must_find(lib, "set_fusiond_moed"));
    api.control = reinterpret_cast<decltype(api.control)>(must_find(lib, "control_fusiond"));
    api.input = reinterpret_cast<decltype(api.input)>(must_find(lib, "input_raw_data"));
    api.get = reinterpret_cast<decltype(api.get)>(must_find(lib, "get_fusiond_data"));

    api.set_mode(kModeCallerPushesAll);
    api.control(kOrientation, 1);
    api.control(kGravity, 1);

    std::printf("# time_s phase azimuth_deg pitch_deg roll_deg gravity_x gravity_y gravity_z\n");
    double yaw = 0.0;
    long sample = 0;
    for (const Phase& phase : kScript) {
        const double rate = phase.yaw_rate_deg_s * kPi / 180.0;
        const long n = std::lround(phase.seconds * kRateHz);
        for (long k = 0; k < n; ++k) {
            yaw += rate / kRateHz;
            push(api, yaw, rate);
            if (++sample % kPrintEvery == 0) {
                print_slots(api, static_cast<double>(sample) / kRateHz, phase.name);
            }
        }
    }

    api.control(kOrientation, 0);
    api.control(kGravity, 0);
    return 0;
}
