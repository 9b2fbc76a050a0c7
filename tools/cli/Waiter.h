// Where the main thread waits: for SIGINT or SIGTERM, for a wake-up from a library
// thread, or for a deadline, whichever comes first. The two signals are blocked in every
// thread and read from a signalfd, so the library's threads never take them and a Ctrl+C
// that comes between two waits is not lost.
#ifndef NUVMIDI_CLI_WAITER_H
#define NUVMIDI_CLI_WAITER_H

#include <atomic>
#include <chrono>

namespace nuvcli {

class Waiter {
public:
    using Clock = std::chrono::steady_clock;
    enum Result { SIGNALLED, WOKEN, TIMED_OUT };

    Waiter() = default;
    ~Waiter();
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    // Blocks the signals; call before any thread starts. False when the descriptors
    // cannot be made.
    bool Open();

    // Waits until `deadline` or a wake-up or a signal. Once a signal has come, every wait
    // answers SIGNALLED at once: the run is ending.
    Result WaitUntil(Clock::time_point deadline);
    Result WaitFor(std::chrono::milliseconds timeout) { return WaitUntil(Clock::now() + timeout); }
    Result WaitForever() { return WaitUntil(Clock::time_point::max()); }

    // From any thread.
    void Wake();
    bool Interrupted() const { return m_interrupted.load(); }

private:
    int m_signalFd = -1;
    int m_wakeFd = -1;
    std::atomic<bool> m_interrupted{false};
};

} // namespace nuvcli

#endif
