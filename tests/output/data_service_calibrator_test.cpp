// The calibrator data service: every datagram on its socket becomes one
// callback with a VLEvent of type 1 carrying the latest record.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "imu/data_service.h"
#include "support/data_service_client.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::Bytes;
using imu::test::counting;
using imu::test::filled;
using imu::test::wait_until;

constexpr const char* kCalibratorPath = "/data/velmo/calibrator_service";

struct Call {
    unsigned first;
    VLCONTROLLER_ID controller;
    Bytes event;  // the whole VLEvent as bytes
};

// The callbacks seen so far; filled on the receiver thread.
struct Recorder {
    std::mutex mutex;
    std::vector<Call> calls;
    calibrator_data_service* stop_on_call = nullptr;  // stop (and try a restart) from the callback

    std::vector<Call> snapshot() {
        const std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }
    std::size_t count() { return snapshot().size(); }
};
Recorder g_recorder;  // each test runs in a process of its own

void record_call(unsigned first, VLCONTROLLER_ID controller, const VLEvent& event) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&event);
    calibrator_data_service* service = nullptr;
    {
        const std::lock_guard<std::mutex> lock(g_recorder.mutex);
        g_recorder.calls.push_back({first, controller, Bytes(bytes, bytes + sizeof event)});
        service = g_recorder.stop_on_call;
    }
    if (service != nullptr) {
        service->stop_service();
        service->start_service();  // cannot restart its own thread: does nothing
    }
}

// The event a calibration record must produce: type 1, three zero words,
// the 60 record bytes.
Bytes event_for(const Bytes& record) {
    Bytes e(16 + record.size(), 0);
    e[0] = 1;  // little-endian 32-bit type
    std::copy(record.begin(), record.end(), e.begin() + 16);
    return e;
}

Bytes latest(calibrator_data_service& s) {
    calib_sensors_event out{};
    EXPECT_EQ(s.get_data(&out), 0);
    return Bytes(out.bytes, out.bytes + sizeof out.bytes);
}

class CalibratorService : public testing::Test {
protected:
    bool bound() const {
        return wait_until([&] { return imu::test::is_socket(root.path(kCalibratorPath)); });
    }
    bool send(const Bytes& datagram) const {
        return imu::test::send_datagram(root.path(kCalibratorPath), datagram);
    }
    bool calls_reach(std::size_t n) const {
        return wait_until([n] { return g_recorder.count() >= n; });
    }

    imu::test::LogCapture log;
    imu::test::TempRoot root;
};

TEST_F(CalibratorService, OneDatagramGivesExactlyOneCallbackWithTheRecord) {
    calibrator_data_service service;
    EXPECT_EQ(service.Init(record_call), 0);
    EXPECT_EQ(service.callback_set.load(), 1);
    EXPECT_TRUE(service.running.load());
    ASSERT_TRUE(bound());
    const Bytes record = counting(60, 100);
    ASSERT_TRUE(send(record));
    ASSERT_TRUE(calls_reach(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // no second call follows
    const std::vector<Call> calls = g_recorder.snapshot();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].first, 0U);
    EXPECT_EQ(calls[0].controller, 1);
    EXPECT_EQ(calls[0].event, event_for(record));
    EXPECT_EQ(latest(service), record);
}

TEST_F(CalibratorService, RecordSentByOneObjectReachesTheOthersCallback) {
    calibrator_data_service server;
    server.Init(record_call);
    ASSERT_TRUE(bound());
    calibrator_data_service client;
    const Bytes record = filled(60, 0xE7);
    calib_sensors_event rec{};
    std::memcpy(rec.bytes, record.data(), record.size());
    EXPECT_EQ(client.send_clien_data(&rec), 0);
    ASSERT_TRUE(calls_reach(1));
    EXPECT_EQ(g_recorder.snapshot()[0].event, event_for(record));
}

// Every datagram gives one callback, whatever its length: the event shows
// the latest record as the datagram left it (cleared at bind, a short
// datagram overwrites only its own bytes, a long one is cut to 60).
TEST_F(CalibratorService, ShortLongAndEmptyDatagramsGiveOneCallbackEach) {
    calibrator_data_service service;
    service.Init(record_call);
    ASSERT_TRUE(bound());
    Bytes expected = filled(60, 0);
    struct Step {
        const char* what;
        Bytes datagram;
    };
    const Step steps[] = {
        {"empty", {}},
        {"full", filled(60, 0xAA)},
        {"short", counting(7, 1)},
        {"long", counting(100, 50)},
        {"empty again", {}},
    };
    std::size_t n = 0;
    for (const Step& s : steps) {
        ASSERT_TRUE(send(s.datagram)) << s.what;
        ++n;
        ASSERT_TRUE(calls_reach(n)) << s.what;
        std::copy_n(s.datagram.begin(), std::min<std::size_t>(s.datagram.size(), 60),
                    expected.begin());
        EXPECT_EQ(g_recorder.snapshot()[n - 1].event, event_for(expected)) << s.what;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(g_recorder.count(), n);  // the long datagram's rest is no datagram of its own
}

TEST_F(CalibratorService, NullCallbackIsRefusedAndStartsNothing) {
    const int before = imu::test::thread_count();
    calibrator_data_service service;
    EXPECT_EQ(service.Init(nullptr), -22);
    EXPECT_EQ(service.callback_set.load(), 0);
    EXPECT_FALSE(service.running.load());
    EXPECT_EQ(imu::test::thread_count(), before);
    EXPECT_EQ(service.Exit(), 0);
}

TEST_F(CalibratorService, InitTwiceStartsOneThread) {
    const int before = imu::test::thread_count();
    calibrator_data_service service;
    service.Init(record_call);
    service.Init(record_call);
    EXPECT_EQ(imu::test::thread_count(), before + 1);
    EXPECT_EQ(log.count("daemond_data_service start"), 1);
}

// Started without a callback, the service keeps records quietly; a
// callback registered later sees the datagrams from then on.
TEST_F(CalibratorService, CallbackRegisteredWhileRunningTakesOverFromThen) {
    calibrator_data_service service;
    service.start_service();
    ASSERT_TRUE(bound());
    ASSERT_TRUE(send(filled(60, 0x01)));
    ASSERT_TRUE(wait_until([&] { return latest(service) == filled(60, 0x01); }));
    EXPECT_EQ(g_recorder.count(), 0U);

    service.Init(record_call);
    ASSERT_TRUE(send(filled(60, 0x02)));
    ASSERT_TRUE(calls_reach(1));
    EXPECT_EQ(g_recorder.snapshot()[0].event, event_for(filled(60, 0x02)));
}

// The callback may stop its own service; it cannot restart or join its own
// thread, and nothing hangs.
TEST_F(CalibratorService, CallbackCanStopItsService) {
    const int before = imu::test::thread_count();
    {
        calibrator_data_service service;
        {
            const std::lock_guard<std::mutex> lock(g_recorder.mutex);
            g_recorder.stop_on_call = &service;
        }
        service.Init(record_call);
        ASSERT_TRUE(bound());
        ASSERT_TRUE(send(filled(60, 0x09)));
        ASSERT_TRUE(calls_reach(1));
        EXPECT_TRUE(wait_until([&] { return log.count("Server_end :0") == 1; }));
        EXPECT_FALSE(service.running.load());
        EXPECT_EQ(log.count("daemond_data_service start"), 1);
    }
    EXPECT_EQ(imu::test::thread_count(), before);
    EXPECT_EQ(g_recorder.count(), 1U);
}

TEST_F(CalibratorService, StopAndRestartRebindWithAClearedRecord) {
    calibrator_data_service service;
    service.Init(record_call);
    ASSERT_TRUE(bound());
    ASSERT_TRUE(send(filled(60, 0x61)));
    ASSERT_TRUE(calls_reach(1));
    service.stop_service();
    ASSERT_TRUE(wait_until([&] { return log.count("Server_end :0") == 1; }));
    EXPECT_FALSE(send(filled(60, 0x62)));

    root.remove(kCalibratorPath);
    service.start_service();
    ASSERT_TRUE(bound());
    EXPECT_EQ(latest(service), filled(60, 0));
    ASSERT_TRUE(send(counting(3, 7)));
    ASSERT_TRUE(calls_reach(2));
    Bytes expected = filled(60, 0);
    std::copy_n(counting(3, 7).begin(), 3, expected.begin());
    EXPECT_EQ(g_recorder.snapshot()[1].event, event_for(expected));
}

}  // namespace
