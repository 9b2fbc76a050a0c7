// MIDI-file playback: one file at a time, played by a FluidSynth player on the library's
// synthesizer and watched by a detached play thread.
//
// One mutex guards the state, the player and the file name; the state says who may do what:
//   idle      no play thread, no player. A start creates both.
//   starting  the play thread is created and has not started the player yet.
//   playing   the player plays the file's events.
//   stopping  the player was stopped, or has played every event and lets the last notes
//             ring; the play thread finishes (join, settle, reset, delete) and goes idle.
// The host sees a file playing (status 2) while starting or playing. A start waits for a
// stopping thread to finish before it makes the next player; so does the destructor.
//
// Threads: Start, Stop, Status and the destructor on host threads; PlayFile on the play
// thread; m_OnTick on the player's timer thread (never while m_mutex is held by a caller
// that waits for that thread: the player is deleted without the mutex).
#ifndef NUV_MIDI_FILE_PLAYBACK_H
#define NUV_MIDI_FILE_PLAYBACK_H

#include <fluidsynth.h>
#include <pthread.h>

#include <condition_variable>
#include <mutex>

class NuvMIDISeqSynth;

// The play thread of one file; `arg` is the NuvMIDIFilePlayback.
void* PlayFile(void* arg);

class NuvMIDIFilePlayback {
public:
    // What GetFilePlayStatus answers.
    static constexpr int kStatusIdle = 1;
    static constexpr int kStatusPlaying = 2;
    enum class Started { kYes, kBusy, kFailed };

    NuvMIDIFilePlayback();
    ~NuvMIDIFilePlayback(); // stops a playing file and waits for its thread

    // Plays `fileName` (a standard MIDI file, at most 255 characters) on the synthesizer.
    // kBusy while a file plays: nothing is queued.
    Started Start(const char* fileName, NuvMIDISeqSynth& synth);
    // Stops a playing file: lets the player settle, then resets the synthesizer. 0 when a
    // file was stopped, 1 when none was playing.
    int Stop(NuvMIDISeqSynth& synth);
    int Status();

private:
    friend void* PlayFile(void* arg);
    enum class State { kIdle, kStarting, kPlaying, kStopping };

    void m_Play();
    // Returns once the player has played every event, was stopped, or has ended.
    void m_AwaitEnd(fluid_player_t* player);
    static int m_OnTick(void* playback, int tick);
    // Stops the player of a thread that is still running and waits until it is idle.
    void m_EndThread(std::unique_lock<std::mutex>& lock);

    std::mutex m_mutex;
    std::condition_variable m_changed; // the state changed, or the player ticked first
    State m_state;
    bool m_bTicked;            // the player has called m_OnTick at least once
    fluid_player_t* m_pPlayer; // the play thread deletes it when it goes idle
    NuvMIDISeqSynth* m_pSynth;
    char m_fileName[256];
    pthread_attr_t m_threadAttr;
    pthread_t m_playThread;
};

#endif
