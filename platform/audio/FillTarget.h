// How much a low-latency writer keeps queued at an output (nuv_audio_out_wait_for_room).
//
// It starts at the fewest whole periods that still hold 8 ms when the writer is woken, a
// period below the target (three 4 ms periods on ALSA, two 10.7 ms periods into a WAV file):
// time to render the next period in, and to ride out a short stall. Each time the output runs
// dry anyway the target grows by a period, up to all of the buffer but one period; after ten
// seconds of sound without running dry it narrows again by a period, down to the first
// target. Each narrowing is a trial: where the narrower target runs dry, the sound it takes
// before the next trial doubles, up to 160 s, so that a machine too slow for a target is not
// made to run dry every ten seconds to find that out again. What a stream has learnt outlasts
// its pauses (unprepare, prepare): a machine that was too slow for a target before a rest is
// too slow after it.
#ifndef NUV_PLATFORM_AUDIO_FILL_TARGET_H
#define NUV_PLATFORM_AUDIO_FILL_TARGET_H

#include <cstdint>

class NuvFillTarget {
public:
    enum class Change { None, Widened, Narrowed };

    static constexpr unsigned long kWokenWithMs = 8;
    static constexpr unsigned long kCalmSeconds = 10;
    static constexpr unsigned long kMostCalmSeconds = 160;

    NuvFillTarget(unsigned long rate, unsigned long period, unsigned long buffer)
        : m_rate(rate), m_period(period), m_buffer(buffer),
          m_first(period * (1 + (rate * kWokenWithMs / 1000 + period - 1) / period)),
          m_frames(m_first) {}

    unsigned long Frames() const { return m_frames; }
    // The writer is woken once the queue has fallen to this.
    unsigned long WakeLevel() const { return m_frames - m_period; }
    unsigned long CalmSeconds() const { return m_calmSeconds; }

    // After each wait for room: whether the output ran dry since the last one.
    Change Update(bool ranDry) {
        if (ranDry) {
            m_calmFrames = 0;
            if (m_onTrial && m_calmSeconds < kMostCalmSeconds)
                m_calmSeconds *= 2;
            m_onTrial = false;
            if (m_frames + m_period >= m_buffer)
                return Change::None;
            m_frames += m_period;
            return Change::Widened;
        }
        if (m_calmFrames < uint64_t(m_rate) * m_calmSeconds)
            return Change::None;
        m_calmFrames = 0;
        m_onTrial = m_frames > m_first;
        if (!m_onTrial)
            return Change::None;
        m_frames -= m_period;
        return Change::Narrowed;
    }
    // Frames the writer was asked for: the sound that counts towards the next narrowing.
    void Asked(unsigned long frames) { m_calmFrames += frames; }

private:
    const unsigned long m_rate, m_period, m_buffer, m_first;
    unsigned long m_frames;
    unsigned long m_calmSeconds = kCalmSeconds;
    uint64_t m_calmFrames = 0;
    bool m_onTrial = false; // narrowed, and not yet through a calm while or run dry since
};

#endif
