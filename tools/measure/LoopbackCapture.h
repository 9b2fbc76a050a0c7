// Records what the library plays, from the capture side of the ALSA loopback card that
// the test VM's default PCM plays into: 48 000 Hz signed 16-bit stereo.
#ifndef NUV_MEASURE_LOOPBACK_CAPTURE_H
#define NUV_MEASURE_LOOPBACK_CAPTURE_H

#include <alsa/asoundlib.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "PcmAnalysis.h"

class LoopbackCapture {
public:
    explicit LoopbackCapture(std::string pcmName = "hw:Loopback,1,0");
    ~LoopbackCapture();

    // Opens the capture and records on a thread of its own until Stop.
    bool Start(std::string* problem = nullptr);
    void Stop();

    // Everything recorded since Start or the last Clear.
    Pcm Recorded() const;
    size_t Frames() const;
    // Level of the last `ms` milliseconds recorded (0 before there are that many).
    double RecentRms(int ms) const;
    void Clear();
    // When the frame of this index in Recorded() was captured, from the moment each read
    // returned: early by at most the time a read takes to return, which is the same for
    // every sound source measured.
    std::chrono::steady_clock::time_point CapturedAt(size_t frame) const;

private:
    void m_Run();

    std::string m_pcmName;
    snd_pcm_t* m_pcm = nullptr;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_mutex;
    Pcm m_recorded;
    // For each read: when it returned and how many frames Recorded() held after it.
    std::vector<std::pair<std::chrono::steady_clock::time_point, size_t>> m_reads;
};

#endif
