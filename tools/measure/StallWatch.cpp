#include "StallWatch.h"

#include <pthread.h>
#include <sched.h>
#include <time.h>

namespace {
constexpr long long kStepNs = 1000000;

long long NowNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}
} // namespace

StallWatch::StallWatch(int cpu) : m_cpu(cpu), m_thread(&StallWatch::m_Run, this) {}

StallWatch::~StallWatch() {
    m_stop = true;
    m_thread.join();
}

void StallWatch::m_Run() {
    // Named, so that a measurement of a process's threads can leave this one out.
    pthread_setname_np(pthread_self(), "stall watch");
    sched_param param{};
    param.sched_priority = sched_get_priority_max(SCHED_FIFO);
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &param); // where allowed
    if (m_cpu >= 0) {
        cpu_set_t cpus;
        CPU_ZERO(&cpus);
        CPU_SET(m_cpu, &cpus);
        pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus);
    }
    const timespec step{0, kStepNs};
    while (!m_stop) {
        const long long before = NowNs();
        nanosleep(&step, nullptr);
        const long long late = NowNs() - before - kStepNs;
        if (late > m_longestNs)
            m_longestNs = late;
    }
}
