// The ALSA PCM sink: blocking interleaved writes; a PCM that runs dry while the writer
// pauses is prepared again on the next write. A low-latency writer sleeps on the system
// clock until the queue, read from the card's pointer, has fallen to its level.
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
    bool underrunLogged = false; // one notice per prepared stream, however often it pauses
    // When the low-latency writer last returned from its wait, and when what was queued then
    // runs out (0: it has written since, or never waited). A card's pointer may move on a
    // period at a time, so what it shows queued may be up to a period more than is left: the
    // queue is taken to last a period less than it shows.
    int64_t wokeAtNs = 0;
    int64_t wakeQueueEndsNs = 0;
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

int64_t FramesNs(const AlsaSink* sink, snd_pcm_uframes_t frames) {
    return int64_t(frames) * 1000000000 / int64_t(sink->rate);
}

// How long what the pointer shows queued is sure to last.
int64_t QueueLastsNs(const AlsaSink* sink, snd_pcm_uframes_t queued) {
    return queued > sink->periodFrames ? FramesNs(sink, queued - sink->periodFrames) : 0;
}

void NoteUnderrun(AlsaSink* sink, NuvUnderrunCause cause) {
    NuvAudioStats_CountUnderrun(sink, cause);
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
            const bool rendering = sink->wokeAtNs != 0 && NuvAudio_NowNs() >= sink->wakeQueueEndsNs;
            NoteUnderrun(sink, rendering ? NuvUnderrunCause::Rendering : NuvUnderrunCause::Unknown);
            if (snd_pcm_recover(sink->pcm, int(written), 1) < 0)
                return AUDIO_IO_ERROR_INVALID_OPERATION;
            continue;
        }
        if (written < 0)
            return AUDIO_IO_ERROR_INVALID_OPERATION;
        bytes += written * frameBytes;
        left -= static_cast<unsigned long>(written);
    }
    sink->wokeAtNs = 0;
    return long(frames);
}

// Waits by the system clock, not in the PCM's poll: a card may signal less often than each
// period while its pointer, when read, moves on at each one. The test VM's loopback card
// wakes a poll only every other period whatever the wake-up threshold, so a writer meant to
// be woken a period below its target was woken two periods below it.
long WaitQueued(NuvAudioSink* base, unsigned long frames) {
    AlsaSink* sink = Alsa(base);
    const snd_pcm_uframes_t level = frames < sink->bufferFrames ? frames : sink->bufferFrames - 1;
    snd_pcm_uframes_t before = sink->bufferFrames; // what was queued at the last look
    int64_t queueEndsNs = INT64_MAX; // when that runs out, from the start of the wait after it
    for (;;) {
        const snd_pcm_state_t state = snd_pcm_state(sink->pcm);
        if (state == SND_PCM_STATE_PREPARED || state == SND_PCM_STATE_SETUP)
            return 0;
        // snd_pcm_avail reads the card's pointer as it is now.
        const snd_pcm_sframes_t avail =
            state == SND_PCM_STATE_XRUN ? -EPIPE : snd_pcm_avail(sink->pcm);
        if (avail == -EPIPE || avail == -ESTRPIPE) {
            NoteUnderrun(sink, NuvAudio_NowNs() >= queueEndsNs ? NuvUnderrunCause::WokenLate
                                                               : NuvUnderrunCause::Unknown);
            return snd_pcm_recover(sink->pcm, int(avail), 1) < 0 ? AUDIO_IO_ERROR_INVALID_OPERATION
                                                                 : 0;
        }
        if (avail < 0)
            return AUDIO_IO_ERROR_INVALID_OPERATION;
        const snd_pcm_uframes_t room = snd_pcm_uframes_t(avail);
        const snd_pcm_uframes_t queued = room < sink->bufferFrames ? sink->bufferFrames - room : 0;
        if (queued <= level) {
            sink->wokeAtNs = NuvAudio_NowNs();
            sink->wakeQueueEndsNs = sink->wokeAtNs + QueueLastsNs(sink, queued);
            return long(queued);
        }
        // Wait as long as the frames above the level take to play. A pointer that did not move
        // meanwhile (one that moves in steps of several periods, or a stalled card) is looked
        // at again a period later: a wake-up a period at most, never a spin.
        snd_pcm_uframes_t wait = queued - level;
        if (queued >= before && wait < sink->periodFrames)
            wait = sink->periodFrames;
        before = queued;
        const int64_t now = NuvAudio_NowNs();
        queueEndsNs = now + QueueLastsNs(sink, queued);
        NuvAudio_SleepUntilNs(now + FramesNs(sink, wait));
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
