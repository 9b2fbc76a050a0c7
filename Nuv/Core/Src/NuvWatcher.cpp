// NuvWatcher: the watcher's life (Create, Start, Stop, Destroy) and its thread's passes.
#include "NuvWatcher"

#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>

#include "NuvLog"
#include "NuvResult"
#include "NuvWatcherLoop.h"

namespace {

const unsigned long kWatcherStackSize = 0x100000; // host callbacks run on this thread

// The watcher whose passes run on this thread: Stop called from a pass must not join.
thread_local const NuvWatcher* t_passOwner = nullptr;

void DropWakeDescriptor(NuvWatcherLoop& loop, int index) {
    print_dlog(NUV_LOG_INFO, "\n[NuvWatcher::t_Main] wake descriptor %d dropped (revents 0x%x)\n",
               loop.wake[index].fd, static_cast<unsigned>(loop.wake[index].revents));
    for (int i = index + 1; i < loop.wakeCount; ++i)
        loop.wake[i - 1] = loop.wake[i];
    --loop.wakeCount;
}

// Waits until the period that began at passStart (min(): now) has run out (if there is
// one) or a wake descriptor has input (true: run the next pass), or Stop was called (false).
bool WaitForNextPass(NuvWatcherLoop& loop, unsigned generation,
                     std::chrono::steady_clock::time_point passStart) {
    for (;;) {
        if (loop.stopping.load() || loop.generation.load() != generation)
            return false;
        // Period 0: no timer at all, only input or a stop end the wait.
        const unsigned long periodMs = loop.periodMs.load();
        int timeout = -1;
        if (periodMs > 0) {
            if (passStart == std::chrono::steady_clock::time_point::min())
                passStart = std::chrono::steady_clock::now();
            const auto remaining =
                passStart + std::chrono::milliseconds(periodMs) - std::chrono::steady_clock::now();
            if (remaining.count() <= 0)
                return true;
            // Rounded up, so the thread never wakes a little early and spins on a zero timeout.
            const int64_t remainingMs =
                std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
            timeout = remainingMs > INT32_MAX ? INT32_MAX : static_cast<int>(remainingMs);
        }

        struct pollfd fds[1 + NuvWatcherLoop::kMaxWakeDescriptors];
        fds[0] = {loop.stopFd, POLLIN, 0};
        for (int i = 0; i < loop.wakeCount; ++i)
            fds[1 + i] = {loop.wake[i].fd, loop.wake[i].events, 0};
        const int count = 1 + loop.wakeCount;

        const int ready = poll(fds, static_cast<nfds_t>(count), timeout);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            // Only the wake descriptors can make poll itself fail; go on without them.
            print_dlog(NUV_LOG_INFO,
                       "\n[NuvWatcher::t_Main] poll failed (%s), wake descriptors dropped\n",
                       strerror(errno));
            loop.wakeCount = 0;
            continue;
        }
        if (fds[0].revents != 0)
            return false;

        bool input = false;
        for (int i = count - 1; i >= 1; --i) {
            const short revents = fds[i].revents;
            if ((revents & fds[i].events) != 0)
                input = true;
            // A broken descriptor would report itself on every poll: stop watching it.
            if ((revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
                loop.wake[i - 1].revents = revents;
                DropWakeDescriptor(loop, i - 1);
            }
        }
        if (input)
            return true;
    }
}

} // namespace

NuvWatcher::NuvWatcher() : m_pLoop(new NuvWatcherLoop), m_nWatcherType(0) {
    m_itCandidate = m_mapCandidate.end();
}

NuvWatcher::~NuvWatcher() {
    if (m_pLoop != nullptr) {
        if (m_pLoop->stopFd >= 0)
            close(m_pLoop->stopFd);
        delete m_pLoop;
        m_pLoop = nullptr;
    }
}

int NuvWatcher::Create() {
    if (m_mutex.FlagCreate())
        return NUV_OK;
    if (!m_semaphore.Create(0))
        return NUV_ERR_GENERAL;
    if (!m_mutex.Create()) {
        m_semaphore.Destroy();
        return NUV_ERR_GENERAL;
    }
    const int stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stopFd < 0 || NuvCallbackHandler::Create() != NUV_OK) {
        if (stopFd >= 0)
            close(stopFd);
        m_mutex.Destroy();
        m_semaphore.Destroy();
        return NUV_ERR_GENERAL;
    }
    m_pLoop->stopFd = stopFd;
    return NUV_OK;
}

int NuvWatcher::Destroy() {
    Stop();
    // Candidates added before Create (without a thread) are released as well.
    for (;;) {
        std::string key;
        {
            NuvCandidateGuard guard(m_mutex);
            if (m_mapCandidate.empty())
                break;
            key = m_mapCandidate.begin()->first;
        }
        t_DeleteCandidate(key.c_str());
    }
    m_itCandidate = m_mapCandidate.end();
    if (!m_mutex.FlagCreate())
        return NUV_OK;

    NuvCallbackHandler::Destroy();
    m_mutex.Destroy();
    m_semaphore.Destroy();
    close(m_pLoop->stopFd);
    m_pLoop->stopFd = -1;
    return NUV_OK;
}

void NuvWatcher::SetPeriod(unsigned long period) {
    m_pLoop->periodMs.store(period);
}

void NuvWatcher::t_SetWakeDescriptors(const struct pollfd* fds, int count) {
    if (fds == nullptr || count < 0)
        count = 0;
    if (count > NuvWatcherLoop::kMaxWakeDescriptors) {
        print_dlog(NUV_LOG_INFO, "\n[NuvWatcher::t_SetWakeDescriptors] %d descriptors, %d kept\n",
                   count, NuvWatcherLoop::kMaxWakeDescriptors);
        count = NuvWatcherLoop::kMaxWakeDescriptors;
    }
    for (int i = 0; i < count; ++i) {
        m_pLoop->wake[i] = fds[i];
        if (m_pLoop->wake[i].events == 0)
            m_pLoop->wake[i].events = POLLIN;
        m_pLoop->wake[i].revents = 0;
    }
    m_pLoop->wakeCount = count;
}

int NuvWatcher::Start() {
    std::lock_guard<std::mutex> lock(m_pLoop->startStop);
    if (m_pLoop->stopFd < 0)
        return NUV_ERR_CREATE_THREAD;
    if (NuvThread::FlagCreate())
        return NUV_OK;

    // A previous Stop left its wake-up in the eventfd.
    uint64_t pending;
    while (read(m_pLoop->stopFd, &pending, sizeof(pending)) > 0) {
    }
    m_pLoop->stopping.store(false);
    ++m_pLoop->generation;
    if (!NuvThread::Create("NuvWatcher", kWatcherStackSize)) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvWatcher::Start] thread creation failed\n");
        return NUV_ERR_CREATE_THREAD;
    }
    m_semaphore.Take();
    return NUV_OK;
}

void NuvWatcher::Stop() {
    if (t_passOwner == this) {
        // Called from a pass: the loop ends after it. Joining is left to whoever stops
        // or destroys the watcher from outside, unless nobody else is doing so now.
        m_pLoop->stopping.store(true);
        std::unique_lock<std::mutex> lock(m_pLoop->startStop, std::try_to_lock);
        if (lock.owns_lock())
            NuvThread::Destroy();
        return;
    }
    std::lock_guard<std::mutex> lock(m_pLoop->startStop);
    if (!NuvThread::FlagCreate())
        return;
    m_pLoop->stopping.store(true);
    const uint64_t one = 1;
    if (write(m_pLoop->stopFd, &one, sizeof(one)) < 0) {
        // Only a full counter refuses the write, and then a wake-up is pending already.
    }
    NuvThread::Destroy();
}

void NuvWatcher::t_Main() {
    t_passOwner = this;
    m_semaphore.Give();
    NuvWatcherLoop& loop = *m_pLoop;
    const unsigned generation = loop.generation.load();
    while (!loop.stopping.load() && loop.generation.load() == generation) {
        // Without a period the clock is not read: passes then come with input, and in an
        // emulated machine a clock read is a system call. A period set during such a pass
        // counts from its end.
        const auto passStart = loop.periodMs.load() > 0
                                   ? std::chrono::steady_clock::now()
                                   : std::chrono::steady_clock::time_point::min();
        t_SpecialEnumerate();
        t_ExtraEnumerate();
        if (!WaitForNextPass(loop, generation, passStart))
            break;
    }
    t_passOwner = nullptr;
}
