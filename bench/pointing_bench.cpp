// Speed of the pointing sample path: one air-mouse step, and one cycle of
// the service's mouse object including its writes to the mouse device (a
// FIFO stand-in, drained as the benchmark runs). Neither allocates.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "imu/host.h"
#include "imu/pointing.h"
#include "pointing/mouse_object.h"
#include "support/alloc_counter.h"

namespace {

// Heap allocations of `calls` calls of fn, counted outside the timed loop
// (the benchmark library allocates for itself at the loop's ends).
template <typename Fn>
void check_allocations(benchmark::State& state, int calls, Fn fn) {
    const imu::test::NoAllocScope scope;
    for (int k = 0; k < calls; ++k) {
        fn();
    }
    const std::uint64_t allocations = scope.allocations();
    state.counters["allocs_per_call"] =
        static_cast<double>(allocations) / static_cast<double>(calls);
    if (allocations != 0) {
        state.SkipWithError("the sample path allocated");
    }
}

void BM_AirUpdatePosture(benchmark::State& state) {
    const float acc[3] = {0.3F, 1.2F, 9.7F};
    float rate[3] = {0.01F, 0.02F, -0.17F};
    float out[3];
    for (int k = 0; k < 100; ++k) {  // past the warm-up
        air_update_posture(rate, acc);
    }
    const auto call = [&] {
        rate[2] = -rate[2];
        air_update_posture(rate, acc);
        getmouse_relative_coordinates(out);
        benchmark::DoNotOptimize(out);
    };
    check_allocations(state, 1000, call);
    for (auto _ : state) {
        call();
    }
}
BENCHMARK(BM_AirUpdatePosture);

// A root folder with the mouse device as a FIFO, and a reader that drains it.
class MouseRoot {
public:
    MouseRoot() {
        char pattern[] = "/tmp/imu-bench-XXXXXX";
        dir_ = ::mkdtemp(pattern) != nullptr ? pattern : "/tmp";
        for (const char* sub : {"/dev", "/dev/input", "/sys", "/sys/class", "/sys/class/input",
                                "/sys/class/input/event3", "/sys/class/input/event3/device"}) {
            ::mkdir((dir_ + sub).c_str(), 0755);
        }
        ::mkfifo((dir_ + "/dev/input/event3").c_str(), 0666);
        std::FILE* f = std::fopen((dir_ + "/sys/class/input/event3/device/name").c_str(), "w");
        if (f != nullptr) {
            std::fputs("VelmoVirtualMouse\n", f);
            std::fclose(f);
        }
        imu_host_set_root(dir_.c_str());
        reader_ = ::open((dir_ + "/dev/input/event3").c_str(), O_RDONLY | O_NONBLOCK);
    }
    ~MouseRoot() {
        imu_host_set_root(nullptr);
        ::close(reader_);
        std::system(("rm -rf " + dir_).c_str());
    }
    MouseRoot(const MouseRoot&) = delete;
    MouseRoot& operator=(const MouseRoot&) = delete;

    void drain() const {
        char buf[4096];
        while (::read(reader_, buf, sizeof buf) > 0) {
        }
    }

private:
    std::string dir_;
    int reader_ = -1;
};

void BM_MouseObjectCycle(benchmark::State& state) {
    // The device is opened once per process, so every run uses the same root.
    static const MouseRoot root;
    imu::velmo_mouse_obj mouse;
    IMU imu{};
    SFC_OUT out{};
    float slot[3];
    imu.gyro[2] = 0.05F;  // rad/s: about 100 pixels per cycle at 1000 us
    mouse.update(&imu, &out, 0, 1000);
    mouse.getdata(slot);  // opens the device
    root.drain();
    unsigned cycles = 0;
    const auto cycle = [&] {
        imu.gyro[2] = -imu.gyro[2];  // back and forth: every cycle moves
        mouse.update(&imu, &out, 0, 1000);
        mouse.getdata(slot);
        benchmark::DoNotOptimize(slot);
        if ((++cycles & 255U) == 0) {
            root.drain();  // 256 cycles write well under the FIFO's 64 KiB
        }
    };
    check_allocations(state, 1000, cycle);
    for (auto _ : state) {
        cycle();
    }
    state.counters["dx"] = slot[0];
}
BENCHMARK(BM_MouseObjectCycle);

}  // namespace
