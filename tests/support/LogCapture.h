// Captures the lines that the library logs through print_dlog, for assertions on the texts
// that are the library's contract. One capture at a time; it restores the previous sink and
// threshold when it ends.
#ifndef NUV_TEST_LOG_CAPTURE_H
#define NUV_TEST_LOG_CAPTURE_H

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "NuvLog"

struct LogLine {
    int level;
    std::string text;
};

class LogCapture {
public:
    // Captures every level up to `threshold` (trace included by default).
    explicit LogCapture(int threshold = NUV_LOG_TRACE)
        : m_previousSink(NuvLog_SetSink(&LogCapture::m_Sink, this)),
          m_previousThreshold(NuvLog_SetThreshold(threshold)) {}
    ~LogCapture() {
        NuvLog_SetSink(m_previousSink, nullptr);
        NuvLog_SetThreshold(m_previousThreshold);
    }

    std::vector<LogLine> Lines() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    // Number of lines whose text contains `part`.
    int CountContaining(const std::string& part) const {
        const std::vector<LogLine> lines = Lines();
        return int(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
            return line.text.find(part) != std::string::npos;
        }));
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.clear();
    }

private:
    static void m_Sink(int level, const char* text, void* self) {
        auto* capture = static_cast<LogCapture*>(self);
        std::lock_guard<std::mutex> lock(capture->m_mutex);
        capture->m_lines.push_back({level, text});
    }

    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
    NuvLogSink m_previousSink;
    int m_previousThreshold;
};

#endif
