#include "Waiter.h"

#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace nuvcli {

Waiter::~Waiter() {
    if (m_signalFd >= 0)
        close(m_signalFd);
    if (m_wakeFd >= 0)
        close(m_wakeFd);
}

bool Waiter::Open() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0)
        return false;
    m_signalFd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    m_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return m_signalFd >= 0 && m_wakeFd >= 0;
}

Waiter::Result Waiter::WaitUntil(Clock::time_point deadline) {
    for (;;) {
        if (m_interrupted.load())
            return SIGNALLED;
        int timeoutMs = -1;
        if (deadline != Clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                return TIMED_OUT;
            timeoutMs = left.count() > 3600000 ? 3600000 : static_cast<int>(left.count());
        }
        struct pollfd fds[2] = {{m_signalFd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        if (poll(fds, 2, timeoutMs) < 0)
            continue; // EINTR: a signal that is not ours, e.g. SIGWINCH
        if (fds[0].revents & POLLIN) {
            struct signalfd_siginfo info;
            while (read(m_signalFd, &info, sizeof(info)) == sizeof(info)) {
            }
            m_interrupted.store(true);
            return SIGNALLED;
        }
        if (fds[1].revents & POLLIN) {
            uint64_t count = 0;
            if (read(m_wakeFd, &count, sizeof(count)) == sizeof(count))
                return WOKEN;
        }
    }
}

void Waiter::Wake() {
    const uint64_t one = 1;
    // A full counter already means "woken"; nothing to do about a failed write.
    (void)!write(m_wakeFd, &one, sizeof(one));
}

} // namespace nuvcli
