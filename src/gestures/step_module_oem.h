#pragma once
// The second step-counting module on a state record the caller owns.

#include <cstdint>

#include "imu/step_modules.h"

namespace imu::sam {

constexpr int kOemInputWords = 6;
constexpr int kOemConfigBytes = 140;
constexpr std::int32_t kOemWarmUpUpdates = 100;

// An input word (16.16 fixed point) in thousandths: v * 1000 / 65536 for
// |v| <= 999999, otherwise 15.
std::int32_t oem_thousandths(std::int32_t v) noexcept;

// The reset: config holds kOemConfigBytes bytes, or is null for zeros.
void oem_reset(oem_1_sam_state& s, const void* config) noexcept;

// One update: in holds kOemInputWords words; out receives three words.
void oem_update(oem_1_sam_state& s, const std::int32_t* in, std::int32_t* out) noexcept;

}  // namespace imu::sam
