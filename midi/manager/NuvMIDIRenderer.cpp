// The renderer thread and its start and stop.
#include "NuvMIDIRenderer.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <cerrno>
#include <cstdint>

#include "NuvLog"
#include "NuvMIDIPcmBlock.h"
#include "NuvMIDISeqSynth.h"
#include "NuvResult"
#include "sound_manager.h"

namespace {

const char* const kThreadName = "NuvMIDIRenderer";
constexpr unsigned long kThreadStackBytes = 0x100000;

int64_t NowNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// The real-time deadline of every block: the moment it ends if played from the start of
// the loop at 48 000 Hz. A block that is not written is waited out up to its deadline, so
// a silent synthesizer or a missing output costs one render per block period instead of a
// spinning core; written blocks are paced by the output instead. Deadlines count whole
// blocks from an anchor, so they do not drift.
class BlockClock {
public:
    void Restart() {
        m_anchorNs = NowNs();
        m_blocks = 0;
    }
    // A block was written: its time is taken, the output waited for room if needed.
    void Written() { m_Next(1); }
    // `blocks` blocks were dropped: waits until the deadline of the last.
    void WaitDropped(int blocks = 1) {
        const int64_t deadline = m_Next(blocks);
        timespec at{time_t(deadline / 1000000000), long(deadline % 1000000000)};
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
        }
    }

private:
    int64_t m_Next(int blocks) {
        m_blocks += uint64_t(blocks);
        const int64_t deadline =
            m_anchorNs + int64_t(m_blocks) * kNuvMIDIBlockFrames * 1000000000 / kNuvMIDISampleRate;
        // A loop that fell far behind (a stalled thread, an output that waited long)
        // counts afresh rather than rendering a burst to catch up.
        const int64_t now = NowNs();
        if (now - deadline > kCatchUpLimitNs) {
            Restart();
            return now;
        }
        return deadline;
    }

    static constexpr int64_t kCatchUpLimitNs = 20000000;
    int64_t m_anchorNs = 0;
    uint64_t m_blocks = 0;
};

// While nothing sounds the renderer rests instead of rendering silence: once the
// synthesizer has had no active voice and has given only dither for half a second (the
// reverb and chorus tails are then below one step), it stops rendering until MIDI reaches
// the synthesizer and a voice has started. Rendering silence costs as much as rendering
// sound, and on a small device even the wake-ups of a timer that looks for new voices cost
// a few per cent of a core.
class Rest {
public:
    explicit Rest(NuvMIDISeqSynth& synth) : m_synth(synth) {}
    // After each rendered block.
    void Rendered(const unsigned char* block) {
        const bool quiet = NuvMIDIBlockIsDitherOnly(block) && m_synth.ActiveVoices() == 0;
        m_quietBlocks = quiet ? m_quietBlocks + 1 : 0;
    }
    // Whether this pass may skip rendering.
    bool Resting() {
        if (m_quietBlocks < kQuietBlocksBeforeRest)
            return false;
        if (m_synth.ActiveVoices() == 0)
            return true;
        m_quietBlocks = 0;
        return false;
    }

private:
    static constexpr int kQuietBlocksBeforeRest = kNuvMIDISampleRate / 2 / kNuvMIDIBlockFrames;
    NuvMIDISeqSynth& m_synth;
    int m_quietBlocks = 0;
};

void CloseOutput(audio_out_h handle) {
    audio_out_unprepare(handle);
    audio_out_destroy(handle);
}

} // namespace

NuvMIDIRenderer::NuvMIDIRenderer(NuvMIDISeqSynth& synth)
    : m_synth(synth), m_pcm_buf(nullptr), m_stopped(true), m_pcm_handle(nullptr),
      m_pcm_buf_size(-1) {}

NuvMIDIRenderer::~NuvMIDIRenderer() {}

int NuvMIDIRenderer::Create(int, int, std::string) {
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: NuvMIDIRenderer::Create().\n");
    if (!m_mutex.Create()) {
        print_dlog(NUV_LOG_INFO, "%s\n", "m_mutex.Create : error!\n");
        return NUV_ERR_CREATE_MANAGER;
    }
    int max = 0;
    if (sound_manager_get_max_volume(SOUND_TYPE_SYSTEM, &max) == SOUND_MANAGER_ERROR_NONE) {
        sound_manager_set_volume(SOUND_TYPE_SYSTEM, max - 1);
        print_dlog(NUV_LOG_INFO, "INFO: NuvMIDIRenderer::Create(). sound_manager_set_volume=%d \n",
                   max - 1);
    }
    return 0;
}

int NuvMIDIRenderer::StartRenderer() {
    char name[16];
    strncpy(name, kThreadName, sizeof name);
    NuvMutexGuard guard(m_mutex);
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::StartRenderer] Enter \n");
    if (FlagCreate() && !m_stopped) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "[NuvMIDIRenderer::StartRenderer] Renderer already running.\n");
        return 0;
    }
    if (m_pcm_handle == nullptr)
        m_OpenOutput();
    print_dlog(NUV_LOG_INFO, "[NuvMIDIRenderer]m_pcm_handle=%p, m_pcm_buf_size=%d\n",
               static_cast<void*>(m_pcm_handle), m_pcm_buf_size);

    m_stopped = false;
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer]NuvThread:: Create \n");
    if (!NuvThread::Create(name, kThreadStackBytes)) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "[NuvMIDIRenderer]NuvThread:: Create: NUV_ERR_CREATE_THREAD\n");
        StopRenderer();
        return NUV_ERR_CREATE_THREAD;
    }
    return 0;
}

// Opens the 48 000 Hz stereo output; on any failure releases what was made and leaves
// the handle null, so that the thread renders without writing.
void NuvMIDIRenderer::m_OpenOutput() {
    m_pcm_buf_size = 0;
    if (audio_out_create(kNuvMIDISampleRate, AUDIO_CHANNEL_STEREO, AUDIO_SAMPLE_TYPE_S16_LE,
                         SOUND_TYPE_SYSTEM, &m_pcm_handle) != AUDIO_IO_ERROR_NONE ||
        m_pcm_handle == nullptr) {
        m_pcm_handle = nullptr;
        return;
    }
    if (audio_out_prepare(m_pcm_handle) != AUDIO_IO_ERROR_NONE) {
        audio_out_destroy(m_pcm_handle);
        m_pcm_handle = nullptr;
        return;
    }
    if (audio_out_get_buffer_size(m_pcm_handle, &m_pcm_buf_size) != AUDIO_IO_ERROR_NONE) {
        m_pcm_buf_size = 0;
        CloseOutput(m_pcm_handle);
        m_pcm_handle = nullptr;
    }
}

void NuvMIDIRenderer::t_Main() {
    m_pcm_buf = static_cast<unsigned char*>(malloc(kNuvMIDIBlockBytes));
    if (m_pcm_buf == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::t_Main] Can't go further exiting \n");
        return;
    }
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::t_Main] Enter \n");
    print_dlog(NUV_LOG_INFO, "Synth Internal buffer size = %d.\n", m_synth.InternalBufferSize());

    BlockClock clock;
    clock.Restart();
    Rest rest(m_synth);
    while (!m_stopped) {
        if (rest.Resting()) {
            m_synth.WaitForActivity(m_stopped);
            clock.Restart();
            continue;
        }
        if (m_synth.Render(kNuvMIDIBlockFrames, m_pcm_buf) != FLUID_OK) {
            print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::t_Main] PCM data doesn't exist \n");
            clock.WaitDropped();
            continue;
        }
        rest.Rendered(m_pcm_buf);
        if (NuvMIDIBlockIsSilent(m_pcm_buf) || m_pcm_handle == nullptr) {
            clock.WaitDropped();
            continue;
        }
        // The output blocks while its buffer is full, which paces the loop.
        audio_out_write(m_pcm_handle, m_pcm_buf, kNuvMIDIBlockBytes);
        clock.Written();
    }
    free(m_pcm_buf);
    m_pcm_buf = nullptr;
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::t_Main] END .\n");
}

int NuvMIDIRenderer::StopRenderer() {
    NuvMutexGuard guard(m_mutex);
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::StopRenderer]_enter!!! \n");
    if (m_stopped) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "[NuvMIDIRenderer::StopRenderer] Renderer is not running \n");
        return 0;
    }
    m_stopped = true;
    m_synth.NotifyActivity(); // ends a rest
    if (FlagCreate()) {
        print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::StopRenderer] PCThread::Destroy()  \n");
        NuvThread::Destroy();
    }
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::StopRenderer] After Destroy_thread! \n");
    if (m_pcm_handle != nullptr) {
        CloseOutput(m_pcm_handle);
        m_pcm_handle = nullptr;
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "[NuvMIDIRenderer::StopRenderer] After Close m_pcm_handle! \n");
    }
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::StopRenderer] END! \n");
    return 0;
}

int NuvMIDIRenderer::Destroy() {
    print_dlog(NUV_LOG_INFO, "%s\n", "INFO: NuvMIDIRenderer::Destroy().\n");
    if (m_pcm_handle != nullptr) {
        CloseOutput(m_pcm_handle);
        m_pcm_handle = nullptr;
    }
    m_mutex.Destroy();
    return 0;
}
