// Both step-counting modules on arbitrary input records, with arbitrary
// configurations and user parameters, in state memory of exactly the size
// each asks for (so a write past it is a sanitizer report).

#include <cstdint>
#include <cstring>
#include <memory>

#include "fuzz_support.h"
#include "imu/step_modules.h"

namespace {

using imu::fuzz::check;

constexpr int kMaxRecords = 3000;

void first_module(imu::fuzz::Bytes& in) {
    const auto size = static_cast<std::size_t>(velmo_pedometer_sam_mem_req());
    std::unique_ptr<std::uint8_t[]> mem(new std::uint8_t[size]);
    check(velmo_pedometer_sam_state_reset(nullptr, mem.get()) == mem.get(), "reset");
    std::int32_t last = 0;
    for (int n = 0; n < kMaxRecords && !in.empty(); ++n) {
        std::int32_t rec[10] = {};
        const std::uint8_t how = in.u8();
        for (int i = 0; i < 6; ++i) {
            rec[i] = (how & 1U) != 0 ? in.i32() : static_cast<std::int16_t>(in.u16());
        }
        rec[9] = (how & 2U) != 0 ? in.i32() : 20;
        std::int32_t count = last;
        velmo_pedometer_sam_update(mem.get(), rec, &count);
        check(count >= last, "the first module's count never falls");
        last = count;
    }
}

void second_module(imu::fuzz::Bytes& in) {
    const auto size = static_cast<std::size_t>(oem_1_sam_mem_req());
    std::unique_ptr<std::uint8_t[]> mem(new std::uint8_t[size]);
    std::uint8_t config[140];
    for (std::uint8_t& b : config) {
        b = in.u8();
    }
    check(oem_1_sam_state_reset(config, mem.get()) == mem.get(), "reset");
    oem_1_sam_state st;
    std::memcpy(&st, mem.get(), sizeof st);
    st.user_height = in.i32();
    st.length_selector = in.i32() % 3;
    // Hosts may also change parameters: some runs scribble over a few.
    const std::uint8_t scribbles = in.u8() % 4;
    for (std::uint8_t i = 0; i < scribbles; ++i) {
        st.param[in.u8() % 27] = in.i32();
    }
    std::memcpy(mem.get(), &st, sizeof st);
    for (int n = 0; n < kMaxRecords && !in.empty(); ++n) {
        std::int32_t rec[6];
        const std::uint8_t how = in.u8();
        for (std::int32_t& v : rec) {
            // 16.16 fixed point: often a plausible sensor value.
            v = (how & 1U) != 0 ? in.i32() : static_cast<std::int32_t>(static_cast<std::int16_t>(in.u16())) * 256;
        }
        std::int32_t result[3] = {-1, -1, -1};
        oem_1_sam_update(mem.get(), rec, result);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    imu::fuzz::Bytes in(data, size);
    if ((in.u8() & 1U) == 0) {
        first_module(in);
    } else {
        second_module(in);
    }
    return 0;
}
