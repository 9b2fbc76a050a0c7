// Audio-output streams: format checks, the choice of sink, and the sound type's gain on
// every block written.
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <string>

#include "AudioSink.h"
#include "FillTarget.h"
#include "NuvLog"
#include "SoundVolume.h"
#include "audio_io.h"
#include "nuv_audio_out.h"

#define NUV_AUDIO_API extern "C" __attribute__((visibility("default")))

namespace {

const NuvAudioSinkDriver* const kDrivers[] = {&g_nuvAlsaSinkDriver, &g_nuvWavSinkDriver};

const NuvAudioSinkDriver* FindDriver(const char* name) {
    for (const NuvAudioSinkDriver* driver : kDrivers)
        if (std::strcmp(driver->name, name) == 0)
            return driver;
    return nullptr;
}

// Where streams created from now on play.
struct SinkChoice {
    std::mutex mutex;
    std::string pcmName = "default";
    std::string wavPath; // empty: ALSA
};

SinkChoice& Choice() {
    static SinkChoice choice;
    return choice;
}

std::atomic<uint64_t> g_underruns{0};
std::atomic<uint64_t> g_underrunsWokenLate{0};
std::atomic<uint64_t> g_underrunsRendering{0};
std::atomic<uint64_t> g_writes{0};
std::atomic<uint64_t> g_framesWritten{0};
std::atomic<uint64_t> g_fillTargetWidenings{0};
std::atomic<uint64_t> g_fillTargetNarrowings{0};
std::atomic<uint64_t> g_fillTarget{0};

void CountFillTargetChange(NuvFillTarget::Change change, unsigned long frames) {
    if (change == NuvFillTarget::Change::None)
        return;
    const bool widened = change == NuvFillTarget::Change::Widened;
    (widened ? g_fillTargetWidenings : g_fillTargetNarrowings)
        .fetch_add(1, std::memory_order_relaxed);
    print_dlog(NUV_LOG_INFO, "nuv_audio_out: %s; the fill target is now %lu frames\n",
               widened ? "the output ran dry" : "the output has not run dry for a while", frames);
}

// Gain is applied chunk by chunk into a scratch block owned by the stream, so a write
// allocates nothing and leaves the caller's buffer as it was.
constexpr unsigned int kScratchBytes = 4096;

void ApplyGain(const unsigned char* in, unsigned char* out, unsigned int bytes,
               unsigned int bytesPerSample, int32_t gainQ16) {
    if (bytesPerSample == 2) {
        for (unsigned int i = 0; i + 1 < bytes; i += 2) {
            const int16_t sample = int16_t(uint16_t(in[i] | (in[i + 1] << 8)));
            const int32_t scaled = int32_t((int64_t(sample) * gainQ16) >> 16);
            out[i] = uint8_t(scaled & 0xFF);
            out[i + 1] = uint8_t((scaled >> 8) & 0xFF);
        }
    } else {
        for (unsigned int i = 0; i < bytes; ++i) {
            const int32_t centred = int32_t(in[i]) - 128;
            out[i] = uint8_t(128 + ((int64_t(centred) * gainQ16) >> 16));
        }
    }
}

} // namespace

struct audio_io_s {
    const NuvAudioSinkDriver* driver;
    NuvAudioSink* sink;
    NuvAudioFormat format;
    sound_type_e soundType;
    bool prepared;
    std::optional<NuvFillTarget> fill; // from the first wait for room on
    uint64_t underrunsSeen;            // the sink's underruns when the target was last checked
    unsigned char scratch[kScratchBytes];
};

void NuvAudioStats_CountUnderrun(NuvAudioSink* sink, NuvUnderrunCause cause) {
    ++sink->underruns;
    g_underruns.fetch_add(1, std::memory_order_relaxed);
    if (cause == NuvUnderrunCause::WokenLate)
        g_underrunsWokenLate.fetch_add(1, std::memory_order_relaxed);
    else if (cause == NuvUnderrunCause::Rendering)
        g_underrunsRendering.fetch_add(1, std::memory_order_relaxed);
}

NUV_AUDIO_API int audio_out_create(int sample_rate, audio_channel_e channel,
                                   audio_sample_type_e type, sound_type_e sound_type,
                                   audio_out_h* output) {
    if (output == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    *output = nullptr;
    if (sample_rate < 8000 || sample_rate > 192000)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (channel != AUDIO_CHANNEL_MONO && channel != AUDIO_CHANNEL_STEREO)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (type != AUDIO_SAMPLE_TYPE_U8 && type != AUDIO_SAMPLE_TYPE_S16_LE)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (int(sound_type) < SOUND_TYPE_SYSTEM || sound_type > SOUND_TYPE_VOICE)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;

    const NuvAudioFormat format{unsigned(sample_rate), channel == AUDIO_CHANNEL_STEREO ? 2u : 1u,
                                type == AUDIO_SAMPLE_TYPE_S16_LE ? 2u : 1u};
    std::string target;
    const NuvAudioSinkDriver* driver;
    {
        SinkChoice& choice = Choice();
        std::lock_guard<std::mutex> lock(choice.mutex);
        driver = FindDriver(choice.wavPath.empty() ? "alsa" : "wav");
        target = choice.wavPath.empty() ? choice.pcmName : choice.wavPath;
    }

    auto* stream = new (std::nothrow)
        audio_io_s{driver, nullptr, format, sound_type, false, std::nullopt, 0, {}};
    if (stream == nullptr)
        return AUDIO_IO_ERROR_OUT_OF_MEMORY;
    const int result = driver->open(target.c_str(), format, &stream->sink);
    if (result != AUDIO_IO_ERROR_NONE) {
        delete stream;
        return result;
    }
    *output = stream;
    return AUDIO_IO_ERROR_NONE;
}

NUV_AUDIO_API int audio_out_destroy(audio_out_h output) {
    if (output == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (output->prepared)
        output->driver->unprepare(output->sink);
    output->driver->close(output->sink);
    delete output;
    return AUDIO_IO_ERROR_NONE;
}

NUV_AUDIO_API int audio_out_prepare(audio_out_h output) {
    if (output == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (output->prepared)
        return AUDIO_IO_ERROR_NONE;
    const int result = output->driver->prepare(output->sink);
    if (result == AUDIO_IO_ERROR_NONE)
        output->prepared = true;
    return result;
}

NUV_AUDIO_API int audio_out_unprepare(audio_out_h output) {
    if (output == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (!output->prepared)
        return AUDIO_IO_ERROR_NONE;
    output->prepared = false;
    return output->driver->unprepare(output->sink);
}

NUV_AUDIO_API int audio_out_get_buffer_size(audio_out_h output, int* size) {
    if (output == nullptr || size == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    *size = int(output->driver->bufferFrames(output->sink) * output->format.FrameBytes());
    return AUDIO_IO_ERROR_NONE;
}

NUV_AUDIO_API int audio_out_write(audio_out_h output, void* buffer, unsigned int length) {
    if (output == nullptr || buffer == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (!output->prepared)
        return AUDIO_IO_ERROR_INVALID_STATE;
    const unsigned int frameBytes = output->format.FrameBytes();
    const unsigned int total = length - length % frameBytes;
    if (total == 0)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;

    const int32_t gain = NuvSoundVolume_GainQ16(output->soundType);
    const auto* in = static_cast<const unsigned char*>(buffer);
    const unsigned int chunkBytes = kScratchBytes - kScratchBytes % frameBytes;
    unsigned int done = 0;
    while (done < total) {
        const unsigned int bytes = total - done < chunkBytes ? total - done : chunkBytes;
        const unsigned char* block = in + done;
        if (gain != 65536) {
            ApplyGain(block, output->scratch, bytes, output->format.bytesPerSample, gain);
            block = output->scratch;
        }
        const long frames = output->driver->write(output->sink, block, bytes / frameBytes);
        if (frames < 0)
            return done > 0 ? int(done) : int(frames);
        done += unsigned(frames) * frameBytes;
        g_framesWritten.fetch_add(unsigned(frames), std::memory_order_relaxed);
    }
    g_writes.fetch_add(1, std::memory_order_relaxed);
    return int(done);
}

NUV_AUDIO_API int nuv_audio_out_wait_for_room(audio_out_h output, unsigned int* frames) {
    if (output == nullptr || frames == nullptr)
        return AUDIO_IO_ERROR_INVALID_PARAMETER;
    if (!output->prepared)
        return AUDIO_IO_ERROR_INVALID_STATE;
    if (!output->fill) {
        output->fill.emplace(output->format.rate, output->driver->periodFrames(output->sink),
                             output->driver->bufferFrames(output->sink));
        output->underrunsSeen = output->sink->underruns;
    }
    NuvFillTarget& fill = *output->fill;
    const long queued = output->driver->waitQueued(output->sink, fill.WakeLevel());
    if (queued < 0)
        return int(queued);
    const bool ranDry = output->sink->underruns != output->underrunsSeen;
    output->underrunsSeen = output->sink->underruns;
    CountFillTargetChange(fill.Update(ranDry), fill.Frames());
    g_fillTarget.store(fill.Frames(), std::memory_order_relaxed);
    *frames = unsigned(fill.Frames() > static_cast<unsigned long>(queued)
                           ? fill.Frames() - static_cast<unsigned long>(queued)
                           : 0);
    fill.Asked(*frames);
    return AUDIO_IO_ERROR_NONE;
}

NUV_AUDIO_API int nuv_audio_out_set_device(const char* pcm_name) {
    SinkChoice& choice = Choice();
    std::lock_guard<std::mutex> lock(choice.mutex);
    choice.pcmName = pcm_name != nullptr ? pcm_name : "default";
    return AUDIO_IO_ERROR_NONE;
}

NUV_AUDIO_API int nuv_audio_out_set_wav_file(const char* path) {
    SinkChoice& choice = Choice();
    std::lock_guard<std::mutex> lock(choice.mutex);
    choice.wavPath = path != nullptr ? path : "";
    return AUDIO_IO_ERROR_NONE;
}

NUV_AUDIO_API void nuv_audio_out_get_stats(nuv_audio_out_stats_s* stats) {
    if (stats == nullptr)
        return;
    stats->underruns = g_underruns.load(std::memory_order_relaxed);
    stats->writes = g_writes.load(std::memory_order_relaxed);
    stats->frames_written = g_framesWritten.load(std::memory_order_relaxed);
    stats->fill_target_widenings = g_fillTargetWidenings.load(std::memory_order_relaxed);
    stats->fill_target_narrowings = g_fillTargetNarrowings.load(std::memory_order_relaxed);
    stats->fill_target_frames = g_fillTarget.load(std::memory_order_relaxed);
    stats->underruns_woken_late = g_underrunsWokenLate.load(std::memory_order_relaxed);
    stats->underruns_rendering = g_underrunsRendering.load(std::memory_order_relaxed);
}

NUV_AUDIO_API uint64_t nuv_audio_out_get_underrun_count(void) {
    return g_underruns.load(std::memory_order_relaxed);
}

NUV_AUDIO_API void nuv_audio_out_reset_stats(void) {
    g_underruns.store(0, std::memory_order_relaxed);
    g_underrunsWokenLate.store(0, std::memory_order_relaxed);
    g_underrunsRendering.store(0, std::memory_order_relaxed);
    g_writes.store(0, std::memory_order_relaxed);
    g_framesWritten.store(0, std::memory_order_relaxed);
    g_fillTargetWidenings.store(0, std::memory_order_relaxed);
    g_fillTargetNarrowings.store(0, std::memory_order_relaxed);
}
