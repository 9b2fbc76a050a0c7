// The ALSA PCM sink: blocking interleaved writes; a PCM that runs dry while the writer
// pauses is prepared again on the next write. A low-latency writer waits in the PCM's poll
// until the queue has fallen to its level (the wake-up threshold, avail_min, follows that
// level) and reads the queue with snd_pcm_delay.
#include <alsa/asoundlib.h>

#include <new>
#include <string>

#include "AudioSink.h"
#include "NuvLog"
#include "audio_io.h"

namespace {

struct AlsaSink : NuvAudioSink {
    snd_pcm_t* pcm = nullptr;
    std::string name;
    snd_pcm_uframes_t bufferFrames = 0;
    snd_pcm_uframes_t periodFrames = 0;
    unsigned int rate = 0;
    snd_pcm_uframes_t wakeLevel = 0; // the queue's level at which the PCM's poll wakes
    bool underrunLogged = false;     // one notice per prepared stream, however often it pauses
};

AlsaSink* Alsa(NuvAudioSink* sink) {
    return static_cast<AlsaSink*>(sink);
}

int Configure(AlsaSink& sink, const NuvAudioFormat& format) {
    snd_pcm_t* pcm = sink.pcm;
    snd_pcm_hw_params_t* hw;
    snd_pcm_hw_params_alloca(&hw);
    unsigned int rate = format.rate;
    snd_pcm_uframes_t period = kNuvAudioPeriodFrames;
    snd_pcm_uframes_t buffer = kNuvAudioPeriodFrames * kNuvAudioPeriods;
    if (snd_pcm_hw_params_any(pcm, hw) < 0 ||
        snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED) < 0 ||
        snd_pcm_hw_params_set_format(
            pcm, hw, format.bytesPerSample == 2 ? SND_PCM_FORMAT_S16_LE : SND_PCM_FORMAT_U8) < 0 ||
        snd_pcm_hw_params_set_channels(pcm, hw, format.channels) < 0 ||
        snd_pcm_hw_params_set_rate_near(pcm, hw, &rate, nullptr) < 0 ||
        snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, nullptr) < 0 ||
        snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer) < 0 ||
        snd_pcm_hw_params(pcm, hw) < 0)
        return AUDIO_IO_ERROR_NOT_SUPPORTED_TYPE;
    snd_pcm_hw_params_get_period_size(hw, &period, nullptr);
    snd_pcm_hw_params_get_buffer_size(hw, &buffer);
    sink.bufferFrames = buffer;
    sink.periodFrames = period;
    sink.rate = rate;
    sink.wakeLevel = buffer - period;

    snd_pcm_sw_params_t* sw;
    snd_pcm_sw_params_alloca(&sw);
    snd_pcm_uframes_t boundary = 0;
    // Start with two periods (8 ms) queued: a short sound is still heard at once and a sound
    // that ends is not left waiting long in the buffer, while a writer of small blocks that
    // restarts a PCM after a pause is not one hiccup away from running dry again. Fill what
    // has been played with silence, so that a PCM that runs dry never repeats stale samples.
    if (snd_pcm_sw_params_current(pcm, sw) < 0 ||
        snd_pcm_sw_params_get_boundary(sw, &boundary) < 0 ||
        snd_pcm_sw_params_set_start_threshold(pcm, sw, 2 * period) < 0 ||
        snd_pcm_sw_params_set_avail_min(pcm, sw, period) < 0 ||
        snd_pcm_sw_params_set_silence_threshold(pcm, sw, 0) < 0 ||
        snd_pcm_sw_params_set_silence_size(pcm, sw, boundary) < 0 || snd_pcm_sw_params(pcm, sw) < 0)
        return AUDIO_IO_ERROR_NOT_SUPPORTED_TYPE;
    return AUDIO_IO_ERROR_NONE;
}

int Open(const char* target, const NuvAudioFormat& format, NuvAudioSink** out) {
    auto* sink = new (std::nothrow) AlsaSink;
    if (sink == nullptr)
        return AUDIO_IO_ERROR_OUT_OF_MEMORY;
    sink->name = target;
    if (snd_pcm_open(&sink->pcm, target, SND_PCM_STREAM_PLAYBACK, 0) < 0) {
        delete sink;
        return AUDIO_IO_ERROR_DEVICE_NOT_OPENED;
    }
    const int result = Configure(*sink, format);
    if (result != AUDIO_IO_ERROR_NONE) {
        snd_pcm_close(sink->pcm);
        delete sink;
        return result;
    }
    *out = sink;
    return AUDIO_IO_ERROR_NONE;
}

int Prepare(NuvAudioSink* base) {
    AlsaSink* sink = Alsa(base);
    sink->underrunLogged = false;
    return snd_pcm_prepare(sink->pcm) < 0 ? AUDIO_IO_ERROR_INVALID_OPERATION : AUDIO_IO_ERROR_NONE;
}

void NoteUnderrun(AlsaSink* sink) {
    NuvAudioStats_CountUnderrun(sink);
    if (!sink->underrunLogged) {
        sink->underrunLogged = true;
        print_dlog(NUV_LOG_INFO,
                   "nuv_audio_out: %s ran dry and was restarted; later underruns of this "
                   "stream are only counted\n",
                   sink->name.c_str());
    }
}

long Write(NuvAudioSink* base, const void* data, unsigned long frames) {
    AlsaSink* sink = Alsa(base);
    const auto* bytes = static_cast<const char*>(data);
    const long frameBytes = long(snd_pcm_frames_to_bytes(sink->pcm, 1));
    unsigned long left = frames;
    while (left > 0) {
        const snd_pcm_sframes_t written = snd_pcm_writei(sink->pcm, bytes, left);
        if (written == -EAGAIN || written == -EINTR)
            continue;
        if (written == -EPIPE || written == -ESTRPIPE) {
            NoteUnderrun(sink);
            if (snd_pcm_recover(sink->pcm, int(written), 1) < 0)
                return AUDIO_IO_ERROR_INVALID_OPERATION;
            continue;
        }
        if (written < 0)
            return AUDIO_IO_ERROR_INVALID_OPERATION;
        bytes += written * frameBytes;
        left -= static_cast<unsigned long>(written);
    }
    return long(frames);
}

// The PCM's poll wakes once at most `level` frames are queued.
bool SetWakeLevel(AlsaSink* sink, snd_pcm_uframes_t level) {
    if (level == sink->wakeLevel)
        return true;
    snd_pcm_sw_params_t* sw;
    snd_pcm_sw_params_alloca(&sw);
    if (snd_pcm_sw_params_current(sink->pcm, sw) < 0 ||
        snd_pcm_sw_params_set_avail_min(sink->pcm, sw, sink->bufferFrames - level) < 0 ||
        snd_pcm_sw_params(sink->pcm, sw) < 0)
        return false;
    sink->wakeLevel = level;
    return true;
}

long WaitQueued(NuvAudioSink* base, unsigned long frames) {
    AlsaSink* sink = Alsa(base);
    const snd_pcm_uframes_t level = frames < sink->bufferFrames ? frames : sink->bufferFrames - 1;
    if (!SetWakeLevel(sink, level))
        return AUDIO_IO_ERROR_INVALID_OPERATION;
    bool waited = false;
    for (;;) {
        const snd_pcm_state_t state = snd_pcm_state(sink->pcm);
        if (state == SND_PCM_STATE_PREPARED || state == SND_PCM_STATE_SETUP)
            return 0;
        // What waits in the buffer, as the poll's wake-up threshold counts it.
        const snd_pcm_sframes_t avail =
            state == SND_PCM_STATE_XRUN ? -EPIPE : snd_pcm_avail(sink->pcm);
        int err = avail < 0 ? int(avail) : 0;
        if (err == 0) {
            const snd_pcm_uframes_t room = snd_pcm_uframes_t(avail);
            const snd_pcm_uframes_t queued =
                room < sink->bufferFrames ? sink->bufferFrames - room : 0;
            if (queued <= level)
                return long(queued);
            if (waited) {
                // The poll said there was room but the queue had not fallen: a period on the
                // clock rather than a poll that returns at once again (no spinning at the
                // writer's real-time priority).
                const snd_pcm_uframes_t frames =
                    queued - level > sink->periodFrames ? queued - level : sink->periodFrames;
                NuvAudio_SleepUntilNs(NuvAudio_NowNs() +
                                      int64_t(frames) * 1000000000 / int64_t(sink->rate));
            }
            // A second without the PCM moving on is a stalled device: look again.
            const int ready = snd_pcm_wait(sink->pcm, 1000);
            waited = ready > 0;
            err = ready < 0 ? ready : 0;
        }
        if (err == -EPIPE || err == -ESTRPIPE) {
            NoteUnderrun(sink);
            return snd_pcm_recover(sink->pcm, err, 1) < 0 ? AUDIO_IO_ERROR_INVALID_OPERATION : 0;
        }
        if (err < 0 && err != -EINTR)
            return AUDIO_IO_ERROR_INVALID_OPERATION;
    }
}

int Unprepare(NuvAudioSink* base) {
    AlsaSink* sink = Alsa(base);
    snd_pcm_drop(sink->pcm);
    return AUDIO_IO_ERROR_NONE;
}

void Close(NuvAudioSink* base) {
    AlsaSink* sink = Alsa(base);
    snd_pcm_close(sink->pcm);
    delete sink;
}

unsigned long BufferFrames(const NuvAudioSink* sink) {
    return static_cast<const AlsaSink*>(sink)->bufferFrames;
}

unsigned long PeriodFrames(const NuvAudioSink* sink) {
    return static_cast<const AlsaSink*>(sink)->periodFrames;
}

} // namespace

const NuvAudioSinkDriver g_nuvAlsaSinkDriver = {
    "alsa", Open, Prepare, Write, WaitQueued, Unprepare, Close, BufferFrames, PeriodFrames};
