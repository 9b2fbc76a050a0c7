// Sees the machine stall: a thread at the highest real-time priority sleeps 1 ms at a time
// and keeps the longest it overslept. Nothing in a guest delays such a thread for long but
// the guest itself not running (an emulated machine whose host is busy), which no program
// inside can make up for: a real-time figure taken across a longer stall says nothing
// about the program measured.
#ifndef NUV_MEASURE_STALL_WATCH_H
#define NUV_MEASURE_STALL_WATCH_H

#include <atomic>
#include <thread>

class StallWatch {
public:
    // Watches the processor numbered `cpu` alone, or whichever it is put on (-1).
    explicit StallWatch(int cpu = -1);
    ~StallWatch();
    StallWatch(const StallWatch&) = delete;
    StallWatch& operator=(const StallWatch&) = delete;

    // The longest stall since the start or the last Reset, in milliseconds.
    double LongestMs() const { return m_longestNs.load() / 1e6; }
    void Reset() { m_longestNs = 0; }

private:
    void m_Run();
    const int m_cpu;
    std::atomic<bool> m_stop{false};
    std::atomic<long long> m_longestNs{0};
    std::thread m_thread;
};

#endif
