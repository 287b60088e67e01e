#pragma once
// A digest of the exact bit patterns a run produces (64-bit FNV-1a), for
// results that every target must reproduce bit for bit.

#include <cstdint>
#include <cstring>
#include <string>

namespace imu::test {

class BitDigest {
public:
    void add(std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            h_ = (h_ ^ ((v >> (8 * i)) & 0xFFU)) * 0x100000001B3ULL;
        }
    }
    void add(float f) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &f, sizeof bits);
        add(bits);
    }
    void add(const std::string& s) {
        for (const char c : s) {
            add(static_cast<std::uint32_t>(static_cast<unsigned char>(c)));
        }
    }
    std::uint64_t value() const { return h_; }

private:
    std::uint64_t h_ = 0xCBF29CE484222325ULL;
};

}  // namespace imu::test
