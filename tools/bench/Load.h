// What the library costs and withstands: a burst of events, CPU while idle and playing,
// memory across arrivals and across library cycles.
#ifndef NUV_BENCH_LOAD_H
#define NUV_BENCH_LOAD_H

#include <functional>

#include "BenchSupport.h"

struct BurstResult {
    long sent = 0;
    long delivered = 0;
    long refusals = 0;  // events the sequencer refused while the library's pool was full
    double seconds = 0; // from the first event sent to the last delivered
};
// `events` note-ons at full speed to its device's callback, from a user-space client whose
// thread runs on a processor of its own.
BurstResult RunBurst(Host& host, int events);

// What threads used over `seconds`: % of one core and wake-ups per second, in all and by
// thread (those that used 0.05% or woke once a second or more).
struct CpuReading {
    double percent = 0;
    double wakeupsPerSecond = 0;
    std::string byThread;
};
using ThreadFilter = std::function<bool(const std::string& nameAndTid)>;
CpuReading CpuBetween(const std::map<std::string, ThreadUse>& before,
                      const std::map<std::string, ThreadUse>& after, double seconds,
                      const ThreadFilter& counted);
// The threads of process `pid` that `counted` accepts (all by default) over the next
// `seconds`.
CpuReading MeasureCpu(
    pid_t pid, double seconds,
    const ThreadFilter& counted = [](const std::string&) { return true; });

// Writes a two-voice piece of `seconds` (an organ melody in eighth notes over a held bass).
std::string WriteSong(double seconds);

// Plays the file on the synthesizer; the CPU of this process's `counted` threads over
// `seconds` meanwhile.
CpuReading CpuWhilePlaying(Host& host, INuvMIDIDevice* synthesizer, const std::string& path,
                           double seconds, const ThreadFilter& counted);

// `count` user-space clients arriving and leaving, in rounds; false if the host was not told
// of every one.
bool RunArrivals(Host& host, int count);

#endif
