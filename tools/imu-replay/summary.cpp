// The summary printed after a replay, and the plot.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "replay.h"

namespace imu::replay {
namespace {

const char* layout_name(Layout l) { return l == Layout::kWide ? "wide CSV" : "event stream"; }

// A gnuplot string in single quotes, where a quote is written twice.
std::string quoted(const std::string& s) {
    std::string q = "'";
    for (const char c : s) {
        q += c;
        if (c == '\'') {
            q += c;
        }
    }
    return q + "'";
}

}  // namespace

void print_summary(std::FILE* f, const std::string& name, const Recording& rec,
                   const ReplaySettings& settings, const ReplayResult& r) {
    std::fprintf(f, "recording     %s (%s)\n", name.c_str(), layout_name(rec.layout));
    std::fprintf(f, "duration      %.3f s\n", rec.duration_s());
    std::fprintf(f, "samples       %zu (", r.samples);
    const char* sep = "";
    for (int s = 0; s < 6; ++s) {
        if (rec.count[s] > 0) {
            std::fprintf(f, "%s%zu %s", sep, rec.count[s], sensor_name(static_cast<Sensor>(s)));
            sep = ", ";
        }
    }
    std::fprintf(f, ")\n");
    std::fprintf(f, "mode          %d, enabled:", settings.mode);
    for (const int i : settings.enable) {
        std::fprintf(f, " %s", slot_name(i));
    }
    std::fprintf(f, "\n");
    std::fprintf(f, "cycles        %zu", r.cycles);
    if (r.not_ready + r.time_errors > 0) {
        std::fprintf(f, " (none for %zu gyroscope samples without accelerometer or magnetometer "
                        "data yet and %zu after a gap of a second or more)",
                     r.not_ready, r.time_errors);
    }
    std::fprintf(f, "\n");
    std::fprintf(f, "speed         %.0f cycles per second (%.3f s)\n", r.cycles_per_s, r.wall_s);
    std::fprintf(f, "gestures      %zu\n", r.gestures.size());
    for (const Gesture& g : r.gestures) {
        std::fprintf(f, "  %9.3f s  %s\n", g.t_s, slot_name(g.index));
    }
    bool pedometer = false;
    for (const int i : settings.enable) {
        pedometer = pedometer || i == kPedometerSlot;
    }
    if (pedometer) {
        std::fprintf(f, "steps         %.0f, %.2f m", r.step_count, r.distance_m);
        if (!r.steps.empty()) {
            std::fprintf(f, " (counted from %.3f s to %.3f s)", r.steps.front().t_s,
                         r.steps.back().t_s);
        }
        std::fprintf(f, "\n");
    }
    std::fprintf(f, "orientation   azimuth %.1f, pitch %.1f, roll %.1f deg at the end\n",
                 static_cast<double>(r.final_orientation[0]),
                 static_cast<double>(r.final_orientation[1]),
                 static_cast<double>(r.final_orientation[2]));
    if (r.error_cycles > 0) {
        std::fprintf(f, "error         RMS %.2f deg, max %.2f deg (%zu cycles from %.1f s on)\n",
                     r.error_rms_deg, r.error_max_deg, r.error_cycles, settings.settle_s);
    }
    if (!rec.script.empty()) {
        std::fprintf(f, "script        %zu events\n", rec.script.size());
        for (const ScriptEvent& e : rec.script) {
            std::fprintf(f, "  %9.3f s  %s%s%s\n", e.t_s, e.name.c_str(), e.detail.empty() ? "" : ", ",
                         e.detail.c_str());
        }
    }
}

std::string write_plot(const std::string& png, const std::string& title,
                       const ReplayResult& r, const std::vector<ScriptEvent>& script) {
    char dir[] = "/tmp/imu-replay-plot-XXXXXX";
    if (::mkdtemp(dir) == nullptr) {
        return std::string("cannot make a temporary folder (") + std::strerror(errno) + ")";
    }
    const std::string data = std::string(dir) + "/angles.dat";
    const std::string marks = std::string(dir) + "/marks.dat";
    const std::string gp = std::string(dir) + "/plot.gp";
    std::string err;
    {
        std::FILE* f = std::fopen(data.c_str(), "w");
        std::FILE* m = std::fopen(marks.c_str(), "w");
        std::FILE* s = std::fopen(gp.c_str(), "w");
        if (f == nullptr || m == nullptr || s == nullptr) {
            err = std::string("cannot write the plot data (") + std::strerror(errno) + ")";
        } else {
            // Azimuth is drawn from -180 to 180 so that it shares the axis.
            double prev[3] = {};
            for (const PlotPoint& p : r.plot) {
                const double az = static_cast<double>(p.angles[0]);
                const double shown[3] = {az > 180.0 ? az - 360.0 : az,
                                         static_cast<double>(p.angles[1]),
                                         static_cast<double>(p.angles[2])};
                bool wrapped = false;
                for (int i = 0; i < 3; ++i) {
                    wrapped = wrapped || std::fabs(shown[i] - prev[i]) > 180.0;
                    prev[i] = shown[i];
                }
                if (wrapped && &p != r.plot.data()) {
                    std::fprintf(f, "\n");  // no line across a wrap at +-180
                }
                std::fprintf(f, "%.4f %.2f %.2f %.2f\n", static_cast<double>(p.t_s), shown[0],
                             shown[1], shown[2]);
            }
            // Labels of gestures close together are staggered in height.
            double last_t = -1e9;
            int level = 0;
            for (const Gesture& g : r.gestures) {
                level = g.t_s - last_t < 3.0 ? (level + 1) % 3 : 0;
                last_t = g.t_s;
                std::fprintf(m, "%.4f \"%s\" %d\n", g.t_s, slot_name(g.index), 190 - 45 * level);
            }
            std::fprintf(m, "\n\n");
            for (const Step& st : r.steps) {
                std::fprintf(m, "%.4f %.0f\n", st.t_s, static_cast<double>(st.steps));
            }
            std::fprintf(m, "\n\n");
            for (const ScriptEvent& e : script) {
                std::string name = e.name;
                for (char& c : name) {
                    c = c == '"' ? '\'' : c;
                }
                std::fprintf(m, "%.4f \"%s\"\n", e.t_s, name.c_str());
            }
            // gnuplot is given only the data sets that have points.
            std::string plot = "plot " + quoted(data) +
                               " using 1:2 with lines lw 1.5 title 'azimuth', "
                               "'' using 1:3 with lines lw 1.5 title 'pitch', "
                               "'' using 1:4 with lines lw 1.5 title 'roll'";
            if (!r.gestures.empty()) {
                plot += ", " + quoted(marks) +
                        " index 0 using 1:(185):(0):(-375) with vectors nohead dt 2 "
                        "lc 'gray40' notitle, '' index 0 using 1:3:2 with labels right "
                        "rotate by 90 offset -0.6,0 font ',8' noenhanced notitle";
            }
            if (!r.steps.empty()) {
                plot += ", " + quoted(marks) +
                        " index 1 using 1:(-190) with points pt 9 ps 0.8 lc 'dark-green' "
                        "title 'steps'";
            }
            if (!script.empty()) {
                plot += ", " + quoted(marks) +
                        " index 2 using 1:(-175):2 with labels left rotate by 90 "
                        "font ',8' tc 'gray30' noenhanced notitle";
            }
            std::fprintf(s,
                         "set terminal pngcairo size 1200,600 font 'sans,10'\n"
                         "set output %s\n"
                         "set title %s noenhanced\n"
                         "set xlabel 'time (s)'\nset ylabel 'degrees'\n"
                         "set yrange [-200:200]\nset ytics 45\nset grid\n"
                         "set key outside right top\n%s\n",
                         quoted(png).c_str(), quoted(title).c_str(), plot.c_str());
        }
        for (std::FILE* x : {f, m, s}) {
            if (x != nullptr && std::fclose(x) != 0 && err.empty()) {
                err = "cannot write the plot data";
            }
        }
    }
    if (err.empty()) {
        const std::string cmd = "gnuplot " + gp + " 2>&1";  // a mkdtemp path: no quotes needed
        std::FILE* p = ::popen(cmd.c_str(), "r");
        std::string said;
        if (p == nullptr) {
            err = "cannot run gnuplot";
        } else {
            char buf[512];
            while (std::fgets(buf, sizeof buf, p) != nullptr) {
                said += buf;
            }
            const int status = ::pclose(p);
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
                err = WIFEXITED(status) && WEXITSTATUS(status) == 127
                          ? "gnuplot is not installed (scripts/setup.sh installs it)"
                          : "gnuplot failed: " + said;
            }
        }
    }
    std::remove(data.c_str());
    std::remove(marks.c_str());
    std::remove(gp.c_str());
    ::rmdir(dir);
    return err;
}

}  // namespace imu::replay
