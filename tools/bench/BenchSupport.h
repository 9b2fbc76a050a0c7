// Pieces every benchmark of the table uses: summaries of timings, CPU and memory readings,
// the library taken through its host API, and the table itself.
#ifndef NUV_BENCH_SUPPORT_H
#define NUV_BENCH_SUPPORT_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "NuvMIDI.h"

using BenchClock = std::chrono::steady_clock;

struct Timings {
    std::vector<double> ms;
    size_t missed = 0;               // events that never arrived within their deadline
    double Quantile(double q) const; // NaN when empty
    double Median() const { return Quantile(0.5); }
    // NaN below 100 samples, where the 99th percentile is only the largest.
    double P99() const;
};

// Each figure of several runs, by name; NaN values (a figure that could not be taken) are
// left out.
class Runs {
public:
    void Add(const std::string& figure, double value);
    // "min / median / max" over the runs, or "-" when there is none.
    std::string Spread(const std::string& figure, int decimals) const;
    double Median(const std::string& figure) const; // NaN when there is none

private:
    std::map<std::string, std::vector<double>> m_values;
};

// `prefix` and a number no earlier call gave, all of one width: a client that arrives under
// a new name is never taken for one of the same name still on its way out.
std::string UniqueName(const std::string& prefix);

// Moves the calling thread to the second processor, so that it runs beside the library
// rather than taking turns with it.
void PinToSecondCpu();

// What each thread of a process has used so far, as the scheduler counted it, keyed
// "name (tid)": its run time, and how often it was put on a processor (each wake-up).
struct ThreadUse {
    double cpuSeconds = 0;
    unsigned long long runs = 0;
};
std::map<std::string, ThreadUse> ThreadCpuSeconds(pid_t pid);
// Resident memory of this process in KiB.
long ResidentKiB();

// One row of the printed table.
struct Row {
    std::string what;
    std::string value;
    std::string anchor;
    std::string ratio;
    std::string goal;
};
std::string Fixed(double value, int decimals); // "-" for NaN
void PrintTable(const std::string& title, const std::vector<Row>& rows);

// The library as a host sees it, with the devices announced by name.
class Host : public NuvCallback {
public:
    bool Create();
    void Destroy();
    INuvMIDIDeviceManager* Manager() const { return m_manager; }
    // The first listed device whose name begins with `prefix` (or the synthesizer), created
    // for this host; null when none is listed within the wait.
    INuvMIDIDevice* Take(const std::string& prefix);
    INuvMIDIDevice* TakeSynthesizer();
    // Waits until the manager has announced `attached` arrivals and `detached` departures
    // in all since Create.
    bool WaitForDevices(long attached, long detached, std::chrono::milliseconds timeout);
    void DeviceCounts(long& attached, long& detached);

    int t_OnCallback(int event, void* arg1, void* arg2, void* arg3) override;

private:
    INuvMIDIDevice* m_Take(const std::string& prefix, bool synthesizer);
    INuvMIDIDeviceManager* m_manager = nullptr;
    std::mutex m_lock;
    std::condition_variable m_changed;
    long m_attached = 0;
    long m_detached = 0;
};

// A device callback that stamps each message's arrival.
class ArrivalStamps : public NuvCallback {
public:
    int t_OnCallback(int code, void* arg1, void* arg2, void* arg3) override;
    void Stamp(BenchClock::time_point at);
    // Waits for the next arrival after `count` arrivals in all; its time, or nothing.
    bool WaitFor(size_t count, BenchClock::time_point& at, std::chrono::milliseconds timeout);
    size_t Count();
    // Forwards each message to this device as it arrives (a keyboard played through the
    // synthesizer).
    void ForwardTo(INuvMIDIDevice* device) { m_forward = device; }

private:
    std::mutex m_lock;
    std::condition_variable m_arrived;
    std::vector<BenchClock::time_point> m_stamps;
    std::atomic<INuvMIDIDevice*> m_forward{nullptr};
};

#endif
