// Waits for a condition with a deadline instead of sleeping a fixed time.
#ifndef NUV_MEASURE_WAIT_FOR_H
#define NUV_MEASURE_WAIT_FOR_H

#include <chrono>
#include <cstdlib>
#include <thread>

// How many times slower than the x86_64 test VM this machine runs (NUV_TIME_SCALE, which the
// test VM sets for an emulated 32-bit ARM guest; 1 when unset). For the tolerances of timings
// that a slower machine stretches, not for deadlines (which WaitFor already makes generous).
inline double TimeScale() {
    const char* value = std::getenv("NUV_TIME_SCALE");
    const double scale = value != nullptr ? std::atof(value) : 1.0;
    return scale >= 1.0 ? scale : 1.0;
}

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
