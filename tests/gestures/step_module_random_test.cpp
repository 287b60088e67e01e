// Both step-counting modules on many random records and random state
// memory (fixed seed): every update stays inside its record, keeps the
// invariants of the state, and - under the sanitizer build - no integer
// overflows on any input.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <random>
#include <vector>

#include "imu/step_modules.h"

namespace {

constexpr int kUpdates = 200000;
constexpr int kGarbageEvery = 997;  // updates between fills of the state with random bytes
constexpr std::size_t kGuard = 16;
constexpr unsigned char kCanary = 0xC3;

class Source {
public:
    explicit Source(std::uint32_t seed) : rng_(seed) {}

    // Mostly extremes and edges of the modules' ranges, some plain values.
    std::int32_t word() {
        static constexpr std::int32_t kEdges[] = {
            INT_MIN, INT_MIN + 1, -1000000, -999999, -46341, -46340, -65536,  -1,          0,
            1,       5,           46340,    46341,   65536,  999999, 1000000, INT_MAX - 1, INT_MAX};
        switch (pick(4)) {
            case 0:
                return kEdges[pick(sizeof kEdges / sizeof kEdges[0])];
            case 1:
                return static_cast<std::int32_t>(rng_());
            case 2:
                return static_cast<std::int32_t>(pick(40000)) - 20000;  // plausible
            default:
                return static_cast<std::int32_t>(pick(2000000)) - 1000000;  // 16.16 range
        }
    }

    void fill(unsigned char* bytes, std::size_t n) {
        for (std::size_t i = 0; i < n; i += 4) {
            const std::int32_t w = word();
            std::memcpy(bytes + i, &w, std::min<std::size_t>(4, n - i));
        }
    }

    std::uint32_t pick(std::size_t n) { return static_cast<std::uint32_t>(rng_() % n); }

private:
    std::mt19937 rng_;
};

// State memory at an odd address between two guard bands.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size)
        : size_(size), bytes_(size + 2 * kGuard + 1, kCanary) {}
    void* state() { return bytes_.data() + kGuard + 1; }
    bool guards_intact() const {
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            const bool inside = i >= kGuard + 1 && i < kGuard + 1 + size_;
            if (!inside && bytes_[i] != kCanary) {
                return false;
            }
        }
        return true;
    }

private:
    std::size_t size_;
    std::vector<unsigned char> bytes_;
};

TEST(StepModuleRandom, FirstModuleStaysInItsRecord) {
    Source source(20261123U);
    GuardedMemory memory(static_cast<std::size_t>(velmo_pedometer_sam_mem_req()));
    velmo_pedometer_sam_state_reset(nullptr, memory.state());
    for (int i = 0; i < kUpdates; ++i) {
        if (i % kGarbageEvery == kGarbageEvery - 1) {
            source.fill(static_cast<unsigned char*>(memory.state()), sizeof(pedometer_sam_state));
        }
        std::array<std::int32_t, 10> record;
        for (std::int32_t& w : record) {
            w = source.word();
        }
        if (source.pick(2) == 0) {
            record[9] = static_cast<std::int32_t>(source.pick(20));  // mostly ordinary steps
        }
        pedometer_sam_state before;
        std::memcpy(&before, memory.state(), sizeof before);
        std::int32_t out = INT_MIN;
        velmo_pedometer_sam_update(memory.state(), record.data(), &out);
        pedometer_sam_state after;
        std::memcpy(&after, memory.state(), sizeof after);

        ASSERT_TRUE(memory.guards_intact()) << "update " << i;
        ASSERT_EQ(std::memcmp(after.unused, before.unused, sizeof after.unused), 0);
        if (record[9] <= 0) {
            ASSERT_EQ(out, INT_MIN);
            ASSERT_EQ(std::memcmp(&after, &before, sizeof after), 0);
            continue;
        }
        ASSERT_EQ(out, after.count);
        ASSERT_TRUE(after.stage == 0 || after.stage == 1 || after.stage == 2 || after.stage == 99)
            << "update " << i << " stage " << int{after.stage};
        // Timers and the count only grow or start over: they never wrap negative.
        if (before.stage_ms >= 0 && before.interval_ms >= 0 && before.count >= 0) {
            ASSERT_GE(after.stage_ms, 0) << "update " << i;
            ASSERT_GE(after.interval_ms, 0) << "update " << i;
            ASSERT_GE(after.count, 0) << "update " << i;
        }
    }
}

TEST(StepModuleRandom, SecondModuleStaysInItsRecord) {
    Source source(7U);
    GuardedMemory memory(static_cast<std::size_t>(oem_1_sam_mem_req()));
    std::array<std::int32_t, 35> config;
    for (std::int32_t& w : config) {
        w = source.word();
    }
    oem_1_sam_state_reset(config.data(), memory.state());
    for (int i = 0; i < kUpdates; ++i) {
        if (i % kGarbageEvery == kGarbageEvery - 1) {
            source.fill(static_cast<unsigned char*>(memory.state()), sizeof(oem_1_sam_state));
        }
        std::array<std::int32_t, 6> record;
        for (std::int32_t& w : record) {
            w = source.word();
        }
        oem_1_sam_state before;
        std::memcpy(&before, memory.state(), sizeof before);
        std::array<std::int32_t, 3> out{INT_MIN, INT_MIN, INT_MIN};
        oem_1_sam_update(memory.state(), record.data(), out.data());
        oem_1_sam_state after;
        std::memcpy(&after, memory.state(), sizeof after);

        ASSERT_TRUE(memory.guards_intact()) << "update " << i;
        // Words 32 to 67 belong to the host and the reset.
        ASSERT_EQ(std::memcmp(&after.module_counter, &before.module_counter,
                              sizeof after - offsetof(oem_1_sam_state, module_counter)),
                  0);
        ASSERT_EQ(out[2], after.module_counter);
        if (before.warm_up < 100) {
            ASSERT_EQ(out[0], 0);
            ASSERT_EQ(out[1], 0);
            ASSERT_EQ(after.warm_up, before.warm_up + 1);
            continue;
        }
        ASSERT_EQ(out[0], after.count);
        ASSERT_EQ(out[1], after.total_length);
        ASSERT_LE(after.count, 1000000000);
        ASSERT_LE(after.total_length, 1000000000);
        for (const std::int32_t timer :
             {after.stage_ms, after.interval_ms, after.judged_stage_ms, after.since_step_ms}) {
            ASSERT_LE(timer, 604800) << "update " << i;
        }
        if (before.param[OEM_1_SAM_P_STEP_MS] >= 0 && before.stage_ms >= 0 &&
            before.since_step_ms >= 0 && before.count >= 0 && before.total_length >= 0) {
            ASSERT_GE(after.stage_ms, 0) << "update " << i;
            ASSERT_GE(after.since_step_ms, 0) << "update " << i;
            ASSERT_GE(after.count, 0) << "update " << i;
        }
        ASSERT_TRUE(after.stage == 0 || after.stage == 1 || after.stage == 2 || after.stage == 10)
            << "update " << i << " stage " << int{after.stage};
    }
}

}  // namespace
