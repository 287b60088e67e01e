// The host stand-ins for the Android sensor, looper, log and thread APIs.

#include <android/log.h>
#include <android/looper.h>
#include <android/sensor.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/AndroidThreads.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

#include "imu/host.h"
#include "platform/input_device.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr int kIdent = 9;
const float kV[3] = {1.0F, 2.0F, 9.8F};

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
    ASSERT_EQ(ASensorEventQueue_enableSensor(q.queue, q.sensor(ASENSOR_TYPE_ACCELEROMETER)), 0);
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(imu_host_sensor_post(ASENSOR_TYPE_ACCELEROMETER, kV, 3, 1000 * i), 1);
    }
    ASensorEvent e{};
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(ALooper_pollAll(0, nullptr, nullptr, nullptr), kIdent);
        ASSERT_EQ(ASensorEventQueue_getEvents(q.queue, &e, 1), 1);
        EXPECT_EQ(std::make_tuple(e.type, e.timestamp, e.data[0], e.data[2]),
                  std::make_tuple(ASENSOR_TYPE_ACCELEROMETER, 1000 * i, 1.0F, 9.8F));
    }
    EXPECT_EQ(ASensorEventQueue_getEvents(q.queue, &e, 1), 0);
    EXPECT_LT(ALooper_pollAll(0, nullptr, nullptr, nullptr), 0);
}

TEST(SensorHub, DisabledAbsentOrUnqueuedSensorDeliversNothing) {
    auto q = std::make_unique<Queue>();
    EXPECT_EQ(imu_host_sensor_post(ASENSOR_TYPE_GYROSCOPE, kV, 3, 1), 0);
    ASensor const* gyro = q->sensor(ASENSOR_TYPE_GYROSCOPE);
    ASSERT_EQ(ASensorEventQueue_enableSensor(q->queue, gyro), 0);
    ASSERT_EQ(ASensorEventQueue_disableSensor(q->queue, gyro), 0);
    EXPECT_EQ(imu_host_sensor_post(ASENSOR_TYPE_GYROSCOPE, kV, 3, 2), 0);
    EXPECT_EQ(imu_host_sensor_post(3, kV, 3, 3), 0);  // no such type
    EXPECT_LT(ALooper_pollAll(0, nullptr, nullptr, nullptr), 0);
    imu_host_sensor_set_present(ASENSOR_TYPE_LIGHT, 0);
    EXPECT_EQ(q->sensor(ASENSOR_TYPE_LIGHT), nullptr);
    EXPECT_EQ(ASensorEventQueue_enableSensor(q->queue, nullptr), -22);
    ASensorEventQueue_enableSensor(q->queue, q->sensor(ASENSOR_TYPE_MAGNETIC_FIELD));
    q.reset();  // a destroyed queue winds its sensors down
    EXPECT_EQ(imu_host_sensor_post(ASENSOR_TYPE_MAGNETIC_FIELD, kV, 3, 1), 0);
    EXPECT_EQ(imu_host_sensor_enabled(ASENSOR_TYPE_MAGNETIC_FIELD), 0);
}

TEST(SensorHub, PollWaitsForAnotherThreadAndNeedsALooper) {
    Queue q;
    ASensorEventQueue_enableSensor(q.queue, q.sensor(ASENSOR_TYPE_LIGHT));
    std::thread poster([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        imu_host_sensor_post(ASENSOR_TYPE_LIGHT, kV, 1, 5);
    });
    EXPECT_EQ(ALooper_pollAll(5000, nullptr, nullptr, nullptr), kIdent);
    poster.join();
    int result = 0;
    std::thread([&] { result = ALooper_pollAll(0, nullptr, nullptr, nullptr); }).join();
    EXPECT_EQ(result, ALOOPER_POLL_ERROR);
}

TEST(HostLog, CaptureKeepsPriorityTagAndTextAndCutsLongLines) {
    imu::test::LogCapture log;
    __android_log_print(ANDROID_LOG_ERROR, "VLM_SFC", "value %d of %s", 7, "x");
    __android_log_print(ANDROID_LOG_DEBUG, "T", "%s", std::string(10000, 'a').c_str());
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(std::make_tuple(lines[0].prio, lines[0].tag, lines[0].text),
              std::make_tuple(int{ANDROID_LOG_ERROR}, std::string("VLM_SFC"),
                              std::string("value 7 of x")));
    EXPECT_EQ(lines[1].prio, ANDROID_LOG_DEBUG);
    EXPECT_EQ(lines[1].text.size(), 4067U);
}

TEST(HostLog, DefaultSinkWritesLetterTagAndTextAndNoThreadRunsNull) {
    testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_ERROR, "VLM_SFC", "hello %d", 1);
    __android_log_print(ANDROID_LOG_DEBUG, "VLM_SFC", "done\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "E/VLM_SFC: hello 1\nD/VLM_SFC: done\n");
    EXPECT_EQ(androidCreateThread(nullptr, nullptr), 0);  // the poll tests run a real one
}

// The name of a FIFO node comes from /sys/class/input, cut to the buffer.
TEST(InputDevice, NameFromSysClassInput) {
    imu::test::TempRoot root;
    root.make_input_device("event3", "VelmoVirtualMouse");
    root.write("/dev/input/event0", "");  // no name file
    char name[254];
    for (const char* node : {"event3", "event0"}) {
        const std::string path = root.path(std::string("/dev/input/") + node);
        const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK);
        ASSERT_GE(fd, 0);
        const bool named = node[5] == '3';
        EXPECT_EQ(imu::platform::input_device_name(fd, path.c_str(), name, sizeof name),
                  named ? 18 : -1);
        EXPECT_STREQ(name, named ? "VelmoVirtualMouse" : "");
        if (named) {
            EXPECT_EQ(imu::platform::input_device_name(fd, path.c_str(), name, 6), 6);
            EXPECT_STREQ(name, "Velmo");
        }
        ::close(fd);
    }
}

}  // namespace
