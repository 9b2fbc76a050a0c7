// Waits for a condition with a deadline instead of sleeping a fixed time.
#ifndef NUV_MEASURE_WAIT_FOR_H
#define NUV_MEASURE_WAIT_FOR_H

#include <chrono>
#include <thread>

// Polls `condition` every millisecond until it holds or `timeout` has passed; returns
// whether it held.
template <typename Condition>
bool WaitFor(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
