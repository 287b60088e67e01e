#pragma once
// The first step-counting module on a state record the caller owns.

#include <cstdint>

#include "imu/step_modules.h"

namespace imu::sam {

constexpr int kVelmoInputWords = 10;
constexpr int kVelmoDtWord = 9;

// One update of the first module: in holds kVelmoInputWords words. Returns
// false, leaving s as it was, when the record's time step is 0 or less.
bool velmo_update(pedometer_sam_state& s, const std::int32_t* in) noexcept;

}  // namespace imu::sam
