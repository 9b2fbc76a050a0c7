#include "EchoAnchor.h"

#include <pthread.h>
#include <sched.h>

#include <vector>

#include "Latency.h"

namespace {
constexpr unsigned kRate = 48000;
constexpr snd_pcm_uframes_t kPeriod = 192; // the library's output period
constexpr snd_pcm_uframes_t kPeriods = 8;  // the library's buffer; at most 2 are kept queued

// The writer is woken once a period at most is queued, and the output starts with one.
bool SetQueue(snd_pcm_t* pcm, snd_pcm_uframes_t buffer, snd_pcm_uframes_t period) {
    snd_pcm_sw_params_t* sw;
    snd_pcm_sw_params_alloca(&sw);
    return snd_pcm_sw_params_current(pcm, sw) >= 0 &&
           snd_pcm_sw_params_set_start_threshold(pcm, sw, period) >= 0 &&
           snd_pcm_sw_params_set_avail_min(pcm, sw, buffer - period) >= 0 &&
           snd_pcm_sw_params(pcm, sw) >= 0;
}

bool Configure(snd_pcm_t* pcm) {
    snd_pcm_hw_params_t* hw;
    snd_pcm_hw_params_alloca(&hw);
    snd_pcm_uframes_t period = kPeriod, buffer = kPeriod * kPeriods;
    unsigned rate = kRate;
    return snd_pcm_hw_params_any(pcm, hw) >= 0 &&
           snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED) >= 0 &&
           snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE) >= 0 &&
           snd_pcm_hw_params_set_channels(pcm, hw, 2) >= 0 &&
           snd_pcm_hw_params_set_rate_near(pcm, hw, &rate, nullptr) >= 0 &&
           snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, nullptr) >= 0 &&
           snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer) >= 0 &&
           snd_pcm_hw_params(pcm, hw) >= 0 && SetQueue(pcm, buffer, period);
}
} // namespace

EchoAnchor::EchoAnchor(const VirtualKeyboard& keyboard)
    : m_seq(OpenListener(keyboard, "Echo Anchor")) {
    if (m_seq == nullptr || snd_pcm_open(&m_pcm, "default", SND_PCM_STREAM_PLAYBACK, 0) < 0)
        return;
    if (!Configure(m_pcm))
        return;
    m_thread = std::thread(&EchoAnchor::m_Run, this);
}

EchoAnchor::~EchoAnchor() {
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
    if (m_pcm != nullptr)
        snd_pcm_close(m_pcm);
    if (m_seq != nullptr)
        snd_seq_close(m_seq);
}

void EchoAnchor::m_Run() {
    // The renderer's priority.
    sched_param param{};
    param.sched_priority = 60;
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
    pthread_setname_np(pthread_self(), "echo anchor");
    const std::vector<int16_t> silence(kPeriod * 2, 0), loud(kPeriod * 2, 16000);
    bool sounding = false;
    while (!m_stop) {
        // Whatever arrived while the last period was written decides the next one.
        snd_seq_event_t* ev = nullptr;
        while (snd_seq_event_input(m_seq, &ev) >= 0 && ev != nullptr) {
            if (ev->type == SND_SEQ_EVENT_NOTEON && ev->data.note.velocity > 0)
                sounding = true;
            else if (ev->type == SND_SEQ_EVENT_NOTEOFF || ev->type == SND_SEQ_EVENT_NOTEON)
                sounding = false;
        }
        // Waits until no more than a period is queued: the loop runs once a period and
        // keeps two queued at most.
        if (snd_pcm_state(m_pcm) == SND_PCM_STATE_RUNNING)
            snd_pcm_wait(m_pcm, 1000);
        const snd_pcm_sframes_t written =
            snd_pcm_writei(m_pcm, sounding ? loud.data() : silence.data(), kPeriod);
        if (written < 0 && snd_pcm_recover(m_pcm, int(written), 1) < 0)
            return;
    }
}
