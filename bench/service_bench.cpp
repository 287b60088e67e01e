// One fusion cycle of the service as a sensor service drives it: the
// accelerometer and magnetometer samples, then the gyroscope sample that
// runs the cycle, with every virtual sensor enabled and the air mouse
// writing to its device (a FIFO drained by a thread of the benchmark).
// Reports the heap allocations per cycle.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "bench_recording.h"
#include "imu/host.h"
#include "imu/service.h"
#include "service/velmofusion.h"
#include "support/alloc_counter.h"
#include "support/temp_root.h"

namespace {

// Reads and drops whatever the library writes into the mouse FIFO.
class FifoDrain {
public:
    explicit FifoDrain(const std::string& path)
        : fd_(::open(path.c_str(), O_RDONLY | O_NONBLOCK)), thread_([this] { run(); }) {}
    ~FifoDrain() {
        stop_.store(true);
        thread_.join();
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FifoDrain(const FifoDrain&) = delete;
    FifoDrain& operator=(const FifoDrain&) = delete;

private:
    void run() {
        char buf[4096];
        while (!stop_.load()) {
            if (fd_ < 0 || ::read(fd_, buf, sizeof buf) <= 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        }
    }
    int fd_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

constexpr int kInterval = 5000000;  // ns, mode 2 takes intervals

// One root, mouse FIFO and service for the whole program: the library
// opens the mouse device once per process, so the FIFO must outlive every
// repetition. The service goes first, then the drain, then the root.
struct Setup {
    imu::test::TempRoot root;
    FifoDrain drain;
    std::vector<imu::sim::Sample> rec = imu::bench::turning_loop();
    std::size_t k = 0;

    Setup()
        : drain((root.make_input_device("event2", "VelmoVirtualMouse"),
                 root.path("/dev/input/event2"))) {
        imu_host_set_log_sink([](int, const char*, const char*, void*) {}, nullptr);
        set_fusiond_moed(2);  // the caller pushes every sample
        for (int i = 0; i < imu::kSlotCount; ++i) {
            control_fusiond(i, 1);
        }
        for (int i = 0; i < 20; ++i) {  // past the startup log and the first update
            cycle();
        }
    }
    ~Setup() {
        imu::destroy_service();
        imu_host_set_log_sink(nullptr, nullptr);
    }
    Setup(const Setup&) = delete;
    Setup& operator=(const Setup&) = delete;

    __attribute__((noinline)) void cycle() {
        imu::sim::Sample s = rec[k];
        k = k + 1 == rec.size() ? 0 : k + 1;
        input_raw_data(6, s.acc, 0);
        input_raw_data(7, s.mag, 0);
        input_raw_data(0, s.gyro, kInterval);
    }
};

void BM_ServiceCycle(benchmark::State& state) {
    static Setup setup;
    const std::uint64_t allocations = imu::test::allocation_count();
    for (auto _ : state) {
        setup.cycle();
    }
    state.counters["allocs_per_cycle"] =
        benchmark::Counter(static_cast<double>(imu::test::allocation_count() - allocations),
                           benchmark::Counter::kAvgIterations);
    state.counters["enabled"] = static_cast<double>(imu::service()->mEnabled.load());
}
BENCHMARK(BM_ServiceCycle)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace
