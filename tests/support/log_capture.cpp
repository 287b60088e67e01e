#include "support/log_capture.h"

#include "imu/host.h"

namespace imu::test {

LogCapture::LogCapture() { imu_host_set_log_sink(&LogCapture::sink, this); }

LogCapture::~LogCapture() { imu_host_set_log_sink(nullptr, nullptr); }

void LogCapture::sink(int prio, const char* tag, const char* text, void* ctx) {
    auto* self = static_cast<LogCapture*>(ctx);
    const std::lock_guard<std::mutex> lock(self->mutex_);
    self->lines_.push_back({prio, tag, text});
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> out;
    for (const LogLine& l : lines()) {
        out.push_back(l.text);
    }
    return out;
}

int LogCapture::count(const std::string& text) const {
    int n = 0;
    for (const LogLine& l : lines()) {
        n += l.text == text ? 1 : 0;
    }
    return n;
}

void LogCapture::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

}  // namespace imu::test
