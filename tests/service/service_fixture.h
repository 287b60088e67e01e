#pragma once
// A fresh root, a log capture and the service object, destroyed (its poll
// thread ended) before the root and the capture go.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "imu/host.h"
#include "imu/service.h"
#include "service/velmofusion.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace imu::test {

using Triple = std::array<float, 3>;

class ServiceTest : public testing::Test {
protected:
    void TearDown() override { destroy_service(); }

    // The service object, created by a first call as the caller would.
    velmofusion& svc() {
        float out[3];
        get_fusiond_data(0, out);
        return *service();
    }

    static Triple slot(int index) {
        Triple t{-1.0F, -1.0F, -1.0F};
        get_fusiond_data(index, t.data());
        return t;
    }

    static void push(int type, float x, float y, float z, long long ts = 0) {
        float v[3] = {x, y, z};
        input_raw_data(type, v, ts);
    }

    // Lines that start with prefix.
    int count_prefix(const std::string& prefix) const {
        int n = 0;
        for (const std::string& t : log.texts()) {
            n += t.rfind(prefix, 0) == 0 ? 1 : 0;
        }
        return n;
    }

    // Waits up to 3 s for cond (the poll thread naps up to 500 ms).
    static bool eventually(const std::function<bool()>& cond) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
        while (!cond() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return cond();
    }

    TempRoot root;
    LogCapture log;
};

}  // namespace imu::test
