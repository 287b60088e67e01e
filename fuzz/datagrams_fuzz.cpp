// The datagram receivers of the two data services and the touch service on
// arbitrary datagrams (empty, short, exact and long ones), sent over their
// local sockets. Each datagram overwrites the front of the latest record
// (the rest of a long one is dropped); every receiver must end up holding
// exactly that record, and the calibrator hands each datagram to its
// callback once. The touch service's drawing functions get arbitrary
// coordinates, sizes and step counts (without the pauses of real gestures).

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "fuzz_support.h"
#include "imu/data_service.h"
#include "imu/host.h"
#include "imu/touch_service.h"
#include "support/data_service_client.h"

namespace {

using imu::fuzz::check;

constexpr int kMaxDatagrams = 24;
constexpr std::size_t kMaxLength = 160;

std::atomic<int> g_calib_events{0};
std::atomic<int> g_touch_lines{0};
std::mutex g_event_mutex;
VLEvent g_last_event{};

void on_calibration(unsigned int zero, VLCONTROLLER_ID id, const VLEvent& e) {
    check(zero == 0 && id == VLCONTROLLER_ID_VELMO, "callback arguments");
    std::lock_guard<std::mutex> lock(g_event_mutex);
    g_last_event = e;
    g_calib_events.fetch_add(1);
}

void count_touch_lines(int /*prio*/, const char* /*tag*/, const char* text, void* /*ctx*/) {
    if (std::strncmp(text, "key_id=", 7) == 0) {
        g_touch_lines.fetch_add(1);
    }
}

struct Services {
    // The root first: the services resolve their socket paths when built.
    bool rooted = !imu::fuzz::setup_root().empty();
    daemond_data_service daemond;
    calibrator_data_service calibrator;
    touch_service touch;
    std::string paths[3];
    // The record each receiver must hold after the datagrams sent so far.
    unsigned char model_daemond[112] = {};
    unsigned char model_calibrator[60] = {};
    int calib_sent = 0;
    int touch_sent = 0;

    Services() {
        const std::string& root = imu::fuzz::setup_root();
        imu_host_set_log_sink(count_touch_lines, nullptr);
        paths[0] = root + "/data/velmo/service";
        paths[1] = root + "/data/velmo/calibrator_service";
        paths[2] = root + "/data/velmo/touch_service";
        daemond.start_service();
        calibrator.Init(on_calibration);  // also starts it
        touch.start_service();
        for (const std::string& p : paths) {
            check(imu::test::wait_until([&] { return imu::test::is_socket(p); }),
                  "receivers bind their sockets");
        }
    }
};

Services& services() {
    static Services* s = new Services();  // never destroyed: receivers run to the end
    return *s;
}

// Sends one datagram; a full receive queue or a passing shortage of
// buffers is waited out. Returns 0 or the last errno.
int send_datagram(const std::string& path, const imu::test::Bytes& bytes) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), std::min(path.size() + 1, sizeof addr.sun_path));
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    check(fd >= 0, "client socket");
    int err = 0;
    for (int attempt = 0; attempt < 2000; ++attempt) {
        if (::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&addr),
                     sizeof addr) == static_cast<ssize_t>(bytes.size())) {
            err = 0;
            break;
        }
        err = errno;
        if (err != EAGAIN && err != ENOBUFS && err != EINTR) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ::close(fd);
    return err;
}

bool wait_for(const std::function<bool()>& pred) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return pred();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return true;
}

void drive_touch(imu::fuzz::Bytes& in, touch_service& t) {
    t.input_width = in.real();
    t.input_height = in.real();
    t.device_width = in.real();
    t.device_height = in.real();
    const int x = in.i32();
    const int y = in.i32();
    (void)t.convert_x(x);
    (void)t.convert_y(y);
    (void)t.touch_point(x, y, 0);
    (void)t.touch_muti_point(x, y, in.i32(), in.i32(), in.u8() & 1, 0);
    // One step at most: each step of a gesture pauses.
    const int steps = static_cast<int>(in.u8() % 3) - 1;
    if ((in.u8() & 1) != 0) {
        (void)t.narrow(x, y, steps);
    } else {
        (void)t.enlarge(x, y, steps);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Services& s = services();
    imu::fuzz::Bytes in(data, size);
    for (int n = 0; n < kMaxDatagrams && !in.empty(); ++n) {
        const std::uint8_t head = in.u8();
        const int target = head % 4;
        if (target == 3) {
            drive_touch(in, s.touch);
            continue;
        }
        const std::size_t length = std::min<std::size_t>(in.u8(), kMaxLength);
        imu::test::Bytes dgram(length);
        for (unsigned char& b : dgram) {
            b = in.u8();
        }
        if (target == 2 && length > 0 && dgram[0] == 1) {
            // A built-in gesture (group 1) pauses the receiver for up to
            // 0.4 s; no datagram puts a 1 into the low byte of the group
            // (short datagrams leave the rest of the record as it was), so
            // commands are only logged.
            dgram[0] = 2;
        }
        const int err = send_datagram(s.paths[target], dgram);
        if (err != 0) {
            std::fprintf(stderr, "sendto %s: %s\n", s.paths[target].c_str(), std::strerror(err));
        }
        check(err == 0, "datagram accepted");
        unsigned char* model = target == 0 ? s.model_daemond : s.model_calibrator;
        const std::size_t cap = target == 0 ? sizeof s.model_daemond : sizeof s.model_calibrator;
        if (target < 2 && length > 0) {
            std::memcpy(model, dgram.data(), std::min(length, cap));
        }
        s.calib_sent += target == 1 ? 1 : 0;
        s.touch_sent += target == 2 ? 1 : 0;
    }
    check(wait_for([&] {
              sensor_event e{};
              s.daemond.get_data(&e);
              return std::memcmp(e.bytes, s.model_daemond, sizeof e.bytes) == 0;
          }),
          "the service holds the front of the last datagrams");
    check(wait_for([&] { return g_calib_events.load() == s.calib_sent; }),
          "one calibrator callback per datagram");
    {
        std::lock_guard<std::mutex> lock(g_event_mutex);
        if (s.calib_sent > 0) {
            check(g_last_event.type == VLEVENT_CALIBRATION && g_last_event.zero[0] == 0 &&
                      g_last_event.zero[1] == 0 && g_last_event.zero[2] == 0,
                  "calibration event header");
            check(std::memcmp(g_last_event.record, s.model_calibrator, 60) == 0,
                  "calibration event carries the latest record");
        }
    }
    check(wait_for([&] { return g_touch_lines.load() == s.touch_sent; }),
          "one touch command per datagram");
    return 0;
}
