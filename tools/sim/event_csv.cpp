#include "sim/event_csv.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace imu::sim {
namespace {

constexpr const char* kHeader = "timestamp_ns,sensor,x,y,z,true_qw,true_qx,true_qy,true_qz";
constexpr const char* kEventPrefix = "# event,";

// Fixed decimals; a value that rounds to zero is written "0" so that no
// "-0.0000" appears.
void put_number(std::string& line, double value, int places) {
    char buf[64];
    const double scale = std::pow(10.0, places);
    if (std::round(value * scale) == 0.0) {
        line += '0';
        return;
    }
    (void)std::snprintf(buf, sizeof buf, "%.*f", places, value);
    line += buf;
}

void put_event(std::ostream& out, const ScriptEvent& e) {
    char t[32];
    (void)std::snprintf(t, sizeof t, "%.3f", e.t_s);
    out << kEventPrefix << t << ',' << e.name;
    if (!e.detail.empty()) {
        out << ',' << e.detail;
    }
    out << '\n';
}

std::vector<std::string> split(const std::string& line, char sep) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, sep)) {
        fields.push_back(field);
    }
    if (!line.empty() && line.back() == sep) {
        fields.emplace_back();
    }
    return fields;
}

bool parse_double(const std::string& text, double* value) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    return errno == 0 && end == text.c_str() + text.size() && std::isfinite(*value);
}

bool parse_int64(const std::string& text, std::int64_t* value) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    *value = v;
    return errno == 0 && end == text.c_str() + text.size();
}

std::string at_line(std::size_t number, const std::string& what) {
    return "line " + std::to_string(number) + ": " + what;
}

}  // namespace

const char* sensor_name(SensorKind kind) {
    switch (kind) {
        case SensorKind::kAcc:
            return "acc";
        case SensorKind::kGyro:
            return "gyro";
        case SensorKind::kMag:
            return "mag";
        case SensorKind::kLight:
            return "light";
        case SensorKind::kProximity:
            return "proximity";
        case SensorKind::kButton:
            return "button";
    }
    return "?";
}

std::optional<SensorKind> sensor_from_name(const std::string& name) {
    for (const SensorKind k : {SensorKind::kAcc, SensorKind::kGyro, SensorKind::kMag,
                               SensorKind::kLight, SensorKind::kProximity, SensorKind::kButton}) {
        if (name == sensor_name(k)) {
            return k;
        }
    }
    return std::nullopt;
}

int decimals(SensorKind kind) {
    switch (kind) {
        case SensorKind::kAcc:
            return 4;  // 0.1 mg
        case SensorKind::kGyro:
            return 5;  // 0.0006 deg/s
        case SensorKind::kMag:
            return 2;  // 0.01 uT
        case SensorKind::kLight:
        case SensorKind::kProximity:
            return 1;
        case SensorKind::kButton:
            return 0;
    }
    return 6;
}

void write_event_csv(std::ostream& out, const EventStream& stream) {
    for (const std::string& c : stream.comments) {
        out << "# " << c << '\n';
    }
    out << kHeader << '\n';
    std::size_t next_event = 0;
    std::string line;
    for (const EventRow& r : stream.rows) {
        const double t_s = static_cast<double>(r.timestamp_ns) * 1e-9;
        while (next_event < stream.events.size() && stream.events[next_event].t_s <= t_s + 1e-9) {
            put_event(out, stream.events[next_event++]);
        }
        line.clear();
        line += std::to_string(r.timestamp_ns);
        line += ',';
        line += sensor_name(r.sensor);
        for (const double v : r.v) {
            line += ',';
            put_number(line, v, decimals(r.sensor));
        }
        if (r.truth) {
            for (const double q : {r.truth->w, r.truth->x, r.truth->y, r.truth->z}) {
                line += ',';
                put_number(line, q, kTruthDecimals);
            }
        }
        line += '\n';
        out << line;
    }
    while (next_event < stream.events.size()) {
        put_event(out, stream.events[next_event++]);
    }
}

bool read_event_csv(std::istream& in, EventStream* stream, std::string* error) {
    *stream = EventStream{};
    std::string line;
    std::size_t number = 0;
    bool first_row = true;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty()) {
            continue;
        }
        if (line[0] == '#') {
            if (line.rfind(kEventPrefix, 0) == 0) {
                const std::vector<std::string> f = split(line.substr(2), ',');
                ScriptEvent e;
                if (f.size() < 3 || f.size() > 4 || !parse_double(f[1], &e.t_s) || f[2].empty()) {
                    *error = at_line(number, "event line needs a time and a name");
                    return false;
                }
                e.name = f[2];
                e.detail = f.size() == 4 ? f[3] : std::string();
                stream->events.push_back(e);
            }
            continue;
        }
        const bool header = first_row && line.rfind("timestamp_ns,", 0) == 0;
        first_row = false;
        if (header) {
            continue;
        }
        const std::vector<std::string> f = split(line, ',');
        if (f.size() != 5 && f.size() != 9) {
            *error = at_line(number, "expected 5 or 9 columns, found " + std::to_string(f.size()));
            return false;
        }
        EventRow r;
        if (!parse_int64(f[0], &r.timestamp_ns)) {
            *error = at_line(number, "bad timestamp '" + f[0] + "'");
            return false;
        }
        if (!stream->rows.empty() && r.timestamp_ns < stream->rows.back().timestamp_ns) {
            *error = at_line(number, "timestamp goes backwards");
            return false;
        }
        const std::optional<SensorKind> kind = sensor_from_name(f[1]);
        if (!kind) {
            *error = at_line(number, "unknown sensor '" + f[1] + "'");
            return false;
        }
        r.sensor = *kind;
        for (std::size_t i = 0; i < 3; ++i) {
            if (!parse_double(f[2 + i], &r.v[i])) {
                *error = at_line(number, "bad number '" + f[2 + i] + "'");
                return false;
            }
        }
        if (f.size() == 9 && !(f[5].empty() && f[6].empty() && f[7].empty() && f[8].empty())) {
            double q[4];
            for (std::size_t i = 0; i < 4; ++i) {
                if (!parse_double(f[5 + i], &q[i])) {
                    *error = at_line(number, "bad number '" + f[5 + i] + "'");
                    return false;
                }
            }
            r.truth = Quat{q[0], q[1], q[2], q[3]};
        }
        stream->rows.push_back(r);
    }
    return true;
}

}  // namespace imu::sim
