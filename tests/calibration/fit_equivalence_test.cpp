// The fit's numbers, frozen: distances, sums, fitted values and results
// on ordinary, wide, tiny and degenerate inputs and on whole calibration
// runs good and bad, folded into digests of what the first, plain
// implementation of the fit (a bisection per point, the pattern search
// as it reads) gave on them. Any faster way of finding them must give the
// same numbers; a digest that moves means a result that differs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <ostream>
#include <string>

#include "calibration/fitting.h"
#include "sim/calib_samples.h"
#include "support/bit_digest.h"

namespace {

using imu::test::BitDigest;

void add(BitDigest& d, std::int64_t v) {
    d.add(static_cast<std::uint32_t>(static_cast<std::uint64_t>(v)));
    d.add(static_cast<std::uint32_t>(static_cast<std::uint64_t>(v) >> 32));
}

// Deterministic generator (64-bit LCG, high bits).
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ULL + 1) {}
    std::uint32_t bits() {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<std::uint32_t>(state_ >> 32);
    }
    // Uniform in [lo, hi].
    std::int32_t range(std::int64_t lo, std::int64_t hi) {
        const auto span = static_cast<std::uint64_t>(hi - lo) + 1;
        return static_cast<std::int32_t>(lo + static_cast<std::int64_t>(bits() % span));
    }
    std::int32_t any() { return static_cast<std::int32_t>(bits()); }
    double unit() { return bits() / 4294967296.0; }  // [0, 1)

private:
    std::uint64_t state_;
};

// The kinds of ellipsoid and point sets the search meets, and some it
// should never meet.
enum class Kind { Ordinary, NearSurface, Wide, Tiny, OnPlanes, Negative, NearCentre };

struct Case {
    std::int32_t p[6];
    std::int32_t s;
    std::int32_t q[imu::kCalibSamples][3];
};

void make_case(Kind kind, Rng& rng, Case& c) {
    const std::int32_t divisors[] = {1, 10, 100, 1000};
    c.s = divisors[rng.bits() % 4];
    for (int k = 0; k < 3; ++k) {
        switch (kind) {
            case Kind::Wide:
                c.p[k] = rng.any();
                c.p[k + 3] = rng.any();
                break;
            case Kind::Tiny:
                c.p[k] = rng.range(-3, 3);
                c.p[k + 3] = rng.range(0, 4);
                c.s = 1;
                break;
            case Kind::NearCentre:  // long semi-axes, points close to the centre
                c.p[k] = rng.range(-60000, 60000);
                c.p[k + 3] = rng.range(8000, 33000);
                c.s = 1;
                break;
            case Kind::Negative:
                c.p[k] = rng.range(-50000, 50000);
                c.p[k + 3] = rng.range(-30000, 30000);
                break;
            default:
                c.p[k] = rng.range(-60000, 60000);
                c.p[k + 3] = rng.range(1000, 120000);
                break;
        }
    }
    for (auto& q : c.q) {
        const double a = rng.unit() * 6.283185307179586;
        const double z = rng.unit() * 2.0 - 1.0;
        const double dir[3] = {std::sqrt(1 - z * z) * std::cos(a),
                               std::sqrt(1 - z * z) * std::sin(a), z};
        const double radius = kind == Kind::NearSurface  ? 0.97 + 0.06 * rng.unit()
                              : kind == Kind::NearCentre ? 0.04 * rng.unit()
                                                         : 1.6 * rng.unit();
        for (int k = 0; k < 3; ++k) {
            switch (kind) {
                case Kind::Wide:
                    q[k] = rng.any();
                    break;
                case Kind::Tiny:
                    q[k] = rng.range(-6, 6);
                    break;
                default: {
                    const double v =
                        c.p[k] + radius * dir[k] * std::fabs(static_cast<double>(c.p[k + 3]));
                    q[k] = static_cast<std::int32_t>(v);
                    break;
                }
            }
        }
        if (kind == Kind::OnPlanes) {  // on one or two of the centre planes
            const int k = static_cast<int>(rng.bits() % 3);
            q[k] = c.p[k];
            if (rng.bits() % 3 == 0) {
                q[(k + 1) % 3] = c.p[(k + 1) % 3];
            }
        }
    }
}

struct DistanceSeeds {
    Kind kind;
    std::uint64_t seed;
    int sets;  // of 240 points each
    std::uint64_t digest;
};

void PrintTo(const DistanceSeeds& d, std::ostream* os) {
    *os << "kind" << static_cast<int>(d.kind) << "-seed" << d.seed;
}

class DistanceMatches : public testing::TestWithParam<DistanceSeeds> {};

// Every point's distance, and the sums the search compares, in four lanes
// and in the widest the machine has (the second sum finds the first one's
// distances remembered).
TEST_P(DistanceMatches, PointByPointAndSummed) {
    Rng rng(GetParam().seed);
    auto c = std::make_unique<Case>();
    BitDigest digest;
    for (int set = 0; set < GetParam().sets; ++set) {
        make_case(GetParam().kind, rng, *c);
        std::int64_t sum = 0;
        for (const auto& q : c->q) {
            const std::int32_t d = imu::distance(c->p, q, c->s);
            add(digest, d);
            sum += d;
        }
        add(digest, sum);
        ASSERT_EQ(imu::summed_distance_lanes(c->p, c->q, imu::kCalibSamples, c->s, 4), sum)
            << "set " << set;
        ASSERT_EQ(imu::summed_distance(c->p, c->q, imu::kCalibSamples, c->s), sum) << "set " << set;
    }
    EXPECT_EQ(digest.value(), GetParam().digest);
}

INSTANTIATE_TEST_SUITE_P(
    Seeds, DistanceMatches,
    testing::Values(DistanceSeeds{Kind::Ordinary, 1, 40, 0xCDF75C8ABCFDF656ULL},
                    DistanceSeeds{Kind::NearSurface, 2, 40, 0x3CDC4B830194233CULL},
                    DistanceSeeds{Kind::Wide, 3, 10, 0xA26579E80C56550DULL},
                    DistanceSeeds{Kind::Tiny, 4, 20, 0xE997A5761453CDBCULL},
                    DistanceSeeds{Kind::OnPlanes, 5, 20, 0xA0D2929ED14EAA53ULL},
                    DistanceSeeds{Kind::Negative, 6, 20, 0xE573703134474657ULL},
                    DistanceSeeds{Kind::NearCentre, 8, 20, 0x45D88C8D7E509C78ULL}));

// Bisections over one to three axes, ordinary and extreme.
TEST(BisectorMatches, RandomAxes) {
    Rng rng(7);
    BitDigest digest;
    for (int i = 0; i < 3000; ++i) {
        const int n = 1 + static_cast<int>(rng.bits() % 3);
        std::int64_t e[3];
        std::int64_t y[3];
        for (int k = 0; k < 3; ++k) {
            const bool wide = i % 10 == 0;
            e[k] = wide ? rng.any() : rng.range(0, 3000);
            y[k] = wide ? std::int64_t{rng.any()} * 3 : rng.range(0, 4000);
        }
        std::sort(e, e + n, [](std::int64_t a, std::int64_t b) { return a > b; });
        add(digest, imu::bisector(n, e, y));
    }
    EXPECT_EQ(digest.value(), 0x047E1ACE86BC0D99ULL);
}

// Whole fits of both sensors.
struct RunCase {
    const char* name;
    imu::test::CalibRunSetup setup;
    float acc_factor;  // applied to every accelerometer value
    float mag_factor;
    int bad;               // 0 none, 1 scattered radially, 2 flat z, 3 all equal, 4 NaN and inf,
                           // 5 magnetometer spread over a cube of +-10^6, 6 z nearly flat
    std::uint64_t digest;  // of both sensors' results and fitted values
};

imu::test::CalibRunSetup random_setup(unsigned seed) {
    Rng rng(seed);
    imu::test::CalibRunSetup s;
    for (int k = 0; k < 3; ++k) {
        s.acc.offset[k] = static_cast<float>(rng.unit() * 2.0 - 1.0);
        s.acc.scale[k] = static_cast<float>(0.9 + rng.unit() * 0.2);
        s.mag.offset[k] = static_cast<float>(rng.unit() * 160.0 - 80.0);
        s.mag.scale[k] = static_cast<float>(0.85 + rng.unit() * 0.3);
    }
    s.acc_noise = rng.unit() * 0.1;
    s.mag_noise = rng.unit() * 1.0;
    s.seed = seed;
    return s;
}

void fill(imu::calibrator_data_struct& ws, const RunCase& rc) {
    const imu::test::CalibRun run = imu::test::make_calib_run(rc.setup);
    Rng cube(1);
    for (int i = 0; i < imu::kCalibSamples; ++i) {
        for (int k = 0; k < 3; ++k) {
            float a = run.steps[i].imu.acc_raw[k] * rc.acc_factor;
            float m = run.steps[i].imu.mag_raw[k] * rc.mag_factor;
            if (rc.bad == 1) {
                const float f = 0.3F + 1.4F * static_cast<float>(i * 37 % 100) / 100.0F;
                a *= f;
                m *= f;
            } else if (rc.bad == 2 && k == 2) {
                a = 0.25F;
                m = -3.0F;
            } else if (rc.bad == 3) {
                a = 1.5F;
                m = 20.0F;
            } else if (rc.bad == 6 && k == 2) {
                const float jitter = static_cast<float>(cube.unit() * 2.0 - 1.0);
                a = 0.5F + 0.02F * jitter;
                m = 40.0F + 0.2F * jitter;
            } else if (rc.bad == 5) {
                m = static_cast<float>(1e6 * (cube.unit() * 2.0 - 1.0));
            } else if (rc.bad == 4 && i % 50 == 7) {
                a = std::numeric_limits<float>::quiet_NaN();
                m = -std::numeric_limits<float>::infinity();
            }
            ws.sample[i].acc[k] = a;
            ws.sample[i].mag[k] = m;
        }
    }
    ws.acc_fit_limit = imu::kAccFitLimit;
    ws.mag_fit_limit = imu::kMagFitLimit;
}

void PrintTo(const RunCase& c, std::ostream* os) { *os << c.name; }

class FitMatches : public testing::TestWithParam<RunCase> {};

TEST_P(FitMatches, SameResultAndValues) {
    auto ws = std::make_unique<imu::calibrator_data_struct>();
    fill(*ws, GetParam());
    BitDigest digest;
    std::string values;
    for (const int which : {imu::kAccSensor, imu::kMagSensor}) {
        testing::internal::CaptureStdout();
        const int result = imu::fitting(ws.get(), which);
        testing::internal::GetCapturedStdout();
        add(digest, result);
        values += std::to_string(result);
        for (const float v : which == imu::kAccSensor ? ws->acc_fit : ws->mag_fit) {
            digest.add(v);
            values += " " + std::to_string(v);
        }
        values += "; ";
    }
    EXPECT_EQ(digest.value(), GetParam().digest) << values;
}

std::string run_name(const testing::TestParamInfo<RunCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Runs, FitMatches,
    testing::Values(RunCase{"Ordinary", {}, 1.0F, 1.0F, 0, 0x597D712A4F020E89ULL},
                    RunCase{"Random11", random_setup(11), 1.0F, 1.0F, 0, 0x06DADF661BA25B5CULL},
                    RunCase{"Random12", random_setup(12), 1.0F, 1.0F, 0, 0xF9D31096A347DE87ULL},
                    RunCase{"Random13", random_setup(13), 1.0F, 1.0F, 0, 0xD68EC01B2218CE36ULL},
                    RunCase{"SmallNumbers", random_setup(14), 0.01F, 0.01F, 0,
                            0x035C2E6FD5F001C0ULL},
                    RunCase{"NearTheTop", random_setup(15), 1e5F, 1e3F, 0, 0x641E93432437A8DEULL},
                    RunCase{"WideCube", {}, 1e5F, 1.0F, 5, 0xA23CBA2692512810ULL},
                    RunCase{"Scattered", {}, 1.0F, 1.0F, 1, 0xEE1BCC688A43114CULL},
                    RunCase{"FlatAxis", {}, 1.0F, 1.0F, 2, 0x211A0FC35378E209ULL},
                    RunCase{"NearlyFlat", {}, 1.0F, 1.0F, 6, 0xFF43161A4A90D938ULL},
                    RunCase{"AllEqual", {}, 1.0F, 1.0F, 3, 0x10707B70A5866956ULL},
                    RunCase{"NotANumber", {}, 1.0F, 1.0F, 4, 0x9FB76B1F5DCF6BD4ULL}),
    run_name);

}  // namespace
