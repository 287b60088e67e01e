#include "recording.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace imu::replay {
namespace {

constexpr double kStandardGravity = 9.80665;
constexpr double kDegToRad = 0.017453292519943295;
constexpr std::size_t kMaxFields = 16;

const char* const kSensorNames[] = {"acc", "gyro", "mag", "light", "proximity", "button"};

const char* const kEventColumns[] = {"timestamp_ns", "sensor",  "x",       "y",      "z",
                                     "true_qw",      "true_qx", "true_qy", "true_qz"};
const char* const kWideColumns[] = {"t_s",    "acc_x",  "acc_y",  "acc_z", "gyro_x",
                                    "gyro_y", "gyro_z", "mag_x",  "mag_y", "mag_z",
                                    "q_w",    "q_x",    "q_y",    "q_z"};
constexpr std::size_t kEventFields = 5;
constexpr std::size_t kWideFields = 10;
constexpr std::size_t kTruthFields = 4;

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

// Splits line at commas into at most kMaxFields fields; returns the count
// (kMaxFields + 1 when there are more).
std::size_t split(std::string_view line, std::string_view* fields) {
    std::size_t n = 0;
    for (;;) {
        const std::size_t comma = line.find(',');
        if (n == kMaxFields) {
            return kMaxFields + 1;
        }
        fields[n++] = trim(line.substr(0, comma));
        if (comma == std::string_view::npos) {
            return n;
        }
        line.remove_prefix(comma + 1);
    }
}

bool to_double(std::string_view s, double& v) {
    if (!s.empty() && s.front() == '+') {
        s.remove_prefix(1);
    }
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size() && std::isfinite(v);
}

bool to_int64(std::string_view s, std::int64_t& v) {
    if (!s.empty() && s.front() == '+') {
        s.remove_prefix(1);
    }
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

bool is_number(std::string_view s) {
    double v = 0.0;
    return to_double(s, v);
}

class Parser {
public:
    Parser(const std::string& name, const Units& units, Recording& out)
        : name_(name), units_(units), out_(out) {}

    std::string run(std::string_view text, Layout layout);

private:
    std::string at(std::size_t column, const std::string& what) const {
        const char* const* names = out_.layout == Layout::kWide ? kWideColumns : kEventColumns;
        const std::size_t known = out_.layout == Layout::kWide ? std::size(kWideColumns)
                                                                : std::size(kEventColumns);
        std::string col = column < header_.size() ? header_[column]
                          : column < known       ? std::string(names[column])
                                                  : std::string("extra");
        return name_ + ":" + std::to_string(line_) + ": column " + std::to_string(column + 1) +
               " (" + col + "): " + what;
    }
    std::string bad_number(std::size_t column, std::string_view field) const {
        return at(column, field.empty() ? "missing number"
                                        : "bad number '" + std::string(field) + "'");
    }
    std::string comment(std::string_view line);
    std::string header(const std::string_view* fields, std::size_t n);
    std::string event_row(const std::string_view* fields, std::size_t n);
    std::string wide_row(const std::string_view* fields, std::size_t n);
    std::string truth(const std::string_view* fields, std::size_t n, std::size_t first,
                      Row& row);
    std::string time(std::size_t column, std::int64_t t_ns);

    const std::string& name_;
    const Units& units_;
    Recording& out_;
    std::size_t line_ = 0;
    bool seen_row_ = false;
    std::int64_t last_t_ = 0;
    std::vector<std::string> header_;
};

std::string Parser::comment(std::string_view line) {
    // "# event,<time_s>,<name>[,<detail>]"
    line.remove_prefix(1);
    line = trim(line);
    if (line.substr(0, 6) != "event,") {
        return "";
    }
    std::string_view f[kMaxFields + 1];
    const std::size_t n = split(line, f);
    ScriptEvent e;
    if (n < 3 || n > 4 || !to_double(f[1], e.t_s) || f[2].empty()) {
        return name_ + ":" + std::to_string(line_) +
               ": bad event line (expected '# event,<time_s>,<name>[,<detail>]')";
    }
    e.name = std::string(f[2]);
    if (n == 4) {
        e.detail = std::string(f[3]);
    }
    out_.script.push_back(std::move(e));
    return "";
}

std::string Parser::header(const std::string_view* fields, std::size_t n) {
    const std::size_t need = out_.layout == Layout::kWide ? kWideFields : kEventFields;
    const std::size_t most = need + kTruthFields;
    for (std::size_t i = 0; i < n; ++i) {
        header_.emplace_back(fields[i]);
    }
    if (n < need) {
        header_.clear();
        return at(n, "missing column in the header");
    }
    if (n != need && n != most) {
        return at(std::min(n, most), n > most ? "unexpected column in the header"
                                              : "the truth needs four columns");
    }
    return "";
}

std::string Parser::time(std::size_t column, std::int64_t t_ns) {
    if (seen_row_ && t_ns < last_t_) {
        return at(column, "time goes back (" + std::to_string(t_ns) + " ns after " +
                              std::to_string(last_t_) + " ns)");
    }
    seen_row_ = true;
    last_t_ = t_ns;
    return "";
}

std::string Parser::truth(const std::string_view* fields, std::size_t n, std::size_t first,
                          Row& row) {
    if (n == first) {
        return "";
    }
    if (n != first + kTruthFields) {
        return at(std::min(n, first + kTruthFields),
                  n > first + kTruthFields ? "unexpected column" : "missing column");
    }
    std::size_t empty = 0;
    for (std::size_t i = 0; i < kTruthFields; ++i) {
        empty += fields[first + i].empty() ? 1U : 0U;
    }
    if (empty == kTruthFields) {
        return "";  // a row may leave the truth out
    }
    double q[kTruthFields];
    for (std::size_t i = 0; i < kTruthFields; ++i) {
        if (!to_double(fields[first + i], q[i])) {
            return bad_number(first + i, fields[first + i]);
        }
    }
    const double norm = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (norm < 0.5 || norm > 1.5) {
        return at(first, "the true orientation is not a unit quaternion");
    }
    for (std::size_t i = 0; i < kTruthFields; ++i) {
        row.truth[i] = static_cast<float>(q[i] / norm);
    }
    row.has_truth = true;
    out_.has_truth = true;
    return "";
}

std::string Parser::event_row(const std::string_view* fields, std::size_t n) {
    if (n < kEventFields) {
        return at(n, "missing column");
    }
    Row row;
    if (!to_int64(fields[0], row.t_ns)) {
        return fields[0].empty() ? at(0, "missing timestamp")
                                 : at(0, "bad timestamp '" + std::string(fields[0]) +
                                             "' (integer nanoseconds)");
    }
    std::size_t s = 0;
    while (s < std::size(kSensorNames) && fields[1] != kSensorNames[s]) {
        ++s;
    }
    if (s == std::size(kSensorNames)) {
        return at(1, "unknown sensor '" + std::string(fields[1]) +
                         "' (acc, gyro, mag, light, proximity, button)");
    }
    row.sensor = static_cast<Sensor>(s);
    for (std::size_t i = 0; i < 3; ++i) {
        double v = 0.0;
        if (!to_double(fields[2 + i], v)) {
            return bad_number(2 + i, fields[2 + i]);
        }
        row.v[i] = static_cast<float>(v);
    }
    std::string e = truth(fields, n, kEventFields, row);
    if (e.empty()) {
        e = time(0, row.t_ns);
    }
    if (!e.empty()) {
        return e;
    }
    ++out_.count[s];
    out_.rows.push_back(row);
    return "";
}

std::string Parser::wide_row(const std::string_view* fields, std::size_t n) {
    if (n < kWideFields) {
        return at(n, "missing column");
    }
    double v[kWideFields];
    for (std::size_t i = 0; i < kWideFields; ++i) {
        if (!to_double(fields[i], v[i])) {
            return bad_number(i, fields[i]);
        }
    }
    const double t_ns = std::round(v[0] * 1e9);
    if (std::fabs(t_ns) > 9.0e18) {
        return at(0, "time out of range");
    }
    const double acc_scale = units_.acc_in_g ? kStandardGravity : 1.0;
    const double gyro_scale = units_.gyro_in_deg ? kDegToRad : 1.0;
    Row acc;
    Row gyro;
    Row mag;
    acc.sensor = Sensor::kAcc;
    gyro.sensor = Sensor::kGyro;
    mag.sensor = Sensor::kMag;
    acc.t_ns = gyro.t_ns = mag.t_ns = static_cast<std::int64_t>(t_ns);
    for (std::size_t i = 0; i < 3; ++i) {
        acc.v[i] = static_cast<float>(v[1 + i] * acc_scale);
        gyro.v[i] = static_cast<float>(v[4 + i] * gyro_scale);
        mag.v[i] = static_cast<float>(v[7 + i]);
    }
    std::string e = truth(fields, n, kWideFields, gyro);
    if (e.empty()) {
        e = time(0, gyro.t_ns);
    }
    if (!e.empty()) {
        return e;
    }
    // Accelerometer and magnetometer first: the gyroscope runs the cycle.
    out_.rows.push_back(acc);
    out_.rows.push_back(mag);
    out_.rows.push_back(gyro);
    ++out_.count[static_cast<int>(Sensor::kAcc)];
    ++out_.count[static_cast<int>(Sensor::kMag)];
    ++out_.count[static_cast<int>(Sensor::kGyro)];
    return "";
}

std::string Parser::run(std::string_view text, Layout layout) {
    std::size_t lines = 1;
    for (const char c : text) {
        lines += c == '\n' ? 1U : 0U;
    }
    bool first = true;
    std::string_view fields[kMaxFields + 1];
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = trim(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++line_;
        if (line.empty()) {
            continue;
        }
        if (line.front() == '#') {
            std::string e = comment(line);
            if (!e.empty()) {
                return e;
            }
            continue;
        }
        const std::size_t n = split(line, fields);
        if (first) {
            first = false;
            const bool is_header = !is_number(fields[0]);
            out_.layout = layout != Layout::kAuto ? layout
                          : (is_header ? fields[0] == "timestamp_ns"
                                       : n > 1 && !is_number(fields[1]))
                              ? Layout::kEventStream
                              : Layout::kWide;
            out_.rows.reserve(out_.layout == Layout::kWide ? 3 * lines : lines);
            if (is_header) {
                std::string e = header(fields, n);
                if (!e.empty()) {
                    return e;
                }
                continue;
            }
        }
        std::string e = out_.layout == Layout::kWide ? wide_row(fields, n) : event_row(fields, n);
        if (!e.empty()) {
            return e;
        }
    }
    if (out_.rows.empty()) {
        return name_ + ": no samples";
    }
    if (out_.count[static_cast<int>(Sensor::kGyro)] == 0) {
        return name_ + ": no gyroscope samples (the gyroscope drives the fusion cycles)";
    }
    return "";
}

}  // namespace

double Recording::duration_s() const {
    return rows.empty() ? 0.0 : static_cast<double>(rows.back().t_ns - rows.front().t_ns) * 1e-9;
}

const char* sensor_name(Sensor s) { return kSensorNames[static_cast<int>(s)]; }

std::string parse_recording(std::string_view text, const std::string& name, Layout layout,
                            const Units& units, Recording& out) {
    out = Recording{};
    Parser parser(name, units, out);
    std::string e = parser.run(text, layout);
    if (!e.empty()) {
        out = Recording{};
    }
    return e;
}

std::string read_recording(const std::string& path, Layout layout, const Units& units,
                           Recording& out) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return path + ": cannot open (" + std::strerror(errno) + ")";
    }
    std::string text;
    char buf[1 << 16];
    std::size_t got = 0;
    while ((got = std::fread(buf, 1, sizeof buf, f)) > 0) {
        text.append(buf, got);
    }
    const bool failed = std::ferror(f) != 0;
    const int err = errno;
    std::fclose(f);
    if (failed) {
        return path + ": cannot read (" + std::strerror(err) + ")";
    }
    return parse_recording(text, path, layout, units, out);
}

}  // namespace imu::replay
