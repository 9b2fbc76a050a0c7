// The watcher thread's private state, behind NuvWatcher::m_pLoop.
#ifndef NUV_CORE_SRC_NUVWATCHERLOOP_H
#define NUV_CORE_SRC_NUVWATCHERLOOP_H

#include <poll.h>

#include <atomic>
#include <mutex>

struct NuvWatcherLoop {
    static const int kMaxWakeDescriptors = 8;

    std::atomic<unsigned long> periodMs{1000};
    std::atomic<bool> stopping{false};
    int stopFd = -1; // eventfd written by Stop; exists from Create to Destroy
    // Touched before Start or on the watcher thread only.
    struct pollfd wake[kMaxWakeDescriptors] = {};
    int wakeCount = 0;
    std::mutex startStop; // serialises Start and Stop between host threads
};

#endif
