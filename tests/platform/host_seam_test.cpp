// The host stand-ins for the Android sensor, looper, log and thread APIs.

#include <android/log.h>
#include <android/looper.h>
#include <android/sensor.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/AndroidThreads.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "imu/host.h"
#include "platform/input_device.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr int kIdent = 9;

// A queue on this thread's looper, as the poll thread makes one.
struct Queue {
    ASensorManager* manager = ASensorManager_getInstance();
    ALooper* looper = ALooper_prepare(ALOOPER_PREPARE_ALLOW_NON_CALLBACKS);
    ASensorEventQueue* queue =
        ASensorManager_createEventQueue(manager, looper, kIdent, nullptr, nullptr);
    ~Queue() { ASensorManager_destroyEventQueue(manager, queue); }
    ASensor const* sensor(int type) const { return ASensorManager_getDefaultSensor(manager, type); }
};

TEST(SensorHub, EnabledSensorDeliversEventsOneAtATimeInOrder) {
    Queue q;
    ASensor const* acc = q.sensor(ASENSOR_TYPE_ACCELEROMETER);
    ASSERT_NE(acc, nullptr);
    ASSERT_EQ(ASensorEventQueue_enableSensor(q.queue, acc), 0);
    for (int i = 0; i < 3; ++i) {
        const float v[3] = {1.0F + static_cast<float>(i), 2.0F, 9.8F};
        ASSERT_EQ(imu_host_sensor_post(ASENSOR_TYPE_ACCELEROMETER, v, 3, 1000 * (i + 1)), 1);
    }
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(ALooper_pollAll(0, nullptr, nullptr, nullptr), kIdent);
        ASensorEvent e{};
        ASSERT_EQ(ASensorEventQueue_getEvents(q.queue, &e, 1), 1);
        EXPECT_EQ(e.type, ASENSOR_TYPE_ACCELEROMETER);
        EXPECT_EQ(e.timestamp, 1000 * (i + 1));
        EXPECT_EQ(e.data[0], 1.0F + static_cast<float>(i));
        EXPECT_EQ(e.data[1], 2.0F);
        EXPECT_EQ(e.data[2], 9.8F);
    }
    ASensorEvent e{};
    EXPECT_EQ(ASensorEventQueue_getEvents(q.queue, &e, 1), 0);
    EXPECT_LT(ALooper_pollAll(0, nullptr, nullptr, nullptr), 0);
}

TEST(SensorHub, DisabledOrAbsentSensorQueuesNothing) {
    Queue q;
    const float v[3] = {1, 2, 3};
    EXPECT_EQ(imu_host_sensor_post(ASENSOR_TYPE_GYROSCOPE, v, 3, 1), 0);
    ASensor const* gyro = q.sensor(ASENSOR_TYPE_GYROSCOPE);
    ASSERT_EQ(ASensorEventQueue_enableSensor(q.queue, gyro), 0);
    ASSERT_EQ(ASensorEventQueue_disableSensor(q.queue, gyro), 0);
    EXPECT_EQ(imu_host_sensor_post(ASENSOR_TYPE_GYROSCOPE, v, 3, 2), 0);
    EXPECT_EQ(imu_host_sensor_post(3, v, 3, 3), 0);  // no such type
    EXPECT_LT(ALooper_pollAll(0, nullptr, nullptr, nullptr), 0);

    imu_host_sensor_set_present(ASENSOR_TYPE_LIGHT, 0);
    EXPECT_EQ(q.sensor(ASENSOR_TYPE_LIGHT), nullptr);
    EXPECT_EQ(ASensorEventQueue_enableSensor(q.queue, nullptr), -22);
    imu_host_sensor_set_present(ASENSOR_TYPE_LIGHT, 1);
    EXPECT_NE(q.sensor(ASENSOR_TYPE_LIGHT), nullptr);
}

TEST(SensorHub, ReportsEnabledStateAndRequestedPeriod) {
    Queue q;
    ASensor const* prox = q.sensor(ASENSOR_TYPE_PROXIMITY);
    EXPECT_EQ(imu_host_sensor_enabled(ASENSOR_TYPE_PROXIMITY), 0);
    EXPECT_EQ(imu_host_sensor_period_us(ASENSOR_TYPE_PROXIMITY), 0);
    ASensorEventQueue_enableSensor(q.queue, prox);
    ASensorEventQueue_setEventRate(q.queue, prox, 20000);
    EXPECT_EQ(imu_host_sensor_enabled(ASENSOR_TYPE_PROXIMITY), 1);
    EXPECT_EQ(imu_host_sensor_period_us(ASENSOR_TYPE_PROXIMITY), 20000);
    ASensorEventQueue_disableSensor(q.queue, prox);
    EXPECT_EQ(imu_host_sensor_enabled(ASENSOR_TYPE_PROXIMITY), 0);
}

TEST(SensorHub, DestroyedQueueStopsReceiving) {
    auto* q = new Queue;
    ASensorEventQueue_enableSensor(q->queue, q->sensor(ASENSOR_TYPE_MAGNETIC_FIELD));
    delete q;
    const float v[3] = {1, 2, 3};
    EXPECT_EQ(imu_host_sensor_post(ASENSOR_TYPE_MAGNETIC_FIELD, v, 3, 1), 0);
    EXPECT_EQ(imu_host_sensor_enabled(ASENSOR_TYPE_MAGNETIC_FIELD), 0);
}

TEST(SensorHub, PollWithoutLooperIsAnError) {
    int result = 0;
    std::thread([&] { result = ALooper_pollAll(0, nullptr, nullptr, nullptr); }).join();
    EXPECT_EQ(result, ALOOPER_POLL_ERROR);
}

TEST(SensorHub, PollWithTimeoutWakesForAnEventFromAnotherThread) {
    Queue q;
    ASensorEventQueue_enableSensor(q.queue, q.sensor(ASENSOR_TYPE_LIGHT));
    std::thread poster([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const float v[1] = {120.0F};
        imu_host_sensor_post(ASENSOR_TYPE_LIGHT, v, 1, 5);
    });
    EXPECT_EQ(ALooper_pollAll(5000, nullptr, nullptr, nullptr), kIdent);
    poster.join();
}

TEST(HostLog, LinesReachTheSinkWithPriorityTagAndText) {
    imu::test::LogCapture log;
    __android_log_print(ANDROID_LOG_ERROR, "VLM_SFC", "value %d of %s", 7, "x");
    __android_log_print(ANDROID_LOG_DEBUG, "AirMouseAlgorithm", "%s", "plain");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].prio, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[0].tag, "VLM_SFC");
    EXPECT_EQ(lines[0].text, "value 7 of x");
    EXPECT_EQ(lines[1].prio, ANDROID_LOG_DEBUG);
    EXPECT_EQ(lines[1].tag, "AirMouseAlgorithm");
}

TEST(HostLog, LongLinesAreCutNotOverrun) {
    imu::test::LogCapture log;
    const std::string big(10000, 'a');
    __android_log_print(ANDROID_LOG_ERROR, "T", "%s", big.c_str());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text.size(), 4067U);
}

TEST(HostLog, SeveralThreadsLogWholeLines) {
    imu::test::LogCapture log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                __android_log_print(ANDROID_LOG_ERROR, "T", "thread %d line %d", t, i);
            }
        });
    }
    for (auto& th : threads) {
        th.join();
    }
    EXPECT_EQ(log.lines().size(), 400U);
    EXPECT_EQ(log.count("thread 3 line 99"), 1);
}

TEST(HostLog, DefaultSinkWritesLetterTagAndText) {
    testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_ERROR, "VLM_SFC", "hello %d", 1);
    __android_log_print(ANDROID_LOG_DEBUG, "VLM_SFC", "done\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "E/VLM_SFC: hello 1\nD/VLM_SFC: done\n");
}

TEST(HostThreads, CreatedThreadRunsItsFunctionWithItsArgument) {
    std::atomic<int> seen{0};
    auto fn = [](void* arg) -> int {
        static_cast<std::atomic<int>*>(arg)->store(42);
        return 0;
    };
    ASSERT_NE(androidCreateThread(fn, &seen), 0);
    for (int i = 0; i < 500 && seen.load() == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(seen.load(), 42);
    EXPECT_EQ(androidCreateThread(nullptr, nullptr), 0);
}

TEST(InputDevice, FifoNameComesFromSysClassInput) {
    imu::test::TempRoot root;
    root.make_input_device("event3", "VelmoVirtualMouse");
    const std::string node = root.path("/dev/input/event3");
    const int fd = ::open(node.c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    char name[254];
    EXPECT_EQ(imu::platform::input_device_name(fd, node.c_str(), name, sizeof name), 18);
    EXPECT_STREQ(name, "VelmoVirtualMouse");
    char tiny[6];
    EXPECT_EQ(imu::platform::input_device_name(fd, node.c_str(), tiny, sizeof tiny), 6);
    EXPECT_STREQ(tiny, "Velmo");
    ::close(fd);
}

TEST(InputDevice, NodeWithoutNameFileHasNoName) {
    imu::test::TempRoot root;
    root.write("/dev/input/event0", "");
    const std::string node = root.path("/dev/input/event0");
    const int fd = ::open(node.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    char name[254];
    EXPECT_EQ(imu::platform::input_device_name(fd, node.c_str(), name, sizeof name), -1);
    EXPECT_STREQ(name, "");
    ::close(fd);
}

}  // namespace
