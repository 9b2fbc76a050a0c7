#include "Report.h"

#include <stdarg.h>
#include <stdio.h>

#include <mutex>

namespace nuvcli {
namespace {

std::mutex g_outputMutex; // one line at a time on stdout and stderr

} // namespace

void Print(const std::string& text) {
    std::lock_guard<std::mutex> lock(g_outputMutex);
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}

int Fail(int code, const char* format, ...) {
    char message[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    std::lock_guard<std::mutex> lock(g_outputMutex);
    fprintf(stderr, "nuvmidi: %s\n", message);
    return code;
}

} // namespace nuvcli
