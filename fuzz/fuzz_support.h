#pragma once
// What every fuzz target shares: a temporary root for the library's files,
// silent logs, and a reader that turns fuzz bytes into the values the
// library's inputs take (with the floats that break arithmetic made likely).

#include <cstddef>
#include <cstdint>
#include <string>

namespace imu::fuzz {

// Points the library's fixed paths at a fresh temporary folder (once per
// process) and drops its log lines. Returns the folder.
const std::string& setup_root();

// Replaces the file at rel (e.g. "/data/system/velmoGR.ini") under the root.
void write_file(const std::string& rel, const std::uint8_t* data, std::size_t size);
void remove_file(const std::string& rel);
// The whole file into out; false when it cannot be read.
bool read_file(const std::string& rel, std::string* out);

// Aborts (so libFuzzer reports the input) when cond is false.
void check(bool cond, const char* what);

// Consumes the fuzz input front to back; past the end every read gives 0.
class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : p_(data), end_(data + size) {}

    bool empty() const { return p_ == end_; }
    std::size_t left() const { return static_cast<std::size_t>(end_ - p_); }
    std::uint8_t u8();
    std::uint16_t u16();
    std::uint32_t u32();
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    std::uint64_t u64();
    // A float that is often one of the troublesome values (NaN, +-inf,
    // denormals, +-FLT_MAX, zeros), often a plausible sensor value in
    // [-64, 64), and otherwise any bit pattern.
    float real();
    // A sensor triple near a plausible one: real() values mixed with the
    // given base.
    void triple(float out[3], float bx, float by, float bz);

private:
    const std::uint8_t* p_;
    const std::uint8_t* end_;
};

}  // namespace imu::fuzz
