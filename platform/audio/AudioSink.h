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

// Low latency without underruns while sound flows: 512-frame periods (10.7 ms at
// 48 000 Hz), four of them buffered (42.7 ms). A sink starts playing once one period is
// queued. Measured in the test VM (one emulated CPU) over 5 s of a two-voice piece:
// 256 x 4 frames underran 10 times, 256 x 8 three times, 512 x 4 once (at the onset).
constexpr unsigned long kNuvAudioPeriodFrames = 512;
constexpr unsigned long kNuvAudioPeriods = 4;

// Each driver keeps its state in a type of its own, derived from this one and named only in
// its file; two files must never define one type differently.
struct NuvAudioSink {};

struct NuvAudioSinkDriver {
    const char* name;
    // Opens the sink on `target` (an ALSA PCM name or a file path). An AUDIO_IO_ERROR.
    int (*open)(const char* target, const NuvAudioFormat& format, NuvAudioSink** sink);
    int (*prepare)(NuvAudioSink* sink);
    // Queues `frames` frames, blocking while the buffer is full; returns the frames
    // written or a negative AUDIO_IO_ERROR.
    long (*write)(NuvAudioSink* sink, const void* data, unsigned long frames);
    // Stops playing and drops what is queued.
    int (*unprepare)(NuvAudioSink* sink);
    void (*close)(NuvAudioSink* sink);
    unsigned long (*bufferFrames)(const NuvAudioSink* sink);
};

extern const NuvAudioSinkDriver g_nuvAlsaSinkDriver;
extern const NuvAudioSinkDriver g_nuvWavSinkDriver;

// Counters shared by every sink (nuv_audio_out_get_stats).
void NuvAudioStats_CountUnderrun();

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
