// print_dlog and _ASSERT: one formatted line per call, to the installed sink or to stderr.
#include "NuvLog"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

#include <atomic>

namespace {

// Unset until the first line or the first NuvLog_SetThreshold.
const int kUnset = -1;
std::atomic<int> g_threshold{kUnset};

// A host is told of failures only, unless NUV_LOG_LEVEL asks for more: a level's number
// (0 for nothing, 1 to 4) or name (assert, critical, info, trace).
int ThresholdFromEnvironment() {
    const char* value = getenv("NUV_LOG_LEVEL");
    if (value == nullptr || *value == '\0')
        return NUV_LOG_CRITICAL;
    static const char* const kNames[] = {"none", "assert", "critical", "info", "trace"};
    for (int level = 0; level <= NUV_LOG_TRACE; ++level)
        if (strcasecmp(value, kNames[level]) == 0)
            return level;
    char* end = nullptr;
    const long level = strtol(value, &end, 10);
    if (*end != '\0' || level < 0)
        return NUV_LOG_CRITICAL;
    return level > NUV_LOG_TRACE ? NUV_LOG_TRACE : static_cast<int>(level);
}

int Threshold() {
    int threshold = g_threshold.load(std::memory_order_relaxed);
    if (threshold != kUnset)
        return threshold;
    // A racing NuvLog_SetThreshold wins over the environment.
    g_threshold.compare_exchange_strong(threshold, ThresholdFromEnvironment());
    return g_threshold.load(std::memory_order_relaxed);
}

// Plain pthread objects are constant-initialised, so logging works from static
// constructors of other libraries too.
pthread_mutex_t g_sinkMutex = PTHREAD_MUTEX_INITIALIZER;
NuvLogSink g_sink = nullptr;
void* g_sinkContext = nullptr;

void WriteAll(const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written < 0)
            return;
        text += written;
        length -= static_cast<size_t>(written);
    }
}

void Emit(int level, const char* text, size_t length) {
    // The sink is called under the lock: once NuvLog_SetSink has returned, the sink it
    // replaced is never called again, so its context may be freed.
    pthread_mutex_lock(&g_sinkMutex);
    if (g_sink != nullptr) {
        g_sink(level, text, g_sinkContext);
        pthread_mutex_unlock(&g_sinkMutex);
        return;
    }
    pthread_mutex_unlock(&g_sinkMutex);
    WriteAll(text, length);
}

} // namespace

extern "C" {

void vprint_dlog(NuvLogLevel level, const char* format, va_list args) {
    if (format == nullptr || static_cast<int>(level) > Threshold())
        return;

    char small[512];
    va_list copy;
    va_copy(copy, args);
    const int needed = vsnprintf(small, sizeof(small), format, copy);
    va_end(copy);
    if (needed < 0)
        return;
    if (static_cast<size_t>(needed) < sizeof(small)) {
        Emit(level, small, static_cast<size_t>(needed));
        return;
    }

    char* large = static_cast<char*>(malloc(static_cast<size_t>(needed) + 1));
    if (large == nullptr)
        return;
    vsnprintf(large, static_cast<size_t>(needed) + 1, format, args);
    Emit(level, large, static_cast<size_t>(needed));
    free(large);
}

void print_dlog(NuvLogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vprint_dlog(level, format, args);
    va_end(args);
}

void _ASSERT(const char* expression, const char* file, unsigned long line) {
    print_dlog(NUV_LOG_ASSERT, "ASSERT: %s (%s:%lu)\n", expression != nullptr ? expression : "",
               file != nullptr ? file : "", line);
}

int NuvLog_SetThreshold(int level) {
    const int previous = g_threshold.exchange(level);
    return previous != kUnset ? previous : ThresholdFromEnvironment();
}

NuvLogSink NuvLog_SetSink(NuvLogSink sink, void* context) {
    pthread_mutex_lock(&g_sinkMutex);
    const NuvLogSink previous = g_sink;
    g_sink = sink;
    g_sinkContext = context;
    pthread_mutex_unlock(&g_sinkMutex);
    return previous;
}

} // extern "C"
