// Real-time scheduling for the threads that must run as soon as they have work: the
// watcher reading input and the renderer keeping the output fed.
#ifndef NUV_MIDI_REALTIME_H
#define NUV_MIDI_REALTIME_H

#include <pthread.h>
#include <sched.h>

// The priorities of FluidSynth's own MIDI input and audio threads.
constexpr int kNuvMIDIInputPriority = 50;
constexpr int kNuvMIDIAudioPriority = 60;

// Asks SCHED_FIFO at `priority` for the calling thread; 0, or the error when the system
// does not allow it (the thread then runs at normal priority).
inline int NuvMIDIRaiseToRealtime(int priority) {
    sched_param param{};
    param.sched_priority = priority;
    return pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
}

#endif
