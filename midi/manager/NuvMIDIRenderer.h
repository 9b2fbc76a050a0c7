// The renderer thread: pulls 64-frame blocks from the synthesizer and writes them, silent
// ones as true silence, to the 48 000 Hz stereo audio output, keeping only a small fill
// target queued there so that a note is heard soon after it is played.
#ifndef NUV_MIDI_RENDERER_H
#define NUV_MIDI_RENDERER_H

#include <atomic>
#include <string>

#include "NuvThread"
#include "audio_io.h"

class NuvMIDISeqSynth;

class NuvMIDIRenderer : public NuvThread {
public:
    // Plays the library's synthesizer, which must outlive it, and rests without a timer
    // while nothing sounds.
    explicit NuvMIDIRenderer(NuvMIDISeqSynth& synth);
    virtual ~NuvMIDIRenderer();

    virtual void t_Main();
    virtual int Destroy(); // 0: closes the output if still open; StopRenderer runs before

    int Create(int appInfo1, int appInfo2, std::string appInfoText);
    int StartRenderer();
    int StopRenderer();

private:
    void m_OpenOutput();

    NuvMIDISeqSynth& m_synth;
    NuvMutex m_mutex;
    unsigned char* m_pcm_buf;
    std::atomic<bool> m_stopped;
    audio_out_h m_pcm_handle;
    int m_pcm_buf_size;
};

#endif
