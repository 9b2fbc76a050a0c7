// The sinks behind an audio-output stream, one per file, selected by name from one table
// (AudioOut.cpp), as a synthesizer keeps its audio drivers.
#ifndef NUV_PLATFORM_AUDIO_SINK_H
#define NUV_PLATFORM_AUDIO_SINK_H

#include <errno.h>
#include <time.h>

#include <cstdint>

struct NuvAudioFormat {
    unsigned int rate;
    unsigned int channels;
    unsigned int bytesPerSample; // 1: unsigned 8-bit, 2: signed 16-bit little-endian
    unsigned int FrameBytes() const { return channels * bytesPerSample; }
};

// The ALSA sink's 192-frame periods (4 ms at 48 000 Hz, one tick of a 250 Hz kernel timer),
// eight of them buffered (32 ms). A writer that blocks on a full buffer queues all of it; a
// low-latency writer keeps only its fill target queued (nuv_audio_out_wait_for_room) and the
// rest of the buffer is room to widen the target into when the output runs dry anyway. The
// PCM starts playing once two periods are queued. A period of one timer tick lets an output
// clocked by the kernel's timer (the test VM's loopback card) move on evenly, a period at
// a time; with 256 frames it moved on two ticks at once and left the writer a third of a
// period to refill in.
constexpr unsigned long kNuvAudioPeriodFrames = 192;
constexpr unsigned long kNuvAudioPeriods = 8;

// Each driver keeps its state in a type of its own, derived from this one and named only in
// its file; two files must never define one type differently.
struct NuvAudioSink {
    uint64_t underruns = 0; // times this sink ran dry while playing
};

struct NuvAudioSinkDriver {
    const char* name;
    // Opens the sink on `target` (an ALSA PCM name or a file path). An AUDIO_IO_ERROR.
    int (*open)(const char* target, const NuvAudioFormat& format, NuvAudioSink** sink);
    int (*prepare)(NuvAudioSink* sink);
    // Queues `frames` frames, blocking while the buffer is full; returns the frames
    // written or a negative AUDIO_IO_ERROR.
    long (*write)(NuvAudioSink* sink, const void* data, unsigned long frames);
    // Blocks until at most `frames` frames wait to be played and returns how many do (0
    // when the sink is not playing), or a negative AUDIO_IO_ERROR.
    long (*waitQueued)(NuvAudioSink* sink, unsigned long frames);
    // Stops playing and drops what is queued.
    int (*unprepare)(NuvAudioSink* sink);
    void (*close)(NuvAudioSink* sink);
    unsigned long (*bufferFrames)(const NuvAudioSink* sink);
    unsigned long (*periodFrames)(const NuvAudioSink* sink);
};

extern const NuvAudioSinkDriver g_nuvAlsaSinkDriver;
extern const NuvAudioSinkDriver g_nuvWavSinkDriver;

// Why a low-latency writer's output ran dry, where the sink can tell.
enum class NuvUnderrunCause { Unknown, WokenLate, Rendering };

// Counts a sink's running dry, in the sink and in the process's counters
// (nuv_audio_out_get_stats).
void NuvAudioStats_CountUnderrun(NuvAudioSink* sink,
                                 NuvUnderrunCause cause = NuvUnderrunCause::Unknown);

// CLOCK_MONOTONIC helpers for the sinks' pacing.
inline int64_t NuvAudio_NowNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

inline void NuvAudio_SleepUntilNs(int64_t deadline) {
    timespec at{time_t(deadline / 1000000000), long(deadline % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
    }
}

#endif
