// imu-replay: feeds a recording of a phone's sensors through libimu as a
// sensor service would, and reports what came out. See options.cpp for the
// command line.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "imu/host.h"
#include "options.h"
#include "recording.h"
#include "replay.h"

namespace {

int fail(const std::string& what, int code) {
    std::fprintf(stderr, "imu-replay: %s\n", what.c_str());
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace imu::replay;
    Options o;
    const std::string usage_error = parse_options(std::vector<std::string>(argv + 1, argv + argc), o);
    if (!usage_error.empty()) {
        return fail(usage_error + " (imu-replay --help lists the options)", 2);
    }
    if (o.help) {
        std::fputs(usage(), stdout);
        return 0;
    }
    if (o.input.empty()) {
        o.input = find_demo();
        if (o.input.empty()) {
            return fail("no demo recording found (data/demo.csv); name a recording", 1);
        }
        if (o.plot.empty()) {
            o.plot = plot_next_to(o.input);
        }
    }

    Recording rec;
    const std::string read_error = read_recording(o.input, o.layout, o.units, rec);
    if (!read_error.empty()) {
        return fail(read_error, 1);
    }

    const bool temp_root = o.root.empty();
    const std::string root = temp_root ? make_temp_root() : o.root;
    if (root.empty()) {
        return fail(std::string("cannot make a temporary folder (") + std::strerror(errno) + ")", 1);
    }
    if (!temp_root) {
        const std::string e = prepare_root(root);
        if (!e.empty()) {
            return fail(e, 1);
        }
    }
    imu_host_set_root(root.c_str());

    std::FILE* out = nullptr;
    if (o.output == "-") {
        out = stdout;
    } else if (!o.output.empty()) {
        out = std::fopen(o.output.c_str(), "w");
        if (out == nullptr) {
            return fail(o.output + ": cannot write (" + std::strerror(errno) + ")", 1);
        }
    }

    ReplaySettings settings;
    settings.mode = o.mode;
    settings.enable = o.enable;
    settings.out_slots = o.out_slots;
    settings.out = out;
    settings.progress = o.progress && ::isatty(STDERR_FILENO) == 1;
    settings.settle_s = o.settle_s;
    set_log_echo(o.log);
    ReplayResult result;
    std::string error = run_replay(rec, settings, result);
    if (out != nullptr && out != stdout && std::fclose(out) != 0 && error.empty()) {
        error = o.output + ": cannot write (" + std::strerror(errno) + ")";
    }
    imu_host_set_root(nullptr);
    if (temp_root) {
        remove_tree(root);
    }
    if (!error.empty()) {
        return fail(error, 1);
    }

    std::FILE* report = out == stdout ? stderr : stdout;
    print_summary(report, o.input, rec, settings, result);
    if (!o.plot.empty()) {
        const std::size_t slash = o.input.rfind('/');
        const std::string title = slash == std::string::npos ? o.input : o.input.substr(slash + 1);
        const std::string plot_error = write_plot(o.plot, title, result, rec.script);
        if (!plot_error.empty()) {
            return fail(o.plot + ": " + plot_error, 1);
        }
        std::fprintf(report, "plot          %s\n", o.plot.c_str());
    }
    return 0;
}
