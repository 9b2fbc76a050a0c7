// The renderer thread and its start and stop.
#include "NuvMIDIRenderer.h"

#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <cstdint>
#include <thread>

#include "NuvLog"
#include "NuvMIDIPcmBlock.h"
#include "NuvMIDIRealtime.h"
#include "NuvMIDISeqSynth.h"
#include "NuvResult"
#include "nuv_audio_out.h"
#include "sound_manager.h"

namespace {

const char* const kThreadName = "NuvMIDIRenderer";
constexpr unsigned long kThreadStackBytes = 0x100000;
// The most blocks rendered and written at once: the output's whole buffer.
constexpr int kBatchBlocks = 32;
// Blocks rendered per pass without an output.
constexpr int kClockBlocks = 4;

// Paces a renderer that has no output to wait on: each batch is waited out up to the
// moment it would have finished playing from the start of the loop at 48 000 Hz, so a
// missing output costs one render per block period instead of a spinning core. Deadlines
// count whole blocks from an anchor, so they do not drift.
class BlockClock {
public:
    using Clock = std::chrono::steady_clock;
    void Restart() {
        m_anchor = Clock::now();
        m_blocks = 0;
    }
    // Waits until the deadline of the last of `blocks` more blocks.
    void Wait(int blocks) {
        m_blocks += uint64_t(blocks);
        const Clock::time_point deadline =
            m_anchor + std::chrono::nanoseconds(int64_t(m_blocks) * kNuvMIDIBlockFrames *
                                                1000000000 / kNuvMIDISampleRate);
        // A loop that fell far behind (a stalled thread) counts afresh rather than rendering
        // a burst to catch up.
        if (Clock::now() - deadline > kCatchUpLimit) {
            Restart();
            return;
        }
        std::this_thread::sleep_until(deadline);
    }

private:
    static constexpr std::chrono::milliseconds kCatchUpLimit{20};
    Clock::time_point m_anchor;
    uint64_t m_blocks = 0;
};

// While nothing sounds the renderer rests instead of rendering silence: once the
// synthesizer has had no active voice and has given only dither for half a second (the
// reverb and chorus tails are then below one step), it stops rendering until MIDI reaches
// the synthesizer and a voice has started. Rendering silence costs as much as rendering
// sound, and on a small device even the wake-ups of a timer that looks for new voices cost
// a few per cent of a core. The output is stopped for the rest and started afresh after it.
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

// Waits until the output has room below its fill target and returns how many blocks fill
// it; without an output, waits out a period's worth of blocks on the clock instead.
int WaitForRoom(audio_out_h output, BlockClock& clock) {
    unsigned int frames = 0;
    if (output == nullptr || nuv_audio_out_wait_for_room(output, &frames) != AUDIO_IO_ERROR_NONE) {
        clock.Wait(kClockBlocks);
        return kClockBlocks;
    }
    const int blocks = int((frames + kNuvMIDIBlockFrames - 1) / kNuvMIDIBlockFrames);
    return blocks < kBatchBlocks ? blocks : kBatchBlocks;
}

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
    m_pcm_buf = static_cast<unsigned char*>(malloc(kBatchBlocks * kNuvMIDIBlockBytes));
    if (m_pcm_buf == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::t_Main] Can't go further exiting \n");
        return;
    }
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIRenderer::t_Main] Enter \n");
    print_dlog(NUV_LOG_INFO, "Synth Internal buffer size = %d.\n", m_synth.InternalBufferSize());
    // With a small fill target the output runs dry if the thread waits for the processor.
    const int err = NuvMIDIRaiseToRealtime(kNuvMIDIAudioPriority);
    if (err != 0)
        print_dlog(NUV_LOG_INFO,
                   "[NuvMIDIRenderer] no real-time priority (%s): rendering at normal priority\n",
                   strerror(err));

    BlockClock clock;
    clock.Restart();
    Rest rest(m_synth);
    bool resting = false;
    while (!m_stopped) {
        if (rest.Resting()) {
            if (!resting && m_pcm_handle != nullptr)
                audio_out_unprepare(m_pcm_handle); // drops the quiet still queued
            resting = true;
            m_synth.WaitForActivity(m_stopped);
            continue;
        }
        if (resting) {
            resting = false;
            clock.Restart();
            if (m_pcm_handle != nullptr)
                audio_out_prepare(m_pcm_handle); // the first batch fills the whole target
        }
        const int blocks = WaitForRoom(m_pcm_handle, clock);
        for (int i = 0; i < blocks; ++i) {
            unsigned char* block = m_pcm_buf + i * kNuvMIDIBlockBytes;
            if (m_synth.Render(kNuvMIDIBlockFrames, block) != FLUID_OK) {
                print_dlog(NUV_LOG_INFO, "%s\n",
                           "[NuvMIDIRenderer::t_Main] PCM data doesn't exist \n");
                memset(block, 0, kNuvMIDIBlockBytes);
            }
            rest.Rendered(block);
            // A silent block is played as true silence: the output keeps running through a
            // short pause instead of running dry and starting again late.
            if (NuvMIDIBlockIsSilent(block))
                memset(block, 0, kNuvMIDIBlockBytes);
        }
        // An output that refuses the batch must not turn the loop into a spin at real-time
        // priority: the batch's time is waited out instead.
        if (m_pcm_handle != nullptr && blocks > 0 &&
            audio_out_write(m_pcm_handle, m_pcm_buf, unsigned(blocks * kNuvMIDIBlockBytes)) < 0)
            clock.Wait(blocks);
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
