// The data socket services over real local datagram sockets in a temporary
// root: the daemon keeps the latest record, the calibrator calls back.

#include "imu/data_service.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <future>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "imu/host.h"
#include "support/data_service_client.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::Bytes;
using imu::test::bytes_of;
using imu::test::thread_count;
using imu::test::wait_until;

constexpr const char* kDaemon = "/data/velmo/service";
constexpr const char* kCalibrator = "/data/velmo/calibrator_service";

Bytes counting(std::size_t n, int first) {
    Bytes b(n);
    std::iota(b.begin(), b.end(), static_cast<unsigned char>(first));
    return b;
}

Bytes latest(daemond_data_service& s) {
    sensor_event out{};
    EXPECT_EQ(s.get_data(&out), 0);
    return bytes_of(out.bytes);
}
Bytes latest(calibrator_data_service& s) {
    calib_sensors_event out{};
    EXPECT_EQ(s.get_data(&out), 0);
    return bytes_of(out.bytes);
}

unsigned mode_of(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? static_cast<unsigned>(st.st_mode & 07777) : 0U;
}

// The callbacks seen so far (each test runs in a process of its own).
std::mutex g_mutex;
std::vector<Bytes> g_events;
calibrator_data_service* g_stop_on_call = nullptr;

void record_call(unsigned first, VLCONTROLLER_ID controller, const VLEvent& event) {
    EXPECT_EQ(first, 0U);
    EXPECT_EQ(controller, VLCONTROLLER_ID_VELMO);
    calibrator_data_service* service = nullptr;
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        g_events.push_back(bytes_of(event));
        service = g_stop_on_call;
    }
    if (service != nullptr) {
        service->stop_service();
        service->start_service();  // cannot restart its own thread: does nothing
    }
}
std::vector<Bytes> events() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_events;
}

// A calibration event: type 1, three zero words, the 60 record bytes.
Bytes event_for(const Bytes& record) {
    Bytes e(16 + record.size(), 0);
    e[0] = 1;
    std::copy(record.begin(), record.end(), e.begin() + 16);
    return e;
}

class DataService : public testing::Test {
protected:
    bool bound(const char* rel = kDaemon) const {
        return wait_until([&] { return imu::test::is_socket(root.path(rel)); });
    }
    bool send(const Bytes& b, const char* rel = kDaemon) const {
        return imu::test::send_datagram(root.path(rel), b);
    }
    bool ends(int n) const {
        return wait_until([&] { return log.count("Server_end :0") == n; });
    }

    imu::test::LogCapture log;  // outlives the services of each test
    imu::test::TempRoot root;
};

TEST_F(DataService, FolderAndPaths) {
    root.remove("/data/velmo");
    daemond_data_service daemon;
    EXPECT_EQ(mode_of(root.path("/data/velmo")), 0777U);  // opened to all against the umask
    EXPECT_EQ(std::string(daemon.socket_path), root.path(kDaemon));
    EXPECT_EQ(std::string(calibrator_data_service().socket_path), root.path(kCalibrator));
    root.mkdir("/data/kept");
    ::chmod(root.path("/data/kept").c_str(), 0700);
    root.write("/data/plain", "x");
    const struct { const char* rel; int result; unsigned mode_after; } cases[] = {
        {"/data/new", 0, 0777}, {"/data/kept", -1, 0700},
        {"/data/none/below", -1, 0}, {"/data/plain/below", -1, 0}};
    for (const auto& c : cases) {
        std::string path = root.path(c.rel);
        EXPECT_EQ(daemon.creat_service_folder(path.data()), c.result) << c.rel;
        EXPECT_EQ(mode_of(path), c.mode_after) << c.rel;
    }
    EXPECT_EQ(daemon.creat_service_folder(nullptr), -1);
    std::string fits = "/" + std::string(106, 'a');  // 107 bytes and the terminator
    std::string too_long = fits + "b";
    EXPECT_EQ(daemon.update_service_path(too_long.data()), -36);
    EXPECT_EQ(daemon.update_service_path(nullptr), -22);
    EXPECT_EQ(std::string(daemon.socket_path), root.path(kDaemon));
    EXPECT_EQ(daemon.update_service_path(fits.data()), 0);
    EXPECT_EQ(std::string(daemon.socket_path), fits);
    EXPECT_EQ(daemon.get_data(nullptr), -22);
    EXPECT_EQ(daemon.send_clien_data(nullptr), -22);
    sensor_event rec{};
    EXPECT_EQ(daemon.send_clien_data(&rec), 0);  // nobody bound: not an error
}

// get_data never waits for a datagram. A record sent by another object
// comes back whole; at most 112 bytes are taken, a short datagram
// overwrites only its own bytes, an empty one changes nothing; while
// records arrive, get_data never returns a mix of two.
TEST_F(DataService, LatestRecordTakesEachDatagram) {
    daemond_data_service server;
    server.start_service();
    ASSERT_TRUE(bound());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the receiver waits
    auto first = std::async(std::launch::async, [&] { return latest(server); });
    ASSERT_EQ(first.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_EQ(first.get(), Bytes(112, 0));
    sensor_event rec{};
    std::copy_n(counting(112, 1).begin(), 112, rec.bytes);
    EXPECT_EQ(daemond_data_service().send_clien_data(&rec), 0);
    Bytes expected = counting(112, 1);
    EXPECT_TRUE(wait_until([&] { return latest(server) == expected; }));
    for (const Bytes& d : {Bytes(10, 0x11), counting(200, 0), Bytes{}, Bytes(1, 7)}) {
        ASSERT_TRUE(send(d)) << d.size();
        std::copy_n(d.begin(), std::min<std::size_t>(d.size(), 112), expected.begin());
        EXPECT_TRUE(wait_until([&] { return latest(server) == expected; })) << d.size();
    }
    std::atomic<bool> done{false};
    std::thread sender([&] {
        for (int v = 1; v <= 60; ++v) {
            send(Bytes(112, static_cast<unsigned char>(v)));
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        done = true;
    });
    int mixed = 0;
    while (!done) {
        const Bytes b = latest(server);
        mixed += b != Bytes(112, b[0]) && b != expected ? 1 : 0;
    }
    sender.join();
    EXPECT_EQ(mixed, 0);
}

// Two starts start one thread; a stopped service no longer receives; a
// restart rebinds with a cleared record; destruction joins the thread.
TEST_F(DataService, StartStopRestartAndDestruction) {
    const int before = thread_count();
    {
        daemond_data_service daemon;
        daemon.start_service();
        daemon.start_service();
        EXPECT_EQ(thread_count(), before + 1);
        EXPECT_EQ(log.count("daemond_data_service start"), 1);
        ASSERT_TRUE(bound());
        ASSERT_TRUE(send(Bytes(112, 0xA1)));
        ASSERT_TRUE(wait_until([&] { return latest(daemon) == Bytes(112, 0xA1); }));
        EXPECT_EQ(daemon.stop_service(), 0);
        ASSERT_TRUE(ends(1));
        EXPECT_FALSE(send(Bytes(112, 0xB2)));
        root.remove(kDaemon);
        for (int i = 0; i < 20; ++i) {
            daemon.start_service();
            daemon.stop_service();
        }
        daemon.start_service();
        EXPECT_EQ(thread_count(), before + 1);
        ASSERT_TRUE(ends(21));
        ASSERT_TRUE(wait_until([&] { return send(Bytes(1, 0xC3)); }));
        Bytes expected(112, 0);
        expected[0] = 0xC3;
        EXPECT_TRUE(wait_until([&] { return latest(daemon) == expected; }));
        daemond_data_service never_started;
    }
    EXPECT_EQ(thread_count(), before);
    EXPECT_EQ(log.count("daemond_data_service kill"), 2);
    EXPECT_EQ(log.count("Server_end :0"), 22);
}

// A path that cannot be bound (folder missing, too long for an address)
// is logged and retried until it can be, or until the service stops.
TEST_F(DataService, BindFailureIsRetriedUntilBoundOrStopped) {
    const std::string long_root = root.dir() + "/" + std::string(120, 'r');
    for (const bool too_long : {false, true}) {
        log.clear();
        if (too_long) {
            imu_host_set_root(long_root.c_str());
        }
        daemond_data_service daemon;
        root.remove("/data/velmo");
        daemon.start_service();
        EXPECT_TRUE(wait_until([&] { return log.count("bind_start fail") > 0; })) << too_long;
        if (!too_long) {
            root.mkdir("/data/velmo");
            ASSERT_TRUE(bound());
        }
        daemon.stop_service();
        EXPECT_TRUE(ends(1)) << too_long;
        imu_host_set_root(root.dir().c_str());
    }
}

// Every datagram, whatever its length, gives exactly one callback with the
// latest record as that datagram left it (cut to 60 bytes).
TEST_F(DataService, CalibratorCallsBackOncePerDatagram) {
    const int before = thread_count();
    calibrator_data_service server;
    EXPECT_EQ(server.Init(nullptr), -22);
    EXPECT_EQ(thread_count(), before);
    EXPECT_EQ(server.Init(record_call), 0);
    EXPECT_EQ(server.Init(record_call), 0);
    EXPECT_EQ(thread_count(), before + 1);
    ASSERT_TRUE(bound(kCalibrator));
    calib_sensors_event rec{};
    std::copy_n(counting(60, 100).begin(), 60, rec.bytes);
    EXPECT_EQ(calibrator_data_service().send_clien_data(&rec), 0);
    ASSERT_TRUE(wait_until([] { return events().size() == 1; }));
    EXPECT_EQ(events()[0], event_for(counting(60, 100)));
    Bytes expected = counting(60, 100);
    std::size_t n = 1;
    for (const Bytes& d : {Bytes{}, Bytes(7, 1), counting(100, 50)}) {
        ASSERT_TRUE(send(d, kCalibrator));
        ASSERT_TRUE(wait_until([&] { return events().size() == n + 1; })) << d.size();
        std::copy_n(d.begin(), std::min<std::size_t>(d.size(), 60), expected.begin());
        EXPECT_EQ(events()[n++], event_for(expected)) << d.size();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(events().size(), n);
    EXPECT_EQ(latest(server), expected);
}

// Records are kept quietly until a callback is registered; the callback
// may stop its own service (it cannot restart or join its own thread).
TEST_F(DataService, CalibratorCallbackCanStopItsService) {
    const int before = thread_count();
    {
        calibrator_data_service service;
        g_stop_on_call = &service;
        service.start_service();
        ASSERT_TRUE(bound(kCalibrator));
        ASSERT_TRUE(send(Bytes(60, 1), kCalibrator));
        ASSERT_TRUE(wait_until([&] { return latest(service) == Bytes(60, 1); }));
        service.Init(record_call);
        ASSERT_TRUE(send(Bytes(60, 2), kCalibrator));
        ASSERT_TRUE(ends(1));
        EXPECT_FALSE(service.running.load());
    }
    EXPECT_EQ(thread_count(), before);
    EXPECT_EQ(events(), std::vector<Bytes>{event_for(Bytes(60, 2))});
}

}  // namespace
