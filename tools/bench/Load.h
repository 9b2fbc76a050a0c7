// What the library costs and withstands: a burst of events, CPU while idle and playing,
// memory across arrivals and across library cycles.
#ifndef NUV_BENCH_LOAD_H
#define NUV_BENCH_LOAD_H

#include "BenchSupport.h"

struct BurstResult {
    long sent = 0;
    long delivered = 0;
    long refusals = 0;  // events the sequencer refused while the library's pool was full
    double seconds = 0; // from the first event sent to the last delivered
};
// `events` note-ons from a user-space client at full speed to its device's callback.
BurstResult RunBurst(Host& host, int events);

// CPU of process `pid` in % of one core over `seconds`; with `byThread`, also the threads
// that used 0.05% or more.
double CpuPercent(pid_t pid, double seconds, std::string* byThread = nullptr);

// Plays a generated file of `seconds` on the synthesizer; the CPU of this process meanwhile.
double CpuWhilePlaying(Host& host, INuvMIDIDevice* synthesizer, double seconds);

// `count` user-space clients arriving and leaving, in rounds; false if the host was not told
// of every one.
bool RunArrivals(Host& host, int count);

#endif
