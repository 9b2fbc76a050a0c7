// Sees the machine stall: a thread at the highest real-time priority sleeps 1 ms at a time
// and keeps the longest it overslept. Nothing in a guest delays such a thread for long but
// the guest itself not running (an emulated machine whose host is busy), which no program
// inside can make up for: a real-time figure taken across a longer stall says nothing
// about the program measured.
#ifndef NUV_MEASURE_STALL_WATCH_H
#define NUV_MEASURE_STALL_WATCH_H

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <thread>

class StallWatch {
public:
    StallWatch() : m_thread([this] { m_Run(); }) {}
    ~StallWatch() {
        m_stop = true;
        m_thread.join();
    }

    // The longest stall since the start or the last Reset, in milliseconds.
    double LongestMs() const { return m_longestNs.load() / 1e6; }
    void Reset() { m_longestNs = 0; }

private:
    void m_Run() {
        // Named, so that a measurement of a process's threads can leave this one out.
        pthread_setname_np(pthread_self(), "stall watch");
        sched_param param{};
        param.sched_priority = sched_get_priority_max(SCHED_FIFO);
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &param); // where allowed
        const auto step = std::chrono::milliseconds(1);
        while (!m_stop) {
            const auto before = std::chrono::steady_clock::now();
            std::this_thread::sleep_for(step);
            const std::chrono::nanoseconds late = std::chrono::steady_clock::now() - before - step;
            if (late.count() > m_longestNs)
                m_longestNs = late.count();
        }
    }
    std::atomic<bool> m_stop{false};
    std::atomic<long long> m_longestNs{0};
    std::thread m_thread;
};

#endif
