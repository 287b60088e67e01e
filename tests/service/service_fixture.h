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
#include "support/data_service_client.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace imu::test {

using Triple = std::array<float, 3>;
constexpr Triple kZero{0.0F, 0.0F, 0.0F};

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
    // Accelerometer and magnetometer, so that a gyroscope sample (cycle) can
    // run a cycle.
    static void push_acc_mag() {
        push(kAcceleration, 0.25F, -0.5F, 9.75F);
        push(kMagnetic, 21.0F, -3.5F, -40.25F);
    }
    static void cycle(long long ts) { push(kGyro, 0.125F, -0.0625F, 0.5F, ts); }
    int count_prefix(const std::string& prefix) const {
        int n = 0;
        for (const std::string& t : log.texts()) n += t.rfind(prefix, 0) == 0 ? 1 : 0;
        return n;
    }
    bool poll_started() const {
        return wait_until([&] { return log.count("Start pollSensors") == 1; });
    }

    TempRoot root;
    LogCapture log;
};

}  // namespace imu::test
