// Control calls, mode changes and slot reads from several threads while
// samples are pushed and the poll thread takes the hub's events; then the
// poll thread ends with the service. Under tsan a race fails the run.

#include <android/sensor.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "service_fixture.h"

namespace imu::test {
namespace {

class StressTest : public ServiceTest {};

TEST_F(StressTest, ControlModesReadsSamplesAndPollThreadTogether) {
    const int threads_before = thread_count();
    std::atomic<bool> stop{false};
    std::atomic<long> cycles{0};
    std::vector<std::thread> threads;
    set_fusiond_moed(2);
    for (int i = 0; i < kSlotCount; ++i) {
        control_fusiond(i, 1);
    }
    // The caller's samples, the hub's events, two control threads, two readers.
    threads.emplace_back([&] {
        for (long n = 0; !stop.load(); ++n) {
            const float t = static_cast<float>(n) * 0.005F;
            push(6, 0.3F * std::sin(t), 0.2F, 9.8F);
            push(7, 8.0F, 20.0F, -40.0F);
            push(0, 0.4F * std::sin(3.0F * t), 0.0F, 0.1F, 5000000);
            cycles.fetch_add(1);
        }
    });
    threads.emplace_back([&] {
        const float acc[3] = {0.0F, 0.0F, 9.8F};
        const float mag[3] = {8.0F, 20.0F, -40.0F};
        const float light[3] = {100.0F, 0.0F, 0.0F};
        for (long n = 0; !stop.load(); ++n) {
            imu_host_sensor_post(ASENSOR_TYPE_ACCELEROMETER, acc, 3, n);
            imu_host_sensor_post(ASENSOR_TYPE_MAGNETIC_FIELD, mag, 3, n);
            imu_host_sensor_post(ASENSOR_TYPE_LIGHT, light, 1, n);
            imu_host_sensor_post(ASENSOR_TYPE_PROXIMITY, light, 1, n);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (int c = 0; c < 2; ++c) {
        threads.emplace_back([&, c] {
            for (unsigned n = 0; !stop.load(); ++n) {
                const int index = static_cast<int>((n * 7 + static_cast<unsigned>(c) * 13) % 28);
                control_fusiond(index, (n / 28 + static_cast<unsigned>(c)) % 2 == 0 ? 1 : 0);
                if (n % 50 == 0) {
                    set_fusiond_moed(static_cast<int>((n / 50) % 6));
                }
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    std::atomic<int> bad{0};
    for (int r = 0; r < 2; ++r) {
        threads.emplace_back([&] {
            while (!stop.load()) {
                for (int i = 0; i < kSlotCount; ++i) {
                    float out[3] = {NAN, NAN, NAN};
                    get_fusiond_data(i, out);
                    bad += std::isnan(out[0]) && i != kAirMouse ? 1 : 0;
                }
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    stop = true;
    for (std::thread& t : threads) t.join();
    EXPECT_GT(cycles.load(), 100);
    EXPECT_EQ(bad.load(), 0) << "every slot read gives three numbers";
    destroy_service();
    EXPECT_TRUE(wait_until([&] { return thread_count() <= threads_before; }))
        << "the poll thread has ended";
}

}  // namespace
}  // namespace imu::test
