// Captures the lines that the library logs through print_dlog, for assertions on the texts
// that are the library's contract. One capture at a time; it restores the previous sink and
// threshold when it ends.
#ifndef NUV_TEST_LOG_CAPTURE_H
#define NUV_TEST_LOG_CAPTURE_H

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
    explicit LogCapture(int threshold = NUV_LOG_TRACE);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    // Number of lines whose text contains `part`.
    int CountContaining(const std::string& part) const;
    void Clear();

private:
    static void m_Sink(int level, const char* text, void* self);

    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
    NuvLogSink m_previousSink;
    int m_previousThreshold;
};

#endif
