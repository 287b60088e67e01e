// The daemon data service over real local datagram sockets in a temporary
// root, and what both data services share: paths, folder, receiver thread.

#include "imu/data_service.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "imu/host.h"
#include "support/data_service_client.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::Bytes;
using imu::test::counting;
using imu::test::filled;
using imu::test::is_socket;
using imu::test::wait_until;

constexpr const char* kServicePath = "/data/velmo/service";

Bytes latest(daemond_data_service& s) {
    sensor_event out{};
    EXPECT_EQ(s.get_data(&out), 0);
    return Bytes(out.bytes, out.bytes + sizeof out.bytes);
}

sensor_event record_of(const Bytes& b) {
    sensor_event r{};
    std::memcpy(r.bytes, b.data(), std::min(b.size(), sizeof r.bytes));
    return r;
}

unsigned mode_of(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? static_cast<unsigned>(st.st_mode & 07777) : 0U;
}

class DataService : public testing::Test {
protected:
    // The receiver is bound once its socket file appears (a fresh root has none).
    bool bound(const std::string& rel = kServicePath) const {
        return wait_until([&] { return is_socket(root.path(rel)); });
    }
    bool ended() const {
        return wait_until([&] { return log.count("Server_end :0") > 0; });
    }

    imu::test::LogCapture log;  // outlives the services of each test
    imu::test::TempRoot root;
};

TEST_F(DataService, ConstructionResolvesSocketPathsUnderTheRootAndIsIdle) {
    daemond_data_service daemon;
    calibrator_data_service calibrator;
    EXPECT_EQ(std::string(daemon.socket_path), root.path(kServicePath));
    EXPECT_EQ(std::string(calibrator.socket_path), root.path("/data/velmo/calibrator_service"));
    EXPECT_FALSE(daemon.running.load());
    EXPECT_FALSE(calibrator.running.load());
    EXPECT_EQ(latest(daemon), filled(112, 0));
    EXPECT_EQ(calibrator.callback_set.load(), 0);
    EXPECT_FALSE(is_socket(root.path(kServicePath)));  // nothing binds before start
}

TEST_F(DataService, ConstructionCreatesTheFolderOpenToEveryone) {
    root.remove("/data/velmo");
    { daemond_data_service daemon; }
    EXPECT_EQ(mode_of(root.path("/data/velmo")), 0777U);

    root.remove("/data/velmo");
    { calibrator_data_service calibrator; }
    EXPECT_EQ(mode_of(root.path("/data/velmo")), 0777U);

    root.remove("/data");  // the folder cannot be made: not an error
    daemond_data_service daemon;
    EXPECT_FALSE(root.exists("/data/velmo"));
}

TEST_F(DataService, CreatServiceFolderResults) {
    root.mkdir("/data/kept");
    ::chmod(root.path("/data/kept").c_str(), 0700);
    root.write("/data/plain", "x");
    struct Case {
        const char* rel;  // nullptr: a null path
        int result;
        unsigned mode_after;  // 0: nothing there
    };
    const Case cases[] = {
        {"/data/new", 0, 0777},        // made, and opened to all against the umask
        {"/data/kept", -1, 0700},      // exists: left as it is
        {"/data/none/below", -1, 0},   // parent missing
        {"/data/plain/below", -1, 0},  // parent is a file
        {nullptr, -1, 0},
    };
    daemond_data_service daemon;
    calibrator_data_service calibrator;
    for (const Case& c : cases) {
        std::string path = c.rel == nullptr ? "" : root.path(c.rel);
        char* arg = c.rel == nullptr ? nullptr : path.data();
        EXPECT_EQ(daemon.creat_service_folder(arg), c.result) << (c.rel ? c.rel : "null");
        if (c.rel != nullptr) {
            EXPECT_EQ(mode_of(path), c.mode_after) << c.rel;
        }
        // The calibrator's folder creation is the same; a second mkdir fails.
        EXPECT_EQ(calibrator.creat_service_folder(arg), -1) << (c.rel ? c.rel : "null");
    }
}

TEST_F(DataService, UpdateServicePathTakesWhatFitsASocketAddress) {
    daemond_data_service daemon;
    const std::string before = daemon.socket_path;
    std::string longest = "/" + std::string(106, 'a');  // 107 bytes: fits
    std::string too_long = longest + "b";
    EXPECT_EQ(daemon.update_service_path(too_long.data()), -36);
    EXPECT_EQ(std::string(daemon.socket_path), before);
    EXPECT_EQ(daemon.update_service_path(nullptr), -22);
    EXPECT_EQ(std::string(daemon.socket_path), before);
    EXPECT_EQ(daemon.update_service_path(longest.data()), 0);
    EXPECT_EQ(std::string(daemon.socket_path), longest);

    calibrator_data_service calibrator;
    EXPECT_EQ(calibrator.update_service_path(too_long.data()), -36);
    EXPECT_EQ(calibrator.update_service_path(longest.data()), 0);
    EXPECT_EQ(std::string(calibrator.socket_path), longest);
}

// GIVEN a started service and a second object on the same path
// WHEN the second sends a record THEN the first returns it from get_data.
TEST_F(DataService, RecordSentByOneObjectComesBackFromAnother) {
    daemond_data_service server;
    server.start_service();
    ASSERT_TRUE(bound());
    daemond_data_service client;
    const Bytes sent = counting(112, 1);
    sensor_event rec = record_of(sent);
    EXPECT_EQ(client.send_clien_data(&rec), 0);
    EXPECT_TRUE(wait_until([&] { return latest(server) == sent; }));
}

TEST_F(DataService, UpdatedPathIsBoundAndSentTo) {
    std::string path = root.path("/data/velmo/other");
    daemond_data_service server;
    ASSERT_EQ(server.update_service_path(path.data()), 0);
    server.start_service();
    ASSERT_TRUE(bound("/data/velmo/other"));
    EXPECT_FALSE(is_socket(root.path(kServicePath)));
    daemond_data_service client;
    ASSERT_EQ(client.update_service_path(path.data()), 0);
    sensor_event rec = record_of(filled(112, 0x5A));
    client.send_clien_data(&rec);
    EXPECT_TRUE(wait_until([&] { return latest(server) == filled(112, 0x5A); }));
}

TEST_F(DataService, TwoStartsStartOneThreadAndDestructionJoinsIt) {
    const int before = imu::test::thread_count();
    {
        daemond_data_service daemon;
        daemon.start_service();
        EXPECT_EQ(imu::test::thread_count(), before + 1);
        daemon.start_service();
        EXPECT_EQ(imu::test::thread_count(), before + 1);
        EXPECT_TRUE(daemon.running.load());
        EXPECT_EQ(log.count("daemond_data_service start"), 1);
        ASSERT_TRUE(bound());
    }
    EXPECT_EQ(imu::test::thread_count(), before);
    EXPECT_EQ(log.count("daemond_data_service kill"), 1);
    EXPECT_EQ(log.count("Server_end :0"), 1);
}

TEST_F(DataService, DestroyingAStoppedOrNeverStartedServiceIsQuiet) {
    const int before = imu::test::thread_count();
    {
        daemond_data_service never_started;
        EXPECT_EQ(never_started.stop_service(), 0);
        calibrator_data_service stopped;
        stopped.start_service();
        stopped.stop_service();
    }
    EXPECT_EQ(imu::test::thread_count(), before);
    EXPECT_EQ(log.count("daemond_data_service kill"), 2);
}

// GIVEN a service waiting for a datagram WHEN it is stopped THEN its thread
// ends at once, datagrams no longer arrive, and a new start rebinds the
// path with a cleared record.
TEST_F(DataService, StopEndsTheWaitingReceiverAndRestartRebinds) {
    daemond_data_service daemon;
    daemon.start_service();
    ASSERT_TRUE(bound());
    ASSERT_TRUE(imu::test::send_datagram(root.path(kServicePath), filled(112, 0xA1)));
    ASSERT_TRUE(wait_until([&] { return latest(daemon) == filled(112, 0xA1); }));

    EXPECT_EQ(daemon.stop_service(), 0);
    EXPECT_FALSE(daemon.running.load());
    ASSERT_TRUE(ended());
    EXPECT_FALSE(imu::test::send_datagram(root.path(kServicePath), filled(112, 0xB2)));
    EXPECT_EQ(latest(daemon), filled(112, 0xA1));

    root.remove(kServicePath);
    const int before = imu::test::thread_count();
    daemon.start_service();
    EXPECT_EQ(log.count("daemond_data_service start"), 2);
    ASSERT_TRUE(bound());
    EXPECT_LE(imu::test::thread_count(), before + 1);
    EXPECT_EQ(latest(daemon), filled(112, 0));  // cleared at bind
    ASSERT_TRUE(imu::test::send_datagram(root.path(kServicePath), filled(112, 0xC3)));
    EXPECT_TRUE(wait_until([&] { return latest(daemon) == filled(112, 0xC3); }));
}

TEST_F(DataService, ImmediateRestartAfterStopLeavesOneReceiver) {
    const int before = imu::test::thread_count();
    daemond_data_service daemon;
    for (int i = 0; i < 20; ++i) {
        daemon.start_service();
        daemon.stop_service();
    }
    daemon.start_service();
    EXPECT_EQ(imu::test::thread_count(), before + 1);
    ASSERT_TRUE(wait_until([&] { return log.count("Server_end :0") == 20; }));
    ASSERT_TRUE(wait_until(
        [&] { return imu::test::send_datagram(root.path(kServicePath), filled(112, 0x42)); }));
    EXPECT_TRUE(wait_until([&] { return latest(daemon) == filled(112, 0x42); }));
}

TEST_F(DataService, GetDataDoesNotWaitForADatagram) {
    daemond_data_service daemon;
    daemon.start_service();
    ASSERT_TRUE(bound());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the receiver is waiting
    auto read = std::async(std::launch::async, [&] { return latest(daemon); });
    ASSERT_EQ(read.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_EQ(read.get(), filled(112, 0));
}

// Records arrive while the host polls: every record read is one that was
// sent, never a mix of two.
TEST_F(DataService, GetDataNeverReturnsAMixOfTwoRecords) {
    daemond_data_service daemon;
    daemon.start_service();
    ASSERT_TRUE(bound());
    std::atomic<bool> done{false};
    std::thread sender([&] {
        daemond_data_service client;
        for (unsigned char v = 1; v <= 60; ++v) {
            sensor_event rec = record_of(filled(112, v));
            client.send_clien_data(&rec);
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        done = true;
    });
    int reads = 0;
    while (!done) {
        const Bytes b = latest(daemon);
        ASSERT_EQ(b, filled(112, b[0])) << "read " << reads;
        ++reads;
    }
    sender.join();
    EXPECT_GT(reads, 0);
}

// Datagrams of any length: at most 112 bytes are taken, a shorter one
// overwrites only its own bytes, an empty one changes nothing.
TEST_F(DataService, ShortLongAndEmptyDatagrams) {
    daemond_data_service daemon;
    daemon.start_service();
    ASSERT_TRUE(bound());
    Bytes expected = filled(112, 0);
    struct Step {
        const char* what;
        Bytes datagram;
    };
    const Step steps[] = {
        {"full", filled(112, 0xAA)},
        {"short", filled(10, 0x11)},
        {"long", counting(200, 0)},
        {"empty", {}},
        {"one byte after empty", filled(1, 0x77)},
    };
    for (const Step& s : steps) {
        ASSERT_TRUE(imu::test::send_datagram(root.path(kServicePath), s.datagram)) << s.what;
        std::copy_n(s.datagram.begin(), std::min<std::size_t>(s.datagram.size(), 112),
                    expected.begin());
        EXPECT_TRUE(wait_until([&] { return latest(daemon) == expected; })) << s.what;
    }
}

TEST_F(DataService, NullArgumentsAreRefused) {
    daemond_data_service daemon;
    EXPECT_EQ(daemon.get_data(nullptr), -22);
    EXPECT_EQ(daemon.send_clien_data(nullptr), -22);
    calibrator_data_service calibrator;
    EXPECT_EQ(calibrator.get_data(nullptr), -22);
    EXPECT_EQ(calibrator.send_clien_data(nullptr), -22);
}

TEST_F(DataService, SendingWithNobodyBoundIsNotAnError) {
    daemond_data_service daemon;
    sensor_event rec{};
    EXPECT_EQ(daemon.send_clien_data(&rec), 0);
    root.remove("/data/velmo");
    EXPECT_EQ(daemon.send_clien_data(&rec), 0);
}

// A path that cannot be bound is logged and retried until it can be, or
// until the service is stopped.
TEST_F(DataService, BindFailureIsRetriedUntilTheFolderAppears) {
    daemond_data_service daemon;
    root.remove("/data/velmo");
    daemon.start_service();
    ASSERT_TRUE(wait_until([&] { return log.count("bind_start fail") > 0; }));
    root.mkdir("/data/velmo");
    ASSERT_TRUE(bound());
    ASSERT_TRUE(imu::test::send_datagram(root.path(kServicePath), filled(112, 0x3C)));
    EXPECT_TRUE(wait_until([&] { return latest(daemon) == filled(112, 0x3C); }));
}

TEST_F(DataService, StopEndsBindRetries) {
    struct Case {
        const char* what;
        bool long_root;
    };
    for (const Case c : {Case{"folder missing", false}, Case{"path too long", true}}) {
        log.clear();
        const std::string long_root = root.dir() + "/" + std::string(120, 'r');
        if (c.long_root) {
            imu_host_set_root(long_root.c_str());
        }
        daemond_data_service daemon;
        root.remove("/data/velmo");
        daemon.start_service();
        EXPECT_TRUE(wait_until([&] { return log.count("bind_start fail") > 0; })) << c.what;
        sensor_event rec{};
        EXPECT_EQ(daemon.send_clien_data(&rec), 0) << c.what;
        daemon.stop_service();
        EXPECT_TRUE(ended()) << c.what;
        imu_host_set_root(root.dir().c_str());
    }
}

}  // namespace
