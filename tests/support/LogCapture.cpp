#include "LogCapture.h"

LogCapture::LogCapture(int threshold) {
    m_previousThreshold = NuvLog_SetThreshold(threshold);
    m_previousSink = NuvLog_SetSink(&LogCapture::m_Sink, this);
}

LogCapture::~LogCapture() {
    NuvLog_SetSink(m_previousSink, nullptr);
    NuvLog_SetThreshold(m_previousThreshold);
}

void LogCapture::m_Sink(int level, const char* text, void* self) {
    auto* capture = static_cast<LogCapture*>(self);
    std::lock_guard<std::mutex> lock(capture->m_mutex);
    capture->m_lines.push_back({level, text});
}

std::vector<LogLine> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

int LogCapture::CountContaining(const std::string& part) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    int n = 0;
    for (const auto& line : m_lines)
        if (line.text.find(part) != std::string::npos)
            ++n;
    return n;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}
