// What one event costs as the library grows: many sending clients, many callbacks on one
// device.
#ifndef NUV_BENCH_FAN_OUT_H
#define NUV_BENCH_FAN_OUT_H

#include "BenchSupport.h"

struct FanOutResult {
    long sent = 0;
    long refusals = 0;   // events the sequencer refused while the library's pool was full
    long deliveries = 0; // callback calls
    long expected = 0;   // sent x callbacks: each event once per callback
    double eventsPerSecond = 0;
    double watcherUsPerEvent = 0; // the watcher thread's CPU time per event sent
    Timings latency;              // sent to the last callback's call, per event
};

// `events` note-ons at full speed, spread evenly over `senders` clients of their own, each
// taken by the host with one callback.
FanOutResult RunSenders(Host& host, int senders, int events);

// `events` note-ons at `perSecond` from one client whose device has `callbacks` callbacks.
FanOutResult RunCallbacks(Host& host, int callbacks, int events, int perSecond);

#endif
