// imu-sim: writes a synthetic recording in the event-stream CSV from a
// scenario file or a built-in scenario.
//
//   imu-sim [SCENARIO] [-o FILE] [--rate HZ] [--mag-rate HZ] [--seed N] [--noise LEVEL]

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>

#include "sim/event_csv.h"
#include "sim/scenario.h"

namespace {

constexpr const char* kUsage =
    "usage: imu-sim [SCENARIO] [-o FILE] [--rate HZ] [--mag-rate HZ] [--seed N] [--noise LEVEL]\n"
    "\n"
    "Writes a synthetic recording of the phone's sensors with its true orientation\n"
    "as the event-stream CSV. SCENARIO is a scenario file or the name of a built-in\n"
    "scenario (demo, the default). The options override the scenario's settings:\n"
    "  -o, --output FILE   write to FILE instead of standard output\n"
    "  --rate HZ           accelerometer and gyroscope rate, 20 to 1000\n"
    "  --mag-rate HZ       magnetometer rate, 1 to the main rate\n"
    "  --seed N            noise seed, 0 to 4294967295\n"
    "  --noise LEVEL       noise level, 0 (none) to 10; 1 is a typical phone\n"
    "The scenario syntax is described in tools/README.md.\n";

struct Options {
    std::string scenario = "demo";
    std::string output;
    const char* rate = nullptr;
    const char* mag_rate = nullptr;
    const char* seed = nullptr;
    const char* noise = nullptr;
};

bool number_in(const char* text, double lo, double hi, bool whole, double* value) {
    errno = 0;
    char* end = nullptr;
    *value = std::strtod(text, &end);
    return *text != '\0' && errno == 0 && *end == '\0' && std::isfinite(*value) && *value >= lo &&
           *value <= hi && (!whole || *value == std::floor(*value));
}

// Applies one numeric option; prints the problem and returns false when bad.
bool apply(const char* option, const char* text, double lo, double hi, bool whole, double* target) {
    if (text == nullptr) {
        return true;
    }
    double v = 0.0;
    if (!number_in(text, lo, hi, whole, &v)) {
        std::ostringstream range;
        range << std::fixed << std::setprecision(0) << lo << " to " << hi;
        std::cerr << "imu-sim: " << option << " must be "
                  << (whole ? "a whole number " : "a number ") << "from " << range.str()
                  << ", not '" << text << "'\n";
        return false;
    }
    *target = v;
    return true;
}

// 0 done, 1 run, 2 usage error.
int parse_args(int argc, char** argv, Options* opt) {
    bool have_scenario = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const char** value_of = nullptr;
        if (a == "-h" || a == "--help") {
            std::cout << kUsage;
            return 0;
        }
        if (a == "--rate") {
            value_of = &opt->rate;
        } else if (a == "--mag-rate") {
            value_of = &opt->mag_rate;
        } else if (a == "--seed") {
            value_of = &opt->seed;
        } else if (a == "--noise") {
            value_of = &opt->noise;
        }
        if (value_of != nullptr || a == "-o" || a == "--output") {
            if (i + 1 >= argc) {
                std::cerr << "imu-sim: " << a << " needs a value\n" << kUsage;
                return 2;
            }
            if (value_of != nullptr) {
                *value_of = argv[++i];
            } else {
                opt->output = argv[++i];
            }
            continue;
        }
        if (a.size() > 1 && a[0] == '-') {
            std::cerr << "imu-sim: unknown option '" << a << "'\n" << kUsage;
            return 2;
        }
        if (have_scenario) {
            std::cerr << "imu-sim: only one scenario, got '" << opt->scenario << "' and '" << a
                      << "'\n";
            return 2;
        }
        opt->scenario = a;
        have_scenario = true;
    }
    return 1;
}

imu::sim::Scenario load(const std::string& name) {
    std::ifstream file(name);
    if (file) {
        return imu::sim::parse_scenario(file, name);
    }
    const char* text = imu::sim::builtin_scenario(name);
    if (text == nullptr) {
        throw std::runtime_error("imu-sim: cannot open scenario '" + name + "' (" +
                                 std::generic_category().message(errno) +
                                 ") and there is no built-in scenario of that name (demo)");
    }
    std::istringstream in(text);
    return imu::sim::parse_scenario(in, name);
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    const int parsed = parse_args(argc, argv, &opt);
    if (parsed != 1) {
        return parsed;
    }
    try {
        imu::sim::Scenario sc = load(opt.scenario);
        double seed = sc.seed;
        if (!apply("--rate", opt.rate, 20.0, 1000.0, false, &sc.rate_hz) ||
            !apply("--mag-rate", opt.mag_rate, 1.0, 1000.0, false, &sc.mag_rate_hz) ||
            !apply("--seed", opt.seed, 0.0, 4294967295.0, true, &seed) ||
            !apply("--noise", opt.noise, 0.0, 10.0, false, &sc.noise)) {
            return 2;
        }
        sc.seed = static_cast<std::uint32_t>(seed);
        const imu::sim::EventStream stream = imu::sim::render_scenario(sc);
        if (opt.output.empty()) {
            imu::sim::write_event_csv(std::cout, stream);
            std::cout.flush();
            return std::cout ? 0 : 1;
        }
        std::ofstream out(opt.output);
        if (out) {
            imu::sim::write_event_csv(out, stream);
            out.close();
        }
        if (!out) {
            std::cerr << "imu-sim: cannot write '" << opt.output
                      << "': " << std::generic_category().message(errno) << '\n';
            return 1;
        }
        return 0;
    } catch (const imu::sim::ScenarioError& e) {
        std::cerr << "imu-sim: " << e.what() << '\n';
        return 1;
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
