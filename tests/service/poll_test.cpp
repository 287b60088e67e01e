// The sensor poll thread on the simulated sensor hub: which platform sensors
// it keeps on, where their events go per mode, and how it ends.

#include <android/sensor.h>

#include "service_fixture.h"

namespace imu::test {
namespace {

constexpr int kAccType = ASENSOR_TYPE_ACCELEROMETER;
constexpr int kMagType = ASENSOR_TYPE_MAGNETIC_FIELD;
constexpr int kGyroType = ASENSOR_TYPE_GYROSCOPE;
constexpr int kLightType = ASENSOR_TYPE_LIGHT;
constexpr int kProxType = ASENSOR_TYPE_PROXIMITY;

class PollTest : public ServiceTest {
protected:
    void SetUp() override {
        for (const int t : {kAccType, kMagType, kGyroType, kLightType, kProxType}) {
            imu_host_sensor_set_present(t, 1);
        }
    }

    static bool enabled(int type) { return imu_host_sensor_enabled(type) == 1; }

    // Posts until the thread has taken the event into the service (the hub
    // drops events of sensors not enabled yet).
    static void post_until(int type, Triple v, const std::function<bool()>& arrived) {
        ASSERT_TRUE(wait_until([&] {
            imu_host_sensor_post(type, v.data(), 3, 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return arrived();
        }));
    }

    Triple raw(int index) {
        velmofusion& s = svc();
        const std::lock_guard<std::mutex> lock(s.data_mutex);
        return {s.fusion_data[index].raw[0], s.fusion_data[index].raw[1],
                s.fusion_data[index].raw[2]};
    }
};

// An absent sensor is never enabled.
TEST_F(PollTest, TapEnablesMotionSensorsAtFiveMilliseconds) {
    imu_host_sensor_set_present(kMagType, 0);
    control_fusiond(kTap, 1);
    ASSERT_TRUE(wait_until([] { return enabled(kAccType) && enabled(kGyroType); }));
    EXPECT_EQ(imu_host_sensor_period_us(kAccType), 5000);
    EXPECT_EQ(imu_host_sensor_period_us(kGyroType), 5000);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(enabled(kMagType) || enabled(kLightType) || enabled(kProxType));
    EXPECT_EQ(svc().sensors_active.load(), kActiveAcc | kActiveGyro);
}

TEST_F(PollTest, ModeZeroRoutesEveryAmbientAndMotionEvent) {
    control_fusiond(kRaiseUp, 1);
    post_until(kAccType, {0.5F, 0.25F, 9.5F}, [&] { return raw(kAcceleration)[2] == 9.5F; });
    EXPECT_EQ(svc().acc_data_ready.load(), 1);
    EXPECT_EQ(slot(kAcceleration), (Triple{0.0F, 0.0F, 0.0F}));  // report: pushed samples only
    post_until(kMagType, {20.0F, 1.0F, -41.0F}, [&] { return raw(kMagnetic)[2] == -41.0F; });
    EXPECT_EQ(svc().mag_data_ready.load(), 1);
    post_until(kLightType, {120.0F, 0.0F, 0.0F}, [] { return slot(kLight)[0] == 120.0F; });
    post_until(kProxType, {5.0F, 1.0F, 2.0F}, [] { return slot(kProximity)[0] == 5.0F; });
    EXPECT_EQ(slot(kProximity), (Triple{5.0F, 1.0F, 2.0F}));
    // Gyroscope events never reach slot 0 (an accelerometer event posted
    // after them arrives after them).
    const float g[3] = {1.0F, 2.0F, 3.0F};
    for (int i = 0; i < 5; ++i) {
        imu_host_sensor_post(kGyroType, g, 3, i);
    }
    post_until(kAccType, {0.0F, 0.0F, 9.0F}, [&] { return raw(kAcceleration)[2] == 9.0F; });
    EXPECT_EQ(raw(kGyro), (Triple{0.0F, 0.0F, 0.0F}));
}

// Modes other than 0: which events still reach the table.
struct RouteCase {
    int mode;
    bool ambient;
};

class ModeRouting : public PollTest, public testing::WithParamInterface<RouteCase> {};

TEST_P(ModeRouting, DropsMotionAndMaybeAmbient) {
    const RouteCase& c = GetParam();
    control_fusiond(kRaiseUp, 1);  // mode 0 starts the thread with light on
    ASSERT_TRUE(wait_until([] { return enabled(kLightType) && enabled(kAccType); }));
    svc().fusiond_mode.store(c.mode);
    const struct {
        int type;
        float v[3];
    } events[] = {{kAccType, {0.0F, 0.0F, 9.0F}}, {kMagType, {20.0F, 0.0F, -40.0F}},
                  {kLightType, {77.0F, 0.0F, 0.0F}}, {kProxType, {3.0F, 0.0F, 0.0F}}};
    for (const auto& e : events) {
        ASSERT_EQ(imu_host_sensor_post(e.type, e.v, 3, 1), 1);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(raw(kAcceleration), (Triple{0.0F, 0.0F, 0.0F}));
    EXPECT_EQ(raw(kMagnetic), (Triple{0.0F, 0.0F, 0.0F}));
    EXPECT_EQ(svc().acc_data_ready.load() + svc().mag_data_ready.load(), 0);
    EXPECT_EQ(slot(kLight)[0], c.ambient ? 77.0F : 0.0F);
    EXPECT_EQ(slot(kProximity)[0], c.ambient ? 3.0F : 0.0F);
}

INSTANTIATE_TEST_SUITE_P(Modes, ModeRouting,
                         testing::Values(RouteCase{1, false}, RouteCase{2, true},
                                         RouteCase{3, false}, RouteCase{4, true},
                                         RouteCase{5, false}, RouteCase{7, false}));

// Light and proximity stay on (20 ms) while raise-up or put-down wants them;
// with everything off all sensors are off, the ready flags cleared, and
// the thread idles until wanted again.
TEST_F(PollTest, SensorsFollowTheMasksAndEverythingOffWindsDown) {
    for (const int index : {kTap, kRaiseUp, kPutDown}) control_fusiond(index, 1);
    ASSERT_TRUE(wait_until([] { return enabled(kLightType) && enabled(kProxType); }));
    EXPECT_EQ(imu_host_sensor_period_us(kLightType) + imu_host_sensor_period_us(kProxType), 40000);
    push_acc_mag();
    control_fusiond(kRaiseUp, 0);
    EXPECT_EQ(svc().light_enabled.load(), 1U << kPutDown);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(enabled(kLightType));
    control_fusiond(kTap, 0);
    control_fusiond(kPutDown, 0);
    ASSERT_TRUE(wait_until([] {
        return !enabled(kAccType) && !enabled(kMagType) && !enabled(kGyroType) &&
               !enabled(kLightType) && !enabled(kProxType);
    }));
    EXPECT_TRUE(wait_until([&] { return svc().sensors_active.load() == 0; }));
    EXPECT_EQ(svc().acc_data_ready.load() + svc().mag_data_ready.load(), 0);
    EXPECT_TRUE(svc().poll_thread_started.load());
    control_fusiond(kTap, 1);
    EXPECT_TRUE(wait_until([] { return enabled(kAccType); }));
    EXPECT_EQ(log.count("Start pollSensors"), 1);
}

TEST_F(PollTest, ThreadEndsWhenTheObjectIsDestroyed) {
    control_fusiond(kTap, 1);
    ASSERT_TRUE(wait_until([] { return enabled(kAccType); }));
    destroy_service();  // with sensors still on: they are wound down first
    EXPECT_EQ(log.count("velmofusion kill"), 1);
    EXPECT_EQ(log.count("pollSensors Thread end"), 1);
    EXPECT_FALSE(enabled(kAccType));
    // A new object starts a thread of its own.
    control_fusiond(kShake, 1);
    EXPECT_TRUE(wait_until([] { return enabled(kAccType); }));
    EXPECT_TRUE(wait_until([&] { return log.count("Start pollSensors") == 2; }));
}

}  // namespace
}  // namespace imu::test
