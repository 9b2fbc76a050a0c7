// The floor of key to sound on this machine: a sequencer client subscribed to the keyboard
// that answers a note-on with full-scale sound in the very next period it writes, to an
// output kept no more than two 4 ms periods full. Nothing synthesizes, nothing queues
// more: what it measures is the way there and back (raw MIDI into the sequencer, the
// loopback card's steps, the capture) that every player on this machine pays as well.
#ifndef NUV_BENCH_ECHO_ANCHOR_H
#define NUV_BENCH_ECHO_ANCHOR_H

#include <alsa/asoundlib.h>

#include <atomic>
#include <thread>

#include "VirtualKeyboard.h"

class EchoAnchor {
public:
    explicit EchoAnchor(const VirtualKeyboard& keyboard);
    ~EchoAnchor();
    EchoAnchor(const EchoAnchor&) = delete;
    EchoAnchor& operator=(const EchoAnchor&) = delete;
    bool IsRunning() const { return m_thread.joinable(); }

private:
    void m_Run();
    snd_seq_t* m_seq = nullptr;
    snd_pcm_t* m_pcm = nullptr;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

#endif
