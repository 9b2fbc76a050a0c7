// The WAV file sink: writes what is played into a RIFF/WAVE file, paced as a device of
// the same buffer size would be, so that a writer blocks as it would on ALSA.
//
// The simulated device starts with the first frames written and plays them at the
// stream's rate; when it has played everything queued it runs dry (counted as an
// underrun) and the next write starts it again. A writer that rests writes nothing while
// nothing sounds: the silence that passed meanwhile goes into the file, so the file's
// timeline is the wall clock's from the stream's start, as a listener heard it.
#include <cstdint>
#include <cstdio>
#include <new>

#include "AudioSink.h"
#include "audio_io.h"

namespace {

struct WavSink : NuvAudioSink {
    FILE* file = nullptr;
    NuvAudioFormat format{};
    uint64_t dataBytes = 0;
    bool running = false;
    int64_t startNs = 0;    // when the device began playing the current run
    uint64_t runFrames = 0; // frames queued since then
    int64_t playedNs = 0;   // when the device had played everything, while not running
};

WavSink* Wav(NuvAudioSink* sink) {
    return static_cast<WavSink*>(sink);
}

// Four 512-frame periods (42.7 ms): a writer keeping two of them queued wakes with at least
// 10.7 ms still to play, which rides out the hiccups of a busy machine's clock sleeps
// (no poll on a device paces it), and a note played while the device runs lands in the
// file at most 21.3 ms behind the clock, as late as a listener would hear it.
constexpr unsigned long kPeriodFrames = 512;
constexpr unsigned long kBufferFrames = kPeriodFrames * 4;

void PutLE(unsigned char* at, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        at[i] = uint8_t(value >> (8 * i));
}

// Writes the 44-byte header for the data written so far and returns to the end.
void WriteHeader(WavSink* sink) {
    const uint32_t data =
        sink->dataBytes > 0xFFFFFFFFu - 36 ? 0xFFFFFFFFu - 36 : uint32_t(sink->dataBytes);
    const NuvAudioFormat& f = sink->format;
    unsigned char h[44] = {'R', 'I', 'F', 'F', 0, 0, 0,   0,   'W', 'A', 'V', 'E', 'f', 'm', 't',
                           ' ', 0,   0,   0,   0, 0, 0,   0,   0,   0,   0,   0,   0,   0,   0,
                           0,   0,   0,   0,   0, 0, 'd', 'a', 't', 'a', 0,   0,   0,   0};
    PutLE(h + 4, 36 + data, 4);
    PutLE(h + 16, 16, 4); // fmt chunk size
    PutLE(h + 20, 1, 2);  // PCM
    PutLE(h + 22, f.channels, 2);
    PutLE(h + 24, f.rate, 4);
    PutLE(h + 28, f.rate * f.FrameBytes(), 4); // bytes per second
    PutLE(h + 32, f.FrameBytes(), 2);          // block align
    PutLE(h + 34, f.bytesPerSample * 8, 2);    // bits per sample
    PutLE(h + 40, data, 4);
    std::fseek(sink->file, 0, SEEK_SET);
    std::fwrite(h, 1, sizeof h, sink->file);
    std::fseek(sink->file, 0, SEEK_END);
    std::fflush(sink->file);
}

int64_t FramesToNs(const WavSink* sink, uint64_t frames) {
    return int64_t(frames * 1000000000ull / sink->format.rate);
}

int Open(const char* target, const NuvAudioFormat& format, NuvAudioSink** out) {
    auto* sink = new (std::nothrow) WavSink;
    if (sink == nullptr)
        return AUDIO_IO_ERROR_OUT_OF_MEMORY;
    sink->format = format;
    sink->file = std::fopen(target, "wb");
    if (sink->file == nullptr) {
        delete sink;
        return AUDIO_IO_ERROR_DEVICE_NOT_OPENED;
    }
    WriteHeader(sink);
    *out = sink;
    return AUDIO_IO_ERROR_NONE;
}

// Prepared again after an unprepare, the device goes on from where it stopped playing, so
// that the time between becomes silence in the file.
int Prepare(NuvAudioSink* base) {
    WavSink* sink = Wav(base);
    if (sink->playedNs == 0)
        sink->playedNs = NuvAudio_NowNs();
    return AUDIO_IO_ERROR_NONE;
}

// Writes the frames of silence that the device would have played since `playedNs`.
bool WriteSilence(WavSink* sink, int64_t now) {
    static const unsigned char kZeros[kPeriodFrames * 8] = {};
    const unsigned int frameBytes = sink->format.FrameBytes();
    const unsigned long zerosFrames = sizeof kZeros / frameBytes;
    uint64_t left = uint64_t(now - sink->playedNs) * sink->format.rate / 1000000000ull;
    sink->dataBytes += left * frameBytes;
    while (left > 0) {
        const unsigned long chunk = left < zerosFrames ? left : zerosFrames;
        if (std::fwrite(kZeros, frameBytes, chunk, sink->file) != chunk)
            return false;
        left -= chunk;
    }
    return true;
}

// Frames still queued at `now`; a device that has played everything runs dry (an underrun
// while it was playing).
uint64_t Queued(WavSink* sink, int64_t now) {
    if (!sink->running)
        return 0;
    const int64_t endNs = sink->startNs + FramesToNs(sink, sink->runFrames);
    if (now < endNs)
        return uint64_t(endNs - now) * sink->format.rate / 1000000000ull;
    NuvAudioStats_CountUnderrun(sink);
    sink->running = false;
    sink->playedNs = endNs;
    return 0;
}

long Write(NuvAudioSink* base, const void* data, unsigned long frames) {
    WavSink* sink = Wav(base);
    const auto* bytes = static_cast<const unsigned char*>(data);
    const unsigned int frameBytes = sink->format.FrameBytes();
    unsigned long left = frames;
    while (left > 0) {
        const unsigned long chunk = left < kPeriodFrames ? left : kPeriodFrames;
        const int64_t now = NuvAudio_NowNs();
        Queued(sink, now);
        if (!sink->running) {
            if (now > sink->playedNs && !WriteSilence(sink, now))
                return AUDIO_IO_ERROR_INVALID_OPERATION;
            sink->running = true;
            sink->startNs = now;
            sink->runFrames = 0;
        }
        // Room for the chunk once the device has played all but a buffer's worth.
        if (sink->runFrames + chunk > kBufferFrames)
            NuvAudio_SleepUntilNs(sink->startNs +
                                  FramesToNs(sink, sink->runFrames + chunk - kBufferFrames));
        if (std::fwrite(bytes, frameBytes, chunk, sink->file) != chunk)
            return AUDIO_IO_ERROR_INVALID_OPERATION;
        sink->runFrames += chunk;
        sink->dataBytes += uint64_t(chunk) * frameBytes;
        bytes += chunk * frameBytes;
        left -= chunk;
    }
    return long(frames);
}

long WaitQueued(NuvAudioSink* base, unsigned long frames) {
    WavSink* sink = Wav(base);
    if (Queued(sink, NuvAudio_NowNs()) > frames)
        NuvAudio_SleepUntilNs(sink->startNs + FramesToNs(sink, sink->runFrames - frames));
    return long(Queued(sink, NuvAudio_NowNs()));
}

int Unprepare(NuvAudioSink* base) {
    WavSink* sink = Wav(base);
    if (sink->running) {
        // What was queued is in the file already; the device stops at its end.
        sink->running = false;
        sink->playedNs = sink->startNs + FramesToNs(sink, sink->runFrames);
    }
    WriteHeader(sink);
    return AUDIO_IO_ERROR_NONE;
}

void Close(NuvAudioSink* base) {
    WavSink* sink = Wav(base);
    WriteHeader(sink);
    std::fclose(sink->file);
    delete sink;
}

unsigned long BufferFrames(const NuvAudioSink*) {
    return kBufferFrames;
}

unsigned long PeriodFrames(const NuvAudioSink*) {
    return kPeriodFrames;
}

} // namespace

const NuvAudioSinkDriver g_nuvWavSinkDriver = {
    "wav", Open, Prepare, Write, WaitQueued, Unprepare, Close, BufferFrames, PeriodFrames};
