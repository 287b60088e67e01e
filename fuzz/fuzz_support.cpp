#include "fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>

#include "imu/host.h"
#include "support/temp_root.h"

namespace imu::fuzz {
namespace {

void drop_log(int /*prio*/, const char* /*tag*/, const char* /*text*/, void* /*ctx*/) {}

}  // namespace

const std::string& setup_root() {
    // Never destroyed: the library may use the root until the process ends.
    static test::TempRoot* root = [] {
        imu_host_set_log_sink(drop_log, nullptr);
        return new test::TempRoot();
    }();
    return root->dir();
}

void write_file(const std::string& rel, const std::uint8_t* data, std::size_t size) {
    const std::string path = setup_root() + rel;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    check(f != nullptr, "fuzz root file cannot be written");
    if (size > 0) {
        check(std::fwrite(data, 1, size, f) == size, "fuzz root file write");
    }
    std::fclose(f);
}

void remove_file(const std::string& rel) { std::remove((setup_root() + rel).c_str()); }

bool read_file(const std::string& rel, std::string* out) {
    std::ifstream in(setup_root() + rel, std::ios::binary);
    if (!in) {
        return false;
    }
    out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

void check(bool cond, const char* what) {
    if (!cond) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

std::uint8_t Bytes::u8() { return p_ == end_ ? 0 : *p_++; }

std::uint16_t Bytes::u16() {
    const auto lo = static_cast<std::uint16_t>(u8());
    return static_cast<std::uint16_t>(lo | static_cast<std::uint16_t>(u8() << 8));
}

std::uint32_t Bytes::u32() {
    const std::uint32_t lo = u16();
    return lo | (static_cast<std::uint32_t>(u16()) << 16);
}

std::uint64_t Bytes::u64() {
    const std::uint64_t lo = u32();
    return lo | (static_cast<std::uint64_t>(u32()) << 32);
}

float Bytes::real() {
    using L = std::numeric_limits<float>;
    static const float kSpecial[] = {
        0.0F,         -0.0F,          1.0F,          -1.0F,
        9.80665F,     L::quiet_NaN(), L::infinity(), -L::infinity(),
        L::denorm_min(), -L::denorm_min(), L::min(), L::max(),
        -L::max(),    1e30F,          -1e30F,        1e-30F};
    const std::uint8_t sel = u8();
    if (sel < 32) {
        return kSpecial[sel % 16];
    }
    if (sel < 64) {
        const std::uint32_t bits = u32();
        float v;
        std::memcpy(&v, &bits, sizeof v);
        return v;
    }
    // A plausible value: 16 bits spread over [-64, 64).
    return static_cast<float>(static_cast<int>(u16()) - 32768) / 512.0F;
}

void Bytes::triple(float out[3], float bx, float by, float bz) {
    const float base[3] = {bx, by, bz};
    const std::uint8_t how = u8();
    for (int i = 0; i < 3; ++i) {
        // Two bits per axis: keep the base, add a small jitter, or replace.
        switch ((how >> (2 * i)) & 3U) {
            case 0:
                out[i] = base[i];
                break;
            case 1:
                out[i] = base[i] + static_cast<float>(static_cast<int>(u8()) - 128) / 64.0F;
                break;
            default:
                out[i] = real();
                break;
        }
    }
}

}  // namespace imu::fuzz
