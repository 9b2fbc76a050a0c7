// The watcher thread's private state, behind NuvWatcher::m_pLoop.
#ifndef NUV_CORE_SRC_NUVWATCHERLOOP_H
#define NUV_CORE_SRC_NUVWATCHERLOOP_H

#include <poll.h>

#include <atomic>
#include <mutex>

#include "NuvThread"

struct NuvWatcherLoop {
    static const int kMaxWakeDescriptors = 8;

    std::atomic<unsigned long> periodMs{1000};
    std::atomic<bool> stopping{false};
    // Counts the starts: a thread that was stopped from its own pass and is still winding
    // down when the watcher is started again sees a newer number and ends.
    std::atomic<unsigned> generation{0};
    int stopFd = -1; // eventfd written by Stop; exists from Create to Destroy
    // Touched before Start or on the watcher thread only.
    struct pollfd wake[kMaxWakeDescriptors] = {};
    int wakeCount = 0;
    std::mutex startStop; // serialises Start and Stop between host threads
};

// Guards the candidate map. Before Create there is no mutex, and no thread either (Start
// needs Create): the map is then changed by one thread only and needs no lock.
class NuvCandidateGuard {
public:
    explicit NuvCandidateGuard(NuvMutex& mutex) : m_mutex(mutex), m_locked(mutex.FlagCreate()) {
        if (m_locked)
            m_mutex.Lock();
    }
    ~NuvCandidateGuard() {
        if (m_locked)
            m_mutex.Unlock();
    }
    NuvCandidateGuard(const NuvCandidateGuard&) = delete;
    NuvCandidateGuard& operator=(const NuvCandidateGuard&) = delete;

private:
    NuvMutex& m_mutex;
    bool m_locked;
};

#endif
