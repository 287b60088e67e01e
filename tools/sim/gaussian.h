#pragma once
// Standard normal numbers from mt19937 by Box-Muller: the engine's output
// is fixed by the C++ standard and the transform is our own, so a seed
// gives the same numbers on every platform, and so does every recording
// made from it.

#include <cmath>
#include <cstdint>
#include <random>

namespace imu::sim {

class Gaussian {
public:
    explicit Gaussian(std::uint32_t seed) : engine_(seed) {}

    // Numbers come in pairs: the second of a pair is kept for the next call.
    double next() {
        if (has_spare_) {
            has_spare_ = false;
            return spare_;
        }
        constexpr double kTwoPi = 6.283185307179586;
        const double u1 = (static_cast<double>(engine_()) + 1.0) / 4294967296.0;  // (0, 1]
        const double u2 = static_cast<double>(engine_()) / 4294967296.0;          // [0, 1)
        const double r = std::sqrt(-2.0 * std::log(u1));
        spare_ = r * std::sin(kTwoPi * u2);
        has_spare_ = true;
        return r * std::cos(kTwoPi * u2);
    }

private:
    std::mt19937 engine_;
    double spare_ = 0.0;
    bool has_spare_ = false;
};

}  // namespace imu::sim
