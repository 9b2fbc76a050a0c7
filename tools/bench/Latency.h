// How long a key press takes: to the host's callback, and to sound at the audio output.
#ifndef NUV_BENCH_LATENCY_H
#define NUV_BENCH_LATENCY_H

#include <functional>

#include "BenchSupport.h"
#include "LoopbackCapture.h"
#include "VirtualKeyboard.h"

// A non-blocking input client named `name` whose port is subscribed to the keyboard, or
// null.
snd_seq_t* OpenListener(const VirtualKeyboard& keyboard, const char* name);

// A minimal sequencer client of its own that blocks in poll() on its port, subscribed to
// the keyboard: the fastest any client can hear the keyboard.
class PollingListener {
public:
    explicit PollingListener(const VirtualKeyboard& keyboard);
    ~PollingListener();
    bool IsOpen() const { return m_seq != nullptr; }
    ArrivalStamps& Arrivals() { return m_arrivals; }

private:
    void m_Run();
    snd_seq_t* m_seq = nullptr;
    int m_stopPipe[2] = {-1, -1};
    std::thread m_thread;
    ArrivalStamps m_arrivals;
};

// Raw note-ons written to the keyboard's node, `events` of them at random moments, timed
// until the listener has each.
Timings TimeInput(VirtualKeyboard& keyboard, ArrivalStamps& listener, int events);

// Raw notes written to the keyboard's node, timed until their onset in the loopback capture
// of whatever plays them. Before each note the capture has been below `quietRms` for 50 ms
// and `beforeEach` has run.
Timings TimeKeyToSound(VirtualKeyboard& keyboard, LoopbackCapture& capture, int notes,
                       double quietRms, const std::function<void()>& beforeEach = nullptr);

#endif
