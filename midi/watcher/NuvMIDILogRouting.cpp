#include "NuvMIDILogRouting.h"

#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <stdarg.h>
#include <stdio.h>

#include <mutex>

#include "NuvLog"

namespace {

// A panic leaves FluidSynth unable to play, as a failed synthesizer leaves the library;
// its errors and warnings are errors of ours; its notes are trace.
NuvLogLevel LevelOf(int fluidLevel) {
    switch (fluidLevel) {
    case FLUID_PANIC:
        return NUV_LOG_CRITICAL;
    case FLUID_ERR:
    case FLUID_WARN:
        return NUV_LOG_INFO;
    default:
        return NUV_LOG_TRACE;
    }
}

void FluidLog(int level, const char* message, void*) {
    print_dlog(LevelOf(level), "fluidsynth: %s\n", message != nullptr ? message : "");
}

// The shape of ALSA's default handler: "ALSA lib <file>:<line>:(<function>) <message>".
void AlsaLog(const char* file, int line, const char* function, int err, const char* format, ...) {
    char message[512];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    if (err != 0)
        print_dlog(NUV_LOG_INFO, "ALSA lib %s:%d:(%s) %s: %s\n", file, line, function, message,
                   snd_strerror(err));
    else
        print_dlog(NUV_LOG_INFO, "ALSA lib %s:%d:(%s) %s\n", file, line, function, message);
}

std::once_flag g_once;
bool g_routed = false; // written once under g_once, read at unload
// The handlers found when routing, given back at unload: a host that links one copy of
// this library and loads and unloads another hands the logs back to the first, not to the
// libraries' defaults. (Both ours and FluidSynth's default take no user data.)
snd_lib_error_handler_t g_previousAlsa = nullptr;
fluid_log_function_t g_previousFluid[LAST_LOG_LEVEL] = {};

// Neither library may call into this one once it is unloaded.
struct Unroute {
    ~Unroute() {
        if (!g_routed)
            return;
        snd_lib_error_set_handler(g_previousAlsa);
        for (int level = FLUID_PANIC; level <= FLUID_DBG; ++level)
            fluid_set_log_function(level, g_previousFluid[level], nullptr);
    }
} g_unroute;

} // namespace

void NuvMIDIRouteLibraryLogs() {
    std::call_once(g_once, [] {
        g_previousAlsa = snd_lib_error;
        snd_lib_error_set_handler(&AlsaLog);
        for (int level = FLUID_PANIC; level <= FLUID_DBG; ++level)
            g_previousFluid[level] = fluid_set_log_function(level, &FluidLog, nullptr);
        g_routed = true;
    });
}
