#pragma once
// Collects the library's log lines while it lives (the host log sink).

#include <mutex>
#include <string>
#include <vector>

namespace imu::test {

struct LogLine {
    int prio;
    std::string tag;
    std::string text;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();  // restores the default sink
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // Texts only, in order.
    std::vector<std::string> texts() const;
    // How many lines have exactly this text.
    int count(const std::string& text) const;
    void clear();

private:
    static void sink(int prio, const char* tag, const char* text, void* ctx);
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
};

}  // namespace imu::test
