// Both step-counting modules on random records and random state memory
// (fixed seed) at an odd address between guard bytes: no write outside the
// record, and under the sanitizer build no integer overflow on any input.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "imu/step_modules.h"

namespace {

TEST(StepModules, RandomInputStaysInTheRecordWithoutOverflow) {
    std::mt19937 rng(20261123U);
    const std::int32_t edges[] = {INT_MIN, -1000000, -999999, -46341,  -1,     0,
                                  1,       46341,    999999,  1000000, INT_MAX};
    const auto word = [&]() -> std::int32_t {
        switch (rng() % 3) {
            case 0:
                return edges[rng() % 11];
            case 1:
                return static_cast<std::int32_t>(rng());
            default:
                return static_cast<std::int32_t>(rng() % 2000000) - 1000000;
        }
    };
    const int sizes[] = {velmo_pedometer_sam_mem_req(), oem_1_sam_mem_req()};
    for (int module = 0; module < 2; ++module) {
        const auto size = static_cast<std::size_t>(sizes[module]);
        std::vector<unsigned char> bytes(size + 33, 0xC3);
        unsigned char* state = bytes.data() + 17;
        std::int32_t record[10];
        std::int32_t out[3];
        for (int i = 0; i < 50000; ++i) {
            for (std::size_t k = 0; i % 997 == 0 && k < size; k += 4) {
                const std::int32_t w = word();
                std::memcpy(state + k, &w, 4);
            }
            for (std::int32_t& w : record) {
                w = word();
            }
            record[9] = static_cast<std::int32_t>(rng() % 20);  // mostly ordinary time steps
            if (module == 0) {
                velmo_pedometer_sam_update(state, record, out);
            } else {
                oem_1_sam_update(state, record, out);
            }
        }
        for (std::size_t k = 0; k < bytes.size(); ++k) {
            ASSERT_TRUE((k >= 17 && k < 17 + size) || bytes[k] == 0xC3) << module << " " << k;
        }
    }
}

}  // namespace
